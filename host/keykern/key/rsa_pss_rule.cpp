#include "keykern/key/rsa_pss_rule.h"

#include "common/der.h"

#include <string_view>

namespace keykern {
namespace {

using certkern::der::Algorithm;
using certkern::der::ContextConstructed;
using certkern::der::Reader;
using certkern::der::TakeAlgorithm;

constexpr std::string_view kMgf1 = "1.2.840.113549.1.1.8";
constexpr DWORD kDefaultSalt = 20;

struct HashOid {
  std::string_view oid;
  ALG_ID hash;
};
constexpr HashOid kHashOids[] = {
    {"1.3.14.3.2.26",          CALG_SHA1   },
    {"2.16.840.1.101.3.4.2.1", CALG_SHA_256},
    {"2.16.840.1.101.3.4.2.2", CALG_SHA_384},
    {"2.16.840.1.101.3.4.2.3", CALG_SHA_512},
};

bool TakeHash(Reader& in, ALG_ID& hash) {
  Algorithm algorithm;
  if (!TakeAlgorithm(in, algorithm)) return false;
  for (const HashOid& row : kHashOids) {
    if (row.oid == algorithm.oid) {
      hash = row.hash;
      return true;
    }
  }
  return false;
}

bool TakeMaskGeneration(Reader& in, ALG_ID& hash) {
  Algorithm algorithm;
  if (!TakeAlgorithm(in, algorithm) || algorithm.oid != kMgf1) return false;
  Reader parameters(algorithm.parameters);
  return TakeHash(parameters, hash) && parameters.empty();
}

}  // namespace

// RSASSA-PSS-params ::= SEQUENCE {
//   hashAlgorithm    [0] HashAlgorithm    DEFAULT sha1,
//   maskGenAlgorithm [1] MaskGenAlgorithm DEFAULT mgf1SHA1,
//   saltLength       [2] INTEGER          DEFAULT 20,
//   trailerField     [3] INTEGER          DEFAULT 1 }
bool ReadRsaPssRule(std::span<const BYTE> parameters, RsaPssRule& rule) {
  rule = {};
  if (parameters.empty()) return true;
  rule = {CALG_SHA1, kDefaultSalt};
  ALG_ID maskHash = CALG_SHA1;
  uint32_t trailer = 1;
  Reader in(parameters), body, field;
  if (!in.take(certkern::der::kSequence, body) || !in.empty()) return false;
  if (body.take(ContextConstructed(0), field) && (!TakeHash(field, rule.hash) || !field.empty()))
    return false;
  if (body.take(ContextConstructed(1), field) && (!TakeMaskGeneration(field, maskHash) || !field.empty())) {
    return false;
  }
  if (body.take(ContextConstructed(2), field) && (!field.takeSmall(rule.minimumSalt) || !field.empty())) {
    return false;
  }
  if (body.take(ContextConstructed(3), field) && (!field.takeSmall(trailer) || !field.empty())) return false;
  return body.empty() && maskHash == rule.hash && trailer == 1;
}

}  // namespace keykern
