// Extensions as fields.
#ifndef CERTKERN_CLI_EXTENSION_FIELDS_H
#define CERTKERN_CLI_EXTENSION_FIELDS_H

#include "field.h"

#include <certkern/encode.h>

#include <optional>
#include <span>

namespace certkern::cli {

// What the library decodes is shown in words, everything else as bytes. Content that is not what its
// identifier promises, or that has more behind it, is shown as bytes with a remark.
Field ExtensionField(const CERT_EXTENSION& extension);

// The list "Extensions" under parent; none when there are no extensions.
void AddExtensions(Field& parent, std::span<const CERT_EXTENSION> extensions);

// The reason of a revocation entry; nothing when the extension is not a plain reason code.
std::optional<Words> ReasonOf(const CERT_EXTENSION& extension);

}  // namespace certkern::cli

#endif
