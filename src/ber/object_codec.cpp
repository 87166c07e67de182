#include "ber/object_codec.h"

#include "ber/generated_codec.h"
#include "ber/struct_type_oid.h"
#include "ber/struct_types.h"
#include "platform/extension_library.h"

#include <certkern/attributes.h>
#include <certkern/oids.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace certkern {
namespace {

// --- the caller's allocator ---

struct Allocator {
  PFN_CRYPT_ALLOC allocate;
  PFN_CRYPT_FREE release;
};

void* LocalTake(size_t size) { return LocalAlloc(LMEM_FIXED, size); }
void LocalGive(void* memory) { LocalFree(memory); }

// Both functions or neither; a field counts when the record's size reaches past it.
template <typename Parameters>
bool ChooseAllocator(const Parameters* parameters, Allocator& allocator) {
  allocator = {LocalTake, LocalGive};
  if (!parameters) return true;
  const auto covers = [parameters](size_t end) { return parameters->cbSize >= end; };
  const PFN_CRYPT_ALLOC allocate = covers(offsetof(Parameters, pfnFree)) ? parameters->pfnAlloc : nullptr;
  const PFN_CRYPT_FREE release = covers(sizeof(Parameters)) ? parameters->pfnFree : nullptr;
  if (!allocate != !release) return Fault(ERROR_INVALID_PARAMETER);
  if (allocate) allocator = {allocate, release};
  return true;
}

// Takes a buffer of a known size, has it filled, and hands it over.
template <typename Fill>
bool FillFromAllocator(const Allocator& allocator, DWORD size, void* result, const Fill& fill) {
  void* buffer = allocator.allocate(std::max<size_t>(size, 1));
  if (!buffer) return Fault(ERROR_NOT_ENOUGH_MEMORY);
  if (!fill(buffer)) {
    const DWORD code = GetLastError();
    allocator.release(buffer);
    return Fault(code);
  }
  *static_cast<void**>(result) = buffer;
  return true;
}

// --- the types that the extension library serves ---

constexpr uintptr_t kTypeRsaKeyBlob = 19;

// A number, or a text that is compared as a whole and as spelled.
class TypeKey {
 public:
  // implicit, so that either kind is a plain cell of the tables below
  constexpr TypeKey(uintptr_t number) : number_(number) {}  // NOLINT(google-explicit-constructor): see above
  constexpr TypeKey(LPCSTR text) : text_(text) {}           // NOLINT(google-explicit-constructor): see above
  bool is(LPCSTR type) const {
    if (StructNumber(type) < kFirstStringType) return !text_ && number_ == StructNumber(type);
    return text_ && std::strcmp(text_, type) == 0;
  }

