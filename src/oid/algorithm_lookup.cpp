#include "oid/algorithm_lookup.h"

#include <certkern/oids.h>

#include <cstring>

#include "oid/algorithm_finders.h"
#include "oid/signature_row.h"

namespace certkern {
namespace {

struct GostKey {
  LPCSTR publicKeyOid;
  LPCSTR hashOid;
  ALG_ID hash;
};
constexpr GostKey kGostKeys[] = {
    {szOID_GOST_R3410_2001,     szOID_GOST_R3411_94,       CALG_GR3411         },
    {szOID_GOST_R3410_2012_256, szOID_GOST_R3411_2012_256, CALG_GR3411_2012_256},
    {szOID_GOST_R3410_2012_512, szOID_GOST_R3411_2012_512, CALG_GR3411_2012_512},
};

const GostKey* FindGostKey(LPCSTR publicKeyOid) {
  if (!publicKeyOid) return nullptr;
  for (const GostKey& key : kGostKeys) {
    if (std::strcmp(key.publicKeyOid, publicKeyOid) == 0) return &key;
  }
  return nullptr;
}

PCCRYPT_OID_INFO FindByAlgId(ALG_ID algorithm, DWORD group) {
  return CryptFindOIDInfo(CRYPT_OID_INFO_ALGID_KEY, &algorithm, group);
}

PCCRYPT_OID_INFO FindBySignature(ALG_ID hash, ALG_ID key) {
  ALG_ID pair[] = {hash, key};
  return CryptFindOIDInfo(CRYPT_OID_INFO_SIGN_KEY, pair, CRYPT_SIGN_ALG_OID_GROUP_ID);
}

// The ALG_ID under which a key signs; 0 when it does not.
ALG_ID SigningKey(LPCSTR publicKeyOid) {
  CFindPubKeyAlgId finder(publicKeyOid, ALG_CLASS_SIGNATURE);
  return finder.find() ? finder.algorithm() : 0;
}

}  // namespace

ALG_ID AlgIdOfOid(LPCSTR oid) {
  if (!oid) return 0;
  const PCCRYPT_OID_INFO info = FindByOid(oid, 0);
  return info ? info->Algid : 0;
}

LPCSTR OidOfAlgId(ALG_ID algorithm) {
  if (!algorithm) return nullptr;
  PCCRYPT_OID_INFO info = FindByAlgId(algorithm, CRYPT_HASH_ALG_OID_GROUP_ID);
  if (!info) info = FindByAlgId(algorithm, 0);
  return info ? info->pszOID : nullptr;
}

ALG_ID DefaultGostHash(LPCSTR publicKeyOid) {
  const GostKey* key = FindGostKey(publicKeyOid);
  return key ? key->hash : 0;
}

PCCRYPT_OID_INFO DefaultHashInfo(LPCSTR publicKeyOid) {
  if (const GostKey* key = FindGostKey(publicKeyOid)) {
    if (const PCCRYPT_OID_INFO info = FindByOid(key->hashOid, CRYPT_HASH_ALG_OID_GROUP_ID)) return info;
  }
  const PCCRYPT_OID_INFO signature = DefaultSignatureInfo(publicKeyOid);
  return signature ? FindByAlgId(signature->Algid, CRYPT_HASH_ALG_OID_GROUP_ID) : nullptr;
}

PCCRYPT_OID_INFO DefaultSignatureInfo(LPCSTR publicKeyOid) {
  const ALG_ID key = SigningKey(publicKeyOid);
  if (!key) return nullptr;
  const ALG_ID gostHash = DefaultGostHash(publicKeyOid);
  if (const PCCRYPT_OID_INFO info = FindBySignature(gostHash ? gostHash : CALG_SHA1, key)) return info;
  // keys of one ALG_ID may still sign under OIDs of their own, which then name key and signature alike (RFC 8410)
  const PCCRYPT_OID_INFO own = FindByOid(publicKeyOid, CRYPT_SIGN_ALG_OID_GROUP_ID);
  return own && SignatureRow(*own).key == key ? own : CFindSignatureOidInfo(key).find();
}

PCCRYPT_OID_INFO SignatureInfo(LPCSTR publicKeyOid, LPCSTR hashOid) {
  const ALG_ID key = SigningKey(publicKeyOid);
  const ALG_ID hash = key ? AlgIdOfOid(hashOid) : 0;
  return hash ? FindBySignature(hash, key) : nullptr;
}

PCCRYPT_OID_INFO PublicKeyInfoFor(LPCSTR publicKeyOid, DWORD keySpec) {
  if (keySpec != AT_KEYEXCHANGE && keySpec != AT_SIGNATURE) return nullptr;
  CFindPubKeyAlgId finder(publicKeyOid,
                          keySpec == AT_KEYEXCHANGE ? ALG_CLASS_KEY_EXCHANGE : ALG_CLASS_SIGNATURE);
  return finder.find() ? finder.info() : nullptr;
}

ALG_ID ProviderHash(HCRYPTPROV provider, LPCSTR publicKeyOid) {
  if (const ALG_ID hash = DefaultGostHash(publicKeyOid)) return hash;
  const ALG_ID key = SigningKey(publicKeyOid);
  if (publicKeyOid && !key) return 0;
  for (DWORD first = CRYPT_FIRST;; first = 0) {
    PROV_ENUMALGS entry;
    DWORD size = sizeof(entry);
    if (!CryptGetProvParam(provider, PP_ENUMALGS, reinterpret_cast<BYTE*>(&entry), &size, first)) return 0;
    if (GET_ALG_CLASS(entry.aiAlgid) != ALG_CLASS_HASH) continue;
    if (!publicKeyOid || FindBySignature(entry.aiAlgid, key)) return entry.aiAlgid;
  }
}

}  // namespace certkern
