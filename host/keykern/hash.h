// Hash objects: what CryptCreateHash makes.
#ifndef CERTKERN_KEYKERN_HASH_H
#define CERTKERN_KEYKERN_HASH_H

#include "common/secret_bytes.h"
#include "keykern/algorithms.h"
#include "keykern/handle_table.h"
#include "keykern/key/asymmetric_key.h"
#include "keykern/provider.h"

#include <array>
#include <memory>
#include <mutex>
#include <span>

namespace keykern {

// What a keyed hash, a derivation or a message has beyond a digest.
struct HashSettings {
  ALG_ID base = 0;  // the hash inside; 0: not told yet
  SecretBytes key;
  SecretBytes password;
  SecretBytes salt;
  DWORD iterations = 0;
  // Shared with who signs it: a hash that begins again makes another.
  std::shared_ptr<SecretBytes> message = std::make_shared<SecretBytes>();
};

// What a hash came to, for as long as it is looked at.
struct HashValue {
  SecretBytes bytes;
  std::shared_ptr<const SecretBytes> message;
};

// A hash at work or at its end: once its value was read or set, it takes no more data. Each operation answers a code,
// and they may come from several threads, one after the other.
class Hash final : public HandleObject {
 public:
  static constexpr Kind kKind = Kind::Hash;
  // Holds its provider, so that either may be given back first. digest: null but for AlgorithmKind::Hash.
  Hash(Pinned<Provider> provider, const Algorithm& algorithm, std::unique_ptr<Digest> digest);
  // A value may be a secret: keys are derived from hashes that were given theirs.
  ~Hash() override;

  const Pinned<Provider>& provider() const { return provider_; }
  // For a keyed hash, from the key that it was created with.
  DWORD setKey(SecretBytes key);
  DWORD add(std::span<const BYTE> data);
  DWORD getParam(DWORD param, BYTE* out, DWORD* size);
  DWORD setParam(DWORD param, const BYTE* data);
  DWORD copy(std::unique_ptr<Hash>& other) const;

  // What is signed: the value, which ends the hash. input borrows from `value`.
  DWORD finish(bool pss, HashValue& value, SignatureInput& input);
  // The hash whose value this is, for the derivation of keys.
  ALG_ID id() const { return algorithm_.id; }

 private:
  using Values = std::array<BYTE, kMaxDigestSize>;

  DWORD size() const;
  std::span<BYTE> value() { return {value_.data(), size()}; }
  DWORD end();
  DWORD getValue(BYTE* out, DWORD* size);
  DWORD derive(BYTE* out, DWORD* size) const;
  DWORD setValue(const BYTE* data);
  DWORD setParameterSet(const char* oid);
  DWORD setHmacInfo(const HMAC_INFO& info);
  DWORD setHmacKey(const BYTE* data);
  DWORD setBase(ALG_ID base);
  DWORD setIterations(DWORD iterations);
  DWORD setBlob(SecretBytes HashSettings::*place, const CRYPT_DATA_BLOB& blob);
  DWORD startHmac();
  DWORD restart();
  std::unique_ptr<Digest> newDigest() const;

  const Pinned<Provider> provider_;
  const Algorithm& algorithm_;
  mutable std::mutex mutex_;
  std::unique_ptr<Digest> digest_;
  std::unique_ptr<HashSettings> settings_;  // null for a plain hash
  size_t parameterSet_ = 0;
  bool started_ = false;  // has taken data
  bool ended_ = false;    // value_ is what it came to
  bool hasSaltLength_ = false;
  DWORD saltLength_ = 0;
  Values value_{};
};

}  // namespace keykern

#endif
