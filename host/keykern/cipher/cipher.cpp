#include "keykern/cipher/cipher.h"

#include "keykern/cipher/authenticated_counter.h"
#include "keykern/cipher/block_modes.h"
#include "keykern/cipher/library_streams.h"
#include "keykern/derive/derivation.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace keykern {
namespace {

enum class Engine : BYTE { Libcrypto, Libgcrypt, Gost28147, Magma, Kuznyechik };

struct Implementation {
  CipherRow row;
  Engine engine;
  size_t section;  // of CTR-ACPKM; its presence is that of the counter modes
};

constexpr Implementation kCiphers[] = {
    {{CALG_G28147, 8, 256, 256, 256, CRYPT_MODE_CFB},               Engine::Gost28147,  0                 },
    {{CALG_GR3412_2015_M, 8, 256, 256, 256, CRYPT_MODE_CTR_ACPKM},  Engine::Magma,      kMagmaSection     },
    {{CALG_GR3412_2015_K, 16, 256, 256, 256, CRYPT_MODE_CTR_ACPKM}, Engine::Kuznyechik, kKuznyechikSection},
    {{CALG_AES_128, 16, 128, 128, 128, CRYPT_MODE_CBC},             Engine::Libcrypto,  0                 },
    {{CALG_AES_192, 16, 192, 192, 192, CRYPT_MODE_CBC},             Engine::Libcrypto,  0                 },
    {{CALG_AES_256, 16, 256, 256, 256, CRYPT_MODE_CBC},             Engine::Libcrypto,  0                 },
    {{CALG_3DES, 8, 192, 192, 192, CRYPT_MODE_CBC},                 Engine::Libcrypto,  0                 },
    {{CALG_3DES_112, 8, 128, 128, 128, CRYPT_MODE_CBC},             Engine::Libcrypto,  0                 },
    {{CALG_DES, 8, 64, 64, 64, CRYPT_MODE_CBC},                     Engine::Libgcrypt,  0                 },
    {{CALG_RC2, 8, 128, 40, 128, CRYPT_MODE_CBC},                   Engine::Libgcrypt,  0                 },
    {{CALG_RC4, 1, 128, 40, 256, 0},                                Engine::Libgcrypt,  0                 },
};

constexpr const char* kSubstitutionBoxes[] = {kTestBox,           "1.2.643.2.2.31.1", "1.2.643.2.2.31.2",
                                              "1.2.643.2.2.31.3", "1.2.643.2.2.31.4", "1.2.643.7.1.2.5.1.1"};

// The UKM of the ACPKM modes: the initial value of the counter, and the seed of the keys where there is a tag.
constexpr size_t kSeedSize = 8;
constexpr char kTreeLabel[] = "kdf tree";

const Implementation* Find(ALG_ID algorithm) {
  const auto* found =
      std::find_if(std::begin(kCiphers), std::end(kCiphers),
                   [&](const Implementation& cipher) { return cipher.row.algorithm == algorithm; });
  return found == std::end(kCiphers) ? nullptr : found;
}

std::unique_ptr<BlockCipher> NewBlockCipher(const Implementation& cipher, const std::string& box) {
  switch (cipher.engine) {
    case Engine::Gost28147:
      return NewGost28147(box);
    case Engine::Magma:
      return NewMagma();
    case Engine::Kuznyechik:
      return NewKuznyechik();
    default:
      return nullptr;
  }
}

// --- modes that are built here ---

std::unique_ptr<CipherStream> Stream(std::unique_ptr<KeystreamSource> source) {
  return source ? std::make_unique<KeystreamCipher>(std::move(source)) : nullptr;
}

// R 1323565.1.025: the cipher key, then the MAC key, from the content key by the seed in the UKM.
std::unique_ptr<CipherStream> NewAuthenticatedCounter(const Implementation& cipher,
                                                      const CipherSettings& settings, Direction direction) {
  SecretBytes keys(2 * kBlockCipherKeySize);
  const std::span<const BYTE> iv = std::span(settings.iv).first(settings.iv.size() - kSeedSize);
  const std::span<const BYTE> seed = std::span(settings.iv).last(kSeedSize);
  const std::span label(reinterpret_cast<const BYTE*>(kTreeLabel), sizeof kTreeLabel - 1);
  if (!KdfTree(settings.key, label, seed, keys)) return nullptr;
  const std::span<const BYTE> cipherKey = std::span(keys).first(kBlockCipherKeySize);
  const std::span<const BYTE> macKey = std::span(keys).last(kBlockCipherKeySize);
  auto source = NewCounter(NewBlockCipher(cipher, {}), cipherKey, iv, cipher.section);
  auto mac = NewOmac(NewBlockCipher(cipher, {}), macKey);
  if (!source || !mac) return nullptr;
  return std::make_unique<AuthenticatedCounter>(std::move(source), std::move(mac), direction);
}

std::unique_ptr<CipherStream> NewBlockMode(const Implementation& cipher, const CipherSettings& settings,
                                           Direction direction) {
  std::unique_ptr<BlockCipher> blocks = NewBlockCipher(cipher, settings.parameters);
  if (!blocks || !blocks->setKey(settings.key)) return nullptr;
  if (settings.mode == CRYPT_MODE_ECB) return NewEcb(std::move(blocks), direction);
  if (settings.mode == CRYPT_MODE_CBC) return NewCbc(std::move(blocks), settings.iv, direction);
  return NewCfb(std::move(blocks), settings.iv, direction);
}

std::unique_ptr<CipherStream> NewGostStream(const CipherSettings& settings, Direction direction,
                                            const Implementation& cipher) {
  if (!IsSubstitutionBox(settings.parameters)) return nullptr;
  if (settings.mode == CRYPT_MODE_CFB) return NewLibgcryptStream(settings, direction);
  if (settings.mode != CRYPT_MODE_CNT) return NewBlockMode(cipher, settings, direction);
  return Stream(NewGostCounter(settings.parameters, settings.key, settings.iv));
}

std::unique_ptr<CipherStream> NewStandardStream(const CipherSettings& settings, Direction direction,
                                                const Implementation& cipher) {
  const std::span<const BYTE> iv = settings.iv;
  switch (settings.mode) {
    case CRYPT_MODE_CTR:
      return Stream(NewCounter(NewBlockCipher(cipher, {}), settings.key, iv, kOneSection));
    case CRYPT_MODE_CTR_ACPKM:
      return Stream(NewCounter(NewBlockCipher(cipher, {}), settings.key, iv.first(iv.size() - kSeedSize),
                               cipher.section));
    case CRYPT_MODE_CTR_ACPKM_OMAC:
      return NewAuthenticatedCounter(cipher, settings, direction);
    default:
      return NewBlockMode(cipher, settings, direction);
  }
}

bool AskLibrary(const Implementation& cipher) {
  switch (cipher.engine) {
    case Engine::Libcrypto:
      return HasLibcryptoCipher(cipher.row.algorithm);
    case Engine::Libgcrypt:
      return HasLibgcryptCipher(cipher.row.algorithm);
    case Engine::Gost28147:
    case Engine::Magma:
      return NewMagma() != nullptr;
    case Engine::Kuznyechik:
      break;  // ours
  }
  return true;
}

std::array<bool, std::size(kCiphers)> AskLibraries() {
  std::array<bool, std::size(kCiphers)> answers{};
  std::transform(std::begin(kCiphers), std::end(kCiphers), answers.begin(), AskLibrary);
  return answers;
}

}  // namespace

