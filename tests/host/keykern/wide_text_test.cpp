// Text between code pages and wide characters, judged by the system's own iconv and by the Unicode Standard.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <iconv.h>
#include <langinfo.h>

#include <atomic>
#include <cstdint>
#include <cwchar>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

const char* forcedCodeset = nullptr;

}  // namespace

// Stands in front of the system's, so that the paths of a one-byte locale run on every machine, also where no such
// locale is installed.
extern "C" __attribute__((visibility("default"))) char* nl_langinfo(nl_item item) {
  static const auto real = reinterpret_cast<char* (*)(nl_item)>(dlsym(RTLD_NEXT, "nl_langinfo"));
  return item == CODESET && forcedCodeset ? const_cast<char*>(forcedCodeset) : real(item);
}

namespace {

class Codeset {
 public:
  explicit Codeset(const char* name) { forcedCodeset = name; }
  ~Codeset() { forcedCodeset = nullptr; }
};

// What iconv makes of it; nothing when it refuses.
std::optional<std::string> Iconv(const char* to, const char* from, std::string_view text) {
  const iconv_t converter = iconv_open(to, from);
  EXPECT_NE(converter, reinterpret_cast<iconv_t>(-1)) << to << " from " << from;
  std::string out(text.size() * 4 + 8, '\0');
  char* in = const_cast<char*>(text.data());
  char* next = out.data();
  size_t left = text.size();
  size_t room = out.size();
  const size_t status = iconv(converter, &in, &left, &next, &room);
  iconv_close(converter);
  if (status != 0) return std::nullopt;
  out.resize(out.size() - room);
  return out;
}

std::string BytesOf(std::wstring_view text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)};
}

// Both calls, the buffer as large as the size that was answered.
std::wstring ToWide(UINT page, std::string_view text, DWORD flags = 0) {
  const int size = static_cast<int>(text.size());
  const int needed = MultiByteToWideChar(page, flags, text.data(), size, nullptr, 0);
  std::wstring wide(static_cast<size_t>(needed), L'\0');
  if (!needed) return wide;
  EXPECT_EQ(MultiByteToWideChar(page, flags, text.data(), size, wide.data(), needed), needed);
  return wide;
}

