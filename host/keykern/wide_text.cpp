// Text between code pages and 32-bit wide characters.
//
// Ill-formed input is never undefined: with the check flag the call fails with ERROR_NO_UNICODE_TRANSLATION, without
// it each maximal ill-formed piece becomes one U+FFFD (The Unicode Standard, 3.9, "U+FFFD Substitution of Maximal
// Subparts").
#include "keykern/locale_text.h"
#include "keykern/text_sink.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <string_view>
#include <type_traits>

namespace keykern {
namespace {

constexpr bool IsSurrogate(uint32_t c) { return c >= 0xD800 && c <= 0xDFFF; }
constexpr bool IsCharacter(uint32_t c) { return c <= 0x10FFFF && !IsSurrogate(c); }

// Characters below 0x80 at the start of a text. Most text is all of them, so they are looked at in blocks.
template <typename Source>
size_t AsciiRun(const Source* text, size_t size) {
  constexpr size_t kBlock = 16;
  using Bits = std::make_unsigned_t<Source>;
  size_t run = 0;
  for (; size - run >= kBlock; run += kBlock) {
    Bits seen = 0;
    for (size_t i = 0; i < kBlock; ++i) seen = static_cast<Bits>(seen | static_cast<Bits>(text[run + i]));
    if (seen >= 0x80) break;
  }
  while (run < size && static_cast<Bits>(text[run]) < 0x80) ++run;
  return run;
}

int Refuse(DWORD code) {
  SetLastError(code);
  return 0;
}

// --- UTF-8 ---

// Reads one character from text that is not empty; false for an ill-formed piece, which is skipped.
bool ReadUtf8(const uint8_t*& next, const uint8_t* end, uint32_t& character) {
  const uint8_t lead = *next++;
  if (lead < 0x80) {
    character = lead;
    return true;
  }
  int more;
  uint8_t low = 0x80;  // what the second octet may be: overlong forms and surrogates are ruled out here
  uint8_t high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    more = 1;
    character = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    more = 2;
    character = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    more = 3;
    character = lead & 0x07;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return false;
  }
  for (; more; --more, low = 0x80, high = 0xBF) {
    if (next == end || *next < low || *next > high) return false;
    character = character << 6 | (*next++ & 0x3F);
  }
  return true;
}

bool FromUtf8(const uint8_t* next, const uint8_t* end, Check check, WideSink& sink) {
  for (;;) {
    const size_t ascii = AsciiRun(next, static_cast<size_t>(end - next));
    sink.putRun(next, ascii);
    next += ascii;
    if (next == end) return true;
    uint32_t character;
    if (!ReadUtf8(next, end, character)) {
      if (check == Check::Strict) return false;
      character = kReplacement;
    }
    sink.put(static_cast<wchar_t>(character));
  }
}

void PutUtf8(uint32_t c, ByteSink& sink) {
  if (c < 0x80) {
    sink.put(c);
  } else if (c < 0x800) {
    sink.put(0xC0 | c >> 6);
    sink.put(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    sink.put(0xE0 | c >> 12);
    sink.put(0x80 | (c >> 6 & 0x3F));
    sink.put(0x80 | (c & 0x3F));
  } else {
    sink.put(0xF0 | c >> 18);
    sink.put(0x80 | (c >> 12 & 0x3F));
    sink.put(0x80 | (c >> 6 & 0x3F));
    sink.put(0x80 | (c & 0x3F));
  }
}

// --- UTF-16LE ---

uint32_t Unit(const uint8_t* place) { return place[0] | uint32_t{place[1]} << 8; }

bool FromUtf16(const uint8_t* next, const uint8_t* end, Check check, WideSink& sink) {
  while (next != end) {
    uint32_t character = kReplacement;
    bool wellFormed = end - next >= 2;
    if (!wellFormed) {
      next = end;  // half a unit
    } else {
      const uint32_t unit = Unit(next);
      next += 2;
      if (!IsSurrogate(unit)) {
        character = unit;
      } else if (unit < 0xDC00 && end - next >= 2 && (Unit(next) & 0xFC00) == 0xDC00) {
        character = 0x10000 + ((unit & 0x3FF) << 10 | (Unit(next) & 0x3FF));
        next += 2;
      } else {
        wellFormed = false;
      }
    }
    if (!wellFormed && check == Check::Strict) return false;
    sink.put(static_cast<wchar_t>(character));
  }
  return true;
}

void PutUnit(uint32_t unit, ByteSink& sink) {
  sink.put(unit & 0xFF);
  sink.put(unit >> 8);
}

void PutUtf16(uint32_t c, ByteSink& sink) {
  if (c < 0x10000) return PutUnit(c, sink);
  PutUnit(0xD800 | (c - 0x10000) >> 10, sink);
  PutUnit(0xDC00 | (c & 0x3FF), sink);
}

// Writes one wide character, or what stands for one that is none.
template <void (*kPut)(uint32_t, ByteSink&)>
bool WriteWide(uint32_t character, Check check, Substitute& substitute, ByteSink& sink) {
  if (IsCharacter(character)) {
    kPut(character, sink);
    return true;
  }
  if (check == Check::Strict) return false;
  substitute.used = true;
  if (substitute.text) {
    sink.putRun(substitute.text, std::strlen(substitute.text));
  } else {
    kPut(kReplacement, sink);
  }
  return true;
}

bool ToUtf8(std::wstring_view text, Check check, Substitute& substitute, ByteSink& sink) {
  for (;;) {
    const size_t ascii = AsciiRun(text.data(), text.size());
    sink.putRun(text.data(), ascii);
    text.remove_prefix(ascii);
    if (text.empty()) return true;
    if (!WriteWide<PutUtf8>(static_cast<uint32_t>(text.front()), check, substitute, sink)) return false;
    text.remove_prefix(1);
  }
}

bool ToUtf16(std::wstring_view text, Check check, Substitute& substitute, ByteSink& sink) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (!WriteWide<PutUtf16>(static_cast<uint32_t>(text[i]), check, substitute, sink)) return false;
  }
  return true;
}

