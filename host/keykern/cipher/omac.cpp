#include "keykern/cipher/omac.h"

#include <algorithm>

namespace keykern {
namespace {

constexpr BYTE kPolynomial8 = 0x1B;
constexpr BYTE kPolynomial16 = 0x87;

// Multiplies by x, in constant time: the block is a secret.
void Double(std::span<BYTE> block) {
  const BYTE polynomial = block.size() == 8 ? kPolynomial8 : kPolynomial16;
  const BYTE reduction = static_cast<BYTE>(-(block.front() >> 7)) & polynomial;
  for (size_t i = 0; i + 1 < block.size(); ++i) {
    block[i] = static_cast<BYTE>(block[i] << 1 | block[i + 1] >> 7);
  }
  block.back() = static_cast<BYTE>(block.back() << 1) ^ reduction;
}

}  // namespace

Omac::Omac(std::unique_ptr<BlockCipher> cipher) : cipher_(std::move(cipher)), chain_(cipher_->blockSize()) {}

bool Omac::add(std::span<const BYTE> data) {
  while (!data.empty()) {
    if (filled_ == chain_.size()) {
      if (!cipher_->encrypt(chain_)) return false;
      filled_ = 0;
    }
    const size_t count = std::min(data.size(), chain_.size() - filled_);
    for (size_t i = 0; i < count; ++i) chain_[filled_ + i] ^= data[i];
    filled_ += count;
    data = data.subspan(count);
  }
  return true;
}

SecretBytes Omac::finish() {
  SecretBytes mask(chain_.size());
  if (!cipher_->encrypt(mask)) return {};
  Double(mask);
  if (filled_ < chain_.size()) {
    Double(mask);
    chain_[filled_] ^= 0x80;
  }
  for (size_t i = 0; i < mask.size(); ++i) chain_[i] ^= mask[i];
  if (!cipher_->encrypt(chain_)) return {};
  return chain_;
}

std::unique_ptr<Omac> NewOmac(std::unique_ptr<BlockCipher> cipher, std::span<const BYTE> key) {
  if (!cipher || !cipher->setKey(key)) return nullptr;
  return std::make_unique<Omac>(std::move(cipher));
}

}  // namespace keykern
