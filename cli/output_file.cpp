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
#include <utility>
#include <vector>

namespace certkern::cli {
namespace {

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kEverybody = 0666;  // the umask takes its part away
constexpr mode_t kModeBits = 07777;
constexpr size_t kCopied = size_t{1} << 16;

std::string Shown(const std::string& path) { return Escaped(Utf8Of(std::string_view(path))); }

mode_t Mask() {
  const mode_t mask = umask(0);
  umask(mask);
  return mask;
}

std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == path.npos ? "./" : path.substr(0, slash + 1);
}

// A file beside the target that takes its place when it is whole. It has no name until then where the file system allows
// that, so that nothing stays behind when the tool is killed.
class Unfinished {
 public:
  explicit Unfinished(const std::string& target) : target_(target) {
    const std::string directory = DirectoryOf(target);
    file_ = FileDescriptor(open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kOwnerOnly));
    if (file_) return;
    path_ = directory + std::string(kPattern);
    file_ = FileDescriptor(mkostemp(path_.data(), O_CLOEXEC));
    if (!file_) path_.clear();
  }
  ~Unfinished() {
    if (!path_.empty()) unlink(path_.c_str());
  }
  Unfinished(const Unfinished&) = delete;
  Unfinished& operator=(const Unfinished&) = delete;

  // Whether there is one that can look like `old` (null: nothing is there yet). Where the directory takes no files of ours,
  // or the file is another's, the target itself has to be written.
  bool canReplace(const struct stat* old) const {
    if (!file_) return false;
    if (old && fchown(file(), old->st_uid, old->st_gid) != 0) return false;
    return fchmod(file(), old ? old->st_mode & kModeBits : kEverybody & ~Mask()) == 0;
  }
  int file() const { return file_.get(); }
  // False where the target can't be replaced, as one that something is mounted on.
  bool take() {
    if (fsync(file()) != 0 && errno != EINVAL) ThrowErrno(Shown(target_));
    if (path_.empty()) giveName();
    if (rename(path_.c_str(), target_.c_str()) != 0) {
      if (errno == EBUSY) return false;
      ThrowErrno(Shown(target_));
    }
    path_.clear();
    return true;
  }

 private:
  static constexpr std::string_view kPattern = ".certkern-XXXXXX";

  // A link can't take the place of a file, so it needs a name of its own on the way.
  void giveName() {
    const std::string self = "/proc/self/fd/" + std::to_string(file());
    for (int attempt = 0; attempt < 100; ++attempt) {
      std::string name = DirectoryOf(target_) + std::string(kPattern);
      const FileDescriptor taken(mkostemp(name.data(), O_CLOEXEC));  // a name that was free just now
      if (!taken || unlink(name.c_str()) != 0) break;
      if (linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
        path_ = std::move(name);
        return;
      }
      if (errno != EEXIST) break;
    }
    ThrowErrno(Shown(target_));
  }

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

void CopyInto(const std::string& path, int from) {
  if (lseek(from, 0, SEEK_SET) != 0) ThrowErrno(Shown(path));
  WriteInPlace(path, [&](const Sink& sink) {
    std::vector<BYTE> room(kCopied);
    for (;;) {
      const ssize_t count = read(from, room.data(), room.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) ThrowErrno(Shown(path));
      if (count == 0) return;
      sink(std::span(room).first(static_cast<size_t>(count)));
    }
  });
}

void WriteBeside(const std::string& path, const struct stat* old,
                 const std::function<void(const Sink&)>& write) {
  // who may not write the file itself does not get around that by way of its directory
  if (old && access(path.c_str(), W_OK) != 0) ThrowErrno(Shown(path));
  Unfinished unfinished(path);
  if (!unfinished.canReplace(old)) return WriteInPlace(path, write);
  write([&](std::span<const BYTE> bytes) { WriteAll(unfinished.file(), bytes, Shown(path)); });
  if (!unfinished.take()) CopyInto(path, unfinished.file());
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
  // a file with a second name stays one under both
  if (!S_ISREG(old.st_mode) || old.st_nlink > 1 || !named) return WriteInPlace(path, write);
  WriteBeside(target, &old, write);
}

}  // namespace certkern::cli
