#include "names/value_text.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

#include "ber/read_cursor.h"
#include "names/text_output.h"
#include "names/value_parser.h"

namespace certkern {
namespace {

std::span<const BYTE> BytesOf(const CERT_RDN_VALUE_BLOB& value) { return {value.pbData, value.cbData}; }

// Whether a value is characters rather than bytes.
bool IsWideType(DWORD type) { return type >= CERT_RDN_UNIVERSAL_STRING && type <= CERT_RDN_UTF8_STRING; }

void AppendHexadecimal(std::span<const BYTE> bytes, std::wstring& out) {
  static constexpr std::wstring_view kDigits = L"0123456789ABCDEF";
  out.reserve(out.size() + 1 + 2 * bytes.size());
  out += L'#';
  for (const BYTE byte : bytes) {
    out += kDigits[byte >> 4];
    out += kDigits[byte & 15];
  }
}

// ASCII is a part of every encoding that a locale can have. A byte that is no character by itself stays what it is.
wchar_t Widened(char byte) {
  const auto asItIs = static_cast<wchar_t>(static_cast<unsigned char>(byte));
  wchar_t character;
  if (asItIs < 0x80) return asItIs;
  return MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, &byte, 1, &character, 1) == 1 ? character : asItIs;
}

void AppendText(const CERT_RDN_ATTR& attribute, std::wstring& out) {
  const BYTE* data = attribute.Value.pbData;
  if (!data) return;
  if (IsWideType(attribute.dwValueType)) {
    out += reinterpret_cast<const wchar_t*>(data);
  } else if (attribute.dwValueType >= CERT_RDN_NUMERIC_STRING
             && attribute.dwValueType <= CERT_RDN_GENERAL_STRING) {
    for (const char byte : std::string_view(reinterpret_cast<const char*>(data))) out += Widened(byte);
  }
}

bool IsSpecial(wchar_t character) {
  switch (character) {
    case L',':
    case L'+':
    case L'=':
    case L'"':
    case L'<':
    case L'>':
    case L'#':
    case L';':
    case L'\n':
      return true;
    default:
      return false;
  }
}

bool NeedsQuotes(std::wstring_view value) {
  if (value.empty() || IsWhiteSpace(value.front()) || IsWhiteSpace(value.back())) return true;
  return std::any_of(value.begin(), value.end(), IsSpecial);
}

// Puts quotes around what stands behind start.
void QuoteFrom(size_t start, std::wstring& out) {
  const std::wstring value = out.substr(start);
  out.resize(start);
  out += L'"';
  for (const wchar_t character : value) {
    if (character == L'"') out += L'"';
    out += character;
  }
  out += L'"';
}

template <typename Unit>
void WidenUnits(std::span<const BYTE> bytes, std::wstring& text) {
  text.resize(bytes.size() / sizeof(Unit));
  for (size_t i = 0; i < text.size(); ++i) {
    Unit unit;  // the bytes are a caller's and may stand anywhere
    std::memcpy(&unit, bytes.data() + i * sizeof(Unit), sizeof(Unit));
    text[i] = static_cast<wchar_t>(unit);
  }
}

}  // namespace

void AppendDisplayValue(const CERT_RDN_ATTR& attribute, Quoting quoting, std::wstring& out) {
  const DWORD type = attribute.dwValueType;
  if (type == CERT_RDN_ENCODED_BLOB || type == CERT_RDN_OCTET_STRING) {
    return AppendHexadecimal(BytesOf(attribute.Value), out);
  }
  const size_t start = out.size();
  AppendText(attribute, out);
  if (quoting == Quoting::WhereNeeded && NeedsQuotes(std::wstring_view(out).substr(start)))
    QuoteFrom(start, out);
}

bool PlainValue(DWORD type, const CERT_RDN_VALUE_BLOB& value, std::wstring& text) {
  text.clear();
  if (!value.cbData) return true;
  if (!value.pbData) return Fault(ERROR_INVALID_PARAMETER);
  if (type == CERT_RDN_ENCODED_BLOB || type > CERT_RDN_UTF8_STRING) return Fault(E_NOTIMPL);
  if (type == CERT_RDN_BMP_STRING) {
    WidenUnits<char16_t>(BytesOf(value), text);
  } else if (IsWideType(type)) {
    WidenUnits<wchar_t>(BytesOf(value), text);
  } else {
    WidenUnits<BYTE>(BytesOf(value), text);
  }
  return true;
}

bool PlainDecodedValue(const CERT_RDN_ATTR& attribute, std::wstring& text) {
  const DWORD type = attribute.dwValueType;
  return PlainValue(type == CERT_RDN_BMP_STRING ? DWORD{CERT_RDN_UTF8_STRING} : type, attribute.Value, text);
}

DWORD CopyNarrowValue(DWORD type, std::wstring_view text, LPSTR out, DWORD room) {
  text = text.substr(0, text.find(L'\0'));
  if (IsWideType(type)) return CopyNarrowed(text, CP_ACP, out, room);
  std::string bytes;
  bytes.reserve(text.size());
  for (const wchar_t byte : text) bytes += static_cast<char>(byte);
  return CopyText<char>(bytes, out, room);
}

}  // namespace certkern
