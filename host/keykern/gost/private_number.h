// A GOST private key as programs put it into PKCS #8.
#ifndef CERTKERN_KEYKERN_GOST_PRIVATE_NUMBER_H
#define CERTKERN_KEYKERN_GOST_PRIVATE_NUMBER_H

#include "keykern/gost/curve.h"

namespace keykern::gost {

// From the content of privateKey's OCTET STRING: the number little-endian, which masks of the same length may follow;
// all that inside one more OCTET STRING; or an INTEGER. Masks are multiplied away. RFC 9548, 4
// False when it is none of these, or the number is not 0 < d < q.
bool ReadPrivateNumber(const Curve& curve, std::span<const BYTE> octets, SecretBytes& number);

}  // namespace keykern::gost

#endif
