#include "certkern/ASN1Types.h"

#include <certkern/encode.h>
#include <certkern/errors.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "asn1rt/control.h"
#include "ber/name_value.h"
#include "certkern/ASN1Util.h"
#include "names/value_parser.h"
#include "platform/exceptions.h"
#include "platform/sizes.h"

namespace certkern {
namespace {

using namespace asn1data;
using enum StringClass;

constexpr DWORD kUpperBoundName = 32768;
constexpr std::string_view kPostalAddress = "2.5.4.16";
constexpr wchar_t kLineSeparator = L'$';

constexpr RdnKey kRdnKeys[] = {
    {{L"CN"},               "2.5.4.3",                    Directory, kUpperBoundName},
    {{L"C"},                "2.5.4.6",                    Printable, kUpperBoundName},
    {{L"L"},                "2.5.4.7",                    Directory, kUpperBoundName},
    {{L"ST", L"S"},         "2.5.4.8",                    Directory, kUpperBoundName},
    {{L"Email", L"E"},      "1.2.840.113549.1.9.1",       Ia5,       kUpperBoundName},
    {{L"O"},                "2.5.4.10",                   Directory, kUpperBoundName},
    {{L"OU"},               "2.5.4.11",                   Directory, kUpperBoundName},
    {{L"Title", L"T"},      "2.5.4.12",                   Directory, kUpperBoundName},
    {{L"GivenName", L"G"},  "2.5.4.42",                   Directory, kUpperBoundName},
    {{L"Initials", L"I"},   "2.5.4.43",                   Directory, kUpperBoundName},
    {{L"SN"},               "2.5.4.4",                    Directory, kUpperBoundName},
    {{L"PS"},               "2.5.4.65",                   Directory, kUpperBoundName},
    {{L"DC"},               "0.9.2342.19200300.100.1.25", Directory, kUpperBoundName},
    {{L"STREET"},           "2.5.4.9",                    Directory, kUpperBoundName},
    {{},                    "2.5.4.24",                   Numeric,   kUpperBoundName},
    {{L"OGRN"},             "1.2.643.100.1",              Numeric,   kUpperBoundName},
    {{L"OGRNIP"},           "1.2.643.100.5",              Numeric,   kUpperBoundName},
    {{L"INNLE"},            "1.2.643.100.4",              Numeric,   kUpperBoundName},
    {{L"INN"},              "1.2.643.3.131.1.1",          Numeric,   kUpperBoundName},
    {{L"SNILS"},            "1.2.643.100.3",              Numeric,   kUpperBoundName},
    {{L"UnstructuredName"}, "1.2.840.113549.1.9.2",       Directory, kUpperBoundName},
    {{L"SERIALNUMBER"},     "2.5.4.5",                    Printable, kUpperBoundName},
    {{L"PostalAddress"},    "2.5.4.16",                   Directory, kUpperBoundName},
    {{L"PostalCode"},       "2.5.4.17",                   Directory, kUpperBoundName},
};

wchar_t AsciiLower(wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c; }

bool EqualKeys(std::wstring_view a, std::wstring_view b) {
  return std::ranges::equal(a, b, {}, AsciiLower, AsciiLower);
}

// --- values ---

// Nothing for what is no string.
std::optional<std::wstring> ReadString(std::span<const BYTE> encoded) {
  CERT_NAME_VALUE value{};
  BerDecodeArena counter(0);
  BerReadCursor in(encoded);
  if (in.empty() || !NameValueDecode(in, NameValueForm::Wide, value, counter) || !in.empty()) return {};
  if (value.dwValueType <= CERT_RDN_OCTET_STRING) return {};
  std::vector<uint64_t> room(counter.size() / sizeof(uint64_t) + 1);  // aligned for wide characters
  BerDecodeArena arena(reinterpret_cast<BYTE*>(room.data()), room.size() * sizeof(uint64_t), 0);
  in = BerReadCursor(encoded);
  if (!NameValueDecode(in, NameValueForm::Wide, value, arena)) return {};
  return std::wstring(reinterpret_cast<const wchar_t*>(value.Value.pbData),
                      value.Value.cbData / sizeof(wchar_t));
}

std::wstring PostalAddressText(std::span<const BYTE> encoded) {
  const auto fail = [] { return Asn1Exception("Unsupported string type in PostalAddres"); };
  BerReadCursor in(encoded), lines;
  if (!BerExpect(in, kTagSequence, lines) || !in.empty()) throw fail();
  std::wstring text;
  for (bool first = true; !lines.empty(); first = false) {
    std::span<const BYTE> line;
    if (!lines.readWhole(line)) throw fail();
    const auto words = ReadString(line);
    if (!words) throw fail();
    if (!first) text += kLineSeparator;
    text += *words;
  }
  return text;
}

DWORD ValueTypeOf(StringClass stringClass) {
  switch (stringClass) {
    case Printable:
      return CERT_RDN_PRINTABLE_STRING;
    case Ia5:
      return CERT_RDN_IA5_STRING;
    case Numeric:
      return CERT_RDN_NUMERIC_STRING;
    default:
      return CERT_RDN_UTF8_STRING;
  }
}

[[noreturn]] void ThrowCodecError() {
  const DWORD code = GetLastError();
  throw CryptException(code ? code : DWORD{CRYPT_E_INVALID_X500_STRING});
}

void AppendString(std::wstring text, DWORD valueType, std::vector<BYTE>& encoded) {
  const CERT_NAME_VALUE value = {
      valueType, {CheckedDword(text.size() * sizeof(wchar_t)), reinterpret_cast<BYTE*>(text.data())}
  };
  BerWriteCursor counter;
  SetLastError(ERROR_SUCCESS);  // a failure may leave no code
  if (!WideNameValueEncode(value, OctetStringType::Refused, counter)) ThrowCodecError();
  const size_t before = encoded.size();
  encoded.resize(before + counter.count());
  BerWriteCursor out(encoded.data() + before, counter.count());
  if (!WideNameValueEncode(value, OctetStringType::Refused, out)) ThrowCodecError();
}

std::vector<BYTE> InElement(BYTE tag, std::vector<BYTE> content) {
  const CRYPT_DATA_BLOB blob = {CheckedDword(content.size()), content.data()};
  BerWriteCursor counter;
  if (!BerEncodeOctets(tag, blob, counter)) ThrowCodecError();
  std::vector<BYTE> element(counter.count());
  BerWriteCursor out(element.data(), element.size());
  if (!BerEncodeOctets(tag, blob, out)) ThrowCodecError();
  return element;
}

std::vector<BYTE> EncodePostalAddress(std::wstring_view text) {
  std::vector<BYTE> lines;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find(kLineSeparator, at), text.size());
    AppendString(std::wstring(text.substr(at, end - at)), CERT_RDN_UTF8_STRING, lines);
    at = end + 1;
  }
  return InElement(kTagSequence, std::move(lines));
}

