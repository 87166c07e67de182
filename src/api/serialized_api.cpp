// Stores and single objects in their serialized form.
#include <certkern/errors.h>
#include <certkern/store.h>

#include "api/frame.h"
#include "store/context_record.h"
#include "store/persistent_save.h"
#include "store/serialized_image.h"

using certkern::AsStore;
using certkern::ContextRecord;
using certkern::ElementType;
using certkern::Frame;
using certkern::Plain;

namespace {

BOOL Serialize(Frame& frame, const void* context, ElementType type, DWORD flags, BYTE* element, DWORD* size) {
  ContextRecord* const record = certkern::FindLiveContext(context, type);
  if (!record || flags || !size) return frame.failed(ERROR_INVALID_PARAMETER);
  if (!certkern::AnswerElement(record->element(), element, size)) return frame.failed();
  return frame.result(TRUE);
}

}  // namespace

extern "C" {

BOOL CertSerializeCertificateStoreElement(PCCERT_CONTEXT pCertContext, DWORD dwFlags, BYTE* pbElement,
                                          DWORD* pcbElement) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pCertContext = %p, dwFlags = 0x%.8X, pbElement = %p)", pCertContext, dwFlags, pbElement);
    return Serialize(frame, pCertContext, ElementType::Certificate, dwFlags, pbElement, pcbElement);
  });
}

BOOL CertSerializeCRLStoreElement(PCCRL_CONTEXT pCrlContext, DWORD dwFlags, BYTE* pbElement,
                                  DWORD* pcbElement) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pCrlContext = %p, dwFlags = 0x%.8X, pbElement = %p)", pCrlContext, dwFlags, pbElement);
    return Serialize(frame, pCrlContext, ElementType::Crl, dwFlags, pbElement, pcbElement);
  });
}

BOOL CertAddSerializedElementToStore(HCERTSTORE hCertStore, const BYTE* pbElement, DWORD cbElement,
                                     DWORD dwAddDisposition, DWORD dwFlags, DWORD dwContextTypeFlags,
                                     DWORD* pdwContextType, const void** ppvContext) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(hCertStore = %p, pbElement = %p, cbElement = %u, dwAddDisposition = %u, dwFlags = 0x%.8X)",
                hCertStore, pbElement, cbElement, dwAddDisposition, dwFlags);
    if (ppvContext) *ppvContext = nullptr;
    if (!pbElement || !cbElement || dwFlags) return frame.failed(ERROR_INVALID_PARAMETER);
    DWORD type = 0;
    ContextRecord* added = nullptr;
    if (!certkern::AddSerializedElement(AsStore(hCertStore), {pbElement, cbElement}, dwAddDisposition,
                                        dwContextTypeFlags, type, ppvContext ? &added : nullptr)) {
      return frame.failed();
    }
    if (pdwContextType) *pdwContextType = type;
    if (ppvContext && added) *ppvContext = added->published();
    return frame.result(TRUE);
  });
}

BOOL CertSaveStore(HCERTSTORE hCertStore, DWORD dwEncodingType, DWORD dwSaveAs, DWORD dwSaveTo,
                   void* pvSaveToPara, DWORD dwFlags) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hCertStore = %p, dwEncodingType = 0x%X, dwSaveAs = %u, dwSaveTo = %u, pvSaveToPara = %p, "
        "dwFlags = 0x%.8X)",
        hCertStore, dwEncodingType, dwSaveAs, dwSaveTo, pvSaveToPara, dwFlags);
    if (!hCertStore || !pvSaveToPara) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!certkern::SaveStore(*AsStore(hCertStore), dwSaveAs, dwSaveTo, pvSaveToPara)) return frame.failed();
    return frame.result(TRUE);
  });
}

}  // extern "C"
