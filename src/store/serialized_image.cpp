#include "store/serialized_image.h"

#include <certkern/errors.h>

#include <algorithm>
#include <cstring>
#include <unordered_set>

#include "ber/read_cursor.h"
#include "platform/limits.h"
#include "platform/sizes.h"
#include "store/context_property.h"

namespace certkern {
namespace {

constexpr size_t kRecordHeader = kImageEnd.size();
constexpr DWORD kFirstObject = 32, kLastObject = 63;
constexpr DWORD kPropertyAmongObjects = 35;

bool IsObject(DWORD id) { return id >= kFirstObject && id <= kLastObject && id != kPropertyAmongObjects; }

// What would be read back as something else is left out: an object's identifier, or that of the end marker. The key
// context is a handle of this process.
bool IsWritable(DWORD id) { return id != 0 && id != CERT_KEY_CONTEXT_PROP_ID && !IsObject(id); }

// --- writing ---

void PutWord(std::vector<BYTE>& out, DWORD word) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<BYTE>(word >> shift));
}

bool Grow(ImageBytes& image, uint64_t more) {
  if (!FitsDword(image.size + more)) return Fault(ERROR_NOT_ENOUGH_MEMORY);
  image.size += more;
  return true;
}

bool PutRecord(ImageBytes& image, DWORD id, std::span<const BYTE> body) {
  if (!Grow(image, kRecordHeader)) return false;
  if (image.mode == ImageBytes::Mode::Keep) {
    PutWord(image.bytes, id);
    PutWord(image.bytes, X509_ASN_ENCODING);
    PutWord(image.bytes, static_cast<DWORD>(body.size()));
  }
  return PutImageBytes(image, body);
}

bool IsLeftOut(const CertStore& store, StoreElement& element, ImageUse use) {
  if (use == ImageUse::Commit) return element.isLink;
  if (store.has(CERT_STORE_ENUM_ARCHIVED_FLAG)) return false;
  const PropertyLock guard(element.properties->lock);
  return element.properties->items.find(CERT_ARCHIVED_PROP_ID) != nullptr;
}

bool VisitList(CertStore& store, ElementType type, ImageUse use, const ElementVisitor& visit) {
  const std::lock_guard guard(store.lock);
  for (StoreElement* each = store.list(type).oldest; each; each = each->prev) {
    if (!IsLeftOut(store, *each, use) && !visit(*each)) return false;
  }
  return true;
}

// Offsets in an image are those of the interface: Grow sees to it.
FilePlace PlaceOf(uint64_t start, uint64_t object, uint64_t end) {
  return {static_cast<DWORD>(start), static_cast<DWORD>(object), static_cast<DWORD>(end), 0};
}

// --- reading ---

DWORD WordAt(std::span<const BYTE> bytes, size_t at) {
  DWORD word = 0;
  for (size_t i = 4; i--;) word = word << 8 | bytes[at + i];
  return word;
}

struct Record {
  DWORD id;
  std::span<const BYTE> body;
};

// A marker has no body, whatever its length says.
bool TakeRecord(std::span<const BYTE>& rest, Record& record) {
  if (rest.size() < kRecordHeader) return Fault(ERROR_END_OF_MEDIA);
  record.id = WordAt(rest, 0);
  const DWORD length = record.id ? WordAt(rest, 8) : 0;
  rest = rest.subspan(kRecordHeader);
  if (length > rest.size()) return Fault(CRYPT_E_FILE_ERROR);
  record.body = rest.first(length);
  rest = rest.subspan(length);
  return true;
}

enum class Step { Element, End, Failed };

Step Fail(DWORD code) {
  SetLastError(code);
  return Step::Failed;
}

// Images are files of at most kMaxStoreFile, or blobs whose size is a DWORD.
DWORD Offset(std::span<const BYTE> whole, std::span<const BYTE> rest) {
  return static_cast<DWORD>(whole.size() - rest.size());
}

Step TakeElement(std::span<const BYTE> whole, std::span<const BYTE>& rest, ImageContent& content) {
  const size_t first = content.properties.size();
  Record record{};
  FilePlace place{Offset(whole, rest), 0, 0, 0};
  while (place.object = Offset(whole, rest), TakeRecord(rest, record)) {
    const size_t pending = content.properties.size() - first;
    if (record.id == 0) {
      content.end = place.object;
      return pending ? Fail(CRYPT_E_FILE_ERROR) : Step::End;
    }
    if (!IsObject(record.id)) {
      if (pending == kMaxElementProperties) return Fail(CRYPT_E_FILE_ERROR);
      content.properties.push_back({record.id, record.body});
      continue;
    }
    const auto type = static_cast<ElementType>(record.id);
    if (type == ElementType::Certificate || type == ElementType::Crl) {
      place.end = Offset(whole, rest);
      content.elements.push_back({type, record.body, first, pending, place});
      return Step::Element;
    }
    content.properties.resize(first);  // an object of a kind that stores don't keep
    place.start = Offset(whole, rest);
  }
  return Step::Failed;
}

