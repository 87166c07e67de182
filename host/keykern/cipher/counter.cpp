// CTR and CTR-ACPKM of GOST R 34.13 and RFC 8645.
#include "keykern/cipher/keystream.h"

#include <endian.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace keykern {
namespace {

constexpr size_t kCounterSize = sizeof(uint64_t);

class Counter final : public KeystreamSource {
 public:
  Counter(std::unique_ptr<BlockCipher> cipher, std::span<const BYTE> iv, size_t section)
      : cipher_(std::move(cipher)), section_(section), left_(section) {
    std::copy(iv.begin(), iv.end(), block_.begin());
  }
  size_t blockSize() const override { return cipher_->blockSize(); }
  bool generate(std::span<BYTE> keystream) override;

 private:
  void fill(std::span<BYTE> blocks);
  bool nextKey();

  std::unique_ptr<BlockCipher> cipher_;
  std::array<BYTE, kMaxBlockSize> block_{};  // of the next block; zeros follow the initial value
  const size_t section_;
  size_t left_;  // bytes before the key changes
};

bool Counter::generate(std::span<BYTE> keystream) {
  while (!keystream.empty()) {
    // Late, so that a message which ends with its section costs no further key.
    if (section_ != kOneSection && left_ == 0 && !nextKey()) return false;
    const size_t count = section_ == kOneSection ? keystream.size() : std::min(keystream.size(), left_);
    fill(keystream.first(count));
    if (!cipher_->encrypt(keystream.first(count))) return false;
    if (section_ != kOneSection) left_ -= count;
    keystream = keystream.subspan(count);
  }
  return true;
}

// The counter is one big-endian number as long as the block, half of which starts at zero: of the longer blocks the
// upper word never changes.
void Counter::fill(std::span<BYTE> blocks) {
  const size_t size = blockSize();
  BYTE* const last = block_.data() + size - kCounterSize;
  uint64_t counter;
  std::memcpy(&counter, last, kCounterSize);
  counter = be64toh(counter);
  for (size_t at = 0; at < blocks.size(); at += size, ++counter) {
    const uint64_t bytes = htobe64(counter);
    std::memcpy(blocks.data() + at, block_.data(), size - kCounterSize);
    std::memcpy(blocks.data() + at + size - kCounterSize, &bytes, kCounterSize);
  }
  counter = htobe64(counter);
  std::memcpy(last, &counter, kCounterSize);
}

// RFC 8645, 6.2.1: the next key is what this one makes of the octets 80 to 9F.
bool Counter::nextKey() {
  std::array<BYTE, kBlockCipherKeySize> key;
  const certkern::ScopedWipe wipe(key);
  for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<BYTE>(0x80 + i);
  if (!cipher_->encrypt(key) || !cipher_->setKey(key)) return false;
  left_ = section_;
  return true;
}

}  // namespace

std::unique_ptr<KeystreamSource> NewCounter(std::unique_ptr<BlockCipher> cipher, std::span<const BYTE> key,
                                            std::span<const BYTE> iv, size_t section) {
  if (!cipher || iv.size() * 2 != cipher->blockSize() || section % cipher->blockSize() != 0) return nullptr;
  if (!cipher->setKey(key)) return nullptr;
  return std::make_unique<Counter>(std::move(cipher), iv, section);
}

}  // namespace keykern
