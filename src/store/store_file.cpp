#include "store/store_file.h"

#include <certkern/errors.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "ber/read_cursor.h"
#include "platform/limits.h"
#include "store/journal.h"

namespace certkern {
namespace {

// Threads that write one stream without a lock of the file do so one after the other.
class StreamLock {
 public:
  explicit StreamLock(std::FILE* stream) : stream_(stream) { ::flockfile(stream_); }
  ~StreamLock() { ::funlockfile(stream_); }
  StreamLock(const StreamLock&) = delete;
  StreamLock& operator=(const StreamLock&) = delete;

 private:
  std::FILE* const stream_;
};

// One that stands would undo later what is written without it.
bool StandsNoJournal(StoreJournal& journal) {
  KeptChange standing;
  return journal.read(standing) == StoreJournal::Kept::None || Fault(ERROR_ACCESS_DENIED);
}

// Without a journal, where none may be made. One that stands there is from somebody who could.
Committed ChangeUnsafely(StoreJournal& journal, std::FILE* stream, const FileChange& change) {
  if (!StandsNoJournal(journal)) return Committed::No;
  const bool changed = change.isWhole() ? RewriteDurably(fileno(stream), change.pieces.front().bytes)
                                        : MakeDurably(fileno(stream), change);
  return changed ? Committed::Yes : Committed::No;
}

// Room that was made sure of for nothing: a full disk needs it. To cut a file at its end frees what lies behind.
void GiveBackReserved(int descriptor) {
  const LastErrorKeeper keeper;
  struct stat status;
  if (::fstat(descriptor, &status) == 0) static_cast<void>(!::ftruncate(descriptor, status.st_size));
}

// The file's room is made sure of.
Committed ChangeReserved(const std::string& path, std::FILE* stream, const FileChange& change) {
  StoreJournal journal(path);
  switch (journal.write(change)) {
    case StoreJournal::Written::Safe:
      break;
    case StoreJournal::Written::NotAllowed:
      return ChangeUnsafely(journal, stream, change);
    case StoreJournal::Written::Failed:
      return Committed::No;
  }
  const LastErrorKeeper keeper;
  if (!MakeDurably(fileno(stream), change)) return Committed::Standing;
  journal.drop();
  return Committed::Yes;
}

// What the file is to hold once a change is made that isn't ours to make.
bool ReadChanged(const std::string& path, KeptChange& kept, std::vector<BYTE>& image) {
  if (kept.change.isWhole()) {
    image = std::move(kept.bytes);
    return true;
  }
  const FileStream stream = OpenStoreFile(path.c_str(), kReadAccess, Creation::Existing);
  if (!stream || !ReadWholeFile(fileno(stream.get()), image)) return false;
  MakeInMemory(image, kept.change);
  return true;
}

}  // namespace

// One that merely can't be looked at, after the program has given up rights, is not gone.
bool DirectoryIsGone(const std::string& path) {
  const size_t slash = path.rfind('/');
  struct stat status;
  return slash != std::string::npos && slash != 0 && ::stat(path.substr(0, slash).c_str(), &status) != 0
      && (errno == ENOENT || errno == ENOTDIR);
}

bool LeadsTo(const std::string& path, std::FILE* stream) {
  struct stat byPath, byStream;
  return ::stat(path.c_str(), &byPath) == 0 && ::fstat(fileno(stream), &byStream) == 0
      && byPath.st_dev == byStream.st_dev && byPath.st_ino == byStream.st_ino;
}

bool IsSameFile(std::FILE* a, std::FILE* b) {
  struct stat first, second;
  return ::fstat(fileno(a), &first) == 0 && ::fstat(fileno(b), &second) == 0 && first.st_dev == second.st_dev
      && first.st_ino == second.st_ino;
}

std::string AbsolutePath(const std::string& path) {
  if (path.starts_with('/')) return path;
  const MallocOwner<char> directory(::getcwd(nullptr, 0));
  if (!directory || *directory.get() != '/') return path;  // it is gone, or out of reach
  std::string absolute = std::string(directory.get()) + '/' + path;
  return absolute.size() < PATH_MAX ? absolute : path;
}

StoreFileLock::~StoreFileLock() {
  if (!taken_) return;
  const LastErrorKeeper keeper;
  static_cast<void>(ubi_mutex_unlock(taken_));
}

bool StoreFileLock::take(ubi_mutex* mutex, DWORD code) {
  if (!mutex) return true;
  if (ubi_mutex_lock(mutex) != 0) return Fault(code);
  taken_ = mutex;
  return true;
}

bool ReadWholeFile(std::FILE* stream, std::vector<BYTE>& bytes) {
  uint64_t size = 0;
  if (!FileSize(stream, size) || !SeekFile(stream, 0, SEEK_SET)) return false;
  if (size > kMaxStoreFile) return Fault(CRYPT_E_FILE_ERROR);
  bytes.resize(size);
  size_t count = 0;
  if (!ReadFile(stream, bytes, count)) return false;
  bytes.resize(count);
  return true;
}

bool RewriteFile(std::FILE* stream, std::span<const BYTE> image) {
  const StreamLock whole(stream);
  return SeekFile(stream, 0, SEEK_SET) && TruncateFile(stream) && WriteFile(stream, image)
      && FlushFile(stream);
}

bool ReadWholeFile(int descriptor, std::vector<BYTE>& bytes) {
  struct stat status;
  if (::fstat(descriptor, &status) != 0) return Fault(ERROR_SEEK_ON_DEVICE);
  if (static_cast<uint64_t>(status.st_size) > kMaxStoreFile) return Fault(CRYPT_E_FILE_ERROR);
  bytes.resize(static_cast<size_t>(status.st_size));
  size_t count = 0;
  while (count < bytes.size()) {
    const ssize_t read =
        ::pread(descriptor, bytes.data() + count, bytes.size() - count, static_cast<off_t>(count));
    if (read < 0 && errno == EINTR) continue;
    if (read < 0) return Fault(ERROR_INTERNAL_ERROR);
    if (read == 0) break;  // it was cut meanwhile
    count += static_cast<size_t>(read);
  }
  bytes.resize(count);
  return true;
}

void SyncDirectory(const std::string& directory) {
  const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return;
  static_cast<void>(::fsync(descriptor));
  ::close(descriptor);
}

bool ReserveFile(int descriptor, uint64_t size) {
  if (size == 0 || ::fallocate(descriptor, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size)) == 0) {
    return true;
  }
  // any other errno: a file system that can't tell in advance
  return (errno != ENOSPC && errno != EDQUOT && errno != EFBIG) || Fault(ERROR_WRITE_FAULT);
}

