#include "name_fields.h"

#include "decoded.h"
#include "oid_names.h"
#include "text.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cwchar>

namespace certkern::cli {
namespace {

constexpr const char* kTypeNames[] = {
    "any",           "encoded",         "OCTET STRING", "NumericString", "PrintableString",
    "TeletexString", "VideotexString",  "IA5String",    "GraphicString", "VisibleString",
    "GeneralString", "UniversalString", "BMPString",    "UTF8String",
};

Words TypeName(DWORD type) {
  return {type < std::size(kTypeNames) ? kTypeNames[type] : fmt::format("type {}", type)};
}

// A value in the form that holds wide characters for every type of string.
Value WideValue(DWORD type, const CERT_RDN_VALUE_BLOB& value) {
  if (type <= CERT_RDN_OCTET_STRING) return Bytes(value.pbData, value.pbData + value.cbData);
  return Text{Utf8Of(
      std::wstring_view(reinterpret_cast<const wchar_t*>(value.pbData), value.cbData / sizeof(wchar_t)))};
}

Field AttributeField(const CERT_RDN_ATTR& attribute, size_t relativeName) {
  Field field("", NamedOid(attribute.pszObjId, CRYPT_RDN_ATTR_OID_GROUP_ID));
  field.add("Type", TypeName(attribute.dwValueType));
  field.add("Value", WideValue(attribute.dwValueType, attribute.Value));
  field.add("RDN", static_cast<int64_t>(relativeName));
  return field;
}

std::string AttributeText(const CERT_RDN_ATTR& attribute) {
  const Oid type = NamedOid(attribute.pszObjId, CRYPT_RDN_ATTR_OID_GROUP_ID);
  const Value value = WideValue(attribute.dwValueType, attribute.Value);
  const Text* text = std::get_if<Text>(&value);
  return fmt::format(
      "{}={}", type.name.empty() ? type.dotted : type.name,
      text ? EscapedNameValue(text->utf8) : fmt::format("#{}", HexText(std::get<Bytes>(value))));
}

std::string NameText(const CERT_NAME_INFO& name) {
  std::string text;
  for (DWORD i = name.cRDN; i-- > 0;) {
    if (!text.empty()) text += ',';
    const CERT_RDN& relative = name.rgRDN[i];
    for (DWORD j = 0; j < relative.cRDNAttr; ++j) {
      if (j) text += '+';
      text += AttributeText(relative.rgRDNAttr[j]);
    }
  }
  return text;
}

// Four octets, or sixteen; twice as many are an address with its mask.
Value AddressValue(std::span<const BYTE> address) {
  const auto part = [&](int family, size_t offset) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(family, address.data() + offset, text.data(), text.size());
    return std::string(text.data());
  };
  switch (address.size()) {
    case 4:
      return Words{part(AF_INET, 0)};
    case 8:
      return Words{fmt::format("{}/{}", part(AF_INET, 0), part(AF_INET, 4))};
    case 16:
      return Words{part(AF_INET6, 0)};
    case 32:
      return Words{fmt::format("{}/{}", part(AF_INET6, 0), part(AF_INET6, 16))};
    default:
      return Bytes(address.begin(), address.end());
  }
}

}  // namespace

Value WideText(LPCWSTR text) { return Text{text ? Utf8Of(std::wstring_view(text)) : std::string()}; }

Value StringOrBytes(std::span<const BYTE> encoded) {
  if (const auto value = Decode<CERT_NAME_VALUE>(X509_UNICODE_ANY_STRING, encoded)) {
    if (value->dwValueType > CERT_RDN_OCTET_STRING) return WideValue(value->dwValueType, value->Value);
  }
  return Bytes(encoded.begin(), encoded.end());
}

Field NameField(std::string_view label, std::span<const BYTE> encoded) {
  const auto name = Decode<CERT_NAME_INFO>(X509_UNICODE_NAME, encoded);
  Field field(label);
  if (!name) {
    field.value = Bytes(encoded.begin(), encoded.end());
    field.add("Remark", Words{"this name does not decode"});
    return field;
  }
  field.value = Words{NameText(*name)};
  field.kind = Children::JsonFields;
  Field& attributes = field.addList("Attributes");
  for (DWORD i = 0; i < name->cRDN; ++i) {
    const CERT_RDN& relative = name->rgRDN[i];
    for (DWORD j = 0; j < relative.cRDNAttr; ++j)
      attributes.add(AttributeField(relative.rgRDNAttr[j], i + 1));
  }
  return field;
}

Field AltNameField(const CERT_ALT_NAME_ENTRY& entry) {
  switch (entry.dwAltNameChoice) {
    case CERT_ALT_NAME_OTHER_NAME: {
      Field field("Other name");
      if (!entry.pOtherName) return field;
      field.value = NamedOid(entry.pOtherName->pszObjId);
      field.add("Value", StringOrBytes(BytesOf(entry.pOtherName->Value)));
      return field;
    }
    case CERT_ALT_NAME_RFC822_NAME:
      return Field("Email", WideText(entry.pwszRfc822Name));
    case CERT_ALT_NAME_DNS_NAME:
      return Field("DNS name", WideText(entry.pwszDNSName));
    case CERT_ALT_NAME_URL:
      return Field("URL", WideText(entry.pwszURL));
    case CERT_ALT_NAME_DIRECTORY_NAME:
      return NameField("Directory name", BytesOf(entry.DirectoryName));
    case CERT_ALT_NAME_IP_ADDRESS:
      return Field("IP address", AddressValue(BytesOf(entry.IPAddress)));
    case CERT_ALT_NAME_REGISTERED_ID:
      return Field("Registered ID", NamedOid(entry.pszRegisteredID));
    default:
      return Field("Location", Words{"none"});
  }
}

void AddAltNames(Field& parent, std::string_view label, const CERT_ALT_NAME_INFO& names) {
  Field& list = parent.addList(label);
  for (DWORD i = 0; i < names.cAltEntry; ++i) list.add(AltNameField(names.rgAltEntry[i]));
}

}  // namespace certkern::cli
