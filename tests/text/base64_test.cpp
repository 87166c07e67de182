// The Base64 core. Expected texts come from RFC 4648, section 10, from "openssl base64" and from coreutils' base64.
#include "text/base64.h"

#include <certkern/encode.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "support/hex.h"
#include "text/pem.h"

using namespace certkern;

namespace {

using Bytes = std::vector<BYTE>;

Bytes CountingBytes(size_t count) {
  Bytes bytes(count);
  std::iota(bytes.begin(), bytes.end(), BYTE{0});
  return bytes;
}

// openssl base64, of the bytes 0 to 99
constexpr char kCountingLines[] =
    "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4v\n"
    "MDEyMzQ1Njc4OTo7PD0+P0BBQkNERUZHSElKS0xNTk9QUVJTVFVWV1hZWltcXV5f\n"
    "YGFiYw==\n";

// Both calls, the second with exactly the room that the first asked for; the text is put on the heap without a NUL.
bool Decode(std::string_view text, Bytes& bytes) {
  const std::vector<char> exact(text.begin(), text.end());
  const char* characters = exact.empty() ? "" : exact.data();
  const auto length = static_cast<DWORD>(exact.size());
  DWORD size = 77;
  SetLastError(0);
  const bool measured = Base64Decode(characters, length, nullptr, &size);
  bytes.assign(size, 0xEE);
  DWORD count = size;
  BYTE none = 0;
  EXPECT_EQ(Base64Decode(characters, length, bytes.empty() ? &none : bytes.data(), &count), measured);
  EXPECT_EQ(count, size);
  EXPECT_EQ(GetLastError(), measured ? 0 : CRYPT_E_BAD_ENCODE);
  return measured;
}

bool Encode(const Bytes& bytes, DWORD flags, std::string& text) {
  const BYTE none = 0;
  const BYTE* data = bytes.empty() ? &none : bytes.data();
  DWORD size = 0;
  if (!Base64Encode(data, static_cast<DWORD>(bytes.size()), nullptr, &size, flags)) return false;
  text.assign(size, '?');
  if (!Base64Encode(data, static_cast<DWORD>(bytes.size()), text.data(), &size, flags)) return false;
  text.resize(size);
  return true;
}

TEST(Base64, Rfc4648Vectors) {
  const struct {
    const char* bytes;
    const char* text;
  } kVectors[] = {
      {"",       ""        },
      {"f",      "Zg=="    },
      {"fo",     "Zm8="    },
      {"foo",    "Zm9v"    },
      {"foob",   "Zm9vYg=="},
      {"fooba",  "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
  };
  for (const auto& [plain, expected] : kVectors) {
    SCOPED_TRACE(plain);
    const Bytes bytes(plain, plain + std::string_view(plain).size());
    std::string text;
    ASSERT_TRUE(Encode(bytes, CRYPT_STRING_NOCRLF, text));
    EXPECT_EQ(text, expected);
    Bytes decoded;
    ASSERT_TRUE(Decode(expected, decoded));
    EXPECT_EQ(decoded, bytes);
  }
}

TEST(Base64, LinesAreThoseOfOtherPrograms) {
  std::string text;
  ASSERT_TRUE(Encode(CountingBytes(100), 0, text));
  EXPECT_EQ(text, kCountingLines);
  // coreutils breaks lines after 76 characters; mail adds carriage returns
  Bytes bytes;
  ASSERT_TRUE(
      Decode("AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4\r\n"
             "OTo7PD0+P0BBQkNERUZHSElKS0xNTk9QUVJTVFVWV1hZWltcXV5fYGFiYw==\r\n",
             bytes));
  EXPECT_EQ(bytes, CountingBytes(100));
}

TEST(Base64, SizeAskedForAndTextWritten) {
  const struct {
    DWORD length, flags, bound, text;
  } kSizes[] = {
      {48,  0,                   65,  65 },
      {49,  0,                   70,  70 },
      {100, 0,                   139, 139},
      {48,  CRYPT_STRING_NOCRLF, 65,  64 },
      {49,  CRYPT_STRING_NOCRLF, 69,  68 },
      {100, CRYPT_STRING_NOCRLF, 138, 136},
  };
  for (const auto& [length, flags, bound, textLength] : kSizes) {
    SCOPED_TRACE(std::to_string(length) + " bytes, flags " + std::to_string(flags));
    const Bytes bytes = CountingBytes(length);
    DWORD count = 0;
    SetLastError(77);
    ASSERT_TRUE(Base64Encode(bytes.data(), length, nullptr, &count, flags));
    EXPECT_EQ(count, bound);
    EXPECT_EQ(GetLastError(), 0u);
    std::vector<char> text(bound);
    count = bound - 1;
    EXPECT_FALSE(Base64Encode(bytes.data(), length, text.data(), &count, flags));
    EXPECT_EQ(count, bound);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
    ASSERT_TRUE(Base64Encode(bytes.data(), length, text.data(), &count, flags));
    EXPECT_EQ(count, textLength);
  }
}

TEST(Base64, Texts) {
  const std::string padded64 = std::string(62, 'A') + "==";
  const std::string zeros46(46 * 2, '0');
  const struct {
    const char* name;
    std::string text;
    bool ok;
    std::string hex;
  } kTexts[] = {
      {"two bytes",                              "AQI=",                   true,  "0102"            },
      {"one byte",                               "AQ==",                   true,  "01"              },
      {"three padding characters",               "A===",                   false, ""                },
      {"a whole quad of padding",                "====",                   false, ""                },
      {"four padding characters behind a quad",  "AQID====",               false, ""                },
      {"one padding character too many",         "AQI==",                  false, ""                },
      {"padding inside a quad",                  "AQ=D",                   false, ""                },
      {"digits behind padding",                  "AQ==AQID",               false, ""                },
      {"padding left out",                       "AQI",                    false, ""                },
      {"fewer than four",                        "AQ",                     false, ""                },
      {"unused bits are not looked at",          "AR==",                   true,  "01"              },
      {"nothing",                                "",                       true,  ""                },
      {"only white space",                       " \t\r\n",                true,  ""                },
      {"white space inside a quad",              "\tA\r\nQ I\n\nD ",       true,  "010203"          },
      {"white space between padding",            "AQ=\n=\n",               true,  "01"              },
      {"a form feed is no white space",          "AQID\f",                 false, ""                },
      {"a NUL that was counted in",              {"AQID\0", 5},            false, ""                },
      {"a banner ends the text",                 "AQID\n-----END X-----",  true,  "010203"          },
      {"whatever stands behind the end",         "AQ==-?\f\xFF===",        true,  "01"              },
      {"the end inside a quad",                  "AQ-ID",                  false, ""                },
      {"only an end",                            "-AQID",                  true,  ""                },
      {"parity bits",                            "\xC1\xD1\xC9\xC4\x8A",   true,  "010203"          },
      {"padding has no parity bit",              "AQI\xBD",                false, ""                },
      {"a padded group of 64, and another",      padded64 + "AQID",        true,  zeros46 + "010203"},
      {"the same in lines",                      padded64 + "\nAQI=\n",    true,  zeros46 + "0102"  },
      {"padding where no group of 64 ends",      "AAAA" + padded64 + "AA", false, ""                },
      {"padding at the start of a second group", padded64 + "====",        false, ""                },
  };
  for (const auto& [name, text, ok, hex] : kTexts) {
    SCOPED_TRACE(name);
    Bytes bytes;
    ASSERT_EQ(Decode(text, bytes), ok);
    EXPECT_EQ(ToHex(bytes), hex);
  }
}

// The same character must be judged alike wherever it stands: whole vectors, whole quads and single characters are
// read by different code.
TEST(Base64, EveryCharacterAtEveryPlace) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text(152, 'A');
  for (size_t place = 0; place < text.size(); ++place) {
    for (int value = 0; value < 256; ++value) {
      const char seven = static_cast<char>(value & 0x7F);
      const bool digit = kDigits.find(seven) != kDigits.npos;
      const bool end = seven == '-' && place % 4 == 0;
      const bool padding = value == '=' && (place + 1 == text.size() || place % 64 == 63);
      text[place] = static_cast<char>(value);
      SCOPED_TRACE(std::to_string(value) + " at " + std::to_string(place));
      Bytes bytes;
      ASSERT_EQ(Decode(text, bytes), digit || end || padding);
      if (digit) {  // its six bits, and nothing but zeros around them
        Bytes expected(114, 0);
        const size_t bits = kDigits.find(seven) << (18 - place % 4 * 6);
        for (size_t i = 0; i < 3; ++i) expected[place / 4 * 3 + i] = static_cast<BYTE>(bits >> (16 - 8 * i));
        ASSERT_EQ(bytes, expected);
      }
      text[place] = 'A';
    }
  }
}

TEST(Base64, ArgumentsAndRoom) {
  const BYTE data[] = {1, 2, 3};
  BYTE bytes[3] = {9, 9, 9};
  char text[128];
  DWORD count = sizeof text;
  PemBanners wrongSize = kCertificateBanners;
  wrongSize.size = 16;
  const auto failsWith = [](bool done, DWORD code) { return !done && GetLastError() == code; };
  EXPECT_TRUE(failsWith(Base64Encode(nullptr, 0, text, &count, 0), ERROR_BAD_ARGUMENTS));
  EXPECT_TRUE(failsWith(Base64Encode(data, 3, text, nullptr, 0), ERROR_BAD_ARGUMENTS));
  EXPECT_TRUE(failsWith(Base64Decode(nullptr, 4, bytes, &count), ERROR_BAD_ARGUMENTS));
  EXPECT_TRUE(failsWith(Base64Decode("AQID", 4, bytes, nullptr), ERROR_BAD_ARGUMENTS));
  EXPECT_TRUE(failsWith(Base64EncodeWithHeader(nullptr, data, 3, text, &count), ERROR_BAD_ARGUMENTS));
  EXPECT_TRUE(failsWith(Base64EncodeWithHeader(&wrongSize, data, 3, text, &count), ERROR_BAD_ARGUMENTS));
  EXPECT_TRUE(failsWith(Base64EncodeWithHeader(&kCrlBanners, nullptr, 3, text, &count), ERROR_BAD_ARGUMENTS));
  EXPECT_TRUE(failsWith(Base64DecodeSkippingHeader(nullptr, 4, bytes, &count), ERROR_BAD_ARGUMENTS));

  count = 2;
  EXPECT_TRUE(failsWith(Base64Decode("AQID", 4, bytes, &count), ERROR_MORE_DATA));
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(ToHex(bytes), "090909");
  count = 58;
  EXPECT_TRUE(
      failsWith(Base64EncodeWithHeader(&kCertificateBanners, data, 3, text, &count), ERROR_MORE_DATA));
  EXPECT_EQ(count, 59u);
  ASSERT_TRUE(Base64EncodeWithHeader(&kCertificateBanners, data, 3, text, &count));
  EXPECT_EQ(std::string_view(text, count), "-----BEGIN CERTIFICATE-----\nAQID\n-----END CERTIFICATE-----\n");
  count = sizeof bytes;
  ASSERT_TRUE(Base64DecodeSkippingHeader(text, 59, bytes, &count));
  EXPECT_EQ(ToHex(bytes), "010203");
  EXPECT_TRUE(failsWith(Base64DecodeSkippingHeader(text, 27, bytes, &count), CRYPT_E_BAD_ENCODE));
  EXPECT_EQ(count, 0u);
  // nothing is read for a size that cannot be told in 32 bits
  EXPECT_TRUE(failsWith(Base64Encode(data, 0xFFFFFFFF, nullptr, &count, 0), ERROR_INVALID_PARAMETER));
}

}  // namespace
