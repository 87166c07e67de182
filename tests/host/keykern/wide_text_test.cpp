// Text between code pages and wide characters, against iconv and the tables of the Unicode Standard.
#include "support/hex.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <iconv.h>
#include <langinfo.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {
std::atomic<const char*> localeCodeset{nullptr};
}  // namespace

// Stands before the C library's, so that a test has the encoding of a locale that need not be installed.
extern "C" CERTKERN_API char* nl_langinfo(nl_item item) noexcept {
  static const auto real = reinterpret_cast<char* (*)(nl_item)>(dlsym(RTLD_NEXT, "nl_langinfo"));
  const char* codeset = localeCodeset;
  return item == CODESET && codeset ? const_cast<char*>(codeset) : real(item);
}

namespace {

class WithLocaleCodeset {
 public:
  explicit WithLocaleCodeset(const char* codeset) { localeCodeset = codeset; }
  WithLocaleCodeset(const WithLocaleCodeset&) = delete;
  WithLocaleCodeset& operator=(const WithLocaleCodeset&) = delete;
  ~WithLocaleCodeset() { localeCodeset = nullptr; }
};

// What a call answered; a failure has no text and a code.
template <typename Text>
struct Answer {
  Text text;
  DWORD code = 0;
  bool usedDefault = false;
};

// The size query, then the call with exactly that room: both have to agree.
Answer<std::wstring> Widen(UINT page, std::string_view bytes, DWORD flags = 0) {
  SetLastError(0);
  const int size = static_cast<int>(bytes.size());
  const int count = MultiByteToWideChar(page, flags, bytes.data(), size, nullptr, 0);
  if (!count) return {{}, GetLastError()};
  std::wstring text(static_cast<size_t>(count), L'\0');
  EXPECT_EQ(MultiByteToWideChar(page, flags, bytes.data(), size, text.data(), count), count);
  EXPECT_EQ(GetLastError(), 0u);
  return {text};
}

Answer<std::string> Narrow(UINT page, std::wstring_view wide, DWORD flags = 0, LPCSTR substitute = nullptr) {
  SetLastError(0);
  BOOL used = 77;
  BOOL* pUsed = page == CP_ACP ? &used : nullptr;
  const int size = static_cast<int>(wide.size());
  const int count = WideCharToMultiByte(page, flags, wide.data(), size, nullptr, 0, substitute, pUsed);
  if (!count) return {{}, GetLastError()};
  std::string text(static_cast<size_t>(count), '\0');
  EXPECT_EQ(WideCharToMultiByte(page, flags, wide.data(), size, text.data(), count, substitute, pUsed),
            count);
  EXPECT_EQ(GetLastError(), 0u);
  return {text, 0, pUsed && used == TRUE};
}

std::string Bytes(std::string_view hex) {
  const std::vector<BYTE> bytes = FromHex(hex);
  return {bytes.begin(), bytes.end()};
}

struct IllFormedCase {
  const char* name;
  UINT page;
  const char* hex;
  const wchar_t* text;
};
// The first five are tables 3-8 to 3-11 and the example above them of The Unicode Standard, chapter 3.
const IllFormedCase kIllFormed[] = {
    {"maximal subparts",       CP_UTF8,    "61 F1 80 80 E1 80 C2 62 80 63 80 BF 64",
     L"a\xFFFD\xFFFD\xFFFD"
     L"b\xFFFD"
     L"c\xFFFD\xFFFD"
     L"d"                                                                                                                         },
    {"overlong forms",         CP_UTF8,    "C0 AF E0 80 BF F0 81 82 41",
     L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD"
     L"A"                                                                                                                         },
    {"surrogates in UTF-8",    CP_UTF8,    "ED A0 80 ED BF BF ED AF 41",
     L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD"
     L"A"                                                                                                                         },
    {"beyond the last",        CP_UTF8,    "F4 91 92 93 FF 41 80 BF 42",
     L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD"
     L"A\xFFFD\xFFFD"
     L"B"                                                                                                                         },
    {"truncated sequences",    CP_UTF8,    "E1 80 E2 F0 91 92 F1 BF 41",
     L"\xFFFD\xFFFD\xFFFD\xFFFD"
     L"A"                                                                                                                         },
    {"five and six octets",    CP_UTF8,    "F8 88 80 80 80 FC 84",                   L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD"},
    {"cut at the end",         CP_UTF8,    "41 F0 9F 98",                            L"A\xFFFD"                                   },
    {"a high surrogate alone", CP_UTF16LE, "41 00 3D D8 42 00",
     L"A\xFFFD"
     L"B"                                                                                                                         },
    {"a low surrogate alone",  CP_UTF16LE, "00 DE 42 00",
     L"\xFFFD"
     L"B"                                                                                                                         },
    {"two highs, then a low",  CP_UTF16LE, "3D D8 3D D8 00 DE",                      L"\xFFFD\x1F600"                             },
    {"a high at the end",      CP_UTF16LE, "41 00 3D D8",                            L"A\xFFFD"                                   },
    {"half a unit at the end", CP_UTF16LE, "41 00 42",                               L"A\xFFFD"                                   },
    {"half a low at the end",  CP_UTF16LE, "3D D8 00",                               L"\xFFFD\xFFFD"                              },
};

TEST(WideText, IllFormedBytesAreReplacedOrRefused) {
  for (const auto& [name, page, hex, text] : kIllFormed) {
    SCOPED_TRACE(name);
    EXPECT_EQ(Widen(page, Bytes(hex)).text, text);
    EXPECT_EQ(Widen(page, Bytes(hex), MB_ERR_INVALID_CHARS).code, DWORD{ERROR_NO_UNICODE_TRANSLATION});
  }
}

TEST(WideText, WideCharactersThatAreNoneAreReplacedOrRefused) {
  for (const uint32_t none : {0xD800u, 0xDFFFu, 0x110000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    SCOPED_TRACE(none);
    const std::wstring text = {L'A', static_cast<wchar_t>(none), L'B'};
    EXPECT_EQ(Narrow(CP_UTF8, text).text,
              "A\xEF\xBF\xBD"
              "B");
    EXPECT_EQ(Narrow(CP_UTF16LE, text).text, Bytes("41 00 FD FF 42 00"));
    for (const UINT page : {CP_UTF8, CP_UTF16LE, CP_ACP}) {
      EXPECT_EQ(Narrow(page, text, WC_ERR_INVALID_CHARS).code, DWORD{ERROR_NO_UNICODE_TRANSLATION});
    }
  }
}

std::string ByIconv(const char* to, std::wstring_view text) {
  const iconv_t converter = iconv_open(to, "WCHAR_T");
  std::string out(text.size() * 4, '\0');
  char* in = const_cast<char*>(reinterpret_cast<const char*>(text.data()));
  char* next = out.data();
  size_t size = text.size() * sizeof(wchar_t), room = out.size();
  EXPECT_EQ(iconv(converter, &in, &size, &next, &room), 0u);
  iconv_close(converter);
  out.resize(out.size() - room);
  return out;
}

TEST(WideText, EveryCharacterAgreesWithIconv) {
  std::wstring all;
  for (uint32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c < 0xD800 || c > 0xDFFF) all += static_cast<wchar_t>(c);
  }
  for (const auto& [page, encoding] : {
           std::pair{CP_UTF8,    "UTF-8"   },
           std::pair{CP_UTF16LE, "UTF-16LE"}
  }) {
    SCOPED_TRACE(encoding);
    const std::string bytes = Narrow(static_cast<UINT>(page), all, WC_ERR_INVALID_CHARS).text;
    EXPECT_TRUE(bytes == ByIconv(encoding, all));
    EXPECT_TRUE(Widen(static_cast<UINT>(page), bytes, MB_ERR_INVALID_CHARS).text == all);
  }
}

// Runs of ASCII are converted in blocks: another character may stand at any place of them, and the room may end there.
TEST(WideText, OtherCharactersAmongAscii) {
  for (size_t place = 0; place < 40; ++place) {
    SCOPED_TRACE(place);
    std::string bytes(40, 'x');
    std::wstring text(40, L'x');
    bytes.replace(place, 1, "\xC3\xA9");
    text[place] = L'\xE9';
    EXPECT_EQ(Widen(CP_UTF8, bytes).text, text);
    EXPECT_EQ(Narrow(CP_UTF8, text).text, bytes);
    std::vector<wchar_t> less(place + 1);
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()), less.data(),
                                  static_cast<int>(less.size())),
              place == 39 ? 40 : 0);
    EXPECT_EQ(GetLastError(), place == 39 ? 0u : DWORD{ERROR_INSUFFICIENT_BUFFER});
  }
}

