#include "certkern/chain/normal_name.h"

#include <certkern/encode.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <functional>
#include <string_view>

#include "ber/object_codec.h"
#include "ber/struct_types.h"
#include "certkern/chain/memory_check.h"
#include "platform/owner.h"

namespace certkern {
namespace {

using NameRecord = Owner<CERT_NAME_INFO*, LocalFree>;

// The attributes that people type, and so write in more than one way.
constexpr std::array<std::string_view, 11> kFoldedAttributes = {
    "2.5.4.6",  // country
    "1.2.840.113549.1.9.1",
    "2.5.4.8",   // state
    "2.5.4.7",   // locality
    "2.5.4.10",  // organization
    "2.5.4.11",  // organizational unit
    "2.5.4.12",  // title
    "2.5.4.42",  // given name
    "2.5.4.43",  // initials
    "2.5.4.4",   // surname
    "2.5.4.3",   // common name
};

// The functions of <cctype> are only defined for the values of unsigned char.
bool IsSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }
char Lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

void AppendNumber(std::string& key, size_t number) {
  const auto word = static_cast<uint32_t>(number);
  key.append(reinterpret_cast<const char*>(&word), sizeof word);
}

void AppendText(std::string& key, std::string_view text) {
  AppendNumber(key, text.size());
  key.append(text);
}

// Without white space at the ends, each run of it as one blank, lower case.
std::string Folded(std::string_view value) {
  while (!value.empty() && IsSpace(value.front())) value.remove_prefix(1);
  while (!value.empty() && (value.back() == '\0' || IsSpace(value.back()))) value.remove_suffix(1);
  std::string folded;
  folded.reserve(value.size());
  for (size_t i = 0; i < value.size(); ++i) {
    if (!IsSpace(value[i])) {
      folded += Lower(value[i]);
    } else if (!IsSpace(value[i + 1])) {  // there is one: the last character is no white space
      folded += ' ';
    }
  }
  return folded;
}

bool IsFolded(const CERT_RDN_ATTR& attribute) {
  return attribute.dwValueType == CERT_RDN_PRINTABLE_STRING
      && std::ranges::find(kFoldedAttributes, std::string_view(attribute.pszObjId))
      != kFoldedAttributes.end();
}

void AppendAttribute(std::string& key, const CERT_RDN_ATTR& attribute) {
  AppendText(key, attribute.pszObjId);
  const std::string_view value(reinterpret_cast<const char*>(attribute.Value.pbData), attribute.Value.cbData);
  if (IsFolded(attribute)) {
    AppendText(key, Folded(value));
  } else {
    AppendText(key, value);
  }
}

}  // namespace

NormalName::NormalName(std::span<const BYTE> encoded) {
  const LastErrorKeeper keeper;
  SetLastError(ERROR_SUCCESS);  // decoding sets a code only where there is none
  NameRecord name;
  // the type is a number in the shape of a pointer
  const auto type = reinterpret_cast<LPCSTR>(kTypeDisplayName);
  if (!DecodeObjectEx(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, type, encoded.data(),
                      static_cast<DWORD>(encoded.size()), CRYPT_DECODE_ALLOC_FLAG, nullptr, name.out(),
                      nullptr)) {
    if (IsLackOfMemory(GetLastError()))
      throw std::bad_alloc();  // such a name would be kept as one that equals none
    return;
  }
  std::string& key = key_.emplace();
  AppendNumber(key, name->cRDN);
  for (const CERT_RDN& rdn : std::span(name->rgRDN, name->cRDN)) {
    AppendNumber(key, rdn.cRDNAttr);
    for (const CERT_RDN_ATTR& attribute : std::span(rdn.rgRDNAttr, rdn.cRDNAttr)) {
      AppendAttribute(key, attribute);
    }
  }
}

uint64_t NormalName::hash() const { return key_ ? std::hash<std::string_view>{}(*key_) : 0; }

}  // namespace certkern
