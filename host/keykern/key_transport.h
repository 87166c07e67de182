// How one key carries another: session keys and private keys under session keys, agreed keys and RSA keys.
#ifndef CERTKERN_KEYKERN_KEY_TRANSPORT_H
#define CERTKERN_KEYKERN_KEY_TRANSPORT_H

#include "keykern/key/asymmetric_key.h"
#include "keykern/key_object.h"

#include <span>

namespace keykern {

struct WrappedKey {
  ALG_ID method = 0;  // as WRAPPED_KEY_INFO has it
  SecretBytes bytes;
};

// flags: CRYPT_OAEP for RSA. NTE_BAD_KEY: a key that wraps nothing; those of the wraps.
DWORD WrapKey(KeyObject& wrapping, DWORD flags, std::span<const BYTE> key, WrappedKey& wrapped);
// size: bytes that the key must have. With RSAES-PKCS1-v1_5 a wrong padding gives a random key, not an error: whoever
// sends messages to try must not learn which had a right one. RFC 3218
DWORD UnwrapKey(KeyObject& wrapping, DWORD flags, const WrappedKey& wrapped, size_t size, SecretBytes& key);

// PrivateKeyInfo under a session key, as its mode says; the tag behind it where the mode has one.
DWORD SealUnder(KeyObject& wrapping, std::span<const BYTE> plain, SecretBytes& sealed);
DWORD OpenUnder(KeyObject& wrapping, std::span<const BYTE> sealed, SecretBytes& plain);

// The CALG_EXPORT_... by which a session key of GOST 28147-89 wraps; 0 for any other key.
ALG_ID GostWrapOf(KeyObject& wrapping);

}  // namespace keykern

#endif
