// Messages: building, reading and changing them. A handle is the address of its context; it is not checked beyond being there.
#include <certkern/errors.h>
#include <certkern/msg.h>
#include <certkern/oids.h>

#include <cstring>

#include "api/frame.h"
#include "certkern/CMSMessage.h"
#include "certkern/message_opening.h"
#include "certkern/message_signer.h"
#include "keys/signing_display.h"
#include "store/message_store.h"

using certkern::CertificateOwner;
using certkern::DecodeRequest;
using certkern::EncodeRequest;
using certkern::Expects;
using certkern::Frame;
using certkern::Guarded;
using certkern::Maps;
using certkern::MessageContext;
using certkern::MessageGuarded;
using certkern::MessageOwner;

namespace {

constexpr DWORD kEncodings = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
constexpr DWORD kSignerFlags = CMSG_TRUSTED_SIGNER_FLAG | CMSG_SIGNER_ONLY_FLAG | CMSG_USE_SIGNER_INDEX_FLAG;

MessageContext& AsMessage(HCRYPTMSG handle) { return *static_cast<MessageContext*>(handle); }

// Only data flows in a stream, and not through a hashed message.
bool MayStream(const EncodeRequest& request) {
  return request.type != CMSG_HASHED
      && (!request.innerType || !std::strcmp(request.innerType, szOID_RSA_data));
}

bool AreEncodeArguments(DWORD encoding, const EncodeRequest& request) {
  return encoding && !(encoding & ~kEncodings) && request.type >= CMSG_DATA && request.type <= CMSG_HASHED
      && (request.info || request.type == CMSG_DATA) && (!request.stream || MayStream(request));
}

}  // namespace

extern "C" {

HCRYPTMSG CryptMsgOpenToEncode(DWORD dwMsgEncodingType, DWORD dwFlags, DWORD dwMsgType,
                               const void* pvMsgEncodeInfo, LPSTR pszInnerContentObjID,
                               PCMSG_STREAM_INFO pStreamInfo) {
  return MessageGuarded([&](Frame& frame) -> HCRYPTMSG {
    frame.entry(
        "(dwMsgEncodingType = 0x%X, dwFlags = 0x%.8X, dwMsgType = %u, pvMsgEncodeInfo = %p, "
        "pszInnerContentObjID = %p, pStreamInfo = %p)",
        dwMsgEncodingType, dwFlags, dwMsgType, pvMsgEncodeInfo, static_cast<void*>(pszInnerContentObjID),
        static_cast<void*>(pStreamInfo));
    const EncodeRequest request = {certkern::WithForcedDisplay(dwFlags), dwMsgType, pvMsgEncodeInfo,
                                   pszInnerContentObjID, pStreamInfo};
    if (!AreEncodeArguments(dwMsgEncodingType, request)) return frame.failed(ERROR_INVALID_PARAMETER);
    MessageOwner message = certkern::OpenToEncode(request);
    if (!message) return frame.failed();
    const HCRYPTMSG handle = message.release();
    return frame.result(handle, "returned: hCryptMsg = %p", handle);
  });
}

HCRYPTMSG CryptMsgOpenToDecode(DWORD dwMsgEncodingType, DWORD dwFlags, DWORD dwMsgType,
                               HCRYPTPROV_LEGACY hCryptProv, PCERT_INFO pRecipientInfo,
                               PCMSG_STREAM_INFO pStreamInfo) {
  return MessageGuarded([&](Frame& frame) -> HCRYPTMSG {
    frame.entry(
        "(dwMsgEncodingType = 0x%X, dwFlags = 0x%.8X, dwMsgType = %u, hCryptProv = 0x%lx, pRecipientInfo = "
        "%p, pStreamInfo = %p)",
        dwMsgEncodingType, dwFlags, dwMsgType, hCryptProv, static_cast<void*>(pRecipientInfo),
        static_cast<void*>(pStreamInfo));
    const bool releases = (dwFlags & CMSG_CRYPT_RELEASE_CONTEXT_FLAG) != 0;
    if (releases && !hCryptProv) return frame.failed(ERROR_INVALID_PARAMETER);
    const DecodeRequest request = {certkern::WithForcedDisplay(dwFlags), dwMsgType, hCryptProv, pStreamInfo};
    const HCRYPTMSG handle = certkern::OpenToDecode(request).release();
    return frame.result(handle, "returned: hCryptMsg = %p", handle);
  });
}

BOOL CryptMsgUpdate(HCRYPTMSG hCryptMsg, const BYTE* pbData, DWORD cbData, BOOL fFinal) {
  return MessageGuarded<Maps<certkern::Asn1Exception, CRYPT_E_ASN1_CORRUPT>,
                        Expects<CRYPT_E_INVALID_MSG_TYPE>>([&](Frame& frame) -> BOOL {
    frame.entry("(hCryptMsg = %p, pbData = %p, cbData = %u, fFinal = %d)", hCryptMsg, pbData, cbData, fFinal);
    if (!hCryptMsg || (!pbData && cbData)) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!pbData) return frame.result(TRUE);  // a final call without data finishes nothing
    AsMessage(hCryptMsg).update({pbData, cbData}, fFinal != FALSE);
    return frame.result(TRUE);
  });
}

