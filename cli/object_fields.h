// Certificates, CRLs and certificate requests as fields.
#ifndef CERTKERN_CLI_OBJECT_FIELDS_H
#define CERTKERN_CLI_OBJECT_FIELDS_H

#include "field.h"
#include "shape.h"

#include <cstddef>
#include <limits>
#include <optional>
#include <span>

namespace certkern::cli {

struct ShowOptions {
  size_t maxEntries = std::numeric_limits<size_t>::max();  // of a CRL that are shown
};

// All of one object, whose bytes are encoded and nothing else. Nothing when the library cannot decode it; the
// last error tells why.
std::optional<Field> ObjectField(ObjectKind kind, std::span<const BYTE> encoded, const ShowOptions& options);

}  // namespace certkern::cli

#endif
