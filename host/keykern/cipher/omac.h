// OMAC: the MAC of GOST R 34.13, as long as a block.
#ifndef CERTKERN_KEYKERN_CIPHER_OMAC_H
#define CERTKERN_KEYKERN_CIPHER_OMAC_H

#include "common/secret_bytes.h"
#include "keykern/cipher/block_cipher.h"

#include <memory>
#include <span>

namespace keykern {

using certkern::SecretBytes;

class Omac {
 public:
  // The cipher has its key.
  explicit Omac(std::unique_ptr<BlockCipher> cipher);
  [[nodiscard]] bool add(std::span<const BYTE> data);
  // Ends it. Empty when the library below fails.
  SecretBytes finish();

 private:
  std::unique_ptr<BlockCipher> cipher_;
  SecretBytes chain_;  // the MAC so far, and what came since added to it
  size_t filled_ = 0;  // bytes of chain_ since the last encryption; the last block waits for its mask
};

// Null when the host refuses the cipher, or the key does not fit.
std::unique_ptr<Omac> NewOmac(std::unique_ptr<BlockCipher> cipher, std::span<const BYTE> key);

}  // namespace keykern

#endif
