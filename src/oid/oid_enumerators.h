// Walks over the groups of the OID table. A walk calls OnInfo with the fields of each row, in the order of the table,
// until it answers FALSE. OnInfo is called through C code and must not throw.
#ifndef CERTKERN_OID_OID_ENUMERATORS_H
#define CERTKERN_OID_OID_ENUMERATORS_H

#include <certkern/keykern.h>

namespace ATL2 {

class COidInfoEnum {
 public:
  COidInfoEnum(const COidInfoEnum&) = delete;
  COidInfoEnum& operator=(const COidInfoEnum&) = delete;

 protected:
  COidInfoEnum() = default;
  ~COidInfoEnum() = default;
  // TRUE when every row of the group was shown.
  BOOL walk(DWORD group);
  virtual BOOL OnEnum(PCCRYPT_OID_INFO info) = 0;
};

// Rows whose extra information is of no use to the walker.
template <DWORD kGroup>
class PlainOidEnum : public COidInfoEnum {
 public:
  BOOL Enum() { return walk(kGroup); }

 protected:
  ~PlainOidEnum() = default;
  BOOL OnEnum(PCCRYPT_OID_INFO info) override { return OnInfo(info->pszOID, info->pwszName, info->Algid); }
  virtual BOOL OnInfo(LPCSTR oid, LPCWSTR name, ALG_ID algorithm) = 0;
};

using CHashAlgorithmOidEnum = PlainOidEnum<CRYPT_HASH_ALG_OID_GROUP_ID>;
using CEncryptionAlgorithmOidEnum = PlainOidEnum<CRYPT_ENCRYPT_ALG_OID_GROUP_ID>;
using CPublicKeyAlgorithmOidEnum = PlainOidEnum<CRYPT_PUBKEY_ALG_OID_GROUP_ID>;
using CExtensionOrAttributeOidEnum = PlainOidEnum<CRYPT_EXT_OR_ATTR_OID_GROUP_ID>;
using CEnhancedKeyUsageOidEnum = PlainOidEnum<CRYPT_ENHKEY_USAGE_OID_GROUP_ID>;
using CPolicyOidEnum = PlainOidEnum<CRYPT_POLICY_OID_GROUP_ID>;
using CTemplateOidEnum = PlainOidEnum<CRYPT_TEMPLATE_OID_GROUP_ID>;

// Signatures: the ALG_ID is the hash; the words are the public key's ALG_ID, the flags and the provider type, 0 where
// the row has fewer.
class CSignatureAlgorithmOidEnum : public COidInfoEnum {
 public:
  BOOL Enum() { return walk(CRYPT_SIGN_ALG_OID_GROUP_ID); }

 protected:
  ~CSignatureAlgorithmOidEnum() = default;
  BOOL OnEnum(PCCRYPT_OID_INFO info) override;
  virtual BOOL OnInfo(LPCSTR oid, LPCWSTR name, ALG_ID hash, DWORD key, DWORD flags, DWORD providerType) = 0;
};

// Name attributes: the value types that the row lists, best first, without the zero that ends them; 0 and null where
// there is only that zero, or nothing.
class CRdnAttributeOidEnum : public COidInfoEnum {
 public:
  BOOL Enum() { return walk(CRYPT_RDN_ATTR_OID_GROUP_ID); }

 protected:
  ~CRdnAttributeOidEnum() = default;
  BOOL OnEnum(PCCRYPT_OID_INFO info) override;
  virtual BOOL OnInfo(LPCSTR oid, LPCWSTR name, ALG_ID value, DWORD count, const DWORD* types) = 0;
};

}  // namespace ATL2

#endif