 private:
  LPCSTR text_ = nullptr;
  uintptr_t number_ = 0;
};

// The operation gets the arguments as the entry got them, and its codes stand.
template <typename Function>
struct ExtensionRoute {
  TypeKey key;
  extension::Operation<Function>* operation;
};

constexpr ExtensionRoute<XnEncode> kEncodeRoutes[] = {
    {szOID_GOST_CONTAINER_STORE_1,        &extension::XnDllGostPrivateCertificateStoreEncode},
    {szOID_GOST_CONTAINER_STORE_2,        &extension::XnDllGostPrivateCertificateStoreEncode},
    {szOID_GOST_CONTAINER_STORE_3,        &extension::XnDllGostPrivateCertificateStoreEncode},
    {SV_SIGNING_CERTIFICATE_STRUCT,       &extension::XnDllSigningCertificateEncode         },
    {SV_SIGNING_CERTIFICATE_V2_STRUCT,    &extension::XnDllSigningCertificateV2Encode       },
    {SV_OTHER_SIGNING_CERTIFICATE_STRUCT, &extension::XnDllOtherSigningCertificateEncode    },
    {SV_PRIVATE_KEY_USAGE_PERIOD_STRUCT,  &extension::XnDllPrivateKeyUsagePeriodEncode      },
    {szOID_ISSUER_SIGN_TOOL,              &extension::XnDllIssuerSignToolEncode             },
    {kTypeRsaKeyBlob,                     &extension::XnRsaPublicKeyEncode                  },
};

constexpr ExtensionRoute<XnDecode> kDecodeRoutes[] = {
    {szOID_GOST_CONTAINER_STORE_1,        &extension::XnDllGostPrivateCertificateStoreDecode          },
    {szOID_GOST_CONTAINER_STORE_2,        &extension::XnDllGostPrivateCertificateStoreDecode          },
    {szOID_GOST_CONTAINER_STORE_3,        &extension::XnDllGostPrivateCertificateStoreDecode          },
    {szOID_GOST_CONTAINER_KEY_PERIOD_1,   &extension::XnDllPrivateKeyUsagePeriodDecode                },
    {szOID_GOST_CONTAINER_KEY_PERIOD_2,   &extension::XnDllPrivateKeyUsagePeriodDecode                },
    {szOID_GOST_CONTAINER_KEY_PERIOD_3,   &extension::XnDllPrivateKeyUsagePeriodDecode                },
    {SV_PRIVATE_KEY_USAGE_PERIOD_STRUCT,  &extension::XnDllPrivateKeyUsagePeriodDecode                },
    {szOID_GOST_CONTAINER_DERIVE_COUNTER, &extension::XnDllPrivateKeyDeriveCounterDecode              },
    {szOID_GOST_CONTAINER_TIME_CONTROL,   &extension::XnDllGostPrivateKeyTimeValidityControlModeDecode},
    {SV_SIGNING_CERTIFICATE_STRUCT,       &extension::XnDllSigningCertificateDecode                   },
    {SV_SIGNING_CERTIFICATE_V2_STRUCT,    &extension::XnDllSigningCertificateV2Decode                 },
    {SV_OTHER_SIGNING_CERTIFICATE_STRUCT, &extension::XnDllOtherSigningCertificateDecode              },
    {szOID_ISSUER_SIGN_TOOL,              &extension::XnDllIssuerSignToolDecode                       },
    {kTypeRsaKeyBlob,                     &extension::XnRsaPublicKeyDecode                            },
};

// Null for a type of another codec.
template <typename Function, size_t kCount>
extension::Operation<Function>* FindExtension(const ExtensionRoute<Function> (&routes)[kCount], LPCSTR type) {
  for (const ExtensionRoute<Function>& route : routes) {
    if (route.key.is(type)) return route.operation;
  }
  return nullptr;
}

// --- the types that generated code serves ---

// Null for a type of another codec.
const GeneratedType* FindGenerated(LPCSTR type) {
  const uintptr_t number = StructTypeFromOid(type);
  for (const GeneratedType& row : GeneratedTypes()) {
    if (row.number == number) return &row;
  }
  return nullptr;
}

// --- encoding ---

// Codes that tell the caller what is wrong with the record; all others mean that it has no encoding.
DWORD EncodeFault(DWORD code) {
  switch (code) {
    case E_INVALIDARG:
    case CRYPT_E_NOT_CHAR_STRING:
    case CRYPT_E_INVALID_IA5_STRING:
    case CRYPT_E_INVALID_NUMERIC_STRING:
    case CRYPT_E_INVALID_PRINTABLE_STRING:
    case CRYPT_E_ASN1_CHOICE:
    case ERROR_MORE_DATA:
      return code;
    default:
      return CRYPT_E_BAD_ENCODE;
  }
}

bool EncodeByType(DWORD encodingType, LPCSTR type, const void* record, BYTE* encoded, DWORD* size) {
  if (auto* const encode = FindExtension(kEncodeRoutes, type)) {
    return (*encode)(encodingType, type, record, encoded, size);
  }
  if (const GeneratedType* row = FindGenerated(type); row && row->encode) {
    return row->encode(record, encoded, size);
  }
  // what an earlier call left behind must not pass for this one's reason
  SetLastError(ERROR_SUCCESS);
  if (!BerEncodeByType(StructTypeFromOid(type), record, encoded, size)) {
    return Fault(EncodeFault(GetLastError()));
  }
  SetLastError(ERROR_SUCCESS);
  return true;
}

// --- decoding ---

bool IsDecodable(DWORD encodingType, LPCSTR type, const BYTE* encoded, DWORD encodedSize) {
  return type && encoded && encodedSize && (encodingType & (X509_ASN_ENCODING | PKCS_7_ASN_ENCODING));
}

// A failure without a code gets the one that stands for "malformed".
bool Decoded(bool done) {
  if (!done && GetLastError() == ERROR_SUCCESS) SetLastError(CRYPT_E_ASN1_ERROR);
  return done;
}

bool DecodeByType(SizeKnown known, DWORD encodingType, LPCSTR type, const BYTE* encoded, DWORD encodedSize,
                  DWORD flags, void* record, DWORD* size) {
  constexpr DWORD kFlags = CRYPT_DECODE_NOCOPY_FLAG | CRYPT_DECODE_TO_BE_SIGNED_FLAG;
  const GeneratedType* const generated = type ? FindGenerated(type) : nullptr;
  if (!size && generated && generated->decode) return generated->decode({}, record, size);  // traces it
  if (!size || !IsDecodable(encodingType, type, encoded, encodedSize)) return Fault(ERROR_INVALID_PARAMETER);
  if (auto* const decode = FindExtension(kDecodeRoutes, type)) {
    return Decoded((*decode)(encodingType, type, encoded, encodedSize, flags, record, size));
  }
  if (generated && generated->decode) return generated->decode({encoded, encodedSize}, record, size);
  const StructType* row = FindStructType(StructTypeFromOid(type));
  if (flags > kFlags || !row || !row->decode) return Fault(ERROR_INVALID_PARAMETER);
  return Decoded(BerDecodeEntry(known, *row, {encoded, encodedSize}, flags, record, size));
}

}  // namespace