bool RecoverStoreFile(const std::string& path, const FileLock& lock, std::vector<BYTE>& image) {
  image.clear();
  StoreJournal journal(path);
  if (lock.isExclusive()) journal.dropUnfinished();
  KeptChange kept;
  const StoreJournal::Kept found = journal.read(kept);
  if (found != StoreJournal::Kept::Whole) return found == StoreJournal::Kept::None;
  {
    const LastErrorKeeper keeper;
    const FileStream stream = OpenStoreFile(path.c_str(), kReadAccess | kWriteAccess, Creation::Existing);
    if (stream && MakeDurably(fileno(stream.get()), kept.change)) {
      journal.drop();
      return true;
    }
  }
  return ReadChanged(path, kept, image);
}

bool SettleStoreFile(const std::string& path, const FileLock& lock) {
  std::vector<BYTE> image;
  {
    const LastErrorKeeper keeper;
    if (RecoverStoreFile(path, lock, image) && image.empty()) return true;
  }
  StoreJournal journal(path);
  journal.drop();
  return StandsNoJournal(journal);
}

Committed CommitStoreFile(const std::string& path, std::FILE* stream, const FileChange& change) {
  const int descriptor = fileno(stream);
  const Committed committed =
      ReserveFile(descriptor, change.newSize) ? ChangeReserved(path, stream, change) : Committed::No;
  if (committed == Committed::No) GiveBackReserved(descriptor);
  return committed;
}

}  // namespace certkern