std::string FromWide(UINT page, std::wstring_view text, DWORD flags = 0) {
  const int size = static_cast<int>(text.size());
  const int needed = WideCharToMultiByte(page, flags, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string bytes(static_cast<size_t>(needed), '\0');
  if (!needed) return bytes;
  EXPECT_EQ(WideCharToMultiByte(page, flags, text.data(), size, bytes.data(), needed, nullptr, nullptr),
            needed);
  return bytes;
}

TEST(WideText, EveryCharacterAsIconv) {
  std::wstring all;
  for (wchar_t c = 0; c <= 0x10FFFF; ++c) {
    if (c < 0xD800 || c > 0xDFFF) all.push_back(c);
  }
  const struct {
    UINT page;
    const char* name;
  } kPages[] = {
      {CP_UTF8,    "UTF-8"   },
      {CP_UTF16LE, "UTF-16LE"}
  };
  for (const auto& [page, name] : kPages) {
    const std::optional<std::string> expected = Iconv(name, "WCHAR_T", BytesOf(all));
    ASSERT_TRUE(expected);
    EXPECT_TRUE(FromWide(page, all, WC_ERR_INVALID_CHARS) == *expected) << name;
    EXPECT_TRUE(ToWide(page, *expected, MB_ERR_INVALID_CHARS) == all) << name;
  }
}

// Octets from the borders of the well-formed ranges, in all short orders that chance makes.
TEST(WideText, StrictAcceptsWhatIconvAccepts) {
  constexpr char kOctets[] =
      "\x00\x41\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xED\xEF\xF0\xF1\xF4\xF5\xFF";
  std::mt19937 random(1);
  int accepted = 0;
  for (int i = 0; i < 100000; ++i) {
    std::string text(1 + random() % 5, '\0');
    for (char& octet : text) octet = kOctets[random() % (sizeof(kOctets) - 1)];
    const std::optional<std::string> expected =
        Iconv("UTF-32LE", "UTF-8", text);  // WCHAR_T goes beyond U+10FFFF
    SetLastError(0);
    const std::wstring wide = ToWide(CP_UTF8, text, MB_ERR_INVALID_CHARS);
    accepted += expected.has_value();
    ASSERT_EQ(BytesOf(wide), expected.value_or(""));
    ASSERT_EQ(GetLastError(), expected ? 0u : ERROR_NO_UNICODE_TRANSLATION);
  }
  EXPECT_GT(accepted, 1000);
}

// The Unicode Standard, chapter 3, "U+FFFD Substitution of Maximal Subparts", its four tables, and their like.
TEST(WideText, IllFormedPieces) {
  const struct {
    const char* name;
    UINT page;
    std::string_view text;
    std::wstring_view expected;
  } kCases[] = {
      {"overlong forms",       CP_UTF8,    "\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41",
       L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\x41"                                                    },
      {"surrogates",           CP_UTF8,    "\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41",
       L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\x41"                                                    },
      {"beyond U+10FFFF",      CP_UTF8,    "\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42",
       L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\x41\xFFFD\xFFFD\x42"                                                      },
      {"cut off",              CP_UTF8,    "\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", L"\xFFFD\xFFFD\xFFFD\xFFFD\x41"},
      {"cut off by the end",   CP_UTF8,    "\x41\xF0\x9F\x94",                     L"\x41\xFFFD"                  },
      {"high unit alone",      CP_UTF16LE, {"\x00\xD8\x41\x00", 4},                L"\xFFFD\x41"                  },
      {"low unit first",       CP_UTF16LE, {"\x00\xDC\x00\xD8\x00\xDC", 6},        L"\xFFFD\x10000"               },
      {"half a unit",          CP_UTF16LE, {"\x41\x00\x42", 3},                    L"\x41\xFFFD"                  },
      {"high unit at the end", CP_UTF16LE, {"\x41\x00\xFF\xDB", 4},                L"\x41\xFFFD"                  },
  };
  for (const auto& [name, page, text, expected] : kCases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(ToWide(page, text), expected);
    SetLastError(0);
    EXPECT_EQ(ToWide(page, text, MB_ERR_INVALID_CHARS), L"");
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_UNICODE_TRANSLATION});
  }
  for (const wchar_t bad : {wchar_t{0xD800}, wchar_t{0xDFFF}, wchar_t{0x110000}, wchar_t{-1}}) {
    EXPECT_EQ(FromWide(CP_UTF8, std::wstring_view(&bad, 1)), "\xEF\xBF\xBD");
    EXPECT_EQ(FromWide(CP_UTF16LE, std::wstring_view(&bad, 1)), "\xFD\xFF");
    EXPECT_EQ(FromWide(CP_UTF8, std::wstring_view(&bad, 1), WC_ERR_INVALID_CHARS), "");
  }
}

// Runs of ASCII go in blocks: another character may stand at any place of one, and the room may end at any.
TEST(WideText, OtherCharactersAmongAscii) {
  for (size_t place = 0; place < 40; ++place) {
    SCOPED_TRACE(place);
    std::string bytes(40, 'x');
    std::wstring text(40, L'x');
    bytes.replace(place, 1, "\xC3\xA9");
    text[place] = L'\xE9';
    EXPECT_EQ(ToWide(CP_UTF8, bytes), text);
    EXPECT_EQ(FromWide(CP_UTF8, text), bytes);
    std::vector<wchar_t> less(place + 1);
    std::vector<char> fewer(place + 1);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, bytes.data(), 41, less.data(), static_cast<int>(less.size())),
              place == 39 ? 40 : 0);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, text.data(), 40, fewer.data(), static_cast<int>(fewer.size()),
                                  nullptr, nullptr),
              0);
  }
}

