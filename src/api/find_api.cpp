// Enumerating and searching stores, and the checks that go with it.
#include <certkern/errors.h>
#include <certkern/find.h>

#include <algorithm>
#include <span>

#include "api/frame.h"
#include "ber/read_cursor.h"
#include "store/certificate_primitives.h"
#include "store/context_record.h"
#include "store/crl_entries.h"
#include "store/find.h"
#include "store/issuer.h"
#include "store/store_record.h"

using certkern::AsStore;
using certkern::ContextOwner;
using certkern::ContextRecord;
using certkern::ElementType;
using certkern::Fault;
using certkern::FindLiveContext;
using certkern::Frame;
using certkern::Plain;

namespace {

// The previous context's count is taken whatever happens; one that is not live has none.
bool TakePrevious(const void* context, ElementType type, ContextOwner& previous) {
  previous.reset(FindLiveContext(context, type));
  return !context || previous || Fault(ERROR_INVALID_PARAMETER);
}

PCCERT_CONTEXT HandOut(Frame& frame, ContextOwner found) {
  if (!found) return frame.failed();
  const PCCERT_CONTEXT context = found.release()->asCertificate();
  return frame.result(context, "returned: pCertContext = %p", context);
}

PCCRL_CONTEXT HandOutCrl(Frame& frame, ContextOwner found) {
  if (!found) return frame.failed();
  const PCCRL_CONTEXT context = found.release()->asCrl();
  return frame.result(context, "returned: pCrlContext = %p", context);
}

PCCERT_CONTEXT NextCertificate(Frame& frame, HCERTSTORE store, const certkern::CertificateRequest& request,
                               PCCERT_CONTEXT previous) {
  ContextOwner from;
  if (!TakePrevious(previous, ElementType::Certificate, from)) return frame.failed();
  if (!store) return frame.failed(ERROR_INVALID_PARAMETER);
  return HandOut(frame, certkern::FindCertificate(*AsStore(store), request, from.get()));
}

PCCRL_CONTEXT NextCrl(Frame& frame, HCERTSTORE store, DWORD type, const void* parameter,
                      PCCRL_CONTEXT previous) {
  ContextOwner from;
  if (!TakePrevious(previous, ElementType::Crl, from)) return frame.failed();
  if (!store) return frame.failed(ERROR_INVALID_PARAMETER);
  return HandOutCrl(frame, certkern::FindCrl(*AsStore(store), type, parameter, from.get()));
}

// A certificate that need not be given, and of which only the published fields are read.
bool TakeReadable(PCCERT_CONTEXT context, const CERT_CONTEXT*& certificate) {
  certificate = certkern::ReadableCertificate(context);
  return !context || certificate || Fault(ERROR_INVALID_PARAMETER);
}

// What a caller put together himself: nothing that it counts may be missing.
bool IsWholeList(const CRL_INFO* list) {
  if (!list || (list->cCRLEntry && !list->rgCRLEntry)) return false;
  return std::ranges::all_of(certkern::AsSpan(list->rgCRLEntry, list->cCRLEntry),
                             [](const CRL_ENTRY& entry) { return certkern::IsWhole(&entry.SerialNumber); });
}

// By the index that one of ours has; false for a list that lacks what it counts.
bool EntryOf(const CRL_CONTEXT& crl, const CRYPT_INTEGER_BLOB& serialNumber, PCRL_ENTRY& entry) {
  if (!certkern::IsWhole(&serialNumber)) return false;
  if (const ContextRecord* const record = FindLiveContext(&crl)) {
    entry = certkern::FindEntry(*record, serialNumber);
    return true;
  }
  if (!IsWholeList(crl.pCrlInfo)) return false;
  entry = certkern::FindEntry(*crl.pCrlInfo, serialNumber);
  return true;
}

bool AreGoodChecks(const DWORD* flags) { return flags && !(*flags & ~certkern::kSubjectChecks); }

}  // namespace

extern "C" {

PCCERT_CONTEXT CertFindCertificateInStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType, DWORD dwFindFlags,
                                          DWORD dwFindType, const void* pvFindPara,
                                          PCCERT_CONTEXT pPrevCertContext) {
  return Plain([&](Frame& frame) -> PCCERT_CONTEXT {
    frame.entry(
        "(hCertStore = %p, dwCertEncodingType = %u, dwFindFlags = 0x%.8X, dwFindType = 0x%.8X, "
        "pvFindPara = %p, pPrevCertContext = %p)",
        hCertStore, dwCertEncodingType, dwFindFlags, dwFindType, pvFindPara, pPrevCertContext);
    return NextCertificate(frame, hCertStore, {dwCertEncodingType, dwFindFlags, dwFindType, pvFindPara},
                           pPrevCertContext);
  });
}

PCCERT_CONTEXT CertEnumCertificatesInStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pPrevCertContext) {
  return Plain([&](Frame& frame) -> PCCERT_CONTEXT {
    frame.entry("(hCertStore = %p, pPrevCertContext = %p)", hCertStore, pPrevCertContext);
    return NextCertificate(frame, hCertStore,
                           {X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0, CERT_FIND_ANY, nullptr},
                           pPrevCertContext);
  });
}

PCCRL_CONTEXT CertFindCRLInStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType, DWORD dwFindFlags,
                                 DWORD dwFindType, const void* pvFindPara, PCCRL_CONTEXT pPrevCrlContext) {
  return Plain([&](Frame& frame) -> PCCRL_CONTEXT {
    frame.entry(
        "(hCertStore = %p, dwCertEncodingType = %u, dwFindFlags = 0x%.8X, dwFindType = 0x%.8X, "
        "pvFindPara = %p, pPrevCrlContext = %p)",
        hCertStore, dwCertEncodingType, dwFindFlags, dwFindType, pvFindPara, pPrevCrlContext);
    return NextCrl(frame, hCertStore, dwFindType, pvFindPara, pPrevCrlContext);
  });
}

