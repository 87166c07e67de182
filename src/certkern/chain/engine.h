// Chain engines: which stores a build searches, which of them it trusts, and how long a retrieval may take. An engine
// keeps its stores open and nothing else; what it answers is made anew for each question.
#ifndef CERTKERN_CERTKERN_CHAIN_ENGINE_H
#define CERTKERN_CERTKERN_CHAIN_ENGINE_H

#include <certkern/chain.h>

#include <memory>
#include <vector>

#include "certkern/chain/chain_builder.h"

namespace certkern {

inline constexpr DWORD kRevocationFlags = CERT_CHAIN_REVOCATION_CHECK_END_CERT
    | CERT_CHAIN_REVOCATION_CHECK_CHAIN | CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT;

// What a chain engine handle points to.
class ChainEngine {
 public:
  // Takes its own counts on the stores. Null with a code.
  static std::unique_ptr<ChainEngine> create(const CERT_CHAIN_ENGINE_CONFIG& config);

  // Core steps 2 and 3: the builder's stores, its exclusive root and its time-out.
  void equip(ChainBuilder& builder) const;
  HCERTSTORE restrictedRoot() const { return root_.get(); }

 private:
  explicit ChainEngine(const CERT_CHAIN_ENGINE_CONFIG& config);
  bool takeStores();

  // As given, without what its size cuts off; its handles are those below.
  CERT_CHAIN_ENGINE_CONFIG config_{};
  StoreOwner root_, trust_, other_, exclusiveRoot_;
  std::vector<StoreOwner> additional_;
};

// Whether all certificates of `roots` are in "Root", so that an engine can narrow the user's trust and not widen it.
// False with a code.
[[nodiscard]] bool AreUserRoots(HCERTSTORE roots);

// A handle that was given as such a number is no engine.
inline bool IsPseudoHandle(HCERTCHAINENGINE engine) {
  constexpr uintptr_t kLowestAddress = 0x10000;
  return engine && reinterpret_cast<uintptr_t>(engine) < kLowestAddress;
}

// Equips a builder from an engine; null is the user's, whose stores must be there at its first use. False with a code.
// Throws CryptException when a store that exists can't be had.
[[nodiscard]] bool EquipFromEngine(HCERTCHAINENGINE engine, ChainBuilder& builder);

// Milliseconds, as configured: for one retrieval, or, in accumulative mode, for all of a build.
uint64_t ConfiguredUrlTimeout(DWORD chainFlags);
// Milliseconds that all retrievals of one call may take together, whatever its other time-outs say.
uint64_t ConfiguredWireTimeout();

}  // namespace certkern

#endif
