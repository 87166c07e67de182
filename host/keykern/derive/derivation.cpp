#include "keykern/derive/derivation.h"

#include "keykern/algorithms.h"
#include "keykern/crypto_library.h"
#include "keykern/derive/hash_names.h"
#include "keykern/error_mark.h"
#include "platform/limits.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <algorithm>
#include <array>

namespace keykern {
namespace {

// --- libcrypto's derivations ---

struct FreeKdfContext {
  void operator()(EVP_KDF_CTX* context) const { EVP_KDF_CTX_free(context); }
};
using KdfContext = std::unique_ptr<EVP_KDF_CTX, FreeKdfContext>;

EVP_KDF* Fetch(const char* name) {
  OSSL_LIB_CTX* context = LibcryptoContext();
  return context ? EVP_KDF_fetch(context, name, nullptr) : nullptr;
}

OSSL_PARAM Text(const char* name, const char* value) {
  return OSSL_PARAM_construct_utf8_string(name, const_cast<char*>(value), 0);
}

// The library tells an empty string from a missing one by the pointer.
OSSL_PARAM Octets(const char* name, std::span<const BYTE> value) {
  static BYTE nothing = 0;
  return OSSL_PARAM_construct_octet_string(name, value.empty() ? &nothing : const_cast<BYTE*>(value.data()),
                                           value.size());
}

bool Derive(EVP_KDF* algorithm, const OSSL_PARAM* parameters, std::span<BYTE> out) {
  const ErrorMark mark;
  const KdfContext context(algorithm ? EVP_KDF_CTX_new(algorithm) : nullptr);
  return context && EVP_KDF_derive(context.get(), out.data(), out.size(), parameters) == 1;
}

bool LibcryptoPbkdf2(const char* hash, std::span<const BYTE> password, std::span<const BYTE> salt,
                     DWORD iterations, std::span<BYTE> out) {
  static EVP_KDF* const algorithm = Fetch("PBKDF2");
  uint64_t count = iterations;
  int plain = 1;  // without the lower bounds of SP 800-132: what comes from outside is as it is
  const OSSL_PARAM parameters[] = {
      Text(OSSL_KDF_PARAM_DIGEST, hash),
      Octets(OSSL_KDF_PARAM_PASSWORD, password),
      Octets(OSSL_KDF_PARAM_SALT, salt),
      OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_ITER, &count),
      OSSL_PARAM_construct_int(OSSL_KDF_PARAM_PKCS5, &plain),
      OSSL_PARAM_construct_end(),
  };
  return Derive(algorithm, parameters, out);
}

bool LibgcryptPbkdf2(int hash, std::span<const BYTE> password, std::span<const BYTE> salt, DWORD iterations,
                     std::span<BYTE> out) {
  StartLibgcrypt();
  const void* passphrase = password.empty() ? "" : static_cast<const void*>(password.data());
  return !gcry_kdf_derive(passphrase, password.size(), GCRY_KDF_PBKDF2, hash, salt.data(), salt.size(),
                          iterations, out.size(), out.data());
}

// --- the expansion of a short hash value ---

constexpr size_t kPadSize = 64;
constexpr BYTE kPads[] = {0x36, 0x5C};

bool HashOfPadded(const Algorithm& algorithm, std::span<const BYTE> value, BYTE pad, std::span<BYTE> out) {
  std::array<BYTE, kPadSize> padded;
  const certkern::ScopedWipe wipe(padded);
  padded.fill(pad);
  for (size_t i = 0; i < value.size(); ++i) padded[i] ^= value[i];
  const std::unique_ptr<Digest> digest = algorithm.newDigest();
  return digest && digest->add(padded) && digest->finish(out);
}

}  // namespace

bool Pbkdf2(ALG_ID hash, std::span<const BYTE> password, std::span<const BYTE> salt, DWORD iterations,
            std::span<BYTE> out) {
  const HashNames* names = FindHashNames(hash);
  if (!names || salt.empty() || out.empty()) return false;
  if (iterations == 0 || iterations > certkern::kMaxIterations) return false;
  if (names->libcrypto) return LibcryptoPbkdf2(names->libcrypto, password, salt, iterations, out);
  return LibgcryptPbkdf2(names->libgcrypt, password, salt, iterations, out);
}

// RFC 7836, 4.5: K(i) = HMAC(K, i | label | 00 | seed | L), L the length of all in bits without leading zeros.
bool KdfTree(std::span<const BYTE> key, std::span<const BYTE> label, std::span<const BYTE> seed,
             std::span<BYTE> out) {
  constexpr size_t kStep = 32;
  constexpr size_t kMaxSteps = 255;  // i is one byte
  if (out.empty() || out.size() > kStep * kMaxSteps) return false;
  const std::unique_ptr<Digest> hmac = NewHmac(CALG_GR3411_2012_256, key);
  if (!hmac) return false;
  const size_t bits = out.size() * 8;
  const BYTE length[] = {static_cast<BYTE>(bits >> 8), static_cast<BYTE>(bits)};
  const std::span<const BYTE> shortest = std::span(length).subspan(bits < 0x100 ? 1 : 0);
  std::array<BYTE, kStep> value;
  const certkern::ScopedWipe wipe(value);
  for (BYTE i = 1; !out.empty(); ++i) {
    static constexpr BYTE kZero = 0;
    if (!hmac->restart() || !hmac->add({&i, 1}) || !hmac->add(label) || !hmac->add({&kZero, 1})
        || !hmac->add(seed) || !hmac->add(shortest) || !hmac->finish(value)) {
      return false;
    }
    const size_t count = std::min(out.size(), value.size());
    std::copy_n(value.begin(), count, out.begin());
    out = out.subspan(count);
  }
  return true;
}

bool X963Kdf(ALG_ID hash, std::span<const BYTE> secret, std::span<const BYTE> sharedInfo,
             std::span<BYTE> out) {
  static EVP_KDF* const algorithm = Fetch("X963KDF");
  const HashNames* names = FindHashNames(hash);
  if (!names || !names->libcrypto || secret.empty() || out.empty()) return false;
  const OSSL_PARAM parameters[] = {
      Text(OSSL_KDF_PARAM_DIGEST, names->libcrypto),
      Octets(OSSL_KDF_PARAM_KEY, secret),
      Octets(OSSL_KDF_PARAM_INFO, sharedInfo),
      OSSL_PARAM_construct_end(),
  };
  return Derive(algorithm, parameters, out);
}

bool KeyFromHash(ALG_ID hash, std::span<const BYTE> value, std::span<BYTE> key) {
  if (key.size() <= value.size()) {
    std::copy_n(value.begin(), key.size(), key.begin());
    return true;
  }
  const Algorithm* algorithm = FindAlgorithm(hash);
  if (!algorithm || !algorithm->newDigest || value.size() > kPadSize) return false;
  const size_t size = algorithm->defaultBits / 8;
  SecretBytes expanded(std::size(kPads) * size);
  if (key.size() > expanded.size()) return false;
  for (size_t i = 0; i < std::size(kPads); ++i) {
    if (!HashOfPadded(*algorithm, value, kPads[i], std::span(expanded).subspan(i * size, size))) return false;
  }
  std::copy_n(expanded.begin(), key.size(), key.begin());
  return true;
}

}  // namespace keykern
