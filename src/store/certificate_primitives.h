// Questions about one certificate, one list or a pair of either that need neither a store nor a chain. Whoever needs
// these answers inside the library asks here: the exported functions set codes of their own.
#ifndef CERTKERN_STORE_CERTIFICATE_PRIMITIVES_H
#define CERTKERN_STORE_CERTIFICATE_PRIMITIVES_H

#include <certkern/encode.h>
#include <certkern/properties.h>

#include <algorithm>
#include <cstring>
#include <span>

namespace certkern {

// A count without an array is a mistake of the caller's, and reads as none.
template <class Record>
std::span<Record> AsSpan(Record* records, DWORD count) {
  return {records, records ? count : 0};
}

// The first record of this identifier, null if none is. Records without one are passed over.
template <class Record>
Record* FindByOid(LPCSTR oid, std::span<Record> records) {
  const auto found = std::ranges::find_if(records, [&](const Record& record) {
    return record.pszObjId && std::strcmp(record.pszObjId, oid) == 0;
  });
  return found != records.end() ? &*found : nullptr;
}

inline const CERT_EXTENSION* FindExtension(LPCSTR oid, const CERT_INFO& info) {
  return FindByOid(oid, AsSpan<const CERT_EXTENSION>(info.rgExtension, info.cExtension));
}

// A context of which only the published fields are read: one of ours, or one that the caller put together. Null for a live
// one of the other kind, and for one without decoded fields. Whether memory that is neither is a context can't be told.
const CERT_CONTEXT* ReadableCertificate(const void* context);
const CRL_CONTEXT* ReadableCrl(const void* context);
// Empty where there are none.
std::span<const BYTE> EncodedBytes(const CERT_CONTEXT& certificate);
std::span<const BYTE> EncodedBytes(const CRL_CONTEXT& crl);

// -1 before the validity, 1 behind it, 0 inside; both bounds are inside.
LONG CompareWithValidity(const FILETIME& moment, const CERT_INFO& certificate);
bool IsValidityNested(const CERT_INFO& subject, const CERT_INFO& issuer);

// Blobs that a caller gave: their bytes must be there.
inline bool IsWhole(const CRYPT_DATA_BLOB* blob) { return blob && (blob->pbData || !blob->cbData); }
inline bool HasWholeNames(const CERT_INFO& info) { return IsWhole(&info.Issuer) && IsWhole(&info.Subject); }
// Of whole blobs. Names are compared as bytes, integers by value.
bool AreSameBytes(const CRYPT_DATA_BLOB& one, const CRYPT_DATA_BLOB& other);
bool AreSameIntegers(const CRYPT_INTEGER_BLOB& one, const CRYPT_INTEGER_BLOB& other);
// What AreSameIntegers compares: top bytes that only repeat the sign of the one below them tell nothing. The last byte
// always stays.
std::span<const BYTE> WithoutSignBytes(std::span<const BYTE> integer);

// Fills the whole buffer: with the bits as far as there are any, then with zeros. False with last error 0: the
// certificate does not say; with another: it can't be read.
[[nodiscard]] bool ReadIntendedKeyUsage(const CERT_INFO& certificate, std::span<BYTE> usage);

}  // namespace certkern

#endif
