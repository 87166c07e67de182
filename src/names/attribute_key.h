// What stands before the equals sign: which attribute it names, and of what type the value is.
#ifndef CERTKERN_NAMES_ATTRIBUTE_KEY_H
#define CERTKERN_NAMES_ATTRIBUTE_KEY_H

#include <certkern/types.h>

#include <string>
#include <string_view>

namespace certkern {

struct AttributeKey {
  std::string oid;
  DWORD valueType = 0;
};

// A dotted identifier, with or without "OID." before it, or a name of the OID table. False, without a code, for a key
// that is neither. The shape of an identifier is left to the encoder.
[[nodiscard]] bool ResolveKey(std::wstring_view text, AttributeKey& key);

}  // namespace certkern

#endif
