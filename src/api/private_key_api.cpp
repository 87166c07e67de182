// The private key of a certificate, and who answers its PIN.
#include <certkern/errors.h>
#include <certkern/keys.h>
#include <certkern/sv.h>

#include "api/frame.h"
#include "keys/pin_callback.h"
#include "keys/private_key.h"

using certkern::ContextRecord;
using certkern::Frame;
using certkern::Guarded;
using certkern::PinCallback;
using certkern::Plain;
using certkern::PrivateKey;

extern "C" {

BOOL CryptAcquireCertificatePrivateKey(PCCERT_CONTEXT pCert, DWORD dwFlags, void* pvReserved,
                                       HCRYPTPROV_OR_NCRYPT_KEY_HANDLE* phCryptProv, DWORD* pdwKeySpec,
                                       BOOL* pfCallerFreeProv) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(pCert = %p, dwFlags = 0x%.8X, pvReserved = %p, phCryptProv = %p, pdwKeySpec = %p, pfCallerFreeProv "
        "= %p)",
        pCert, dwFlags, pvReserved, phCryptProv, pdwKeySpec, pfCallerFreeProv);
    ContextRecord* const record = certkern::FindLiveContext(pCert, certkern::ElementType::Certificate);
    if (!record || !phCryptProv) return frame.failed(ERROR_INVALID_PARAMETER);
    PrivateKey key;
    if (!certkern::AcquirePrivateKey(*record, dwFlags, key)) return frame.failed();
    if (pdwKeySpec) *pdwKeySpec = key.keySpec;
    if (pfCallerFreeProv) *pfCallerFreeProv = key.owned ? TRUE : FALSE;
    *phCryptProv = key.provider;
    static_cast<void>(key.owned.release());
    SetLastError(ERROR_SUCCESS);
    return frame.result(TRUE, "returned: hCryptProv = 0x%lx, dwKeySpec = %u", key.provider, key.keySpec);
  });
}

BOOL SVCryptSetPinCallback(PFN_SV_PIN_CALLBACK pfnCallback, void* pvArg) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pfnCallback = %p, pvArg = %p)", reinterpret_cast<void*>(pfnCallback), pvArg);
    if (!certkern::SetPinCallback({pfnCallback, pvArg})) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL SVCryptGetPinCallback(PFN_SV_PIN_CALLBACK* ppfnCallback, void** ppvArg) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(ppfnCallback = %p, ppvArg = %p)", static_cast<void*>(ppfnCallback),
                static_cast<void*>(ppvArg));
    if (!ppfnCallback || !ppvArg) return frame.failed(ERROR_INVALID_PARAMETER);
    const PinCallback callback = certkern::GetPinCallback();
    *ppfnCallback = callback.function;
    *ppvArg = callback.argument;
    return frame.result(TRUE);
  });
}

BOOL SVCryptGetPinFromCallback(char* pszPin, DWORD cchPin) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(pszPin = %p, cchPin = %u)", static_cast<void*>(pszPin), cchPin);
    if (!pszPin && cchPin) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!certkern::AskForPin(pszPin, cchPin)) return frame.failed();
    return frame.result(TRUE);
  });
}

}  // extern "C"
