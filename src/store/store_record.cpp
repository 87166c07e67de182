#include "store/store_record.h"

#include <certkern/errors.h>

#include <cassert>
#include <exception>
#include <new>

#include "ber/read_cursor.h"
#include "platform/limits.h"
#include "store/context_record.h"
#include "store/store_kind.h"

namespace certkern {
namespace {

enum class Contents { Released, Freed };

// An index that can't follow would answer wrongly, so it goes; the next search makes a new one.
void TellIndex(ElementList& list, StoreElement& element) noexcept {
  if (!list.index) return;
  bool follows = false;
  try {
    follows = list.index->linked(element);
  } catch (const std::exception&) {
    follows = false;
  }
  if (!follows) list.index.reset();
}

// The element has no store from here on; a context that is out stays good.
void Detach(StoreElement& element) noexcept {
  const std::lock_guard guard(element.lock);
  element.detached = true;
  if (element.context) element.context->certificate.hCertStore = nullptr;
}

// Takes the record from under whoever holds it, and with it what it counted.
void TakeBackContext(CertStore& store, StoreElement& element) noexcept {
  ContextRecord* context;
  {
    const std::lock_guard guard(element.lock);
    context = element.context;
    if (!context) return;
    element.refs -= context->refs;
  }
  DestroyContext(context);
  store.records.fetch_sub(1);
}

void EmptyList(CertStore& store, ElementType type, Contents fate) noexcept {
  ElementList& list = store.list(type);
  list.index.reset();
  while (list.newest) {
    StoreElement& element = *list.newest;
    const ElementOwner ours = UnlinkElement(store, element);
    if (fate == Contents::Freed) TakeBackContext(store, element);
    Detach(element);
  }
}

void ReleaseProvider(CertStore& store) noexcept {
  if (!store.ownsProvider) return;
  if (const HCRYPTPROV provider = store.provider.exchange(0)) {
    static_cast<void>(CryptReleaseContext(provider, 0));
  }
}

bool CloseMembers(CertStore& store, DWORD flags) {
  std::shared_ptr<const MemberList> members;
  {
    const std::lock_guard guard(store.lock);
    members = std::exchange(store.members, nullptr);
  }
  bool closed = true;
  if (!members) return closed;
  for (const std::shared_ptr<CollectionMember>& member : *members) {
    // a member that is still in use elsewhere is no failure of this close
    if (!CloseStore(member->store.release(), flags) && GetLastError() != CRYPT_E_PENDING_CLOSE)
      closed = false;
  }
  return closed;
}

// A commit that runs out of memory must not keep the rest of the close from happening, nor go out through an owner.
bool CommitAtClose(CertStore& store) noexcept {
  if (!store.kind->commit) return true;
  try {
    return store.kind->commit(store, CommitTime::AtClose);
  } catch (const std::bad_alloc&) {
    return Fault(ERROR_NOT_ENOUGH_MEMORY);
  } catch (const std::exception&) {
    return Fault(ERROR_INTERNAL_ERROR);
  }
}

// Commits the store and lets its contents go. May run again on a store that was emptied by force and used after that.
bool CloseContents(CertStore& store, DWORD flags) noexcept {
  if (IsCollection(store)) return CloseMembers(store, flags);
  const bool committed = CommitAtClose(store);
  const LastErrorKeeper keeper;
  if (store.kind->release) store.kind->release(store);
  const Contents fate = flags & CERT_CLOSE_STORE_FORCE_FLAG ? Contents::Freed : Contents::Released;
  {
    const std::lock_guard guard(store.lock);
    EmptyList(store, ElementType::Certificate, fate);
    EmptyList(store, ElementType::Crl, fate);
  }
  ReleaseProvider(store);
  return committed;
}

void FreeStore(CertStore* store) noexcept { const std::unique_ptr<CertStore> last(store); }

// With the deferring flag the last of the handles and contexts closes the store, whichever it is.
bool CloseDeferred(CertStore& store, DWORD flags) {
  store.handles.fetch_sub(1);
  if (store.records.fetch_sub(1) != 1) {
    return !(flags & CERT_CLOSE_STORE_CHECK_FLAG) || Fault(CRYPT_E_PENDING_CLOSE);
  }
  const bool closed = CloseContents(store, flags);
  FreeStore(&store);
  return closed;
}

}  // namespace

bool IsCollection(const CertStore& store) {
  return store.kind->number == StoreNumber(CERT_STORE_PROV_COLLECTION);
}

StoreHandle NewStore(const StoreKind& kind, DWORD encoding, DWORD flags) {
  auto store = std::make_unique<CertStore>();
  store->kind = &kind;
  store->encoding = encoding;
  store->flags = flags;
  return StoreHandle(store.release());
}

void AddStoreHandle(CertStore& store) {
  store.records.fetch_add(1);
  store.handles.fetch_add(1);
}

void AddStoreRecord(CertStore& store) { store.records.fetch_add(1); }

void DropStoreRecord(CertStore& store) noexcept {
  if (store.records.fetch_sub(1) != 1) return;
  const LastErrorKeeper keeper;
  if (store.has(CERT_STORE_DEFER_CLOSE_UNTIL_LAST_FREE_FLAG)) static_cast<void>(CloseContents(store, 0));
  FreeStore(&store);
}

bool CloseStore(CertStore* store, DWORD flags) {
  if (!store) return true;
  const bool force = (flags & CERT_CLOSE_STORE_FORCE_FLAG) != 0;
  if (!force && store->has(CERT_STORE_DEFER_CLOSE_UNTIL_LAST_FREE_FLAG)) return CloseDeferred(*store, flags);
  const bool pendingBefore = force && store->records.load() != 1;  // before force takes contexts back
  const bool closed = (store->handles.fetch_sub(1) != 1 && !force) || CloseContents(*store, flags);
  const bool last = store->records.fetch_sub(1) == 1;
  if (last) FreeStore(store);
  if (!closed) return false;
  const bool pending = force ? pendingBefore : !last;
  return !pending || !(flags & CERT_CLOSE_STORE_CHECK_FLAG) || Fault(CRYPT_E_PENDING_CLOSE);
}

void CloseStoreQuietly(CertStore* store) noexcept { static_cast<void>(CloseStore(store, 0)); }

void LinkElement(CertStore& store, ElementOwner owner) noexcept {
  StoreElement* const element = owner.release();
  assert(element->store == &store && !element->linked);
  ElementList& list = store.list(element->type);
  element->sequence = store.nextSequence++;
  element->prev = nullptr;
  element->next = list.newest;
  (list.newest ? list.newest->prev : list.oldest) = element;
  list.newest = element;
  ++list.size;
  element->linked = true;
  TellIndex(list, *element);
}

ElementOwner UnlinkElement(CertStore& store, StoreElement& element) noexcept {
  assert(element.store == &store && element.linked);
  ElementList& list = store.list(element.type);
  if (list.index) list.index->unlinked(element);
  list.gap = element.sequence;
  list.behindGap = element.next;
  (element.prev ? element.prev->next : list.newest) = element.next;
  (element.next ? element.next->prev : list.oldest) = element.prev;
  element.prev = nullptr;
  element.next = nullptr;
  element.linked = false;
  --list.size;
  if (element.isFiled && store.file) store.removed.push(element);
  return ElementOwner(&element);
}

// A walk that deletes what it meets goes on from elements that have left. Their place is looked for from that of the last
// one that did, which is where such a walk is: from the newest on it would take the square of the list's length.
StoreElement* NextElement(CertStore& store, ElementType type, const StoreElement* previous) {
  const ElementList& list = store.list(type);
  if (!previous) return list.newest;
  if (previous->linked) return previous->next;
  const uint64_t sought = previous->sequence;
  StoreElement* element = list.gap ? list.behindGap : list.newest;
  while (element && element->sequence >= sought) element = element->next;
  StoreElement* newer = element ? element->prev : list.oldest;
  while (newer && newer->sequence < sought) newer = (element = newer)->prev;
  return element;
}

StoreMembers::StoreMembers(CertStore& store) {
  if (!IsCollection(store)) {
    plain_ = &store;
    return;
  }
  const std::lock_guard guard(store.lock);
  members_ = store.members;
}

}  // namespace certkern
