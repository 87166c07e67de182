// GOST 28147-89 by libgcrypt, and Magma, which is the same with one substitution box and the bytes the other way round.
#include "keykern/cipher/block_cipher.h"
#include "keykern/cipher/cipher.h"
#include "keykern/cipher/libgcrypt_cipher.h"

#include <array>
#include <cstring>

namespace keykern {
namespace {

constexpr size_t kBlockSize = 8;
constexpr char kMagmaBox[] = "1.2.643.7.1.2.5.1.1";

class Gost28147 final : public BlockCipher {
 public:
  explicit Gost28147(LibgcryptCipher handle) : handle_(std::move(handle)) {}

  size_t blockSize() const override { return kBlockSize; }
  bool setKey(std::span<const BYTE> key) override {
    return key.size() == kBlockCipherKeySize && !gcry_cipher_setkey(handle_.get(), key.data(), key.size());
  }
  bool encrypt(std::span<BYTE> blocks) override {
    return blocks.empty() || !gcry_cipher_encrypt(handle_.get(), blocks.data(), blocks.size(), nullptr, 0);
  }
  bool decrypt(std::span<BYTE> blocks) override {
    return blocks.empty() || !gcry_cipher_decrypt(handle_.get(), blocks.data(), blocks.size(), nullptr, 0);
  }

 private:
  LibgcryptCipher handle_;
};

void ReverseBlocks(std::span<BYTE> blocks) {
  for (BYTE* bytes = blocks.data(); bytes != blocks.data() + blocks.size(); bytes += kBlockSize) {
    uint64_t block;
    std::memcpy(&block, bytes, sizeof block);
    block = __builtin_bswap64(block);
    std::memcpy(bytes, &block, sizeof block);
  }
}

class Magma final : public BlockCipher {
 public:
  explicit Magma(std::unique_ptr<BlockCipher> reversed) : reversed_(std::move(reversed)) {}

  size_t blockSize() const override { return kBlockSize; }
  bool setKey(std::span<const BYTE> key) override {
    if (key.size() != kBlockCipherKeySize) return false;
    std::array<BYTE, kBlockCipherKeySize> words;
    const certkern::ScopedWipe wipe(words);
    for (size_t i = 0; i < words.size(); ++i) words[i] = key[i ^ 3];  // each word of four bytes backwards
    return reversed_->setKey(words);
  }
  bool encrypt(std::span<BYTE> blocks) override {
    if (blocks.size() % kBlockSize != 0) return false;
    ReverseBlocks(blocks);
    if (!reversed_->encrypt(blocks)) return false;
    ReverseBlocks(blocks);
    return true;
  }
  bool decrypt(std::span<BYTE> blocks) override {
    if (blocks.size() % kBlockSize != 0) return false;
    ReverseBlocks(blocks);
    if (!reversed_->decrypt(blocks)) return false;
    ReverseBlocks(blocks);
    return true;
  }

 private:
  std::unique_ptr<BlockCipher> reversed_;
};

}  // namespace

std::unique_ptr<BlockCipher> NewGost28147(const std::string& box) {
  LibgcryptCipher handle = OpenLibgcryptCipher(GCRY_CIPHER_GOST28147, GCRY_CIPHER_MODE_ECB);
  if (!handle || !IsSubstitutionBox(box) || !SetBox(handle, box)) return nullptr;
  return std::make_unique<Gost28147>(std::move(handle));
}

std::unique_ptr<BlockCipher> NewMagma() {
  std::unique_ptr<BlockCipher> reversed = NewGost28147(kMagmaBox);
  return reversed ? std::make_unique<Magma>(std::move(reversed)) : nullptr;
}

}  // namespace keykern
