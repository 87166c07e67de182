// The signatures of certificates, lists and requests.
#include <certkern/errors.h>
#include <certkern/keys.h>

#include "api/frame.h"
#include "keys/certificate_signature.h"

using certkern::Frame;
using certkern::Guarded;

extern "C" {

BOOL CryptSignCertificate(HCRYPTPROV_OR_NCRYPT_KEY_HANDLE hCryptProv, DWORD dwKeySpec,
                          DWORD dwCertEncodingType, const BYTE* pbEncodedToBeSigned,
                          DWORD cbEncodedToBeSigned, PCRYPT_ALGORITHM_IDENTIFIER pSignatureAlgorithm,
                          const void* pvHashAuxInfo, BYTE* pbSignature, DWORD* pcbSignature) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hCryptProv = 0x%lx, dwKeySpec = %u, dwCertEncodingType = %u, pbEncodedToBeSigned = %p, "
        "cbEncodedToBeSigned = %u, pSignatureAlgorithm = %p, pvHashAuxInfo = %p, pbSignature = %p, "
        "pcbSignature = %p)",
        hCryptProv, dwKeySpec, dwCertEncodingType, pbEncodedToBeSigned, cbEncodedToBeSigned,
        pSignatureAlgorithm, pvHashAuxInfo, pbSignature, pcbSignature);
    if (!certkern::SignBytes(hCryptProv, dwKeySpec, {pbEncodedToBeSigned, cbEncodedToBeSigned},
                             pSignatureAlgorithm, pbSignature, pcbSignature))
      return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CryptSignAndEncodeCertificate(HCRYPTPROV_OR_NCRYPT_KEY_HANDLE hCryptProv, DWORD dwKeySpec,
                                   DWORD dwCertEncodingType, LPCSTR lpszStructType, const void* pvStructInfo,
                                   PCRYPT_ALGORITHM_IDENTIFIER pSignatureAlgorithm, const void* pvHashAuxInfo,
                                   BYTE* pbEncoded, DWORD* pcbEncoded) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hCryptProv = 0x%lx, dwKeySpec = %u, dwCertEncodingType = %u, lpszStructType = %p, "
        "pvStructInfo = %p, pSignatureAlgorithm = %p, pvHashAuxInfo = %p, pbEncoded = %p, pcbEncoded = %p)",
        hCryptProv, dwKeySpec, dwCertEncodingType, lpszStructType, pvStructInfo, pSignatureAlgorithm,
        pvHashAuxInfo, pbEncoded, pcbEncoded);
    if (!certkern::SignAndEncode(hCryptProv, dwKeySpec, dwCertEncodingType, lpszStructType, pvStructInfo,
                                 pSignatureAlgorithm, pbEncoded, pcbEncoded))
      return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CryptVerifyCertificateSignature(HCRYPTPROV_LEGACY hCryptProv, DWORD dwCertEncodingType,
                                     const BYTE* pbEncoded, DWORD cbEncoded,
                                     PCERT_PUBLIC_KEY_INFO pPublicKey) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hCryptProv = 0x%lx, dwCertEncodingType = %u, pbEncoded = %p, cbEncoded = %u, pPublicKey = %p)",
        hCryptProv, dwCertEncodingType, pbEncoded, cbEncoded, pPublicKey);
    if (!certkern::VerifySignedObject(hCryptProv, {pbEncoded, cbEncoded}, pPublicKey)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CryptVerifyCertificateSignatureEx(HCRYPTPROV_LEGACY hCryptProv, DWORD dwCertEncodingType,
                                       DWORD dwSubjectType, void* pvSubject, DWORD dwIssuerType,
                                       void* pvIssuer, DWORD dwFlags, void* pvExtra) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hCryptProv = 0x%lx, dwCertEncodingType = %u, dwSubjectType = %u, pvSubject = %p, "
        "dwIssuerType = %u, pvIssuer = %p, dwFlags = 0x%.8X, pvExtra = %p)",
        hCryptProv, dwCertEncodingType, dwSubjectType, pvSubject, dwIssuerType, pvIssuer, dwFlags, pvExtra);
    if (dwFlags || pvExtra) return frame.failed(E_INVALIDARG);
    if (!certkern::VerifySubject(hCryptProv, dwSubjectType, pvSubject, dwIssuerType, pvIssuer))
      return frame.failed();
    return frame.result(TRUE);
  });
}

}  // extern "C"
