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
#include "store/journal.h"
#include "store/store_file.h"

namespace certkern {
namespace {

// A file that is open and must not outlive a failure. Where the system can, it has no name until it is complete, so that
// nothing is left of a program that is killed while it writes; else, and in the instant before it takes its place, it has
// one that whoever next has the target for himself clears away.
class NewFile {
 public:
  NewFile(const std::string& directory, const std::string& pattern) : path_(pattern) {
    const bool canBeNamed = ::access(kDescriptors, X_OK) == 0;
    if (canBeNamed) descriptor_ = ::open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    if (descriptor_ >= 0) return;
    descriptor_ = ::mkostemp(path_.data(), O_CLOEXEC);
    named_ = descriptor_ >= 0;
  }
  ~NewFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
    if (named_) ::unlink(path_.c_str());
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  int descriptor() const { return descriptor_; }
  bool moveTo(const char* path) {
    if (!named_ && !giveName()) return false;
    if (::rename(path_.c_str(), path) != 0) return false;
    named_ = false;
    return true;
  }

 private:
  static constexpr char kDescriptors[] = "/proc/self/fd/";

  // A name of a file that was made for it: no other has it, and nobody else takes it for his own.
  bool giveName() {
    const int taken = ::mkostemp(path_.data(), O_CLOEXEC);
    if (taken < 0) return false;
    ::close(taken);
    ::unlink(path_.c_str());
    const std::string self = kDescriptors + std::to_string(descriptor_);
    named_ = ::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, path_.c_str(), AT_SYMLINK_FOLLOW) == 0;
    return named_;
  }

  std::string path_;
  int descriptor_ = -1;
  bool named_ = false;
};

// A directory that takes no files of ours, one that lets nobody put his in the place of another's, or a target that something
// is mounted on: none of these keeps anybody from writing into the file itself.
bool MustStayItself(int error) {
  return error == EACCES || error == EPERM || error == EROFS || error == EBUSY;
}

// Whether another file in its place is as good to everybody.
bool IsReplaceable(const char* path, struct stat& status) {
  if (::lstat(path, &status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink != 1) return false;
  const int descriptor = ::open(path, O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (descriptor < 0) return false;
  const bool hasMoreRights = ::fgetxattr(descriptor, "system.posix_acl_access", nullptr, 0) > 0;
  ::close(descriptor);
  return !hasMoreRights;
}

// The mode comes behind the owner: it must not stand on a file of another one.
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
  NewFile file(directory, StoreJournal(path).unfinishedPath());
  if (file.descriptor() >= 0 && !MakeLike(file.descriptor(), status)) return Replaced::NotPossible;
  const bool complete = file.descriptor() >= 0 && MakeDurably(file.descriptor(), FileChange::Whole(content));
  if (!complete || !file.moveTo(path)) {
    if (MustStayItself(errno)) return Replaced::NotPossible;
    SetLastError(ERROR_WRITE_FAULT);
    return Replaced::No;
  }
  SyncDirectory(directory);
  return Replaced::Yes;
}

}  // namespace certkern
