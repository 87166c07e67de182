// What a CRL is asked.
#include <certkern/errors.h>

#include <algorithm>

#include "store/certificate_primitives.h"
#include "store/context_property.h"
#include "store/find.h"

namespace certkern {
namespace {

class CrlQuery : public ElementQuery {
 public:
  ElementType type() const override { return ElementType::Crl; }
  Found matches(StoreElement& element, ContextOwner& context) const override {
    if (!mayMatch(element)) return Found::No;
    context.reset(AcquireContext(element));
    if (!context) return Found::Failed;
    return matchesInfo(*context->crl.pCrlInfo) ? Found::Yes : Found::No;
  }

 private:
  // A look that needs no decoding.
  virtual bool mayMatch(StoreElement&) const { return true; }
  virtual bool matchesInfo(const CRL_INFO& info) const = 0;
};

class AnyCrl final : public CrlQuery {
  bool matchesInfo(const CRL_INFO&) const override { return true; }
};

class CrlOfIssuer final : public CrlQuery {
 public:
  explicit CrlOfIssuer(const CERT_NAME_BLOB& issuer) : issuer_(issuer) {}

 private:
  bool mayMatch(StoreElement& element) const override {
    const PropertyLock guard(element.properties->lock);
    const PropertyItem* const item = element.properties->items.find(SV_CRL_ISSUER_PROP_ID);
    return !item || std::ranges::equal(item->bytes(), std::span(issuer_.pbData, issuer_.cbData));
  }
  bool matchesInfo(const CRL_INFO& info) const override { return AreSameBytes(info.Issuer, issuer_); }

  const CERT_NAME_BLOB& issuer_;
};

class CrlOfLine final : public CrlQuery {
 public:
  explicit CrlOfLine(const CRL_INFO& wanted) : wanted_(wanted) {}
  std::optional<IndexQuestion> question() const override { return AskCrlLine(wanted_); }

 private:
  bool matchesInfo(const CRL_INFO& info) const override { return SameCrlLine(wanted_, info); }

  const CRL_INFO& wanted_;
};

ContextOwner BadParameter() {
  SetLastError(ERROR_INVALID_PARAMETER);
  return {};
}

// Null where the names, which are compared, are not there.
const CERT_INFO* InfoOf(const void* context) {
  const CERT_CONTEXT* const certificate = ReadableCertificate(context);
  return certificate && HasWholeNames(*certificate->pCertInfo) ? certificate->pCertInfo : nullptr;
}

// The lists of the issuer that the subject names. The given issuer's own name counts only where there is none of them in
// the whole store, be it behind the previous one or in front of it.
ContextOwner FindIssuedFor(CertStore& store, const CRL_FIND_ISSUED_FOR_PARA* whose,
                           const ContextRecord* previous) {
  const CERT_INFO* const subject = whose ? InfoOf(whose->pSubjectCert) : nullptr;
  const CERT_INFO* const issuer = subject && whose->pIssuerCert ? InfoOf(whose->pIssuerCert) : nullptr;
  if (!subject || (whose->pIssuerCert && !issuer)) return BadParameter();
  const CrlOfIssuer named(subject->Issuer);
  ContextOwner found = FindInMembers(store, named, previous);
  if (found || !issuer) return found;
  if (previous && FindInMembers(store, named, nullptr)) {
    SetLastError(CRYPT_E_NOT_FOUND);
    return {};
  }
  return FindInMembers(store, CrlOfIssuer(issuer->Subject), previous);
}

}  // namespace

ContextOwner FindCrl(CertStore& store, DWORD type, const void* parameter, const ContextRecord* previous) {
  switch (type) {
    case CRL_FIND_ANY:
      return FindInMembers(store, AnyCrl(), previous);
    case CRL_FIND_ISSUED_BY: {
      const CERT_INFO* const issuer = InfoOf(parameter);
      return issuer ? FindInMembers(store, CrlOfIssuer(issuer->Subject), previous) : BadParameter();
    }
    case CRL_FIND_EXISTING: {
      const CRL_CONTEXT* const wanted = ReadableCrl(parameter);
      return wanted && IsWhole(&wanted->pCrlInfo->Issuer)
          ? FindInMembers(store, CrlOfLine(*wanted->pCrlInfo), previous)
          : BadParameter();
    }
    case CRL_FIND_ISSUED_FOR:
      return FindIssuedFor(store, static_cast<const CRL_FIND_ISSUED_FOR_PARA*>(parameter), previous);
    default:
      return BadParameter();
  }
}

}  // namespace certkern
