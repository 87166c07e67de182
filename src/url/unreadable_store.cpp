#include "url/unreadable_store.h"

#include <certkern/errors.h>
#include <certkern/store.h>

#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

#include "ber/read_cursor.h"
#include "platform/id_bracket.h"
#include "platform/trace.h"
#include "store/file_lock.h"
#include "store/journal.h"
#include "store/persistent_content.h"
#include "store/persistent_store.h"
#include "store/serialized_image.h"
#include "store/store_file.h"

namespace certkern {
namespace {

struct CloseMutex {
  void operator()(ubi_mutex* mutex) const { static_cast<void>(ubi_mutex_close(mutex)); }
};

// What could not be read for want of something else is not damaged.
bool IsDamaged(const std::string& path, FileLock& lock) {
  std::vector<BYTE> bytes;
  if (!RecoverStoreFile(path, lock, bytes)) return false;
  const FileStream stream = OpenStoreFile(path.c_str(), kReadAccess, Creation::Existing);
  if (!stream) return false;
  if (bytes.empty() && !ReadWholeFile(stream.get(), bytes)) return GetLastError() == CRYPT_E_FILE_ERROR;
  const StoreHandle trial = OpenMemoryStore(0);
  StoreContent content;
  if (!trial || (content.take(std::move(bytes)) && LinkImage(content.image(), *trial.get()))) return false;
  return GetLastError() != ERROR_NOT_ENOUGH_MEMORY;
}

bool Rename(const std::string& path) {
  StoreJournal journal(path);  // of the damaged file; the new one must not be mended with it
  const IdBracket ids;
  if (std::rename(path.c_str(), (path + ".damaged").c_str()) != 0) return false;
  journal.drop();
  return true;
}

}  // namespace

bool SetUnreadableStoreAside(const std::wstring& name) {
  const LastErrorKeeper keeper;
  const std::string path = SystemStorePath(name, CERT_SYSTEM_STORE_CURRENT_USER);
  ubi_mutex* opened = nullptr;
  if (path.empty() || ubi_mutex_open(&opened, StoreLockName(path).c_str(), 8) != 0) return false;
  const std::unique_ptr<ubi_mutex, CloseMutex> mutex(opened);
  StoreFileLock lock;
  if (!lock.take(mutex.get(), ERROR_LOCK_FAILED)) return false;
  FileLock fileLock;
  fileLock.take(path);
  if (!IsDamaged(path, fileLock) || !Rename(path)) return false;
  TraceAs("SetUnreadableStoreAside", TRACE_ERROR, "(): the store does not read and is now %s.damaged",
          path.c_str());
  return true;
}

}  // namespace certkern
