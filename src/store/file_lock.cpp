#include "store/file_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/id_bracket.h"
#include "platform/limits.h"

namespace certkern {
namespace {

struct flock LockOf(int kind) {
  struct flock lock {};
  lock.l_type = static_cast<short>(kind);
  lock.l_whence = SEEK_SET;
  lock.l_start = off_t{1} << 62;
  lock.l_len = 1;
  return lock;
}

// A file of its own for each lock, so that a fork elsewhere in the program can't keep the lock beyond us for long.
int Open(const std::string& path, int access) {
  const IdBracket ids;
  return ::open(path.c_str(), access | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
}

bool Lock(int descriptor, int kind) {
  struct flock lock = LockOf(kind);
  int result;
  do result = ::fcntl(descriptor, F_OFD_SETLKW, &lock);
  while (result != 0 && errno == EINTR);
  return result == 0;
}

bool IsSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool LeadsStillTo(const std::string& path, int descriptor) {
  const IdBracket ids;
  struct stat byPath, locked;
  return ::stat(path.c_str(), &byPath) == 0 && ::fstat(descriptor, &locked) == 0
      && IsSameFile(byPath, locked);
}

}  // namespace

void FileLock::take(const std::string& path) {
  // whoever replaces the file while we wait for it may do so again, but not for ever
  for (unsigned attempt = 0; attempt < kMaxStoreFileReplacements; ++attempt) {
    release();
    int kind = F_WRLCK;
    descriptor_ = Open(path, O_RDWR);
    if (descriptor_ < 0) {
      kind = F_RDLCK;
      descriptor_ = Open(path, O_RDONLY);
    }
    if (descriptor_ < 0 || !Lock(descriptor_, kind)) return;
    exclusive_ = kind == F_WRLCK;
    if (LeadsStillTo(path, descriptor_)) return;
  }
}

void FileLock::follow(const std::string& path, std::FILE* stream) {
  struct stat opened, locked;
  if (::fstat(fileno(stream), &opened) != 0) return;
  if (descriptor_ >= 0 && ::fstat(descriptor_, &locked) == 0 && IsSameFile(opened, locked)) return;
  take(path);
}

void FileLock::release() noexcept {
  if (descriptor_ < 0) return;
  struct flock none = LockOf(F_UNLCK);  // at once, even where a child still has the descriptor
  static_cast<void>(::fcntl(descriptor_, F_OFD_SETLK, &none));
  ::close(descriptor_);
  descriptor_ = -1;
  exclusive_ = false;
}

}  // namespace certkern
