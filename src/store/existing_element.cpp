#include "store/existing_element.h"

#include <certkern/oids.h>

#include <algorithm>
#include <cstring>

#include "store/context_property.h"
#include "store/store_index.h"

namespace certkern {
namespace {

bool SameBytes(const CRYPT_DATA_BLOB& a, const CRYPT_DATA_BLOB& b) {
  return std::ranges::equal(std::span(a.pbData, a.cbData), std::span(b.pbData, b.cbData));
}

// What tells the lists of one issuer apart.
struct CrlPurpose {
  const CERT_EXTENSION* authorityKey = nullptr;
  bool delta = false;
};

CrlPurpose PurposeOf(const CRL_INFO& info) {
  CrlPurpose purpose;
  for (const CERT_EXTENSION& each : std::span(info.rgExtension, info.cExtension)) {
    if (!purpose.authorityKey && !std::strcmp(each.pszObjId, szOID_AUTHORITY_KEY_IDENTIFIER2)) {
      purpose.authorityKey = &each;
    }
    purpose.delta = purpose.delta || !std::strcmp(each.pszObjId, szOID_DELTA_CRL_INDICATOR);
  }
  return purpose;
}

Found SameObject(const ContextRecord& wanted, StoreElement& element) {
  if (element.type == ElementType::Certificate) {
    return SameCertificate(wanted.element(), element) ? Found::Yes : Found::No;
  }
  const ContextOwner context(AcquireContext(element));
  if (!context) return Found::Failed;
  return SameCrlLine(*wanted.crl.pCrlInfo, *context->crl.pCrlInfo) ? Found::Yes : Found::No;
}

// Same bytes say the same issuer and serial number.
std::optional<IndexQuestion> QuestionFor(const CertStore& store, const ContextRecord& wanted) {
  if (wanted.element().type != ElementType::Certificate || !IsWorthIndexing(store.certificates)) return {};
  const CERT_INFO& info = *wanted.certificate.pCertInfo;
  return AskIssuerSerial(info.Issuer, info.SerialNumber);
}

}  // namespace

bool SameCertificate(const StoreElement& a, const StoreElement& b) {
  return (a.encoding & b.encoding) && std::ranges::equal(a.encoded(), b.encoded());
}

bool SameCrlLine(const CRL_INFO& a, const CRL_INFO& b) {
  if (!SameBytes(a.Issuer, b.Issuer)) return false;
  const CrlPurpose first = PurposeOf(a);
  const CrlPurpose second = PurposeOf(b);
  if (first.delta != second.delta || !first.authorityKey != !second.authorityKey) return false;
  return !first.authorityKey || SameBytes(first.authorityKey->Value, second.authorityKey->Value);
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
