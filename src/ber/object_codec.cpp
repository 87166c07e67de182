#include "ber/object_codec.h"

#include "ber/struct_type_oid.h"
#include "ber/struct_types.h"

#include <algorithm>
#include <cstddef>

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

bool EncodeByType(uintptr_t type, const void* record, BYTE* encoded, DWORD* size) {
  // what an earlier call left behind must not pass for this one's reason
  SetLastError(ERROR_SUCCESS);
  if (!BerEncodeByType(type, record, encoded, size)) return Fault(EncodeFault(GetLastError()));
  SetLastError(ERROR_SUCCESS);
  return true;
}

// --- decoding ---

bool IsDecodable(DWORD encodingType, LPCSTR type, const BYTE* encoded, DWORD encodedSize) {
  return type && encoded && encodedSize && (encodingType & (X509_ASN_ENCODING | PKCS_7_ASN_ENCODING));
}

bool DecodeByType(SizeKnown known, DWORD encodingType, LPCSTR type, const BYTE* encoded, DWORD encodedSize,
                  DWORD flags, void* record, DWORD* size) {
  constexpr DWORD kFlags = CRYPT_DECODE_NOCOPY_FLAG | CRYPT_DECODE_TO_BE_SIGNED_FLAG;
  if (!size || !IsDecodable(encodingType, type, encoded, encodedSize)) return Fault(ERROR_INVALID_PARAMETER);
  const StructType* row = FindStructType(StructTypeFromOid(type));
  if (flags > kFlags || !row || !row->decode) return Fault(ERROR_INVALID_PARAMETER);
  if (BerDecodeEntry(known, *row, {encoded, encodedSize}, flags, record, size)) return true;
  if (GetLastError() == ERROR_SUCCESS) SetLastError(CRYPT_E_ASN1_ERROR);
  return false;
}

}  // namespace

bool EncodeObject(DWORD /*encodingType*/, LPCSTR type, const void* record, BYTE* encoded, DWORD* size) {
  if (!type) return false;
  const uintptr_t number = StructTypeFromOid(type);
  if (EncodeByType(number, record, encoded, size)) return true;
  const DWORD code = GetLastError();
  // after any failure the caller learns the size that the object needs
  if (encoded) static_cast<void>(EncodeByType(number, record, nullptr, size));
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
