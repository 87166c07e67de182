#include "names/attribute_key.h"

#include <certkern/encode.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstring>

namespace certkern {
namespace {

constexpr std::wstring_view kOidPrefix = L"OID.";

bool IsDotted(std::wstring_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](wchar_t c) { return (c >= L'0' && c <= L'9') || c == L'.'; });
}

// The first of the types that fit; a list of them has at least a zero behind it.
DWORD ValueTypeOf(const CRYPT_OID_INFO& row) {
  DWORD type = CERT_RDN_UTF8_STRING;
  if (row.ExtraInfo.cbData >= 2 * sizeof(type)) std::memcpy(&type, row.ExtraInfo.pbData, sizeof(type));
  return type;
}

PCCRYPT_OID_INFO FindRow(DWORD keyType, const void* key) {
  // the look-up takes a writable key and only reads it
  return CryptFindOIDInfo(keyType, const_cast<void*>(key), CRYPT_RDN_ATTR_OID_GROUP_ID);
}

void ResolveDotted(std::wstring_view digits, AttributeKey& key) {
  key.oid.clear();
  for (const wchar_t digit : digits) key.oid += static_cast<char>(digit);
  const PCCRYPT_OID_INFO row = FindRow(CRYPT_OID_INFO_OID_KEY, key.oid.c_str());
  key.valueType = row ? ValueTypeOf(*row) : DWORD{CERT_RDN_PRINTABLE_STRING};
}

}  // namespace

bool ResolveKey(std::wstring_view text, AttributeKey& key) {
  const bool prefixed = text.size() > kOidPrefix.size() && text.starts_with(kOidPrefix);
  const std::wstring_view digits = prefixed ? text.substr(kOidPrefix.size()) : text;
  if (IsDotted(digits)) {
    ResolveDotted(digits, key);
    return true;
  }
  if (prefixed) return false;
  const PCCRYPT_OID_INFO row = FindRow(CRYPT_OID_INFO_NAME_KEY, std::wstring(text).c_str());
  if (!row) return false;
  key.oid = row->pszOID;
  key.valueType = ValueTypeOf(*row);
  return true;
}

}  // namespace certkern
