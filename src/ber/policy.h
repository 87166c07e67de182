// Constraints and policies. RFC 5280, 4.2.1.4, 4.2.1.5, 4.2.1.9 and 4.2.1.11.
#ifndef CERTKERN_BER_POLICY_H
#define CERTKERN_BER_POLICY_H

#include "ber/fields.h"

namespace certkern {

// What is missing or has another identifier only leaves CRYPT_E_ASN1_BADTAG as the last error of a call that succeeds.
[[nodiscard]] bool BasicConstraintsDecode(BerReadCursor& in, CERT_BASIC_CONSTRAINTS2_INFO& info,
                                          BerDecodeArena& arena);
[[nodiscard]] bool BasicConstraintsEncode(const CERT_BASIC_CONSTRAINTS2_INFO& info, BerWriteCursor& out);

[[nodiscard]] bool PoliciesDecode(BerReadCursor& in, CERT_POLICIES_INFO& info, BerDecodeArena& arena);
[[nodiscard]] bool PoliciesEncode(const CERT_POLICIES_INFO& info, BerWriteCursor& out);

// A notice reference is refused in both directions.
[[nodiscard]] bool UserNoticeDecode(BerReadCursor& in, CERT_POLICY_QUALIFIER_USER_NOTICE& notice,
                                    BerDecodeArena& arena);
[[nodiscard]] bool UserNoticeEncode(const CERT_POLICY_QUALIFIER_USER_NOTICE& notice, BerWriteCursor& out);

[[nodiscard]] bool PolicyMappingsDecode(BerReadCursor& in, CERT_POLICY_MAPPINGS_INFO& info,
                                        BerDecodeArena& arena);
[[nodiscard]] bool PolicyMappingsEncode(const CERT_POLICY_MAPPINGS_INFO& info, BerWriteCursor& out);

// Not written.
[[nodiscard]] bool PolicyConstraintsDecode(BerReadCursor& in, CERT_POLICY_CONSTRAINTS_INFO& info,
                                           BerDecodeArena& arena);

}  // namespace certkern

#endif
