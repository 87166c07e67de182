#include "store/property_block.h"

#include <certkern/errors.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <unordered_set>

#include "platform/sizes.h"

namespace certkern {
namespace {

constinit std::atomic<uint64_t> indexedPropertyGeneration{0};
constinit std::atomic<uint64_t> changesThroughLinks{0};

}  // namespace

PropertyItemOwner NewPropertyItem(DWORD id, size_t length) {
  PropertyItemOwner item;
  if (FitsDword(length)) {
    item.reset(static_cast<PropertyItem*>(std::calloc(1, sizeof(PropertyItem) + length)));
  }
  if (!item) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return {};
  }
  item->length = static_cast<DWORD>(length);
  item->id = id;
  return item;
}

PropertyItemOwner NewPropertyItem(DWORD id, std::span<const BYTE> value) {
  PropertyItemOwner item = NewPropertyItem(id, value.size());
  if (item && !value.empty()) std::memcpy(item->value(), value.data(), value.size());
  return item;
}

PropertyList::PropertyList(PropertyList&& other) noexcept
    : first_(std::exchange(other.first_, nullptr)), last_(std::exchange(other.last_, nullptr)) {}

PropertyList& PropertyList::operator=(PropertyList&& other) noexcept {
  std::swap(first_, other.first_);
  std::swap(last_, other.last_);
  return *this;
}

const PropertyItem* PropertyList::find(DWORD id) const {
  const PropertyItem* item = first_;
  while (item && item->id != id) item = item->next;
  return item;
}

void PropertyList::append(PropertyItemOwner owner) noexcept {
  PropertyItem* const item = owner.release();
  item->prev = last_;
  item->next = nullptr;
  (last_ ? last_->next : first_) = item;
  last_ = item;
}

bool PropertyList::set(PropertyItemOwner item) noexcept {
  const bool replaced = remove(item->id);
  append(std::move(item));
  return replaced;
}

bool PropertyList::remove(DWORD id) noexcept {
  return unlink(const_cast<PropertyItem*>(find(id))).get() != nullptr;
}

PropertyItemOwner PropertyList::unlink(PropertyItem* item) noexcept {
  if (item) {
    (item->prev ? item->prev->next : first_) = item->next;
    (item->next ? item->next->prev : last_) = item->prev;
  }
  return PropertyItemOwner(item);
}

void PropertyList::clear() noexcept {
  while (first_) unlink(first_);
}

bool PropertyList::copyTo(PropertyList& copy) const {
  PropertyList made;
  for (const PropertyItem* item = first_; item; item = item->next) {
    PropertyItemOwner twin = NewPropertyItem(item->id, item->bytes());
    if (!twin) return false;
    made.append(std::move(twin));
  }
  copy = std::move(made);
  return true;
}

void PropertyList::take(PropertyList other) {
  std::unordered_set<DWORD> coming;
  for (const PropertyItem* item = other.first_; item; item = item->next) coming.insert(item->id);
  for (PropertyItem* item = first_; item;) {
    PropertyItem* const next = item->next;
    if (coming.contains(item->id)) unlink(item);
    item = next;
  }
  while (other.first_) append(other.unlink(other.first_));
}

PropertyBlockOwner NewPropertyBlock(PropertyList items) {
  auto block = std::make_unique<PropertyBlock>();
  block->items = std::move(items);
  return PropertyBlockOwner(block.release());
}

void AddPropertyReference(PropertyBlock& block) {
  const PropertyLock guard(block.lock);
  ++block.refs;
}

void ReleasePropertyBlock(PropertyBlock* block) noexcept {
  {
    const PropertyLock guard(block->lock);
    if (--block->refs) return;
  }
  // nobody else can reach it any more, so the provider is released without the lock
  const std::unique_ptr<PropertyBlock> last(block);
  SetKeyContext(*last, {});
}

bool CopyProperties(PropertyBlock& source, PropertyBlock& target) {
  if (&source == &target) return true;
  PropertyList copy;
  {
    const PropertyLock guard(source.lock);
    if (!source.items.copyTo(copy)) return false;
  }
  const PropertyLock guard(target.lock);
  target.items.take(std::move(copy));
  indexedPropertyGeneration.fetch_add(1, std::memory_order_release);
  return true;
}

void SetKeyContext(PropertyBlock& block, const CERT_KEY_CONTEXT& keyContext) {
  const HCRYPTPROV old = std::exchange(block.keyContext, keyContext).hCryptProv;
  if (!old || old == keyContext.hCryptProv) return;
  const LastErrorKeeper keeper;
  static_cast<void>(CryptReleaseContext(old, 0));
}

uint64_t ChangesThroughLinks() { return changesThroughLinks.load(); }

void NoteChangeThroughLink(PropertyBlock& block) {
  block.changedThroughLink = true;
  changesThroughLinks.fetch_add(1);
}

uint64_t IndexedPropertyGeneration() { return indexedPropertyGeneration.load(std::memory_order_acquire); }

void NoteIndexedPropertyChange(DWORD id) {
  if (id == CERT_SHA1_HASH_PROP_ID || id == CERT_KEY_IDENTIFIER_PROP_ID) {
    indexedPropertyGeneration.fetch_add(1, std::memory_order_release);
  }
}

}  // namespace certkern
