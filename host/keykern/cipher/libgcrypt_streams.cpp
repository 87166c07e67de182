#include "keykern/cipher/block_cipher.h"
#include "keykern/cipher/libgcrypt_cipher.h"
#include "keykern/cipher/library_streams.h"

namespace keykern {
namespace {

constexpr size_t kRc2ShortKey = 5;

class LibgcryptStream final : public CipherStream {
 public:
  LibgcryptStream(LibgcryptCipher handle, size_t block, Direction direction)
      : handle_(std::move(handle)), block_(block), direction_(direction) {}
  bool process(std::span<BYTE> data) override {
    if (data.size() % block_ != 0) return false;
    if (data.empty()) return true;
    const auto call = direction_ == Direction::Encrypt ? gcry_cipher_encrypt : gcry_cipher_decrypt;
    return !call(handle_.get(), data.data(), data.size(), nullptr, 0);
  }

 private:
  LibgcryptCipher handle_;
  const size_t block_;  // what data must be a multiple of
  const Direction direction_;
};

// Zero when there is none. The library has RC2 with as many effective bits as the key has, which is what names with
// a number of bits mean; the two names that it has for RC2 differ in the usual size alone.
int LibraryAlgorithm(const CipherSettings& settings) {
  switch (settings.algorithm) {
    case CALG_DES:
      return GCRY_CIPHER_DES;
    case CALG_RC2:
      return settings.key.size() == kRc2ShortKey ? GCRY_CIPHER_RFC2268_40 : GCRY_CIPHER_RFC2268_128;
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
  const int algorithm = LibraryAlgorithm(settings);
  const int mode = LibraryMode(settings.mode);
  LibgcryptCipher handle = OpenLibgcryptCipher(algorithm, mode);
  if (!handle) return nullptr;
  if (settings.algorithm == CALG_G28147 && !SetBox(handle, settings.parameters)) return nullptr;
  if (gcry_cipher_setkey(handle.get(), settings.key.data(), settings.key.size())) return nullptr;
  if (!settings.iv.empty() && gcry_cipher_setiv(handle.get(), settings.iv.data(), settings.iv.size())) {
    return nullptr;
  }
  const bool wholeBlocks = mode == GCRY_CIPHER_MODE_CBC || mode == GCRY_CIPHER_MODE_ECB;
  const size_t block = wholeBlocks ? gcry_cipher_get_algo_blklen(algorithm) : 1;
  return std::make_unique<LibgcryptStream>(std::move(handle), block, direction);
}

bool HasLibgcryptCipher(ALG_ID algorithm) {
  StartLibgcrypt();
  CipherSettings settings;
  settings.algorithm = algorithm;
  return !gcry_cipher_algo_info(LibraryAlgorithm(settings), GCRYCTL_TEST_ALGO, nullptr, nullptr);
}

}  // namespace keykern