TEST(WideText, ALengthOfMinusOneTakesTheTerminatorToo) {
  wchar_t wide[4] = {};
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "ab", -1, wide, 4), 3);
  EXPECT_EQ(std::wstring(wide, 3), std::wstring(L"ab\0", 3));
  // U+0100: its zero octet is no end
  EXPECT_EQ(MultiByteToWideChar(CP_UTF16LE, 0, "\0\1b\0\0", -1, wide, 4), 3);
  EXPECT_EQ(std::wstring(wide, 3),
            std::wstring(L"\x100"
                         L"b\0",
                         3));
  char narrow[8] = {};
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"ab", -1, narrow, 8, nullptr, nullptr), 3);
  EXPECT_EQ(std::string(narrow, 3), std::string("ab\0", 3));
  EXPECT_EQ(WideCharToMultiByte(CP_UTF16LE, 0, L"ab", -1, nullptr, 0, nullptr, nullptr), 6);
}

TEST(WideText, ArgumentsAreChecked) {
  char bytes[8] = "ab";
  wchar_t wide[8] = L"ab";
  BOOL used = FALSE;
  const auto widen = [&](UINT page, DWORD flags, LPCSTR in, int size, LPWSTR out, int room) {
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(page, flags, in, size, out, room), 0);
    return GetLastError();
  };
  const auto narrow = [&](UINT page, DWORD flags, LPCWSTR in, int size, LPSTR out, int room,
                          LPCSTR substitute, LPBOOL pUsed) {
    SetLastError(0);
    EXPECT_EQ(WideCharToMultiByte(page, flags, in, size, out, room, substitute, pUsed), 0);
    return GetLastError();
  };
  constexpr DWORD kInvalid = ERROR_INVALID_PARAMETER;
  for (const UINT page : {CP_UTF8, CP_UTF16LE, CP_ACP}) {
    SCOPED_TRACE(page);
    EXPECT_EQ(widen(page, 0, nullptr, 2, wide, 8), kInvalid);
    EXPECT_EQ(widen(page, 0, bytes, 0, wide, 8), kInvalid);
    EXPECT_EQ(widen(page, 0, bytes, -2, wide, 8), kInvalid);
    EXPECT_EQ(widen(page, 0, bytes, 2, nullptr, 8), kInvalid);
    EXPECT_EQ(widen(page, 0, bytes, 2, wide, -1), kInvalid);
    EXPECT_EQ(widen(page, 0, bytes, 2, reinterpret_cast<LPWSTR>(bytes), 2), kInvalid) << "in place";
    EXPECT_EQ(widen(page, 0x10, bytes, 2, wide, 8), DWORD{ERROR_INVALID_FLAGS});
    EXPECT_EQ(narrow(page, 0, nullptr, 2, bytes, 8, nullptr, nullptr), kInvalid);
    EXPECT_EQ(narrow(page, 0, wide, 0, bytes, 8, nullptr, nullptr), kInvalid);
    EXPECT_EQ(narrow(page, 0, wide, -2, bytes, 8, nullptr, nullptr), kInvalid);
    EXPECT_EQ(narrow(page, 0, wide, 2, nullptr, 8, nullptr, nullptr), kInvalid);
    EXPECT_EQ(narrow(page, 0, wide, 2, bytes, -1, nullptr, nullptr), kInvalid);
    EXPECT_EQ(narrow(page, 0, wide, 2, reinterpret_cast<LPSTR>(wide), 8, nullptr, nullptr), kInvalid);
    EXPECT_EQ(narrow(page, 0x1, wide, 2, bytes, 8, nullptr, nullptr), DWORD{ERROR_INVALID_FLAGS});
    EXPECT_EQ(narrow(page, 0, wide, 2, bytes, 1, nullptr, nullptr), DWORD{ERROR_INSUFFICIENT_BUFFER});
  }
  for (const UINT page : {CP_UTF8, CP_UTF16LE}) {
    EXPECT_EQ(narrow(page, 0, wide, 2, bytes, 8, "?", nullptr), kInvalid);
    EXPECT_EQ(narrow(page, 0, wide, 2, bytes, 8, nullptr, &used), kInvalid);
  }
  EXPECT_EQ(widen(1251, 0, bytes, 2, wide, 8), kInvalid);
  EXPECT_EQ(narrow(1251, 0, wide, 2, bytes, 8, nullptr, nullptr), kInvalid);
}

