#include "keykern/digest.h"

#include "keykern/crypto_library.h"
#include "keykern/error_mark.h"

#include <gcrypt.h>
#include <openssl/evp.h>

#include <cstring>
#include <new>

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
    if (!context || !EVP_MD_CTX_copy_ex(context.get(), context_.get())) throw std::bad_alloc();
    return std::make_unique<LibcryptoDigest>(std::move(context), algorithm_);
  }

 private:
  MdContext context_;
  const EVP_MD* algorithm_;
};

std::unique_ptr<Digest> NewLibcryptoDigest(const EVP_MD* algorithm) {
  if (!algorithm) return nullptr;
  MdContext context(EVP_MD_CTX_new());
  if (!context) throw std::bad_alloc();
  auto digest = std::make_unique<LibcryptoDigest>(std::move(context), algorithm);
  if (!digest->restart())
    throw std::bad_alloc();  // nothing else is missing to start a hash that the host has
  return digest;
}

// Null where the host lacks it.
EVP_MD* Fetch(const char* name) {
  const ErrorMark mark;
  OSSL_LIB_CTX* context = LibcryptoContext();
  EVP_MD* digest = context ? EVP_MD_fetch(context, name, nullptr) : nullptr;
  if (!digest && mark.failure() == NTE_NO_MEMORY) throw std::bad_alloc();
  return digest;
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
    if (gcry_md_copy(&handle, handle_.get())) throw std::bad_alloc();
    return std::make_unique<LibgcryptDigest>(MdHandle(handle));
  }

 private:
  MdHandle handle_;
};

std::unique_ptr<Digest> NewLibgcryptDigest(int algorithm) {
  StartLibgcrypt();
  gcry_md_hd_t handle = nullptr;
  const gcry_error_t error = gcry_md_open(&handle, algorithm, 0);
  if (gcry_err_code(error) == GPG_ERR_ENOMEM) throw std::bad_alloc();
  if (error) return nullptr;
  return std::make_unique<LibgcryptDigest>(MdHandle(handle));
}

// Fetched once and kept: a fetch costs a quarter of a small hash.
template <const char* const& kName>
std::unique_ptr<Digest> NewLibcrypto() {
  static constinit MadeOnce<EVP_MD_free> algorithm;
  return NewLibcryptoDigest(algorithm.get([] { return Fetch(kName); }));
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
