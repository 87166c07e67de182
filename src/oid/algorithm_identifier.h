// An algorithm identifier as it stands in an encoding.
#ifndef CERTKERN_OID_ALGORITHM_IDENTIFIER_H
#define CERTKERN_OID_ALGORITHM_IDENTIFIER_H

#include <certkern/types.h>

#include <span>
#include <string>

#include "ber/read_cursor.h"

namespace certkern {

struct AlgorithmIdentifier {
  std::string oid;                   // dotted
  std::span<const BYTE> parameters;  // as encoded, and borrowed; empty when absent
};

// Reads one and moves on; false for anything else, with or without a code.
[[nodiscard]] bool ReadAlgorithmIdentifier(BerReadCursor& in, AlgorithmIdentifier& algorithm);

}  // namespace certkern

#endif
