#include "names/value_parser.h"

#include <certkern/name.h>

#include <bit>
#include <cwctype>

namespace certkern {
namespace {

constexpr wchar_t kQuote = L'"';

// Where quotes that are open close; npos when they don't. A doubled quote stands for itself.
size_t ClosingQuote(std::wstring_view text, size_t at) {
  for (;;) {
    at = text.find(kQuote, at);
    if (at == text.npos || !text.substr(at).starts_with(L"\"\"")) return at;
    at += 2;
  }
}

size_t QuotedLength(std::wstring_view text, const Separators& separators) {
  const size_t closing = ClosingQuote(text, 1);
  if (closing == text.npos) return closing;
  const size_t end = separators.findIn(text, closing + 1);
  const std::wstring_view between = text.substr(0, end).substr(closing + 1);
  return SkipWhiteSpace(between).empty() ? closing + 1 + between.size() : text.npos;
}

// A separator behind a backslash is part of the value; what stands before the backslash is not looked at.
size_t BareLength(std::wstring_view text, const Separators& separators) {
  size_t at = separators.findIn(text, 0);
  while (at < text.size() && at && text[at - 1] == L'\\') at = separators.findIn(text, at + 1);
  return at;
}

// 16 for what is no digit.
unsigned DigitValue(wchar_t character) {
  if (character >= L'0' && character <= L'9') return static_cast<unsigned>(character - L'0');
  if (character >= L'A' && character <= L'F') return static_cast<unsigned>(character - L'A') + 10;
  if (character >= L'a' && character <= L'f') return static_cast<unsigned>(character - L'a') + 10;
  return 16;
}

}  // namespace

Separators NameSeparators(DWORD stringType) {
  const bool plus = !(stringType & CERT_NAME_STR_NO_PLUS_FLAG);
  if (stringType & CERT_NAME_STR_COMMA_FLAG) return Separators(plus ? L",+" : L",");
  if (stringType & CERT_NAME_STR_SEMICOLON_FLAG) return Separators(plus ? L";+" : L";");
  if (stringType & CERT_NAME_STR_CRLF_FLAG) return Separators(plus ? L"\r\n+" : L"\r\n");
  return Separators(plus ? L",;+" : L",;");
}

// What is white space beyond ASCII the locale says.
bool IsWhiteSpace(wchar_t character) {
  const auto code = std::bit_cast<std::wint_t>(character);
  return code < 0x80 ? code == ' ' || (code >= '\t' && code <= '\r') : std::iswspace(code) != 0;
}

std::wstring_view SkipWhiteSpace(std::wstring_view text) {
  size_t count = 0;
  while (count < text.size() && IsWhiteSpace(text[count])) ++count;
  return text.substr(count);
}

std::wstring_view TrimWhiteSpaceBehind(std::wstring_view text) {
  while (!text.empty() && IsWhiteSpace(text.back())) text.remove_suffix(1);
  return text;
}

size_t ValueLength(std::wstring_view text, const Separators& separators) {
  return text.starts_with(kQuote) ? QuotedLength(text, separators) : BareLength(text, separators);
}

void UnquoteValue(std::wstring_view raw, std::wstring& value) {
  value.clear();
  const bool quoted = raw.starts_with(kQuote);
  if (quoted) raw = raw.substr(1, raw.size() - 2);
  if (!quoted && raw.find(L'\\') == raw.npos) {  // most values
    value = raw;
    return;
  }
  for (size_t i = 0; i < raw.size(); ++i) {
    if (raw[i] == L'\\' && ++i == raw.size()) break;
    value += raw[i];
    if (quoted && raw[i] == kQuote) ++i;  // inside quotes they come in pairs
  }
}

bool ReadHexadecimal(std::wstring_view digits, std::vector<BYTE>& bytes) {
  bytes.clear();
  if (digits.empty() || digits.size() % 2) return false;
  for (size_t i = 0; i < digits.size(); i += 2) {
    const unsigned high = DigitValue(digits[i]), low = DigitValue(digits[i + 1]);
    if (high > 15 || low > 15) return false;
    bytes.push_back(static_cast<BYTE>(high << 4 | low));
  }
  return true;
}

}  // namespace certkern
