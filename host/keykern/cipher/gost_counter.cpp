// The counter mode of GOST 28147-89.
#include "keykern/cipher/keystream.h"

#include <endian.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace keykern {
namespace {

constexpr size_t kBlockSize = 8;

// RFC 4357, 2.3.2: after so many bytes the key becomes what it makes of the constant.
constexpr size_t kMeshingPeriod = 1024;
constexpr BYTE kMeshingConstant[kBlockCipherKeySize] = {
    0x69, 0x00, 0x72, 0x22, 0x64, 0xC9, 0x04, 0x23, 0x8D, 0x3A, 0xDB, 0x96, 0x46, 0xE9, 0x2A, 0xC4,
    0x18, 0xFE, 0xAC, 0x94, 0x00, 0xED, 0x07, 0x12, 0xC0, 0x86, 0xDC, 0xC2, 0xEF, 0x4C, 0xA9, 0x2B};

class GostCounter final : public KeystreamSource {
 public:
  GostCounter(std::unique_ptr<BlockCipher> cipher, const std::array<BYTE, kBlockSize>& state, bool meshing)
      : cipher_(std::move(cipher)), state_(state), meshing_(meshing) {}
  ~GostCounter() override { explicit_bzero(state_.data(), state_.size()); }
  size_t blockSize() const override { return kBlockSize; }
  bool generate(std::span<BYTE> keystream) override;

 private:
  void fill(std::span<BYTE> blocks);
  bool mesh();

  std::unique_ptr<BlockCipher> cipher_;
  std::array<BYTE, kBlockSize> state_;
  const bool meshing_;
  size_t left_ = kMeshingPeriod;
};

bool GostCounter::generate(std::span<BYTE> keystream) {
  while (!keystream.empty()) {
    if (left_ == 0 && meshing_ && !mesh()) return false;
    const size_t count = meshing_ ? std::min(keystream.size(), left_) : keystream.size();
    fill(keystream.first(count));
    if (!cipher_->encrypt(keystream.first(count))) return false;
    if (meshing_) left_ -= count;
    keystream = keystream.subspan(count);
  }
  return true;
}

// RFC 5830, 6.1: the lower word counts modulo 2^32, the upper one modulo 2^32 - 1.
void GostCounter::fill(std::span<BYTE> blocks) {
  uint32_t words[2];
  std::memcpy(words, state_.data(), sizeof words);
  uint32_t lower = le32toh(words[0]);
  uint64_t upper = le32toh(words[1]);
  for (size_t at = 0; at < blocks.size(); at += kBlockSize) {
    lower += 0x01010101;
    upper += 0x01010104;
    if (upper > 0xFFFFFFFF) upper -= 0xFFFFFFFF;
    words[0] = htole32(lower);
    words[1] = htole32(static_cast<uint32_t>(upper));
    std::memcpy(blocks.data() + at, words, sizeof words);
  }
  std::memcpy(state_.data(), words, sizeof words);
}

bool GostCounter::mesh() {
  std::array<BYTE, kBlockCipherKeySize> key;
  const certkern::ScopedWipe wipe(key);
  std::copy(std::begin(kMeshingConstant), std::end(kMeshingConstant), key.begin());
  if (!cipher_->decrypt(key) || !cipher_->setKey(key) || !cipher_->encrypt(state_)) return false;
  left_ = kMeshingPeriod;
  return true;
}

}  // namespace

std::unique_ptr<KeystreamSource> NewGostCounter(const std::string& box, std::span<const BYTE> key,
                                                std::span<const BYTE> iv) {
  std::unique_ptr<BlockCipher> cipher = NewGost28147(box);
  std::array<BYTE, kBlockSize> state;
  if (!cipher || iv.size() != state.size() || !cipher->setKey(key)) return nullptr;
  std::copy(iv.begin(), iv.end(), state.begin());
  if (!cipher->encrypt(state)) return nullptr;
  return std::make_unique<GostCounter>(std::move(cipher), state, box != kTestBox);
}

}  // namespace keykern
