// Digests of encoded objects.
#include <certkern/cert.h>
#include <certkern/errors.h>

#include "api/frame.h"
#include "store/certificate_digest.h"

using certkern::Frame;
using certkern::Guarded;

extern "C" {

BOOL CryptHashCertificate(HCRYPTPROV_LEGACY hCryptProv, ALG_ID Algid, DWORD dwFlags, const BYTE* pbEncoded,
                          DWORD cbEncoded, BYTE* pbComputedHash, DWORD* pcbComputedHash) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hCryptProv = 0x%lx, Algid = 0x%x, dwFlags = 0x%.8X, pbEncoded = %p, cbEncoded = %u, pbComputedHash "
        "= %p, "
        "pcbComputedHash = %p)",
        hCryptProv, Algid, dwFlags, pbEncoded, cbEncoded, pbComputedHash, pcbComputedHash);
    if (!certkern::HashEncoded(hCryptProv, Algid, {pbEncoded, cbEncoded}, pbComputedHash, pcbComputedHash))
      return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CryptHashToBeSigned(HCRYPTPROV_LEGACY hCryptProv, DWORD dwCertEncodingType, const BYTE* pbEncoded,
                         DWORD cbEncoded, BYTE* pbComputedHash, DWORD* pcbComputedHash) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hCryptProv = 0x%lx, dwCertEncodingType = %u, pbEncoded = %p, cbEncoded = %u, pbComputedHash = %p, "
        "pcbComputedHash = %p)",
        hCryptProv, dwCertEncodingType, pbEncoded, cbEncoded, pbComputedHash, pcbComputedHash);
    if (!certkern::HashToBeSigned(hCryptProv, {pbEncoded, cbEncoded}, pbComputedHash, pcbComputedHash))
      return frame.failed();
    return frame.result(TRUE);
  });
}

}  // extern "C"
