#include "store/issuer.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/keys.h>
#include <certkern/oids.h>

#include <algorithm>
#include <span>

#include "ber/object_codec.h"
#include "keys/certificate_signature.h"
#include "store/certificate_primitives.h"
#include "store/context_property.h"
#include "store/find.h"

namespace certkern {
namespace {

bool IsSignedBy(const CERT_CONTEXT& subject, const CERT_CONTEXT& issuer) {
  return VerifySubject(0, CRYPT_VERIFY_CERT_SIGN_SUBJECT_CERT, &subject, CRYPT_VERIFY_CERT_SIGN_ISSUER_CERT,
                       const_cast<CERT_CONTEXT*>(&issuer));
}

bool IsSelfSigned(const CERT_CONTEXT& certificate) {
  const CERT_INFO& info = *certificate.pCertInfo;
  return AreSameBytes(info.Subject, info.Issuer) && IsSignedBy(certificate, certificate);
}

using AuthorityKey = Owner<CERT_AUTHORITY_KEY_ID2_INFO*, LocalFree>;

// Empty where there is none. One that can't be read tells nothing; the signature has to be good in any case.
AuthorityKey AuthorityKeyOf(const CERT_INFO& subject) {
  const CERT_EXTENSION* const extension = FindExtension(szOID_AUTHORITY_KEY_IDENTIFIER2, subject);
  void* record = nullptr;
  if (!extension
      || !DecodeObjectEx(X509_ASN_ENCODING, X509_AUTHORITY_KEY_ID2, extension->Value.pbData,
                         extension->Value.cbData, CRYPT_DECODE_ALLOC_FLAG, nullptr, &record, nullptr)) {
    return {};
  }
  return AuthorityKey(static_cast<CERT_AUTHORITY_KEY_ID2_INFO*>(record));
}

bool HasKeyIdentifier(const ContextRecord& certificate, const CRYPT_DATA_BLOB& wanted) {
  const PropertyLock guard = LockProperties(certificate);
  const PropertyItem* const item = FindOrComputeProperty(certificate.element(), CERT_KEY_IDENTIFIER_PROP_ID);
  return item && std::ranges::equal(item->bytes(), std::span(wanted.pbData, wanted.cbData));
}

// The name is the caller's to compare.
bool IsNamedBy(const AuthorityKey& authority, const ContextRecord& candidate) {
  if (!authority) return true;
  if (authority->KeyId.cbData && !HasKeyIdentifier(candidate, authority->KeyId)) return false;
  return !authority->AuthorityCertSerialNumber.cbData
      || AreSameIntegers(authority->AuthorityCertSerialNumber, candidate.certificate.pCertInfo->SerialNumber);
}

// By subject name, which gives what a walk over all would, in its order. No lock is held while signatures are checked.
ContextOwner FindSigner(CertStore& store, const CERT_CONTEXT& subject, ContextOwner candidate) {
  const AuthorityKey authority = AuthorityKeyOf(*subject.pCertInfo);
  const CertificateRequest request{X509_ASN_ENCODING, 0, CERT_FIND_SUBJECT_NAME, &subject.pCertInfo->Issuer};
  while ((candidate = FindCertificate(store, request, candidate.get()))) {
    if (IsNamedBy(authority, *candidate.get()) && IsSignedBy(subject, candidate->certificate)) break;
  }
  return candidate;
}

ContextOwner SelfSigned() {
  SetLastError(CRYPT_E_SELF_SIGNED);
  return {};
}

}  // namespace

void CheckSubject(const CERT_CONTEXT* subject, const CERT_CONTEXT* issuer, DWORD& flags) {
  if ((flags & CERT_STORE_TIME_VALIDITY_FLAG) && subject) {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    if (CompareWithValidity(now, *subject->pCertInfo) == 0) flags &= ~CERT_STORE_TIME_VALIDITY_FLAG;
  }
  if ((flags & CERT_STORE_SIGNATURE_FLAG) && subject && issuer && IsSignedBy(*subject, *issuer))
    flags &= ~CERT_STORE_SIGNATURE_FLAG;
}

ContextOwner FindIssuer(CertStore* store, const CERT_CONTEXT& subject, ContextOwner previous, DWORD& flags) {
  if (IsSelfSigned(subject)) {
    CheckSubject(&subject, &subject, flags);
    return SelfSigned();
  }
  if (!store) {
    SetLastError(E_INVALIDARG);
    return {};
  }
  ContextOwner found = FindSigner(*store, subject, std::move(previous));
  if (!found) return {};
  CheckSubject(&subject, found->asCertificate(), flags);
  return SameCertificate(subject, found->element()) ? SelfSigned() : std::move(found);
}

}  // namespace certkern