ASN1T_AttributeTypeAndValue MakeAttribute(ASN1Context& context, const char* oid,
                                          std::span<const BYTE> encoded) {
  ASN1T_AttributeTypeAndValue attribute;
  attribute.type = StrToOid(context, oid);
  attribute.value.encoded = CopyOctets(context, encoded);
  return attribute;
}

// --- names ---

constexpr std::wstring_view kBlanks = L" \t\n\r";

std::wstring_view Trim(std::wstring_view text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

std::string OidOfKey(std::wstring_view key) {
  constexpr std::wstring_view kPrefix = L"OID.";
  if (const RdnKey* row = FindRdnKey(key)) return row->oid;
  if (key.starts_with(kPrefix)) key.remove_prefix(kPrefix.size());
  std::string oid;
  for (const wchar_t c : key) {
    if (c != L'.' && (c < L'0' || c > L'9')) throw Asn1Exception("attribute type oid format is invalid");
    oid += static_cast<char>(c);
  }
  ASN1OBJID arcs;
  // as written in decimal, and not as C would read it
  if (str2oid(oid.c_str(), arcs) != 0 || oid2str(AsField(arcs)) != oid) {
    throw Asn1Exception("attribute type oid format is invalid");
  }
  return oid;
}

class NameTextParser {
 public:
  NameTextParser(ASN1Context& context, std::wstring_view text, DWORD stringType)
      : context_(context), rest_(text), separators_(NameSeparators(stringType)) {}

  // In the order of the text.
  std::vector<ASN1T_RelativeDistinguishedName> run();

 private:
  ASN1T_AttributeTypeAndValue readAttribute();
  std::wstring_view takeValue();

  ASN1Context& context_;
  std::wstring_view rest_;
  const Separators separators_;
};

std::vector<ASN1T_RelativeDistinguishedName> NameTextParser::run() {
  std::vector<ASN1T_RelativeDistinguishedName> names(1);
  while (true) {
    CheckedMemory(AppendElement(context_, names.back(), readAttribute()));
    if (rest_.empty()) return names;
    const bool plus = rest_.front() == L'+';
    rest_.remove_prefix(1);
    if (!plus) names.emplace_back();
  }
}

ASN1T_AttributeTypeAndValue NameTextParser::readAttribute() {
  const size_t equals = rest_.find(L'=');
  if (equals == rest_.npos) throw Asn1Exception("invalid string");
  const std::wstring_view key = Trim(rest_.substr(0, equals));
  if (key.empty()) throw Asn1Exception("invalid string");
  const std::string oid = OidOfKey(key);
  rest_.remove_prefix(equals + 1);
  const std::wstring_view raw = takeValue();
  if (raw.front() == L'#') {
    std::vector<BYTE> octets;
    if (!ReadHexadecimal(raw.substr(1), octets)) throw Asn1Exception("invalid string");
    return MakeAttribute(context_, oid.c_str(), InElement(kTagOctetString, std::move(octets)));
  }
  std::wstring value;
  UnquoteValue(raw, value);
  return TextAttribute(context_, oid.c_str(), value);
}

// Not empty, with its quotes.
std::wstring_view NameTextParser::takeValue() {
  rest_.remove_prefix(std::min(rest_.find_first_not_of(kBlanks), rest_.size()));
  const size_t length = ValueLength(rest_, separators_);
  if (length == rest_.npos) throw Asn1Exception("invalid string");
  const std::wstring_view raw = Trim(rest_.substr(0, length));
  // other white space behind closed quotes is none here
  const bool quoted = !raw.empty() && raw.front() == L'"';
  if (raw.empty() || (quoted && raw.back() != L'"')) throw Asn1Exception("invalid string");
  rest_.remove_prefix(length);
  return raw;
}

}  // namespace

