#include "oid/algorithm_finders.h"

#include "oid/signature_row.h"

#include <cstring>

namespace certkern {

bool CFindPubKeyAlgId::find() {
  if (oid_) walk(CRYPT_PUBKEY_ALG_OID_GROUP_ID);
  return info_ != nullptr;
}

BOOL CFindPubKeyAlgId::OnEnum(PCCRYPT_OID_INFO info) {
  if (std::strcmp(info->pszOID, oid_) != 0 || GET_ALG_CLASS(info->Algid) != class_) return TRUE;
  algorithm_ = info->Algid;
  info_ = info;
  return FALSE;
}

PCCRYPT_OID_INFO CFindSignatureOidInfo::find() {
  walk(CRYPT_SIGN_ALG_OID_GROUP_ID);
  return info_;
}

BOOL CFindSignatureOidInfo::OnEnum(PCCRYPT_OID_INFO info) {
  if (SignatureRow(*info).key != key_) return TRUE;
  info_ = info;
  return FALSE;
}

}  // namespace certkern

namespace ATL2 {

LPCSTR CFindSignatureAlgPubKeyEnum::find(LPCSTR publicKeyOid) {
  wanted_ = publicKeyOid;
  signature_ = nullptr;
  CPublicKeyAlgorithmOidEnum::Enum();
  return signature_;
}

BOOL CFindSignatureAlgPubKeyEnum::OnInfo(LPCSTR oid, LPCWSTR /*name*/, ALG_ID algorithm) {
  if (std::strcmp(oid, wanted_) != 0) return TRUE;
  key_ = algorithm;
  return CSignatureAlgorithmOidEnum::Enum();
}

BOOL CFindSignatureAlgPubKeyEnum::OnInfo(LPCSTR oid, LPCWSTR /*name*/, ALG_ID /*hash*/, DWORD key,
                                         DWORD /*flags*/, DWORD /*providerType*/) {
  if (key != key_) return TRUE;
  signature_ = oid;
  return FALSE;
}

LPCSTR CFindSignatureAlgorithmEnum::find(LPCSTR hashOid) {
  wanted_ = hashOid;
  signature_ = nullptr;
  CHashAlgorithmOidEnum::Enum();
  return signature_;
}

BOOL CFindSignatureAlgorithmEnum::OnInfo(LPCSTR oid, LPCWSTR /*name*/, ALG_ID algorithm) {
  if (std::strcmp(oid, wanted_) != 0) return TRUE;
  hash_ = algorithm;
  return CSignatureAlgorithmOidEnum::Enum();
}

BOOL CFindSignatureAlgorithmEnum::OnInfo(LPCSTR oid, LPCWSTR /*name*/, ALG_ID hash, DWORD /*key*/,
                                         DWORD /*flags*/, DWORD /*providerType*/) {
  if (hash != hash_) return TRUE;
  signature_ = oid;
  return FALSE;
}

}  // namespace ATL2
