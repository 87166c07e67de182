#include "oid/oid_enumerators.h"

#include "oid/signature_row.h"

namespace ATL2 {

BOOL COidInfoEnum::walk(DWORD group) {
  return CryptEnumOIDInfo(group, 0, this, [](PCCRYPT_OID_INFO info, void* self) -> BOOL {
    return static_cast<COidInfoEnum*>(self)->OnEnum(info);
  });
}

BOOL CSignatureAlgorithmOidEnum::OnEnum(PCCRYPT_OID_INFO info) {
  const certkern::SignatureRow row(*info);
  return OnInfo(info->pszOID, info->pwszName, row.hash, row.key, row.flags, row.providerType);
}

BOOL CRdnAttributeOidEnum::OnEnum(PCCRYPT_OID_INFO info) {
  DWORD count = info->ExtraInfo.cbData / sizeof(DWORD);
  // a table's words are words, whatever the blob calls them
  const auto* types = static_cast<const DWORD*>(static_cast<const void*>(info->ExtraInfo.pbData));
  if (count <= 1) return OnInfo(info->pszOID, info->pwszName, info->Algid, 0, nullptr);
  if (!types[count - 1]) --count;
  return OnInfo(info->pszOID, info->pwszName, info->Algid, count, types);
}

}  // namespace ATL2