constexpr wchar_t kHello[] = L"Привет, мир";

TEST(WideText, TheCurrentEncodingIsThatOfTheLocale) {
  // the same text as `iconv -t KOI8-R | xxd` and `iconv -t CP1251 | xxd` write it
  const struct {
    const char* codeset;
    std::string bytes;
  } kEncodings[] = {
      {"KOI8-R",         Bytes("F0 D2 C9 D7 C5 D4 2C 20 CD C9 D2")},
      {"CP1251",         Bytes("CF F0 E8 E2 E5 F2 2C 20 EC E8 F0")},
      {"UTF-8",          "Привет, мир"                   },
      {"ANSI_X3.4-1968", "Привет, мир"                   }, // no locale set
  };
  for (const auto& [codeset, bytes] : kEncodings) {
    SCOPED_TRACE(codeset);
    const WithLocaleCodeset locale(codeset);
    EXPECT_EQ(Widen(CP_ACP, bytes).text, kHello);
    EXPECT_EQ(Narrow(CP_ACP, kHello).text, bytes);
    EXPECT_FALSE(Narrow(CP_ACP, kHello).usedDefault);
  }
  const WithLocaleCodeset locale("NO-SUCH-CODESET");
  EXPECT_EQ(Widen(CP_ACP, "a").code, DWORD{ERROR_NO_UNICODE_TRANSLATION});
  EXPECT_EQ(Narrow(CP_ACP, L"a").code, DWORD{ERROR_NO_UNICODE_TRANSLATION});
}

