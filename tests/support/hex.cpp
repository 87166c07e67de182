#include "support/hex.h"

#include <gtest/gtest.h>

#include <cctype>

std::vector<BYTE> FromHex(std::string_view text) {
  std::vector<BYTE> bytes;
  int high = -1;
  for (const char c : text) {
    if (std::isspace(static_cast<unsigned char>(c))) continue;
    if (!std::isxdigit(static_cast<unsigned char>(c))) {
      ADD_FAILURE() << "not hexadecimal: " << text;
      return {};
    }
    const int digit = std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : (c | 0x20) - 'a' + 10;
    if (high < 0) {
      high = digit;
    } else {
      bytes.push_back(static_cast<BYTE>(high << 4 | digit));
      high = -1;
    }
  }
  if (high >= 0) ADD_FAILURE() << "odd number of digits: " << text;
  return bytes;
}

std::string ToHex(std::span<const BYTE> bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const BYTE byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}
