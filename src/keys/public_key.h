// Public keys on their way between certificates and providers.
#ifndef CERTKERN_KEYS_PUBLIC_KEY_H
#define CERTKERN_KEYS_PUBLIC_KEY_H

#include <certkern/encode.h>

#include "platform/owner.h"

namespace certkern {

using KeyHandle = Owner<HCRYPTKEY, CryptDestroyKey>;
// What the extension library and the codec hand over.
using LocalBytes = Owner<BYTE*, LocalFree>;

// Converts the key into a blob and imports that. The algorithm chooses the converter; for 0 the provider's type does.
[[nodiscard]] bool ImportPublicKey(HCRYPTPROV provider, PCERT_PUBLIC_KEY_INFO info, ALG_ID algorithm,
                                   DWORD flags, HCRYPTKEY* key);
[[nodiscard]] bool ExportPublicKey(HCRYPTPROV provider, DWORD keySpec, DWORD encodingType, LPSTR oid,
                                   DWORD flags, void* aux, PCERT_PUBLIC_KEY_INFO info, DWORD* size);

// Bits; 0 is a failure.
DWORD PublicKeyBits(PCERT_PUBLIC_KEY_INFO info);

// Hashes the encoded key with the default provider; algorithm 0 is MD5. A null out asks for the size.
[[nodiscard]] bool HashPublicKey(ALG_ID algorithm, DWORD encodingType, const CERT_PUBLIC_KEY_INFO& info,
                                 BYTE* out, DWORD* size);

}  // namespace certkern

#endif
