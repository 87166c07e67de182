// A cipher handle of libgcrypt with its owner.
#ifndef CERTKERN_KEYKERN_CIPHER_LIBGCRYPT_CIPHER_H
#define CERTKERN_KEYKERN_CIPHER_LIBGCRYPT_CIPHER_H

#include "keykern/crypto_library.h"

#include <gcrypt.h>

#include <memory>
#include <string>

namespace keykern {

struct CloseLibgcryptCipher {
  void operator()(gcry_cipher_hd_t handle) const { gcry_cipher_close(handle); }
};
using LibgcryptCipher = std::unique_ptr<gcry_cipher_handle, CloseLibgcryptCipher>;

// Null when the host refuses the algorithm.
inline LibgcryptCipher OpenLibgcryptCipher(int algorithm, int mode) {
  StartLibgcrypt();
  gcry_cipher_hd_t handle = nullptr;
  if (gcry_cipher_open(&handle, algorithm, mode, 0)) return nullptr;
  return LibgcryptCipher(handle);
}

// A substitution box of GOST 28147-89, dotted. Goes before the key.
[[nodiscard]] inline bool SetBox(const LibgcryptCipher& handle, const std::string& box) {
  return !gcry_cipher_ctl(handle.get(), GCRYCTL_SET_SBOX, const_cast<char*>(box.c_str()), 0);
}

}  // namespace keykern

#endif
