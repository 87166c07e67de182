// One chain build: a depth-first search for a path to a trusted self-signed certificate, and the validation of each path
// that the search completes. A builder serves one thread and one call.
//
// The member functions stand in four files by subject: the search (path_search.cpp, issuer_search.cpp), the validation
// (path_validation.cpp, policy_tree.cpp), revocation (revocation*.cpp), and making the answer (chain_context.cpp).
#ifndef CERTKERN_CERTKERN_CHAIN_CHAIN_BUILDER_H
#define CERTKERN_CERTKERN_CHAIN_CHAIN_BUILDER_H

#include <certkern/chain.h>

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "certkern/chain/chain_records.h"
#include "certkern/chain/chain_trace.h"
#include "platform/limits.h"

namespace certkern {

using StoreOwner = Owner<HCERTSTORE, CertCloseStore>;

// A store that is searched. Trusted stores come first, and among equals the handle decides.
struct StoreRef {
  StoreOwner store;
  bool trusted = false;

  bool operator<(const StoreRef& other) const {
    if (trusted != other.trusted) return trusted;
    return store.get() < other.store.get();
  }
};

struct ChainNode {
  CertRecord* record = nullptr;
  DWORD errorStatus = 0;
  // What this pass found; empty: no restriction. With the node, as records are shared with clones.
  std::vector<std::string> certPolicies;
  std::vector<std::string> applPolicies;
};

// The front is the candidate root, the back the end certificate.
using Chain = std::list<ChainNode>;

struct ChainSnapshot {
  Chain chain;
  DWORD chainError = 0;
  DWORD chainRevReason = 0;
};

// Budgets that one core call shares with all its clones, so that hostile certificates can't multiply work.
struct BuildBudget {
  uint32_t candidateSteps = 0;  // taken, at most kMaxChainCandidateSteps
  uint32_t wireRetrievals = 0;  // taken, at most kMaxChainRetrievals
  uint32_t crlSteps = 0;        // taken, at most kMaxChainCrlSteps
  uint64_t policyVisits = 0;    // to nodes of policy trees, at most kMaxPolicyVisits
};

// Whose issuer is sought: the name, and what the authority key identifier adds.
struct IssuerKey {
  const NormalName* issuer = nullptr;
  std::span<const BYTE> keyId;   // empty: none
  std::span<const BYTE> serial;  // empty: none
};

class IssuerCandidates;  // issuer_search.h
class GoodVerdicts;      // good_verdicts.h

class ChainBuilder {
 public:
  ChainBuilder();
  // A clone that validates the signer of a CRL of `record`: isCrlSubcheck, an empty chain, no best error, and one more
  // certificate in the cycle guard.
  ChainBuilder(const ChainBuilder& parent, CertRecord& underDecision);
  ChainBuilder(const ChainBuilder&) = delete;
  ChainBuilder& operator=(const ChainBuilder&) = delete;
  ~ChainBuilder();

  // Builds from the end certificate. Afterwards chain, chainError and chainRevReason are the answer; an empty chain: none.
  void build(PCCERT_CONTEXT end);

  // --- The search (path_search.cpp, issuer_search.cpp) ---
  bool verifyCertificate(CertRecord& record);  // verify_certificate_prt; never throws
  void findIssuers(const IssuerKey& key, IssuerCandidates& candidates);
  // The matches of one store, interned.
  const std::vector<CertRecord*>& issuersInStore(const StoreRef& store, const IssuerKey& key);
  // Loads certificates by URL into the records and candidates; false: nothing came.
  bool loadUrl(const std::string& url, IssuerCandidates& candidates, DWORD retrievalFlags);
  // Keeps a copy of the chain as the best failure so far if it is; `node` null: the chain as a whole.
  void recordPathError(DWORD status, const ChainNode* node, DWORD reason = 0);
  bool isWireAllowed() const;
  // Milliseconds for the next retrieval; 0: none is left.
  uint64_t retrievalBudget() const;
  // In accumulative mode, adds what a retrieval took.
  void addRetrievalTime(uint64_t milliseconds);

  // --- Validation (path_validation.cpp) ---
  bool validatePath();

  // --- Revocation (revocation.cpp) ---
  // False: the status is recorded at the node.
  bool checkRevocation(ChainNode& node, ChainNode& issuer);

  bool isTimeValid(const CERT_INFO& certificate) const;  // at checkTime; bounds belong to it
  bool hasFlag(DWORD flag) const { return (flags & flag) != 0; }

  std::vector<StoreRef> certStores;  // kept sorted and free of doubles by addStore
  std::vector<StoreRef> crlStores;
  static void addStore(std::vector<StoreRef>& stores, HCERTSTORE store,
                       bool trusted);  // duplicates the handle

  DWORD flags = CERT_CHAIN_REVOCATION_CHECK_CHAIN;
  HCERTSTORE usedStore = nullptr;      // certificates that may not end this chain; borrowed
  HCERTSTORE exclusiveRoot = nullptr;  // borrowed from the engine
  uint64_t urlTimeoutMs = 0;
  const CERT_USAGE_MATCH* requestedUsage = nullptr;
  FILETIME now{};
  FILETIME checkTime{};

  CertSet visited;
  CrlSet crls;
  std::optional<ChainSnapshot> bestError;
  Chain chain;
  DWORD chainError = 0;
  DWORD chainRevReason = 0;
  bool isCrlSubcheck = false;
  unsigned cloneDepth = 0;
  CertSet revocationCycleGuard;
  std::shared_ptr<InternedRecords> records;
  std::shared_ptr<GoodVerdicts> goodVerdicts;  // over these records
  std::shared_ptr<BuildBudget> budget;
  uint64_t usedUrlMs = 0;
  // What the stores answered, by store and question: a path that turns in circles asks the same again and again.
  std::map<std::pair<HCERTSTORE, std::string>, std::vector<CertRecord*>> storeSearches;
  ChainTrace trace;  // with tracePrefix; a clone's is two blanks longer
};

// Whether `subject` was signed with `issuer`'s key. Unequal key identifiers answer without cryptography.
bool IsSignedBy(const CertRecord& subject, const CertRecord& issuer);
bool IsCrlSignedBy(const CrlRecord& crl, const CertRecord& issuer);
bool IsSelfSigned(const CertRecord& record);
bool IsSelfIssued(const CertRecord& record);
// Whether a certificate made at `moment` falls into the issuer's key period; always true unless StrictPkupCheck is on.
bool IsInKeyPeriod(const FILETIME& moment, const CertRecord& issuer);

// Whether StrictPkupCheck is on: by the configuration, or by what a program wrote into _strictPkupCheck.
bool IsKeyPeriodTested();

}  // namespace certkern

#endif
