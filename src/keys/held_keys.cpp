#include "keys/held_keys.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "ber/fields.h"
#include "platform/limits.h"
#include "platform/never_destroyed.h"
#include "store/certificate_digest.h"

namespace certkern {
namespace {

// The last used first. So few that a walk is faster than an index.
class HeldKeys {
 public:
  SharedKey find(const std::string& name) {
    const std::lock_guard guard(lock_);
    const auto at = std::ranges::find(entries_, name, &Entry::name);
    if (at == entries_.end()) return nullptr;
    std::rotate(entries_.begin(), at, std::next(at));
    return entries_.front().key;
  }

  void keep(std::string name, SharedKey key) {
    Entry dropped;  // gives its handles back outside the lock
    const std::lock_guard guard(lock_);
    if (std::ranges::find(entries_, name, &Entry::name) != entries_.end()) return;
    if (entries_.size() == kMaxHeldKeys) {
      dropped = std::move(entries_.back());
      entries_.pop_back();
    }
    entries_.insert(entries_.begin(), {std::move(name), std::move(key)});
  }

  void clear() {
    std::vector<Entry> dropped;
    const std::lock_guard guard(lock_);
    dropped.swap(entries_);
  }

 private:
  struct Entry {
    std::string name;
    SharedKey key;
  };
  std::mutex lock_;
  std::vector<Entry> entries_;
};

constinit NeverDestroyed<HeldKeys> heldKeys;

// All that decides which provider gets which key; empty for one that is not held.
std::string NameOf(DWORD providerType, const CERT_PUBLIC_KEY_INFO& info, ALG_ID algorithm) {
  std::span<const BYTE> parameters;
  const CRYPT_BIT_BLOB& key = info.PublicKey;
  if (!BlobBytes(info.Algorithm.Parameters, parameters) || !key.pbData) return {};
  if (size_t{key.cbData} + parameters.size() > kMaxHeldKey) return {};
  const DWORD words[] = {providerType, algorithm, key.cUnusedBits, static_cast<DWORD>(parameters.size())};
  const std::string_view oid(info.Algorithm.pszObjId);
  std::string name;
  name.reserve(sizeof words + oid.size() + 1 + parameters.size() + key.cbData);
  name.append(reinterpret_cast<const char*>(words), sizeof words).append(oid).push_back('\0');
  name.append(parameters.begin(), parameters.end()).append(key.pbData, key.pbData + key.cbData);
  return name;
}

}  // namespace

SharedKey HoldKey(DWORD providerType, const CERT_PUBLIC_KEY_INFO& info, ALG_ID algorithm,
                  const ProviderFinder& find) {
  HeldKeys* const held = heldKeys.get();
  std::string name = held ? NameOf(providerType, info, algorithm) : std::string();
  if (held && !name.empty()) {
    if (SharedKey known = held->find(name)) return known;
  }
  HeldKey made{find(), {}};
  CERT_PUBLIC_KEY_INFO copy = info;
  if (!made.provider || !ImportPublicKey(made.provider.get(), &copy, algorithm, 0, made.key.out()))
    return nullptr;
  auto key = std::make_shared<const HeldKey>(std::move(made));
  if (held && !name.empty()) held->keep(std::move(name), key);
  return key;
}

SharedKey KeyForSignature(const SignatureRow& row, const CERT_PUBLIC_KEY_INFO& info, ALG_ID algorithm) {
  return HoldKey(row.providerType, info, algorithm, [&] { return FindProviderForSignature(row, algorithm); });
}

void BeginHoldingKeys() { heldKeys.create(); }

void EndHoldingKeys() {
  if (HeldKeys* const held = heldKeys.get()) held->clear();
  heldKeys.retire();
}

}  // namespace certkern
