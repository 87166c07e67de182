#include "keykern/crypto_library.h"

#include <gcrypt.h>
#include <openssl/evp.h>
#include <openssl/provider.h>
#include <openssl/rand.h>

#include <algorithm>
#include <memory>

#include "keykern/error_mark.h"

namespace keykern {
namespace {

using ContextPtr = std::unique_ptr<OSSL_LIB_CTX, LibcryptoFree<OSSL_LIB_CTX_free>>;

// A context remembers for good that it could not find a method, also when only memory was short. So all methods of keys are
// looked up before anybody sees the context: one that lacks any of them is given up, and the next call makes another.
constexpr const char* kKeyMethods[] = {"RSA", "RSA-PSS", "EC", "DSA", "ED25519", "ED448"};
constexpr const char* kSignatureMethods[] = {"RSA", "ECDSA", "DSA", "ED25519", "ED448"};

bool HasMethods(OSSL_LIB_CTX* context) {
  const auto hasKey = [context](const char* name) {
    return std::unique_ptr<EVP_KEYMGMT, LibcryptoFree<EVP_KEYMGMT_free>>(
               EVP_KEYMGMT_fetch(context, name, nullptr))
        != nullptr;
  };
  const auto hasSignature = [context](const char* name) {
    return std::unique_ptr<EVP_SIGNATURE, LibcryptoFree<EVP_SIGNATURE_free>>(
               EVP_SIGNATURE_fetch(context, name, nullptr))
        != nullptr;
  };
  return std::ranges::all_of(kKeyMethods, hasKey) && std::ranges::all_of(kSignatureMethods, hasSignature);
}

OSSL_LIB_CTX* OpenLibcryptoContext() {
  const ErrorMark mark;
  ContextPtr context(OSSL_LIB_CTX_new());
  const bool usable = context && OSSL_PROVIDER_load(context.get(), "default") && HasMethods(context.get());
  return usable ? context.release() : nullptr;
}

bool InitialiseLibgcrypt() {
  if (!gcry_control(GCRYCTL_INITIALIZATION_FINISHED_P)) {
    gcry_check_version(nullptr);  // starts the library
    gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
  }
  return true;
}

// Starts libgcrypt while this library is loaded. The start reads whether the kernel is in FIPS mode, and when there is no
// descriptor left for that, libgcrypt ends the process. Here there is one, since the loader has just used it. The host can
// still set up libgcrypt as it likes.
[[maybe_unused]] const char* const startedAtLoad = gcry_check_version(nullptr);

}  // namespace

OSSL_LIB_CTX* LibcryptoContext() {
  static constinit MadeOnce<OSSL_LIB_CTX_free> context;
  return context.get(OpenLibcryptoContext);
}

void StartLibgcrypt() { [[maybe_unused]] static const bool started = InitialiseLibgcrypt(); }

bool RandomBytes(std::span<BYTE> bytes) {
  OSSL_LIB_CTX* context = LibcryptoContext();
  return context && RAND_bytes_ex(context, bytes.data(), bytes.size(), 0) == 1;
}

}  // namespace keykern
