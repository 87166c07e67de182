// The string of a name attribute with its type. X.520; RFC 5280, 4.1.2.4.
#ifndef CERTKERN_BER_NAME_VALUE_H
#define CERTKERN_BER_NAME_VALUE_H

#include "ber/fields.h"

namespace certkern {

// How a value is read into the record.
enum class NameValueForm {
  Strict,   // bytes or wide text as the type has it; the old 8-bit types only empty, numbers only of digits
  Lenient,  // the same without these two tests, for display
  Wide,     // every text type as wide text
};

// One value by its identifier; an absent element leaves a zero record.
[[nodiscard]] bool NameValueDecode(BerReadCursor& in, NameValueForm form, CERT_NAME_VALUE& value,
                                   BerDecodeArena& arena);
// Wide text with a NUL in all cases; OCTET STRING is no text.
[[nodiscard]] bool DisplayTextDecode(BerReadCursor& in, LPWSTR& text, BerDecodeArena& arena);

// A value as it stands in the record, under the identifier of its type. X509_NAME_VALUE.
[[nodiscard]] bool NameValueEncode(const CERT_NAME_VALUE& value, BerWriteCursor& out);
// The same inside a name, where a type that does not exist is a failure without a code.
[[nodiscard]] bool AttributeValueEncode(const CERT_NAME_VALUE& value, BerWriteCursor& out);

enum class OctetStringType { Refused, Allowed };
// A value that is wide text whatever its type. X509_UNICODE_NAME_VALUE, and inside names with OCTET STRING allowed.
[[nodiscard]] bool WideNameValueEncode(const CERT_NAME_VALUE& value, OctetStringType octets,
                                       BerWriteCursor& out);

}  // namespace certkern

#endif
