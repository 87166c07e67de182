#include "keykern/key_transport.h"

#include "keykern/agreed_key.h"
#include "keykern/crypto_library.h"
#include "keykern/derive/key_wrap.h"
#include "keykern/key_pair.h"
#include "keykern/session_key.h"

#include <openssl/crypto.h>

#include <algorithm>

namespace keykern {
namespace {

constexpr size_t kGostUkm = 8;

// --- under a session key ---

// One message under a cipher: a stream of its own, so that the wrapping key's message is not disturbed.
DWORD RunCipher(SessionKey& key, Direction direction, SecretBytes& data) {
  std::unique_ptr<KeyObject> twin;
  if (const DWORD code = key.copy(twin)) return code;
  SessionKey& cipher = *twin->session();
  DWORD size = static_cast<DWORD>(data.size());
  DWORD code;
  if (direction == Direction::Encrypt) {
    DWORD room = size;
    if (const DWORD sizing = cipher.encrypt(true, nullptr, &room, 0)) return sizing;
    data.resize(room);
    code = cipher.encrypt(true, data.data(), &size, room);
    if (code) return code;
    BYTE tag[16];
    DWORD tagSize = sizeof(tag);
    data.resize(size);
    if (cipher.getParam(KP_AUTH_TAG, tag, &tagSize) == ERROR_SUCCESS) certkern::Append(data, {tag, tagSize});
    return ERROR_SUCCESS;
  }
  const CipherSettings settings = cipher.settings();
  const DWORD tagSize = TagSize(*FindCipher(settings.algorithm), settings.mode);
  if (data.size() < tagSize) return NTE_BAD_DATA;
  if (tagSize) {
    size -= tagSize;
    CRYPT_DATA_BLOB tag{tagSize, data.data() + size};
    if ((code = cipher.setParam(KP_AUTH_TAG, reinterpret_cast<const BYTE*>(&tag)))) return code;
  }
  if ((code = cipher.decrypt(true, data.data(), &size))) return code;
  data.resize(size);
  return ERROR_SUCCESS;
}

bool IsCipherKey(KeyObject& key) { return key.session() && FindCipher(key.session()->algorithm()); }

DWORD WrapBySession(SessionKey& wrapping, std::span<const BYTE> key, WrappedKey& wrapped) {
  const CipherSettings settings = wrapping.settings();
  if (const ALG_ID method = wrapping.wrap()) {
    wrapped.method = method;
    SecretBytes ukm = settings.iv;
    if (ukm.size() != kGostUkm) {
      ukm.resize(kGostUkm);
      if (!RandomBytes(ukm)) return NTE_FAIL;
    }
    return GostWrap(method, settings.key, settings.parameters, ukm, key, wrapped.bytes);
  }
  if (!FindCipher(settings.algorithm)) return NTE_BAD_KEY;
  // a fresh initial value before the ciphertext: the same wrapping key may carry many
  const DWORD ivSize = IvSize(*FindCipher(settings.algorithm), settings.mode);
  SecretBytes iv(ivSize);
  if (ivSize && !RandomBytes(iv)) return NTE_FAIL;
  std::unique_ptr<KeyObject> twin;
  if (const DWORD code = wrapping.copy(twin)) return code;
  if (ivSize) {
    if (const DWORD code = twin->setParam(KP_IV, iv.data())) return code;
  }
  wrapped.method = settings.algorithm;
  SecretBytes sealed = certkern::ToSecret(key);
  if (const DWORD code = RunCipher(*twin->session(), Direction::Encrypt, sealed)) return code;
  wrapped.bytes = std::move(iv);
  certkern::Append(wrapped.bytes, sealed);
  return ERROR_SUCCESS;
}

DWORD UnwrapBySession(SessionKey& wrapping, const WrappedKey& wrapped, SecretBytes& key) {
  const CipherSettings settings = wrapping.settings();
  if (const ALG_ID method = wrapping.wrap()) {
    if (method != wrapped.method) return NTE_BAD_KEY_STATE;
    return GostUnwrap(method, settings.key, settings.parameters, wrapped.bytes, key);
  }
  if (!FindCipher(settings.algorithm) || settings.algorithm != wrapped.method) return NTE_BAD_KEY;
  const DWORD ivSize = IvSize(*FindCipher(settings.algorithm), settings.mode);
  if (wrapped.bytes.size() < ivSize) return NTE_BAD_DATA;
  std::unique_ptr<KeyObject> twin;
  if (const DWORD code = wrapping.copy(twin)) return code;
  if (ivSize) {
    if (const DWORD code = twin->setParam(KP_IV, wrapped.bytes.data())) return code;
  }
  key.assign(wrapped.bytes.begin() + ivSize, wrapped.bytes.end());
  return RunCipher(*twin->session(), Direction::Decrypt, key);
}

// --- under RSA ---

DWORD WrapByRsa(KeyPair& pair, DWORD flags, std::span<const BYTE> key, WrappedKey& wrapped) {
  PublicKeyPtr half;
  if (const DWORD code = pair.publicKey(half)) return code;
  RsaPadding padding{.oaep = (flags & CRYPT_OAEP) != 0};
  SecretBytes label;
  pair.oaep(padding.oaepHash, label);
  padding.label = label;
  wrapped.method = CALG_RSA_KEYX;
  if (const DWORD code = half->encrypt(padding, key, wrapped.bytes)) return code;
  std::reverse(wrapped.bytes.begin(), wrapped.bytes.end());
  return ERROR_SUCCESS;
}

DWORD UnwrapByRsa(KeyPair& pair, DWORD flags, const WrappedKey& wrapped, size_t size, SecretBytes& key) {
  if (wrapped.method != CALG_RSA_KEYX) return NTE_BAD_KEY;
  PrivateKeyPtr own;
  if (const DWORD code = pair.privateKey(own)) return code;
  RsaPadding padding{.oaep = (flags & CRYPT_OAEP) != 0};
  SecretBytes label;
  pair.oaep(padding.oaepHash, label);
  padding.label = label;
  SecretBytes substitute(size);
  if (!RandomBytes(substitute)) return NTE_FAIL;
  const SecretBytes cipherText(wrapped.bytes.rbegin(), wrapped.bytes.rend());
  const DWORD code = own->decrypt(padding, cipherText, key);
  if (padding.oaep || (code && code != NTE_BAD_DATA)) return code;
  if (code || key.size() != size) key = std::move(substitute);
  return ERROR_SUCCESS;
}

}  // namespace

ALG_ID GostWrapOf(KeyObject& wrapping) { return wrapping.session() ? wrapping.session()->wrap() : 0; }

DWORD WrapKey(KeyObject& wrapping, DWORD flags, std::span<const BYTE> key, WrappedKey& wrapped) {
  if (SessionKey* session = wrapping.session()) return WrapBySession(*session, key, wrapped);
  if (AgreedKey* agreed = wrapping.agreed()) return agreed->wrap(key, wrapped.method, wrapped.bytes);
  return WrapByRsa(*wrapping.pair(), flags, key, wrapped);
}

DWORD UnwrapKey(KeyObject& wrapping, DWORD flags, const WrappedKey& wrapped, size_t size, SecretBytes& key) {
  DWORD code;
  if (SessionKey* session = wrapping.session()) {
    code = UnwrapBySession(*session, wrapped, key);
  } else if (AgreedKey* agreed = wrapping.agreed()) {
    code = agreed->unwrap(wrapped.method, wrapped.bytes, key);
  } else {
    code = UnwrapByRsa(*wrapping.pair(), flags, wrapped, size, key);
  }
  if (code) return code;
  return size && key.size() != size ? NTE_BAD_DATA : ERROR_SUCCESS;
}

DWORD SealUnder(KeyObject& wrapping, std::span<const BYTE> plain, SecretBytes& sealed) {
  if (!IsCipherKey(wrapping)) return NTE_BAD_KEY;
  sealed = certkern::ToSecret(plain);
  return RunCipher(*wrapping.session(), Direction::Encrypt, sealed);
}

DWORD OpenUnder(KeyObject& wrapping, std::span<const BYTE> sealed, SecretBytes& plain) {
  if (!IsCipherKey(wrapping)) return NTE_BAD_KEY;
  plain = certkern::ToSecret(sealed);
  return RunCipher(*wrapping.session(), Direction::Decrypt, plain);
}

}  // namespace keykern
