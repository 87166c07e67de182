// The store record: lists of elements, the two counters, and what its kind needs. The handle of a store is its address.
//
// handles counts what callers (and collections) hold: the last one commits the store and lets its contents go. records
// counts the handles and every live context of an element of this store: the last one frees the record, so that a
// context's way to its store never dangles. With CERT_STORE_DEFER_CLOSE_UNTIL_LAST_FREE_FLAG the contents stay until
// then as well.
//
// Locks, outer to inner: writing, lock of a collection, lock of a member, PropertyBlock.lock, StoreElement.lock,
// registry. Two collections are locked in the order of their addresses. Nobody is asked anything, and no file is read or
// written, under a lock other than `writing`.
#ifndef CERTKERN_STORE_STORE_RECORD_H
#define CERTKERN_STORE_STORE_RECORD_H

#include <certkern/store.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "oid/provider_search.h"
#include "platform/owner.h"
#include "platform/supkern.h"
#include "store/store_changes.h"
#include "store/store_element.h"

namespace certkern {

struct StoreKind;

// What a search engine keeps beside one list. It is made by the first search that wants it, and told of every change
// under the store's lock. It never owns an element, and forgets one before it leaves the list.
class ElementIndex {
 public:
  virtual ~ElementIndex() = default;
  // The element stands in the list. False (or an exception): the index can't follow, and is dropped.
  [[nodiscard]] virtual bool linked(StoreElement& element) = 0;
  // The element is about to leave the list.
  virtual void unlinked(StoreElement& element) noexcept = 0;
};

// Elements of one type, newest first. Guarded by the store's lock.
struct ElementList {
  StoreElement* newest = nullptr;
  StoreElement* oldest = nullptr;
  size_t size = 0;
  size_t walked = 0;                    // elements that additions have compared one by one
  uint64_t gap = 0;                     // sequence of the element that left last; 0: none has
  StoreElement* behindGap = nullptr;    // what is behind it by now; null: the end
  std::unique_ptr<ElementIndex> index;  // null for a store that was hardly searched
};

// One count on handles (and records), given back with CloseStore(store, 0).
void CloseStoreQuietly(CertStore* store) noexcept;
using StoreHandle = Owner<CertStore*, CloseStoreQuietly>;

// A member of a collection. Shared between the collection and the walks that are under way over it.
struct CollectionMember {
  StoreHandle store;
  DWORD updateFlags = 0;
  DWORD priority = 0;
};
using MemberList = std::vector<std::shared_ptr<CollectionMember>>;  // in the order of searching

struct CertStore {
  std::mutex lock;  // guards the lists, nextSequence, members
  const StoreKind* kind = nullptr;
  std::atomic<DWORD> flags{
      0};  // those of the open; a file that can't be written adds CERT_STORE_READONLY_FLAG
  DWORD encoding = 0;
  ChangeCount dirty;  // whether anything was changed that is not in the file
  std::atomic<bool> propertiesChanged{
      false};  // of some element; set behind the element's own and before `dirty`
  std::atomic<bool> autoResync{false};
  std::atomic<uint32_t> handles{1};
  std::atomic<uint32_t> records{1};

  // Hashes of elements; dropped when the contents go. Elements that were deleted before then may still ask for it.
  std::atomic<HCRYPTPROV> provider{0};
  bool ownsProvider = false;

  ElementList certificates;
  ElementList crls;
  uint64_t nextSequence = 1;
  // What chain builds may still spend on signatures by keys from here; limits.h has the unit.
  std::atomic<int64_t> verificationUnits{INT64_MAX};

  // Collections only. Never changed in place: a change makes a new list, and a walk keeps the one that it began with.
  std::shared_ptr<const MemberList> members;

  // Stores in files.
  std::wstring name;                 // of a system store, at most kMaxSystemStoreName characters
  std::string path;                  // of a store that was opened by path or name
  std::atomic<FILE*> file{nullptr};  // closed with the contents; exchanged under `writing`
  ubi_mutex* fileMutex = nullptr;
  timespec lastSync{};      // when it was last read or reconciled; under lock, as the one that follows
  FileWitness read;         // the file, at that time
  FileLayout layout;        // as of the last reading or writing; under lock
  RemovedElements removed;  // those that the file still holds; under lock
  // From the making of an image until it is in the file: an older one is never written last. And while the store is
  // resynchronised.
  std::mutex writing;
  uint64_t changesThroughLinks = 0;  // as of the last look at the elements' properties; under `writing`

  bool has(DWORD flag) const { return (flags.load(std::memory_order_relaxed) & flag) != 0; }
  ElementList& list(ElementType type) { return type == ElementType::Certificate ? certificates : crls; }
};

inline CertStore* AsStore(HCERTSTORE handle) { return static_cast<CertStore*>(handle); }
bool IsCollection(const CertStore& store);

// --- counters ---

// A new record with handles and records at 1. Throws std::bad_alloc.
StoreHandle NewStore(const StoreKind& kind, DWORD encoding, DWORD flags);
void AddStoreHandle(CertStore& store);
// For a context that is made on, and that leaves, an element of the store. The drop may close and free the store.
void AddStoreRecord(CertStore& store);
void DropStoreRecord(CertStore& store) noexcept;

// CertCloseStore; null is allowed. False with a code.
bool CloseStore(CertStore* store, DWORD flags);

// --- lists; the caller holds store.lock ---

// Puts an element, which was made for this store, at the head of its list and gives it the owner's reference. Neither
// dirty nor read-only is looked at. Never fails.
void LinkElement(CertStore& store, ElementOwner element) noexcept;
// Takes an element that is in the list out of it. The list's reference is the caller's.
[[nodiscard]] ElementOwner UnlinkElement(CertStore& store, StoreElement& element) noexcept;
// Where a walk goes on from an element, which may have left the list meanwhile; null previous: from the newest.
StoreElement* NextElement(CertStore& store, ElementType type, const StoreElement* previous);

// --- walking ---

// The stores behind a handle: a plain store itself, a collection's members as they are now. Takes the collection's lock
// only to begin, and keeps the members open for as long as it lives.
class StoreMembers {
 public:
  explicit StoreMembers(CertStore& store);
  size_t size() const { return members_ ? members_->size() : plain_ ? 1 : 0; }
  CertStore& operator[](size_t at) const { return members_ ? *(*members_)[at]->store.get() : *plain_; }
  DWORD updateFlags(size_t at) const {
    return members_ ? (*members_)[at]->updateFlags : CERT_PHYSICAL_STORE_ADD_ENABLE_FLAG;
  }

 private:
  CertStore* plain_ = nullptr;
  std::shared_ptr<const MemberList> members_;
};

}  // namespace certkern

#endif
