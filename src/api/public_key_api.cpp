// Public keys: export, import, length, comparison, hash.
#include <certkern/errors.h>
#include <certkern/keys.h>

#include "api/frame.h"
#include "keys/public_key.h"
#include "keys/public_key_comparison.h"
#include "oid/algorithm_lookup.h"

using certkern::Frame;
using certkern::Guarded;
using certkern::Plain;

extern "C" {

BOOL CryptExportPublicKeyInfo(HCRYPTPROV_OR_NCRYPT_KEY_HANDLE hCryptProv, DWORD dwKeySpec,
                              DWORD dwCertEncodingType, PCERT_PUBLIC_KEY_INFO pInfo, DWORD* pcbInfo) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(hCryptProv = 0x%lx, dwKeySpec = %u, dwCertEncodingType = %u, pInfo = %p, pcbInfo = %p)",
                hCryptProv, dwKeySpec, dwCertEncodingType, pInfo, pcbInfo);
    if (!certkern::ExportPublicKey(hCryptProv, dwKeySpec, dwCertEncodingType, nullptr, 0, nullptr, pInfo,
                                   pcbInfo))
      return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CryptExportPublicKeyInfoEx(HCRYPTPROV_OR_NCRYPT_KEY_HANDLE hCryptProv, DWORD dwKeySpec,
                                DWORD dwCertEncodingType, LPSTR pszPublicKeyObjId, DWORD dwFlags,
                                void* pvAuxInfo, PCERT_PUBLIC_KEY_INFO pInfo, DWORD* pcbInfo) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hCryptProv = 0x%lx, dwKeySpec = %u, dwCertEncodingType = %u, pszPublicKeyObjId = %p, "
        "dwFlags = 0x%.8X, pvAuxInfo = %p, pInfo = %p, pcbInfo = %p)",
        hCryptProv, dwKeySpec, dwCertEncodingType, pszPublicKeyObjId, dwFlags, pvAuxInfo, pInfo, pcbInfo);
    if (!certkern::ExportPublicKey(hCryptProv, dwKeySpec, dwCertEncodingType, pszPublicKeyObjId, dwFlags,
                                   pvAuxInfo, pInfo, pcbInfo))
      return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CryptImportPublicKeyInfo(HCRYPTPROV hCryptProv, DWORD dwCertEncodingType, PCERT_PUBLIC_KEY_INFO pInfo,
                              HCRYPTKEY* phKey) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(hCryptProv = 0x%lx, dwCertEncodingType = %u, pInfo = %p, phKey = %p)", hCryptProv,
                dwCertEncodingType, pInfo, phKey);
    if (!pInfo || !phKey) return frame.failed(ERROR_INVALID_PARAMETER);
    const ALG_ID algorithm = certkern::AlgIdOfOid(pInfo->Algorithm.pszObjId);
    if (!certkern::ImportPublicKey(hCryptProv, pInfo, algorithm, 0, phKey)) return frame.failed();
    return frame.result(TRUE, "returned: hKey = 0x%lx", *phKey);
  });
}

BOOL CryptImportPublicKeyInfoEx(HCRYPTPROV hCryptProv, DWORD dwCertEncodingType, PCERT_PUBLIC_KEY_INFO pInfo,
                                ALG_ID aiKeyAlg, DWORD dwFlags, void* pvAuxInfo, HCRYPTKEY* phKey) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hCryptProv = 0x%lx, dwCertEncodingType = %u, pInfo = %p, aiKeyAlg = 0x%x, dwFlags = 0x%.8X, "
        "pvAuxInfo = %p, phKey = %p)",
        hCryptProv, dwCertEncodingType, pInfo, aiKeyAlg, dwFlags, pvAuxInfo, phKey);
    if (!pInfo || !phKey) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!certkern::ImportPublicKey(hCryptProv, pInfo, aiKeyAlg, dwFlags, phKey)) return frame.failed();
    return frame.result(TRUE, "returned: hKey = 0x%lx", *phKey);
  });
}

DWORD CertGetPublicKeyLength(DWORD dwCertEncodingType, PCERT_PUBLIC_KEY_INFO pPublicKey) {
  return Guarded([&](Frame& frame) -> DWORD {
    frame.entry("(dwCertEncodingType = %u, pPublicKey = %p)", dwCertEncodingType, pPublicKey);
    if (!pPublicKey) return frame.failed(ERROR_INVALID_PARAMETER);
    const DWORD bits = certkern::PublicKeyBits(pPublicKey);
    if (!bits) return frame.failed();
    return frame.result(bits);
  });
}

BOOL CertComparePublicKeyInfo(DWORD dwCertEncodingType, PCERT_PUBLIC_KEY_INFO pPublicKey1,
                              PCERT_PUBLIC_KEY_INFO pPublicKey2) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(dwCertEncodingType = %u, pPublicKey1 = %p, pPublicKey2 = %p)", dwCertEncodingType,
                pPublicKey1, pPublicKey2);
    if (!certkern::SamePublicKey(pPublicKey1, pPublicKey2)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CryptHashPublicKeyInfo(HCRYPTPROV_LEGACY hCryptProv, ALG_ID Algid, DWORD dwFlags,
                            DWORD dwCertEncodingType, PCERT_PUBLIC_KEY_INFO pInfo, BYTE* pbComputedHash,
                            DWORD* pcbComputedHash) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hCryptProv = 0x%lx, Algid = 0x%x, dwFlags = 0x%.8X, dwCertEncodingType = %u, pInfo = %p, "
        "pbComputedHash = %p, pcbComputedHash = %p)",
        hCryptProv, Algid, dwFlags, dwCertEncodingType, pInfo, pbComputedHash, pcbComputedHash);
    if (!pInfo || !pcbComputedHash || hCryptProv) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!dwCertEncodingType) return frame.failed(ERROR_FILE_NOT_FOUND);
    if (!certkern::HashPublicKey(Algid, dwCertEncodingType, *pInfo, pbComputedHash, pcbComputedHash))
      return frame.failed();
    return frame.result(TRUE);
  });
}

}  // extern "C"
