#include "store/store_element.h"

#include <certkern/errors.h>

#include <cassert>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "platform/sizes.h"

namespace certkern {

void ReleaseElement(StoreElement* element) noexcept {
  {
    const std::lock_guard guard(element->lock);
    if (--element->refs) return;
  }
  assert(!element->context && !element->linked);
  const PropertyBlockOwner properties(element->properties);
  std::free(element->info);
  const std::unique_ptr<const ElementFacts> facts(element->facts.load(std::memory_order_acquire));
  element->~StoreElement();
  std::free(element);
}

ElementOwner ShareElement(StoreElement& element) noexcept {
  const std::lock_guard guard(element.lock);
  ++element.refs;
  return ElementOwner(&element);
}

ElementOwner NewElement(ElementType type, DWORD encoding, std::span<const BYTE> encoded, CertStore* store,
                        PropertyBlockOwner properties) {
  if (!properties) properties = NewPropertyBlock();
  void* const room = FitsDword(encoded.size()) ? std::malloc(sizeof(StoreElement) + encoded.size()) : nullptr;
  if (!room) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return {};
  }
  auto* const element = ::new (room) StoreElement(type, encoding, static_cast<DWORD>(encoded.size()));
  if (!encoded.empty()) std::memcpy(element->bytes(), encoded.data(), encoded.size());
  element->store = store;
  element->properties = properties.release();
  return ElementOwner(element);
}

ElementOwner NewElementLike(const StoreElement& source, CertStore* store, ElementForm form) {
  PropertyBlockOwner properties;
  if (form == ElementForm::Link) {
    AddPropertyReference(*source.properties);
    properties.reset(source.properties);
  } else {
    PropertyList items;
    const PropertyLock guard(source.properties->lock);
    if (!source.properties->items.copyTo(items)) return {};
    properties = NewPropertyBlock(std::move(items));
  }
  ElementOwner element =
      NewElement(source.type, source.encoding, source.encoded(), store, std::move(properties));
  if (element) element->isLink = form == ElementForm::Link;
  return element;
}

ElementFacts FactsOf(const StoreElement& element) {
  const ElementFacts* const kept = element.facts.load(std::memory_order_acquire);
  return kept ? *kept : nullptr;
}

ElementFacts KeepFacts(StoreElement& element, ElementFacts facts) {
  auto mine = std::make_unique<const ElementFacts>(std::move(facts));
  const ElementFacts* kept = nullptr;
  if (!element.facts.compare_exchange_strong(kept, mine.get(), std::memory_order_acq_rel)) return *kept;
  return *mine.release();
}

CertStore* StoreOf(StoreElement& element) {
  const std::lock_guard guard(element.lock);
  return element.detached ? nullptr : element.store;
}

}  // namespace certkern
