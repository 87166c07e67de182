// Keys from keys and from passwords.
#ifndef CERTKERN_KEYKERN_DERIVE_DERIVATION_H
#define CERTKERN_KEYKERN_DERIVE_DERIVATION_H

#include "common/secret_bytes.h"
#include "keykern/digest.h"

#include <certkern/keykern.h>

#include <memory>
#include <span>
#include <string_view>

namespace keykern {

using certkern::SecretBytes;

// HMAC over any unkeyed hash of the key level. RFC 2104; RFC 7836, 4.1. Null when the host refuses the hash.
std::unique_ptr<Digest> NewHmac(ALG_ID hash, std::span<const BYTE> key);

// PBKDF2 with HMAC over a hash. RFC 8018, 5.2; RFC 9337. False: no such hash, no salt, no iterations.
[[nodiscard]] bool Pbkdf2(ALG_ID hash, std::span<const BYTE> password, std::span<const BYTE> salt,
                          DWORD iterations, std::span<BYTE> out);

// KDF_TREE_GOSTR3411_2012_256 with R = 1. RFC 7836, 4.5. With 32 bytes it is KDF_GOSTR3411_2012_256 (4.4).
[[nodiscard]] bool KdfTree(std::span<const BYTE> key, std::span<const BYTE> label, std::span<const BYTE> seed,
                           std::span<BYTE> out);

// ANSI X9.63 key derivation. SEC 1, 3.6.1
[[nodiscard]] bool X963Kdf(ALG_ID hash, std::span<const BYTE> secret, std::span<const BYTE> sharedInfo,
                           std::span<BYTE> out);

// What CryptDeriveKey makes of a hash value: its first bytes, or, where it is too short, the published expansion by
// 0x36 and 0x5C. False when even that is too short.
[[nodiscard]] bool KeyFromHash(ALG_ID hash, std::span<const BYTE> value, std::span<BYTE> key);

}  // namespace keykern

#endif
