// HMAC. RFC 2104
#include "keykern/crypto_library.h"
#include "keykern/derive/derivation.h"
#include "keykern/derive/hash_names.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <cstring>

namespace keykern {
namespace {

// Both libraries take a null pointer for a missing key, not for an empty one.
const BYTE* NotNull(std::span<const BYTE> bytes) {
  static constexpr BYTE kNothing = 0;
  return bytes.empty() ? &kNothing : bytes.data();
}

// --- libcrypto ---

struct FreeMacContext {
  void operator()(EVP_MAC_CTX* context) const { EVP_MAC_CTX_free(context); }
};
using MacContext = std::unique_ptr<EVP_MAC_CTX, FreeMacContext>;

class LibcryptoHmac final : public Digest {
 public:
  explicit LibcryptoHmac(MacContext context) : context_(std::move(context)) {}

  bool add(std::span<const BYTE> data) override {
    return EVP_MAC_update(context_.get(), data.data(), data.size()) == 1;
  }
  bool finish(std::span<BYTE> value) override {
    size_t written = 0;
    return value.size() == EVP_MAC_CTX_get_mac_size(context_.get())
        && EVP_MAC_final(context_.get(), value.data(), &written, value.size()) == 1;
  }
  bool restart() override { return EVP_MAC_init(context_.get(), nullptr, 0, nullptr) == 1; }
  std::unique_ptr<Digest> copy() const override {
    MacContext context(EVP_MAC_CTX_dup(context_.get()));
    return context ? std::make_unique<LibcryptoHmac>(std::move(context)) : nullptr;
  }

 private:
  MacContext context_;
};

EVP_MAC* FetchHmac() {
  OSSL_LIB_CTX* context = LibcryptoContext();
  return context ? EVP_MAC_fetch(context, "HMAC", nullptr) : nullptr;
}

std::unique_ptr<Digest> NewLibcryptoHmac(const char* hash, std::span<const BYTE> key) {
  static EVP_MAC* const algorithm = FetchHmac();
  MacContext context(algorithm ? EVP_MAC_CTX_new(algorithm) : nullptr);
  if (!context) return nullptr;
  const OSSL_PARAM parameters[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, const_cast<char*>(hash), 0),
      OSSL_PARAM_construct_end()};
  if (!EVP_MAC_init(context.get(), NotNull(key), key.size(), parameters)) return nullptr;
  return std::make_unique<LibcryptoHmac>(std::move(context));
}

// --- libgcrypt ---

std::unique_ptr<Digest> NewLibgcryptHmac(int hash, std::span<const BYTE> key) {
  StartLibgcrypt();
  gcry_md_hd_t opened = nullptr;
  if (gcry_md_open(&opened, hash, GCRY_MD_FLAG_HMAC)) return nullptr;
  if (gcry_md_setkey(opened, NotNull(key), key.size())) {
    gcry_md_close(opened);
    return nullptr;
  }
  return AdoptLibgcryptDigest(opened);
}

}  // namespace

std::unique_ptr<Digest> NewHmac(ALG_ID hash, std::span<const BYTE> key) {
  const HashNames* names = FindHashNames(hash);
  if (!names) return nullptr;
  return names->libcrypto ? NewLibcryptoHmac(names->libcrypto, key) : NewLibgcryptHmac(names->libgcrypt, key);
}

}  // namespace keykern
