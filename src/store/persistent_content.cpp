#include "store/persistent_content.h"

#include <certkern/errors.h>
#include <certkern/text.h>

#include <algorithm>
#include <string_view>
#include <unordered_map>

#include "ber/read_cursor.h"
#include "store/message_store.h"
#include "text/text_forms.h"

namespace certkern {
namespace {

std::string_view AsText(std::span<const BYTE> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool BinaryFromText(std::vector<BYTE>& bytes) {
  DWORD size = 0;
  if (!StringToBinary(AsText(bytes), CRYPT_STRING_ANY, {nullptr, &size, nullptr, nullptr})) return false;
  std::vector<BYTE> binary(size);
  if (!StringToBinary(AsText(bytes), CRYPT_STRING_ANY, {binary.data(), &size, nullptr, nullptr})) {
    return false;
  }
  binary.resize(size);
  bytes = std::move(binary);
  return true;
}

// --- the store and the image side by side; the caller holds the store's lock ---

constexpr ElementType kTypes[] = {ElementType::Certificate, ElementType::Crl};

bool SameObjects(CertStore& store, const ImageContent& content) {
  StoreElement* certificate = store.certificates.oldest;
  StoreElement* crl = store.crls.oldest;
  for (const ImageElement& each : content.elements) {
    StoreElement*& element = each.type == ElementType::Certificate ? certificate : crl;
    if (!element || !std::ranges::equal(element->encoded(), each.encoded)) return false;
    element = element->prev;
  }
  return !certificate && !crl;
}

// What comes of a comparison; nothing is changed by making it.
struct Difference {
  std::vector<StoreElement*> leaving;
  std::vector<ElementOwner> coming;  // oldest first
};

// Objects of the image by their bytes; of equal ones the newest is the last.
using ObjectsByBytes = std::unordered_map<std::string_view, std::vector<size_t>>;

bool Compare(CertStore& store, ElementType type, const ImageContent& content, Difference& difference) {
  ObjectsByBytes objects;
  for (size_t i = 0; i < content.elements.size(); ++i) {
    if (content.elements[i].type == type) objects[AsText(content.elements[i].encoded)].push_back(i);
  }
  std::vector<bool> there(content.elements.size());
  for (StoreElement* each = store.list(type).newest; each; each = each->next) {
    const auto found = objects.find(AsText(each->encoded()));
    if (found == objects.end() || found->second.empty()) {
      difference.leaving.push_back(each);
      continue;
    }
    there[found->second.back()] = true;
    found->second.pop_back();
  }
  for (size_t i = 0; i < content.elements.size(); ++i) {
    if (content.elements[i].type != type || there[i]) continue;
    ElementOwner element = MakeImageElement(content, content.elements[i], store);
    if (!element) return false;
    difference.coming.push_back(std::move(element));
  }
  return true;
}

}  // namespace

bool StoreContent::take(std::vector<BYTE> bytes) {
  bytes_ = std::move(bytes);
  image_ = {};
  if (bytes_.empty()) return true;
  if (HasImageMagic(bytes_)) return ReadImage(bytes_, image_);
  return BinaryFromText(bytes_) && (takeMessage() || takeCertificate());
}

bool StoreContent::takeMessage() {
  MessageObjects objects;
  if (!ReadMessageObjects(bytes_, Unreadable::Kept, objects)) return false;
  bytes_ = std::move(objects.bytes);  // which the content goes on pointing into
  image_ = std::move(objects.content);
  return true;
}

bool StoreContent::takeCertificate() {
  const ContextOwner context(CreateContext(ElementType::Certificate, X509_ASN_ENCODING, bytes_));
  if (!context) return Fault(CRYPT_E_FILE_ERROR);
  const std::span<const BYTE> encoded = std::span(bytes_).first(context->certificate.cbCertEncoded);
  image_.elements.push_back({ElementType::Certificate, encoded, 0, 0});
  return true;
}

bool Reconcile(CertStore& store, const ImageContent& content) {
  std::vector<ElementOwner> gone;  // freed without the lock
  const std::lock_guard guard(store.lock);
  if (!SameObjects(store, content)) {
    Difference difference;
    for (const ElementType type : kTypes) {
      if (!Compare(store, type, content, difference)) return false;
    }
    gone.reserve(difference.leaving.size());
    for (StoreElement* each : difference.leaving) gone.push_back(UnlinkElement(store, *each));
    for (ElementOwner& each : difference.coming) LinkElement(store, std::move(each));
  }
  store.dirty = false;
  return true;
}

}  // namespace certkern
