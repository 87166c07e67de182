// The content of elements as a reader knows it: numbers, identifiers, characters.
#ifndef CERTKERN_CLI_ASN1_VALUES_H
#define CERTKERN_CLI_ASN1_VALUES_H

#include "asn1_elements.h"
#include "field.h"

#include "asn1rt/type_table.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace certkern::cli {

struct ElementValue {
  Value value;                     // the bytes where they are not what they should be, or nobody knows more
  std::vector<std::string> names;  // that the type has for the number, or for the bits that are set
  std::optional<int64_t> unusedBits;
};

// Of a primitive element that has nothing inside. type: what it is known to be; may be null.
ElementValue ValueOf(Asn1Tag tag, std::span<const BYTE> content, const TypeInfo* type);

}  // namespace certkern::cli

#endif
