#include "certkern/chain/chain_request.h"

#include <certkern/errors.h>
#include <certkern/store.h>

#include <cstddef>

#include "certkern/chain/engine.h"
#include "platform/exceptions.h"

namespace certkern {
namespace {

void AddSearched(ChainBuilder& builder, HCERTSTORE store) {
  if (!store) return;
  ChainBuilder::addStore(builder.certStores, store, false);
  ChainBuilder::addStore(builder.crlStores, store, false);
}

// The requested usage is read whatever the size says; the time-out only if it reaches there.
void ReadPara(const CERT_CHAIN_PARA& para, ChainBuilder& builder) {
  constexpr size_t kTimeoutEnd = offsetof(CERT_CHAIN_PARA, dwUrlRetrievalTimeout) + sizeof(DWORD);
  builder.requestedUsage = &para.RequestedUsage;
  if (para.cbSize >= kTimeoutEnd && para.dwUrlRetrievalTimeout) {
    builder.urlTimeoutMs = para.dwUrlRetrievalTimeout;
  }
}

// A chain that does not end at one of the used roots.
ChainContextOwner BuildOne(const ChainRequest& request, HCERTSTORE usedRoots,
                           const std::shared_ptr<BuildBudget>& budget) {
  ChainBuilder builder(budget);
  builder.flags = request.flags;
  if (!EquipFromEngine(request.engine, builder)) return {};
  AddSearched(builder, request.end->hCertStore);
  AddSearched(builder, request.additional);
  if (request.time) builder.checkTime = *request.time;
  builder.usedStore = usedRoots;
  ReadPara(request.para, builder);
  builder.build(request.end);
  if (builder.chain.empty()) {
    SetLastError(TRUST_E_FAIL);
    return {};
  }
  return MakeChainContext(builder);
}

bool AddRoot(HCERTSTORE usedRoots, PCCERT_CHAIN_CONTEXT chain) {
  return CertAddCertificateContextToStore(usedRoots, RootCertificateOf(chain), CERT_STORE_ADD_NEW, nullptr)
      == TRUE;
}

// That there is no other chain ends the search; it is no failure.
bool AddOtherChains(const ChainRequest& request, PCCERT_CHAIN_CONTEXT chain,
                    const std::shared_ptr<BuildBudget>& budget) {
  const StoreOwner usedRoots(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
  if (!usedRoots || !AddRoot(usedRoots.get(), chain)) return false;
  while (ChainContextOwner other = BuildOne(request, usedRoots.get(), budget)) {
    if (other->TrustStatus.dwErrorStatus) break;
    if (!AddRoot(usedRoots.get(), other.get())) return false;
    AddLowerQualityChain(chain, std::move(other));
  }
  return true;
}

}  // namespace

ChainContextOwner GetChain(const ChainRequest& request) try {
  const auto budget = std::make_shared<BuildBudget>();
  ChainContextOwner chain = BuildOne(request, nullptr, budget);
  if (chain && (request.flags & CERT_CHAIN_RETURN_LOWER_QUALITY_CONTEXTS)
      && !AddOtherChains(request, chain.get(), budget)) {
    chain.reset();
  }
  return chain;
} catch (
    const CryptException& failure) {  // without a store that exists there would be a verdict, and a wrong one
  SetLastError(failure.code());
  return {};
}

}  // namespace certkern
