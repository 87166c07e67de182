// The search for a path: depth first, the best candidate first, until a trusted self-signed certificate is at the front
// and the whole path is good.
#include <certkern/encode.h>
#include <certkern/find.h>
#include <certkern/url.h>

#include <algorithm>

#include "certkern/chain/attempt.h"
#include "certkern/chain/cert_facts.h"
#include "certkern/chain/issuer_search.h"
#include "certkern/chain/trust_status.h"

namespace certkern {
namespace {

class PathSearch {
 public:
  explicit PathSearch(ChainBuilder& builder) : builder_(builder), chain_(builder.chain) {}

  // Completes the path above its front; false: no way up is good.
  bool findPath();

 private:
  bool isUsedUp(const CertRecord& record) const;
  bool isSpent() const;
  bool endAtRoot(const CertRecord& root);
  bool tryIssuers(const CertRecord& subject);
  bool tryKnown(const IssuerKey& key, const std::vector<std::string>& urls,
                std::vector<std::string>& uncached);
  bool tryWire(const IssuerKey& key, const std::vector<std::string>& urls);
  bool tryCandidates(const std::vector<IssuerCandidate>& candidates);
  bool tryCandidate(CertRecord& issuer);
  bool passOver(CertRecord& stranger);
  bool isLinked(const CertRecord& subject, const CertRecord& issuer);

