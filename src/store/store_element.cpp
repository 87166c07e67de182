#include "store/store_element.h"

#include <certkern/errors.h>

#include <cassert>
#include <cstdlib>
#include <cstring>
#include <new>

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
  element->~StoreElement();
  std::free(element);
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

CertStore* StoreOf(StoreElement& element) {
  const std::lock_guard guard(element.lock);
  return element.detached ? nullptr : element.store;
}

}  // namespace certkern
