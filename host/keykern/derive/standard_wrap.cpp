// The wraps of the standard ciphers. RFC 3394, RFC 3217
#include "keykern/derive/key_wrap.h"

#include "keykern/crypto_library.h"
#include "keykern/error_mark.h"
#include "platform/limits.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>

namespace keykern {
namespace {

struct WrapRow {
  ALG_ID cipher;
  const char* name;
  size_t keySize;
  size_t growth;   // bytes that the wrapped key has more
  size_t minimum;  // bytes of a key; all have a multiple of 8
};
constexpr WrapRow kWraps[] = {
    {CALG_AES_128, "AES-128-WRAP", 16, 8,  16},
    {CALG_AES_192, "AES-192-WRAP", 24, 8,  16},
    {CALG_AES_256, "AES-256-WRAP", 32, 8,  16},
    {CALG_3DES,    "DES3-WRAP",    24, 16, 8 },
};
constexpr size_t kUnit = 8;
enum class Way : int { Unwrap = 0, Wrap = 1 };

using FetchedWraps = std::array<const EVP_CIPHER*, std::size(kWraps)>;

FetchedWraps FetchWraps() {
  FetchedWraps wraps{};
  OSSL_LIB_CTX* context = LibcryptoContext();
  if (!context) return wraps;
  std::transform(std::begin(kWraps), std::end(kWraps), wraps.begin(),
                 [&](const WrapRow& row) { return EVP_CIPHER_fetch(context, row.name, nullptr); });
  return wraps;
}

const EVP_CIPHER* Fetched(const WrapRow& row) {
  static const FetchedWraps wraps = FetchWraps();
  return wraps[static_cast<size_t>(&row - kWraps)];
}

const WrapRow* Find(ALG_ID cipher) {
  const auto* found = std::find_if(std::begin(kWraps), std::end(kWraps),
                                   [&](const WrapRow& row) { return row.cipher == cipher; });
  return found == std::end(kWraps) || !Fetched(*found) ? nullptr : found;
}

struct FreeCipherContext {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

// Both wraps take all in one call.
bool Run(const WrapRow& row, Way way, std::span<const BYTE> kek, std::span<const BYTE> in,
         std::span<BYTE> out) {
  const ErrorMark mark;
  const std::unique_ptr<EVP_CIPHER_CTX, FreeCipherContext> context(EVP_CIPHER_CTX_new());
  if (!context) return false;
  EVP_CIPHER_CTX_set_flags(context.get(), EVP_CIPHER_CTX_FLAG_WRAP_ALLOW);
  if (!EVP_CipherInit_ex2(context.get(), Fetched(row), kek.data(), nullptr, static_cast<int>(way), nullptr)) {
    return false;
  }
  int written = 0;
  return EVP_CipherUpdate(context.get(), out.data(), &written, in.data(), static_cast<int>(in.size())) > 0
      && static_cast<size_t>(written) == out.size();
}

bool IsKeySize(const WrapRow& row, size_t size) {
  return size >= row.minimum && size <= certkern::kMaxKeyBlob && size % kUnit == 0;
}

}  // namespace

DWORD StandardWrap(ALG_ID cipher, std::span<const BYTE> kek, std::span<const BYTE> key,
                   SecretBytes& wrapped) {
  const WrapRow* row = Find(cipher);
  if (!row) return NTE_BAD_ALGID;
  if (kek.size() != row->keySize) return NTE_BAD_KEY;
  if (!IsKeySize(*row, key.size())) return NTE_BAD_DATA;
  SecretBytes out(key.size() + row->growth);
  if (!Run(*row, Way::Wrap, kek, key, out)) return NTE_FAIL;
  wrapped = std::move(out);
  return 0;
}

DWORD StandardUnwrap(ALG_ID cipher, std::span<const BYTE> kek, std::span<const BYTE> wrapped,
                     SecretBytes& key) {
  const WrapRow* row = Find(cipher);
  if (!row) return NTE_BAD_ALGID;
  if (kek.size() != row->keySize) return NTE_BAD_KEY;
  if (wrapped.size() < row->growth || !IsKeySize(*row, wrapped.size() - row->growth)) return NTE_BAD_DATA;
  // The library works in the whole of the output, and needs room for all that it reads.
  SecretBytes out(wrapped.size());
  const size_t size = wrapped.size() - row->growth;
  if (!Run(*row, Way::Unwrap, kek, wrapped, std::span(out).first(size))) return NTE_BAD_DATA;
  out.resize(size);
  key = std::move(out);
  return 0;
}

}  // namespace keykern
