// Single serialized objects, and the store that is read from a caller's memory.
#include <certkern/errors.h>

#include <cstring>

#include "ber/read_cursor.h"
#include "store/element_addition.h"
#include "store/serialized_image.h"
#include "store/store_kind.h"

namespace certkern {
namespace {

DWORD ContextTypeOf(ElementType type) {
  return type == ElementType::Certificate ? CERT_STORE_CERTIFICATE_CONTEXT : CERT_STORE_CRL_CONTEXT;
}

bool IsAllowed(DWORD type, DWORD allowedTypes) {
  return allowedTypes == CERT_STORE_ALL_CONTEXT_FLAG || allowedTypes == 1u << type;
}

}  // namespace

bool AnswerElement(const StoreElement& element, BYTE* buffer, DWORD* size) {
  ImageBytes image(buffer ? ImageBytes::Mode::Keep : ImageBytes::Mode::Count);
  if (!SerializeElement(element, image)) return false;
  const DWORD room = *size;
  *size = static_cast<DWORD>(image.size);
  if (!buffer) return true;
  if (room < image.size) return Fault(ERROR_MORE_DATA);
  std::memcpy(buffer, image.bytes.data(), image.bytes.size());
  return true;
}

bool AddSerializedElement(CertStore* store, std::span<const BYTE> bytes, DWORD disposition,
                          DWORD allowedTypes, DWORD& type, ContextRecord** added) {
  // shows archived objects, so that one is found here
  StoreHandle temporary = OpenMemoryStore(CERT_STORE_ENUM_ARCHIVED_FLAG);
  if (!temporary) return false;
  ImageContent content;
  if (!ReadImageElement(bytes, content)) return false;
  type = ContextTypeOf(content.elements.front().type);
  if (!IsAllowed(type, allowedTypes)) return Fault(E_INVALIDARG);
  if (!LinkImage(content, *temporary.get())) return false;
  StoreElement* const element = NextElement(*temporary.get(), content.elements.front().type, nullptr);
  const ContextOwner context(AcquireContext(*element));
  return context && AddContext(store, *context.get(), disposition, added);
}

bool LoadSerializedBlob(CertStore& store, const void* parameter) {
  const auto& blob = *static_cast<const CRYPT_DATA_BLOB*>(parameter);
  if (!blob.pbData && blob.cbData) return Fault(ERROR_INVALID_PARAMETER);
  ImageContent content;
  return ReadImage({blob.pbData, blob.cbData}, content) && LinkImage(content, store);
}

}  // namespace certkern