// Of those with one identifier the last one stays, where it stands: as if each had been set in turn. A key context holds
// a handle of a process, and never stands among the items.
std::vector<const ImageProperty*> WithoutReplaced(std::span<const ImageProperty> properties) {
  std::vector<const ImageProperty*> kept;
  std::unordered_set<DWORD> seen;
  for (size_t i = properties.size(); i--;) {
    const DWORD id = properties[i].id;
    if (id != CERT_KEY_CONTEXT_PROP_ID && seen.insert(id).second) kept.push_back(&properties[i]);
  }
  std::reverse(kept.begin(), kept.end());
  return kept;
}

}  // namespace

bool PutImageBytes(ImageBytes& image, std::span<const BYTE> bytes) {
  if (!Grow(image, bytes.size())) return false;
  if (image.mode == ImageBytes::Mode::Keep) image.bytes.insert(image.bytes.end(), bytes.begin(), bytes.end());
  return true;
}

bool SerializeProperties(const StoreElement& element, ImageBytes& image) {
  const PropertyLock guard(element.properties->lock);
  for (const PropertyItem* item = element.properties->items.first(); item; item = item->next) {
    if (IsWritable(item->id) && !PutRecord(image, item->id, item->bytes())) return false;
  }
  return true;
}

bool SerializeElement(const StoreElement& element, ImageBytes& image, FilePlace* place) {
  const uint64_t start = image.size;
  if (!SerializeProperties(element, image)) return false;
  const uint64_t object = image.size;
  if (!PutRecord(image, static_cast<DWORD>(element.type), element.encoded())) return false;
  if (place) *place = PlaceOf(start, object, image.size);
  return true;
}

bool PutImageElement(const ImageContent& content, const ImageElement& element, ImageBytes& image,
                     FilePlace& place) {
  const uint64_t start = image.size;
  for (const ImageProperty* each : WithoutReplaced(content.propertiesOf(element))) {
    if (IsWritable(each->id) && !PutRecord(image, each->id, each->value)) return false;
  }
  const uint64_t object = image.size;
  if (!PutRecord(image, static_cast<DWORD>(element.type), element.encoded)) return false;
  place = PlaceOf(start, object, image.size);
  return true;
}

bool VisitElements(CertStore& store, ImageUse use, const ElementVisitor& visit) {
  const StoreMembers members(store);
  for (const ElementType type : {ElementType::Certificate, ElementType::Crl}) {
    for (size_t i = 0; i < members.size(); ++i) {
      if (!VisitList(members[i], type, use, visit)) return false;
    }
  }
  return true;
}

bool SerializeStore(CertStore& store, ImageUse use, ImageBytes& image) {
  if (!PutImageBytes(image, kImageMagic)) return false;
  if (!VisitElements(store, use, [&](const StoreElement& each) { return SerializeElement(each, image); })) {
    return false;
  }
  return PutImageBytes(image, kImageEnd);
}

bool HasImageMagic(std::span<const BYTE> bytes) {
  return bytes.size() >= kImageMagic.size()
      && std::ranges::equal(bytes.first(kImageMagic.size()), kImageMagic);
}

bool ReadImage(std::span<const BYTE> bytes, ImageContent& content) {
  if (bytes.size() < kImageMagic.size()) return Fault(ERROR_END_OF_MEDIA);
  if (!HasImageMagic(bytes)) return Fault(CRYPT_E_FILE_ERROR);
  std::span<const BYTE> rest = bytes.subspan(kImageMagic.size());
  Step step;
  do step = TakeElement(bytes, rest, content);
  while (step == Step::Element);
  return step == Step::End;
}

bool ReadImageElement(std::span<const BYTE> bytes, ImageContent& content) {
  std::span<const BYTE> rest = bytes;
  const Step step = TakeElement(bytes, rest, content);
  if (step == Step::End) return Fault(CRYPT_E_FILE_ERROR);
  return step == Step::Element;
}

ElementOwner MakeImageElement(const ImageContent& content, const ImageElement& element, CertStore& store) {
  PropertyList items;
  for (const ImageProperty* each : WithoutReplaced(content.propertiesOf(element))) {
    PropertyItemOwner item = NewPropertyItem(each->id, each->value);
    if (!item) return {};
    items.append(std::move(item));
  }
  return NewElement(element.type, X509_ASN_ENCODING, element.encoded, &store,
                    NewPropertyBlock(std::move(items)));
}

bool LinkImage(const ImageContent& content, CertStore& store) {
  for (const ImageElement& each : content.elements) {
    ElementOwner element = MakeImageElement(content, each, store);
    if (!element) return false;
    const std::lock_guard guard(store.lock);
    LinkElement(store, std::move(element));
  }
  return true;
}

}  // namespace certkern
