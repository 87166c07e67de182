#include "store/file_replacement.h"

#include <certkern/errors.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "ber/read_cursor.h"
#include "platform/id_bracket.h"
#include "platform/owner.h"
#include "store/file_change.h"
#include "store/store_file.h"

namespace certkern {
namespace {

// A file that is open and must not outlive a failure.
class NewFile {
 public:
  explicit NewFile(const std::string& directory) : path_(directory + ".certkern-save-XXXXXX") {
    descriptor_ = ::mkostemp(path_.data(), O_CLOEXEC);
  }
  ~NewFile() {
    if (descriptor_ < 0) return;
    ::close(descriptor_);
    if (!kept_) ::unlink(path_.c_str());
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  int descriptor() const { return descriptor_; }
  bool moveTo(const char* path) { return kept_ = ::rename(path_.c_str(), path) == 0; }

 private:
  std::string path_;
  int descriptor_ = -1;
  bool kept_ = false;
};

// Whether another file in its place is as good to everybody.
bool IsReplaceable(const char* path, struct stat& status) {
  if (::lstat(path, &status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink != 1) return false;
  const int descriptor = ::open(path, O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (descriptor < 0) return false;
  const bool hasMoreRights = ::fgetxattr(descriptor, "system.posix_acl_access", nullptr, 0) > 0;
  ::close(descriptor);
  return !hasMoreRights;
}

bool MakeLike(int descriptor, const struct stat& status) {
  return ::fchown(descriptor, status.st_uid, status.st_gid) == 0
      && ::fchmod(descriptor, status.st_mode & 07777) == 0;
}

std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

}  // namespace

Replaced ReplaceFile(const char* path, std::span<const BYTE> content) {
  const IdBracket ids;
  struct stat status;
  if (!IsReplaceable(path, status)) return Replaced::NotPossible;
  const std::string directory = DirectoryOf(path);
  NewFile file(directory);
  if (file.descriptor() < 0 && (errno == EACCES || errno == EPERM || errno == EROFS))
    return Replaced::NotPossible;
  if (file.descriptor() >= 0 && !MakeLike(file.descriptor(), status)) return Replaced::NotPossible;
  if (file.descriptor() < 0 || !MakeDurably(file.descriptor(), FileChange::Whole(content))
      || !file.moveTo(path)) {
    SetLastError(ERROR_WRITE_FAULT);
    return Replaced::No;
  }
  SyncDirectory(directory);
  return Replaced::Yes;
}

}  // namespace certkern