bool EncodeObject(DWORD encodingType, LPCSTR type, const void* record, BYTE* encoded, DWORD* size) {
  if (!type) return false;
  if (EncodeByType(encodingType, type, record, encoded, size)) return true;
  const DWORD code = GetLastError();
  // after any failure the caller learns the size that the object needs
  if (encoded) static_cast<void>(EncodeByType(encodingType, type, record, nullptr, size));
  return Fault(code);
}

bool EncodeObjectEx(DWORD encodingType, LPCSTR type, const void* record, DWORD flags,
                    const CRYPT_ENCODE_PARA* parameters, void* encoded, DWORD* size) {
  if (flags & ~CRYPT_ENCODE_ALLOC_FLAG) return Fault(ERROR_INVALID_PARAMETER);
  if (!(flags & CRYPT_ENCODE_ALLOC_FLAG)) {
    return EncodeObject(encodingType, type, record, static_cast<BYTE*>(encoded), size);
  }
  Allocator allocator;
  if (!encoded) return Fault(ERROR_INVALID_PARAMETER);
  if (!ChooseAllocator(parameters, allocator)) return false;
  DWORD needed = 0;
  if (!EncodeObject(encodingType, type, record, nullptr, &needed)) return false;
  if (!FillFromAllocator(allocator, needed, encoded, [&](void* buffer) {
        return EncodeObject(encodingType, type, record, static_cast<BYTE*>(buffer), &needed);
      })) {
    return false;
  }
  if (size) *size = needed;
  SetLastError(ERROR_SUCCESS);
  return true;
}

bool DecodeObject(DWORD encodingType, LPCSTR type, const BYTE* encoded, DWORD encodedSize, DWORD flags,
                  void* record, DWORD* size) {
  return DecodeByType(SizeKnown::No, encodingType, type, encoded, encodedSize, flags, record, size);
}

bool DecodeObjectEx(DWORD encodingType, LPCSTR type, const BYTE* encoded, DWORD encodedSize, DWORD flags,
                    const CRYPT_DECODE_PARA* parameters, void* record, DWORD* size) {
  if (!(flags & CRYPT_DECODE_ALLOC_FLAG)) {
    return DecodeObject(encodingType, type, encoded, encodedSize, flags, record, size);
  }
  Allocator allocator;
  if (!record) return Fault(ERROR_INVALID_PARAMETER);
  if (!ChooseAllocator(parameters, allocator)) return false;
  flags &= ~CRYPT_DECODE_ALLOC_FLAG;
  DWORD needed = 0;
  if (!DecodeObject(encodingType, type, encoded, encodedSize, flags, nullptr, &needed)) return false;
  if (!FillFromAllocator(allocator, needed, record, [&](void* buffer) {
        return DecodeByType(SizeKnown::Yes, encodingType, type, encoded, encodedSize, flags, buffer, &needed);
      })) {
    return false;
  }
  if (size) *size = needed;
  return true;
}

}  // namespace certkern
