// Kuznyechik by tables, each of which does the substitution and the linear transformation of one byte of the block.
#include "keykern/cipher/block_cipher.h"

#include <endian.h>

#include <array>
#include <cstdint>
#include <cstring>

namespace keykern {
namespace {

constexpr size_t kBlockSize = 16;
constexpr size_t kRounds = 10;
constexpr size_t kRoundConstants = 32;

using Bytes = std::array<BYTE, kBlockSize>;  // as printed: the first is a_15

constexpr BYTE kPi[256] = {
    252, 238, 221, 17,  207, 110, 49,  22,  251, 196, 250, 218, 35,  197, 4,   77,  233, 119, 240, 219,
    147, 46,  153, 186, 23,  54,  241, 187, 20,  205, 95,  193, 249, 24,  101, 90,  226, 92,  239, 33,
    129, 28,  60,  66,  139, 1,   142, 79,  5,   132, 2,   174, 227, 106, 143, 160, 6,   11,  237, 152,
    127, 212, 211, 31,  235, 52,  44,  81,  234, 200, 72,  171, 242, 42,  104, 162, 253, 58,  206, 204,
    181, 112, 14,  86,  8,   12,  118, 18,  191, 114, 19,  71,  156, 183, 93,  135, 21,  161, 150, 41,
    16,  123, 154, 199, 243, 145, 120, 111, 157, 158, 178, 177, 50,  117, 25,  61,  255, 53,  138, 126,
    109, 84,  198, 128, 195, 189, 13,  87,  223, 245, 36,  169, 62,  168, 67,  201, 215, 121, 214, 246,
    124, 34,  185, 3,   224, 15,  236, 222, 122, 148, 176, 188, 220, 232, 40,  80,  78,  51,  10,  74,
    167, 151, 96,  115, 30,  0,   98,  68,  26,  184, 56,  130, 100, 159, 38,  65,  173, 69,  70,  146,
    39,  94,  85,  47,  140, 163, 165, 125, 105, 213, 149, 59,  7,   88,  179, 64,  134, 172, 29,  247,
    48,  55,  107, 228, 136, 217, 231, 137, 225, 27,  131, 73,  76,  63,  248, 254, 141, 83,  170, 144,
    202, 216, 133, 97,  32,  113, 103, 164, 45,  43,  9,   91,  203, 155, 37,  208, 190, 229, 108, 82,
    89,  166, 116, 210, 230, 244, 180, 192, 209, 102, 175, 194, 57,  75,  99,  182,
};

// The factors of the linear function l; the first belongs to a_15.
constexpr Bytes kFactors = {148, 32, 133, 16, 194, 192, 1, 251, 1, 192, 194, 16, 133, 32, 148, 1};

// Two little-endian words hold a block, so that byte i of it is byte i % 8 of word i / 8 everywhere. A vector, so that
// one instruction adds what one look-up gives.
using Block = uint64_t __attribute__((vector_size(kBlockSize)));

inline BYTE ByteOf(const Block& block, size_t i) { return static_cast<BYTE>(block[i / 8] >> (i % 8 * 8)); }

inline Block Load(const BYTE* bytes) {
  uint64_t words[2];
  std::memcpy(words, bytes, sizeof words);
  return Block{le64toh(words[0]), le64toh(words[1])};
}

inline void Store(const Block& block, BYTE* bytes) {
  const uint64_t words[2] = {htole64(block[0]), htole64(block[1])};
  std::memcpy(bytes, words, sizeof words);
}

using ByteTables = std::array<std::array<Block, 256>, kBlockSize>;

inline Block LookUp(const ByteTables& tables, const Block& in) {
  Block out{};
#pragma GCC unroll 16  // else ByteOf has to choose a word each time
  for (size_t i = 0; i < kBlockSize; ++i) out ^= tables[i][ByteOf(in, i)];
  return out;
}

// --- the tables ---

// In the field of x^8 + x^7 + x^6 + x + 1.
BYTE Multiply(BYTE a, BYTE b) {
  unsigned product = 0;
  for (unsigned shifted = a; b; b >>= 1, shifted = (shifted << 1) ^ (shifted & 0x80 ? 0x1C3 : 0)) {
    if (b & 1) product ^= shifted;
  }
  return static_cast<BYTE>(product);
}

BYTE LinearFunction(const Bytes& bytes) {
  BYTE sum = 0;
  for (size_t i = 0; i < kBlockSize; ++i) sum ^= Multiply(bytes[i], kFactors[i]);
  return sum;
}

void Linear(Bytes& bytes) {
  for (size_t round = 0; round < kBlockSize; ++round) {
    const BYTE first = LinearFunction(bytes);
    std::memmove(bytes.data() + 1, bytes.data(), kBlockSize - 1);
    bytes[0] = first;
  }
}

void InverseLinear(Bytes& bytes) {
  for (size_t round = 0; round < kBlockSize; ++round) {
    const BYTE first = bytes[0];
    std::memmove(bytes.data(), bytes.data() + 1, kBlockSize - 1);
    bytes[kBlockSize - 1] = first;
    bytes[kBlockSize - 1] = LinearFunction(bytes);
  }
}

// Row v of table i: the transformation of a block that has substitution[v] at i and zeros elsewhere. It is linear, so
// that the eight bits of a byte suffice.
void MakeTables(ByteTables& tables, void (*transform)(Bytes&), const BYTE* substitution) {
  for (size_t i = 0; i < kBlockSize; ++i) {
    std::array<Block, 8> bits;
    for (size_t bit = 0; bit < bits.size(); ++bit) {
      Bytes bytes{};
      bytes[i] = static_cast<BYTE>(1u << bit);
      transform(bytes);
      bits[bit] = Load(bytes.data());
    }
    for (size_t value = 0; value < 256; ++value) {
      for (size_t bit = 0; bit < bits.size(); ++bit) {
        if (substitution[value] >> bit & 1) tables[i][value] ^= bits[bit];
      }
    }
  }
}

struct Tables {
  Tables() {
    for (size_t value = 0; value < 256; ++value) inversePi[kPi[value]] = static_cast<BYTE>(value);
    MakeTables(forward, Linear, kPi);
    MakeTables(backward, InverseLinear, inversePi.data());
    for (size_t i = 0; i < kRoundConstants; ++i) {
      Bytes bytes{};
      bytes[kBlockSize - 1] = static_cast<BYTE>(i + 1);
      Linear(bytes);
      constants[i] = Load(bytes.data());
    }
  }
  // The inverse linear transformation alone: the substitution before the backward table undoes the one inside it.
  Block inverseLinear(Block block) const {
    Block substituted{};
    for (size_t i = 0; i < kBlockSize; ++i) substituted ^= backward[i][kPi[ByteOf(block, i)]];
    return substituted;
  }

