#include "store/store_file.h"

#include <certkern/errors.h>

#include <algorithm>

#include "ber/read_cursor.h"
#include "platform/limits.h"

namespace certkern {

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
  return SeekFile(stream, 0, SEEK_SET) && TruncateFile(stream) && WriteFile(stream, image)
      && FlushFile(stream);
}

}  // namespace certkern
