// What store files have in common: their lock across processes, and reading and rewriting them as a whole.
#ifndef CERTKERN_STORE_STORE_FILE_H
#define CERTKERN_STORE_STORE_FILE_H

#include <certkern/types.h>

#include <cstdio>
#include <span>
#include <string>
#include <vector>

#include "platform/file.h"
#include "platform/supkern.h"
#include "store/file_change.h"
#include "store/file_lock.h"

namespace certkern {

// The lock of a store's file, while its image is read or written. Not recursive.
class StoreFileLock {
 public:
  StoreFileLock() = default;
  ~StoreFileLock();
  StoreFileLock(const StoreFileLock&) = delete;
  StoreFileLock& operator=(const StoreFileLock&) = delete;

  // A store without a lock needs none. False with the code that is given.
  [[nodiscard]] bool take(ubi_mutex* mutex, DWORD code);

 private:
  ubi_mutex* taken_ = nullptr;
};

// All of a file from its start. A file above kMaxStoreFile is CRYPT_E_FILE_ERROR; else the codes of file.h.
[[nodiscard]] bool ReadWholeFile(std::FILE* stream, std::vector<BYTE>& bytes);

// Puts an image in the place of what is there. Cut first: whoever reads it half written misses the end marker, and
// never takes a mixture for a store.
[[nodiscard]] bool RewriteFile(std::FILE* stream, std::span<const BYTE> image);

// The same past the stream's buffer, which may hold what others have changed since; the stream's position stays.
[[nodiscard]] bool ReadWholeFile(int descriptor, std::vector<BYTE>& bytes);

// A directory entry is safe once its directory is. Some file systems refuse to sync one; nothing more can be done there.
void SyncDirectory(const std::string& directory);

// Makes sure of room for so many bytes, without a change to the content. Else ERROR_WRITE_FAULT.
[[nodiscard]] bool ReserveFile(int descriptor, uint64_t size);

// The path from the root on, as long as that is not too long to be opened: a program may change its directory.
std::string AbsolutePath(const std::string& path);
bool LeadsTo(const std::string& path, std::FILE* stream);
bool IsSameFile(std::FILE* a, std::FILE* b);

bool DirectoryIsGone(const std::string& path);

// Finishes what a crash has left half done. Where that is not ours to write, `image` is what the file is to hold, and
// is read in its place; else it is empty. Whoever has the file for himself also takes away what dead committers have
// left. Under the locks of the file. False with the code of StoreJournal::read: what
// the file is to hold can't be told.
[[nodiscard]] bool RecoverStoreFile(const std::string& path, const FileLock& lock, std::vector<BYTE>& image);

// For whoever puts a content of his own in the place of what the path leads to: a journal that stands would undo it, or make
// a mixture of both. What it asks for is done, or no longer asked for. False with ERROR_ACCESS_DENIED: it can't be taken away.
// Under the locks of the file.
[[nodiscard]] bool SettleStoreFile(const std::string& path, const FileLock& lock);

// Changes the file that is open as `stream` and that the path leads to, through the journal. Where no journal is allowed
// beside the file, it is changed without. False with ERROR_WRITE_FAULT, ERROR_FILE_NOT_FOUND (the directory is gone) or
// ERROR_ACCESS_DENIED (a journal stands that is not ours to replace): the file holds what it held then, unless there was no
// journal. Once that is safe the commit is done, and Standing if it is left to the next open to finish. Under the locks
// of the file.
enum class Committed { No, Standing, Yes };
[[nodiscard]] Committed CommitStoreFile(const std::string& path, std::FILE* stream, const FileChange& change);

}  // namespace certkern

#endif
