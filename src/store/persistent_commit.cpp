#include "store/persistent_commit.h"

#include <certkern/errors.h>

#include <sys/stat.h>

#include <cerrno>

#include "ber/read_cursor.h"
#include "store/persistent_content.h"
#include "store/store_merge.h"

namespace certkern {
namespace {

// What the store's path means by now. A program that has given up rights may not be able to look: what it has open must do.
bool FindFile(CertStore& store, FileLock& lock) {
  struct stat byPath;
  FileStream stream;
  if (::stat(store.path.c_str(), &byPath) == 0) {
    if (!S_ISREG(byPath.st_mode)) return Fault(ERROR_OPEN_FAILED);
    if (LeadsTo(store.path, store.file)) return true;
    stream = OpenStoreFile(store.path.c_str(), kReadAccess | kWriteAccess, Creation::Existing);
  } else if (errno == ENOENT || errno == ENOTDIR) {
    const bool mayMake = !store.has(CERT_STORE_OPEN_EXISTING_FLAG) && !DirectoryIsGone(store.path);
    if (!mayMake) return Fault(ERROR_FILE_NOT_FOUND);
    stream = OpenStoreFile(store.path.c_str(), kReadAccess | kWriteAccess, Creation::OpenAlways);
  } else {
    return true;
  }
  if (!stream) return false;
  lock.follow(store.path, stream.get());
  GoOverTo(store, std::move(stream));
  return true;
}

// A time of our own on the file, later than any before it: what others write gets the clock's, which counts in ticks, and
// is told by that even within the tick. False where the file system doesn't keep it.
bool Stamp(int descriptor, const timespec& before, FileWitness& file) {
  timespec now;
  if (::clock_gettime(CLOCK_REALTIME, &now) != 0) return false;
  if (!IsEarlier(before, now))
    now = {before.tv_sec + (before.tv_nsec + 1) / 1'000'000'000, (before.tv_nsec + 1) % 1'000'000'000};
  const timespec times[] = {
      {0, UTIME_OMIT},
      now
  };
  if (::futimens(descriptor, times) != 0 || !WitnessOf(descriptor, file)) return false;
  return IsSameTime(file.modified, now) && !IsSameTime(file.modified, file.changed)
      && IsOnLocalFileSystem(descriptor);
}

// Who had all that the file held, and has now written it, has all that it holds: there is nothing to read again until
// somebody else writes it.
bool HasAllOf(CertStore& store, const struct stat& file) {
  const std::lock_guard guard(store.lock);
  return store.read.settled && store.read.isOf(file);
}

void NoteOwnWriting(CertStore& store, const FileWitness& file) {
  const std::lock_guard guard(store.lock);
  store.read = file;
  store.read.settled = true;  // by the stamp
}

bool Write(CertStore& store, StoreChanges& changes, const struct stat& before, PlannedChange& plan) {
  const int descriptor = fileno(store.file);
  const bool hadAll = HasAllOf(store, before);
  const Committed committed = CommitStoreFile(store.path, store.file, plan.change);
  if (committed == Committed::No) {
    store.layout.certain = false;
    return false;
  }
  plan.layout.certain = committed == Committed::Yes && Stamp(descriptor, before.st_mtim, plan.layout.file);
  changes.written(plan.layout, plan.places);
  if (hadAll && plan.layout.certain) NoteOwnWriting(store, plan.layout.file);
  return true;
}

bool IsAsWeKnowIt(const FileLayout& layout, const struct stat& file) {
  return layout.end != 0 && layout.certain && layout.file.isOf(file);
}

bool Merge(CertStore& store, StoreChanges& changes, const struct stat& file, std::vector<BYTE> bytes) {
  StoreContent content;
  if (bytes.empty() && !ReadWholeFile(fileno(store.file), bytes)) return false;
  if (!content.take(std::move(bytes))) return false;
  if (changes.none() && content.isSerialized()) {
    changes.written(store.layout, {});
    return true;
  }
  PlannedChange plan;
  return MergeChanges(store, content, changes, plan) && Write(store, changes, file, plan);
}

}  // namespace

void GoOverTo(CertStore& store, FileStream stream) {
  const FileStream old(store.file.exchange(stream.release()));
}

bool CommitToPath(CertStore& store) {
  StoreChanges changes(store);
  changes.take();
  StoreFileLock lock;
  if (!lock.take(store.fileMutex, ERROR_LOCK_FAILED)) return false;
  FileLock fileLock;
  fileLock.take(store.path);
  std::vector<BYTE> recovered;
  struct stat file;
  if (!RecoverStoreFile(store.path, fileLock, recovered) || !FindFile(store, fileLock)) return false;
  if (::fstat(fileno(store.file), &file) != 0) return Fault(ERROR_FILE_NOT_FOUND);
  if (!recovered.empty() || !IsAsWeKnowIt(store.layout, file)) {
    return Merge(store, changes, file, std::move(recovered));
  }
  if (changes.none()) {
    changes.written(store.layout, {});
    return true;
  }
  PlannedChange plan;
  switch (PatchChanges(store, changes, file, plan)) {
    case Patched::Yes:
      return Write(store, changes, file, plan);
    case Patched::Failed:
      return false;
    case Patched::NotPossible:
      break;
  }
  return Merge(store, changes, file, {});
}

}  // namespace certkern
