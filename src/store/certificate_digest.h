// Digests of encoded objects and of the part of them that is signed, and the one search for a provider that has an
// algorithm.
#ifndef CERTKERN_STORE_CERTIFICATE_DIGEST_H
#define CERTKERN_STORE_CERTIFICATE_DIGEST_H

#include <certkern/keykern.h>

#include <span>

#include "oid/algorithm_identifier.h"
#include "oid/provider_search.h"
#include "oid/signature_row.h"
#include "platform/owner.h"

namespace certkern {

using HashHandle = Owner<HCRYPTHASH, CryptDestroyHash>;

// The process's default provider for an algorithm, or else the first whose own list has it. `flags` go beside
// CRYPT_VERIFYCONTEXT. The answer is the caller's own in either case. Empty for algorithm 0 and when there is none, with
// NTE_BAD_ALGID. May throw as SearchProviders does.
ProviderHandle FindProviderForAlgorithm(ALG_ID algorithm, DWORD flags = 0);

// The provider for a signature: the default of the type that its row names, or else one that has the algorithm. The
// answer is the caller's own; empty with the key level's code.
ProviderHandle FindProviderForSignature(const SignatureRow& row, ALG_ID algorithm);

// Hashes bytes; algorithm 0 is SHA-1, provider 0 is looked for. Two calls, as published: a null out asks for the size.
[[nodiscard]] bool HashEncoded(HCRYPTPROV provider, ALG_ID algorithm, std::span<const BYTE> encoded,
                               BYTE* out, DWORD* size);

// A certificate, list or request as it stands in its encoding; nothing but the identifier is copied, because lists are
// large and each is looked at once.
struct SignedObject {
  std::span<const BYTE> toBeSigned;  // the whole element, header included
  AlgorithmIdentifier algorithm;
  std::span<const BYTE> signature;
  BYTE unusedBits;
};
// No bytes and whatever is not a signed object is CRYPT_E_ASN1_ERROR. What follows the object is not looked at.
[[nodiscard]] bool ReadSignedObject(std::span<const BYTE> encoded, SignedObject& object);

// Hashes the signed part with the hash of its signature algorithm's row. Sizes and provider as for HashEncoded.
[[nodiscard]] bool HashToBeSigned(HCRYPTPROV provider, std::span<const BYTE> encoded, BYTE* out, DWORD* size);

}  // namespace certkern

#endif
