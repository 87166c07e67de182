// Objects by URL.
#include <certkern/errors.h>
#include <certkern/oid.h>
#include <certkern/url.h>

#include "api/frame.h"
#include "oid/built_in_functions.h"
#include "oid/function_sets.h"
#include "platform/text_conversion.h"
#include "store/certificate_primitives.h"
#include "url/object_url.h"
#include "url/pki_request.h"
#include "url/retrieval.h"

using certkern::Frame;
using certkern::FunctionSets;
using certkern::Guarded;
using certkern::Maps;
using certkern::MessageGuarded;

namespace {

// Whoever serves retrievals in this process; null with a code.
PFN_SV_RETRIEVE_OBJECT_BY_URL FindRetrieval() {
  FunctionSets* const sets = certkern::ProcessFunctionSets();
  if (!sets) {
    SetLastError(ERROR_DLL_INIT_FAILED);
    return nullptr;
  }
  const HCRYPTOIDFUNCSET set = sets->findOrMake(SV_OID_RETRIEVE_OBJECT_BY_URL_A_FUNC);
  if (!set) return nullptr;
  const auto found = sets->find(set, 0, CRYPT_DEFAULT_OID);
  return found ? reinterpret_cast<PFN_SV_RETRIEVE_OBJECT_BY_URL>(found->function) : nullptr;
}

// No object: whatever step found none has left its code.
DWORD CodeOfNothing() {
  const DWORD code = GetLastError();
  return code ? code : ERROR_INTERNAL_ERROR;
}

BOOL Retrieve(const certkern::RetrievalRequest& request, LPVOID* result, const char* function) {
  return MessageGuarded<Maps<std::exception, EVENT_E_INTERNALEXCEPTION>>(
      [&](Frame& frame) -> BOOL {
        certkern::CheckRetrievalArguments(request, result);
        SetLastError(ERROR_SUCCESS);
        *result = certkern::RetrieveObject(request);  // null, too: nothing was found, and that is said there
        if (*result) return TRUE;
        const DWORD code = CodeOfNothing();
        return frame.failed(code, "Object not found: 0x%08x", code);
      },
      {}, function);
}

}  // namespace

extern "C" {

BOOL CryptRetrieveObjectByUrlAInternal(LPCSTR pszUrl, LPCSTR pszObjectOid, DWORD dwRetrievalFlags,
                                       DWORD dwTimeout, LPVOID* ppvObject, HCRYPTASYNC, PCRYPT_CREDENTIALS,
                                       LPVOID, PCRYPT_RETRIEVE_AUX_INFO) {
  const BOOL result = Retrieve({pszUrl, pszObjectOid, dwRetrievalFlags, dwTimeout}, ppvObject, __func__);
  certkern::Trace(certkern::TRACE_CALL, "() result: %d(%x)", result, result ? 0 : GetLastError());
  return result;
}

BOOL CryptRetrieveObjectByUrlA(LPCSTR pszUrl, LPCSTR pszObjectOid, DWORD dwRetrievalFlags, DWORD dwTimeout,
                               LPVOID* ppvObject, HCRYPTASYNC hAsyncRetrieve, PCRYPT_CREDENTIALS pCredentials,
                               LPVOID pvVerify, PCRYPT_RETRIEVE_AUX_INFO pAuxInfo) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(pszUrl = %p, pszObjectOid = %p, dwRetrievalFlags = 0x%.8X, dwTimeout = %u, ppvObject = %p)",
                static_cast<const void*>(pszUrl), static_cast<const void*>(pszObjectOid), dwRetrievalFlags,
                dwTimeout, static_cast<void*>(ppvObject));
    const auto retrieve = FindRetrieval();
    if (!retrieve) return frame.failed();
    if (!retrieve(pszUrl, pszObjectOid, dwRetrievalFlags, dwTimeout, ppvObject, hAsyncRetrieve, pCredentials,
                  pvVerify, pAuxInfo)) {
      return frame.failed();
    }
    return frame.result(TRUE);
  });
}

BOOL CryptRetrieveObjectByUrlW(LPCWSTR pszUrl, LPCSTR pszObjectOid, DWORD dwRetrievalFlags, DWORD dwTimeout,
                               LPVOID* ppvObject, HCRYPTASYNC hAsyncRetrieve, PCRYPT_CREDENTIALS pCredentials,
                               LPVOID pvVerify, PCRYPT_RETRIEVE_AUX_INFO pAuxInfo) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(pszUrl = %p, pszObjectOid = %p, dwRetrievalFlags = 0x%.8X, dwTimeout = %u, ppvObject = %p)",
                static_cast<const void*>(pszUrl), static_cast<const void*>(pszObjectOid), dwRetrievalFlags,
                dwTimeout, static_cast<void*>(ppvObject));
    const certkern::ByteText url = certkern::BytesFromWide(pszUrl, CP_ACP);
    if (pszUrl && !url) return frame.failed();
    if (!CryptRetrieveObjectByUrlA(url.get(), pszObjectOid, dwRetrievalFlags, dwTimeout, ppvObject,
                                   hAsyncRetrieve, pCredentials, pvVerify, pAuxInfo)) {
      return frame.failed();
    }
    return frame.result(TRUE);
  });
}

BOOL CryptGetObjectUrl(LPCSTR pszUrlOid, LPVOID pvPara, DWORD dwFlags, PCRYPT_URL_ARRAY pUrlArray,
                       DWORD* pcbUrlArray, PCRYPT_URL_INFO pUrlInfo, DWORD* pcbUrlInfo, LPVOID pvReserved) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(pszUrlOid = %p, pvPara = %p, dwFlags = 0x%.8X, pUrlArray = %p, pcbUrlArray = %p, pUrlInfo = %p, "
        "pcbUrlInfo = %p, pvReserved = %p)",
        static_cast<const void*>(pszUrlOid), pvPara, dwFlags, static_cast<void*>(pUrlArray),
        static_cast<void*>(pcbUrlArray), static_cast<void*>(pUrlInfo), static_cast<void*>(pcbUrlInfo),
        pvReserved);
    const CERT_CONTEXT* const certificate = certkern::ReadableCertificate(pvPara);
    if (pszUrlOid != URL_OID_CERTIFICATE_CRL_DIST_POINT || !certificate || !pcbUrlArray) {
      return frame.failed(ERROR_INVALID_PARAMETER);
    }
    if (!certkern::GetCrlUrls(*certificate, pUrlArray, pcbUrlArray)) return frame.failed();
    return frame.result(TRUE);
  });
}

DWORD SendPKIRequest(LPCWSTR pwszUrl, LPCWSTR pwszUserAgent, LPCWSTR pwszContentType, LPCWSTR pwszProxy,
                     LPCWSTR pwszProxyAuth, const SV_BYTE_BUFFER* pRequest, PSV_BYTE_BUFFER pResponse) {
  return Guarded([&](Frame& frame) -> DWORD {
    frame.entry("(pwszUrl = %p, pRequest = %p, pResponse = %p)", static_cast<const void*>(pwszUrl),
                static_cast<const void*>(pRequest), static_cast<void*>(pResponse));
    if (!pwszUrl || !pRequest || !pResponse || (!pRequest->pbData && pRequest->cbData)
        || (!pResponse->pbData && pResponse->cbCapacity)) {
      return frame.failed(ERROR_INVALID_PARAMETER);
    }
    const DWORD status = certkern::PostPkiRequest(
        {pwszUrl, pwszUserAgent, pwszContentType, pwszProxy, pwszProxyAuth}, *pRequest, *pResponse);
    return frame.result(status, "returned: status = %u", status);
  });
}

}  // extern "C"
