// Ciphers whose modes the libraries below have themselves.
#ifndef CERTKERN_KEYKERN_CIPHER_LIBRARY_STREAMS_H
#define CERTKERN_KEYKERN_CIPHER_LIBRARY_STREAMS_H

#include "keykern/cipher/cipher.h"

#include <memory>

namespace keykern {

// Settings were checked: the mode is one of the cipher's, iv has its size. Each is null when the host refuses the
// algorithm or the key.

// AES and triple DES, by libcrypto: CBC, ECB, CFB.
std::unique_ptr<CipherStream> NewLibcryptoStream(const CipherSettings& settings, Direction direction);
bool HasLibcryptoCipher(ALG_ID algorithm);

// DES, RC2 and RC4, by libgcrypt, and GOST 28147-89 in CFB.
std::unique_ptr<CipherStream> NewLibgcryptStream(const CipherSettings& settings, Direction direction);
bool HasLibgcryptCipher(ALG_ID algorithm);

}  // namespace keykern

#endif
