// Keys to and from their published encodings, whatever the family: the OID decides.
#ifndef CERTKERN_KEYKERN_KEY_KEY_CODEC_H
#define CERTKERN_KEYKERN_KEY_KEY_CODEC_H

#include "keykern/key/asymmetric_key.h"

namespace keykern {

// SubjectPublicKeyInfo. RFC 5280, 4.1. NTE_BAD_DATA: not that; NTE_BAD_ALGID: an unknown algorithm or parameter set;
// NTE_BAD_PUBLIC_KEY: not a key of its algorithm.
DWORD ParsePublicKeyInfo(std::span<const BYTE> encoded, PublicKeyPtr& key);

// PrivateKeyInfo, or OneAsymmetricKey. RFC 5958. Codes as above, NTE_BAD_KEY for what is not a key.
DWORD ParsePrivateKeyInfo(std::span<const BYTE> encoded, PrivateKeyPtr& key);

// bits: RSA; parameterSet: the others; 0 and empty stand for the family's usual. NTE_BAD_ALGID, NTE_BAD_LEN, NTE_FAIL
DWORD GenerateKey(Family family, DWORD bits, const std::string& parameterSet, PrivateKeyPtr& key);

// EncryptedPrivateKeyInfo by PBES2: PBKDF2 with HMAC-SHA-256, AES-256-CBC. RFC 8018, 6.2
inline constexpr DWORD kPinIterations = 210000;
DWORD SealPrivateKeyInfo(std::span<const BYTE> privateKeyInfo, std::span<const BYTE> pin,
                         SecretBytes& sealed);
// A wrong PIN mostly shows as a padding error: SCARD_W_WRONG_CHV; sometimes only as bytes that are no key.
// NTE_BAD_DATA: not this structure; NTE_BAD_ALGID: other algorithms; iterations are bounded.
DWORD OpenPrivateKeyInfo(std::span<const BYTE> sealed, std::span<const BYTE> pin,
                         SecretBytes& privateKeyInfo);

// 32 bytes that tell two keys apart, the same for either half: SHA-256 of the SubjectPublicKeyInfo's algorithm class,
// parameter set and key bits, so that the presence of a digest parameter makes no difference.
SecretBytes Fingerprint(const PublicKey& key);

}  // namespace keykern

#endif
