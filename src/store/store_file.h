// What store files have in common: their lock across processes, and reading and rewriting them as a whole.
#ifndef CERTKERN_STORE_STORE_FILE_H
#define CERTKERN_STORE_STORE_FILE_H

#include <certkern/types.h>

#include <cstdio>
#include <span>
#include <vector>

#include "platform/file.h"
#include "platform/supkern.h"

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

}  // namespace certkern

#endif
