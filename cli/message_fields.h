// Messages as fields.
#ifndef CERTKERN_CLI_MESSAGE_FIELDS_H
#define CERTKERN_CLI_MESSAGE_FIELDS_H

#include "object_fields.h"

#include <certkern/msg.h>

namespace certkern::cli {

// All of a message but its content. Nothing when the library cannot read it; the last error tells why. A part
// of it that can't be read throws.
std::optional<Field> MessageField(std::span<const BYTE> encoded, const ShowOptions& options);

// Who a signer is, by what the message calls him.
void AddSignerId(Field& parent, const CERT_ID& id);

}  // namespace certkern::cli

#endif
