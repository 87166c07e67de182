#include "ber/name_value.h"

#include "platform/limits.h"

#include <cstring>
#include <cwchar>
#include <string_view>

namespace certkern {
namespace {

// Universal identifier of each dwValueType; kNoTag where there is none.
constexpr BYTE kTagOfType[] = {31, 31, 4, 18, 19, 20, 21, 22, 25, 26, 27, 28, 30, 12, 31, 31};
constexpr DWORD kTypeCount = sizeof(kTagOfType);

// And back, by the low five bits of an identifier.
constexpr BYTE kTypeOfTag[32] = {0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0,  13, 0, 0,  0,
                                 1, 1, 3, 4, 5, 6, 7, 0, 0, 8, 9, 10, 11, 0, 12, 0};

constexpr BYTE kTagUniversalString = 28;
constexpr BYTE kPrimitiveSequence = kTagSequence & 31;

bool IsNarrowText(DWORD type) { return type >= CERT_RDN_NUMERIC_STRING && type <= CERT_RDN_GENERAL_STRING; }

// How the content octets of a type become the bytes of the record.
enum class Conversion { None, Bytes, Widen, Bmp, Universal, Utf8 };

Conversion ConversionOf(DWORD type, NameValueForm form) {
  if (type == CERT_RDN_OCTET_STRING) return Conversion::Bytes;
  if (IsNarrowText(type)) return form == NameValueForm::Wide ? Conversion::Widen : Conversion::Bytes;
  if (type == CERT_RDN_BMP_STRING) return Conversion::Bmp;
  if (type == CERT_RDN_UNIVERSAL_STRING) return Conversion::Universal;
  if (type == CERT_RDN_UTF8_STRING) return Conversion::Utf8;
  return Conversion::None;
}

// The old 8-bit repertoires have no sure reading, so that a strict value of theirs must be empty; numbers are digits.
bool PassesStrictTests(DWORD type, std::span<const BYTE> content) {
  if (type >= CERT_RDN_TELETEX_STRING && type <= CERT_RDN_GENERAL_STRING && type != CERT_RDN_IA5_STRING) {
    return content.empty();
  }
  if (type != CERT_RDN_NUMERIC_STRING) return true;
  for (const BYTE octet : content) {
    if (octet < '0' || octet > '9') return false;
  }
  return true;
}

WCHAR BmpUnit(const BYTE* unit) { return static_cast<WCHAR>(unit[0] << 8 | unit[1]); }
WCHAR UniversalUnit(const BYTE* unit) {
  return static_cast<WCHAR>(DWORD{unit[0]} << 24 | DWORD{unit[1]} << 16 | DWORD{unit[2]} << 8 | unit[3]);
}

// Content of which a text is made, unit by unit.
struct Units {
  std::span<const BYTE> content;
  size_t unitSize;
  WCHAR (*read)(const BYTE*);

