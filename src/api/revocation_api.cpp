// Judging CRLs by themselves, and certificates by their whole chains.
#include <certkern/errors.h>
#include <certkern/oids.h>
#include <certkern/revocation.h>

#include <algorithm>
#include <cstddef>
#include <span>

#include "api/frame.h"
#include "ber/read_cursor.h"
#include "certkern/chain/crl_facts.h"
#include "keys/certificate_signature.h"
#include "platform/owner.h"
#include "store/certificate_primitives.h"
#include "store/context_record.h"
#include "store/find.h"
#include "store/store_record.h"

using certkern::AsSpan;
using certkern::AsStore;
using certkern::ContextOwner;
using certkern::ContextRecord;
using certkern::ElementType;
using certkern::FindLiveContext;
using certkern::Frame;
using certkern::Guarded;
using certkern::Plain;

namespace {

using CollectionOwner = certkern::Owner<HCERTSTORE, CertCloseStore>;
using ChainOwner = certkern::Owner<PCCERT_CHAIN_CONTEXT, CertFreeCertificateChain>;

constexpr LONG kBefore = -1;
constexpr LONG kInside = 0;
constexpr LONG kBehind = 1;

LONG CompareWithUpdates(const FILETIME& moment, const CRL_INFO& crl) {
  if (CompareFileTime(&moment, &crl.ThisUpdate) < 0) return kBefore;
  return CompareFileTime(&moment, &crl.NextUpdate) > 0 ? kBehind : kInside;
}

FILETIME Now() {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  return now;
}

const CERT_EXTENSION* FindIn(const CRL_INFO& crl, LPCSTR oid) {
  return certkern::FindByOid(oid, AsSpan<const CERT_EXTENSION>(crl.rgExtension, crl.cExtension));
}

bool IsGoodSignature(const ContextRecord& crl, const CERT_CONTEXT& issuer) {
  const certkern::LastErrorKeeper keeper;
  return certkern::VerifySignedObject(0, {crl.crl.pbCrlEncoded, crl.crl.cbCrlEncoded},
                                      &issuer.pCertInfo->SubjectPublicKeyInfo);
}

// Takes away the flag of each check that holds. That there is no issuer is told unasked.
void CheckCrl(const ContextRecord& crl, const CERT_CONTEXT* issuer, DWORD& flags) {
  const CRL_INFO& info = *crl.crl.pCrlInfo;
  if ((flags & CERT_STORE_TIME_VALIDITY_FLAG) && CompareWithUpdates(Now(), info) == kInside)
    flags &= ~CERT_STORE_TIME_VALIDITY_FLAG;
  if (!issuer) flags |= CERT_STORE_NO_ISSUER_FLAG;
  if ((flags & CERT_STORE_SIGNATURE_FLAG) && issuer && IsGoodSignature(crl, *issuer))
    flags &= ~CERT_STORE_SIGNATURE_FLAG;
  flags &= FindIn(info, szOID_DELTA_CRL_INDICATOR) ? ~CERT_STORE_DELTA_CRL_FLAG : ~CERT_STORE_BASE_CRL_FLAG;
}

// Of all points together.
certkern::UrlSet UrlsOfAllPoints(const CRL_DIST_POINTS_INFO* points) {
  std::vector<std::string> all;
  if (points) {
    for (const CRL_DIST_POINT& point : AsSpan(points->rgDistPoint, points->cDistPoint)) {
      std::ranges::move(certkern::UrlsOf(point.DistPointName), std::back_inserter(all));
    }
  }
  return certkern::UrlSet(std::move(all));
}

bool HaveCommonUrl(const CERT_INFO& certificate, const CRL_ISSUING_DIST_POINT& issuing) {
  const auto points = certkern::DecodeExtension<CRL_DIST_POINTS_INFO>(
      AsSpan<const CERT_EXTENSION>(certificate.rgExtension, certificate.cExtension), szOID_CRL_DIST_POINTS,
      X509_CRL_DIST_POINTS);
  return UrlsOfAllPoints(points.get()).meets(certkern::UrlSet(certkern::UrlsOf(issuing.DistPointName)));
}

// The stores of the parameters as one; none when they name none. False with a code.
bool CollectStores(const CERT_REVOCATION_PARA* para, CollectionOwner& collection) {
  constexpr DWORD kReachesStores = offsetof(CERT_REVOCATION_PARA, hCrlStore);
  if (!para || para->cbSize < kReachesStores || !para->cCertStore) return true;
  if (!para->rgCertStore) return certkern::Fault(E_INVALIDARG);
  collection.reset(
      CertOpenStore(CERT_STORE_PROV_COLLECTION, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0, 0, nullptr));
  return collection
      && std::ranges::all_of(std::span(para->rgCertStore, para->cCertStore), [&](HCERTSTORE store) {
           return CertAddStoreToCollection(collection.get(), store, 0, 0) != FALSE;
         });
}

// 0, the error bits of the chain, or the code of the failure to build one.
DWORD CheckChainOf(PCCERT_CONTEXT certificate, HCERTSTORE additional) {
  CERT_CHAIN_PARA para{};
  para.cbSize = offsetof(CERT_CHAIN_PARA, RequestedIssuancePolicy);
  ChainOwner chain;
  if (!CertGetCertificateChain(HCCE_CURRENT_USER, certificate, nullptr, additional, &para,
                               CERT_CHAIN_REVOCATION_CHECK_CHAIN, nullptr, chain.out())) {
    const DWORD code = GetLastError();
    return code ? code : static_cast<DWORD>(TRUST_E_FAIL);  // a failure must not pass for a good chain
  }
  return chain->TrustStatus.dwErrorStatus;
}

}  // namespace

