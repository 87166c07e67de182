// Messages in one call.
#include <certkern/errors.h>
#include <certkern/msg_simple.h>

#include "api/frame.h"
#include "certkern/simple_messages.h"
#include "store/context_record.h"

using certkern::Frame;
using certkern::MessageGuarded;
using certkern::Returns;

extern "C" {

BOOL CryptSignMessage(PCRYPT_SIGN_MESSAGE_PARA pSignPara, BOOL fDetachedSignature, DWORD cToBeSigned,
                      const BYTE* rgpbToBeSigned[], DWORD rgcbToBeSigned[], BYTE* pbSignedBlob,
                      DWORD* pcbSignedBlob) {
  return MessageGuarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(pSignPara = %p, fDetachedSignature = %d, cToBeSigned = %u, rgpbToBeSigned = %p, "
        "rgcbToBeSigned = %p, pbSignedBlob = %p, pcbSignedBlob = %p)",
        pSignPara, fDetachedSignature, cToBeSigned, rgpbToBeSigned, rgcbToBeSigned, pbSignedBlob,
        pcbSignedBlob);
    if (!pSignPara || cToBeSigned > 1 || !pcbSignedBlob) return frame.failed(ERROR_INVALID_PARAMETER);
    if (cToBeSigned == 1 && (!rgcbToBeSigned || (pbSignedBlob && !rgpbToBeSigned)))
      return frame.failed(ERROR_INVALID_PARAMETER);
    if (!certkern::SignSimpleMessage(*pSignPara, fDetachedSignature != FALSE,
                                     {cToBeSigned, rgpbToBeSigned, rgcbToBeSigned}, pbSignedBlob,
                                     pcbSignedBlob))
      return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CryptVerifyMessageSignature(PCRYPT_VERIFY_MESSAGE_PARA pVerifyPara, DWORD dwSignerIndex,
                                 const BYTE* pbSignedBlob, DWORD cbSignedBlob, BYTE* pbDecoded,
                                 DWORD* pcbDecoded, PCCERT_CONTEXT* ppSignerCert) {
  return MessageGuarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(pVerifyPara = %p, dwSignerIndex = %u, pbSignedBlob = %p, cbSignedBlob = %u, pbDecoded = %p, "
        "pcbDecoded = %p, ppSignerCert = %p)",
        pVerifyPara, dwSignerIndex, pbSignedBlob, cbSignedBlob, pbDecoded, pcbDecoded, ppSignerCert);
    if (ppSignerCert) *ppSignerCert = nullptr;
    if (!pVerifyPara || !pbSignedBlob || cbSignedBlob == 0) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!certkern::VerifySimpleMessage(*pVerifyPara, dwSignerIndex, {pbSignedBlob, cbSignedBlob},
                                       {pbDecoded, pcbDecoded, ppSignerCert}))
      return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CryptVerifyDetachedMessageSignature(PCRYPT_VERIFY_MESSAGE_PARA pVerifyPara, DWORD dwSignerIndex,
                                         const BYTE* pbDetachedSignBlob, DWORD cbDetachedSignBlob,
                                         DWORD cToBeSigned, const BYTE* rgpbToBeSigned[],
                                         DWORD rgcbToBeSigned[], PCCERT_CONTEXT* ppSignerCert) {
  return MessageGuarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(pVerifyPara = %p, dwSignerIndex = %u, pbDetachedSignBlob = %p, cbDetachedSignBlob = %u, "
        "cToBeSigned = %u, rgpbToBeSigned = %p, rgcbToBeSigned = %p, ppSignerCert = %p)",
        pVerifyPara, dwSignerIndex, pbDetachedSignBlob, cbDetachedSignBlob, cToBeSigned, rgpbToBeSigned,
        rgcbToBeSigned, ppSignerCert);
    if (ppSignerCert) *ppSignerCert = nullptr;
    if (!pVerifyPara || !pbDetachedSignBlob || cbDetachedSignBlob == 0 || cToBeSigned == 0)
      return frame.failed(ERROR_INVALID_PARAMETER);
    if (!rgpbToBeSigned || !rgcbToBeSigned) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!certkern::VerifySimpleDetachedMessage(*pVerifyPara, dwSignerIndex,
                                               {pbDetachedSignBlob, cbDetachedSignBlob},
                                               {cToBeSigned, rgpbToBeSigned, rgcbToBeSigned}, ppSignerCert))
      return frame.failed();
    return frame.result(TRUE);
  });
}

LONG CryptGetMessageSignerCount(DWORD dwMsgEncodingType, const BYTE* pbSignedBlob, DWORD cbSignedBlob) {
  return MessageGuarded<Returns<-1>>([&](Frame& frame) -> LONG {
    frame.entry("(dwMsgEncodingType = 0x%.8X, pbSignedBlob = %p, cbSignedBlob = %u)", dwMsgEncodingType,
                pbSignedBlob, cbSignedBlob);
    if (!pbSignedBlob) return frame.failed(ERROR_INVALID_PARAMETER);
    DWORD count = 0;
    if (!certkern::CountSigners(dwMsgEncodingType, {pbSignedBlob, cbSignedBlob}, count))
      return frame.failed();
    return frame.result(static_cast<LONG>(count));
  });
}

}  // extern "C"