  ChainBuilder& builder_;
  Chain& chain_;
};

// The caller has a chain to this root already.
bool PathSearch::isUsedUp(const CertRecord& record) const {
  return builder_.usedStore && IsInStore(builder_.usedStore, record.context.get());
}

bool PathSearch::isSpent() const {
  BuildBudget& budget = *builder_.budget;
  const bool spent = chain_.size() >= kMaxChainNodes || budget.candidateSteps >= kMaxChainCandidateSteps
      || budget.candidateLooks >= kMaxChainCandidateLooks;
  budget.passedOver = budget.passedOver || spent;
  return spent;
}

bool PathSearch::endAtRoot(const CertRecord& root) {
  if (isUsedUp(root)) {
    builder_.trace.line("Certificate was already used during chain building.");
    return false;
  }
  if (!root.trusted) {
    builder_.recordPathError(CERT_TRUST_IS_UNTRUSTED_ROOT, &chain_.front());
    return false;
  }
  const bool valid = builder_.validatePath();
  if (valid) builder_.keepWireIssuers();
  builder_.trace.line(valid ? "Build chain is valid." : "Build chain is not valid.");
  return valid;
}

bool PathSearch::findPath() {
  const CertRecord& record = *chain_.front().record;
  builder_.trace.line(chain_.size(), ".Find path for:");
  builder_.trace.certificate(record.context.get());
  if (IsSelfSigned(record, *builder_.budget)) return endAtRoot(record);
  if (tryIssuers(record)) return true;
  builder_.recordPathError(CERT_TRUST_IS_PARTIAL_CHAIN, nullptr);
  builder_.trace.line("There is no valid issuer.");
  return false;
}

bool PathSearch::tryIssuers(const CertRecord& subject) {
  if (isSpent()) return false;
  const IssuerKey key = IssuerKeyOf(subject);
  std::vector<std::string> uncached;
  if (tryKnown(key, IssuerUrls(subject), uncached)) return true;
  return builder_.isWireAllowed() && tryWire(key, uncached);
}

bool PathSearch::tryKnown(const IssuerKey& key, const std::vector<std::string>& urls,
                          std::vector<std::string>& uncached) {
  IssuerCandidates candidates(key, chain_, *builder_.budget);
  builder_.findIssuers(key, candidates);
  for (const std::string& url : urls) {
    if (!builder_.loadUrl(url, candidates, CRYPT_CACHE_ONLY_RETRIEVAL)) uncached.push_back(url);
  }
  if (!urls.empty()) {
    builder_.trace.line("AIA urls ", urls.size(), ". Not found in cache ", uncached.size());
  }
  return tryCandidates(candidates.take());
}

bool PathSearch::tryWire(const IssuerKey& key, const std::vector<std::string>& urls) {
  for (const std::string& url : urls) {
    if (isSpent()) return false;
    IssuerCandidates candidates(key, chain_, *builder_.budget);
    if (!builder_.loadUrl(url, candidates, CRYPT_WIRE_ONLY_RETRIEVAL)) {
      builder_.trace.line("Can't load ", url);
    } else if (tryCandidates(candidates.take())) {
      return true;
    }
  }
  return false;
}

bool PathSearch::tryCandidates(const std::vector<IssuerCandidate>& candidates) {
  const size_t height = chain_.size();
  for (const IssuerCandidate& each : candidates) {
    if (isSpent()) return false;
    if (Attempt(builder_.trace, "verify_step_check", [&] {
          ++builder_.budget->candidateLooks;
          if (!each.named) return passOver(*each.record);
          // a certificate seen before can't complete a path, unless it ends one
          if (each.repeated && !IsSelfSigned(*each.record, *builder_.budget)) return false;
          return tryCandidate(*each.record);
        })) {
      return true;
    }
    while (chain_.size() > height) chain_.pop_front();
  }
  return false;
}

bool PathSearch::tryCandidate(CertRecord& issuer) {
  const CertRecord& subject = *chain_.front().record;
  chain_.push_front({&issuer, CERT_TRUST_NO_ERROR, {}, {}});
  const auto& verified = subject.verifiedIssuers;
  if (std::ranges::find(verified, &issuer) == verified.end() && !isLinked(subject, issuer)) return false;
  ++builder_.budget->candidateSteps;
  return findPath();
}

// Whatever stood above it, the names would not chain; so nothing is verified with a key that anybody may have brought.
bool PathSearch::passOver(CertRecord& stranger) {
  chain_.push_front({&stranger, CERT_TRUST_NO_ERROR, {}, {}});
  builder_.trace.line("  The certificate issuer name is not the working_issuer_name.");
  builder_.recordPathError(CERT_TRUST_IS_PARTIAL_CHAIN, nullptr);
  return false;
}

bool PathSearch::isLinked(const CertRecord& subject, const CertRecord& issuer) {
  const auto refuse = [this](DWORD status) {
    builder_.recordPathError(status, &chain_.front());
    return false;
  };
  if (!builder_.isTimeValid(issuer.info())) {
    builder_.trace.line("  Certificate is not time valid.");
    return refuse(CERT_TRUST_IS_NOT_TIME_VALID);
  }
  if (builder_.hasFlag(CERT_CHAIN_DISABLE_PASS1_QUALITY_FILTERING)) return true;
  if (!IsInKeyPeriod(subject.info().NotBefore, issuer)) return refuse(CERT_TRUST_IS_NOT_TIME_VALID);
  const SignatureVerdict verdict = SignatureBy(issuer, subject, *builder_.budget);
  if (verdict == SignatureVerdict::NotAffordable) return builder_.passOver();
  return verdict == SignatureVerdict::Good || refuse(CERT_TRUST_IS_NOT_SIGNATURE_VALID);
}

}  // namespace

bool ChainBuilder::verifyCertificate(CertRecord& record) {
  const size_t height = chain.size();
  if (Attempt(trace, "verify_certificate_prt", [&] {
        chain.push_front({&record, CERT_TRUST_NO_ERROR, {}, {}});
        return PathSearch(*this).findPath();
      })) {
    return true;
  }
  while (chain.size() > height) chain.pop_front();
  withdrawRefusal();
  return false;
}

bool ChainBuilder::passOver() {
  budget->passedOver = true;
  return false;
}

void ChainBuilder::withdrawRefusal() {
  if (!budget->passedOver || !bestError || bestError->chainError != CERT_TRUST_IS_NOT_SIGNATURE_VALID) return;
  bestError->chainError = CERT_TRUST_IS_PARTIAL_CHAIN;
  Chain& path = bestError->chain;
  if (path.size() > 1 && path.front().errorStatus) path.pop_front();  // who has not issued
  for (ChainNode& node : path) node.errorStatus = CERT_TRUST_NO_ERROR;
}

void ChainBuilder::recordPathError(DWORD status, const ChainNode* node, DWORD reason) {
  if (isCrlSubcheck) return;
  if (bestError && CompareTrustStatus(status, bestError->chainError) <= 0) return;
  ChainSnapshot snapshot{chain, status, reason};
  // the nodes of the search itself stay clean: a failed branch says nothing about the next one
  auto copy = snapshot.chain.begin();
  for (const ChainNode& each : chain) {
    if (&each == node) copy->errorStatus = status;
    ++copy;
  }
  bestError = std::move(snapshot);
}

}  // namespace certkern
