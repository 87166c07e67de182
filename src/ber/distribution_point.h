// CRL distribution points and the issuing distribution point. RFC 5280, 4.2.1.13 and 5.2.5.
#ifndef CERTKERN_BER_DISTRIBUTION_POINT_H
#define CERTKERN_BER_DISTRIBUTION_POINT_H

#include "ber/fields.h"

namespace certkern {

// A name relative to the issuer is neither written nor read. A list of none is not written.
[[nodiscard]] bool DistPointsDecode(BerReadCursor& in, CRL_DIST_POINTS_INFO& info, BerDecodeArena& arena);
[[nodiscard]] bool DistPointsEncode(const CRL_DIST_POINTS_INFO& info, BerWriteCursor& out);

// Whatever goes wrong on reading is CRYPT_E_ASN1_EOD.
[[nodiscard]] bool IssuingDistPointDecode(BerReadCursor& in, CRL_ISSUING_DIST_POINT& point,
                                          BerDecodeArena& arena);
[[nodiscard]] bool IssuingDistPointEncode(const CRL_ISSUING_DIST_POINT& point, BerWriteCursor& out);

}  // namespace certkern

#endif
