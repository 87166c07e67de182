// The published blobs of RSA keys, to and from the DER of RFC 8017, A.1.
#ifndef CERTKERN_KEYKERN_RSA_BLOB_H
#define CERTKERN_KEYKERN_RSA_BLOB_H

#include "common/secret_bytes.h"

#include <span>

namespace keykern {

using certkern::SecretBytes;

// RSAPUBKEY and what follows it. False for a key that the form has no room for: a large exponent, primes of two sizes, RSASSA-PSS alone.
[[nodiscard]] bool RsaPublicToBlob(std::span<const BYTE> publicKeyInfo, SecretBytes& body);
[[nodiscard]] bool RsaPrivateToBlob(std::span<const BYTE> privateKeyInfo, SecretBytes& body);
// The body after the header. False: malformed.
[[nodiscard]] bool RsaPublicFromBlob(std::span<const BYTE> body, SecretBytes& publicKeyInfo);
[[nodiscard]] bool RsaPrivateFromBlob(std::span<const BYTE> body, SecretBytes& privateKeyInfo);

}  // namespace keykern

#endif
