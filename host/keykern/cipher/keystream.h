// Ciphers that add a keystream to the data: counters, with whatever changes of key a mode asks for.
#ifndef CERTKERN_KEYKERN_CIPHER_KEYSTREAM_H
#define CERTKERN_KEYKERN_CIPHER_KEYSTREAM_H

#include "keykern/cipher/block_cipher.h"
#include "keykern/cipher/cipher.h"

#include <memory>
#include <span>

namespace keykern {

// What makes a keystream. It is asked for whole blocks, one stretch after the other.
class KeystreamSource {
 public:
  KeystreamSource() = default;
  KeystreamSource(const KeystreamSource&) = delete;
  KeystreamSource& operator=(const KeystreamSource&) = delete;
  virtual ~KeystreamSource() = default;

  virtual size_t blockSize() const = 0;
  [[nodiscard]] virtual bool generate(std::span<BYTE> keystream) = 0;
};

// Spends a source on pieces of any length; both directions are the same.
class KeystreamCipher final : public CipherStream {
 public:
  explicit KeystreamCipher(std::unique_ptr<KeystreamSource> source);
  bool process(std::span<BYTE> data) override;

 private:
  bool refill(size_t wanted);

  std::unique_ptr<KeystreamSource> source_;
  SecretBytes buffer_;
  size_t begin_ = 0;
  size_t end_ = 0;
};

// Sections of CTR-ACPKM in messages and key stores: bytes under one key. RFC 9337
inline constexpr size_t kMagmaSection = size_t{8} << 10;
inline constexpr size_t kKuznyechikSection = size_t{256} << 10;
inline constexpr size_t kOneSection = 0;  // the key never changes: plain CTR

// CTR, or CTR-ACPKM (RFC 8645, 6.2.2) with sections of whole blocks. Null when a size does not fit.
// @param cipher  owned; null makes null
// @param iv      half a block
std::unique_ptr<KeystreamSource> NewCounter(std::unique_ptr<BlockCipher> cipher, std::span<const BYTE> key,
                                            std::span<const BYTE> iv, size_t section);

// The counter mode of GOST 28147-89. RFC 5830, 6, with the key meshing of RFC 4357, 2.3.2, but under the test box
// @param iv  8 bytes
std::unique_ptr<KeystreamSource> NewGostCounter(const std::string& box, std::span<const BYTE> key,
                                                std::span<const BYTE> iv);

}  // namespace keykern

#endif
