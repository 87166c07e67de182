// The exported text functions: each value of the flags, the rules of counts and room, wide text.
#include <certkern/encode.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "support/hex.h"

namespace {

using Bytes = std::vector<BYTE>;

constexpr DWORD kUntouched = 77;

BOOL Write(const Bytes& data, DWORD flags, char* out, DWORD* count) {
  return CryptBinaryToStringA(data.data(), static_cast<DWORD>(data.size()), flags, out, count);
}
BOOL Write(const Bytes& data, DWORD flags, wchar_t* out, DWORD* count) {
  return CryptBinaryToStringW(data.data(), static_cast<DWORD>(data.size()), flags, out, count);
}

struct Answer {
  BOOL done;
  DWORD code;  // of a failure
  std::string hex;
  DWORD count, skip, flags;
};

Answer Read(std::string_view text, DWORD flags, DWORD room) {
  const std::vector<char> exact(text.begin(), text.end());
  Bytes bytes(room, 0xEE);
  BYTE none = 0;
  Answer answer = {FALSE, 0, "", room, kUntouched, kUntouched};
  SetLastError(0);
  answer.done = CryptStringToBinaryA(exact.data(), static_cast<DWORD>(exact.size()), flags,
                                     room ? bytes.data() : &none, &answer.count, &answer.skip, &answer.flags);
  if (!answer.done) answer.code = GetLastError();
  answer.hex = ToHex(bytes);
  return answer;
}

const struct {
  DWORD flags;
  const char* text;
} kWritten[] = {
    {0,          "-----BEGIN CERTIFICATE-----\nAavN\n-----END CERTIFICATE-----\n"                        },
    {1,          "AavN\n"                                                                                },
    {0x40000001, "AavN"                                                                                  },
    {3,          "-----BEGIN NEW CERTIFICATE REQUEST-----\nAavN\n-----END NEW CERTIFICATE REQUEST-----\n"},
    {0x80000003, "-----BEGIN NEW CERTIFICATE REQUEST-----\nAavN\n-----END NEW CERTIFICATE REQUEST-----\n"},
    {4,          "01ABCD"                                                                                },
    {0x40000004, "01ABCD"                                                                                },
    {9,          "-----BEGIN X509 CRL-----\nAavN\n-----END X509 CRL-----\n"                              },
};

// Every amount of room from none to one more than is needed.
template <class Character>
void CheckWrittenForms() {
  const Bytes data = FromHex("01ABCD");
  for (const auto& [flags, narrow] : kWritten) {
    const std::string_view view = narrow;
    const std::basic_string<Character> text(view.begin(), view.end());
    const auto length = static_cast<DWORD>(text.size());
    DWORD count = 0;
    ASSERT_TRUE(Write(data, flags, static_cast<Character*>(nullptr), &count));
    EXPECT_EQ(count, length + 1);
    for (DWORD room = 0; room <= length + 2; ++room) {
      SCOPED_TRACE("flags " + std::to_string(flags) + ", room " + std::to_string(room));
      std::vector<Character> out(std::max<DWORD>(room, 1), '?');
      count = room;
      SetLastError(0);
      const bool enough = room > length;
      ASSERT_EQ(Write(data, flags, out.data(), &count), enough ? TRUE : FALSE);
      EXPECT_EQ(GetLastError(), enough ? 0u : DWORD{ERROR_MORE_DATA});
      const DWORD written = std::min(room, length);
      EXPECT_TRUE(std::equal(text.begin(), text.begin() + written, out.begin()));
      EXPECT_EQ(count, enough ? length : room == length ? length + 1 : room);
      if (enough) {
        EXPECT_EQ(out[length], Character{0});
      }
      if (room == 0 || room == length + 2) {
        EXPECT_EQ(out.back(), Character{'?'});
      }
    }
  }
}

TEST(CryptBinaryToString, Narrow) { CheckWrittenForms<char>(); }
TEST(CryptBinaryToString, Wide) { CheckWrittenForms<wchar_t>(); }

TEST(CryptBinaryToString, BytesThemselves) {
  const Bytes data = FromHex("0041FF");
  Bytes out(3, 0xEE);
  DWORD count = 0;
  ASSERT_TRUE(CryptBinaryToStringA(data.data(), 3, CRYPT_STRING_BINARY, nullptr, &count));
  EXPECT_EQ(count, 3u);
  count = 2;
  EXPECT_FALSE(
      CryptBinaryToStringA(data.data(), 3, CRYPT_STRING_BINARY, reinterpret_cast<char*>(out.data()), &count));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(ToHex(out), "EEEEEE");
  count = 3;
  ASSERT_TRUE(
      CryptBinaryToStringA(data.data(), 3, CRYPT_STRING_BINARY, reinterpret_cast<char*>(out.data()), &count));
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(out, data);
  wchar_t wide[3] = {L'?', L'?', L'?'};  // no NUL here either
  ASSERT_TRUE(CryptBinaryToStringW(FromHex("4142").data(), 2, CRYPT_STRING_BINARY, wide, &count));
  EXPECT_EQ(std::wstring_view(wide, 3), L"AB?");
  EXPECT_EQ(count, 2u);
}

TEST(CryptBinaryToString, Refusals) {
  const Bytes data = FromHex("01ABCD");
  char out[128];
  wchar_t wide[128];
  const auto refuses = [&](const BYTE* bytes, DWORD size, DWORD flags, DWORD room, bool withCount) {
    DWORD count = room, wideCount = room;
    SetLastError(0);
    const BOOL narrow =
        CryptBinaryToStringA(bytes, size, flags, room ? out : nullptr, withCount ? &count : nullptr);
    const bool narrowRefused = !narrow && GetLastError() == ERROR_INVALID_PARAMETER;
    SetLastError(0);
    const BOOL w =
        CryptBinaryToStringW(bytes, size, flags, room ? wide : nullptr, withCount ? &wideCount : nullptr);
    return narrowRefused && !w && GetLastError() == ERROR_INVALID_PARAMETER && count == room
        && wideCount == room;
  };
  for (const DWORD flags :
       {5u, 6u, 7u, 8u, 10u, 11u, 12u, 13u, 0x40000000u, 0x40000002u, 0x40000003u, 0x40000009u, 0x80000000u,
        0x80000001u, 0xC0000001u, 0x20000001u, 0xC0000003u, 0xFFFFFFFFu}) {
    EXPECT_TRUE(refuses(data.data(), 3, flags, 128, true)) << flags;
  }
  EXPECT_TRUE(refuses(nullptr, 3, 1, 128, true));
  EXPECT_TRUE(refuses(data.data(), 0, 1, 128, true));
  EXPECT_TRUE(refuses(data.data(), 3, 1, 128, false));
  // sizes that 32 bits cannot tell; a query reads nothing
  EXPECT_TRUE(refuses(data.data(), 0xFFFFFFFF, 1, 0, true));
  EXPECT_TRUE(refuses(data.data(), 0x80000000, 4, 0, true));
  DWORD count = 0;
  ASSERT_TRUE(CryptBinaryToStringA(data.data(), 0x7FFFFFFF, 4, nullptr, &count));
  EXPECT_EQ(count, 0xFFFFFFFFu);
}

TEST(CryptStringToBinary, Forms) {
  constexpr DWORD kNone = kUntouched;
  constexpr DWORD kStrict = 0x20000000;
  const std::string banner = "-----BEGIN ANYTHING-----\r\nAQID\r\n-----END ANYTHING-----\r\n";
  const std::string request =
      "-----BEGIN NEW CERTIFICATE REQUEST-----\nAQI=\n-----END NEW CERTIFICATE REQUEST-----\n";
  const std::string noise = "\x30\x03\x02\x01\xFF";
  const struct {
    const char* name;
    DWORD flags;
    std::string text;
    BOOL done;
    std::string hex;
    DWORD skip, reported;
  } kCases[] = {
      {"any banner does",              0,           banner,                    TRUE,  "010203",     kNone, 0    },
      {"any banner as request",        3,           banner,                    TRUE,  "010203",     kNone, 3    },
      {"request as list",              9,           request,                   TRUE,  "0102",       kNone, 9    },
      {"no banner",                    0,           "\n AQID",                 TRUE,  "010203",     kNone, 0    },
      {"other white space above",      0,           "\v\f-----X-----\v\fAQ==", TRUE,  "01",         kNone, 0    },
      {"a banner without closing",     0,           "-----BEGIN",              FALSE, "",           kNone, kNone},
      {"a banner and nothing",         0,           "-----BEGIN X-----\n",     FALSE, "",           kNone, kNone},
      {"only white space",             0,           " \n",                     FALSE, "",           kNone, kNone},
      {"text above the banner",        0,           "subject\n" + banner,      FALSE, "",           kNone, kNone},
      {"a dash in the banner's words", 0,           "--X-Y--\nAQID",           FALSE, "",           kNone, kNone},
      {"bare",                         1,           "AQ\nID",                  TRUE,  "010203",     kNone, 1    },
      {"bare, with a banner",          1,           "AQID\n" + banner,         TRUE,  "010203",     kNone, 1    },
      {"bare, strict",                 1 | kStrict, "AQ\nID",                  TRUE,  "010203",     kNone, 1    },
      {"bare, and bad",                1,           "AQI?",                    FALSE, "",           kNone, kNone},
      {"bytes",                        2,           noise,                     TRUE,  "30030201FF", 0,     2    },
      {"hexadecimal",                  4,           " 01\v\tab\nCd ",          TRUE,  "01ABCD",     kNone, kNone},
      {"hexadecimal ends at a letter", 4,           "01 0g 02",                TRUE,  "01",         kNone, kNone},
      {"hexadecimal, nothing",         4,           "0g",                      TRUE,  "",           kNone, kNone},
      {"hexadecimal, odd",             4,           "01A",                     TRUE,  "01",         kNone, kNone},
      {"hexadecimal, a pair in two",   4,           "010 2",                   TRUE,  "01",         kNone, kNone},
      {"hexadecimal, no parity bits",  4,           "01\xB0\xB1",              TRUE,  "01",         kNone, kNone},
      {"any Base64, banner",           6,           banner,                    TRUE,  "010203",     kNone, 0    },
      {"any Base64, bare",             6,           "AQID",                    TRUE,  "010203",     kNone, 0    },
      {"any Base64, strict",           6 | kStrict, banner,                    TRUE,  "010203",     kNone, 0    },
      {"any Base64, no body",          6,           " \n",                     TRUE,  "",           kNone, 1    },
      {"any Base64, bad",              6,           noise,                     FALSE, "",           kNone, kNone},
      {"anything, banner",             7,           banner,                    TRUE,  "010203",     kNone, 0    },
      {"anything, no body",            7,           "-----",                   TRUE,  "",           kNone, 1    },
      {"anything, bytes",              7,           noise,                     TRUE,  "30030201FF", 0,     2    },
  };
  for (const auto& [name, flags, text, done, hex, skip, reported] : kCases) {
    SCOPED_TRACE(name);
    DWORD size = kUntouched;
    ASSERT_EQ(CryptStringToBinaryA(text.data(), static_cast<DWORD>(text.size()), flags, nullptr, &size,
                                   nullptr, nullptr),
              done);
    EXPECT_EQ(size, done ? hex.size() / 2 : kUntouched);
    const Answer exact = Read(text, flags, done ? size : 8);
    EXPECT_EQ(exact.done, done);
    EXPECT_EQ(exact.code, done ? 0 : CRYPT_E_BAD_ENCODE);
    EXPECT_EQ(exact.hex, done ? hex : "EEEEEEEEEEEEEEEE") << "a failure leaves the buffer alone";
    EXPECT_EQ(exact.count, done ? size : 8);
    EXPECT_EQ(exact.skip, skip);
    EXPECT_EQ(exact.flags, reported);
    if (!done || size == 0) continue;
    const Answer less = Read(text, flags, size - 1);
    EXPECT_FALSE(less.done);
    EXPECT_EQ(less.code, DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(less.hex.find_first_not_of('E'), std::string::npos);
    EXPECT_EQ(less.count, size - 1);
    EXPECT_EQ(less.skip, 0u);
    EXPECT_EQ(less.flags, 0u);
  }
}

TEST(CryptStringToBinary, Refusals) {
  BYTE out[16];
  for (const DWORD flags : {5u, 8u, 10u, 11u, 12u, 13u, 0x20000000u, 0x20000002u, 0x20000003u, 0x20000007u,
                            0x40000001u, 0x80000001u, 0xFFFFFFFFu}) {
    DWORD count = sizeof out, wideCount = sizeof out;
    SetLastError(0);
    EXPECT_FALSE(CryptStringToBinaryA("AQID", 4, flags, out, &count, nullptr, nullptr)) << flags;
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    SetLastError(0);
    EXPECT_FALSE(CryptStringToBinaryW(L"AQID", 4, flags, out, &wideCount, nullptr, nullptr)) << flags;
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  }
  for (const DWORD flags : {1u, 2u}) {
    DWORD count = sizeof out;
    EXPECT_FALSE(CryptStringToBinaryA(nullptr, 4, flags, out, &count, nullptr, nullptr));
    EXPECT_FALSE(CryptStringToBinaryW(nullptr, 4, flags, out, &count, nullptr, nullptr));
    EXPECT_FALSE(CryptStringToBinaryA("AQID", 4, flags, out, nullptr, nullptr, nullptr));
    SetLastError(0);
    EXPECT_FALSE(CryptStringToBinaryW(L"AQID", 4, flags, out, nullptr, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  }
}

TEST(CryptStringToBinary, CountOfZeroMeansUpToTheNul) {
  Bytes out(4);
  DWORD count = 4;
  ASSERT_TRUE(CryptStringToBinaryA("AQID", 0, 1, out.data(), &count, nullptr, nullptr));
  EXPECT_EQ(count, 3u);
  count = 4;
  ASSERT_TRUE(CryptStringToBinaryA("AQID", 0, 2, out.data(), &count, nullptr, nullptr));
  EXPECT_EQ(count, 4u);
  ASSERT_TRUE(CryptStringToBinaryW(L"AQID", 0, 1, out.data(), &count, nullptr, nullptr));
  EXPECT_EQ(count, 3u);
  DWORD flags = kUntouched;
  ASSERT_TRUE(CryptStringToBinaryW(L"", 0, 7, out.data(), &count, nullptr, &flags));
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(flags, 1u);
}

TEST(CryptStringToBinary, WideBytesAreTheMemory) {
  const std::wstring text = L"AQID";
  Bytes out(16, 0xEE);
  DWORD count = 16, skip = kUntouched, flags = kUntouched;
  // a count of bytes: 6 of the 16
  ASSERT_TRUE(CryptStringToBinaryW(text.data(), 6, CRYPT_STRING_BINARY, out.data(), &count, &skip, &flags));
  EXPECT_EQ(count, 6u);
  EXPECT_EQ(skip, 0u);
  EXPECT_EQ(flags, 2u);
  EXPECT_TRUE(std::equal(out.begin(), out.begin() + 6, reinterpret_cast<const BYTE*>(text.data())));
  EXPECT_EQ(out[6], 0xEE);
}

TEST(CryptStringToBinary, WideTextWithBannersInOtherForms) {
  const std::wstring text = L"-----BEGIN X-----\nAQID\n-----END X-----\n";
  for (const DWORD flags : {0u, 3u, 6u, 7u, 9u}) {
    Bytes out(3);
    DWORD count = 3;
    ASSERT_TRUE(CryptStringToBinaryW(text.data(), static_cast<DWORD>(text.size()), flags, out.data(), &count,
                                     nullptr, nullptr));
    EXPECT_EQ(ToHex(out), "010203");
  }
}

// Callers convert inside one buffer, whichever of the two ends lies in front.
TEST(CryptText, InPlace) {
  Bytes data(300);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<BYTE>(i * 7);
  for (const DWORD flags : {0u, 1u, 2u, 4u}) {
    for (const size_t distance : {0u, 1u, 40u}) {
      SCOPED_TRACE("flags " + std::to_string(flags) + ", distance " + std::to_string(distance));
      Bytes buffer(1000);
      const auto inBuffer = buffer.begin() + 40;
      BYTE* text = buffer.data() + 40 - distance;
      std::copy(data.begin(), data.end(), inBuffer);
      DWORD count = 900;
      ASSERT_TRUE(CryptBinaryToStringA(&*inBuffer, 300, flags, reinterpret_cast<char*>(text), &count));
      DWORD size = 300;
      BYTE* bytes = text + distance;
      ASSERT_TRUE(
          CryptStringToBinaryA(reinterpret_cast<char*>(text), count, flags, bytes, &size, nullptr, nullptr));
      ASSERT_EQ(size, 300u);
      EXPECT_TRUE(std::equal(data.begin(), data.end(), bytes));
    }
  }
}

}  // namespace
