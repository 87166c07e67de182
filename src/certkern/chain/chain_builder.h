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
#include "certkern/chain/user_stores.h"
#include "platform/limits.h"

namespace certkern {

// A store that is searched.
struct StoreRef {
  StoreOwner store;
  bool trusted = false;
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

// Budgets that all builds and clones of one call share, so that hostile certificates can't multiply work.
struct BuildBudget {
  uint32_t candidateSteps = 0;     // taken, at most kMaxChainCandidateSteps
  uint32_t candidateLooks = 0;     // taken, at most kMaxChainCandidateLooks
  uint32_t verificationUnits = 0;  // spent, at most kMaxChainVerificationUnits
  uint32_t wireRetrievals = 0;     // taken, at most kMaxChainRetrievals
  uint32_t crlSteps = 0;           // taken, at most kMaxChainCrlSteps
  uint64_t policyVisits = 0;       // to nodes of policy trees, at most kMaxPolicyVisits
  uint64_t wireMs = 0;             // spent on the network, at most what is configured
  bool passedOver = false;         // somebody was not tried who may be the issuer, as the rest was spent
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
  ChainBuilder() : ChainBuilder(std::make_shared<BuildBudget>()) {}
  explicit ChainBuilder(std::shared_ptr<BuildBudget> shared);
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
  // A candidate can't be paid for: false, and nothing is recorded, as nobody knows.
  bool passOver();
  // A signature is no bad one as long as some who may have made it were not tried: the best failure is then that no issuer
  // was found.
  void withdrawRefusal();
  bool isWireAllowed() const;
  // Those of a valid path that came by URL go into the user's store. Of any other path they would stand in the way of later
  // builds: every holder of a certificate can sign more of them, in any authority's name.
  void keepWireIssuers();
  // Milliseconds for the next look-up in the cache, and for the next retrieval by network; 0: none is left.
  uint64_t retrievalBudget() const;
  uint64_t wireBudget() const;
  // What a retrieval took, which counts in accumulative mode; by network it always counts.
  void addRetrievalTime(uint64_t milliseconds);
  void addWireTime(uint64_t milliseconds);

  // --- Validation (path_validation.cpp) ---
  bool validatePath();

  // --- Revocation (revocation.cpp) ---
  // False: the status is recorded at the node.
  bool checkRevocation(ChainNode& node, ChainNode& issuer);

  // A store of the user's by its name; null: there is none. Throws CryptException when it is there and can't be had. A build
  // looks at each file once; the store is shared, so that a build of another thread may bring it up to date meanwhile.
  HCERTSTORE userStore(UserStoreName name);

  bool isTimeValid(const CERT_INFO& certificate) const;  // at checkTime; bounds belong to it
  bool hasFlag(DWORD flag) const { return (flags & flag) != 0; }

  // In the order of searching, kept and free of doubles by addStore.
  std::vector<StoreRef> certStores;
  std::vector<StoreRef> crlStores;
  // Behind those that are there, trusted stores first: addresses would make verdicts depend on the allocator. Duplicates
  // the handle.
  static void addStore(std::vector<StoreRef>& stores, HCERTSTORE store, bool trusted);

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

 private:
  std::optional<StoreOwner> userRoots_, userAuthorities_;
};

// Whether the very certificate is there. Throws std::bad_alloc.
bool IsInStore(HCERTSTORE store, PCCERT_CONTEXT certificate);

// What is known of a signature and a key. Only Good and Bad follow from the bytes and are remembered.
enum class SignatureVerdict {
  Good,
  Bad,
  OtherKey,      // by the key identifiers; no cryptography was asked
  Failed,        // this time
  NotAffordable  // the budget of the build, or of the message that the key came with, is spent
};
// Whether the subject was signed with the issuer's key. Unequal key identifiers answer without cryptography.
SignatureVerdict SignatureBy(const CertRecord& issuer, const CertRecord& subject, BuildBudget& budget);
SignatureVerdict SignatureBy(const CertRecord& issuer, const CrlRecord& crl, BuildBudget& budget);
// The same whatever the identifiers say: an issuer that was certified again has the same key under another one.
SignatureVerdict SignatureByKeyOf(const CertRecord& issuer, const CrlRecord& crl, BuildBudget& budget);
bool IsSelfSigned(const CertRecord& record, BuildBudget& budget);
bool IsSelfIssued(const CertRecord& record);
// Whether a certificate made at `moment` falls into the issuer's key period; always true unless StrictPkupCheck is on.
bool IsInKeyPeriod(const FILETIME& moment, const CertRecord& issuer);

// Whether StrictPkupCheck is on: by the configuration, or by what a program wrote into _strictPkupCheck.
bool IsKeyPeriodTested();

}  // namespace certkern

#endif
