// Properties of certificate and CRL contexts.
#include <certkern/errors.h>
#include <certkern/properties.h>

#include "api/frame.h"
#include "store/context_property.h"
#include "store/context_record.h"

using certkern::ContextRecord;
using certkern::ElementType;
using certkern::FindLiveContext;
using certkern::Frame;
using certkern::Plain;

extern "C" {

BOOL CertGetCertificateContextProperty(PCCERT_CONTEXT pCertContext, DWORD dwPropId, void* pvData,
                                       DWORD* pcbData) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pCertContext = %p, dwPropId = %u, pvData = %p, pcbData = %p)", pCertContext, dwPropId,
                pvData, pcbData);
    ContextRecord* const record = FindLiveContext(pCertContext, ElementType::Certificate);
    if (!record) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!certkern::GetContextProperty(*record, dwPropId, pvData, pcbData)) return frame.failed();
    return frame.result(TRUE, "returned: pvData = %p", pvData);
  });
}

BOOL CertGetCRLContextProperty(PCCRL_CONTEXT pCrlContext, DWORD dwPropId, void* pvData, DWORD* pcbData) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pCrlContext = %p, dwPropId = %u, pvData = %p, pcbData = %p)", pCrlContext, dwPropId, pvData,
                pcbData);
    ContextRecord* const record = FindLiveContext(pCrlContext, ElementType::Crl);
    if (!record) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!certkern::GetContextProperty(*record, dwPropId, pvData, pcbData)) return frame.failed();
    return frame.result(TRUE, "returned: pvData = %p", pvData);
  });
}

BOOL CertSetCertificateContextProperty(PCCERT_CONTEXT pCertContext, DWORD dwPropId, DWORD dwFlags,
                                       const void* pvData) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pCertContext = %p, dwPropId = %u, dwFlags = 0x%.8X, pvData = %p)", pCertContext, dwPropId,
                dwFlags, pvData);
    ContextRecord* const record = FindLiveContext(pCertContext, ElementType::Certificate);
    if (!record) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!certkern::SetContextProperty(*record, dwPropId, pvData)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CertSetCRLContextProperty(PCCRL_CONTEXT pCrlContext, DWORD dwPropId, DWORD dwFlags, const void* pvData) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pCrlContext = %p, dwPropId = %u, dwFlags = 0x%.8X, pvData = %p)", pCrlContext, dwPropId,
                dwFlags, pvData);
    ContextRecord* const record = FindLiveContext(pCrlContext, ElementType::Crl);
    if (!record) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!certkern::SetContextProperty(*record, dwPropId, pvData)) return frame.failed();
    return frame.result(TRUE);
  });
}

DWORD CertEnumCertificateContextProperties(PCCERT_CONTEXT pCertContext, DWORD dwPropId) {
  return Plain([&](Frame& frame) -> DWORD {
    frame.entry("(pCertContext = %p, dwPropId = %u)", pCertContext, dwPropId);
    if (!pCertContext) return frame.result(DWORD{0});
    ContextRecord* const record = FindLiveContext(pCertContext, ElementType::Certificate);
    if (!record) return frame.failed(ERROR_INVALID_PARAMETER);
    return frame.result(certkern::NextProperty(*record, dwPropId));
  });
}

DWORD CertEnumCRLContextProperties(PCCRL_CONTEXT pCrlContext, DWORD dwPropId) {
  return Plain([&](Frame& frame) -> DWORD {
    frame.entry("(pCrlContext = %p, dwPropId = %u)", pCrlContext, dwPropId);
    if (!pCrlContext) return frame.result(DWORD{0});
    ContextRecord* const record = FindLiveContext(pCrlContext, ElementType::Crl);
    if (!record) return frame.failed(ERROR_INVALID_PARAMETER);
    return frame.result(certkern::NextProperty(*record, dwPropId));
  });
}

}  // extern "C"
