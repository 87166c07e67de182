#include "certkern/chain/decoded_extension.h"

#include <certkern/errors.h>

#include <new>

#include "ber/object_codec.h"
#include "certkern/chain/memory_check.h"
#include "platform/owner.h"
#include "store/certificate_primitives.h"

namespace certkern {

void* DecodeExtensionBlock(std::span<const CERT_EXTENSION> extensions, LPCSTR oid, LPCSTR structType) {
  const CERT_EXTENSION* const extension = FindByOid(oid, extensions);
  if (!extension) return nullptr;
  const LastErrorKeeper keeper;
  SetLastError(ERROR_SUCCESS);  // decoding sets a code only where there is none
  void* record = nullptr;
  if (DecodeObjectEx(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, structType, extension->Value.pbData,
                     extension->Value.cbData, CRYPT_DECODE_ALLOC_FLAG, nullptr, &record, nullptr)) {
    return record;
  }
  // a lack of memory must not pass for a lack of restrictions
  if (IsLackOfMemory(GetLastError())) throw std::bad_alloc();
  return nullptr;
}

}  // namespace certkern
