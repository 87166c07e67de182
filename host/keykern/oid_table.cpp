// Look-ups in the OID table.
#include "keykern/oid_rows.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstring>

namespace keykern {
namespace {

bool InGroup(const CRYPT_OID_INFO& row, DWORD group) { return !group || row.dwGroupId == group; }

template <typename Fits>
PCCRYPT_OID_INFO FirstRow(DWORD group, const Fits& fits) {
  for (const CRYPT_OID_INFO& row : OidRows()) {
    if (InGroup(row, group) && fits(row)) return &row;
  }
  return nullptr;
}

PCCRYPT_OID_INFO FindOid(LPCSTR oid, DWORD group) {
  const std::span<const CRYPT_OID_INFO> rows = OidRows();
  const std::span<const uint16_t> order = OidRowsByOid();
  auto place = std::lower_bound(order.begin(), order.end(), oid, [&](uint16_t row, LPCSTR wanted) {
    return std::strcmp(rows[row].pszOID, wanted) < 0;
  });
  for (; place != order.end() && std::strcmp(rows[*place].pszOID, oid) == 0; ++place) {
    if (InGroup(rows[*place], group)) return &rows[*place];
  }
  return nullptr;
}

// The names are ASCII, and so is the rule: what a locale takes for the small form of a letter must not decide which
// attribute a text names.
wchar_t Small(wchar_t letter) { return letter >= L'A' && letter <= L'Z' ? letter + (L'a' - L'A') : letter; }

bool SameName(LPCWSTR a, LPCWSTR b) {
  for (; *a && Small(*a) == Small(*b); ++a, ++b) {
  }
  return *a == *b;
}

bool HasAlgorithm(const CRYPT_OID_INFO& row, ALG_ID algorithm) { return algorithm && row.Algid == algorithm; }

// A signature row by its hash and the public key's ALG_ID, the first word of its extra information.
bool HasSignature(const CRYPT_OID_INFO& row, const ALG_ID (&pair)[2]) {
  if (row.dwGroupId != CRYPT_SIGN_ALG_OID_GROUP_ID || !HasAlgorithm(row, pair[0])) return false;
  ALG_ID key;
  std::memcpy(&key, row.ExtraInfo.pbData, sizeof(key));
  return key == pair[1];
}

}  // namespace
}  // namespace keykern

using namespace keykern;  // NOLINT(google-build-using-namespace): the rest of this file is the exported surface

extern "C" {

PCCRYPT_OID_INFO CryptFindOIDInfo(DWORD dwKeyType, void* pvKey, DWORD dwGroupId) {
  const DWORD group = dwGroupId & CRYPT_OID_INFO_GROUP_MASK;
  if (!pvKey) return nullptr;
  switch (dwKeyType) {
    case CRYPT_OID_INFO_OID_KEY:
      return FindOid(static_cast<LPCSTR>(pvKey), group);
    case CRYPT_OID_INFO_NAME_KEY:
      return FirstRow(group, [name = static_cast<LPCWSTR>(pvKey)](const CRYPT_OID_INFO& row) {
        return SameName(row.pwszName, name);
      });
    case CRYPT_OID_INFO_ALGID_KEY: {
      ALG_ID algorithm;
      std::memcpy(&algorithm, pvKey, sizeof(algorithm));
      return FirstRow(group, [algorithm](const CRYPT_OID_INFO& row) { return HasAlgorithm(row, algorithm); });
    }
    case CRYPT_OID_INFO_SIGN_KEY: {
      ALG_ID pair[2];
      std::memcpy(pair, pvKey, sizeof(pair));
      return FirstRow(group, [&pair](const CRYPT_OID_INFO& row) { return HasSignature(row, pair); });
    }
    default:
      return nullptr;
  }
}

BOOL CryptEnumOIDInfo(DWORD dwGroupId, DWORD dwFlags, void* pvArg, PFN_CRYPT_ENUM_OID_INFO pfnEnumOIDInfo) {
  if (!pfnEnumOIDInfo || dwFlags) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  const DWORD group = dwGroupId & CRYPT_OID_INFO_GROUP_MASK;
  for (const CRYPT_OID_INFO& row : OidRows()) {
    if (InGroup(row, group) && !pfnEnumOIDInfo(&row, pvArg)) return FALSE;
  }
  return TRUE;
}

}  // extern "C"
