// Algorithms and public keys as fields.
#ifndef CERTKERN_CLI_KEY_FIELDS_H
#define CERTKERN_CLI_KEY_FIELDS_H

#include "field.h"

#include <certkern/encode.h>

namespace certkern::cli {

// Identifier and parameters; group is where the key library looks for the name first.
void AddAlgorithm(Field& parent, std::string_view label, const CRYPT_ALGORITHM_IDENTIFIER& algorithm,
                  DWORD group);

Field PublicKeyField(const CERT_PUBLIC_KEY_INFO& key);

}  // namespace certkern::cli

#endif
