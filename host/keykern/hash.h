// Hash objects: what CryptCreateHash makes.
#ifndef CERTKERN_KEYKERN_HASH_H
#define CERTKERN_KEYKERN_HASH_H

#include "keykern/algorithms.h"
#include "keykern/handle_table.h"
#include "keykern/provider.h"

#include <array>
#include <memory>
#include <mutex>
#include <span>

namespace keykern {

// A hash at work or at its end: once its value was read or set, it takes no more data. Each operation answers a code,
// and they may come from several threads, one after the other.
class Hash final : public HandleObject {
 public:
  static constexpr Kind kKind = Kind::Hash;
  // Holds its provider, so that either may be given back first.
  Hash(Pinned<Provider> provider, const Algorithm& algorithm, std::unique_ptr<Digest> digest);
  // A value may be a secret: keys are derived from hashes that were given theirs.
  ~Hash() override;

  DWORD add(std::span<const BYTE> data);
  DWORD getParam(DWORD param, BYTE* out, DWORD* size);
  DWORD setParam(DWORD param, const BYTE* data);
  DWORD copy(std::unique_ptr<Hash>& other) const;

 private:
  DWORD size() const { return algorithm_.defaultBits / 8; }
  std::span<BYTE> value() { return {value_.data(), size()}; }
  DWORD getValue(BYTE* out, DWORD* size);
  DWORD setParameterSet(const char* oid);
  DWORD restart();
  std::unique_ptr<Digest> newDigest() const;

  const Pinned<Provider> provider_;
  const Algorithm& algorithm_;
  mutable std::mutex mutex_;
  std::unique_ptr<Digest> digest_;
  size_t parameterSet_ = 0;
  bool started_ = false;  // has taken data
  bool ended_ = false;    // value_ is what it came to
  std::array<BYTE, kMaxDigestSize> value_{};
};

}  // namespace keykern

#endif
