#include "store/persistent_save.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "ber/read_cursor.h"
#include "platform/id_bracket.h"
#include "platform/limits.h"
#include "platform/owner.h"
#include "platform/text_conversion.h"
#include "store/file_replacement.h"
#include "store/message_store.h"
#include "store/persistent_store.h"
#include "store/serialized_image.h"
#include "store/store_file.h"

namespace certkern {
namespace {

// How the contents are written down.
using WriteForm = bool (*)(CertStore& store, ImageBytes& image);

bool WriteSerialized(CertStore& store, ImageBytes& image) {
  return SerializeStore(store, ImageUse::Save, image);
}

// What is no file, such as a pipe, has neither committers nor a journal.
bool IsFile(const std::string& path) {
  const IdBracket ids;
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// Keeps the committers of a file out while another content is put in its place, and settles what they have left undone.
class Takeover {
 public:
  [[nodiscard]] bool take(ubi_mutex* mutex, const std::string& path) {
    return lock_.take(mutex, ERROR_LOCK_FAILED) && takeFile(path);
  }
  // The named lock is that of any store with this path. Committers take both locks, so one of them is enough where there is
  // no directory for named ones, or the file lies where there are no others.
  [[nodiscard]] bool take(const std::string& path) {
    bool named;
    {
      const LastErrorKeeper keeper;
      named = ubi_mutex_open(mutex_.out(), StoreLockName(path).c_str(), 8) == 0
          && lock_.take(mutex_.get(), ERROR_LOCK_FAILED);
    }
    if (!IsFile(path)) return true;
    return takeFile(path) && (named || fileLock_.isExclusive() || Fault(ERROR_LOCK_FAILED));
  }

 private:
  bool takeFile(const std::string& path) {
    fileLock_.take(path);
    return SettleStoreFile(path, fileLock_);
  }

  Owner<ubi_mutex*, ubi_mutex_close> mutex_;
  StoreFileLock lock_;  // behind the mutex, so that it goes first
  FileLock fileLock_;
};

bool SaveToStream(CertStore& store, WriteForm write, void* target) {
  const std::lock_guard inTurn(store.writing);
  ImageBytes image(ImageBytes::Mode::Keep);
  if (!write(store, image)) return false;
  auto* const stream = static_cast<std::FILE*>(target);
  Takeover takeover;
  const bool isOwnFile =
      !store.path.empty() && ((store.file && IsSameFile(stream, store.file)) || LeadsTo(store.path, stream));
  if (isOwnFile && !takeover.take(store.fileMutex, store.path)) return false;
  return RewriteFile(stream, image.bytes);
}

bool SaveToMemory(CertStore& store, WriteForm write, void* target) {
  auto& blob = *static_cast<CRYPT_DATA_BLOB*>(target);
  ImageBytes image(blob.pbData ? ImageBytes::Mode::Keep : ImageBytes::Mode::Count);
  if (!write(store, image)) return false;
  const DWORD room = blob.cbData;
  blob.cbData = static_cast<DWORD>(image.size);
  if (!blob.pbData) return true;
  if (room < image.size) return Fault(ERROR_MORE_DATA);
  std::memcpy(blob.pbData, image.bytes.data(), image.bytes.size());
  return true;
}

bool SaveToPath(CertStore& store, WriteForm write, const char* path) {
  ImageBytes image(ImageBytes::Mode::Keep);
  if (!write(store, image)) return false;
  Takeover takeover;
  if (!takeover.take(path)) return false;
  switch (ReplaceFile(path, image.bytes)) {
    case Replaced::Yes:
      return true;
    case Replaced::No:
      return false;
    case Replaced::NotPossible:
      break;
  }
  FileStream stream = OpenStoreFile(path, kReadAccess | kWriteAccess, Creation::Always);
  return stream && RewriteFile(stream.get(), image.bytes) && CloseFile(std::move(stream));
}

bool SaveToNarrowPath(CertStore& store, WriteForm write, void* target) {
  return SaveToPath(store, write, static_cast<const char*>(target));
}

bool SaveToWidePath(CertStore& store, WriteForm write, void* target) {
  const ByteText path = BytesFromWide(static_cast<LPCWSTR>(target), CP_UTF8);
  return path ? SaveToPath(store, write, path.get()) : Fault(ERROR_NO_UNICODE_TRANSLATION);
}

struct SaveTarget {
  DWORD number;
  bool (*save)(CertStore& store, WriteForm write, void* target);
};
constexpr SaveTarget kTargets[] = {
    {CERT_STORE_SAVE_TO_FILE,       SaveToStream    },
    {CERT_STORE_SAVE_TO_MEMORY,     SaveToMemory    },
    {CERT_STORE_SAVE_TO_FILENAME_A, SaveToNarrowPath},
    {CERT_STORE_SAVE_TO_FILENAME_W, SaveToWidePath  },
};

}  // namespace

bool SaveStore(CertStore& store, DWORD saveAs, DWORD saveTo, void* target) {
  const auto* const row = std::find_if(std::begin(kTargets), std::end(kTargets),
                                       [saveTo](const SaveTarget& each) { return each.number == saveTo; });
  if (row == std::end(kTargets)) return Fault(ERROR_INVALID_PARAMETER);
  return row->save(store, saveAs == CERT_STORE_SAVE_AS_PKCS7 ? WriteMessage : WriteSerialized, target);
}

}  // namespace certkern
