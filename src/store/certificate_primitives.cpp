#include "store/certificate_primitives.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/oids.h>

#include "ber/object_codec.h"
#include "ber/read_cursor.h"

namespace certkern {
namespace {

// A decoded key usage. Nine bits are defined; a string that does not fit here is no key usage.
struct KeyUsageRecord {
  CRYPT_BIT_BLOB bits;
  BYTE room[256 - sizeof(CRYPT_BIT_BLOB)];
};

std::span<const BYTE> Bytes(const CRYPT_DATA_BLOB& blob) { return {blob.pbData, blob.cbData}; }

// Top bytes that only repeat the sign of the one below them tell nothing. The last byte always stays.
std::span<const BYTE> WithoutSignBytes(std::span<const BYTE> integer) {
  const auto redundant = [&] {
    const BYTE top = integer.back();
    const bool nextIsNegative = (integer[integer.size() - 2] & 0x80) != 0;
    return (top == 0x00 && !nextIsNegative) || (top == 0xFF && nextIsNegative);
  };
  while (integer.size() > 1 && redundant()) integer = integer.first(integer.size() - 1);
  return integer;
}

}  // namespace

LONG CompareWithValidity(const FILETIME& moment, const CERT_INFO& certificate) {
  if (CompareFileTime(&moment, &certificate.NotBefore) < 0) return -1;
  return CompareFileTime(&moment, &certificate.NotAfter) > 0 ? 1 : 0;
}

bool IsValidityNested(const CERT_INFO& subject, const CERT_INFO& issuer) {
  return CompareFileTime(&subject.NotBefore, &issuer.NotBefore) >= 0
      && CompareFileTime(&subject.NotAfter, &issuer.NotAfter) <= 0;
}

bool AreSameBytes(const CRYPT_DATA_BLOB& one, const CRYPT_DATA_BLOB& other) {
  return std::ranges::equal(Bytes(one), Bytes(other));
}

bool AreSameIntegers(const CRYPT_INTEGER_BLOB& one, const CRYPT_INTEGER_BLOB& other) {
  return std::ranges::equal(WithoutSignBytes(Bytes(one)), WithoutSignBytes(Bytes(other)));
}

bool ReadIntendedKeyUsage(const CERT_INFO& certificate, std::span<BYTE> usage) {
  std::ranges::fill(usage, BYTE{0});
  const DWORD before = GetLastError();
  SetLastError(ERROR_SUCCESS);
  const CERT_EXTENSION* extension = FindExtension(szOID_KEY_USAGE, certificate);
  if (!extension) return false;  // without a code: a certificate need not say
  KeyUsageRecord record;
  DWORD size = sizeof record;
  if (!DecodeObject(X509_ASN_ENCODING, X509_KEY_USAGE, extension->Value.pbData, extension->Value.cbData, 0,
                    &record, &size)) {
    return Fault(size > sizeof record ? CRYPT_E_ASN1_ERROR : GetLastError());
  }
  std::copy_n(record.bits.pbData, std::min<size_t>(record.bits.cbData, usage.size()), usage.begin());
  SetLastError(before);
  return true;
}

}  // namespace certkern