// --- argument rules ---

enum class Page { Utf8, Utf16, Locale, Unknown };

Page PageOf(UINT codePage) {
  if (codePage == CP_UTF8) return Page::Utf8;
  if (codePage == CP_UTF16LE) return Page::Utf16;
  if (codePage == CP_ACP) return LocaleIsUtf8() ? Page::Utf8 : Page::Locale;
  return Page::Unknown;
}

// Size of a terminated text, terminator included.
size_t TerminatedSize(Page page, const char* text) {
  if (page != Page::Utf16) return std::strlen(text) + 1;
  size_t size = 0;
  while (text[size] || text[size + 1]) size += 2;
  return size + 2;
}

// What the sink has seen as the function's result.
template <typename Sink>
int Finish(const Sink& sink, bool converted, int room) {
  if (!converted) return Refuse(ERROR_NO_UNICODE_TRANSLATION);
  if (sink.count() > INT_MAX) return Refuse(ERROR_INVALID_PARAMETER);
  if (room && sink.count() > static_cast<size_t>(room)) return Refuse(ERROR_INSUFFICIENT_BUFFER);
  return static_cast<int>(sink.count());
}

}  // namespace
}  // namespace keykern

using namespace keykern;  // NOLINT(google-build-using-namespace): the rest of this file is the exported surface

extern "C" {

int MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr, int cbMultiByte,
                        LPWSTR lpWideCharStr, int cchWideChar) {
  const Page page = PageOf(CodePage);
  if (!lpMultiByteStr || !cbMultiByte || cbMultiByte < -1 || cchWideChar < 0
      || (cchWideChar && !lpWideCharStr) || page == Page::Unknown
      || static_cast<const void*>(lpMultiByteStr) == static_cast<const void*>(lpWideCharStr)) {
    return Refuse(ERROR_INVALID_PARAMETER);
  }
  if (dwFlags & ~(MB_PRECOMPOSED | MB_ERR_INVALID_CHARS)) return Refuse(ERROR_INVALID_FLAGS);
  const Check check = dwFlags & MB_ERR_INVALID_CHARS ? Check::Strict : Check::Replace;
  const size_t size =
      cbMultiByte < 0 ? TerminatedSize(page, lpMultiByteStr) : static_cast<size_t>(cbMultiByte);
  const uint8_t* text = reinterpret_cast<const uint8_t*>(lpMultiByteStr);
  WideSink sink(lpWideCharStr, static_cast<size_t>(cchWideChar));
  const bool converted = page == Page::Utf8 ? FromUtf8(text, text + size, check, sink)
      : page == Page::Utf16                 ? FromUtf16(text, text + size, check, sink)
                                            : FromLocale({lpMultiByteStr, size}, check, sink);
  return Finish(sink, converted, cchWideChar);
}

int WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWSTR lpWideCharStr, int cchWideChar,
                        LPSTR lpMultiByteStr, int cbMultiByte, LPCSTR lpDefaultChar,
                        LPBOOL lpUsedDefaultChar) {
  const Page page = PageOf(CodePage);
  if (!lpWideCharStr || !cchWideChar || cchWideChar < -1 || cbMultiByte < 0
      || (cbMultiByte && !lpMultiByteStr) || page == Page::Unknown
      || static_cast<const void*>(lpWideCharStr) == static_cast<const void*>(lpMultiByteStr)) {
    return Refuse(ERROR_INVALID_PARAMETER);
  }
  // the Unicode forms can write every character, so that a default has no meaning there
  if (CodePage != CP_ACP && (lpDefaultChar || lpUsedDefaultChar)) return Refuse(ERROR_INVALID_PARAMETER);
  // an empty one could leave nothing, which reads as a failure
  if (lpDefaultChar && !*lpDefaultChar) return Refuse(ERROR_INVALID_PARAMETER);
  if (dwFlags & ~(WC_NO_BEST_FIT_CHARS | WC_ERR_INVALID_CHARS)) return Refuse(ERROR_INVALID_FLAGS);
  const Check check = dwFlags & WC_ERR_INVALID_CHARS ? Check::Strict : Check::Replace;
  const size_t count = cchWideChar < 0 ? std::wcslen(lpWideCharStr) + 1 : static_cast<size_t>(cchWideChar);
  const std::wstring_view text(lpWideCharStr, count);
  Substitute substitute{.text = lpDefaultChar};
  ByteSink sink(lpMultiByteStr, static_cast<size_t>(cbMultiByte));
  const bool converted = page == Page::Utf8 ? ToUtf8(text, check, substitute, sink)
      : page == Page::Utf16                 ? ToUtf16(text, check, substitute, sink)
                                            : ToLocale(text, check, substitute, sink);
  const int result = Finish(sink, converted, cbMultiByte);
  if (result && lpUsedDefaultChar) *lpUsedDefaultChar = substitute.used;
  return result;
}

}  // extern "C"
