// What a CRL is asked. There are few of these, and no index.
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
  explicit CrlOfIssuer(const CERT_NAME_BLOB& issuer, const ElementQuery* otherwise = nullptr)
      : issuer_(issuer), otherwise_(otherwise) {}
  const ElementQuery* otherwise() const override { return otherwise_; }

 private:
  bool mayMatch(StoreElement& element) const override {
    const PropertyLock guard(element.properties->lock);
    const PropertyItem* const item = element.properties->items.find(SV_CRL_ISSUER_PROP_ID);
    return !item || std::ranges::equal(item->bytes(), std::span(issuer_.pbData, issuer_.cbData));
  }
  bool matchesInfo(const CRL_INFO& info) const override { return AreSameBytes(info.Issuer, issuer_); }

  const CERT_NAME_BLOB& issuer_;
  const ElementQuery* const otherwise_;
};

class CrlOfLine final : public CrlQuery {
 public:
  explicit CrlOfLine(const CRL_INFO& wanted) : wanted_(wanted) {}

 private:
  bool matchesInfo(const CRL_INFO& info) const override { return SameCrlLine(wanted_, info); }

  const CRL_INFO& wanted_;
};

ContextOwner BadParameter() {
  SetLastError(ERROR_INVALID_PARAMETER);
  return {};
}

const CERT_INFO* LiveInfo(const void* context) {
  const ContextRecord* const record = FindLiveContext(context, ElementType::Certificate);
  return record ? record->certificate.pCertInfo : nullptr;
}

ContextOwner FindIssuedFor(CertStore& store, const CRL_FIND_ISSUED_FOR_PARA* whose,
                           const ContextRecord* previous) {
  const CERT_INFO* const subject = whose ? LiveInfo(whose->pSubjectCert) : nullptr;
  if (!subject) return BadParameter();
  if (!whose->pIssuerCert) return FindInMembers(store, CrlOfIssuer(subject->Issuer), previous);
  const CERT_INFO* const issuer = LiveInfo(whose->pIssuerCert);
  if (!issuer) return BadParameter();
  const CrlOfIssuer byIssuer(issuer->Subject);
  return FindInMembers(store, CrlOfIssuer(subject->Issuer, &byIssuer), previous);
}

}  // namespace

ContextOwner FindCrl(CertStore& store, DWORD type, const void* parameter, const ContextRecord* previous) {
  switch (type) {
    case CRL_FIND_ANY:
      return FindInMembers(store, AnyCrl(), previous);
    case CRL_FIND_ISSUED_BY: {
      const CERT_INFO* const issuer = LiveInfo(parameter);
      return issuer ? FindInMembers(store, CrlOfIssuer(issuer->Subject), previous) : BadParameter();
    }
    case CRL_FIND_EXISTING: {
      const ContextRecord* const wanted = FindLiveContext(parameter, ElementType::Crl);
      return wanted ? FindInMembers(store, CrlOfLine(*wanted->crl.pCrlInfo), previous) : BadParameter();
    }
    case CRL_FIND_ISSUED_FOR:
      return FindIssuedFor(store, static_cast<const CRL_FIND_ISSUED_FOR_PARA*>(parameter), previous);
    default:
      return BadParameter();
  }
}

}  // namespace certkern
