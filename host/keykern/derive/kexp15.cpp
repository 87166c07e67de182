// KExp15 and KImp15. R 1323565.1.017
#include "keykern/cipher/keystream.h"
#include "keykern/cipher/omac.h"
#include "keykern/derive/key_wrap.h"
#include "platform/limits.h"

#include <openssl/crypto.h>

#include <utility>

namespace keykern {
namespace {

std::unique_ptr<BlockCipher> NewBlockCipher(ALG_ID cipher) {
  if (cipher == CALG_GR3412_2015_M) return NewMagma();
  if (cipher == CALG_GR3412_2015_K) return NewKuznyechik();
  return nullptr;
}

// The two halves of the scheme: a MAC under the first key, a keystream under the second.
struct Halves {
  DWORD open(ALG_ID cipher, std::span<const BYTE> keys, std::span<const BYTE> iv);
  // Over the initial value and the key. Empty when the library below fails.
  SecretBytes macOf(std::span<const BYTE> iv, std::span<const BYTE> key) {
    return mac->add(iv) && mac->add(key) ? mac->finish() : SecretBytes();
  }

  std::unique_ptr<Omac> mac;
  std::unique_ptr<KeystreamSource> source;
  size_t macSize = 0;
};

DWORD Halves::open(ALG_ID cipher, std::span<const BYTE> keys, std::span<const BYTE> iv) {
  std::unique_ptr<BlockCipher> blocks = NewBlockCipher(cipher);
  if (!blocks) return NTE_BAD_ALGID;
  if (keys.size() != 2 * kBlockCipherKeySize) return NTE_BAD_KEY;
  macSize = blocks->blockSize();
  if (iv.size() != macSize / 2) return NTE_BAD_DATA;
  mac = NewOmac(std::move(blocks), keys.first(kBlockCipherKeySize));
  source = NewCounter(NewBlockCipher(cipher), keys.last(kBlockCipherKeySize), iv, kOneSection);
  return mac && source ? 0 : NTE_FAIL;
}

}  // namespace

DWORD KExp15(ALG_ID cipher, std::span<const BYTE> keys, std::span<const BYTE> iv, std::span<const BYTE> key,
             SecretBytes& wrapped) {
  Halves halves;
  if (const DWORD error = halves.open(cipher, keys, iv)) return error;
  if (key.empty() || key.size() > certkern::kMaxKeyBlob) return NTE_BAD_DATA;
  const SecretBytes mac = halves.macOf(iv, key);
  SecretBytes out = certkern::ToSecret(key);
  certkern::Append(out, mac);
  if (mac.empty() || !KeystreamCipher(std::move(halves.source)).process(out)) return NTE_FAIL;
  wrapped = std::move(out);
  return 0;
}

DWORD KImp15(ALG_ID cipher, std::span<const BYTE> keys, std::span<const BYTE> iv,
             std::span<const BYTE> wrapped, SecretBytes& key) {
  Halves halves;
  if (const DWORD error = halves.open(cipher, keys, iv)) return error;
  if (wrapped.size() <= halves.macSize || wrapped.size() > certkern::kMaxKeyBlob) return NTE_BAD_DATA;
  SecretBytes out = certkern::ToSecret(wrapped);
  if (!KeystreamCipher(std::move(halves.source)).process(out)) return NTE_FAIL;
  const size_t size = out.size() - halves.macSize;
  const SecretBytes expected = halves.macOf(iv, std::span(out).first(size));
  if (expected.empty()) return NTE_FAIL;
  if (CRYPTO_memcmp(expected.data(), out.data() + size, expected.size()) != 0) return NTE_BAD_DATA;
  out.resize(size);
  key = std::move(out);
  return 0;
}

}  // namespace keykern
