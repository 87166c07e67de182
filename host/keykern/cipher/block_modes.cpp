#include "keykern/cipher/block_modes.h"

#include <algorithm>

namespace keykern {
namespace {

constexpr size_t kBatch = 4096;

void AddTo(std::span<BYTE> out, std::span<const BYTE> in) {
  for (size_t i = 0; i < out.size(); ++i) out[i] ^= in[i];
}

class Ecb final : public CipherStream {
 public:
  Ecb(std::unique_ptr<BlockCipher> cipher, Direction direction)
      : cipher_(std::move(cipher)), direction_(direction) {}
  bool process(std::span<BYTE> data) override {
    if (data.size() % cipher_->blockSize() != 0) return false;
    return direction_ == Direction::Encrypt ? cipher_->encrypt(data) : cipher_->decrypt(data);
  }

 private:
  std::unique_ptr<BlockCipher> cipher_;
  const Direction direction_;
};

class Cbc final : public CipherStream {
 public:
  Cbc(std::unique_ptr<BlockCipher> cipher, SecretBytes iv, Direction direction)
      : cipher_(std::move(cipher)), previous_(std::move(iv)), direction_(direction) {}
  bool process(std::span<BYTE> data) override {
    if (data.size() % previous_.size() != 0) return false;
    for (; !data.empty(); data = data.subspan(std::min(data.size(), kBatch))) {
      const std::span<BYTE> batch = data.first(std::min(data.size(), kBatch));
      if (!(direction_ == Direction::Encrypt ? encrypt(batch) : decrypt(batch))) return false;
    }
    return true;
  }

 private:
  bool encrypt(std::span<BYTE> data);
  bool decrypt(std::span<BYTE> data);

  std::unique_ptr<BlockCipher> cipher_;
  SecretBytes previous_;  // the block of ciphertext before
  const Direction direction_;
};

bool Cbc::encrypt(std::span<BYTE> data) {
  for (size_t at = 0; at < data.size(); at += previous_.size()) {
    const std::span<BYTE> block = data.subspan(at, previous_.size());
    AddTo(block, previous_);
    if (!cipher_->encrypt(block)) return false;
    std::copy(block.begin(), block.end(), previous_.begin());
  }
  return true;
}

bool Cbc::decrypt(std::span<BYTE> data) {
  // Each block is followed by what has to be added to the next.
  SecretBytes chain(previous_);
  certkern::Append(chain, data);
  if (!cipher_->decrypt(data)) return false;
  AddTo(data, chain);
  std::copy(chain.end() - static_cast<std::ptrdiff_t>(previous_.size()), chain.end(), previous_.begin());
  return true;
}

class Cfb final : public CipherStream {
 public:
  Cfb(std::unique_ptr<BlockCipher> cipher, SecretBytes iv, Direction direction)
      : cipher_(std::move(cipher)),
        register_(std::move(iv)),
        used_(register_.size()),
        direction_(direction) {}
  bool process(std::span<BYTE> data) override;

 private:
  std::unique_ptr<BlockCipher> cipher_;
  SecretBytes register_;  // the ciphertext of this block so far, then what is left of the keystream
  size_t used_;
  const Direction direction_;
};

bool Cfb::process(std::span<BYTE> data) {
  for (BYTE& byte : data) {
    if (used_ == register_.size()) {
      if (!cipher_->encrypt(register_)) return false;
      used_ = 0;
    }
    const BYTE in = byte;
    byte ^= register_[used_];
    register_[used_++] = direction_ == Direction::Encrypt ? byte : in;
  }
  return true;
}

}  // namespace

std::unique_ptr<CipherStream> NewEcb(std::unique_ptr<BlockCipher> cipher, Direction direction) {
  return std::make_unique<Ecb>(std::move(cipher), direction);
}
std::unique_ptr<CipherStream> NewCbc(std::unique_ptr<BlockCipher> cipher, SecretBytes iv,
                                     Direction direction) {
  return std::make_unique<Cbc>(std::move(cipher), std::move(iv), direction);
}
std::unique_ptr<CipherStream> NewCfb(std::unique_ptr<BlockCipher> cipher, SecretBytes iv,
                                     Direction direction) {
  return std::make_unique<Cfb>(std::move(cipher), std::move(iv), direction);
}

}  // namespace keykern
