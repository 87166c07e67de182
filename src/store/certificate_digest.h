// Digests of encoded objects, and the one search for a provider that has an algorithm.
#ifndef CERTKERN_STORE_CERTIFICATE_DIGEST_H
#define CERTKERN_STORE_CERTIFICATE_DIGEST_H

#include <certkern/keykern.h>

#include <span>

#include "platform/owner.h"

namespace certkern {

using ProviderHandle = Owner<HCRYPTPROV, CryptReleaseContext>;
using HashHandle = Owner<HCRYPTHASH, CryptDestroyHash>;

// The process's default provider for an algorithm, or else the first whose own list has it: types first, then names.
// `flags` go beside CRYPT_VERIFYCONTEXT. The answer is the caller's own in either case. Empty when there is none, with
// the code that the key level gave last. Throws CryptException, E_OUTOFMEMORY or the system's error as an HRESULT,
// when a walk breaks off.
ProviderHandle FindProviderForAlgorithm(ALG_ID algorithm, DWORD flags = 0);

// Hashes bytes; algorithm 0 is SHA-1, provider 0 is looked for. Two calls, as published: a null out asks for the size.
[[nodiscard]] bool HashEncoded(HCRYPTPROV provider, ALG_ID algorithm, std::span<const BYTE> encoded,
                               BYTE* out, DWORD* size);

}  // namespace certkern

#endif