BOOL CryptMsgGetParam(HCRYPTMSG hCryptMsg, DWORD dwParamType, DWORD dwIndex, void* pvData, DWORD* pcbData) {
  return MessageGuarded([&](Frame& frame) -> BOOL {
    frame.entry("(hCryptMsg = %p, dwParamType = %u, dwIndex = %u, pvData = %p, pcbData = %p)", hCryptMsg,
                dwParamType, dwIndex, pvData, static_cast<void*>(pcbData));
    if (!hCryptMsg) return frame.failed(ERROR_INVALID_PARAMETER);
    AsMessage(hCryptMsg).getParam({dwParamType, dwIndex, pcbData, pvData, pcbData ? *pcbData : 0});
    return frame.result(TRUE);
  });
}

BOOL CryptMsgControl(HCRYPTMSG hCryptMsg, DWORD dwFlags, DWORD dwCtrlType, const void* pvCtrlPara) {
  return MessageGuarded([&](Frame& frame) -> BOOL {
    frame.entry("(hCryptMsg = %p, dwFlags = 0x%.8X, dwCtrlType = %u, pvCtrlPara = %p)", hCryptMsg, dwFlags,
                dwCtrlType, pvCtrlPara);
    if (!hCryptMsg) return frame.failed(ERROR_INVALID_PARAMETER);
    const DWORD flags = certkern::WithForcedDisplay(dwFlags);
    if (!certkern::ControlMessage(AsMessage(hCryptMsg), {dwCtrlType, pvCtrlPara, flags})) {
      return frame.failed();
    }
    return frame.result(TRUE);
  });
}

HCRYPTMSG CryptMsgDuplicate(HCRYPTMSG hCryptMsg) {
  Frame frame;
  frame.entry("(hCryptMsg = %p)", hCryptMsg);
  if (!hCryptMsg) return frame.failed(ERROR_INVALID_PARAMETER);
  AsMessage(hCryptMsg).addReference();
  return frame.result(hCryptMsg);
}

BOOL CryptMsgClose(HCRYPTMSG hCryptMsg) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(hCryptMsg = %p)", hCryptMsg);
    if (!hCryptMsg) return frame.failed(ERROR_INVALID_PARAMETER);
    certkern::ReleaseMessageDisplay(hCryptMsg);
    AsMessage(hCryptMsg).release();
    return frame.result(TRUE);
  });
}

DWORD CryptMsgCalculateEncodedLength(DWORD dwMsgEncodingType, DWORD dwFlags, DWORD dwMsgType,
                                     const void* pvMsgEncodeInfo, LPSTR pszInnerContentObjID, DWORD cbData) {
  return MessageGuarded([&](Frame& frame) -> DWORD {
    frame.entry(
        "(dwMsgEncodingType = 0x%X, dwFlags = 0x%.8X, dwMsgType = %u, pvMsgEncodeInfo = %p, "
        "pszInnerContentObjID = %p, cbData = %u)",
        dwMsgEncodingType, dwFlags, dwMsgType, pvMsgEncodeInfo, static_cast<void*>(pszInnerContentObjID),
        cbData);
    if (dwMsgType != CMSG_DATA && !pvMsgEncodeInfo) return frame.failed(ERROR_INVALID_PARAMETER);
    const DWORD length =
        certkern::EncodedLength({dwFlags, dwMsgType, pvMsgEncodeInfo, pszInnerContentObjID, nullptr}, cbData);
    if (!length) return frame.failed();
    return frame.result(length);
  });
}

BOOL CryptMsgGetAndVerifySigner(HCRYPTMSG hCryptMsg, DWORD cSignerStore, HCERTSTORE* rghSignerStore,
                                DWORD dwFlags, PCCERT_CONTEXT* ppSigner, DWORD* pdwSignerIndex) {
  return MessageGuarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hCryptMsg = %p, cSignerStore = %u, rghSignerStore = %p, dwFlags = 0x%.8X, ppSigner = %p, "
        "pdwSignerIndex = %p)",
        hCryptMsg, cSignerStore, static_cast<void*>(rghSignerStore), dwFlags, static_cast<void*>(ppSigner),
        static_cast<void*>(pdwSignerIndex));
    const bool byIndex = (dwFlags & CMSG_USE_SIGNER_INDEX_FLAG) != 0;
    if (!hCryptMsg || (cSignerStore && !rghSignerStore) || (dwFlags & ~kSignerFlags)) {
      return frame.failed(ERROR_INVALID_PARAMETER);
    }
    if (ppSigner) *ppSigner = nullptr;
    if (pdwSignerIndex && !byIndex) *pdwSignerIndex = 0;
    if (byIndex && !pdwSignerIndex) return frame.failed(ERROR_INVALID_PARAMETER);
    DWORD index = byIndex ? *pdwSignerIndex : 0;
    CertificateOwner signer = certkern::FindAndVerifySigner(
        hCryptMsg, {rghSignerStore, rghSignerStore ? cSignerStore : 0}, dwFlags, index);
    if (!signer) return frame.failed();
    if (ppSigner) *ppSigner = signer.release();
    if (pdwSignerIndex) *pdwSignerIndex = index;
    return frame.result(TRUE);
  });
}

