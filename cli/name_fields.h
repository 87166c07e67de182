// Distinguished names and general names as fields.
#ifndef CERTKERN_CLI_NAME_FIELDS_H
#define CERTKERN_CLI_NAME_FIELDS_H

#include "field.h"

#include <certkern/encode.h>

#include <span>

namespace certkern::cli {

// A whole encoded Name, by RFC 4514: the last relative name first, "+" inside a relative name. A name that
// does not decode is shown as its bytes, with a remark.
Field NameField(std::string_view label, std::span<const BYTE> encoded);

Field AltNameField(const CERT_ALT_NAME_ENTRY& entry);
void AddAltNames(Field& parent, std::string_view label, const CERT_ALT_NAME_INFO& names);

// A wide text that ends with a NUL; null is empty.
Value WideText(LPCWSTR text);

// One encoded string of any type as text, or its bytes when it is none.
Value StringOrBytes(std::span<const BYTE> encoded);

}  // namespace certkern::cli

#endif
