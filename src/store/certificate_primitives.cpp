#include "store/certificate_primitives.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/oids.h>

#include "ber/object_codec.h"
#include "ber/read_cursor.h"
#include "store/context_record.h"

namespace certkern {
namespace {

// A decoded key usage. Nine bits are defined; a string that does not fit here is no key usage.
struct KeyUsageRecord {
  CRYPT_BIT_BLOB bits;
  BYTE room[256 - sizeof(CRYPT_BIT_BLOB)];
};

std::span<const BYTE> Bytes(const CRYPT_DATA_BLOB& blob) { return {blob.pbData, blob.cbData}; }

// Null for a live context of the other kind.
template <class Context, ElementType type>
const Context* OfKind(const void* context) {
  const ContextRecord* const record = FindLiveContext(context);
  return record && record->element().type != type ? nullptr : static_cast<const Context*>(context);
}

}  // namespace

const CERT_CONTEXT* ReadableCertificate(const void* context) {
  const auto* const certificate = OfKind<CERT_CONTEXT, ElementType::Certificate>(context);
  return certificate && certificate->pCertInfo ? certificate : nullptr;
}

const CRL_CONTEXT* ReadableCrl(const void* context) {
  const auto* const crl = OfKind<CRL_CONTEXT, ElementType::Crl>(context);
  return crl && crl->pCrlInfo ? crl : nullptr;
}

std::span<const BYTE> EncodedBytes(const CERT_CONTEXT& certificate) {
  return AsSpan<const BYTE>(certificate.pbCertEncoded, certificate.cbCertEncoded);
}

std::span<const BYTE> EncodedBytes(const CRL_CONTEXT& crl) {
  return AsSpan<const BYTE>(crl.pbCrlEncoded, crl.cbCrlEncoded);
}

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

std::span<const BYTE> WithoutSignBytes(std::span<const BYTE> integer) {
  const auto redundant = [&] {
    const BYTE top = integer.back();
    const bool nextIsNegative = (integer[integer.size() - 2] & 0x80) != 0;
    return (top == 0x00 && !nextIsNegative) || (top == 0xFF && nextIsNegative);
  };
  while (integer.size() > 1 && redundant()) integer = integer.first(integer.size() - 1);
  return integer;
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