PCCRL_CONTEXT CertEnumCRLsInStore(HCERTSTORE hCertStore, PCCRL_CONTEXT pPrevCrlContext) {
  return Plain([&](Frame& frame) -> PCCRL_CONTEXT {
    frame.entry("(hCertStore = %p, pPrevCrlContext = %p)", hCertStore, pPrevCrlContext);
    return NextCrl(frame, hCertStore, CRL_FIND_ANY, nullptr, pPrevCrlContext);
  });
}

PCCERT_CONTEXT CertGetSubjectCertificateFromStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType,
                                                  PCERT_INFO pCertId) {
  return Plain([&](Frame& frame) -> PCCERT_CONTEXT {
    frame.entry("(hCertStore = %p, dwCertEncodingType = %u, pCertId = %p)", hCertStore, dwCertEncodingType,
                pCertId);
    if (!hCertStore || !pCertId) return frame.failed(ERROR_INVALID_PARAMETER);
    return HandOut(frame,
                   certkern::FindByIssuerAndSerial(*AsStore(hCertStore), dwCertEncodingType, *pCertId));
  });
}

PCCERT_CONTEXT CertGetIssuerCertificateFromStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pSubjectContext,
                                                 PCCERT_CONTEXT pPrevIssuerContext, DWORD* pdwFlags) {
  return Plain([&](Frame& frame) -> PCCERT_CONTEXT {
    frame.entry("(hCertStore = %p, pSubjectContext = %p, pPrevIssuerContext = %p, pdwFlags = %p)", hCertStore,
                pSubjectContext, pPrevIssuerContext, pdwFlags);
    ContextOwner previous;
    if (!TakePrevious(pPrevIssuerContext, ElementType::Certificate, previous)) return frame.failed();
    if (!pSubjectContext || !AreGoodChecks(pdwFlags)) return frame.failed(E_INVALIDARG);
    const CERT_CONTEXT* const subject = certkern::ReadableCertificate(pSubjectContext);
    if (!subject || !certkern::HasWholeNames(*subject->pCertInfo) || certkern::EncodedBytes(*subject).empty())
      return frame.failed(ERROR_INVALID_PARAMETER);
    return HandOut(frame,
                   certkern::FindIssuer(AsStore(hCertStore), *subject, std::move(previous), *pdwFlags));
  });
}

BOOL CertVerifySubjectCertificateContext(PCCERT_CONTEXT pSubject, PCCERT_CONTEXT pIssuer, DWORD* pdwFlags) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pSubject = %p, pIssuer = %p, pdwFlags = %p)", pSubject, pIssuer, pdwFlags);
    const CERT_CONTEXT* subject;
    const CERT_CONTEXT* issuer;
    if (!AreGoodChecks(pdwFlags)) return frame.failed(E_INVALIDARG);
    if (!TakeReadable(pSubject, subject) || !TakeReadable(pIssuer, issuer)) return frame.failed();
    certkern::CheckSubject(subject, issuer, *pdwFlags);
    return frame.result(TRUE);
  });
}

BOOL CertFindCertificateInCRL(PCCERT_CONTEXT pCert, PCCRL_CONTEXT pCrlContext, DWORD dwFlags,
                              void* pvReserved, PCRL_ENTRY* ppCrlEntry) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pCert = %p, pCrlContext = %p, dwFlags = 0x%.8X, pvReserved = %p, ppCrlEntry = %p)", pCert,
                pCrlContext, dwFlags, pvReserved, ppCrlEntry);
    if (!pCrlContext || !ppCrlEntry || dwFlags || pvReserved) return frame.failed(E_INVALIDARG);
    const CRL_CONTEXT* const crl = certkern::ReadableCrl(pCrlContext);
    const CERT_CONTEXT* certificate;
    if (!crl) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!TakeReadable(pCert, certificate)) return frame.failed();
    if (!certificate) {
      *ppCrlEntry = nullptr;
      return frame.result(TRUE);
    }
    if (!EntryOf(*crl, certificate->pCertInfo->SerialNumber, *ppCrlEntry))
      return frame.failed(ERROR_INVALID_PARAMETER);
    return frame.result(TRUE);
  });
}

BOOL CertVerifyCRLRevocation(DWORD dwCertEncodingType, PCERT_INFO pCertId, DWORD cCrlInfo,
                             PCRL_INFO rgpCrlInfo[]) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(dwCertEncodingType = %u, pCertId = %p, cCrlInfo = %u, rgpCrlInfo = %p)", dwCertEncodingType,
                pCertId, cCrlInfo, rgpCrlInfo);
    if (cCrlInfo && !rgpCrlInfo) return frame.invalidArguments(E_INVALIDARG);
    if (!pCertId || !cCrlInfo) return frame.result(TRUE);
    const std::span<const PCRL_INFO> lists = certkern::AsSpan(rgpCrlInfo, cCrlInfo);
    if (!std::ranges::all_of(lists, IsWholeList) || !certkern::IsWhole(&pCertId->SerialNumber))
      return frame.failed(E_INVALIDARG);
    const bool listed = std::ranges::any_of(lists, [&](const CRL_INFO* list) {
      return certkern::FindEntry(*list, pCertId->SerialNumber) != nullptr;
    });
    return frame.result(listed ? FALSE : TRUE);
  });
}

}  // extern "C"
