#include "output_file.h"

#include "failure.h"
#include "handles.h"
#include "input.h"
#include "text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace certkern::cli {
namespace {

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kEverybody = 0666;  // the umask takes its part away
constexpr mode_t kModeBits = 07777;

std::string Shown(const std::string& path) { return Escaped(Utf8Of(std::string_view(path))); }

mode_t Mask() {
  const mode_t mask = umask(0);
  umask(mask);
  return mask;
}

// A file of a name that nobody else has, which goes again unless it takes its place.
class Unfinished {
 public:
  explicit Unfinished(const std::string& target) : target_(target) {
    const size_t slash = target.rfind('/');
    path_ = (slash == target.npos ? "" : target.substr(0, slash + 1)) + ".certkern-XXXXXX";
    file_ = FileDescriptor(mkostemp(path_.data(), O_CLOEXEC));
    if (!file_) ThrowErrno(Shown(target));
  }
  ~Unfinished() {
    if (!path_.empty()) unlink(path_.c_str());
  }
  Unfinished(const Unfinished&) = delete;
  Unfinished& operator=(const Unfinished&) = delete;

  int file() const { return file_.get(); }
  // `old`: what it takes the place of, or null.
  void take(const struct stat* old) {
    // who may not give a file away keeps it, as if he had written it anew
    if (old && fchown(file(), old->st_uid, old->st_gid) != 0 && errno != EPERM) ThrowErrno(Shown(target_));
    const mode_t mode = old ? old->st_mode & kModeBits : kEverybody & ~Mask();
    if (fchmod(file(), mode) != 0 || (fsync(file()) != 0 && errno != EINVAL)
        || rename(path_.c_str(), target_.c_str()) != 0)
      ThrowErrno(Shown(target_));
    path_.clear();
  }

 private:
  std::string target_;
  std::string path_;
  FileDescriptor file_;
};

// Where links lead to; the path itself where nothing is yet.
std::string Resolved(const std::string& path) {
  char room[PATH_MAX];
  return realpath(path.c_str(), room) ? std::string(room) : path;
}

bool IsSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

void WriteInPlace(const std::string& path, const std::function<void(const Sink&)>& write) {
  const FileDescriptor file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | O_TRUNC, kEverybody));
  if (!file) ThrowErrno(Shown(path));
  write([&](std::span<const BYTE> bytes) { WriteAll(file.get(), bytes, Shown(path)); });
}

void WriteBeside(const std::string& path, const struct stat* old,
                 const std::function<void(const Sink&)>& write) {
  // who may not write the file itself does not get around that by way of its directory
  if (old && access(path.c_str(), W_OK) != 0) ThrowErrno(Shown(path));
  Unfinished unfinished(path);
  write([&](std::span<const BYTE> bytes) { WriteAll(unfinished.file(), bytes, Shown(path)); });
  unfinished.take(old);
}

// A secret never lands in a file that was there before: others may have it open, or may have made it a link.
void WriteNew(const std::string& path, const std::function<void(const Sink&)>& write) {
  const FileDescriptor file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, kOwnerOnly));
  if (!file && errno == EEXIST)
    throw Failure(Shown(path) + ": a private key is only written to a new file, and this one exists already");
  if (!file) ThrowErrno(Shown(path));
  write([&](std::span<const BYTE> bytes) { WriteAll(file.get(), bytes, Shown(path)); });
  if (fsync(file.get()) != 0 && errno != EINVAL) ThrowErrno(Shown(path));
}

}  // namespace

void WriteAll(int file, std::span<const BYTE> bytes, std::string_view name) {
  while (!bytes.empty()) {
    const ssize_t count = write(file, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) ThrowErrno(name);
    bytes = bytes.subspan(static_cast<size_t>(count));
  }
}

void WriteFile(const std::string& path, Secrecy secrecy, const std::function<void(const Sink&)>& write) {
  struct stat old;
  const bool exists = stat(path.c_str(), &old) == 0;
  if (exists && WasRead(old))
    throw Failure(Shown(path)
                  + ": this is the file that is read, and writing would destroy it; name another");
  if (secrecy == Secrecy::Secret) return WriteNew(path, write);
  if (!exists) {
    struct stat link;
    // a link that leads nowhere is followed, as any other
    const bool dangling = lstat(path.c_str(), &link) == 0;
    return dangling ? WriteInPlace(path, write) : WriteBeside(path, nullptr, write);
  }
  const std::string target = Resolved(path);
  struct stat resolved;
  const bool named = stat(target.c_str(), &resolved) == 0 && IsSameFile(resolved, old);
  if (!S_ISREG(old.st_mode) || !named) return WriteInPlace(path, write);
  WriteBeside(target, &old, write);
}

}  // namespace certkern::cli
