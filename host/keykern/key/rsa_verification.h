// RSA signatures, verified in two steps: the power modulo n by libcrypto, then the comparison with what the hash value
// has to look like. libcrypto in one step has the same answer for a mismatch and for a failed allocation.
#ifndef CERTKERN_KEYKERN_KEY_RSA_VERIFICATION_H
#define CERTKERN_KEYKERN_KEY_RSA_VERIFICATION_H

#include "keykern/key/libcrypto_key.h"

namespace keykern {

// modulus: big-endian. signature: in the reversed order of the key level. Codes as PublicKey::verify; throws
// std::bad_alloc.
DWORD VerifyRsa(const PkeyPtr& key, std::span<const BYTE> modulus, SpareContext& spare,
                const SignatureInput& input, std::span<const BYTE> signature);

}  // namespace keykern

#endif
