#include "store/file_witness.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/auxv.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <optional>

#include "platform/id_bracket.h"

namespace certkern {
namespace {

// The coarsest clock that marks files counts in steps of two seconds.
constexpr time_t kGranularity = 2;

// Not every header has all of them.
constexpr unsigned long kXfs = 0x58465342, kZfs = 0x2FC12FC1, kJfs = 0x3153464A;
constexpr unsigned long kLocalFileSystems[] = {EXT4_SUPER_MAGIC,      kXfs,        BTRFS_SUPER_MAGIC,
                                               F2FS_SUPER_MAGIC,      TMPFS_MAGIC, RAMFS_MAGIC,
                                               OVERLAYFS_SUPER_MAGIC, kZfs,        kJfs,
                                               REISERFS_SUPER_MAGIC};

// The clock that the kernel marks files with; the precise one is up to a tick ahead of it.
bool IsSettled(const timespec& changed) {
  timespec now;
  if (::clock_gettime(CLOCK_REALTIME_COARSE, &now) != 0) return false;
  return IsEarlier({changed.tv_sec + kGranularity, changed.tv_nsec}, now);
}

}  // namespace

bool FileWitness::isOf(const struct stat& status) const {
  return status.st_dev == device && status.st_ino == inode && status.st_size == size
      && IsSameTime(status.st_mtim, modified) && IsSameTime(status.st_ctim, changed);
}

bool FileWitness::isSameAs(const FileWitness& other) const {
  return other.device == device && other.inode == inode && other.size == size
      && IsSameTime(other.modified, modified) && IsSameTime(other.changed, changed);
}

bool IsOnLocalFileSystem(int descriptor) {
  struct statfs status;
  if (::fstatfs(descriptor, &status) != 0) return false;
  const auto type = static_cast<unsigned long>(status.f_type) & 0xFFFFFFFFu;
  return std::find(std::begin(kLocalFileSystems), std::end(kLocalFileSystems), type)
      != std::end(kLocalFileSystems);
}

bool WitnessOf(int descriptor, FileWitness& witness) {
  struct stat status;
  if (::fstat(descriptor, &status) != 0) return false;
  witness = {status.st_dev,  status.st_ino,  status.st_size,
             status.st_mtim, status.st_ctim, IsSettled(status.st_ctim) && IsOnLocalFileSystem(descriptor)};
  return true;
}

FileWitness WitnessOf(std::FILE* stream) {
  FileWitness witness;
  return WitnessOf(::fileno(stream), witness) ? witness : FileWitness();
}

bool IsSurelyUnchanged(const std::string& path, const FileWitness& witness) {
  if (!witness.settled) return false;
  std::optional<IdBracket> ids;  // asks the system itself, so it is spared whoever has no other ids
  if (::getauxval(AT_SECURE)) ids.emplace();
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) return false;
  struct stat status;
  const bool same = ::fstat(descriptor, &status) == 0 && witness.isOf(status);
  ::close(descriptor);
  return same;
}

}  // namespace certkern
