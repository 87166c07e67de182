#include "keykern/cipher/block_cipher.h"
#include "keykern/cipher/libgcrypt_cipher.h"
#include "keykern/cipher/library_streams.h"

namespace keykern {
namespace {

class LibgcryptStream final : public CipherStream {
 public:
  LibgcryptStream(LibgcryptCipher handle, Direction direction)
      : handle_(std::move(handle)), direction_(direction) {}
  // The library itself refuses parts of blocks.
  bool process(std::span<BYTE> data) override {
    if (data.empty()) return true;
    const auto call = direction_ == Direction::Encrypt ? gcry_cipher_encrypt : gcry_cipher_decrypt;
    return !call(handle_.get(), data.data(), data.size(), nullptr, 0);
  }

 private:
  LibgcryptCipher handle_;
  const Direction direction_;
};

// Zero when there is none.
int LibraryAlgorithm(const CipherSettings& settings) {
  switch (settings.algorithm) {
    case CALG_DES:
      return GCRY_CIPHER_DES;
    case CALG_RC2:
      return GCRY_CIPHER_RFC2268_128;  // of keys from 40 to 128 bits, with as many effective bits
    case CALG_RC4:
      return GCRY_CIPHER_ARCFOUR;
    case CALG_G28147:
      return settings.parameters == kTestBox ? GCRY_CIPHER_GOST28147 : GCRY_CIPHER_GOST28147_MESH;
    default:
      return 0;
  }
}

int LibraryMode(DWORD mode) {
  switch (mode) {
    case CRYPT_MODE_CBC:
      return GCRY_CIPHER_MODE_CBC;
    case CRYPT_MODE_ECB:
      return GCRY_CIPHER_MODE_ECB;
    case CRYPT_MODE_CFB:
      return GCRY_CIPHER_MODE_CFB;
    default:
      return GCRY_CIPHER_MODE_STREAM;
  }
}

}  // namespace

std::unique_ptr<CipherStream> NewLibgcryptStream(const CipherSettings& settings, Direction direction) {
  LibgcryptCipher handle = OpenLibgcryptCipher(LibraryAlgorithm(settings), LibraryMode(settings.mode));
  if (!handle) return nullptr;
  if (settings.algorithm == CALG_G28147 && !SetBox(handle, settings.parameters)) return nullptr;
  if (gcry_cipher_setkey(handle.get(), settings.key.data(), settings.key.size())) return nullptr;
  if (!settings.iv.empty() && gcry_cipher_setiv(handle.get(), settings.iv.data(), settings.iv.size())) {
    return nullptr;
  }
  return std::make_unique<LibgcryptStream>(std::move(handle), direction);
}

bool HasLibgcryptCipher(ALG_ID algorithm) {
  StartLibgcrypt();
  CipherSettings settings;
  settings.algorithm = algorithm;
  return !gcry_cipher_algo_info(LibraryAlgorithm(settings), GCRYCTL_TEST_ALGO, nullptr, nullptr);
}

}  // namespace keykern
