// ECB, CBC and CFB over a block cipher. GOST R 34.13, with a register as long as a block
#ifndef CERTKERN_KEYKERN_CIPHER_BLOCK_MODES_H
#define CERTKERN_KEYKERN_CIPHER_BLOCK_MODES_H

#include "keykern/cipher/block_cipher.h"
#include "keykern/cipher/cipher.h"

#include <memory>

namespace keykern {

// The cipher has its key; iv is a block.
std::unique_ptr<CipherStream> NewEcb(std::unique_ptr<BlockCipher> cipher, Direction direction);
std::unique_ptr<CipherStream> NewCbc(std::unique_ptr<BlockCipher> cipher, SecretBytes iv,
                                     Direction direction);
std::unique_ptr<CipherStream> NewCfb(std::unique_ptr<BlockCipher> cipher, SecretBytes iv,
                                     Direction direction);

}  // namespace keykern

#endif
