#include "keykern/crypto_library.h"

#include <gcrypt.h>
#include <openssl/provider.h>
#include <openssl/rand.h>

namespace keykern {
namespace {

OSSL_LIB_CTX* OpenLibcryptoContext() {
  OSSL_LIB_CTX* context = OSSL_LIB_CTX_new();
  if (context && !OSSL_PROVIDER_load(context, "default")) {
    OSSL_LIB_CTX_free(context);
    return nullptr;
  }
  return context;
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
