#include "names/name_text.h"

#include <certkern/keykern.h>

#include "names/decoded_name.h"
#include "names/value_text.h"

namespace certkern {
namespace {

enum class KeyForm { None, Oid, Name };

KeyForm KeyFormOf(DWORD stringType) {
  if (!(stringType & kNameFormMask)) return KeyForm::None;
  switch (stringType & 3) {
    case CERT_SIMPLE_NAME_STR:
      return KeyForm::None;
    case CERT_OID_NAME_STR:
      return KeyForm::Oid;
    default:
      return KeyForm::Name;
  }
}

const wchar_t* RelativeNameSeparator(DWORD stringType) {
  if (stringType & CERT_NAME_STR_SEMICOLON_FLAG) return L"; ";
  return stringType & CERT_NAME_STR_CRLF_FLAG ? L"\r\n" : L", ";
}

class NameWriter {
 public:
  explicit NameWriter(DWORD stringType)
      : keys_(KeyFormOf(stringType)),
        quoting_(stringType & CERT_NAME_STR_NO_QUOTING_FLAG ? Quoting::Never : Quoting::WhereNeeded),
        betweenNames_(RelativeNameSeparator(stringType)),
        betweenAttributes_(stringType & CERT_NAME_STR_NO_PLUS_FLAG ? L" " : L" + ") {}

  void add(const CERT_RDN& relativeName);
  std::wstring take() { return std::move(text_); }

 private:
  void addAttribute(const CERT_RDN_ATTR& attribute);

  const KeyForm keys_;
  const Quoting quoting_;
  const wchar_t* const betweenNames_;
  const wchar_t* const betweenAttributes_;
  std::wstring text_;
  bool first_ = true;  // an empty relative name has its separator as well, so the text alone does not tell
};

void NameWriter::add(const CERT_RDN& relativeName) {
  if (!first_) text_ += betweenNames_;
  first_ = false;
  const std::span<const CERT_RDN_ATTR> attributes = AttributesOf(relativeName);
  for (size_t i = 0; i < attributes.size(); ++i) {
    if (i) text_ += betweenAttributes_;
    addAttribute(attributes[i]);
  }
}

void NameWriter::addAttribute(const CERT_RDN_ATTR& attribute) {
  if (keys_ != KeyForm::None) {
    PCCRYPT_OID_INFO row = nullptr;
    if (keys_ == KeyForm::Name)
      row = CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, attribute.pszObjId, CRYPT_RDN_ATTR_OID_GROUP_ID);
    if (row && row->pwszName) {
      text_ += row->pwszName;
    } else {
      for (const char* digit = attribute.pszObjId; *digit; ++digit) text_ += static_cast<wchar_t>(*digit);
    }
    text_ += L'=';
  }
  AppendDisplayValue(attribute, quoting_, text_);
}

}  // namespace

std::wstring NameText(const CERT_NAME_BLOB* name, DWORD stringType) {
  DecodedName decoded;
  if (!name || !decoded.decode(*name)) return {};
  const std::span<const CERT_RDN> relativeNames = decoded.relativeNames();
  NameWriter writer(stringType);
  const bool reverse = stringType & CERT_NAME_STR_REVERSE_FLAG;
  for (size_t i = 0; i < relativeNames.size(); ++i)
    writer.add(relativeNames[reverse ? relativeNames.size() - 1 - i : i]);
  return writer.take();
}

}  // namespace certkern