  size_t count() const { return content.size() / unitSize; }  // a tail that is no whole unit is ignored
  WCHAR at(size_t i) const { return read(content.data() + i * unitSize); }
  // A text that already ends with a NUL gets no other.
  bool needsNul() const { return !count() || at(count() - 1); }
};

Units UnitsOf(Conversion conversion, std::span<const BYTE> content) {
  switch (conversion) {
    case Conversion::Bmp:
      return {content, 2, BmpUnit};
    case Conversion::Universal:
      return {content, 4, UniversalUnit};
    default:
      return {content, 1, [](const BYTE* unit) { return static_cast<WCHAR>(*unit); }};
  }
}

bool WideToRecord(const Units& units, CERT_RDN_VALUE_BLOB& value, BerDecodeArena& arena) {
  const size_t count = units.count();
  WCHAR* place;
  if (count > kMaxInterfaceSize / sizeof(WCHAR)) return false;
  const bool needsNul = units.needsNul();
  if (!arena.reserveRecords(count + needsNul, place)) return false;
  for (size_t i = 0; place && i < count; ++i) place[i] = units.at(i);
  if (place && needsNul) place[count] = L'\0';
  value.cbData = static_cast<DWORD>(count * sizeof(WCHAR));
  value.pbData = reinterpret_cast<BYTE*>(place);
  return true;
}

bool Utf8ToRecord(std::span<const BYTE> content, CERT_RDN_VALUE_BLOB& value, BerDecodeArena& arena) {
  if (content.size() > kMaxConvertedText) return false;
  const LPCSTR text = reinterpret_cast<LPCSTR>(content.data());
  const int size = static_cast<int>(content.size());
  int count = 0;
  if (size) {
    count = MultiByteToWideChar(CP_UTF8, 0, text, size, nullptr, 0);
    if (count <= 0) return false;
  }
  // a NUL octet is a character of its own, so the last octet tells what the last character is
  const bool needsNul = content.empty() || content.back();
  WCHAR* place;
  if (!arena.reserveRecords(static_cast<size_t>(count) + needsNul, place)) return false;
  if (place && count && MultiByteToWideChar(CP_UTF8, 0, text, size, place, count) != count) return false;
  if (place && needsNul) place[count] = L'\0';
  value.cbData = static_cast<DWORD>(static_cast<size_t>(count) * sizeof(WCHAR));
  value.pbData = reinterpret_cast<BYTE*>(place);
  return true;
}

bool BytesToRecord(std::span<const BYTE> content, DWORD type, CERT_RDN_VALUE_BLOB& value,
                   BerDecodeArena& arena) {
  const bool needsNul = type != CERT_RDN_OCTET_STRING && (content.empty() || content.back());
  BYTE* place;
  if (!arena.reserve(content.size() + needsNul, place)) return false;
  if (place) {
    if (!content.empty()) std::memcpy(place, content.data(), content.size());
    if (needsNul) place[content.size()] = 0;
  }
  value.cbData = static_cast<DWORD>(content.size());
  value.pbData = place;
  return true;
}

bool ContentToRecord(std::span<const BYTE> content, DWORD type, Conversion conversion,
                     CERT_RDN_VALUE_BLOB& value, BerDecodeArena& arena) {
  switch (conversion) {
    case Conversion::None:
      return false;
    case Conversion::Bytes:
      return BytesToRecord(content, type, value, arena);
    case Conversion::Utf8:
      return Utf8ToRecord(content, value, arena);
    default:
      return WideToRecord(UnitsOf(conversion, content), value, arena);
  }
}

// --- writing ---

// The code for a character that a checked type cannot hold; 0 when it can.
DWORD CharacterFault(DWORD type, WCHAR character) {
  static constexpr std::wstring_view kPrintableMarks = L" '()+,-./:=?";
  const bool digit = character >= L'0' && character <= L'9';
  const bool letter = (character >= L'A' && character <= L'Z') || (character >= L'a' && character <= L'z');
  switch (type) {
    case CERT_RDN_NUMERIC_STRING:
      return digit || character == L' ' ? 0 : CRYPT_E_INVALID_NUMERIC_STRING;
    case CERT_RDN_PRINTABLE_STRING:
      // digits stand apart: a checked text of this type has none
      return letter || kPrintableMarks.find(character) != kPrintableMarks.npos
          ? 0
          : CRYPT_E_INVALID_PRINTABLE_STRING;
    case CERT_RDN_IA5_STRING:
      return static_cast<DWORD>(character) <= 127 ? 0 : CRYPT_E_INVALID_IA5_STRING;
    default:
      return 0;
  }
}

using WideText = std::span<const WCHAR>;

bool NarrowTextEncode(DWORD type, WideText text, bool checked, BerWriteCursor& out) {
  if (checked) {
    for (const WCHAR character : text) {
      if (const DWORD fault = CharacterFault(type, character)) return Fault(fault);
    }
  }
  BYTE* place;
  if (!BerBeginElement(kTagOfType[type], text.size(), out, place)) return false;
  for (size_t i = 0; place && i < text.size(); ++i) place[i] = static_cast<BYTE>(text[i]);
  return true;
}

// Characters of a fixed width, big-endian; higher bits are cut.
bool FixedTextEncode(BYTE tag, size_t width, WideText text, BerWriteCursor& out) {
  BYTE* place;
  if (!BerBeginElement(tag, text.size() * width, out, place)) return false;
  for (size_t i = 0; place && i < text.size(); ++i) {
    for (size_t octet = width; octet-- > 0;)
      *place++ = static_cast<BYTE>(static_cast<DWORD>(text[i]) >> (8 * octet));
  }
  return true;
}

bool Utf8TextEncode(WideText text, BerWriteCursor& out) {
  if (text.size() > kMaxConvertedText) return false;
  const int count = static_cast<int>(text.size());
  int size = 0;
  if (count) {  // a length of zero is an error to the conversion
    size = WideCharToMultiByte(CP_UTF8, 0, text.data(), count, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return false;
  }
  BYTE* place;
  if (!BerBeginElement(kTagUtf8String, static_cast<size_t>(size), out, place)) return false;
  if (!place || !size) return true;
  return WideCharToMultiByte(CP_UTF8, 0, text.data(), count, reinterpret_cast<LPSTR>(place), size, nullptr,
                             nullptr)
      == size;
}

bool WideTextEncode(DWORD type, WideText text, BerWriteCursor& out) {
  if (type == CERT_RDN_UNIVERSAL_STRING) return FixedTextEncode(kTagUniversalString, 4, text, out);
  if (type == CERT_RDN_BMP_STRING) return FixedTextEncode(kTagBmpString, 2, text, out);
  return Utf8TextEncode(text, out);
}

WideText TextOf(const CERT_RDN_VALUE_BLOB& value) {
  return {reinterpret_cast<const WCHAR*>(value.pbData), value.cbData / sizeof(WCHAR)};
}

}  // namespace

bool NameValueDecode(BerReadCursor& in, NameValueForm form, CERT_NAME_VALUE& value, BerDecodeArena& arena) {
  if (in.empty()) return true;
  if (in.nextIs(kTagBitString)) {
    value.dwValueType = CERT_RDN_ENCODED_BLOB;
    const std::span<const BYTE> rest = in.rest();
    in.skip(rest.size());
    return BerCopyBytes(rest, value.Value, arena);
  }
  const BYTE identifier = in.nextTag();
  if (form != NameValueForm::Wide && (identifier & 0xE0)) return Fault(CRYPT_E_ASN1_BADTAG);
  BYTE tag;
  BerReadCursor content;
  if (!in.readElement(tag, content)) return false;
  const DWORD type = kTypeOfTag[tag & 31];
  if (form == NameValueForm::Strict && !PassesStrictTests(type, content.rest())) return false;
  value.dwValueType = type;
  return ContentToRecord(content.rest(), type, ConversionOf(type, form), value.Value, arena);
}

bool DisplayTextDecode(BerReadCursor& in, LPWSTR& text, BerDecodeArena& arena) {
  text = nullptr;
  if (in.empty()) return true;
  const BYTE identifier = in.nextTag();
  if (identifier == kPrimitiveSequence) return false;
  if (identifier & 0xE0) return Fault(CRYPT_E_ASN1_BADTAG);
  BYTE tag;
  BerReadCursor content;
  if (!in.readElement(tag, content)) return false;
  const DWORD type = kTypeOfTag[tag];
  if (type == CERT_RDN_OCTET_STRING) return false;
  CERT_RDN_VALUE_BLOB value{};
  if (!ContentToRecord(content.rest(), type, ConversionOf(type, NameValueForm::Wide), value, arena))
    return false;
  text = reinterpret_cast<LPWSTR>(value.pbData);
  return true;
}

bool AttributeValueEncode(const CERT_NAME_VALUE& value, BerWriteCursor& out) {
  const DWORD type = value.dwValueType;
  std::span<const BYTE> bytes;
  if (type == CERT_RDN_ANY_TYPE) return Fault(E_INVALIDARG);
  if (type >= kTypeCount || !BlobBytes(value.Value, bytes)) return false;
  if (type == CERT_RDN_ENCODED_BLOB) {
    if (!out.sizing() && bytes.size() > out.count()) return false;  // too little room has no code here
    return out.write(bytes);
  }
  if (type > CERT_RDN_UTF8_STRING) return bytes.empty();
  if (type <= CERT_RDN_GENERAL_STRING) return BerEncodeOctets(kTagOfType[type], value.Value, out);
  return WideTextEncode(type, TextOf(value.Value), out);
}

bool NameValueEncode(const CERT_NAME_VALUE& value, BerWriteCursor& out) {
  if (value.dwValueType > CERT_RDN_TYPE_MASK) return Fault(CRYPT_E_ASN1_CHOICE);
  return AttributeValueEncode(value, out);
}

bool WideNameValueEncode(const CERT_NAME_VALUE& value, OctetStringType octets, BerWriteCursor& out) {
  const DWORD type = value.dwValueType & CERT_RDN_TYPE_MASK;
  const bool checked = !(value.dwValueType & CERT_RDN_DISABLE_CHECK_TYPE_FLAG);
  if (type < CERT_RDN_OCTET_STRING) return Fault(CRYPT_E_NOT_CHAR_STRING);
  if (type == CERT_RDN_OCTET_STRING) {
    if (octets == OctetStringType::Refused) return Fault(CRYPT_E_NOT_CHAR_STRING);
    return BerEncodeOctets(kTagOctetString, value.Value, out);
  }
  if (type > CERT_RDN_UTF8_STRING) return false;
  std::span<const BYTE> bytes;
  if (!BlobBytes(value.Value, bytes)) return false;
  WideText text = TextOf(value.Value);
  if (!value.Value.cbData && value.Value.pbData) text = WideText(text.data(), std::wcslen(text.data()));
  return IsNarrowText(type) ? NarrowTextEncode(type, text, checked, out) : WideTextEncode(type, text, out);
}

}  // namespace certkern