const RdnKey* FindRdnKey(std::wstring_view key) {
  for (const RdnKey& row : kRdnKeys) {
    for (const std::wstring_view candidate : row.keys) {
      if (!candidate.empty() && EqualKeys(candidate, key)) return &row;
    }
  }
  return nullptr;
}

const RdnKey* FindRdnKeyByOid(std::string_view oid) {
  const auto* const row = std::ranges::find(kRdnKeys, oid, &RdnKey::oid);
  return row == std::end(kRdnKeys) ? nullptr : row;
}

std::wstring StringText(std::span<const BYTE> encoded) {
  auto text = ReadString(encoded);
  if (!text) throw Asn1Exception("Unsupported string type");
  return *std::move(text);
}

std::wstring AttributeText(const ASN1T_AttributeTypeAndValue& attribute) {
  const std::span<const BYTE> encoded = attribute.value.encoded.bytes();
  // most issuers write a postal address as one string
  const bool lines = !encoded.empty() && encoded.front() == kTagSequence;
  return lines && oid2str(attribute.type) == kPostalAddress ? PostalAddressText(encoded)
                                                            : StringText(encoded);
}

ASN1T_AttributeTypeAndValue TextAttribute(ASN1Context& context, const char* oid, std::wstring_view text) {
  const RdnKey* const row = FindRdnKeyByOid(oid);
  if (text.size() > (row ? row->longest : kUpperBoundName)) throw Asn1Exception("invalid string");
  if (oid == kPostalAddress) return MakeAttribute(context, oid, EncodePostalAddress(text));
  std::vector<BYTE> encoded;
  AppendString(std::wstring(text), ValueTypeOf(row ? row->stringClass : Directory), encoded);
  return MakeAttribute(context, oid, encoded);
}

NameOfText::NameOfText(std::wstring_view text, DWORD stringType) : context_(ASN1ContextPtr::Create()) {
  if (!context_) throw Asn1Exception("Cannot initialize context.");
  auto names = NameTextParser(*context_, text, stringType).run();
  if (stringType & CERT_NAME_STR_REVERSE_FLAG) std::ranges::reverse(names);
  name_.t = ASN1T_Name::t_rdnSequence;
  for (const ASN1T_RelativeDistinguishedName& name : names) {
    CheckedMemory(AppendElement(*context_, name_.u.rdnSequence, name));
  }
}

}  // namespace certkern
