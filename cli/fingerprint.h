// Digests of whole objects, by the key library.
#ifndef CERTKERN_CLI_FINGERPRINT_H
#define CERTKERN_CLI_FINGERPRINT_H

#include "field.h"

#include <optional>
#include <span>
#include <string_view>

namespace certkern::cli {

enum class Digest { Sha1, Sha256 };

// "SHA-1" or "SHA-256"
std::string_view DigestName(Digest digest);

// Nothing when the key library cannot compute it; the last error tells why.
std::optional<Bytes> Fingerprint(Digest digest, std::span<const BYTE> bytes);

}  // namespace certkern::cli

#endif
