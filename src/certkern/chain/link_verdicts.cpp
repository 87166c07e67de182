#include "certkern/chain/link_verdicts.h"

#include <certkern/keykern.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "platform/limits.h"
#include "store/certificate_digest.h"

namespace certkern {
namespace {

// All that the verification with the key depends on; lengths keep the parts apart.
std::string BytesOf(const CERT_PUBLIC_KEY_INFO& key) {
  const std::string_view oid(key.Algorithm.pszObjId ? key.Algorithm.pszObjId : "");
  const CRYPT_OBJID_BLOB& parameters = key.Algorithm.Parameters;
  const CRYPT_BIT_BLOB& bits = key.PublicKey;
  const DWORD words[] = {static_cast<DWORD>(oid.size()), parameters.cbData, bits.cbData, bits.cUnusedBits};
  std::string bytes(reinterpret_cast<const char*>(words), sizeof words);
  bytes.append(oid);
  bytes.append(parameters.pbData, parameters.pbData + parameters.cbData);
  return bytes.append(bits.pbData, bits.pbData + bits.cbData);
}

}  // namespace

std::optional<bool> LinkVerdicts::find(const KeyDigest& key) const {
  const std::lock_guard guard(lock_);
  const auto at = std::ranges::find(entries_, key, &Entry::key);
  return at != entries_.end() ? std::optional(at->good) : std::nullopt;
}

void LinkVerdicts::keep(const KeyDigest& key, bool good) {
  const std::lock_guard guard(lock_);
  if (std::ranges::find(entries_, key, &Entry::key) != entries_.end()) return;
  if (entries_.size() < kMaxLinkVerdicts) {
    entries_.push_back({key, good});
    return;
  }
  for (size_t looked = 0; looked < entries_.size(); ++looked) {
    Entry& each = entries_[nextRefused_++ % entries_.size()];
    if (each.good) continue;
    each = {key, good};
    return;
  }
}

std::optional<KeyDigest> KeyDigestOnce::get(const CERT_PUBLIC_KEY_INFO& key) {
  const std::lock_guard guard(lock_);
  if (made_) return made_;
  const LastErrorKeeper keeper;
  const std::string bytes = BytesOf(key);
  KeyDigest digest;
  DWORD size = sizeof digest;
  if (HashEncoded(0, CALG_SHA_256, {reinterpret_cast<const BYTE*>(bytes.data()), bytes.size()}, digest.data(),
                  &size)
      && size == sizeof digest) {
    made_ = digest;
  }
  return made_;
}

}  // namespace certkern