TEST(WideText, SizesAndTerminators) {
  const char utf8[] = "a\xD0\x96\xF0\x9F\x94\x91";
  wchar_t wide[8];
  std::wmemset(wide, L'#', 8);
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, utf8, -1, nullptr, 0), 4);
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, utf8, -1, wide, 8), 4);
  EXPECT_EQ(std::wstring_view(wide, 5), std::wstring_view(L"a\x416\x1F511\0#", 5));
  SetLastError(0);
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, utf8, -1, wide, 3), 0);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});

  const wchar_t text[] = L"a\x416\x1F511";
  char bytes[12];
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr), 8);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF16LE, 0, text, -1, bytes, 12, nullptr, nullptr), 10);
  EXPECT_EQ(std::string_view(bytes, 10), std::string_view("a\0\x16\x04\x3D\xD8\x11\xDD\0\0", 10));
  EXPECT_EQ(MultiByteToWideChar(CP_UTF16LE, 0, bytes, -1, wide, 8), 4) << "ends at a whole zero unit";
  SetLastError(0);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, text, 3, bytes, 6, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST(WideText, BadArguments) {
  wchar_t wide[4] = L"abc";
  char bytes[4] = "abc";
  BOOL used = 7;
  const auto refused = [](int result, DWORD code) {
    const bool right = result == 0 && GetLastError() == code;
    SetLastError(0);
    return right;
  };
  EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 0, nullptr, 3, wide, 4), ERROR_INVALID_PARAMETER));
  EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 0, bytes, 0, wide, 4), ERROR_INVALID_PARAMETER));
  EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 0, bytes, -2, wide, 4), ERROR_INVALID_PARAMETER));
  EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 0, bytes, 3, nullptr, 4), ERROR_INVALID_PARAMETER));
  EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 0, bytes, 3, wide, -1), ERROR_INVALID_PARAMETER));
  EXPECT_TRUE(refused(MultiByteToWideChar(1251, 0, bytes, 3, wide, 4), ERROR_INVALID_PARAMETER));
  EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 0x100, bytes, 3, wide, 4), ERROR_INVALID_FLAGS));
  EXPECT_TRUE(refused(WideCharToMultiByte(CP_UTF8, 0, nullptr, 3, bytes, 4, nullptr, nullptr),
                      ERROR_INVALID_PARAMETER));
  EXPECT_TRUE(
      refused(WideCharToMultiByte(CP_UTF8, 0, wide, 0, bytes, 4, nullptr, nullptr), ERROR_INVALID_PARAMETER));
  EXPECT_TRUE(
      refused(WideCharToMultiByte(CP_UTF8, 0, wide, 3, bytes, 4, nullptr, &used), ERROR_INVALID_PARAMETER));
  EXPECT_TRUE(
      refused(WideCharToMultiByte(CP_UTF8, 0, wide, 3, bytes, 4, "?", nullptr), ERROR_INVALID_PARAMETER));
  EXPECT_TRUE(
      refused(WideCharToMultiByte(CP_UTF8, 0x1, wide, 3, bytes, 4, nullptr, nullptr), ERROR_INVALID_FLAGS));
  EXPECT_TRUE(refused(MultiByteToWideChar(CP_UTF8, 0, bytes, 1, reinterpret_cast<LPWSTR>(bytes), 1),
                      ERROR_INVALID_PARAMETER))
      << "in place";
  EXPECT_TRUE(
      refused(WideCharToMultiByte(CP_UTF8, 0, wide, 3, reinterpret_cast<LPSTR>(wide), 4, nullptr, nullptr),
              ERROR_INVALID_PARAMETER));
  EXPECT_TRUE(
      refused(WideCharToMultiByte(CP_ACP, 0, wide, 3, bytes, 4, "", nullptr), ERROR_INVALID_PARAMETER))
      << "an empty substitute could leave nothing, which reads as a failure";
  EXPECT_TRUE(
      refused(WideCharToMultiByte(CP_ACP, 0, wide, 3, bytes, 2, "?", &used), ERROR_INSUFFICIENT_BUFFER));
  EXPECT_EQ(used, 7) << "written on success only";
}

TEST(LocaleText, NeverSetMeansUtf8) {
  EXPECT_EQ(ToWide(CP_ACP, "\xD0\x96"), L"\x416");
  EXPECT_EQ(FromWide(CP_ACP, L"\x416"), "\xD0\x96");
}

TEST(LocaleText, OneByteEncodingAsIconv) {
  const Codeset koi8("KOI8-R");
  std::string all;
  for (int octet = 0; octet < 256; ++octet) all.push_back(static_cast<char>(octet));
  const std::optional<std::string> expected = Iconv("WCHAR_T", "KOI8-R", all);
  ASSERT_TRUE(expected);
  const std::wstring wide = ToWide(CP_ACP, all, MB_ERR_INVALID_CHARS);
  EXPECT_EQ(BytesOf(wide), *expected);
  EXPECT_EQ(FromWide(CP_ACP, wide, WC_ERR_INVALID_CHARS), all);
}

