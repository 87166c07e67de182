#include <algorithm>
#include "certkern/chain/chain_builder.h"
#include "certkern/chain/crl_facts.h"
#include "certkern/chain/trust_status.h"
#include <certkern/url.h>
namespace certkern {
struct CrlFacts {};
std::shared_ptr<const CrlFacts> MakeCrlFacts(PCCRL_CONTEXT) { return std::make_shared<const CrlFacts>(); }
std::span<const BYTE> AuthorityKeyIdBytes(const CrlFacts&) { return {}; }
bool IsChainTraceOn() { static const bool on = getenv("SV_PRINT_CHAIN_DETAIL"); return on; }
void ChainTrace::certificate(PCCERT_CONTEXT) const {}
void ChainTrace::crl(PCCRL_CONTEXT) const {}
void ChainTrace::append(std::string& t, std::string_view p) { t += p; }
void ChainTrace::append(std::string& t, uint64_t n) { t += std::to_string(n); }
void ChainTrace::append(std::string& t, const void*) { t += "ptr"; }
void ChainTrace::write(const std::string& t) const { puts(t.c_str()); }
int CompareTrustStatus(DWORD a, DWORD b) {
  if (!a) return b ? 1 : 0;
  if (!b) return -1;
  for (DWORD bit : {0x10000u, 8u, 0x20u, 1u, 4u, 0x40u, 0x10u, 0x400u})
    if ((a ^ b) & bit) return b & bit ? 1 : -1;
  return 0;
}
ChainBuilder::ChainBuilder() : records(std::make_shared<InternedRecords>()), budget(std::make_shared<BuildBudget>()) {
  GetSystemTimeAsFileTime(&now); checkTime = now;
}
ChainBuilder::~ChainBuilder() = default;
bool ChainBuilder::checkRevocation(ChainNode& node, ChainNode&) {
  if (!hasFlag(CERT_CHAIN_REVOCATION_CHECK_CHAIN)) return true;
  recordPathError(0x40, &node);
  return false;
}
void ChainBuilder::addStore(std::vector<StoreRef>& stores, HCERTSTORE store, bool trusted) {
  stores.push_back({StoreOwner(CertDuplicateStore(store)), trusted});
  std::sort(stores.begin(), stores.end());
}
}