  ByteTables forward{};
  ByteTables backward{};
  std::array<Block, kRoundConstants> constants;
  std::array<BYTE, 256> inversePi{};
};

const Tables& SharedTables() {
  static const Tables tables;
  return tables;
}

// --- the cipher ---

class Kuznyechik final : public BlockCipher {
 public:
  ~Kuznyechik() override {
    explicit_bzero(encryptionKeys_.data(), sizeof encryptionKeys_);
    explicit_bzero(decryptionKeys_.data(), sizeof decryptionKeys_);
  }
  size_t blockSize() const override { return kBlockSize; }
  bool setKey(std::span<const BYTE> key) override;
  bool encrypt(std::span<BYTE> blocks) override;
  bool decrypt(std::span<BYTE> blocks) override;

 private:
  Block decryptBlock(Block block) const;

  const Tables& tables_ = SharedTables();
  std::array<Block, kRounds> encryptionKeys_;
  std::array<Block, kRounds>
      decryptionKeys_;  // beyond the first, what the inverse linear transformation makes of them
};

bool Kuznyechik::setKey(std::span<const BYTE> key) {
  if (key.size() != kBlockCipherKeySize) return false;
  Block left = Load(key.data()), right = Load(key.data() + kBlockSize), mixed;
  for (size_t i = 0; i < kRounds; i += 2) {
    encryptionKeys_[i] = left;
    encryptionKeys_[i + 1] = right;
    if (i + 2 == kRounds) break;
    for (size_t step = 0; step < 8; ++step) {
      mixed = LookUp(tables_.forward, left ^ tables_.constants[i * 4 + step]) ^ right;
      right = left;
      left = mixed;
    }
  }
  decryptionKeys_[0] = encryptionKeys_[0];
  for (size_t i = 1; i < kRounds; ++i) decryptionKeys_[i] = tables_.inverseLinear(encryptionKeys_[i]);
  for (Block* secret : {&left, &right, &mixed}) explicit_bzero(secret, sizeof *secret);
  return true;
}

bool Kuznyechik::encrypt(std::span<BYTE> blocks) {
  if (blocks.size() % kBlockSize != 0) return false;
  for (BYTE* bytes = blocks.data(); bytes != blocks.data() + blocks.size(); bytes += kBlockSize) {
    Block block = Load(bytes);
    for (size_t round = 0; round < kRounds - 1; ++round) {
      block = LookUp(tables_.forward, block ^ encryptionKeys_[round]);
    }
    Store(block ^ encryptionKeys_[kRounds - 1], bytes);
  }
  return true;
}

// The linear transformation goes before the addition of the key here, so that one table serves both.
Block Kuznyechik::decryptBlock(Block block) const {
  block = tables_.inverseLinear(block);
  for (size_t round = kRounds - 1; round > 1; --round) {
    block = LookUp(tables_.backward, block ^ decryptionKeys_[round]);
  }
  Bytes bytes;
  Store(block ^ decryptionKeys_[1], bytes.data());
  for (BYTE& byte : bytes) byte = tables_.inversePi[byte];
  return Load(bytes.data()) ^ decryptionKeys_[0];
}

bool Kuznyechik::decrypt(std::span<BYTE> blocks) {
  if (blocks.size() % kBlockSize != 0) return false;
  for (BYTE* bytes = blocks.data(); bytes != blocks.data() + blocks.size(); bytes += kBlockSize) {
    Store(decryptBlock(Load(bytes)), bytes);
  }
  return true;
}

}  // namespace

std::unique_ptr<BlockCipher> NewKuznyechik() { return std::make_unique<Kuznyechik>(); }

}  // namespace keykern
