// The arithmetic of GOST R 34.10 behind one narrow interface, so that a faster one can take its place: all that the
// rest of the library knows of these curves is here.
//
// Numbers and coordinates are little-endian strings of size() bytes, as RFC 9215 and RFC 7836 write them.
#ifndef CERTKERN_KEYKERN_GOST_CURVE_H
#define CERTKERN_KEYKERN_GOST_CURVE_H

#include "common/secret_bytes.h"

#include <certkern/types.h>

#include <memory>
#include <span>
#include <string_view>

namespace keykern::gost {

using certkern::SecretBytes;

// One of the nine curves, made once and never given back.
class Curve;

struct ParameterSet {
  std::string_view oid;
  DWORD bits;  // 256 or 512
  int curve;   // nine curves serve fifteen sets
};
// Null when there is no such set.
const ParameterSet* FindParameterSet(std::string_view oid);
// The sets, in the order of their OIDs.
std::span<const ParameterSet> ParameterSets();

// Null when the library below fails.
const Curve* CurveOf(const ParameterSet& set);
// Bytes of a number: 32 or 64.
size_t SizeOf(const Curve& curve);

// Is 0 < d < q?
bool IsPrivate(const Curve& curve, std::span<const BYTE> number);
bool RandomPrivate(const Curve& curve, SecretBytes& number);
// x | y of dP
bool PublicOf(const Curve& curve, std::span<const BYTE> number, SecretBytes& point);
// On the curve, not infinity, in the subgroup.
bool IsPublic(const Curve& curve, std::span<const BYTE> point);

// The signature is s big-endian, then r big-endian, as X.509 has it. hash: size() bytes, as the hash function gives it.
bool Sign(const Curve& curve, std::span<const BYTE> number, std::span<const BYTE> hash,
          SecretBytes& signature);
// The same with a given k: for the published examples.
bool SignWith(const Curve& curve, std::span<const BYTE> number, std::span<const BYTE> hash,
              std::span<const BYTE> k, SecretBytes& signature);
bool Verify(const Curve& curve, std::span<const BYTE> point, std::span<const BYTE> hash,
            std::span<const BYTE> signature);

// a b mod q: a private key times its mask.
bool MultiplyNumbers(const Curve& curve, std::span<const BYTE> a, std::span<const BYTE> b,
                     SecretBytes& product);

// x | y of (h ukm d mod q) Q: the point of VKO before it is hashed. RFC 7836, 4.3. The ukm is a little-endian number
// that is not 0. False also when the point is infinity.
bool SharedPoint(const Curve& curve, std::span<const BYTE> number, std::span<const BYTE> ukm,
                 std::span<const BYTE> point, SecretBytes& shared);

}  // namespace keykern::gost

#endif
