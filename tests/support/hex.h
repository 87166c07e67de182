// Bytes to and from the hexadecimal that tests are written in; blanks are skipped.
#ifndef CERTKERN_TESTS_SUPPORT_HEX_H
#define CERTKERN_TESTS_SUPPORT_HEX_H

#include <certkern/types.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

std::vector<BYTE> FromHex(std::string_view text);
std::string ToHex(std::span<const BYTE> bytes);

#endif
