#include "certkern/chain/chain_context.h"

#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <limits>
#include <memory>

#include "certkern/chain/engine.h"
#include "platform/exceptions.h"

namespace certkern {
namespace {

// --- CRLs that a certificate was looked up in ---

template <class Projection>
const CrlRecord* Earliest(const std::vector<CrlPair>& pairs, Projection member, FILETIME CRL_INFO::*time) {
  const CrlRecord* earliest = nullptr;
  for (const CrlPair& each : pairs) {
    const CrlRecord* const list = member(each);
    if (!list) continue;
    if (!earliest || CompareFileTime(&(list->info().*time), &(earliest->info().*time)) < 0) earliest = list;
  }
  return earliest;
}

const CrlRecord* BaseOf(const CrlPair& pair) { return pair.base; }
const CrlRecord* DeltaOf(const CrlPair& pair) { return pair.delta; }
const CrlRecord* NewerOf(const CrlPair& pair) { return pair.delta ? pair.delta : pair.base; }

uint64_t Ticks(const FILETIME& time) { return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime; }

// Seconds since the oldest of the lists was made. A time to come makes it 0, one too long ago the greatest.
DWORD FreshnessOf(const std::vector<CrlPair>& pairs, const FILETIME& now) {
  constexpr uint64_t kSecond = 10'000'000;
  const CrlRecord* const oldest = Earliest(pairs, NewerOf, &CRL_INFO::ThisUpdate);
  if (!oldest) return 0;
  const uint64_t made = Ticks(oldest->info().ThisUpdate);
  if (Ticks(now) < made) return 0;
  const uint64_t age = Ticks(now) - made;
  const uint64_t seconds = age / kSecond + (age % kSecond + kSecond / 2 + 1) / kSecond;
  return static_cast<DWORD>(std::min<uint64_t>(seconds, std::numeric_limits<DWORD>::max()));
}

CrlOwner Duplicate(const CrlRecord* list) {
  if (!list) return {};
  CrlOwner copy(CertDuplicateCRLContext(list->context.get()));
  if (!copy) ThrowLastError("certkern/ChainBase");
  return copy;
}

// --- an element: what it points to lies in it ---

class UsageList {
 public:
  explicit UsageList(const std::vector<std::string>& identifiers) : identifiers_(identifiers) {
    for (std::string& each : identifiers_) pointers_.push_back(each.data());
    usage_.cUsageIdentifier = static_cast<DWORD>(pointers_.size());
    usage_.rgpszUsageIdentifier = pointers_.data();
  }
  UsageList(const UsageList&) = delete;
  UsageList& operator=(const UsageList&) = delete;
  PCERT_ENHKEY_USAGE published() { return pointers_.empty() ? nullptr : &usage_; }

 private:
  std::vector<std::string> identifiers_;
  std::vector<LPSTR> pointers_;
  CERT_ENHKEY_USAGE usage_{};
};

DWORD RevocationResult(DWORD status) {
  if (status & CERT_TRUST_IS_REVOKED) return CRYPT_E_REVOKED;
  return status ? CRYPT_E_NO_REVOCATION_CHECK : 0;
}

class ElementRecord {
 public:
  ElementRecord(const ChainNode& node, const ChainBuilder& builder)
      : certificate_(CertDuplicateCertificateContext(node.record->context.get())),
        issuance_(node.certPolicies),
        application_(node.applPolicies) {
    if (!certificate_) ThrowLastError();
    element_.cbSize = sizeof element_;
    element_.pCertContext = certificate_.get();
    element_.TrustStatus.dwErrorStatus = node.errorStatus;
    element_.pIssuanceUsage = issuance_.published();
    element_.pApplicationUsage = application_.published();
    if (builder.hasFlag(kRevocationFlags)) describeRevocation(node, builder.now);
  }
  ElementRecord(const ElementRecord&) = delete;
  ElementRecord& operator=(const ElementRecord&) = delete;

  CERT_CHAIN_ELEMENT& published() { return element_; }

 private:
  void describeRevocation(const ChainNode& node, const FILETIME& now) {
    const std::vector<CrlPair>& used = node.record->usedCrls;
    revocation_.cbSize = sizeof revocation_;
    revocation_.dwRevocationResult = RevocationResult(node.errorStatus);
    revocation_.fHasFreshnessTime = used.empty() ? FALSE : TRUE;
    revocation_.dwFreshnessTime = FreshnessOf(used, now);
    element_.pRevocationInfo = &revocation_;
    if (!used.empty()) describeLists(*node.record);
  }

  void describeLists(const CertRecord& record) {
    const CrlPair& selected = record.selected;
    const std::vector<CrlPair>& used = record.usedCrls;
    base_ = Duplicate(selected.base ? selected.base : Earliest(used, BaseOf, &CRL_INFO::NextUpdate));
    if (used.front().delta) {
      delta_ = Duplicate(selected.delta ? selected.delta : Earliest(used, DeltaOf, &CRL_INFO::NextUpdate));
    }
    lists_.cbSize = sizeof lists_;
    lists_.pBaseCrlContext = base_.get();
    lists_.pDeltaCrlContext = delta_.get();
    // the delta is asked last, so that its answer stands
    lookUp(record, base_.get(), FALSE);
    lookUp(record, delta_.get(), TRUE);
    revocation_.pCrlInfo = &lists_;
  }

