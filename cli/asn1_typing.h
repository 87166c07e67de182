// What a type of the library's schema makes of the elements of an encoding.
#ifndef CERTKERN_CLI_ASN1_TYPING_H
#define CERTKERN_CLI_ASN1_TYPING_H

#include "asn1_elements.h"

#include "asn1rt/context.h"
#include "asn1rt/type_table.h"

#include <span>
#include <string>
#include <vector>

namespace certkern::cli {

// The schema's type of this name; fails as wrong usage with the names that are most like it.
const TypeInfo& TypeByName(const std::string& name);

// What one element is to the type: the members that lead to it, such as "subject.rdnSequence", and its own type.
struct Meaning {
  uint32_t offset = 0;
  std::string member;              // empty: the element of a list, or the value itself
  const TypeInfo* type = nullptr;  // null: a tag in front of the next element
};

struct Typed {
  size_t size = 0;                // of the value; 0 when there is a fault
  std::vector<Meaning> meanings;  // by offset; elements that the type knows nothing of have none
  std::optional<Fault> fault;
  std::string place;  // the members around the fault, such as "tbsCertificate.validity"

  const Meaning* at(uint32_t offset) const;
};

// The library's decoder is the judge.
Typed ReadTyped(std::span<const BYTE> block, size_t offset, const TypeInfo& type,
                OpenValues values = OpenValues::Checked);

}  // namespace certkern::cli

#endif