// --- not served: they say so by failing, and leave the last error alone ---

BOOL CryptMsgCountersign(HCRYPTMSG hCryptMsg, DWORD dwIndex, DWORD cCountersigners,
                         PCMSG_SIGNER_ENCODE_INFO rgCountersigners) {
  Frame frame;
  frame.entry("(hCryptMsg = %p, dwIndex = %u, cCountersigners = %u, rgCountersigners = %p)", hCryptMsg,
              dwIndex, cCountersigners, static_cast<void*>(rgCountersigners));
  return frame.failed();
}

BOOL CryptMsgCountersignEncoded(DWORD dwEncodingType, PBYTE pbSignerInfo, DWORD cbSignerInfo,
                                DWORD cCountersigners, PCMSG_SIGNER_ENCODE_INFO rgCountersigners,
                                PBYTE pbCountersignature, PDWORD pcbCountersignature) {
  Frame frame;
  frame.entry(
      "(dwEncodingType = 0x%X, pbSignerInfo = %p, cbSignerInfo = %u, cCountersigners = %u, rgCountersigners "
      "= "
      "%p, pbCountersignature = %p, pcbCountersignature = %p)",
      dwEncodingType, static_cast<void*>(pbSignerInfo), cbSignerInfo, cCountersigners,
      static_cast<void*>(rgCountersigners), static_cast<void*>(pbCountersignature),
      static_cast<void*>(pcbCountersignature));
  return frame.failed();
}

BOOL CryptMsgVerifyCountersignatureEncoded(HCRYPTPROV_LEGACY hCryptProv, DWORD dwEncodingType,
                                           PBYTE pbSignerInfo, DWORD cbSignerInfo,
                                           PBYTE pbSignerInfoCountersignature,
                                           DWORD cbSignerInfoCountersignature, PCERT_INFO pciCountersigner) {
  Frame frame;
  frame.entry(
      "(hCryptProv = 0x%lx, dwEncodingType = 0x%X, pbSignerInfo = %p, cbSignerInfo = %u, "
      "pbSignerInfoCountersignature = %p, cbSignerInfoCountersignature = %u, pciCountersigner = %p)",
      hCryptProv, dwEncodingType, static_cast<void*>(pbSignerInfo), cbSignerInfo,
      static_cast<void*>(pbSignerInfoCountersignature), cbSignerInfoCountersignature,
      static_cast<void*>(pciCountersigner));
  return frame.failed();
}

BOOL CryptMsgVerifyCountersignatureEncodedEx(HCRYPTPROV_LEGACY hCryptProv, DWORD dwEncodingType,
                                             PBYTE pbSignerInfo, DWORD cbSignerInfo,
                                             PBYTE pbSignerInfoCountersignature,
                                             DWORD cbSignerInfoCountersignature, DWORD dwSignerType,
                                             void* pvSigner, DWORD dwFlags, void* pvExtra) {
  Frame frame;
  frame.entry(
      "(hCryptProv = 0x%lx, dwEncodingType = 0x%X, pbSignerInfo = %p, cbSignerInfo = %u, "
      "pbSignerInfoCountersignature = %p, cbSignerInfoCountersignature = %u, dwSignerType = %u, pvSigner = "
      "%p, "
      "dwFlags = 0x%.8X, pvExtra = %p)",
      hCryptProv, dwEncodingType, static_cast<void*>(pbSignerInfo), cbSignerInfo,
      static_cast<void*>(pbSignerInfoCountersignature), cbSignerInfoCountersignature, dwSignerType, pvSigner,
      dwFlags, pvExtra);
  return frame.failed();
}

}  // extern "C"

namespace certkern {

bool AddMessageObjects(HCRYPTMSG message, HCERTSTORE store) {
  return MessageGuarded([&](Frame& frame) -> bool {
    frame.entry("(hCryptMsg = %p, hCertStore = %p)", message, store);
    MessageDecodeContext* const decoder = message && store ? AsMessage(message).asDecodeContext() : nullptr;
    if (!decoder) return frame.result(true);
    decoder->addCertificatesToStore(store);
    decoder->addCRLsToStore(store);
    return frame.result(true);
  });
}

}  // namespace certkern
