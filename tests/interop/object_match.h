// One signed object, read by certkern and by openssl, field by field; and written again, byte by byte.
#ifndef CERTKERN_TESTS_INTEROP_OBJECT_MATCH_H
#define CERTKERN_TESTS_INTEROP_OBJECT_MATCH_H

#include "interop/openssl_tool.h"

#include <certkern/encode.h>
#include <certkern/keykern.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <type_traits>

struct LocalRelease {
  void operator()(void* memory) const { LocalFree(memory); }
};
template <typename T>
using Decoded = std::unique_ptr<T, LocalRelease>;

// Null when it does not decode; the last error tells why.
template <typename T>
Decoded<T> Decode(LPCSTR type, std::span<const BYTE> der, DWORD flags = 0) {
  void* record = nullptr;
  SetLastError(ERROR_SUCCESS);
  CryptDecodeObjectEx(X509_ASN_ENCODING, type, der.data(), static_cast<DWORD>(der.size()),
                      CRYPT_DECODE_ALLOC_FLAG | flags, nullptr, &record, nullptr);
  return Decoded<T>(static_cast<T*>(record));
}
// Empty when it has no encoding.
Bytes Encode(LPCSTR type, const void* record);

// Each compares the whole object, and all that it holds, with openssl's reading. Re-encodings that differ from what
// was read are listed with their reason in object_match.cpp; a row that no object of a whole run met is a failure, too.
void ExpectCertificateMatches(std::span<const BYTE> der);
void ExpectListMatches(std::span<const BYTE> der);
void ExpectRequestMatches(std::span<const BYTE> der);

// Extensions and names that were written again so far, by what the codec is called by.
size_t CountRewritten(const std::string& subject);

#endif
