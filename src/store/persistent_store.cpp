#include "store/persistent_store.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/text.h>

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cwchar>

#include "ber/read_cursor.h"
#include "platform/id_bracket.h"
#include "platform/limits.h"
#include "platform/text_conversion.h"
#include "store/file_lock.h"
#include "store/file_witness.h"
#include "store/journal.h"
#include "store/persistent_commit.h"
#include "store/persistent_content.h"
#include "store/serialized_image.h"
#include "store/store_file.h"

namespace certkern {
namespace {

// --- paths and locks ---

Creation CreationOf(DWORD flags) {
  if (flags & CERT_STORE_CREATE_NEW_FLAG) return Creation::New;
  return flags & CERT_STORE_OPEN_EXISTING_FLAG ? Creation::Existing : Creation::OpenAlways;
}

// To open a pipe would wait for whoever is at its other end.
bool IsRegularOrMissing(const std::string& path) {
  struct stat status;
  return ::stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode) || Fault(ERROR_OPEN_FAILED);
}

// Who only reads makes no file.
FileStream OpenToRead(const std::string& path, DWORD flags) {
  FileStream stream = OpenStoreFile(path.c_str(), kReadAccess, Creation::Existing);
  if (!stream || !(flags & CERT_STORE_CREATE_NEW_FLAG)) return stream;
  SetLastError(ERROR_FILE_EXISTS);
  return {};
}

// A file that can't be written is opened read-only, and the flags say so.
FileStream OpenForFlags(const std::string& path, std::atomic<DWORD>& flags) {
  if (!IsRegularOrMissing(path)) return {};
  if (flags & CERT_STORE_READONLY_FLAG) return OpenToRead(path, flags);
  FileStream stream = OpenStoreFile(path.c_str(), kReadAccess | kWriteAccess, CreationOf(flags));
  if (stream) return stream;
  flags |= CERT_STORE_READONLY_FLAG;
  return OpenStoreFile(path.c_str(), kReadAccess, CreationOf(flags));
}

// After an open that failed: whether the store is empty then, and without a file. By the flags as they were before it: it
// tries to read where it can't write, and that makes nobody a mere reader.
bool DoesWithoutFile(DWORD flags) {
  return (flags & CERT_STORE_READONLY_FLAG) && !(flags & CERT_STORE_OPEN_EXISTING_FLAG)
      && GetLastError() == ERROR_FILE_NOT_FOUND;
}

// The open of a store is its end here: it was asked for to be removed.
void RemoveStoreFile(const std::string& path) {
  StoreJournal journal(path);  // knows where the path leads while that is there
  bool removed;
  {
    const IdBracket ids;
    removed = ::unlink(path.c_str()) == 0;
  }
  journal.drop();
  journal.dropUnfinished();
  SetLastError(removed ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND);
}

// --- times ---

bool Now(timespec& now) {
  timeval time{};
  if (support_gettimeofday(&time) != 0) return Fault(ERROR_INTERNAL_ERROR);
  now = {time.tv_sec, time.tv_usec * 1000};
  return true;
}

constexpr int64_t kDefaultResyncPeriod = 2'000'000'000;  // microseconds; from here on, times are not trusted

int64_t ResyncPeriod() {
  static const int64_t kPeriod = [] {
    int64_t period = kDefaultResyncPeriod;
    static_cast<void>(support_registry_get_long("\\config\\Certkern\\worst_store_resync_period", &period));
    return period;
  }();
  return kPeriod;
}

timespec Later(const timespec& time, int64_t microseconds) {
  const int64_t nanoseconds = time.tv_nsec + microseconds % 1'000'000 * 1000;
  return {time.tv_sec + microseconds / 1'000'000 + nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
}

// A change within the period might have left the same time on the file. Before the site relies on it at all, the default
// period keeps this answer out.
bool IsUnchangedByPeriod(CertStore& store, const timespec& fileTime) {
  if (store.dirty || ResyncPeriod() >= kDefaultResyncPeriod) return false;
  const std::lock_guard guard(store.lock);
  return IsSameTime(fileTime, store.read.modified)
      && IsEarlier(Later(fileTime, ResyncPeriod()), store.lastSync);
}

void NoteReading(CertStore& store, const timespec& lastSync, const FileWitness& read) {
  const std::lock_guard guard(store.lock);
  store.lastSync = lastSync;
  store.read = read;
}

// Nothing to take over, and nothing of the store's own to drop.
bool IsProvenUnchanged(CertStore& store, const timespec& now) {
  FileWitness read;
  {
    const std::lock_guard guard(store.lock);
    read = store.read;
  }
  if (store.dirty || !IsSurelyUnchanged(store.path, read)) return false;
  const std::lock_guard guard(store.lock);
  if (store.read.isSameAs(read)) store.lastSync = now;
  return true;
}

// --- loading ---

bool LoadOpened(CertStore& store, std::FILE* stream, std::vector<BYTE> bytes, const FileWitness& read) {
  if (store.has(CERT_STORE_CREATE_NEW_FLAG)) return true;
  if (bytes.empty() && !ReadWholeFile(stream, bytes)) return false;
  StoreContent content;
  return content.take(std::move(bytes)) && LinkContent(store, content, read);
}

// The store's path is known. The named lock goes by the path as it was given, all else by where it leads from now on.
bool LoadFromPath(CertStore& store) {
  if (ubi_mutex_open(&store.fileMutex, StoreLockName(store.path).c_str(), 8) != 0) {
    store.fileMutex = nullptr;
    return Fault(NTE_PROVIDER_DLL_FAIL);
  }
  store.path = AbsolutePath(store.path);
  StoreFileLock lock;
  if (!lock.take(store.fileMutex, NTE_PROVIDER_DLL_FAIL)) return false;
  FileLock fileLock;
  fileLock.take(store.path);
  if (store.has(CERT_STORE_DELETE_FLAG)) {
    RemoveStoreFile(store.path);
    return true;
  }
  std::vector<BYTE> recovered;
  if (!RecoverStoreFile(store.path, fileLock, recovered)) return false;
  const DWORD asked = store.flags;
  const DWORD lastError = GetLastError();
  FileStream stream = OpenForFlags(store.path, store.flags);
  if (!stream && DoesWithoutFile(asked)) {
    SetLastError(lastError);
    return true;
  }
  if (!stream) return false;
  fileLock.follow(store.path, stream.get());
  timespec now;
  if (!Now(now)) return false;
  FileWitness read = WitnessOf(stream.get());
  if (!recovered.empty()) read.settled = false;  // the file itself holds something else
  NoteReading(store, now, read);
  if (!LoadOpened(store, stream.get(), std::move(recovered), read)) return false;
  store.file = stream.release();
  return true;
}

bool FlagsContradict(const CertStore& store) {
  return store.has(CERT_STORE_READONLY_FLAG) && store.has(CERT_FILE_STORE_COMMIT_ENABLE_FLAG);
}

// Without a path there is neither a lock nor anybody else.
bool CommitToStream(CertStore& store) {
  const uint64_t upTo = store.dirty.now();
  ImageBytes image(ImageBytes::Mode::Keep);
  if (!SerializeStore(store, ImageUse::Commit, image)) return false;
  if (image.size > kMaxStoreFile) return Fault(ERROR_NOT_ENOUGH_MEMORY);  // nobody could read it
  if (!RewriteFile(store.file, image.bytes)) return false;
  store.dirty.writtenUpTo(upTo);
  return true;
}

bool Commit(CertStore& store) {
  if (store.has(CERT_STORE_READONLY_FLAG) || !store.dirty) return true;
  const std::lock_guard inTurn(store.writing);
  return store.path.empty() ? CommitToStream(store) : CommitToPath(store);
}

// What the last commit of this store has stamped can't be changed unseen, however short a time ago that was.
bool IsOwnWriting(CertStore& store, const FileWitness& file) {
  const std::lock_guard guard(store.lock);
  return store.layout.certain && store.layout.file.isSameAs(file);
}

// What the file of the store's path holds by now, and what it was when that was read. Whoever only reads finds nothing where
// the file has gone.
struct Reading {
  FileStream stream;  // empty: there is no file
  std::vector<BYTE> bytes;
  FileWitness file;
};

bool ReadAgain(CertStore& store, std::atomic<DWORD>& flags, Reading& reading) {
  StoreFileLock lock;
  if (!lock.take(store.fileMutex, NTE_PROVIDER_DLL_FAIL)) return false;
  FileLock fileLock;
  fileLock.take(store.path);
  if (!RecoverStoreFile(store.path, fileLock, reading.bytes)) return false;
  const DWORD asked = flags;
  reading.stream = OpenForFlags(store.path, flags);
  if (!reading.stream) return DoesWithoutFile(asked);
  fileLock.follow(store.path, reading.stream.get());
  reading.file = WitnessOf(reading.stream.get());
  if (IsOwnWriting(store, reading.file)) reading.file.settled = true;
  if (reading.bytes.empty()) return ReadWholeFile(fileno(reading.stream.get()), reading.bytes);
  reading.file.settled = false;  // the file itself holds something else
  return true;
}

bool NothingToCommit(CommitTime time) {
  return time == CommitTime::AtClose || Fault(ERROR_CALL_NOT_IMPLEMENTED);
}

}  // namespace

std::string StoreLockName(std::string_view path) {
  std::string name;
  bool separated = false;
  for (const char each : path) {
    const bool separator = each == '/' || each == '\\';
    if (!separator || !separated) name += separator ? '_' : each;
    separated = separator;
  }
  return name + "_store_lock_file_";
}

std::string SystemStorePath(const std::wstring& name, DWORD flags) {
  std::array<char, kMaxSystemStoreFileName> narrow;
  if (!WideCharToMultiByte(CP_UTF8, 0, name.c_str(), -1, narrow.data(), static_cast<int>(narrow.size()),
                           nullptr, nullptr)) {
    return {};
  }
  std::string fileName = narrow.data();
  if (fileName.find('/') != std::string::npos) {
    SetLastError(ERROR_BAD_PATHNAME);
    return {};
  }
  for (char& each : fileName) each = static_cast<char>(std::tolower(static_cast<unsigned char>(each)));
  const bool machine = (flags & CERT_SYSTEM_STORE_LOCATION_MASK) == CERT_SYSTEM_STORE_LOCAL_MACHINE;
  std::array<char, kMaxStoreDirectory> directory{};
  size_t size = directory.size();
  if (support_path2dir(machine ? "\\global\\stores\\" : "\\local\\stores\\", &size, directory.data()) != 0) {
    SetLastError(ERROR_PATH_NOT_FOUND);
    return {};
  }
  std::string path = directory.data();
  if (!path.ends_with('/')) path += '/';
  return path + fileName + ".sto";
}

bool LoadStreamStore(CertStore& store, const void* parameter) {
  if (FlagsContradict(store)) return Fault(E_INVALIDARG);
  if (store.has(CERT_STORE_DELETE_FLAG)) return true;  // there is no file that could be removed
  auto* const stream = static_cast<std::FILE*>(const_cast<void*>(parameter));
  if (!LoadOpened(store, stream, {}, {})) return false;
  store.file = stream;
  return true;
}

bool LoadPathStore(CertStore& store, const void* parameter) {
  if (FlagsContradict(store)) return Fault(E_INVALIDARG);
  const ByteText path = BytesFromWide(static_cast<LPCWSTR>(parameter), CP_UTF8);
  if (!path) return false;
  store.path = path.get();
  return store.path.size() < kMaxStorePath ? LoadFromPath(store) : Fault(ERROR_BAD_PATHNAME);
}

bool LoadSystemStore(CertStore& store, const void* parameter) {
  const auto* const name = static_cast<LPCWSTR>(parameter);
  const size_t length = ::wcsnlen(name, kMaxSystemStoreName + 1);
  if (length > kMaxSystemStoreName) return Fault(ERROR_INSUFFICIENT_BUFFER);
  store.name.assign(name, length);
  store.path = SystemStorePath(store.name, store.flags);
  return !store.path.empty() && LoadFromPath(store);
}

bool CommitFileStore(CertStore& store, CommitTime time) {
  if (!store.has(CERT_FILE_STORE_COMMIT_ENABLE_FLAG) || !store.file) return NothingToCommit(time);
  return Commit(store);
}

bool CommitSystemStore(CertStore& store, CommitTime time) {
  return store.file ? Commit(store) : NothingToCommit(time);
}

bool ResyncSystemStore(CertStore& store) {
  timespec now, fileTime;
  if (!store.file) return Fault(ERROR_INTERNAL_ERROR);
  if (!Now(now)) return false;
  if (IsProvenUnchanged(store, now)) return true;  // whoever commits meanwhile is not waited for
  const std::lock_guard inTurn(store.writing);
  if (!FileModificationTime(store.file, fileTime)) return false;
  if (IsUnchangedByPeriod(store, fileTime) && LeadsTo(store.path, store.file)) return true;
  std::atomic<DWORD> flags = store.flags & ~CERT_STORE_CREATE_NEW_FLAG;
  Reading reading;
  StoreContent content;
  if (!ReadAgain(store, flags, reading) || !content.take(std::move(reading.bytes))
      || !Reconcile(store, content, reading.file)) {
    return false;
  }
  if (reading.stream && !IsSameFile(reading.stream.get(), store.file)) {
    store.flags |= flags & CERT_STORE_READONLY_FLAG;
    GoOverTo(store, std::move(reading.stream));
  }
  NoteReading(store, now, reading.file);
  return true;
}

void ReleaseStoreFile(CertStore& store) noexcept {
  RemovedElements removed;
  const std::lock_guard inTurn(store.writing);
  const FileStream stream(store.file.exchange(nullptr));
  if (ubi_mutex* const mutex = std::exchange(store.fileMutex, nullptr)) {
    static_cast<void>(ubi_mutex_close(mutex));
  }
  const std::lock_guard guard(store.lock);
  removed = std::exchange(store.removed, {});
}

StoreHandle OpenByNarrowText(const OpenRequest& request) {
  const auto* const text = static_cast<LPCSTR>(request.parameter);
  const WideText wide = WideFromBytes(text, CP_UTF8);
  if (text && !wide) return {};
  OpenRequest forWide = request;
  ++forWide.provider;
  forWide.parameter = wide.get();
  return OpenPlainStore(forWide);
}

}  // namespace certkern