const CipherRow* FindCipher(ALG_ID algorithm) {
  const Implementation* cipher = Find(algorithm);
  return cipher ? &cipher->row : nullptr;
}

bool HasMode(const CipherRow& cipher, DWORD mode) {
  if (cipher.blockSize == 1) return mode == 0;
  const Implementation* found = Find(cipher.algorithm);
  switch (mode) {
    case CRYPT_MODE_CBC:
    case CRYPT_MODE_ECB:
    case CRYPT_MODE_CFB:
      return true;
    case CRYPT_MODE_CNT:
      return cipher.algorithm == CALG_G28147;
    case CRYPT_MODE_CTR:
    case CRYPT_MODE_CTR_ACPKM:
    case CRYPT_MODE_CTR_ACPKM_OMAC:
      return found && found->section != 0;
    default:
      return false;
  }
}

bool IsBlockMode(const CipherRow& cipher, DWORD mode) {
  return cipher.blockSize > 1 && (mode == CRYPT_MODE_CBC || mode == CRYPT_MODE_ECB);
}

DWORD IvSize(const CipherRow& cipher, DWORD mode) {
  if (cipher.blockSize == 1 || mode == CRYPT_MODE_ECB) return 0;
  if (mode == CRYPT_MODE_CTR) return cipher.blockSize / 2;
  if (mode == CRYPT_MODE_CTR_ACPKM || mode == CRYPT_MODE_CTR_ACPKM_OMAC)
    return cipher.blockSize / 2 + kSeedSize;
  return cipher.blockSize;
}

DWORD TagSize(const CipherRow& cipher, DWORD mode) {
  return mode == CRYPT_MODE_CTR_ACPKM_OMAC ? cipher.blockSize : 0;
}

bool IsSubstitutionBox(const std::string& oid) {
  return std::find(std::begin(kSubstitutionBoxes), std::end(kSubstitutionBoxes), oid)
      != std::end(kSubstitutionBoxes);
}

std::unique_ptr<CipherStream> NewCipherStream(const CipherSettings& settings, Direction direction) {
  const Implementation* cipher = Find(settings.algorithm);
  if (!cipher || !HasMode(cipher->row, settings.mode)) return nullptr;
  const size_t keyBits = settings.key.size() * 8;
  if (keyBits < cipher->row.minimumBits || keyBits > cipher->row.maximumBits) return nullptr;
  const DWORD ivSize = IvSize(cipher->row, settings.mode);
  CipherSettings complete = settings;
  if (complete.iv.empty()) complete.iv.resize(ivSize);
  if (complete.iv.size() != ivSize) return nullptr;
  switch (cipher->engine) {
    case Engine::Libcrypto:
      return NewLibcryptoStream(complete, direction);
    case Engine::Libgcrypt:
      return NewLibgcryptStream(complete, direction);
    case Engine::Gost28147:
      return NewGostStream(complete, direction, *cipher);
    default:
      return NewStandardStream(complete, direction, *cipher);
  }
}

bool IsCipherAvailable(ALG_ID algorithm) {
  static const std::array<bool, std::size(kCiphers)> answers = AskLibraries();
  const Implementation* cipher = Find(algorithm);
  return cipher && answers[static_cast<size_t>(cipher - kCiphers)];
}

}  // namespace keykern