// More text than is converted in one piece, with characters that the encoding lacks on both sides of the border.
TEST(LocaleText, CharactersThatTheEncodingLacks) {
  const Codeset koi8("KOI8-R");
  const std::wstring text = std::wstring(200, L'\x416') + L"\x1F511" + std::wstring(200, L'x') + L"\x20AC";
  const std::string marked = std::string(200, '\xF6') + "?" + std::string(200, 'x') + "?";
  EXPECT_EQ(FromWide(CP_ACP, text), marked);
  EXPECT_EQ(FromWide(CP_ACP, text, WC_ERR_INVALID_CHARS), "");

  char bytes[4];
  BOOL used = 7;
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"\x20AC", 1, bytes, 4, "#", &used), 1);
  EXPECT_EQ(bytes[0], '#');
  EXPECT_EQ(used, TRUE);
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"\x416", 1, bytes, 4, "#", &used), 1);
  EXPECT_EQ(used, FALSE);
}

TEST(LocaleText, IllFormedManyByteText) {
  const Codeset eucJp("EUC-JP");
  EXPECT_EQ(ToWide(CP_ACP, "a\xA4\xA2z"), L"a\x3042z");
  EXPECT_EQ(ToWide(CP_ACP, "a\xFFz"), L"a\xFFFDz");
  EXPECT_EQ(ToWide(CP_ACP, "a\xA4"), L"a\xFFFD") << "cut off";
  EXPECT_EQ(ToWide(CP_ACP, "a\xA4", MB_ERR_INVALID_CHARS), L"");
}

// Where the encoding is a Unicode form, only what is no character at all needs a substitute, and the caller is told.
TEST(LocaleText, SubstitutesInUtf8) {
  char bytes[8];
  BOOL used = 7;
  constexpr wchar_t kText[] = {L'a', wchar_t{0xD800}};
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, kText, 2, bytes, 8, "(none)", &used), 7);
  EXPECT_EQ(std::string_view(bytes, 7), "a(none)");
  EXPECT_EQ(used, TRUE);
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, kText, 2, bytes, 8, nullptr, &used), 4);
  EXPECT_EQ(used, TRUE);
  EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, kText, 1, bytes, 8, "?", &used), 1);
  EXPECT_EQ(used, FALSE);
}

// Some encodings hold a letter back until they know that no accent follows: the last one must not be lost, nor turn up
// in the next call, nor behind a piece that was replaced.
TEST(LocaleText, LettersThatAreHeldBack) {
  {
    const Codeset vietnamese("TCVN5712-1");
    EXPECT_EQ(ToWide(CP_ACP, "CA"), L"CA");
    EXPECT_EQ(ToWide(CP_ACP, "1"), L"1");
  }
  const Codeset cantonese("BIG5-HKSCS");
  EXPECT_EQ(ToWide(CP_ACP, "\x88\x66"), L"\xCA");
  EXPECT_EQ(ToWide(CP_ACP, "\x88\x66\xFF"), L"\xCA\xFFFD");
}

// Text that switches between sets is switched back before a substitute and at its end.
TEST(LocaleText, EncodingsWithShifts) {
  const Codeset japanese("ISO-2022-JP");
  EXPECT_EQ(FromWide(CP_ACP, L"\x65E5\x1F511\x672C"), "\x1B$BF|\x1B(B?\x1B$BK\\\x1B(B");
}

TEST(LocaleTextConcurrent, ThreadsKeepTheirConverters) {
  const Codeset koi8("KOI8-R");
  std::vector<std::thread> threads;
  std::atomic<int> wrong = 0;
  for (size_t i = 0; i < 8; ++i) {
    threads.emplace_back([&wrong, text = std::wstring(i + 1, static_cast<wchar_t>(0x410 + i))] {
      for (int round = 0; round < 200; ++round) {
        char bytes[8];
        wchar_t wide[8];
        const int size = WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), bytes, 8,
                                             nullptr, nullptr);
        const int count = MultiByteToWideChar(CP_ACP, 0, bytes, size, wide, 8);
        wrong += std::wstring_view(wide, static_cast<size_t>(count)) != text;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

// The converter is a thread's own and goes by the locale of the moment.
TEST(LocaleText, FollowsAChangeOfLocale) {
  for (const char* name : {"KOI8-R", "CP1251", "KOI8-R"}) {
    const Codeset codeset(name);
    EXPECT_EQ(FromWide(CP_ACP, L"\x416"), Iconv(name, "WCHAR_T", BytesOf(L"\x416")).value()) << name;
  }
  const Codeset unknown("NO-SUCH-SET");
  EXPECT_EQ(ToWide(CP_ACP, "a"), L"");
}

}  // namespace
