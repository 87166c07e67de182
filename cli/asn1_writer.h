// The elements of one encoding as lines of text, or as the tree that the JSON writer prints.
#ifndef CERTKERN_CLI_ASN1_WRITER_H
#define CERTKERN_CLI_ASN1_WRITER_H

#include "asn1_elements.h"
#include "asn1_typing.h"
#include "field.h"

#include <cstdio>
#include <span>

namespace certkern::cli {

// Borrows all of it.
struct ElementTree {
  std::span<const BYTE> block;
  const Elements& elements;
  const Typed& typed;  // without meanings: nothing but the structure
};

// A line each, the columns of which PrintElementHeadings() names.
void PrintElementHeadings(std::FILE* out);
void PrintElements(std::FILE* out, const ElementTree& tree);

// The fields of one element; those of the elements inside are made when they are written, so that no more than one path of
// them is there at once.
Field ElementField(const ElementTree& tree, size_t index);

}  // namespace certkern::cli

#endif
