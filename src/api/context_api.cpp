// Certificate and CRL contexts: making, counting and freeing them.
#include <certkern/errors.h>
#include <certkern/properties.h>

#include "api/frame.h"
#include "store/context_record.h"

using certkern::ContextRecord;
using certkern::ElementType;
using certkern::FindLiveContext;
using certkern::Frame;
using certkern::Plain;

namespace {

ContextRecord* Create(ElementType type, DWORD encoding, const BYTE* bytes, DWORD size) {
  if (!bytes || !size) {
    SetLastError(E_INVALIDARG);
    return nullptr;
  }
  return certkern::CreateContext(type, encoding, {bytes, size});
}

}  // namespace

extern "C" {

PCCERT_CONTEXT CertCreateCertificateContext(DWORD dwCertEncodingType, const BYTE* pbCertEncoded,
                                            DWORD cbCertEncoded) {
  return Plain([&](Frame& frame) -> PCCERT_CONTEXT {
    frame.entry("(dwCertEncodingType = %u, pbCertEncoded = %p, cbCertEncoded = %u)", dwCertEncodingType,
                pbCertEncoded, cbCertEncoded);
    ContextRecord* const made =
        Create(ElementType::Certificate, dwCertEncodingType, pbCertEncoded, cbCertEncoded);
    if (!made) return frame.failed();
    return frame.result(made->asCertificate(), "returned: pCertContext = %p", made->asCertificate());
  });
}

PCCRL_CONTEXT CertCreateCRLContext(DWORD dwCertEncodingType, const BYTE* pbCrlEncoded, DWORD cbCrlEncoded) {
  return Plain([&](Frame& frame) -> PCCRL_CONTEXT {
    frame.entry("(dwCertEncodingType = %u, pbCrlEncoded = %p, cbCrlEncoded = %u)", dwCertEncodingType,
                pbCrlEncoded, cbCrlEncoded);
    ContextRecord* const made = Create(ElementType::Crl, dwCertEncodingType, pbCrlEncoded, cbCrlEncoded);
    if (!made) return frame.failed();
    return frame.result(made->asCrl(), "returned: pCrlContext = %p", made->asCrl());
  });
}

PCCERT_CONTEXT CertDuplicateCertificateContext(PCCERT_CONTEXT pCertContext) {
  return Plain([&](Frame& frame) -> PCCERT_CONTEXT {
    frame.entry("(pCertContext = %p)", pCertContext);
    ContextRecord* const record = FindLiveContext(pCertContext, ElementType::Certificate);
    if (!record) return frame.failed(ERROR_INVALID_PARAMETER);
    certkern::AddContextReference(*record);
    return frame.result(pCertContext, "returned: pCertContext = %p", pCertContext);
  });
}

PCCRL_CONTEXT CertDuplicateCRLContext(PCCRL_CONTEXT pCrlContext) {
  return Plain([&](Frame& frame) -> PCCRL_CONTEXT {
    frame.entry("(pCrlContext = %p)", pCrlContext);
    ContextRecord* const record = FindLiveContext(pCrlContext, ElementType::Crl);
    if (!record) return frame.failed(ERROR_INVALID_PARAMETER);
    certkern::AddContextReference(*record);
    return frame.result(pCrlContext, "returned: pCrlContext = %p", pCrlContext);
  });
}

// Either function takes either kind: a context that nobody gave back would be the worse end.
BOOL CertFreeCertificateContext(PCCERT_CONTEXT pCertContext) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pCertContext = %p)", pCertContext);
    if (!pCertContext) return frame.result(TRUE);
    ContextRecord* const record = FindLiveContext(pCertContext);
    if (!record) return frame.failed(ERROR_INVALID_PARAMETER);
    certkern::ReleaseContext(record);
    return frame.result(TRUE);
  });
}

BOOL CertFreeCRLContext(PCCRL_CONTEXT pCrlContext) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pCrlContext = %p)", pCrlContext);
    if (!pCrlContext) return frame.result(TRUE);
    ContextRecord* const record = FindLiveContext(pCrlContext);
    if (!record) return frame.failed(ERROR_INVALID_PARAMETER);
    certkern::ReleaseContext(record);
    return frame.result(TRUE);
  });
}

}  // extern "C"
