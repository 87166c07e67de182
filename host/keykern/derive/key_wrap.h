// Keys under keys. Unwrapping compares in constant time; a mismatch is NTE_BAD_DATA.
#ifndef CERTKERN_KEYKERN_DERIVE_KEY_WRAP_H
#define CERTKERN_KEYKERN_DERIVE_KEY_WRAP_H

#include "common/secret_bytes.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <span>
#include <string>

namespace keykern {

using certkern::SecretBytes;

constexpr bool IsGostWrap(ALG_ID method) {
  return method == CALG_EXPORT_SIMPLE || method == CALG_EXPORT_DIVERSIFIED || method == CALG_EXPORT_KDF;
}

// The wraps of GOST 28147-89. The result is UKM (8), the encrypted key (as long as the key: 32 or 64), MAC (4).
// @param method  CALG_EXPORT_SIMPLE, CALG_EXPORT_DIVERSIFIED (RFC 4357, 6.1 and 6.3), CALG_EXPORT_KDF (RFC 7836, 4.6)
// @param kek     32 bytes
// @param box     substitution box, dotted
DWORD GostWrap(ALG_ID method, std::span<const BYTE> kek, const std::string& box, std::span<const BYTE> ukm,
               std::span<const BYTE> key, SecretBytes& wrapped);
DWORD GostUnwrap(ALG_ID method, std::span<const BYTE> kek, const std::string& box,
                 std::span<const BYTE> wrapped, SecretBytes& key);

// KExp15 and KImp15. R 1323565.1.017; RFC 9189, 8.2.1
// @param cipher  CALG_GR3412_2015_M or CALG_GR3412_2015_K
// @param keys    64 bytes: the MAC key, then the cipher key, as KEG gives them
// @param iv      half a block
DWORD KExp15(ALG_ID cipher, std::span<const BYTE> keys, std::span<const BYTE> iv, std::span<const BYTE> key,
             SecretBytes& wrapped);
DWORD KImp15(ALG_ID cipher, std::span<const BYTE> keys, std::span<const BYTE> iv,
             std::span<const BYTE> wrapped, SecretBytes& key);

// AES key wrap (RFC 3394) for CALG_AES_128, _192, _256; the wrap of CMS (RFC 3217) for CALG_3DES.
DWORD StandardWrap(ALG_ID cipher, std::span<const BYTE> kek, std::span<const BYTE> key, SecretBytes& wrapped);
DWORD StandardUnwrap(ALG_ID cipher, std::span<const BYTE> kek, std::span<const BYTE> wrapped,
                     SecretBytes& key);

}  // namespace keykern

#endif
