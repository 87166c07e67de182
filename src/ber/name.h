// Distinguished names: X509_NAME, X509_UNICODE_NAME and their private kin. RFC 5280, 4.1.2.4.
#ifndef CERTKERN_BER_NAME_H
#define CERTKERN_BER_NAME_H

#include "ber/name_value.h"

namespace certkern {

[[nodiscard]] bool NameDecode(BerReadCursor& in, NameValueForm form, CERT_NAME_INFO& name,
                              BerDecodeArena& arena);

// A name without relative names is zero bytes.
enum class NameValues { AsTyped, Wide };
[[nodiscard]] bool NameEncode(const CERT_NAME_INFO& name, NameValues values, BerWriteCursor& out);

// One attribute, its value wide.
[[nodiscard]] bool WideAttributeEncode(const CERT_RDN_ATTR& attribute, BerWriteCursor& out);

}  // namespace certkern

#endif
