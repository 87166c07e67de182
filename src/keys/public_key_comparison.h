// Are two public keys the same?
#ifndef CERTKERN_KEYS_PUBLIC_KEY_COMPARISON_H
#define CERTKERN_KEYS_PUBLIC_KEY_COMPARISON_H

#include <certkern/encode.h>

namespace certkern {

// Algorithm, bits and parameters agree; of the parameters of a GOST R 34.10-2012 key only the parameter set counts,
// because issuers differ in whether they name the digest. The last error is left alone, but for GOST parameters that
// don't decode: CRYPT_E_ASN1_INTERNAL. A null key is equal to none.
[[nodiscard]] bool SamePublicKey(const CERT_PUBLIC_KEY_INFO* a, const CERT_PUBLIC_KEY_INFO* b);

}  // namespace certkern

#endif
