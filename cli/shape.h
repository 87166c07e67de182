// Where an encoding stops being what it should be. The library's decoder says that an object is malformed,
// but not where; a walk over the elements, with the object's grammar beside it, finds the place.
#ifndef CERTKERN_CLI_SHAPE_H
#define CERTKERN_CLI_SHAPE_H

#include "grammar.h"

#include <certkern/types.h>

#include <optional>
#include <span>
#include <string>

namespace certkern::cli {

struct Fault {
  size_t offset;  // from the object's first byte
  std::string expected;
  std::string found;
};

// The size of the first element with its header; nothing when the header is broken or the content is cut.
std::optional<size_t> ElementSize(std::span<const BYTE> bytes);

// What the first element is, told by the identifiers of its fields; nothing when they fit none or the bytes
// end too early.
std::optional<ObjectKind> RecognizeObject(std::span<const BYTE> bytes);

// The first fault of one object; nothing when it has the shape of its kind from its first byte to the last.
std::optional<Fault> FindFault(ObjectKind kind, std::span<const BYTE> bytes);
// The same for bytes of no kind that could be recognized.
Fault FindFaultOfUnknown(std::span<const BYTE> bytes);

// "certificate", "CRL" or "certificate request"
const char* KindName(ObjectKind kind);

}  // namespace certkern::cli

#endif
