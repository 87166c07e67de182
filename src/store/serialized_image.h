// The serialized form of stores and of single objects: what store files hold, and what travels between programs.
//
//   image    00 00 00 00 "CERT", the elements, an end marker of 12 zero bytes
//   element  a record for each property in their order, then the record of the object
//   record   identifier, encoding, length of the body: three words of 32 bits, little-endian; then the body
//
// Identifiers from 32 to 63 are those of objects, 32 certificates and 33 CRLs; only 35 among them is a property. An
// element by itself has neither header nor end marker. The oldest object comes first, so that reading, which puts each
// at the head of its list, restores the order.
#ifndef CERTKERN_STORE_SERIALIZED_IMAGE_H
#define CERTKERN_STORE_SERIALIZED_IMAGE_H

#include <array>
#include <functional>
#include <span>
#include <vector>

#include "store/context_record.h"
#include "store/store_record.h"

namespace certkern {

inline constexpr std::array<BYTE, 8> kImageMagic = {0, 0, 0, 0, 'C', 'E', 'R', 'T'};
// Twelve bytes of zero, as long as the head of a record.
inline constexpr std::array<BYTE, 12> kImageEnd{};
// Put in the place of an element's identifier it takes the element out, properties included: readers skip objects of a kind
// that they don't keep.
inline constexpr DWORD kDeadObject = 63;

// --- writing ---

// What is left out: archived objects, unless their store shows them, from what is saved elsewhere; links from the
// store's own file, which keeps the archived.
enum class ImageUse { Save, Commit };

// Bytes that are counted, and kept where they are wanted.
struct ImageBytes {
  enum class Mode { Count, Keep };
  explicit ImageBytes(Mode wanted) : mode(wanted) {}

  const Mode mode;
  uint64_t size = 0;
  std::vector<BYTE> bytes;  // empty when only counted
};

// All members' certificates, then all members' CRLs, but what such a use leaves out. False as soon as the visitor is.
// Takes each member's lock in turn, around the visits; no handle is needed beyond the caller's.
using ElementVisitor = std::function<bool(const StoreElement& element)>;
[[nodiscard]] bool VisitElements(CertStore& store, ImageUse use, const ElementVisitor& visit);

// What is visited, with properties. False with ERROR_NOT_ENOUGH_MEMORY when the whole would be larger than the interface
// can tell.
[[nodiscard]] bool SerializeStore(CertStore& store, ImageUse use, ImageBytes& image);
// One object with its properties, and where it has come to stand. The same failure.
[[nodiscard]] bool SerializeElement(const StoreElement& element, ImageBytes& image,
                                    FilePlace* place = nullptr);
// The properties alone.
[[nodiscard]] bool SerializeProperties(const StoreElement& element, ImageBytes& image);
[[nodiscard]] bool PutImageBytes(ImageBytes& image, std::span<const BYTE> bytes);

// --- reading; all of it points into the bytes that were read ---

struct ImageProperty {
  DWORD id;
  std::span<const BYTE> value;
};
struct ImageElement {
  ElementType type;
  std::span<const BYTE> encoded;
  size_t firstProperty;
  size_t propertyCount;
  FilePlace place{};  // in an image; its layout is left out
};
struct ImageContent {
  std::vector<ImageElement> elements;
  std::vector<ImageProperty>
      properties;  // in the order of the bytes; of two with one identifier the later counts
  size_t end = 0;  // offset of an image's end marker

  std::span<const ImageProperty> propertiesOf(const ImageElement& element) const {
    return std::span(properties).subspan(element.firstProperty, element.propertyCount);
  }
};

bool HasImageMagic(std::span<const BYTE> bytes);
// A whole image; what comes behind the end marker is not looked at. False with ERROR_END_OF_MEDIA (cut short) or
// CRYPT_E_FILE_ERROR (no image, a body beyond the data, properties without an object, more of them than
// kMaxElementProperties).
[[nodiscard]] bool ReadImage(std::span<const BYTE> bytes, ImageContent& content);
// The first element of bytes without header. An end marker in its place is CRYPT_E_FILE_ERROR.
[[nodiscard]] bool ReadImageElement(std::span<const BYTE> bytes, ImageContent& content);

// Writes an element that was read once more, as a store would that has read it.
[[nodiscard]] bool PutImageElement(const ImageContent& content, const ImageElement& element,
                                   ImageBytes& image, FilePlace& place);

// An element that was read, made for a store but not in its list. Empty with ERROR_NOT_ENOUGH_MEMORY.
ElementOwner MakeImageElement(const ImageContent& content, const ImageElement& element, CertStore& store);
// Puts all elements into a store, the last one at the head.
[[nodiscard]] bool LinkImage(const ImageContent& content, CertStore& store);

// --- the functions above it ---

// The answer to a caller who asks with a buffer, or without one for the size: ERROR_MORE_DATA when there is too little
// room, and *size says how much it takes.
[[nodiscard]] bool AnswerElement(const StoreElement& element, BYTE* buffer, DWORD* size);

// CertAddSerializedElementToStore, its arguments checked. `store` may be null. On success *added, if asked for, is a
// context for the caller, and type what was there.
[[nodiscard]] bool AddSerializedElement(CertStore* store, std::span<const BYTE> bytes, DWORD disposition,
                                        DWORD allowedTypes, DWORD& type, ContextRecord** added);

// The load function of the kind: the parameter is a CRYPT_DATA_BLOB.
[[nodiscard]] bool LoadSerializedBlob(CertStore& store, const void* parameter);

}  // namespace certkern

#endif
