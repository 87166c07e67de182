#include "keykern/session_key.h"

#include "keykern/crypto_library.h"
#include "keykern/derive/key_wrap.h"
#include "keykern/results.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <array>

namespace keykern {
namespace {

constexpr std::string_view kUsualBox = "1.2.643.7.1.2.5.1.1";  // RFC 7836, appendix C
constexpr DWORD kPermissions = CRYPT_ENCRYPT | CRYPT_DECRYPT | CRYPT_READ | CRYPT_WRITE | CRYPT_MAC;

}  // namespace

SessionKey::SessionKey(ALG_ID algorithm, const CipherRow* cipher, SecretBytes key, bool exportable)
    : algorithm_(algorithm), cipher_(cipher), exportable_(exportable) {
  settings_.algorithm = algorithm;
  settings_.mode = cipher ? cipher->defaultMode : 0;
  settings_.key = std::move(key);
  if (algorithm == CALG_G28147) settings_.parameters = kUsualBox;
}

CipherSettings SessionKey::settings() const {
  const std::lock_guard lock(mutex_);
  return settings_;
}

ALG_ID SessionKey::wrap() const {
  const std::lock_guard lock(mutex_);
  return wrap_;
}

bool SessionKey::hasIv() const {
  const std::lock_guard lock(mutex_);
  return !settings_.iv.empty();
}

// --- the message at work ---

void SessionKey::endMessage() {
  stream_.reset();
  expectedTag_.clear();
  tag_.clear();
  refused_ = false;
}

DWORD SessionKey::begin(Direction direction) {
  if (!cipher_) return NTE_BAD_KEY;
  if (stream_) return direction_ == direction ? ERROR_SUCCESS : NTE_BAD_KEY_STATE;
  tag_.clear();
  refused_ = false;
  stream_ = NewCipherStream(settings_, direction);
  if (!stream_) return NTE_FAIL;
  direction_ = direction;
  return ERROR_SUCCESS;
}

// The end of a message in a mode with a tag. Decrypting, a tag that was given before decides; otherwise the caller gives
// it afterwards.
DWORD SessionKey::finishTag(Direction direction, std::span<BYTE> piece) {
  const DWORD tagSize = TagSize(*cipher_, settings_.mode);
  if (!tagSize) return ERROR_SUCCESS;
  tag_ = stream_->tag();
  if (tag_.size() != tagSize) return NTE_FAIL;
  if (direction == Direction::Encrypt || expectedTag_.empty()) return ERROR_SUCCESS;
  const bool same =
      expectedTag_.size() == tagSize && CRYPTO_memcmp(expectedTag_.data(), tag_.data(), tagSize) == 0;
  expectedTag_.clear();
  refused_ = !same;
  if (same) return ERROR_SUCCESS;
  OPENSSL_cleanse(piece.data(), piece.size());
  return NTE_BAD_DATA;
}

DWORD SessionKey::pad(BYTE* data, DWORD& size, DWORD room) const {
  const DWORD block = cipher_->blockSize;
  const DWORD rest = size % block;
  const DWORD added = padding_ == PKCS5_PADDING ? block - rest : (block - rest) % block;
  if (added > room - size) return ERROR_MORE_DATA;
  std::fill_n(data + size, added, padding_ == PKCS5_PADDING ? static_cast<BYTE>(added) : BYTE{0});
  size += added;
  return ERROR_SUCCESS;
}

// Looks at every byte that could be padding, whatever the last one says.
DWORD SessionKey::unpad(std::span<const BYTE> data, DWORD& size) const {
  if (padding_ != PKCS5_PADDING) return ERROR_SUCCESS;
  const DWORD block = cipher_->blockSize;
  if (data.size() < block) return NTE_BAD_DATA;
  const unsigned added = data.back();
  unsigned wrong = added - 1U >= block;
  for (DWORD i = 0; i < block; ++i) {
    const unsigned inside = i < added;
    wrong |= inside & (data[data.size() - 1 - i] != added);
  }
  if (wrong) return NTE_BAD_DATA;
  size -= added;
  return ERROR_SUCCESS;
}

DWORD SessionKey::encrypt(bool last, BYTE* data, DWORD* size, DWORD room) {
  const std::lock_guard lock(mutex_);
  if (!cipher_) return NTE_BAD_KEY;
  const DWORD block = cipher_->blockSize;
  const bool blocks = IsBlockMode(*cipher_, settings_.mode);
  uint64_t needed = *size;
  if (blocks && !last && needed % block) return NTE_BAD_LEN;
  if (blocks && last)
    needed += padding_ == PKCS5_PADDING ? block - needed % block : (block - needed % block) % block;
  if (needed > 0xFFFFFFFF) return NTE_BAD_LEN;
  if (!data || room < needed) {
    *size = static_cast<DWORD>(needed);
    return data ? ERROR_MORE_DATA : ERROR_SUCCESS;
  }
  if (const DWORD code = begin(Direction::Encrypt)) return code;
  DWORD length = *size;
  if (blocks && last) {
    if (const DWORD code = pad(data, length, room)) return code;
  }
  const std::span<BYTE> piece(data, length);
  if (!stream_->process(piece)) return NTE_FAIL;
  DWORD code = ERROR_SUCCESS;
  if (last) {
    code = finishTag(Direction::Encrypt, piece);
    stream_.reset();
  }
  if (!code) *size = length;
  return code;
}

DWORD SessionKey::decrypt(bool last, BYTE* data, DWORD* size) {
  const std::lock_guard lock(mutex_);
  if (!cipher_) return NTE_BAD_KEY;
  if (!data && *size) return ERROR_INVALID_PARAMETER;
  const bool blocks = IsBlockMode(*cipher_, settings_.mode);
  if (blocks && *size % cipher_->blockSize) return last ? NTE_BAD_DATA : NTE_BAD_LEN;
  if (const DWORD code = begin(Direction::Decrypt)) return code;
  const std::span<BYTE> piece(data, *size);
  if (!stream_->process(piece)) return NTE_FAIL;
  if (!last) return ERROR_SUCCESS;
  DWORD length = *size;
  DWORD code = finishTag(Direction::Decrypt, piece);
  if (!code && blocks) code = unpad(piece, length);
  stream_.reset();
  if (code) {
    OPENSSL_cleanse(piece.data(), piece.size());
    return code;
  }
  *size = length;
  return ERROR_SUCCESS;
}

// --- parameters ---

DWORD SessionKey::getIv(BYTE* out, DWORD* size) const {
  SecretBytes iv = settings_.iv;
  iv.resize(IvSize(*cipher_, settings_.mode));
  return GiveBytes(iv, out, size);
}

DWORD SessionKey::getParam(DWORD param, BYTE* out, DWORD* size) {
  if (!size) return ERROR_INVALID_PARAMETER;
  const std::lock_guard lock(mutex_);
  const DWORD bits = static_cast<DWORD>(settings_.key.size() * 8);
  switch (param) {
    case KP_ALGID:
      return GiveRecord(wrap_ ? wrap_ : algorithm_, out, size);
    case KP_KEYLEN:
      return GiveRecord(bits, out, size);
    case KP_PERMISSIONS:
      return GiveRecord(exportable_ ? kPermissions | CRYPT_EXPORT : kPermissions, out, size);
    case KP_SALT:
      return GiveBytes({}, out, size);  // no key here has any
    default:
      break;
  }
  if (!cipher_) return NTE_BAD_TYPE;
  switch (param) {
    case KP_IV:
      return getIv(out, size);
    case KP_MODE:
    case KP_MODE_WORD:
      return GiveRecord(settings_.mode, out, size);
    case KP_PADDING:
      return GiveRecord(padding_, out, size);
    case KP_BLOCKLEN:
      return GiveRecord(cipher_->blockSize == 1 ? DWORD{0} : cipher_->blockSize * 8, out, size);
    case KP_EFFECTIVE_KEYLEN:
      return algorithm_ == CALG_RC2 ? GiveRecord(bits, out, size) : NTE_BAD_TYPE;
    case KP_CIPHEROID:
      if (algorithm_ != CALG_G28147) return NTE_BAD_TYPE;
      return GiveText(settings_.parameters, reinterpret_cast<char*>(out), size);
    case KP_AUTH_TAG:
      if (!TagSize(*cipher_, settings_.mode)) return NTE_BAD_TYPE;
      return tag_.empty() ? NTE_BAD_KEY_STATE : GiveBytes(tag_, out, size);
    default:
      return NTE_BAD_TYPE;
  }
}

DWORD SessionKey::setIv(const BYTE* data) {
  const DWORD size = IvSize(*cipher_, settings_.mode);
  if (!size) return NTE_BAD_TYPE;
  settings_.iv.assign(data, data + size);
  endMessage();
  return ERROR_SUCCESS;
}

DWORD SessionKey::setMode(DWORD mode) {
  if (!HasMode(*cipher_, mode)) return NTE_BAD_DATA;
  if (IvSize(*cipher_, mode) != settings_.iv.size()) settings_.iv.clear();
  settings_.mode = mode;
  endMessage();
  return ERROR_SUCCESS;
}

DWORD SessionKey::setAlgorithm(ALG_ID algorithm) {
  if (algorithm == algorithm_) {
    wrap_ = 0;
    return ERROR_SUCCESS;
  }
  if (algorithm_ != CALG_G28147 || !IsGostWrap(algorithm)) return NTE_BAD_ALGID;
  wrap_ = algorithm;
  return ERROR_SUCCESS;
}

DWORD SessionKey::setBox(const char* oid) {
  if (algorithm_ != CALG_G28147) return NTE_BAD_TYPE;
  if (!IsSubstitutionBox(oid)) return NTE_BAD_DATA;
  settings_.parameters = oid;
  endMessage();
  return ERROR_SUCCESS;
}

// Before the last piece it is kept and decides there; after it, this is the check.
DWORD SessionKey::setTag(const CRYPT_DATA_BLOB& tag) {
  const DWORD tagSize = TagSize(*cipher_, settings_.mode);
  if (!tagSize) return NTE_BAD_TYPE;
  if (!tag.pbData || tag.cbData != tagSize) return NTE_BAD_DATA;
  if (tag_.empty() || direction_ == Direction::Encrypt) {
    expectedTag_.assign(tag.pbData, tag.pbData + tagSize);
    return ERROR_SUCCESS;
  }
  const bool same = CRYPTO_memcmp(tag.pbData, tag_.data(), tagSize) == 0;
  return same && !refused_ ? ERROR_SUCCESS : NTE_BAD_DATA;
}

DWORD SessionKey::setEffectiveBits(DWORD bits) const {
  if (algorithm_ != CALG_RC2) return NTE_BAD_TYPE;
  return bits == settings_.key.size() * 8 ? ERROR_SUCCESS : NTE_BAD_DATA;
}

DWORD SessionKey::setParam(DWORD param, const BYTE* data) {
  if (!data) return ERROR_INVALID_PARAMETER;
  if (!cipher_) return NTE_BAD_TYPE;
  const std::lock_guard lock(mutex_);
  switch (param) {
    case KP_IV:
      return setIv(data);
    case KP_MODE:
    case KP_MODE_WORD:
      return setMode(WordOf(data));
    case KP_PADDING:
      if (WordOf(data) != PKCS5_PADDING && WordOf(data) != ZERO_PADDING) return NTE_BAD_DATA;
      padding_ = WordOf(data);
      return ERROR_SUCCESS;
    case KP_ALGID:
      return setAlgorithm(WordOf(data));
    case KP_EFFECTIVE_KEYLEN:
      return setEffectiveBits(WordOf(data));
    case KP_CIPHEROID:
      return setBox(reinterpret_cast<const char*>(data));
    case KP_AUTH_TAG:
      return setTag(BlobOf(data));
    default:
      return NTE_BAD_TYPE;
  }
}

// The copy begins a message of its own.
DWORD SessionKey::copy(std::unique_ptr<KeyObject>& other) const {
  const std::lock_guard lock(mutex_);
  auto twin = std::make_unique<SessionKey>(algorithm_, cipher_, SecretBytes{}, exportable_);
  twin->settings_ = settings_;
  twin->wrap_ = wrap_;
  twin->padding_ = padding_;
  other = std::move(twin);
  return ERROR_SUCCESS;
}

// --- makers ---

DWORD MakeSessionKey(ALG_ID algorithm, SecretBytes bytes, bool exportable, std::unique_ptr<KeyObject>& key) {
  const CipherRow* cipher = FindCipher(algorithm);
  if (!cipher && algorithm != CALG_HMAC_KEY) return NTE_BAD_ALGID;
  if (cipher && !IsCipherAvailable(algorithm)) return NTE_BAD_ALGID;
  const size_t bits = bytes.size() * 8;
  if (cipher && (bits < cipher->minimumBits || bits > cipher->maximumBits)) return NTE_BAD_LEN;
  if (!cipher && bytes.empty()) return NTE_BAD_LEN;
  key = std::make_unique<SessionKey>(algorithm, cipher, std::move(bytes), exportable);
  return ERROR_SUCCESS;
}

DWORD NewSessionKey(ALG_ID algorithm, DWORD bits, bool exportable, std::unique_ptr<KeyObject>& key) {
  const CipherRow* cipher = FindCipher(algorithm);
  if (!cipher) return NTE_BAD_ALGID;
  if (!bits) bits = cipher->keyBits;
  if (bits % 8 || bits < cipher->minimumBits || bits > cipher->maximumBits) return NTE_BAD_LEN;
  SecretBytes bytes(bits / 8);
  if (!RandomBytes(bytes)) return NTE_FAIL;
  return MakeSessionKey(algorithm, std::move(bytes), exportable, key);
}

}  // namespace keykern
