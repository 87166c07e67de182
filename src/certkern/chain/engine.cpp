#include "certkern/chain/engine.h"

#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>

#include "ber/read_cursor.h"
#include "certkern/chain/memory_check.h"
#include "platform/exceptions.h"
#include "platform/supkern.h"
#include "store/certificate_primitives.h"

namespace certkern {
namespace {

// --- settings, read once ---

#define CHAIN_SETTING(name) \
  "\\CRYPTOGRAPHY\\OID\\EncodingType 0\\CertDllCreateCertificateChainEngine\\Config\\" name

uint64_t TimeoutSetting(const char* path, uint64_t standard) {
  constexpr int64_t kLongest = 65535;
  int64_t value = 0;
  if (support_registry_get_long(path, &value) != 0 || value < 1 || value > kLongest) return standard;
  return static_cast<uint64_t>(value);
}

struct Timeouts {
  const uint64_t accumulative =
      TimeoutSetting(CHAIN_SETTING("ChainRevAccumulativeUrlRetrievalTimeoutMilliseconds"), 20000);
  const uint64_t single = TimeoutSetting(CHAIN_SETTING("ChainUrlRetrievalTimeoutMilliseconds"), 15000);
  const uint64_t all = TimeoutSetting(CHAIN_SETTING("ChainTotalUrlRetrievalTimeoutMilliseconds"), 60000);
};

const Timeouts& ConfiguredTimeouts() {
  static const Timeouts timeouts;
  return timeouts;
}

#undef CHAIN_SETTING

bool IsLegacyEngineWanted() {
  static const bool wanted = [] {
    int64_t value = 0;
    return support_registry_get_long("\\config\\Certkern\\legacy_user_chain_engine", &value) == 0 && value;
  }();
  return wanted;
}

// --- an engine's stores ---

// A field that the size cuts off, even in its middle, does not exist.
template <class... Fields>
void DropCutOff(const CERT_CHAIN_ENGINE_CONFIG& config, Fields&... fields) {
  const auto end = [&](const auto& field) {
    return reinterpret_cast<const BYTE*>(&field + 1) - reinterpret_cast<const BYTE*>(&config);
  };
  ((config.cbSize < static_cast<size_t>(end(fields)) ? void(fields = {}) : void()), ...);
}

bool Take(HCERTSTORE store, StoreOwner& owner) {
  owner.reset(CertDuplicateStore(store));
  return static_cast<bool>(owner);
}

bool TakeIfGiven(HCERTSTORE store, StoreOwner& owner) { return !store || Take(store, owner); }

void AddToBoth(ChainBuilder& builder, HCERTSTORE store, bool trusted) {
  if (!store) return;
  ChainBuilder::addStore(builder.certStores, store, trusted);
  ChainBuilder::addStore(builder.crlStores, store, trusted);
}

// --- the user's engine ---

constinit std::atomic<bool> hasUserEngine{false};

// A store that does not exist is passed over. Only the first build of a process fails for it, as it may still come: `legacy`
// builds never do.
bool EquipAsUser(ChainBuilder& builder, bool legacy) try {
  const HCERTSTORE roots = builder.userStore(UserStoreName::Root);
  const HCERTSTORE authorities = builder.userStore(UserStoreName::Authorities);
  if (!legacy) {
    if ((!roots || !authorities) && !hasUserEngine) return Fault(ERROR_DLL_INIT_FAILED);
    hasUserEngine = true;
  }
  AddToBoth(builder, roots, true);
  AddToBoth(builder, authorities, false);
  builder.urlTimeoutMs = ConfiguredUrlTimeout(builder.flags);
  return true;
} catch (const CryptException&) {  // it exists, and can't be had
  if (legacy || hasUserEngine) throw;
  return Fault(ERROR_DLL_INIT_FAILED);
}

}  // namespace

uint64_t ConfiguredUrlTimeout(DWORD chainFlags) {
  const Timeouts& timeouts = ConfiguredTimeouts();
  return chainFlags & CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT ? timeouts.accumulative : timeouts.single;
}

uint64_t ConfiguredWireTimeout() { return ConfiguredTimeouts().all; }

ChainEngine::ChainEngine(const CERT_CHAIN_ENGINE_CONFIG& config) {
  std::memcpy(&config_, &config, std::min<size_t>(config.cbSize, sizeof config_));
  CERT_CHAIN_ENGINE_CONFIG& own = config_;
  DropCutOff(own, own.hRestrictedRoot, own.hRestrictedTrust, own.hRestrictedOther, own.cAdditionalStore,
             own.rghAdditionalStore, own.dwFlags, own.dwUrlRetrievalTimeout, own.MaximumCachedCertificates,
             own.CycleDetectionModulus, own.hExclusiveRoot, own.hExclusiveTrustedPeople,
             own.dwExclusiveFlags);
}

bool ChainEngine::takeStores() {
  for (const HCERTSTORE each : AsSpan(config_.rghAdditionalStore, config_.cAdditionalStore)) {
    if (!Take(each, additional_.emplace_back())) return false;
  }
  return TakeIfGiven(config_.hRestrictedRoot, root_) && TakeIfGiven(config_.hRestrictedTrust, trust_)
      && TakeIfGiven(config_.hRestrictedOther, other_) && TakeIfGiven(config_.hExclusiveRoot, exclusiveRoot_);
}

std::unique_ptr<ChainEngine> ChainEngine::create(const CERT_CHAIN_ENGINE_CONFIG& config) {
  std::unique_ptr<ChainEngine> engine(new ChainEngine(config));
  const CERT_CHAIN_ENGINE_CONFIG& own = engine->config_;
  if (own.cAdditionalStore && !own.rghAdditionalStore) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  if (!engine->takeStores()) return nullptr;
  if (own.hExclusiveTrustedPeople || own.dwExclusiveFlags) {
    SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
    return nullptr;
  }
  return engine;
}

void ChainEngine::equip(ChainBuilder& builder) const {
  if (exclusiveRoot_) {
    AddToBoth(builder, exclusiveRoot_.get(), true);
    builder.exclusiveRoot = exclusiveRoot_.get();
  } else if (root_) {
    AddToBoth(builder, root_.get(), true);
  } else if (const HCERTSTORE store = builder.userStore(UserStoreName::Root)) {
    ChainBuilder::addStore(builder.certStores, store, true);
  }
  AddToBoth(builder, other_ ? other_.get() : builder.userStore(UserStoreName::Authorities), false);
  AddToBoth(builder, trust_.get(), false);
  for (const StoreOwner& each : additional_) AddToBoth(builder, each.get(), false);
  const DWORD own = config_.dwUrlRetrievalTimeout;
  builder.urlTimeoutMs = own ? own : ConfiguredUrlTimeout(builder.flags);
}

bool AreUserRoots(HCERTSTORE roots) {
  const StoreOwner userRoots = UserStore(UserStoreName::Root);
  if (!userRoots) return Fault(ERROR_INTERNAL_ERROR);
  CertificateOwner root;
  const auto next = [&] { return CertEnumCertificatesInStore(roots, root.release()); };
  while (root.reset(CheckingMemory(next)), root) {
    if (!IsInStore(userRoots.get(), root.get())) return Fault(ERROR_FILE_NOT_FOUND);
  }
  return true;
}

bool EquipFromEngine(HCERTCHAINENGINE engine, ChainBuilder& builder) {
  if (engine) {
    static_cast<const ChainEngine*>(engine)->equip(builder);
    return true;
  }
  return EquipAsUser(builder, IsLegacyEngineWanted());
}

}  // namespace certkern
