#include "keykern/cipher/library_streams.h"
#include "keykern/crypto_library.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string>

namespace keykern {
namespace {

struct CipherName {
  ALG_ID algorithm;
  const char* name;
};
constexpr CipherName kNames[] = {
    {CALG_AES_128,  "AES-128" },
    {CALG_AES_192,  "AES-192" },
    {CALG_AES_256,  "AES-256" },
    {CALG_3DES,     "DES-EDE3"},
    {CALG_3DES_112, "DES-EDE" },
};

struct ModeName {
  DWORD mode;
  const char* suffix;
};
constexpr ModeName kModes[] = {
    {CRYPT_MODE_CBC, "-CBC"},
    {CRYPT_MODE_ECB, "-ECB"},
    {CRYPT_MODE_CFB, "-CFB"},
};

// Fetched once and kept.
using FetchedCiphers = std::array<std::array<const EVP_CIPHER*, std::size(kModes)>, std::size(kNames)>;

FetchedCiphers FetchCiphers() {
  FetchedCiphers ciphers{};
  OSSL_LIB_CTX* context = LibcryptoContext();
  if (!context) return ciphers;
  for (size_t i = 0; i < std::size(kNames); ++i) {
    for (size_t j = 0; j < std::size(kModes); ++j) {
      const std::string name = std::string(kNames[i].name) + kModes[j].suffix;
      ciphers[i][j] = EVP_CIPHER_fetch(context, name.c_str(), nullptr);
    }
  }
  return ciphers;
}

const EVP_CIPHER* Find(ALG_ID algorithm, DWORD mode) {
  static const FetchedCiphers ciphers = FetchCiphers();
  const auto* name = std::find_if(std::begin(kNames), std::end(kNames),
                                  [&](const CipherName& row) { return row.algorithm == algorithm; });
  const auto* suffix = std::find_if(std::begin(kModes), std::end(kModes),
                                    [&](const ModeName& row) { return row.mode == mode; });
  if (name == std::end(kNames) || suffix == std::end(kModes)) return nullptr;
  return ciphers[static_cast<size_t>(name - kNames)][static_cast<size_t>(suffix - kModes)];
}

struct FreeCipherContext {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, FreeCipherContext>;

class LibcryptoStream final : public CipherStream {
 public:
  explicit LibcryptoStream(CipherContext context) : context_(std::move(context)) {}
  bool process(std::span<BYTE> data) override;

 private:
  CipherContext context_;
};

bool LibcryptoStream::process(std::span<BYTE> data) {
  constexpr size_t kPiece = size_t{1} << 30;  // the library counts in int
  const auto block = static_cast<size_t>(EVP_CIPHER_CTX_get_block_size(context_.get()));
  if (data.size() % block != 0) return false;  // it would keep the rest back
  while (!data.empty()) {
    const std::span<BYTE> piece = data.first(std::min(data.size(), kPiece));
    int written = 0;
    const int size = static_cast<int>(piece.size());
    if (!EVP_CipherUpdate(context_.get(), piece.data(), &written, piece.data(), size)) return false;
    if (written != size) return false;
    data = data.subspan(piece.size());
  }
  return true;
}

}  // namespace

std::unique_ptr<CipherStream> NewLibcryptoStream(const CipherSettings& settings, Direction direction) {
  const EVP_CIPHER* cipher = Find(settings.algorithm, settings.mode);
  CipherContext context(EVP_CIPHER_CTX_new());
  if (!cipher || !context) return nullptr;
  const int encrypt = direction == Direction::Encrypt ? 1 : 0;
  if (settings.key.size() != static_cast<size_t>(EVP_CIPHER_get_key_length(cipher))) return nullptr;
  if (!EVP_CipherInit_ex2(context.get(), cipher, settings.key.data(), settings.iv.data(), encrypt, nullptr)
      || !EVP_CIPHER_CTX_set_padding(context.get(), 0)) {
    return nullptr;
  }
  return std::make_unique<LibcryptoStream>(std::move(context));
}

bool HasLibcryptoCipher(ALG_ID algorithm) { return Find(algorithm, CRYPT_MODE_CBC) != nullptr; }

}  // namespace keykern
