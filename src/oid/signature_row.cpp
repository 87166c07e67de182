#include "oid/signature_row.h"

#include <cstring>

namespace certkern {
namespace {

// A table of another make need not align its words.
DWORD ExtraWord(const CRYPT_OID_INFO& info, size_t index) {
  DWORD word = 0;
  if (info.ExtraInfo.cbData / sizeof(word) > index)
    std::memcpy(&word, info.ExtraInfo.pbData + index * sizeof(word), sizeof(word));
  return word;
}

// The low four bits of the group are its number, and only signatures name a provider type in their third word.
bool IsSignature(const CRYPT_OID_INFO& info) { return (info.dwGroupId & 0xF) == CRYPT_SIGN_ALG_OID_GROUP_ID; }

}  // namespace

SignatureRow::SignatureRow(const CRYPT_OID_INFO& info)
    : hash(info.Algid),
      key(ExtraWord(info, 0)),
      flags(ExtraWord(info, 1)),
      providerType(IsSignature(info) ? ExtraWord(info, 2) : 0) {}

PCCRYPT_OID_INFO FindByOid(LPCSTR oid, DWORD group) {
  return CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, const_cast<char*>(oid), group);
}

std::optional<SignatureRow> FindSignatureRow(LPCSTR oid) {
  const PCCRYPT_OID_INFO info = FindByOid(oid, CRYPT_SIGN_ALG_OID_GROUP_ID);
  if (!info) return std::nullopt;
  return SignatureRow(*info);
}

}  // namespace certkern
