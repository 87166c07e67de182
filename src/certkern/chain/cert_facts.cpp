#include "certkern/chain/cert_facts.h"

#include <certkern/attributes.h>
#include <certkern/errors.h>
#include <certkern/oids.h>

#include "ber/read_cursor.h"
#include "store/certificate_primitives.h"

namespace certkern {
namespace {

constexpr BYTE kTagOctetString = 0x04;
constexpr size_t kSmallestHeader = 2;

std::span<const BYTE> Bytes(const CRYPT_DATA_BLOB& blob) { return {blob.pbData, blob.cbData}; }

std::span<const CERT_EXTENSION> ExtensionsOf(const CERT_INFO& info) {
  return AsSpan<const CERT_EXTENSION>(info.rgExtension, info.cExtension);
}

template <class Record>
DecodedRecord<Record> Decoded(const CERT_INFO& info, LPCSTR oid, LPCSTR structType) {
  return DecodeExtension<Record>(ExtensionsOf(info), oid, structType);
}

std::optional<std::vector<BYTE>> SubjectKeyIdOf(const CERT_INFO& info) {
  const CERT_EXTENSION* const extension = FindExtension(szOID_SUBJECT_KEY_IDENTIFIER, info);
  if (!extension) return std::nullopt;
  const LastErrorKeeper keeper;
  return ReadSubjectKeyId(Bytes(extension->Value));
}

std::optional<FILETIME> Bound(const FILETIME* moment) {
  return moment ? std::optional(*moment) : std::nullopt;
}

std::optional<KeyPeriod> KeyPeriodOf(const CERT_INFO& info) {
  const auto period = Decoded<SV_PRIVATE_KEY_USAGE_PERIOD>(info, szOID_PRIVATEKEY_USAGE_PERIOD,
                                                           SV_PRIVATE_KEY_USAGE_PERIOD_STRUCT);
  if (!period || (!period->pNotBefore && !period->pNotAfter)) return std::nullopt;
  return KeyPeriod{Bound(period->pNotBefore), Bound(period->pNotAfter)};
}

}  // namespace

std::optional<std::vector<BYTE>> ReadSubjectKeyId(std::span<const BYTE> value) {
  if (!value.empty() && value.front() != kTagOctetString) return std::vector(value.begin(), value.end());
  if (value.size() < kSmallestHeader) {
    SetLastError(CRYPT_E_ASN1_INTERNAL);
    return std::nullopt;
  }
  BerReadCursor in(value), content;
  BYTE tag = 0;
  if (!in.readElement(tag, content)) {
    SetLastError(CRYPT_E_ASN1_EOD);
    return std::nullopt;
  }
  return std::vector(content.rest().begin(), content.rest().end());
}

CertFacts::CertFacts(const CERT_INFO& info)
    : issuer(Bytes(info.Issuer)),
      subject(Bytes(info.Subject)),
      selfIssued(subject.equals(issuer)),
      subjectKeyId(SubjectKeyIdOf(info)),
      authorityKeyId(Decoded<CERT_AUTHORITY_KEY_ID2_INFO>(info, szOID_AUTHORITY_KEY_IDENTIFIER2,
                                                          X509_AUTHORITY_KEY_ID2)),
      keyUsage(Decoded<CRYPT_BIT_BLOB>(info, szOID_KEY_USAGE, X509_KEY_USAGE)),
      basicConstraints(
          Decoded<CERT_BASIC_CONSTRAINTS2_INFO>(info, szOID_BASIC_CONSTRAINTS2, X509_BASIC_CONSTRAINTS2)),
      certPolicies(Decoded<CERT_POLICIES_INFO>(info, szOID_CERT_POLICIES, X509_CERT_POLICIES)),
      applPolicies(Decoded<CERT_POLICIES_INFO>(info, szOID_APPLICATION_CERT_POLICIES, X509_CERT_POLICIES)),
      extendedKeyUsage(Decoded<CERT_ENHKEY_USAGE>(info, szOID_ENHANCED_KEY_USAGE, X509_ENHANCED_KEY_USAGE)),
      policyConstraints(
          Decoded<CERT_POLICY_CONSTRAINTS_INFO>(info, szOID_POLICY_CONSTRAINTS, X509_POLICY_CONSTRAINTS)),
      applPolicyConstraints(Decoded<CERT_POLICY_CONSTRAINTS_INFO>(info, szOID_APPLICATION_POLICY_CONSTRAINTS,
                                                                  X509_POLICY_CONSTRAINTS)),
      crlDistPoints(Decoded<CRL_DIST_POINTS_INFO>(info, szOID_CRL_DIST_POINTS, X509_CRL_DIST_POINTS)),
      freshestCrl(Decoded<CRL_DIST_POINTS_INFO>(info, szOID_FRESHEST_CRL, X509_CRL_DIST_POINTS)),
      authorityInfoAccess(
          Decoded<CERT_AUTHORITY_INFO_ACCESS>(info, szOID_AUTHORITY_INFO_ACCESS, X509_AUTHORITY_INFO_ACCESS)),
      keyPeriod(KeyPeriodOf(info)) {}

std::span<const BYTE> CertFacts::authorityKeyIdBytes() const {
  return authorityKeyId ? Bytes(authorityKeyId->KeyId) : std::span<const BYTE>();
}

std::span<const BYTE> CertFacts::authoritySerial() const {
  return authorityKeyId ? Bytes(authorityKeyId->AuthorityCertSerialNumber) : std::span<const BYTE>();
}

std::shared_ptr<const CertFacts> CertFactsOf(PCCERT_CONTEXT context) {
  StoreElement& element = ElementOfBytes(context->pbCertEncoded);
  ElementFacts facts = FactsOf(element);
  if (!facts) facts = KeepFacts(element, std::make_shared<const CertFacts>(*context->pCertInfo));
  return std::static_pointer_cast<const CertFacts>(facts);
}

}  // namespace certkern
