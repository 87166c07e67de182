#include "keykern/digest.h"

#include "keykern/crypto_library.h"

#include <gcrypt.h>
#include <openssl/evp.h>

#include <cstring>

namespace keykern {
namespace {

// --- libcrypto ---

struct FreeMdContext {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using MdContext = std::unique_ptr<EVP_MD_CTX, FreeMdContext>;

class LibcryptoDigest final : public Digest {
 public:
  LibcryptoDigest(MdContext context, const EVP_MD* algorithm)
      : context_(std::move(context)), algorithm_(algorithm) {}

  bool add(std::span<const BYTE> data) override {
    return EVP_DigestUpdate(context_.get(), data.data(), data.size()) == 1;
  }
  bool finish(std::span<BYTE> value) override {
    return value.size() == static_cast<size_t>(EVP_MD_get_size(algorithm_))
        && EVP_DigestFinal_ex(context_.get(), value.data(), nullptr) == 1;
  }
  bool restart() override { return EVP_DigestInit_ex2(context_.get(), algorithm_, nullptr) == 1; }
  std::unique_ptr<Digest> copy() const override {
    MdContext context(EVP_MD_CTX_new());
    if (!context || !EVP_MD_CTX_copy_ex(context.get(), context_.get())) return nullptr;
    return std::make_unique<LibcryptoDigest>(std::move(context), algorithm_);
  }

 private:
  MdContext context_;
  const EVP_MD* algorithm_;
};

std::unique_ptr<Digest> NewLibcryptoDigest(const EVP_MD* algorithm) {
  MdContext context(EVP_MD_CTX_new());
  if (!algorithm || !context) return nullptr;
  auto digest = std::make_unique<LibcryptoDigest>(std::move(context), algorithm);
  if (!digest->restart()) return nullptr;
  return digest;
}

const EVP_MD* Fetch(const char* name) {
  OSSL_LIB_CTX* context = LibcryptoContext();
  return context ? EVP_MD_fetch(context, name, nullptr) : nullptr;
}

// --- libgcrypt ---

struct CloseMd {
  void operator()(gcry_md_hd_t handle) const { gcry_md_close(handle); }
};
using MdHandle = std::unique_ptr<gcry_md_handle, CloseMd>;

class LibgcryptDigest final : public Digest {
 public:
  explicit LibgcryptDigest(MdHandle handle) : handle_(std::move(handle)) {}

  bool add(std::span<const BYTE> data) override {
    gcry_md_write(handle_.get(), data.data(), data.size());
    return true;
  }
  bool finish(std::span<BYTE> value) override {
    const int algorithm = gcry_md_get_algo(handle_.get());
    const BYTE* computed = gcry_md_read(handle_.get(), algorithm);
    if (!computed || value.size() != gcry_md_get_algo_dlen(algorithm)) return false;
    std::memcpy(value.data(), computed, value.size());
    return true;
  }
  bool restart() override {
    gcry_md_reset(handle_.get());  // keeps the key of an HMAC
    return true;
  }
  std::unique_ptr<Digest> copy() const override {
    gcry_md_hd_t handle = nullptr;
    if (gcry_md_copy(&handle, handle_.get())) return nullptr;
    return std::make_unique<LibgcryptDigest>(MdHandle(handle));
  }

 private:
  MdHandle handle_;
};

std::unique_ptr<Digest> NewLibgcryptDigest(int algorithm) {
  StartLibgcrypt();
  gcry_md_hd_t handle = nullptr;
  if (gcry_md_open(&handle, algorithm, 0)) return nullptr;
  return std::make_unique<LibgcryptDigest>(MdHandle(handle));
}

// Fetched once and kept: a fetch costs a quarter of a small hash.
template <const char* const& kName>
std::unique_ptr<Digest> NewLibcrypto() {
  static const EVP_MD* const algorithm = Fetch(kName);
  return NewLibcryptoDigest(algorithm);
}

constexpr const char* kMd5 = "MD5";
constexpr const char* kSha1 = "SHA1";
constexpr const char* kSha256 = "SHA256";
constexpr const char* kSha384 = "SHA384";
constexpr const char* kSha512 = "SHA512";

}  // namespace

std::unique_ptr<Digest> AdoptLibgcryptDigest(gcry_md_handle* handle) {
  return std::make_unique<LibgcryptDigest>(MdHandle(handle));
}

std::unique_ptr<Digest> NewMd5() { return NewLibcrypto<kMd5>(); }
std::unique_ptr<Digest> NewSha1() { return NewLibcrypto<kSha1>(); }
std::unique_ptr<Digest> NewSha256() { return NewLibcrypto<kSha256>(); }
std::unique_ptr<Digest> NewSha384() { return NewLibcrypto<kSha384>(); }
std::unique_ptr<Digest> NewSha512() { return NewLibcrypto<kSha512>(); }
std::unique_ptr<Digest> NewMd4() { return NewLibgcryptDigest(GCRY_MD_MD4); }
std::unique_ptr<Digest> NewGost94() { return NewLibgcryptDigest(GCRY_MD_GOSTR3411_CP); }
std::unique_ptr<Digest> NewGost94Test() { return NewLibgcryptDigest(GCRY_MD_GOSTR3411_94); }
std::unique_ptr<Digest> NewStreebog256() { return NewLibgcryptDigest(GCRY_MD_STRIBOG256); }
std::unique_ptr<Digest> NewStreebog512() { return NewLibgcryptDigest(GCRY_MD_STRIBOG512); }

}  // namespace keykern
