// Which keys made the signature of a certificate or CRL, as far as somebody has asked. Kept with the facts of the object, so
// that a build does not verify again what an earlier one did over the same store. Any thread may ask.
#ifndef CERTKERN_CERTKERN_CHAIN_LINK_VERDICTS_H
#define CERTKERN_CERTKERN_CHAIN_LINK_VERDICTS_H

#include <certkern/cert.h>

#include <array>
#include <mutex>
#include <optional>
#include <vector>

namespace certkern {

// A key by the hash of its whole SubjectPublicKeyInfo, with identifier and parameters: a key identifier is what somebody
// wrote down, and stands for nothing here.
using KeyDigest = std::array<BYTE, 32>;

class LinkVerdicts {
 public:
  std::optional<bool> find(const KeyDigest& key) const;
  // At most kMaxLinkVerdicts; a refusal never takes the place of a good one, as strangers can bring any number of keys.
  void keep(const KeyDigest& key, bool good);

 private:
  struct Entry {
    KeyDigest key;
    bool good;
  };
  mutable std::mutex lock_;
  std::vector<Entry> entries_;
  size_t nextRefused_ = 0;  // where to look for the next one to be forgotten
};

// The digest of one certificate's key, made when it is first asked for.
class KeyDigestOnce {
 public:
  // Empty when the key level can't hash now; it is asked again next time.
  std::optional<KeyDigest> get(const CERT_PUBLIC_KEY_INFO& key);

 private:
  std::mutex lock_;
  std::optional<KeyDigest> made_;
};

}  // namespace certkern

#endif