TEST(WideText, WhatTheLocaleLacksIsSubstituted) {
  constexpr wchar_t kText[] =
      L"a\x65E5"
      L"b";
  {
    const WithLocaleCodeset locale("KOI8-R");
    EXPECT_EQ(Narrow(CP_ACP, kText).text, "a?b");
    EXPECT_EQ(Narrow(CP_ACP, kText, 0, "(none)").text, "a(none)b");
    EXPECT_EQ(Narrow(CP_ACP, kText, 0, "").text, "ab");
    EXPECT_TRUE(Narrow(CP_ACP, kText).usedDefault);
    EXPECT_EQ(Narrow(CP_ACP, kText, WC_ERR_INVALID_CHARS).code, DWORD{ERROR_NO_UNICODE_TRANSLATION});
  }
  const WithLocaleCodeset locale("UTF-8");
  constexpr wchar_t kSurrogate[] =
      L"a\xD800"
      L"b";
  EXPECT_EQ(Narrow(CP_ACP, kSurrogate, 0, "?").text, "a?b");
  EXPECT_EQ(Narrow(CP_ACP, kSurrogate).text,
            "a\xEF\xBF\xBD"
            "b");
  EXPECT_TRUE(Narrow(CP_ACP, kSurrogate).usedDefault);
}

TEST(WideText, LocaleEncodingsOfSeveralBytes) {
  {
    const WithLocaleCodeset locale("EUC-JP");
    EXPECT_EQ(Widen(CP_ACP, "\xC6\xFC\xCB\xDC").text, L"\x65E5\x672C");
    EXPECT_EQ(Widen(CP_ACP, "a\xC6").text, L"a\xFFFD") << "cut at the end";
    EXPECT_EQ(Widen(CP_ACP,
                    "a\xFF"
                    "b")
                  .text,
              L"a\xFFFD"
              L"b");
    EXPECT_EQ(Widen(CP_ACP, "a\xC6", MB_ERR_INVALID_CHARS).code, DWORD{ERROR_NO_UNICODE_TRANSLATION});
    const std::string longText(1001, 'a');  // more than one piece
    EXPECT_EQ(Widen(CP_ACP, longText).text, std::wstring(1001, L'a'));
    EXPECT_EQ(Narrow(CP_ACP, std::wstring(1001, L'\x65E5')).text.size(), 2002u);
  }
  // the converter holds a letter back until it knows that no accent follows
  const WithLocaleCodeset locale("TCVN5712-1");
  EXPECT_EQ(Widen(CP_ACP, "CA").text, L"CA");
  EXPECT_EQ(Widen(CP_ACP, "A").text, L"A") << "nothing is left over from the call before";
}

TEST(WideTextConcurrent, ThreadsKeepTheirConverters) {
  const WithLocaleCodeset locale("KOI8-R");
  const std::string bytes = Narrow(CP_ACP, kHello).text;
  std::vector<std::thread> threads;
  std::atomic<int> wrong = 0;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] {
      const std::wstring mine = std::wstring(static_cast<size_t>(i), L'ж') + kHello;
      for (int round = 0; round < 200; ++round) {
        wchar_t wide[64];
        char narrow[64];
        const int size = WideCharToMultiByte(CP_ACP, 0, mine.data(), static_cast<int>(mine.size()), narrow,
                                             64, nullptr, nullptr);
        const int count = MultiByteToWideChar(CP_ACP, 0, narrow, size, wide, 64);
        wrong += std::wstring_view(wide, static_cast<size_t>(count)) != mine;
        wrong += std::string_view(narrow, static_cast<size_t>(size)).substr(static_cast<size_t>(i)) != bytes;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
