// Authority key identifiers in their two published records. RFC 5280, 4.2.1.1.
#ifndef CERTKERN_BER_KEY_IDENTIFIER_H
#define CERTKERN_BER_KEY_IDENTIFIER_H

#include "ber/fields.h"

namespace certkern {

// The older record: the issuer as one opaque Name.
[[nodiscard]] bool AuthorityKeyIdDecode(BerReadCursor& in, CERT_AUTHORITY_KEY_ID_INFO& info,
                                        BerDecodeArena& arena);
[[nodiscard]] bool AuthorityKeyIdEncode(const CERT_AUTHORITY_KEY_ID_INFO& info, BerWriteCursor& out);

// The newer one: the issuer as general names.
[[nodiscard]] bool AuthorityKeyId2Decode(BerReadCursor& in, CERT_AUTHORITY_KEY_ID2_INFO& info,
                                         BerDecodeArena& arena);
[[nodiscard]] bool AuthorityKeyId2Encode(const CERT_AUTHORITY_KEY_ID2_INFO& info, BerWriteCursor& out);

}  // namespace certkern

#endif
