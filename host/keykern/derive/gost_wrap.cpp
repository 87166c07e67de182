// The wraps of GOST 28147-89. RFC 4357, 6; RFC 7836, 4.6
#include "keykern/cipher/block_cipher.h"
#include "keykern/cipher/cipher.h"
#include "keykern/crypto_library.h"
#include "keykern/derive/derivation.h"
#include "keykern/derive/imit.h"
#include "keykern/derive/key_wrap.h"

#include <openssl/crypto.h>

#include <endian.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

namespace keykern {
namespace {

using Kek = std::array<BYTE, kBlockCipherKeySize>;
constexpr size_t kUkmSize = 8;
constexpr size_t kKeySizes[] = {32, 64};  // a key of the cipher; a private key of 512 bits
constexpr BYTE kKdfLabel[] = {0x26, 0xBD, 0xB8, 0x78};

// --- what is made of the wrapping key first ---

bool LeaveKek(Kek&, std::span<const BYTE>, const std::string&) { return true; }

// RFC 4357, 6.5: eight rounds, each of which encrypts the key under itself. The words of the key are added up in two
// sums, by the bits of the round's octet of the UKM, and these are the initial value.
bool DiversifyKek(Kek& kek, std::span<const BYTE> ukm, const std::string& box) {
  CipherSettings settings{CALG_G28147, CRYPT_MODE_CFB, {}, {}, box};
  for (const BYTE bits : ukm) {
    uint32_t words[kBlockCipherKeySize / sizeof(uint32_t)];
    uint32_t sums[2] = {0, 0};
    std::memcpy(words, kek.data(), sizeof words);
    for (unsigned i = 0; i < std::size(words); ++i) sums[bits >> i & 1 ? 0 : 1] += le32toh(words[i]);
    for (uint32_t& sum : sums) sum = htole32(sum);
    settings.key = certkern::ToSecret(kek);
    settings.iv = certkern::ToSecret({reinterpret_cast<const BYTE*>(sums), sizeof sums});
    explicit_bzero(words, sizeof words);
    explicit_bzero(sums, sizeof sums);
    const std::unique_ptr<CipherStream> cfb = NewCipherStream(settings, Direction::Encrypt);
    if (!cfb || !cfb->process(kek)) return false;
  }
  return true;
}

bool DeriveKek(Kek& kek, std::span<const BYTE> ukm, const std::string&) {
  const SecretBytes key = certkern::ToSecret(kek);
  return KdfTree(key, kKdfLabel, ukm, kek);
}

struct Method {
  ALG_ID id;
  bool (*prepare)(Kek& kek, std::span<const BYTE> ukm, const std::string& box);
};
constexpr Method kMethods[] = {
    {CALG_EXPORT_SIMPLE,      LeaveKek    },
    {CALG_EXPORT_DIVERSIFIED, DiversifyKek},
    {CALG_EXPORT_KDF,         DeriveKek   },
};

// --- the wrap itself, the same for all ---

bool IsKeySize(size_t size) {
  return std::find(std::begin(kKeySizes), std::end(kKeySizes), size) != std::end(kKeySizes);
}

// The cipher under the prepared key, and that key.
struct Wrapper {
  DWORD open(ALG_ID method, std::span<const BYTE> key, const std::string& box, std::span<const BYTE> ukm);

  Kek kek{};
  const certkern::ScopedWipe wipe{kek};
  std::unique_ptr<BlockCipher> cipher;
};

DWORD Wrapper::open(ALG_ID method, std::span<const BYTE> key, const std::string& box,
                    std::span<const BYTE> ukm) {
  const auto* found = std::find_if(std::begin(kMethods), std::end(kMethods),
                                   [&](const Method& row) { return row.id == method; });
  if (found == std::end(kMethods) || !IsSubstitutionBox(box)) return NTE_BAD_ALGID;
  if (key.size() != kek.size()) return NTE_BAD_KEY;
  std::copy(key.begin(), key.end(), kek.begin());
  cipher = NewGost28147(box);
  if (!cipher) return NTE_BAD_ALGID;
  return found->prepare(kek, ukm, box) && cipher->setKey(kek) ? 0 : NTE_FAIL;
}

}  // namespace

DWORD GostWrap(ALG_ID method, std::span<const BYTE> kek, const std::string& box, std::span<const BYTE> ukm,
               std::span<const BYTE> key, SecretBytes& wrapped) {
  if (ukm.size() != kUkmSize || !IsKeySize(key.size())) return NTE_BAD_DATA;
  Wrapper wrapper;
  if (const DWORD error = wrapper.open(method, kek, box, ukm)) return error;
  std::array<BYTE, kImitSize> mac;
  SecretBytes out = certkern::ToSecret(ukm);
  certkern::Append(out, key);
  if (!Imit(wrapper.kek, box, ukm, key, mac) || !wrapper.cipher->encrypt(std::span(out).subspan(kUkmSize))) {
    return NTE_FAIL;
  }
  certkern::Append(out, mac);
  wrapped = std::move(out);
  return 0;
}

DWORD GostUnwrap(ALG_ID method, std::span<const BYTE> kek, const std::string& box,
                 std::span<const BYTE> wrapped, SecretBytes& key) {
  if (wrapped.size() < kUkmSize + kImitSize || !IsKeySize(wrapped.size() - kUkmSize - kImitSize)) {
    return NTE_BAD_DATA;
  }
  const std::span<const BYTE> ukm = wrapped.first(kUkmSize);
  const std::span<const BYTE> mac = wrapped.last(kImitSize);
  Wrapper wrapper;
  if (const DWORD error = wrapper.open(method, kek, box, ukm)) return error;
  SecretBytes out = certkern::ToSecret(wrapped.subspan(kUkmSize, wrapped.size() - kUkmSize - kImitSize));
  std::array<BYTE, kImitSize> expected;
  if (!wrapper.cipher->decrypt(out) || !Imit(wrapper.kek, box, ukm, out, expected)) return NTE_FAIL;
  if (CRYPTO_memcmp(expected.data(), mac.data(), expected.size()) != 0) return NTE_BAD_DATA;
  key = std::move(out);
  return 0;
}

}  // namespace keykern
