#include "store/persistent_content.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/text.h>

#include <algorithm>
#include <string_view>
#include <unordered_map>

#include "ber/read_cursor.h"
#include "store/pem_bundle.h"
#include "store/store_kind.h"
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

// Without a commit to come nobody asks what has changed, and what leaves the store need not be kept in mind.
bool TellsItsChanges(const CertStore& store) {
  const bool commits = store.kind->resync || store.has(CERT_FILE_STORE_COMMIT_ENABLE_FLAG);
  return commits && !store.path.empty() && !store.has(CERT_STORE_READONLY_FLAG);
}

// --- the store and the image side by side; the caller holds the store's lock ---

constexpr ElementType kTypes[] = {ElementType::Certificate, ElementType::Crl};

// The store's element for each of the image's; what is there has the newest of its equals.
using Pairing = std::vector<StoreElement*>;

bool PairSameObjects(CertStore& store, const ImageContent& content, Pairing& pairing) {
  StoreElement* certificate = store.certificates.oldest;
  StoreElement* crl = store.crls.oldest;
  for (size_t i = 0; i < content.elements.size(); ++i) {
    StoreElement*& element = content.elements[i].type == ElementType::Certificate ? certificate : crl;
    if (!element || !std::ranges::equal(element->encoded(), content.elements[i].encoded)) return false;
    pairing[i] = element;
    element = element->prev;
  }
  return !certificate && !crl;
}

// The lists are what the file holds from here on.
void NoteFiled(CertStore& store, const StoreContent& content, const Pairing& pairing,
               const FileWitness& file) noexcept {
  store.layout = LayoutOf(content, store.layout.number + 1);
  store.layout.file = file;
  store.layout.certain = file.settled;
  for (size_t i = 0; i < pairing.size(); ++i) {
    pairing[i]->isFiled = true;
    pairing[i]->place = content.image().elements[i].place;
    pairing[i]->place.layout = content.isSerialized() ? store.layout.number : 0;
  }
}

// What comes of a comparison; nothing is changed by making it.
struct Difference {
  std::vector<StoreElement*> leaving;
  std::vector<ElementOwner> coming;  // oldest first
};

// Objects of the image by their bytes; of equal ones the newest is the last.
using ObjectsByBytes = std::unordered_map<std::string_view, std::vector<size_t>>;

bool Compare(CertStore& store, ElementType type, const ImageContent& content, Difference& difference,
             Pairing& pairing) {
  ObjectsByBytes objects;
  for (size_t i = 0; i < content.elements.size(); ++i) {
    if (content.elements[i].type == type) objects[AsText(content.elements[i].encoded)].push_back(i);
  }
  for (StoreElement* each = store.list(type).newest; each; each = each->next) {
    const auto found = objects.find(AsText(each->encoded()));
    if (found == objects.end() || found->second.empty()) {
      difference.leaving.push_back(each);
      continue;
    }
    pairing[found->second.back()] = each;
    found->second.pop_back();
  }
  for (size_t i = 0; i < content.elements.size(); ++i) {
    if (content.elements[i].type != type || pairing[i]) continue;
    ElementOwner element = MakeImageElement(content, content.elements[i], store);
    if (!element) return false;
    pairing[i] = element.get();
    difference.coming.push_back(std::move(element));
  }
  return true;
}

}  // namespace

FileLayout LayoutOf(const StoreContent& content, uint32_t number) {
  FileLayout layout;
  layout.number = number;
  if (!content.isSerialized()) return layout;
  const ImageContent& image = content.image();
  layout.end = static_cast<DWORD>(image.end);
  layout.dead = layout.end - static_cast<DWORD>(kImageMagic.size());
  for (const ImageElement& each : image.elements) layout.dead -= each.place.end - each.place.start;
  return layout;
}

bool StoreContent::take(std::vector<BYTE> bytes) {
  bytes_ = std::move(bytes);
  image_ = {};
  serialized_ = HasImageMagic(bytes_);
  if (bytes_.empty()) return true;
  if (serialized_) return ReadImage(bytes_, image_);
  if (IsPemBundle(AsText(bytes_))) return takeBundle();
  if (!BinaryFromText(bytes_)) return false;
  SetLastError(ERROR_SUCCESS);
  if (takeMessage()) return true;
  return GetLastError() != ERROR_NOT_ENOUGH_MEMORY && takeCertificate();
}

bool StoreContent::takeMessage() {
  MessageObjects objects;
  return ReadMessageObjects(bytes_, Unreadable::Kept, objects) && takeObjects(std::move(objects));
}

bool StoreContent::takeBundle() {
  MessageObjects objects;
  return ReadPemBundle(AsText(bytes_), objects) && takeObjects(std::move(objects));
}

bool StoreContent::takeObjects(MessageObjects objects) {
  bytes_ = std::move(objects.bytes);  // which the content goes on pointing into
  image_ = std::move(objects.content);
  return true;
}

bool StoreContent::takeCertificate() {
  SetLastError(ERROR_SUCCESS);
  const ContextOwner context(CreateContext(ElementType::Certificate, X509_ASN_ENCODING, bytes_));
  if (!context) return FailAsUnreadable();
  const std::span<const BYTE> encoded = std::span(bytes_).first(context->certificate.cbCertEncoded);
  image_.elements.push_back({ElementType::Certificate, encoded, 0, 0});
  return true;
}

bool LinkContent(CertStore& store, const StoreContent& content, const FileWitness& file) {
  if (!LinkImage(content.image(), store)) return false;
  if (!TellsItsChanges(store)) return true;
  Pairing pairing(content.image().elements.size());
  const std::lock_guard guard(store.lock);
  if (!PairSameObjects(store, content.image(), pairing)) return Fault(ERROR_INTERNAL_ERROR);
  NoteFiled(store, content, pairing, file);
  return true;
}

bool Reconcile(CertStore& store, const StoreContent& content, const FileWitness& file) {
  std::vector<ElementOwner> gone;  // freed without the lock, as those that had left before
  RemovedElements removed;
  const ImageContent& image = content.image();
  const std::lock_guard guard(store.lock);
  Pairing pairing(image.elements.size());
  if (!PairSameObjects(store, image, pairing)) {
    pairing.assign(image.elements.size(), nullptr);
    Difference difference;
    for (const ElementType type : kTypes) {
      if (!Compare(store, type, image, difference, pairing)) return false;
    }
    gone.reserve(difference.leaving.size());
    for (StoreElement* each : difference.leaving) gone.push_back(UnlinkElement(store, *each));
    for (ElementOwner& each : difference.coming) LinkElement(store, std::move(each));
  }
  removed = std::exchange(store.removed, {});
  NoteFiled(store, content, pairing, file);
  store.dirty = false;
  return true;
}

}  // namespace certkern
