// The two libraries below the key level. libcrypto runs in a context of our own, so that no configuration of the host's
// takes algorithms or random numbers away; libgcrypt has what libcrypto lacks.
//
// Neither may be used by static destructors or exit handlers. What is opened here stays until the process ends.
#ifndef CERTKERN_KEYKERN_CRYPTO_LIBRARY_H
#define CERTKERN_KEYKERN_CRYPTO_LIBRARY_H

#include <certkern/types.h>

#include <openssl/types.h>

#include <span>

namespace keykern {

// Null when the library has no such provider, which no working installation does.
OSSL_LIB_CTX* LibcryptoContext();

// Starts libgcrypt unless the host has done so. Ask before the first use of it.
void StartLibgcrypt();

// Cryptographically strong bytes, from libcrypto's generator.
[[nodiscard]] bool RandomBytes(std::span<BYTE> bytes);

}  // namespace keykern

#endif
