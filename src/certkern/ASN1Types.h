// String types and names of the generated types, as text. What fails throws; the file bears the name under which its
// exceptions are traced.
#ifndef CERTKERN_CERTKERN_ASN1TYPES_H
#define CERTKERN_CERTKERN_ASN1TYPES_H

#include <certkern/name.h>

#include <array>
#include <span>
#include <string>
#include <string_view>

#include "asn1data/names.h"
#include "asn1rt/context.h"

namespace certkern {

// --- attributes by key ---

enum class StringClass : DWORD { Directory = 1, Printable = 2, Ia5 = 5, Numeric = 7 };

struct RdnKey {
  std::array<std::wstring_view, 2> keys;  // an empty one is none
  const char* oid;
  StringClass stringClass;
  DWORD longest;  // in characters: the upper bound of names, X.520, annex C
};

// Null for what the table does not have. Keys are compared without regard to case.
const RdnKey* FindRdnKey(std::wstring_view key);
const RdnKey* FindRdnKeyByOid(std::string_view oid);

// --- values ---

// One encoded value of a string type; "Unsupported string type" for what is none.
std::wstring StringText(std::span<const BYTE> encoded);
// The same for the attributes of names. The lines of a postal address come with '$' between them, RFC 4517, 3.3.28.
std::wstring AttributeText(const asn1data::ASN1T_AttributeTypeAndValue& attribute);
// The other way, into the context's heap. A text that its type can't have is a CryptException with the codec's code.
asn1data::ASN1T_AttributeTypeAndValue TextAttribute(ASN1Context& context, const char* oid,
                                                    std::wstring_view text);

// --- names ---

// A name made of text, with the heap that it lies in. Separators and quotes are those of CertStrToName; keys and types
// come from the table above, and an identifier that it does not have is of a directory string. Directory strings are
// UTF8String. "attribute type oid format is invalid" for a key that is none, "invalid string" for what else is malformed.
class NameOfText {
 public:
  explicit NameOfText(std::wstring_view text, DWORD stringType = CERT_X500_NAME_STR);
  const asn1data::ASN1T_Name& value() const { return name_; }

 private:
  ASN1ContextPtr context_;
  asn1data::ASN1T_Name name_;
};

}  // namespace certkern

#endif
