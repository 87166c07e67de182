// A name in text, as people write it, to its encoding.
#ifndef CERTKERN_NAMES_NAME_PARSER_H
#define CERTKERN_NAMES_NAME_PARSER_H

#include <certkern/name.h>

#include <string_view>
#include <vector>

namespace certkern {

struct ParsedName {
  std::vector<BYTE> encoded;
  // Where in the text the parser stands: behind a failure, at what is wrong.
  size_t position = 0;
};

// stringType: modifiers as in CertStrToName. False with a code: CRYPT_E_INVALID_X500_STRING, or the encoder's for a
// value that its type cannot hold.
[[nodiscard]] bool ParseName(std::wstring_view text, DWORD stringType, ParsedName& name);

// Whether a code tells of the text, so that its position is worth knowing.
bool IsTextFault(DWORD code);

}  // namespace certkern

#endif
