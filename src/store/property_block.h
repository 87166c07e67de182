// The properties of an element: values by identifier in the order of setting, and the key context, which is none of
// them. A block may be shared between an element and the links to it.
//
// Locks: PropertyBlock.lock comes behind a store's lock and in front of a StoreElement.lock and the registry. It is
// recursive because a provider, or a PIN callback, that runs under it may ask for a property.
//
// Memory is counted by refs: a block lives while an element holds it. Items are owned by the list that they are in.
#ifndef CERTKERN_STORE_PROPERTY_BLOCK_H
#define CERTKERN_STORE_PROPERTY_BLOCK_H

#include <certkern/properties.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>

#include "platform/owner.h"

namespace certkern {

// One value; the bytes follow the record.
struct PropertyItem {
  DWORD length;  // bytes of the value
  DWORD id;
  PropertyItem* prev;
  PropertyItem* next;

  BYTE* value() { return reinterpret_cast<BYTE*>(this + 1); }
  std::span<const BYTE> bytes() const { return {reinterpret_cast<const BYTE*>(this + 1), length}; }
};
using PropertyItemOwner = MallocOwner<PropertyItem>;

// An item with zeroed room for a value; empty with ERROR_NOT_ENOUGH_MEMORY.
PropertyItemOwner NewPropertyItem(DWORD id, size_t length);
// An item with a copy of the bytes.
PropertyItemOwner NewPropertyItem(DWORD id, std::span<const BYTE> value);

// Items in the order in which they were set. Not locked: a list is either its maker's own or guarded by its block.
// A look-up is a walk; whoever fills a list from foreign bytes keeps a set of the identifiers beside it.
class PropertyList {
 public:
  PropertyList() = default;
  PropertyList(PropertyList&& other) noexcept;
  PropertyList& operator=(PropertyList&& other) noexcept;
  PropertyList(const PropertyList&) = delete;
  PropertyList& operator=(const PropertyList&) = delete;
  ~PropertyList() { clear(); }

  bool empty() const { return !first_; }
  // The first item; the walk goes on by PropertyItem.next.
  const PropertyItem* first() const { return first_; }
  const PropertyItem* find(DWORD id) const;

  // Puts an item at the tail, without a look at those that are there.
  void append(PropertyItemOwner item) noexcept;
  // Puts an item at the tail and drops the one of the same identifier. True when there was one.
  bool set(PropertyItemOwner item) noexcept;
  // True when there was one.
  bool remove(DWORD id) noexcept;
  void clear() noexcept;
  // A copy of every item; false with ERROR_NOT_ENOUGH_MEMORY, and `copy` stays as it was.
  [[nodiscard]] bool copyTo(PropertyList& copy) const;
  // Sets every item of another list, in its order. Throws std::bad_alloc, and the list stays as it was.
  void take(PropertyList other);

 private:
  PropertyItemOwner unlink(PropertyItem* item) noexcept;

  PropertyItem* first_ = nullptr;
  PropertyItem* last_ = nullptr;
};

struct PropertyBlock {
  std::recursive_mutex lock;      // first: the block's address is the mutex
  uint32_t refs = 1;              // elements that share the block; under lock
  PropertyList items;             // under lock
  CERT_KEY_CONTEXT keyContext{};  // under lock; hCryptProv 0: none. The provider is the block's own
  std::atomic<bool> changedThroughLink{false};  // since the element's own store has looked
};
using PropertyLock = std::unique_lock<std::recursive_mutex>;

// Takes one more reference, for another element.
void AddPropertyReference(PropertyBlock& block);
// Gives one back; the last frees the items, the key context's provider and the block.
void ReleasePropertyBlock(PropertyBlock* block) noexcept;
using PropertyBlockOwner = Owner<PropertyBlock*, ReleasePropertyBlock>;

// A block with one reference and these items. Throws std::bad_alloc.
PropertyBlockOwner NewPropertyBlock(PropertyList items = {});

// Copies every item of one block onto another, raw: neither the identifiers that can't be set nor a store's being
// read-only is looked at. The two locks are never held at once. A block that is its own source stays as it is.
[[nodiscard]] bool CopyProperties(PropertyBlock& source, PropertyBlock& target);

// Replaces the key context, and releases the provider of the old one unless it is the same. {} removes it.
void SetKeyContext(PropertyBlock& block, const CERT_KEY_CONTEXT& keyContext);  // caller holds lock

// A link doesn't know the element whose properties it shares, nor that one's store. The block is marked, and this number of
// the whole process moves, so that a store looks at its elements' blocks only when some link has changed something.
uint64_t ChangesThroughLinks();
void NoteChangeThroughLink(PropertyBlock& block);  // caller holds lock; before the change

// An index beside a store's lists reads the hash and the key identifier once. Setting or removing one of these by hand,
// which is rare, moves this number of the whole process, and what was read before must then be read anew. Caching a
// computed value does not move it, nor does filling a block that no store has seen.
uint64_t IndexedPropertyGeneration();
// For whoever changes an item of a block that an element in a store may hold; after the change.
void NoteIndexedPropertyChange(DWORD id);

}  // namespace certkern

#endif
