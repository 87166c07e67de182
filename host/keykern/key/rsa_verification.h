// RSA signatures. Only libcrypto ever accepts one. When it refuses, the refusal is looked into here, since it has the same
// answer for a mismatch and for a failed allocation: the power modulo n is taken and compared with what the hash value has
// to look like.
#ifndef CERTKERN_KEYKERN_KEY_RSA_VERIFICATION_H
#define CERTKERN_KEYKERN_KEY_RSA_VERIFICATION_H

#include "keykern/key/libcrypto_key.h"

namespace keykern {

// modulus: big-endian. signature: in the reversed order of the key level. Codes as PublicKey::verify; throws
// std::bad_alloc. `prepare` sets the padding of the input.
DWORD VerifyRsa(const PkeyPtr& key, std::span<const BYTE> modulus, SpareContext& spare, Prepare prepare,
                const SignatureInput& input, std::span<const BYTE> signature);

}  // namespace keykern

#endif