extern "C" {

PCCRL_CONTEXT CertGetCRLFromStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pIssuerContext,
                                  PCCRL_CONTEXT pPrevCrlContext, DWORD* pdwFlags) {
  return Plain([&](Frame& frame) -> PCCRL_CONTEXT {
    frame.entry("(hCertStore = %p, pIssuerContext = %p, pPrevCrlContext = %p, pdwFlags = %p)", hCertStore,
                pIssuerContext, pPrevCrlContext, pdwFlags);
    const ContextOwner previous(FindLiveContext(pPrevCrlContext, ElementType::Crl));
    const CERT_CONTEXT* const issuer = certkern::ReadableCertificate(pIssuerContext);
    if (!pdwFlags) return frame.failed(E_INVALIDARG);
    if (!hCertStore || (pPrevCrlContext && !previous) || (pIssuerContext && !issuer))
      return frame.failed(ERROR_INVALID_PARAMETER);
    ContextOwner found = certkern::FindCrl(*AsStore(hCertStore), issuer ? CRL_FIND_ISSUED_BY : CRL_FIND_ANY,
                                           pIssuerContext, previous.get());
    if (!found) return frame.failed();
    CheckCrl(*found.get(), issuer, *pdwFlags);
    const PCCRL_CONTEXT crl = found.release()->asCrl();
    return frame.result(crl, "returned: pCrlContext = %p", crl);
  });
}

LONG CertVerifyCRLTimeValidity(LPFILETIME pTimeToVerify, PCRL_INFO pCrlInfo) {
  Frame frame(certkern::Flavour::Plain, certkern::Failure(ERROR_INVALID_PARAMETER));
  frame.entry("(pTimeToVerify = %p, pCrlInfo = %p)", pTimeToVerify, pCrlInfo);
  if (!pCrlInfo) return frame.failed(ERROR_INVALID_PARAMETER);
  return frame.result(CompareWithUpdates(pTimeToVerify ? *pTimeToVerify : Now(), *pCrlInfo));
}

BOOL CertIsValidCRLForCertificate(PCCERT_CONTEXT pCert, PCCRL_CONTEXT pCrl, DWORD dwFlags, void* pvReserved) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pCert = %p, pCrl = %p, dwFlags = 0x%x, pvReserved = %p)", pCert, pCrl, dwFlags, pvReserved);
    const CERT_CONTEXT* const certificate = certkern::ReadableCertificate(pCert);
    const CRL_CONTEXT* const crl = certkern::ReadableCrl(pCrl);
    if (!certificate || !crl) return frame.failed(ERROR_INVALID_PARAMETER);
    const CRL_INFO& info = *crl->pCrlInfo;
    const CERT_INFO& subject = *certificate->pCertInfo;
    if (!FindIn(info, szOID_ISSUING_DIST_POINT)) return frame.result(TRUE);
    const auto issuing = certkern::DecodeExtension<CRL_ISSUING_DIST_POINT>(
        AsSpan<const CERT_EXTENSION>(info.rgExtension, info.cExtension), szOID_ISSUING_DIST_POINT,
        X509_ISSUING_DIST_POINT);
    if (!issuing) return frame.failed(CRYPT_E_ASN1_EOD);
    if (!certkern::FindExtension(szOID_CRL_DIST_POINTS, subject)) {
      return frame.failed(CRYPT_E_NO_MATCH,
                          "(pCert = %p, pCrl = %p, dwFlags = 0x%x, pvReserved = %p) no CRL DP extension in "
                          "cert, but CRL has IDP",
                          pCert, pCrl, dwFlags, pvReserved);
    }
    if (!HaveCommonUrl(subject, *issuing)) {
      return frame.failed(CRYPT_E_NO_MATCH,
                          "(pCert = %p, pCrl = %p, dwFlags = 0x%x, pvReserved = %p) cert's DP don't match "
                          "CRL IDP",
                          pCert, pCrl, dwFlags, pvReserved);
    }
    return frame.result(TRUE);
  });
}

BOOL CertVerifyRevocation(DWORD dwEncodingType, DWORD dwRevType, DWORD cContext, PVOID rgpvContext[],
                          DWORD dwFlags, PCERT_REVOCATION_PARA pRevPara, PCERT_REVOCATION_STATUS pRevStatus) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(dwEncodingType = %u, dwRevType = %u, cContext = %u, rgpvContext = %p, dwFlags = 0x%.8X, "
        "pRevPara = %p, pRevStatus = %p)",
        dwEncodingType, dwRevType, cContext, rgpvContext, dwFlags, pRevPara, pRevStatus);
    if (!rgpvContext || !pRevStatus || !cContext) return frame.failed(E_INVALIDARG);
    CollectionOwner stores;
    if (!CollectStores(pRevPara, stores)) return frame.failed();
    const DWORD count = dwFlags == CERT_VERIFY_REV_CHAIN_FLAG ? 1 : cContext;
    for (DWORD i = 0; i < count; ++i) {
      const DWORD error = CheckChainOf(static_cast<PCCERT_CONTEXT>(rgpvContext[i]), stores.get());
      if (!error) continue;
      pRevStatus->dwIndex = i;
      pRevStatus->dwError = error;
      return frame.failed(error);
    }
    return frame.result(TRUE);
  });
}

}  // extern "C"
