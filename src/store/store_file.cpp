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

// Special files can't be synced, and need not be.
bool SyncFile(std::FILE* stream) {
  return ::fsync(fileno(stream)) == 0 || errno == EINVAL || Fault(ERROR_WRITE_FAULT);
}

// One that merely can't be looked at, after the program has given up rights, is not gone.
bool DirectoryIsGone(const std::string& path) {
  const size_t slash = path.rfind('/');
  struct stat status;
  return slash != std::string::npos && slash != 0 && ::stat(path.substr(0, slash).c_str(), &status) != 0
      && (errno == ENOENT || errno == ENOTDIR);
}

// Without a journal, where none may be made. One that stands there, from somebody who could, would undo it later.
bool RewriteUnsafely(StoreJournal& journal, std::FILE* stream, std::span<const BYTE> image) {
  std::vector<BYTE> standing;
  if (journal.read(standing) != StoreJournal::Kept::None) return Fault(ERROR_ACCESS_DENIED);
  return RewriteFile(stream, image);
}

}  // namespace

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

bool RewriteFileDurably(std::FILE* stream, std::span<const BYTE> image) {
  return SeekFile(stream, 0, SEEK_SET) && WriteFile(stream, image) && FlushFile(stream)
      && TruncateFile(stream) && SyncFile(stream);
}

bool ReserveFile(std::FILE* stream, size_t size) {
  if (size == 0 || ::fallocate(fileno(stream), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size)) == 0) {
    return true;
  }
  // any other errno: a file system that can't tell in advance
  return (errno != ENOSPC && errno != EDQUOT && errno != EFBIG) || Fault(ERROR_WRITE_FAULT);
}

bool RecoverStoreFile(const std::string& path, std::vector<BYTE>& image) {
  StoreJournal journal(path);
  const StoreJournal::Kept kept = journal.read(image);
  if (kept != StoreJournal::Kept::Whole) return kept == StoreJournal::Kept::None;
  const LastErrorKeeper keeper;
  const FileStream stream = OpenStoreFile(path.c_str(), kReadAccess | kWriteAccess, Creation::Existing);
  if (!stream || !RewriteFileDurably(stream.get(), image)) return true;
  journal.drop();
  image.clear();
  return true;
}

bool CommitStoreFile(const std::string& path, std::FILE* stream, std::span<const BYTE> image) {
  if (DirectoryIsGone(path)) return Fault(ERROR_FILE_NOT_FOUND);
  // a file that was replaced or removed under an open store is written where it is, and leaves the path alone
  if (!LeadsTo(path, stream)) return RewriteFile(stream, image);
  if (!ReserveFile(stream, image.size())) return false;
  StoreJournal journal(path);
  switch (journal.write(image)) {
    case StoreJournal::Written::Safe:
      break;
    case StoreJournal::Written::NotAllowed:
      return RewriteUnsafely(journal, stream, image);
    case StoreJournal::Written::Failed:
      return false;
  }
  // on a failure from here on the journal stays, for the next open
  if (!RewriteFileDurably(stream, image)) return false;
  journal.drop();
  return true;
}

}  // namespace certkern
