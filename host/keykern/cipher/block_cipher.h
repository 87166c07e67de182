// Block ciphers with keys of 256 bits, block by block. The modes that no library offers are built on these.
#ifndef CERTKERN_KEYKERN_CIPHER_BLOCK_CIPHER_H
#define CERTKERN_KEYKERN_CIPHER_BLOCK_CIPHER_H

#include <certkern/types.h>

#include <memory>
#include <span>
#include <string>

namespace keykern {

inline constexpr size_t kBlockCipherKeySize = 32;
inline constexpr size_t kMaxBlockSize = 16;

// The only substitution box of GOST 28147-89 that goes without key meshing. RFC 4357, 11.1
inline constexpr char kTestBox[] = "1.2.643.2.2.31.0";

// Takes a key first, and another at any time. Wipes what it knows of it at the end.
class BlockCipher {
 public:
  BlockCipher() = default;
  BlockCipher(const BlockCipher&) = delete;
  BlockCipher& operator=(const BlockCipher&) = delete;
  virtual ~BlockCipher() = default;

  virtual size_t blockSize() const = 0;
  [[nodiscard]] virtual bool setKey(std::span<const BYTE> key) = 0;
  // Whole blocks, each by itself, in place. Many at once are faster.
  [[nodiscard]] virtual bool encrypt(std::span<BYTE> blocks) = 0;
  [[nodiscard]] virtual bool decrypt(std::span<BYTE> blocks) = 0;
};

// Null when the host refuses the algorithm, or there is no such substitution box.
std::unique_ptr<BlockCipher> NewGost28147(const std::string& box);
std::unique_ptr<BlockCipher> NewMagma();       // RFC 8891
std::unique_ptr<BlockCipher> NewKuznyechik();  // RFC 7801

}  // namespace keykern

#endif
