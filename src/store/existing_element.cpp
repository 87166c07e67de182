#include "store/existing_element.h"

#include <certkern/oids.h>

#include <algorithm>
#include <cstring>

#include "store/certificate_primitives.h"
#include "store/context_property.h"
#include "store/store_index.h"

namespace certkern {
namespace {

Found SameObject(const ContextRecord& wanted, StoreElement& element) {
  if (element.type == ElementType::Certificate) {
    return SameCertificate(wanted.certificate, element) ? Found::Yes : Found::No;
  }
  const ContextOwner context(AcquireContext(element));
  if (!context) return Found::Failed;
  return SameCrlLine(*wanted.crl.pCrlInfo, *context->crl.pCrlInfo) ? Found::Yes : Found::No;
}

// Same bytes say the same issuer and serial number.
std::optional<IndexQuestion> QuestionFor(CertStore& store, const ContextRecord& wanted) {
  const ElementType type = wanted.element().type;
  if (!IsWorthIndexing(store.list(type))) return {};
  if (type == ElementType::Crl) return AskCrlLine(*wanted.crl.pCrlInfo);
  const CERT_INFO& info = *wanted.certificate.pCertInfo;
  return AskIssuerSerial(info.Issuer, info.SerialNumber);
}

}  // namespace

bool SameCertificate(const CERT_CONTEXT& wanted, const StoreElement& element) {
  return (wanted.dwCertEncodingType & element.encoding)
      && std::ranges::equal(EncodedBytes(wanted), element.encoded());
}

// A caller may have put the record together, so what it counts need not be there.
CrlPurpose PurposeOf(const CRL_INFO& info) {
  CrlPurpose purpose;
  for (const CERT_EXTENSION& each : AsSpan(info.rgExtension, info.cExtension)) {
    if (!each.pszObjId) continue;
    if (!purpose.authorityKey && !std::strcmp(each.pszObjId, szOID_AUTHORITY_KEY_IDENTIFIER2)) {
      purpose.authorityKey = &each;
    }
    purpose.delta = purpose.delta || !std::strcmp(each.pszObjId, szOID_DELTA_CRL_INDICATOR);
  }
  return purpose;
}

bool SameCrlLine(const CRL_INFO& a, const CRL_INFO& b) {
  if (!AreSameBytes(a.Issuer, b.Issuer)) return false;
  const CrlPurpose first = PurposeOf(a);
  const CrlPurpose second = PurposeOf(b);
  if (first.delta != second.delta || !first.authorityKey != !second.authorityKey) return false;
  return !first.authorityKey || AreSameBytes(first.authorityKey->Value, second.authorityKey->Value);
}

bool IsHidden(const CertStore& store, StoreElement& element) {
  return !store.has(CERT_STORE_ENUM_ARCHIVED_FLAG) && HasProperty(element, CERT_ARCHIVED_PROP_ID);
}

Found FindExisting(CertStore& store, const ContextRecord& wanted, const StoreElement* previous,
                   StoreElement*& existing) {
  const ElementType type = wanted.element().type;
  const Candidates candidates(store, type, QuestionFor(store, wanted));
  size_t& walked = store.list(type).walked;
  const StoreElement* last = previous;
  while (StoreElement* const each = candidates.behind(last)) {
    last = each;
    if (candidates.areAll()) ++walked;
    const Found same = SameObject(wanted, *each);
    if (same == Found::Failed) return same;
    if (same == Found::No || IsHidden(store, *each)) continue;
    existing = each;
    return Found::Yes;
  }
  return Found::No;
}

}  // namespace certkern
