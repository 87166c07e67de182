// Look-ups of algorithms. What is not there leaves the last error as it was.
#include <certkern/oid.h>
#include <certkern/sv.h>

#include "api/frame.h"
#include "oid/algorithm_lookup.h"

using certkern::Frame;
using certkern::Guarded;
using certkern::Parenthesised;

extern "C" {

DWORD CertOIDToAlgId(LPCSTR pszObjId) {
  return Guarded<Parenthesised>([&](Frame& frame) -> DWORD {
    frame.entry("(pszObjId = %p)", pszObjId);
    const ALG_ID algorithm = certkern::AlgIdOfOid(pszObjId);
    if (!algorithm) return frame.failed();
    return frame.result(algorithm, "(returned: AlgId = 0x%x)", algorithm);
  });
}

LPCSTR CertAlgIdToOID(DWORD dwAlgId) {
  return Guarded<Parenthesised>([&](Frame& frame) -> LPCSTR {
    frame.entry("(dwAlgId = 0x%x)", dwAlgId);
    const LPCSTR oid = certkern::OidOfAlgId(dwAlgId);
    if (!oid) return frame.failed();
    return frame.result(oid, "(returned: pszOID = %p)", oid);
  });
}

ALG_ID SVGetDefaultGostHashAlgId(LPCSTR pszPublicKeyOid) {
  return Guarded([&](Frame& frame) -> ALG_ID {
    frame.entry("(pszPublicKeyOid = %p)", pszPublicKeyOid);
    const ALG_ID hash = certkern::DefaultGostHash(pszPublicKeyOid);
    if (!hash) return frame.failed();
    return frame.result(hash);
  });
}

PCCRYPT_OID_INFO SVCryptGetDefaultHashOIDInfo(LPCSTR pszPublicKeyOid) {
  return Guarded([&](Frame& frame) -> PCCRYPT_OID_INFO {
    frame.entry("(pszPublicKeyOid = %p)", pszPublicKeyOid);
    const PCCRYPT_OID_INFO info = certkern::DefaultHashInfo(pszPublicKeyOid);
    if (!info) return frame.failed();
    return frame.result(info);
  });
}

PCCRYPT_OID_INFO SVCryptGetDefaultSignatureOIDInfo(LPCSTR pszPublicKeyOid) {
  return Guarded([&](Frame& frame) -> PCCRYPT_OID_INFO {
    frame.entry("(pszPublicKeyOid = %p)", pszPublicKeyOid);
    const PCCRYPT_OID_INFO info = certkern::DefaultSignatureInfo(pszPublicKeyOid);
    if (!info) return frame.failed();
    return frame.result(info);
  });
}

PCCRYPT_OID_INFO SVCryptGetSignatureOIDInfo(LPCSTR pszPublicKeyOid, LPCSTR pszHashOid) {
  return Guarded([&](Frame& frame) -> PCCRYPT_OID_INFO {
    frame.entry("(pszPublicKeyOid = %p, pszHashOid = %p)", pszPublicKeyOid, pszHashOid);
    const PCCRYPT_OID_INFO info = certkern::SignatureInfo(pszPublicKeyOid, pszHashOid);
    if (!info) return frame.failed();
    return frame.result(info);
  });
}

PCCRYPT_OID_INFO SVCryptGetPublicKeyOIDInfo(LPCSTR pszPublicKeyOid, DWORD dwKeySpec) {
  return Guarded([&](Frame& frame) -> PCCRYPT_OID_INFO {
    frame.entry("(pszPublicKeyOid = %p, dwKeySpec = %u)", pszPublicKeyOid, dwKeySpec);
    const PCCRYPT_OID_INFO info = certkern::PublicKeyInfoFor(pszPublicKeyOid, dwKeySpec);
    if (!info) return frame.failed();
    return frame.result(info);
  });
}

ALG_ID SVCryptGetProviderHashAlgId(HCRYPTPROV hCryptProv, LPCSTR pszPublicKeyOid) {
  return Guarded([&](Frame& frame) -> ALG_ID {
    frame.entry("(hCryptProv = 0x%lx, pszPublicKeyOid = %p)", hCryptProv, pszPublicKeyOid);
    const ALG_ID hash = certkern::ProviderHash(hCryptProv, pszPublicKeyOid);
    if (!hash) return frame.failed();
    return frame.result(hash);
  });
}

}  // extern "C"
