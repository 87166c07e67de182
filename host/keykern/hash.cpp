#include "keykern/hash.h"

#include "keykern/derive/derivation.h"
#include "keykern/key_object.h"
#include "keykern/results.h"
#include "platform/limits.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstring>

namespace keykern {
namespace {

// The parameter sets of GOST R 34.11-94. RFC 4357, 11.2. The first is what a new hash has.
struct ParameterSet {
  std::string_view oid;
  DigestMaker newDigest;
};
constexpr ParameterSet kGost94Sets[] = {
    {"1.2.643.2.2.30.1", NewGost94    },
    {"1.2.643.2.2.30.0", NewGost94Test},
};

constexpr size_t kGostHmacKey = 32;

}  // namespace

Hash::Hash(Pinned<Provider> provider, const Algorithm& algorithm, std::unique_ptr<Digest> digest)
    : provider_(std::move(provider)), algorithm_(algorithm), digest_(std::move(digest)) {
  if (algorithm.kind == AlgorithmKind::Hash) return;
  settings_ = std::make_unique<HashSettings>();
  settings_->base = algorithm.base;
}

Hash::~Hash() { OPENSSL_cleanse(value_.data(), value_.size()); }

DWORD Hash::size() const {
  if (!settings_) return algorithm_.defaultBits / 8;
  if (algorithm_.kind == AlgorithmKind::Message) return static_cast<DWORD>(settings_->message->size());
  const Algorithm* base = FindHash(settings_->base);
  return base ? base->defaultBits / 8 : 0;
}

// --- data ---

DWORD Hash::add(std::span<const BYTE> data) {
  const std::lock_guard lock(mutex_);
  if (ended_) return NTE_BAD_HASH_STATE;
  if (algorithm_.kind == AlgorithmKind::Message) {
    if (data.size() > certkern::kMaxSignedMessage - settings_->message->size()) return NTE_BAD_LEN;
    certkern::Append(*settings_->message, data);
    return ERROR_SUCCESS;
  }
  // no key yet, or an object that only derives
  if (!digest_) return NTE_BAD_HASH_STATE;
  if (data.empty()) return ERROR_SUCCESS;
  started_ = true;
  return digest_->add(data) ? ERROR_SUCCESS : NTE_FAIL;
}

DWORD Hash::end() {
  if (ended_ || algorithm_.kind == AlgorithmKind::Message) {
    ended_ = true;
    return ERROR_SUCCESS;
  }
  if (!digest_) return NTE_BAD_HASH_STATE;
  if (!digest_->finish(value())) return NTE_FAIL;
  ended_ = true;
  return ERROR_SUCCESS;
}

DWORD Hash::derive(BYTE* out, DWORD* size) const {
  if (!out) {
    *size = this->size();
    return ERROR_SUCCESS;
  }
  if (!settings_->base || !settings_->iterations) return NTE_BAD_HASH_STATE;
  if (settings_->salt.empty()) return NTE_BAD_DATA;
  if (*size > certkern::kMaxKeyBlob) return NTE_BAD_LEN;
  const bool derived =
      Pbkdf2(settings_->base, settings_->password, settings_->salt, settings_->iterations, {out, *size});
  return derived ? ERROR_SUCCESS : NTE_FAIL;
}

DWORD Hash::getValue(BYTE* out, DWORD* size) {
  if (algorithm_.kind == AlgorithmKind::Pbkdf2) return derive(out, size);
  // what does not take the value away must not end the hash
  if (!out || *size < this->size()) {
    *size = this->size();
    return out ? ERROR_MORE_DATA : ERROR_SUCCESS;
  }
  if (const DWORD code = end()) return code;
  if (algorithm_.kind == AlgorithmKind::Message) return GiveBytes(*settings_->message, out, size);
  return GiveBytes(value(), out, size);
}

DWORD Hash::finish(bool pss, HashValue& value, SignatureInput& input) {
  const std::lock_guard lock(mutex_);
  if (algorithm_.kind != AlgorithmKind::Hash && algorithm_.kind != AlgorithmKind::Message)
    return NTE_BAD_HASH;
  if (const DWORD code = end()) return code;
  // a message is not copied: it stays as long as the hash does
  const bool whole = algorithm_.kind == AlgorithmKind::Message;
  if (whole) {
    value.message = settings_->message;
  } else {
    value.bytes.assign(value_.data(), value_.data() + size());
  }
  input = {algorithm_.id, whole ? *value.message : value.bytes, pss, hasSaltLength_ ? saltLength_ : size()};
  return ERROR_SUCCESS;
}

// --- parameters ---

DWORD Hash::getParam(DWORD param, BYTE* out, DWORD* size) {
  if (!size) return ERROR_INVALID_PARAMETER;
  const std::lock_guard lock(mutex_);
  switch (param) {
    case HP_ALGID:
      return GiveRecord(algorithm_.id, out, size);
    case HP_HASHVAL:
      return getValue(out, size);
    case HP_HASHSIZE:
      return GiveRecord(this->size(), out, size);
    case HP_OID:
      if (algorithm_.id != CALG_GR3411) return NTE_BAD_TYPE;
      return GiveText(kGost94Sets[parameterSet_].oid, reinterpret_cast<char*>(out), size);
    case HP_BASE_HASH:
      return settings_ && settings_->base ? GiveRecord(settings_->base, out, size) : NTE_BAD_TYPE;
    case HP_PSS_SALT:
      return hasSaltLength_ ? GiveRecord(saltLength_, out, size) : NTE_BAD_TYPE;
    case HP_PBKDF2_COUNT:
      if (algorithm_.kind != AlgorithmKind::Pbkdf2) return NTE_BAD_TYPE;
      return GiveRecord(settings_->iterations, out, size);
    default:
      return NTE_BAD_TYPE;
  }
}

DWORD Hash::setParameterSet(const char* oid) {
  if (algorithm_.id != CALG_GR3411) return NTE_BAD_TYPE;
  if (started_ || ended_) return NTE_BAD_HASH_STATE;
  const auto* set = std::find_if(std::begin(kGost94Sets), std::end(kGost94Sets),
                                 [oid](const ParameterSet& row) { return row.oid == oid; });
  if (set == std::end(kGost94Sets)) return NTE_BAD_DATA;
  std::unique_ptr<Digest> digest = set->newDigest();
  if (!digest) return NTE_BAD_ALGID;
  digest_ = std::move(digest);
  parameterSet_ = static_cast<size_t>(set - kGost94Sets);
  return ERROR_SUCCESS;
}

std::unique_ptr<Digest> Hash::newDigest() const {
  if (algorithm_.kind == AlgorithmKind::Hmac) return NewHmac(settings_->base, settings_->key);
  return algorithm_.id == CALG_GR3411 ? kGost94Sets[parameterSet_].newDigest() : algorithm_.newDigest();
}

DWORD Hash::restart() {
  if (digest_ && !digest_->restart()) return NTE_FAIL;
  if (settings_) settings_->message = std::make_shared<SecretBytes>();
  started_ = false;
  ended_ = false;
  return ERROR_SUCCESS;
}

DWORD Hash::setValue(const BYTE* data) {
  // the length of a message, or of what is derived, nobody knows here
  if (algorithm_.kind == AlgorithmKind::Message || algorithm_.kind == AlgorithmKind::Pbkdf2)
    return NTE_BAD_TYPE;
  if (ended_ || !size()) return NTE_BAD_HASH_STATE;
  std::copy_n(data, size(), value_.begin());
  ended_ = true;
  return ERROR_SUCCESS;
}

// HMAC begins when both its hash and its key are known.
DWORD Hash::startHmac() {
  if (!settings_->base || settings_->key.empty()) return ERROR_SUCCESS;
  digest_ = newDigest();
  return digest_ ? ERROR_SUCCESS : NTE_BAD_ALGID;
}

DWORD Hash::setKey(SecretBytes key) {
  const std::lock_guard lock(mutex_);
  if (algorithm_.kind != AlgorithmKind::Hmac) return NTE_BAD_KEY;
  settings_->key = std::move(key);
  return startHmac();
}

DWORD Hash::setHmacKey(const BYTE* data) {
  if (algorithm_.kind != AlgorithmKind::Hmac || !algorithm_.base) return NTE_BAD_TYPE;
  if (started_ || ended_) return NTE_BAD_HASH_STATE;
  settings_->key.assign(data, data + kGostHmacKey);
  return startHmac();
}

DWORD Hash::setHmacInfo(const HMAC_INFO& info) {
  if (algorithm_.id != CALG_HMAC) return NTE_BAD_TYPE;
  if (started_ || ended_) return NTE_BAD_HASH_STATE;
  if (!FindHash(info.HashAlgid)) return NTE_BAD_ALGID;
  if (info.cbInnerString || info.cbOuterString) return NTE_BAD_DATA;  // others than RFC 2104's have no use
  settings_->base = info.HashAlgid;
  return startHmac();
}

DWORD Hash::setBase(ALG_ID base) {
  if (algorithm_.id != CALG_PBKDF2) return NTE_BAD_TYPE;
  if (!FindHash(base)) return NTE_BAD_ALGID;
  settings_->base = base;
  return ERROR_SUCCESS;
}

DWORD Hash::setIterations(DWORD iterations) {
  if (algorithm_.kind != AlgorithmKind::Pbkdf2) return NTE_BAD_TYPE;
  if (!iterations || iterations > certkern::kMaxIterations) return NTE_BAD_DATA;
  settings_->iterations = iterations;
  return ERROR_SUCCESS;
}

DWORD Hash::setBlob(SecretBytes HashSettings::*place, const CRYPT_DATA_BLOB& blob) {
  if (algorithm_.kind != AlgorithmKind::Pbkdf2) return NTE_BAD_TYPE;
  if (!blob.pbData && blob.cbData) return ERROR_INVALID_PARAMETER;
  if (blob.cbData > certkern::kMaxKeyBlob) return NTE_BAD_LEN;
  ((*settings_).*place).assign(blob.pbData, blob.pbData + blob.cbData);
  return ERROR_SUCCESS;
}

DWORD Hash::setParam(DWORD param, const BYTE* data) {
  const std::lock_guard lock(mutex_);
  if (param == HP_HASHSTARTVECT_RESET) return restart();
  if (!data) return ERROR_INVALID_PARAMETER;
  switch (param) {
    case HP_HASHVAL:
      return setValue(data);
    case HP_HMAC_INFO: {
      HMAC_INFO info;
      std::memcpy(&info, data, sizeof(info));
      return setHmacInfo(info);
    }
    case HP_OID:
      return setParameterSet(reinterpret_cast<const char*>(data));
    case HP_HMAC_KEY:
      return setHmacKey(data);
    case HP_PBKDF2_SALT:
      return setBlob(&HashSettings::salt, BlobOf(data));
    case HP_PBKDF2_PASSWORD:
      return setBlob(&HashSettings::password, BlobOf(data));
    case HP_PBKDF2_COUNT:
      return setIterations(WordOf(data));
    case HP_BASE_HASH:
      return setBase(WordOf(data));
    case HP_PSS_SALT:
      hasSaltLength_ = true;
      saltLength_ = WordOf(data);
      return ERROR_SUCCESS;
    default:
      return NTE_BAD_TYPE;
  }
}

DWORD Hash::copy(std::unique_ptr<Hash>& other) const {
  const std::lock_guard lock(mutex_);
  std::unique_ptr<Digest> digest;
  if (digest_) {
    // a digest that was finished has nothing to copy, and only begins again
    digest = ended_ ? newDigest() : digest_->copy();
    if (!digest) return NTE_NO_MEMORY;
  }
  other = std::make_unique<Hash>(provider_, algorithm_, std::move(digest));
  if (settings_) {
    *other->settings_ = *settings_;
    other->settings_->message = std::make_shared<SecretBytes>(*settings_->message);
  }
  other->parameterSet_ = parameterSet_;
  other->started_ = started_;
  other->ended_ = ended_;
  other->hasSaltLength_ = hasSaltLength_;
  other->saltLength_ = saltLength_;
  other->value_ = value_;
  return ERROR_SUCCESS;
}

}  // namespace keykern