  void lookUp(const CertRecord& record, PCCRL_CONTEXT list, BOOL isDelta) {
    PCRL_ENTRY entry = nullptr;
    if (!list || !CertFindCertificateInCRL(record.context.get(), list, 0, nullptr, &entry) || !entry) return;
    lists_.pCrlEntry = entry;
    lists_.fDeltaCrlEntry = isDelta;
  }

  CertificateOwner certificate_;
  CrlOwner base_, delta_;
  UsageList issuance_, application_;
  CERT_CHAIN_ELEMENT element_{};
  CERT_REVOCATION_INFO revocation_{};
  CERT_REVOCATION_CRL_INFO lists_{};
};

// --- the whole ---

class ChainContextRecord : public CERT_CHAIN_CONTEXT {
 public:
  explicit ChainContextRecord(const ChainBuilder& builder);
  ChainContextRecord(const ChainContextRecord&) = delete;
  ChainContextRecord& operator=(const ChainContextRecord&) = delete;

  void add(ChainContextOwner lower);

  std::atomic<DWORD> count{1};

 private:
  void takeFreshness(const CERT_CHAIN_ELEMENT& element);

  CERT_SIMPLE_CHAIN simple_{};
  PCERT_SIMPLE_CHAIN simpleList_ = &simple_;
  std::deque<ElementRecord> elements_;  // the end certificate first
  std::vector<PCERT_CHAIN_ELEMENT> elementList_;
  std::vector<ChainContextOwner> lower_;
  std::vector<PCCERT_CHAIN_CONTEXT> lowerList_;
};

ChainContextRecord::ChainContextRecord(const ChainBuilder& builder) : CERT_CHAIN_CONTEXT{} {
  for (auto node = builder.chain.rbegin(); node != builder.chain.rend(); ++node) {
    elementList_.push_back(&elements_.emplace_back(*node, builder).published());
  }
  simple_.cbSize = sizeof simple_;
  simple_.TrustStatus.dwErrorStatus = builder.chainError;
  simple_.cElement = static_cast<DWORD>(elementList_.size());
  simple_.rgpElement = elementList_.data();
  for (const CERT_CHAIN_ELEMENT* each : elementList_) takeFreshness(*each);

  cbSize = sizeof(CERT_CHAIN_CONTEXT);
  TrustStatus = simple_.TrustStatus;
  cChain = 1;
  rgpChain = &simpleList_;
  fHasRevocationFreshnessTime = simple_.fHasRevocationFreshnessTime;
  dwRevocationFreshnessTime = simple_.dwRevocationFreshnessTime;
}

void ChainContextRecord::takeFreshness(const CERT_CHAIN_ELEMENT& element) {
  const CERT_REVOCATION_INFO* const info = element.pRevocationInfo;
  if (!info || !info->fHasFreshnessTime) return;
  simple_.fHasRevocationFreshnessTime = TRUE;
  simple_.dwRevocationFreshnessTime = std::max(simple_.dwRevocationFreshnessTime, info->dwFreshnessTime);
}

void ChainContextRecord::add(ChainContextOwner lower) {
  lowerList_.push_back(lower.get());
  lower_.push_back(std::move(lower));
  cLowerQualityChainContext = static_cast<DWORD>(lowerList_.size());
  rgpLowerQualityChainContext = lowerList_.data();
}

ChainContextRecord& RecordOf(PCCERT_CHAIN_CONTEXT chain) {
  return static_cast<ChainContextRecord&>(const_cast<CERT_CHAIN_CONTEXT&>(*chain));
}

const CERT_SIMPLE_CHAIN* SimpleChainOf(PCCERT_CHAIN_CONTEXT chain) {
  if (!chain->cChain || !chain->rgpChain || !chain->rgpChain[0]) return nullptr;
  const CERT_SIMPLE_CHAIN* const simple = chain->rgpChain[0];
  return simple->cElement && simple->rgpElement ? simple : nullptr;
}

}  // namespace

void AddChainReference(PCCERT_CHAIN_CONTEXT chain) { ++RecordOf(chain).count; }

void ReleaseChain(PCCERT_CHAIN_CONTEXT chain) noexcept {
  ChainContextRecord& record = RecordOf(chain);
  if (record.count.fetch_sub(1) <= 1) delete &record;
}

ChainContextOwner MakeChainContext(const ChainBuilder& builder) {
  return ChainContextOwner(std::make_unique<ChainContextRecord>(builder).release());
}

void AddLowerQualityChain(PCCERT_CHAIN_CONTEXT chain, ChainContextOwner further) {
  RecordOf(chain).add(std::move(further));
}

PCCERT_CONTEXT EndCertificateOf(PCCERT_CHAIN_CONTEXT chain) {
  const CERT_SIMPLE_CHAIN* const simple = SimpleChainOf(chain);
  return simple ? simple->rgpElement[0]->pCertContext : nullptr;
}

PCCERT_CONTEXT RootCertificateOf(PCCERT_CHAIN_CONTEXT chain) {
  const CERT_SIMPLE_CHAIN* const simple = SimpleChainOf(chain);
  return simple ? simple->rgpElement[simple->cElement - 1]->pCertContext : nullptr;
}

}  // namespace certkern
