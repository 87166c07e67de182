// The elements of an encoding, DER or BER, whatever they mean: where each begins, how long it is, what is inside.
#ifndef CERTKERN_CLI_ASN1_ELEMENTS_H
#define CERTKERN_CLI_ASN1_ELEMENTS_H

#include "shape.h"

#include "asn1rt/type_table.h"
#include "platform/limits.h"

#include <certkern/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace certkern::cli {

// Offsets are from the first byte of the block, which is no larger than the largest file.
struct Element {
  uint32_t offset = 0;
  uint32_t contentOffset = 0;
  uint32_t contentLength = 0;  // without end-of-contents octets
  uint32_t behind = 0;         // index of the first element that is not inside of this one
  Asn1Tag tag = 0;
  uint16_t depth = 0;
  bool constructed = false;
  bool indefinite = false;

  uint32_t headerLength() const { return contentOffset - offset; }
};

// In the order of the encoding, each in front of what is inside of it.
using Elements = std::vector<Element>;

// What may still be read of one file.
struct ElementBudget {
  size_t shown = kMaxAsn1ShownElements;
  size_t levels = kMaxAsn1ShownLevels;
  size_t tried = kMaxAsn1TriedElements;
};

// Whether the content of a string, by its offset, is known to be an element.
using KnownContent = std::function<bool(uint32_t offset)>;

struct ElementsRead {
  Elements elements;  // as far as they could be read
  size_t size = 0;    // of the first element; 0 when there is a fault
  std::optional<Fault> fault;
};

// The element at an offset of a block, with all that is inside. OCTET STRINGs and BIT STRINGs are looked into, and where their
// content is one sound element, or known to be one, they hold it.
ElementsRead ReadElements(std::span<const BYTE> block, size_t offset, ElementBudget& budget,
                          const KnownContent& known = {});

// "SEQUENCE", "[0]", "[APPLICATION 1]"; bytes that are no identifier are told as such.
std::string TagText(Asn1Tag tag);
// Null for a tag that is not universal, or has no name.
const char* UniversalName(Asn1Tag tag);
// What stands at an offset, for a fault.
std::string FoundAt(std::span<const BYTE> block, size_t offset);

}  // namespace certkern::cli

#endif
