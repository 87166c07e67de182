#include "ber/distribution_point.h"

#include "ber/general_name.h"

namespace certkern {
namespace {

constexpr BYTE kAnyForm = static_cast<BYTE>(~kConstructed);  // primitive or constructed

// distributionPoint [0] DistributionPointName OPTIONAL
// DistributionPointName ::= CHOICE { fullName [0] IMPLICIT GeneralNames, ... }
bool PointNameDecode(BerReadCursor& in, CRL_DIST_POINT_NAME& name, BerDecodeArena& arena) {
  if (!in.nextIs(Context(0), kAnyForm)) return true;
  BYTE tag;
  BerReadCursor wrapper;
  BerReadCursor names;
  if (!in.readElement(tag, wrapper) || !wrapper.nextIs(Context(0), kAnyForm)) return false;
  name.dwDistPointNameChoice = CRL_DIST_POINT_FULL_NAME;
  return wrapper.readElement(tag, names) && BerDecodeAltNames(names, name.FullName, arena);
}

bool PointNameEncode(const CRL_DIST_POINT_NAME& name, BerWriteCursor& out) {
  if (name.dwDistPointNameChoice == CRL_DIST_POINT_NO_NAME) return true;
  // the union would hold another record, which must not be read as general names
  if (name.dwDistPointNameChoice == CRL_DIST_POINT_ISSUER_RDN_NAME) return false;
  if (!name.FullName.cAltEntry) return true;
  return BerEncodeConstructed(ContextConstructed(0), out, [&](BerWriteCursor& wrapper) {
    return BerEncodeAltNames(ContextConstructed(0), name.FullName, wrapper);
  });
}

bool ReasonFlagsDecode(BerReadCursor& in, int number, CRYPT_BIT_BLOB& flags, BerDecodeArena& arena) {
  return !in.nextIs(Context(number), kAnyForm) || BerDecodeSomeBits(in, flags, arena);
}

bool ReasonFlagsEncode(int number, const CRYPT_BIT_BLOB& flags, BerWriteCursor& out) {
  return !flags.cbData || BerEncodeBits(Context(number), flags, out);
}

// DistributionPoint ::= SEQUENCE { distributionPoint [0], reasons [1], cRLIssuer [2], all OPTIONAL }
bool DistPointDecode(BerReadCursor& in, CRL_DIST_POINT& point, BerDecodeArena& arena) {
  BerReadCursor content;
  if (!BerExpect(in, kTagSequence, content) || !PointNameDecode(content, point.DistPointName, arena)
      || !ReasonFlagsDecode(content, 1, point.ReasonFlags, arena)) {
    return false;
  }
  if (!content.nextIs(Context(2), kAnyForm)) return true;
  BYTE tag;
  BerReadCursor issuer;
  return content.readElement(tag, issuer) && BerDecodeAltNames(issuer, point.CRLIssuer, arena);
}

bool DistPointEncode(const CRL_DIST_POINT& point, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return PointNameEncode(point.DistPointName, content) && ReasonFlagsEncode(1, point.ReasonFlags, content)
        && (!point.CRLIssuer.cAltEntry || BerEncodeAltNames(ContextConstructed(2), point.CRLIssuer, content));
  });
}

// [number] IMPLICIT BOOLEAN DEFAULT FALSE, one content octet
bool FlagDecode(BerReadCursor& in, int number, BOOL& flag) {
  if (!in.nextIs(Context(number), kAnyForm)) return true;
  const std::span<const BYTE> octets = in.rest();
  if (octets.size() < 3 || octets[1] != 1) return false;
  flag = octets[2] ? TRUE : FALSE;
  in.skip(3);
  return true;
}

// Only TRUE itself is written; any other value is taken for FALSE.
bool FlagEncode(int number, BOOL flag, BerWriteCursor& out) {
  return flag != TRUE || BerEncodeTrue(Context(number), out);
}

}  // namespace

bool DistPointsDecode(BerReadCursor& in, CRL_DIST_POINTS_INFO& info, BerDecodeArena& arena) {
  return BerReadSequenceOf(in, kTagSequence, info.cDistPoint, info.rgDistPoint, arena, DistPointDecode);
}

bool DistPointsEncode(const CRL_DIST_POINTS_INFO& info, BerWriteCursor& out) {
  return info.cDistPoint
      && BerEncodeListOf(kTagSequence, info.rgDistPoint, info.cDistPoint, out, DistPointEncode);
}

// IssuingDistributionPoint ::= SEQUENCE { distributionPoint [0], onlyContainsUserCerts [1], onlyContainsCACerts [2],
//                                         onlySomeReasons [3], indirectCRL [4] }
bool IssuingDistPointDecode(BerReadCursor& in, CRL_ISSUING_DIST_POINT& point, BerDecodeArena& arena) {
  BerReadCursor content;
  const bool done = BerExpect(in, kTagSequence, content)
      && PointNameDecode(content, point.DistPointName, arena)
      && FlagDecode(content, 1, point.fOnlyContainsUserCerts)
      && FlagDecode(content, 2, point.fOnlyContainsCACerts)
      && ReasonFlagsDecode(content, 3, point.OnlySomeReasonFlags, arena)
      && FlagDecode(content, 4, point.fIndirectCRL);
  return done || Fault(CRYPT_E_ASN1_EOD);
}

bool IssuingDistPointEncode(const CRL_ISSUING_DIST_POINT& point, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return PointNameEncode(point.DistPointName, content)
        && FlagEncode(1, point.fOnlyContainsUserCerts, content)
        && FlagEncode(2, point.fOnlyContainsCACerts, content)
        && ReasonFlagsEncode(3, point.OnlySomeReasonFlags, content)
        && FlagEncode(4, point.fIndirectCRL, content);
  });
}

}  // namespace certkern
