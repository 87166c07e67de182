// The signatures of certificates, lists and requests. Null pointers that are not allowed are ERROR_INVALID_PARAMETER.
#ifndef CERTKERN_KEYS_CERTIFICATE_SIGNATURE_H
#define CERTKERN_KEYS_CERTIFICATE_SIGNATURE_H

#include <certkern/encode.h>

#include <span>

namespace certkern {

// Signs bytes with a key of the provider's container, in stream order; under the identifier of a bare hash the result is
// that hash. A null out asks for the size, which may be more than the signature then has.
[[nodiscard]] bool SignBytes(HCRYPTPROV provider, DWORD keySpec, std::span<const BYTE> toBeSigned,
                             const CRYPT_ALGORITHM_IDENTIFIER* algorithm, BYTE* out, DWORD* size);

// Encodes a record, signs it, and encodes both as a signed object. No signature is made for the question of the size, nor
// for too small a buffer.
[[nodiscard]] bool SignAndEncode(HCRYPTPROV provider, DWORD keySpec, DWORD encodingType, LPCSTR structType,
                                 const void* record, const CRYPT_ALGORITHM_IDENTIFIER* algorithm,
                                 BYTE* encoded, DWORD* size);

// Verifies a signed object with the issuer's key; provider 0 is looked for.
[[nodiscard]] bool VerifySignedObject(HCRYPTPROV provider, std::span<const BYTE> encoded,
                                      PCERT_PUBLIC_KEY_INFO key);

// The same where object and key are of the CRYPT_VERIFY_CERT_SIGN_... kinds; a null or unknown one is E_INVALIDARG.
[[nodiscard]] bool VerifySubject(HCRYPTPROV provider, DWORD subjectType, const void* subject,
                                 DWORD issuerType, void* issuer);

}  // namespace certkern

#endif
