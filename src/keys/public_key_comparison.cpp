#include "keys/public_key_comparison.h"

#include <certkern/errors.h>
#include <certkern/oids.h>

#include <algorithm>
#include <cstring>

#include "ber/fields.h"
#include "ber/oid_text.h"
#include "platform/owner.h"
#include "platform/supkern.h"

namespace certkern {
namespace {

bool SameBytes(std::span<const BYTE> a, std::span<const BYTE> b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

bool SameBits(const CRYPT_BIT_BLOB& a, const CRYPT_BIT_BLOB& b) {
  std::span<const BYTE> bytesA, bytesB;
  return a.cUnusedBits == b.cUnusedBits && BlobBytes({a.cbData, a.pbData}, bytesA)
      && BlobBytes({b.cbData, b.pbData}, bytesB) && SameBytes(bytesA, bytesB);
}

// Read once: a key must not change its equals while the process runs.
bool ParameterSetAloneCounts() {
  static const bool counts = [] {
    const LastErrorKeeper keeper;
    int64_t disabled = 0;
    static_cast<void>(
        support_registry_get_long("\\config\\parameters\\DisableXnCertComparePublicKeyInfo", &disabled));
    return disabled == 0;
  }();
  return counts;
}

bool IsGost2012(LPCSTR oid) {
  return std::strcmp(oid, szOID_GOST_R3410_2012_256) == 0 || std::strcmp(oid, szOID_GOST_R3410_2012_512) == 0;
}

bool ReadOid(BerReadCursor& in, std::span<const BYTE>& oid) {
  BerReadCursor content;
  size_t textSize;
  if (!BerExpect(in, kTagOid, content) || !BerDecodeOid(content.rest(), nullptr, textSize)) return false;
  oid = content.rest();
  return true;
}

// GostR3410-2012-PublicKeyParameters ::= SEQUENCE { publicKeyParamSet OBJECT IDENTIFIER, digestParamSet OBJECT
// IDENTIFIER OPTIONAL }, and before RFC 9215 also encryptionParamSet OBJECT IDENTIFIER OPTIONAL
bool ReadParameterSet(std::span<const BYTE> encoded, std::span<const BYTE>& set) {
  BerReadCursor in(encoded), content;
  if (!BerExpect(in, kTagSequence, content) || !in.empty() || !ReadOid(content, set)) return false;
  std::span<const BYTE> unused;
  for (int optional = 0; optional < 2 && !content.empty(); ++optional) {
    if (!ReadOid(content, unused)) return false;
  }
  return content.empty();
}

bool SameParameterSet(std::span<const BYTE> a, std::span<const BYTE> b) {
  std::span<const BYTE> setA, setB;
  if (!ReadParameterSet(a, setA) || !ReadParameterSet(b, setB)) return Fault(CRYPT_E_ASN1_INTERNAL);
  return SameBytes(setA, setB);
}

}  // namespace

bool SamePublicKey(const CERT_PUBLIC_KEY_INFO* a, const CERT_PUBLIC_KEY_INFO* b) {
  if (!a || !b || !a->Algorithm.pszObjId || !b->Algorithm.pszObjId) return false;
  if (std::strcmp(a->Algorithm.pszObjId, b->Algorithm.pszObjId) != 0) return false;
  if (!SameBits(a->PublicKey, b->PublicKey)) return false;
  std::span<const BYTE> parametersA, parametersB;
  if (!BlobBytes(a->Algorithm.Parameters, parametersA) || !BlobBytes(b->Algorithm.Parameters, parametersB))
    return false;
  if (SameBytes(parametersA, parametersB)) return true;
  return IsGost2012(a->Algorithm.pszObjId) && ParameterSetAloneCounts()
      && SameParameterSet(parametersA, parametersB);
}

}  // namespace certkern
