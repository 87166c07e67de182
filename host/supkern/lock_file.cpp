#include "supkern/lock_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "supkern/codes.h"
#include "supkern/directories.h"

namespace certkern::support {

namespace {

constexpr std::string_view kFilePrefix = "certkern";
constexpr size_t kMaxFileName = 255;
// How often a lock file may vanish under us before we say so.
constexpr int kMaxReplacements = 1000;

// All users of a machine have to meet in one directory, for they share the global stores. Root owns the usual
// one, and its sticky bit keeps each user's files from the others' hands.
std::string DefaultLockDirectory() {
  struct stat status {};
  const bool isShared = stat("/run/lock", &status) == 0 && S_ISDIR(status.st_mode)
      && (status.st_mode & (S_ISVTX | S_IWOTH)) == (S_ISVTX | S_IWOTH);
  return isShared ? "/run/lock" : "/tmp";
}

// FNV-1a: no secret, it only has to spread names that differ in their cut-off parts.
uint64_t HashName(std::string_view name) {
  uint64_t hash = 0xCBF29CE484222325;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  return hash;
}

std::string FileName(std::string_view name) {
  std::string file(kFilePrefix);
  if (file.size() + name.size() <= kMaxFileName) return file.append(name);
  char hash[24];
  const int length =
      std::snprintf(hash, sizeof hash, "~%016llx", static_cast<unsigned long long>(HashName(name)));
  // the end of a path says more than its beginning
  const size_t kept = kMaxFileName - file.size() - static_cast<size_t>(length);
  return file.append(name.substr(name.size() - kept)).append(hash);
}

bool IsValidName(std::string_view name) {
  return !name.empty() && std::ranges::none_of(name, [](char c) {
    return c == '/' || c == '\\' || (c >= 0 && c < 0x20) || c == 0x7F;
  });
}

// Readable by all, as a lock needs no more: others have to lock it too. First without creating, which a
// sticky directory may forbid for a file of another user's.
int OpenLockFile(const std::string& path, Descriptor& opened) {
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
  opened = Descriptor(open(path.c_str(), kFlags));
  if (!opened && errno == ENOENT) {
    opened = Descriptor(open(path.c_str(), kFlags | O_CREAT | O_EXCL, 0644));
    if (!opened) return errno;
    if (fchmod(opened.get(), 0644) != 0) return errno;  // what the umask took
  }
  if (!opened) return errno;
  struct stat status {};
  if (fstat(opened.get(), &status) != 0) return errno;
  return S_ISREG(status.st_mode) ? 0 : EINVAL;
}

// Whether the path still leads to the open file.
bool IsStillThere(const std::string& path, const Descriptor& opened) {
  struct stat there {
  }, ours{};
  return lstat(path.c_str(), &there) == 0 && fstat(opened.get(), &ours) == 0 && there.st_dev == ours.st_dev
      && there.st_ino == ours.st_ino;
}

}  // namespace

int LockFilePath(std::string_view name, std::string& path) {
  if (name.size() > kMaxMutexName) return ENAMETOOLONG;
  if (!IsValidName(name)) return EINVAL;
  const std::string directory = ConfiguredPath("locks", DefaultLockDirectory());
  if (directory.empty()) return EINVAL;
  switch (EnsureDirectory(directory, 0700, Sharing::Sticky)) {
    case 0:
      path = directory + '/' + FileName(name);
      return 0;
    case kPathNotFound:
      return ENOENT;
    default:
      return EACCES;
  }
}

int LockFile(const std::string& path, Descriptor& locked) {
  for (int attempt = 0; attempt < kMaxReplacements; ++attempt) {
    Descriptor file;
    const int error = OpenLockFile(path, file);
    if (error == EEXIST) continue;  // somebody made it between our two tries
    if (error) return error;
    while (flock(file.get(), LOCK_EX) != 0) {
      if (errno != EINTR) return errno;
    }
    if (IsStillThere(path, file)) {
      locked = std::move(file);
      return 0;
    }
  }
  return EAGAIN;
}

}  // namespace certkern::support
