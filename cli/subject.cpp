#include "subject.h"

#include "encoded.h"
#include "failure.h"
#include "oid_names.h"
#include "text.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/oids.h>
#include <fmt/format.h>
#include <CLI/Option.hpp>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace certkern::cli {
namespace {

struct Attribute {
  std::string oid;
  DWORD valueType = CERT_RDN_UTF8_STRING;
  std::wstring value;
};

std::string Shown(const std::string& argument) {
  return "--subject " + Escaped(Utf8Of(std::string_view(argument)));
}

// The types that a row of the table allows stand in it, best first, with a zero at the end.
std::vector<DWORD> TypesOf(const CRYPT_OID_INFO* row) {
  // RFC 4519, 2.4, narrower than the table
  if (row && std::strcmp(row->pszOID, szOID_DOMAIN_COMPONENT) == 0)
    return {CERT_RDN_IA5_STRING, CERT_RDN_UTF8_STRING};
  std::vector<DWORD> types;
  const size_t count = row && row->ExtraInfo.pbData ? row->ExtraInfo.cbData / sizeof(DWORD) : 0;
  for (size_t i = 0; i < count; ++i) {
    DWORD type = 0;
    std::memcpy(&type, row->ExtraInfo.pbData + i * sizeof(type), sizeof(type));
    if (type) types.push_back(type);
  }
  if (types.empty()) types.push_back(CERT_RDN_UTF8_STRING);
  return types;
}

const CRYPT_OID_INFO* FindType(const std::string& type, const std::wstring& wide) {
  // the look-up takes a writable pointer and only reads
  if (const auto* row = CryptFindOIDInfo(CRYPT_OID_INFO_NAME_KEY, const_cast<wchar_t*>(wide.c_str()),
                                         CRYPT_RDN_ATTR_OID_GROUP_ID))
    return row;
  return CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, const_cast<char*>(type.c_str()),
                          CRYPT_RDN_ATTR_OID_GROUP_ID);
}

CERT_RDN_ATTR RecordOf(Attribute& attribute) {
  return {
      attribute.oid.data(),
      attribute.valueType,
      {CheckedSize(attribute.value.size() * sizeof(wchar_t)),
                  reinterpret_cast<BYTE*>(attribute.value.data())}
  };
}

// The code for a character that the type does not have; 0 for none. The library checks texts by rules of its own, which
// know no digits in a PrintableString, and is told not to.
DWORD FaultIn(const std::wstring& value, DWORD valueType) {
  static constexpr std::wstring_view kDigits = L"0123456789 ";
  static constexpr std::wstring_view kPrintable =
      L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789 '()+,-./:=?";
  switch (valueType) {
    case CERT_RDN_NUMERIC_STRING:
      return value.find_first_not_of(kDigits) == value.npos ? 0 : CRYPT_E_INVALID_NUMERIC_STRING;
    case CERT_RDN_PRINTABLE_STRING:
      return value.find_first_not_of(kPrintable) == value.npos ? 0 : CRYPT_E_INVALID_PRINTABLE_STRING;
    case CERT_RDN_IA5_STRING: {
      const bool ascii = std::all_of(value.begin(), value.end(), [](wchar_t c) { return c > 0 && c < 0x80; });
      return ascii ? 0 : CRYPT_E_INVALID_IA5_STRING;
    }
    default:
      return 0;
  }
}

Attribute ParseAttribute(const std::string& argument) {
  const size_t equals = argument.find('=');
  if (equals == 0 || equals == argument.npos)
    throw WrongUsage(Shown(argument) + ": must be TYPE=VALUE, as in CN=Anna");
  const std::string type = argument.substr(0, equals);
  const auto* row = FindType(type, Wide(type, Shown(argument)));
  if (!row && !IsDottedOid(type))
    throw WrongUsage(Shown(argument)
                     + ": no such type; CN, O, OU, C, L, ST, E, SERIALNUMBER ... or a dotted identifier");
  Attribute attribute{row ? row->pszOID : type, 0, Wide(argument.substr(equals + 1), Shown(argument))};
  if (attribute.value.empty()) throw WrongUsage(Shown(argument) + ": the value is empty");
  DWORD fault = 0;
  for (const DWORD candidate : TypesOf(row)) {
    attribute.valueType = candidate | CERT_RDN_DISABLE_CHECK_TYPE_FLAG;
    fault = FaultIn(attribute.value, candidate);
    if (!fault) return attribute;
  }
  throw WrongUsage(fmt::format("{}: {}", Shown(argument), ReasonOf(fault)));
}

}  // namespace

void AddSubjectOption(CLI::App& command, std::vector<std::string>& subject) {
  command
      .add_option(
          "--subject", subject,
          "One part of the subject's name; in the order of the encoding, which begins with C by custom")
      ->required()
      ->allow_extra_args(false)
      ->type_name("TYPE=VALUE");
}

std::wstring Wide(const std::string& utf8, const std::string& what) {
  if (utf8.empty()) return {};
  const auto convert = [&](wchar_t* out, int room) {
    const int size = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(),
                                         static_cast<int>(utf8.size()), out, room);
    if (size <= 0) throw WrongUsage(what + ": this is no UTF-8");
    return static_cast<size_t>(size);
  };
  std::wstring wide(convert(nullptr, 0), L'\0');
  convert(wide.data(), static_cast<int>(wide.size()));
  return wide;
}

Bytes EncodeSubject(const std::vector<std::string>& subject) {
  // the records point from one vector into the next: each has its size from the start
  const size_t count = subject.size();
  std::vector<Attribute> attributes(count);
  std::vector<CERT_RDN_ATTR> records(count);
  std::vector<CERT_RDN> relatives(count);
  for (size_t i = 0; i < count; ++i) {
    attributes[i] = ParseAttribute(subject[i]);
    records[i] = RecordOf(attributes[i]);
    relatives[i] = {1, &records[i]};
  }
  const CERT_NAME_INFO name{CheckedSize(relatives.size()), relatives.data()};
  return Encode(X509_UNICODE_NAME, &name, "--subject");
}

}  // namespace certkern::cli
