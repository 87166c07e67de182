// The validation of a whole path, from the root to the end certificate: RFC 5280, 6.1, without name constraints, policy
// mapping, inhibitAnyPolicy and the test for critical extensions, and with a second tree for application policies. The
// first fault ends it.
#include <algorithm>
#include <cassert>
#include <cstring>

#include "certkern/chain/cert_facts.h"
#include "certkern/chain/chain_builder.h"
#include "certkern/chain/policy_tree.h"
#include "store/certificate_primitives.h"

namespace certkern {
namespace {

constexpr BYTE kKeyCertSign = 0x04;  // in the first byte of the key usage

using PolicyList = std::vector<std::string_view>;

PolicyList PoliciesOf(const CERT_POLICIES_INFO& info) {
  PolicyList policies;
  for (const CERT_POLICY_INFO& each : AsSpan(info.rgPolicyInfo, info.cPolicyInfo)) {
    policies.emplace_back(each.pszPolicyIdentifier);
  }
  return policies;
}

PolicyList PurposesOf(const CERT_ENHKEY_USAGE& usage) {
  const auto purposes = AsSpan(usage.rgpszUsageIdentifier, usage.cUsageIdentifier);
  return {purposes.begin(), purposes.end()};
}

bool HasEntries(const CERT_POLICIES_INFO* info) { return info && info->cPolicyInfo; }

// Application policies, where there are any, stand in for key purposes.
PolicyList ApplPoliciesOf(const CertFacts& facts) {
  if (HasEntries(facts.applPolicies.get())) return PoliciesOf(*facts.applPolicies);
  return facts.extendedKeyUsage ? PurposesOf(*facts.extendedKeyUsage) : PolicyList();
}

// All of the requested purposes, or one of them; a certificate without the extension has all.
bool HasUsage(const CertFacts& facts, const CERT_USAGE_MATCH& match) {
  if (!facts.extendedKeyUsage) return true;
  PolicyList own = PurposesOf(*facts.extendedKeyUsage);
  std::ranges::sort(own);
  const auto isOwn = [&own](LPCSTR purpose) {
    return purpose && std::ranges::binary_search(own, std::string_view(purpose));
  };
  const auto wanted = AsSpan(match.Usage.rgpszUsageIdentifier, match.Usage.cUsageIdentifier);
  if (wanted.size() != match.Usage.cUsageIdentifier) return false;
  return match.dwType == USAGE_MATCH_TYPE_AND ? std::ranges::all_of(wanted, isOwn)
                                              : std::ranges::any_of(wanted, isOwn);
}

void LowerTo(DWORD& counter, DWORD bound) { counter = std::min(counter, bound); }
void CountDown(DWORD& counter) {
  if (counter) --counter;
}

// One pass over the chain of a builder. Each step answers false when it has recorded a fault.
class ValidationPass {
 public:
  explicit ValidationPass(ChainBuilder& builder);
  bool run();

 private:
  bool checkNode(ChainNode& node, ChainNode& issuer);
  bool checkLink(ChainNode& node, const ChainNode& issuer);
  bool checkDeferredSignature(ChainNode& node, const CertRecord& issuer);
  bool checkPolicies(ChainNode& node);
  bool growTrees(const CertFacts& facts);
  bool growApplTree(const CertFacts& facts, const PolicyList& policies);
  bool checkEmptiness(ChainNode& node);
  void keepPolicies(ChainNode& node);
  bool checkUsage(ChainNode& node);
  bool checkCa(ChainNode& node);
  bool isFirst(const ChainNode& node) const { return &node == &builder_.chain.front(); }
  bool isLast(const ChainNode& node) const { return &node == &builder_.chain.back(); }
  bool fail(DWORD status, const ChainNode* node);

  ChainBuilder& builder_;
  const ChainTrace& trace_;
  PolicyBudget budget_;
  PolicyTree certPolicies_;
  PolicyTree applPolicies_;
  DWORD depth_ = 1;
  DWORD cert_explicit_policy_;
  DWORD appl_explicit_policy_;
  DWORD appl_any_policy_;
  DWORD max_path_length_;
};

ValidationPass::ValidationPass(ChainBuilder& builder)
    : builder_(builder),
      trace_(builder.trace),
      budget_(builder.budget->policyVisits),
      certPolicies_(kCertPolicyWords, trace_),
      applPolicies_(kApplPolicyWords, trace_),
      cert_explicit_policy_(static_cast<DWORD>(builder.chain.size() + 1)),
      appl_explicit_policy_(cert_explicit_policy_),
      appl_any_policy_(cert_explicit_policy_),
      max_path_length_(static_cast<DWORD>(builder.chain.size())) {}

bool ValidationPass::fail(DWORD status, const ChainNode* node) {
  builder_.recordPathError(status, node);
  return false;
}

bool ValidationPass::run() {
  trace_.line("Verifing chain....");
  trace_.line(" initial oid = ", kAnyPolicy);
  builder_.chainError = CERT_TRUST_NO_ERROR;
  for (ChainNode& node : builder_.chain) node = {node.record, CERT_TRUST_NO_ERROR, {}, {}};
  ChainNode* workingIssuer = &builder_.chain.front();
  for (ChainNode& node : builder_.chain) {
    if (!checkNode(node, *workingIssuer)) return false;
    workingIssuer = &node;
    ++depth_;
  }
  return true;
}

bool ValidationPass::checkNode(ChainNode& node, ChainNode& issuer) {
  trace_.line(uint64_t{depth_}, ". Verifing chain item:");
  trace_.certificate(node.record->context.get());
  const auto& verified = node.record->verifiedIssuers;
  if (std::ranges::find(verified, issuer.record) == verified.end() && !checkLink(node, issuer)) return false;
  if (!node.record->trusted && !builder_.checkRevocation(node, issuer)) return false;
  if (!checkPolicies(node)) return false;
  if (!IsSelfIssued(*node.record)) {
    CountDown(cert_explicit_policy_);
    CountDown(appl_explicit_policy_);
    CountDown(appl_any_policy_);
  }
  return isLast(node) ? checkUsage(node) : checkCa(node);
}

// The root has no link: the search knows that it is self-signed.
bool ValidationPass::checkLink(ChainNode& node, const ChainNode& issuer) {
  const CertRecord& cert = *node.record;
  if (!isFirst(node) && !checkDeferredSignature(node, *issuer.record)) return false;
  if (!builder_.isTimeValid(cert.info())) {
    trace_.line("  Certificate is not time valid.");
    return fail(CERT_TRUST_IS_NOT_TIME_VALID, &node);
  }
  if (isFirst(node) || cert.facts->issuer.equals(issuer.record->facts->subject)) return true;
  trace_.line("  The certificate issuer name is not the working_issuer_name.");
  return fail(CERT_TRUST_IS_PARTIAL_CHAIN, nullptr);
}

bool ValidationPass::checkDeferredSignature(ChainNode& node, const CertRecord& issuer) {
  if (!builder_.hasFlag(CERT_CHAIN_DISABLE_PASS1_QUALITY_FILTERING)) return true;
  if (!IsInKeyPeriod(node.record->info().NotBefore, issuer)) return fail(CERT_TRUST_IS_NOT_TIME_VALID, &node);
  const SignatureVerdict verdict = SignatureBy(issuer, *node.record, *builder_.budget);
  if (verdict == SignatureVerdict::NotAffordable) return builder_.passOver();
  return verdict == SignatureVerdict::Good || fail(CERT_TRUST_IS_NOT_SIGNATURE_VALID, &node);
}

bool ValidationPass::checkPolicies(ChainNode& node) {
  if (!growTrees(*node.record->facts)) {
    trace_.line("  Too many policies.");
    return fail(CERT_TRUST_IS_NOT_VALID_FOR_USAGE, &node);
  }
  if (!checkEmptiness(node)) return false;
  keepPolicies(node);
  return true;
}

bool ValidationPass::growTrees(const CertFacts& facts) {
  const PolicyList applPolicies = ApplPoliciesOf(facts);
  if (!facts.certPolicies) {
    certPolicies_.addEmptyLevel();
  } else if (!certPolicies_.addPolicies(PoliciesOf(*facts.certPolicies), budget_)) {
    return false;
  }
  if (!growApplTree(facts, applPolicies)) return false;
  certPolicies_.traceLevels();
  applPolicies_.traceLevels();
  return (!facts.certPolicies || certPolicies_.prune(budget_))
      && (applPolicies.empty() || applPolicies_.prune(budget_));
}

bool ValidationPass::growApplTree(const CertFacts& facts, const PolicyList& policies) {
  if (!policies.empty()) {
    trace_.line("Certificate have", HasEntries(facts.applPolicies.get()) ? " appl policy." : " EKU.");
    return applPolicies_.addPolicies(policies, budget_);
  }
  if (!appl_any_policy_) {
    applPolicies_.addEmptyLevel();
    return true;
  }
  trace_.line(" No extension. Create new leaf depth", uint64_t{depth_});
  return applPolicies_.addAnyPolicy(budget_);
}

bool ValidationPass::checkEmptiness(ChainNode& node) {
  if (!cert_explicit_policy_ && !certPolicies_.newest().size()) {
    trace_.line("  Intermediate certificate has no allowed policy and cert_explicit_policy <=0");
    return fail(CERT_TRUST_IS_NOT_VALID_FOR_USAGE, &node);
  }
  if (!appl_explicit_policy_ && !applPolicies_.newest().size()) {
    trace_.line("  Intermediate certificate has no allowed appl_policy and appl_explicit_policy <=0");
    return fail(CERT_TRUST_IS_NOT_VALID_FOR_USAGE, &node);
  }
  return true;
}

void ValidationPass::keepPolicies(ChainNode& node) {
  const PolicyList cert = certPolicies_.policies();
  const PolicyList appl = applPolicies_.policies();
  node.certPolicies.assign(cert.begin(), cert.end());
  node.applPolicies.assign(appl.begin(), appl.end());
}

bool ValidationPass::checkUsage(ChainNode& node) {
  const CERT_USAGE_MATCH* const match = builder_.requestedUsage;
  if (!match || !match->Usage.cUsageIdentifier || HasUsage(*node.record->facts, *match)) return true;
  trace_.line("  extKeyUsage not appropriate");
  return fail(CERT_TRUST_IS_NOT_VALID_FOR_USAGE, &node);
}

// What a certificate must be that others stand below.
bool ValidationPass::checkCa(ChainNode& node) {
  const CertFacts& facts = *node.record->facts;
  const auto lowerByPolicy = [](DWORD& counter, const CERT_POLICY_CONSTRAINTS_INFO* constraints) {
    if (constraints && constraints->fRequireExplicitPolicy)
      LowerTo(counter, constraints->dwRequireExplicitPolicySkipCerts);
  };
  lowerByPolicy(cert_explicit_policy_, facts.policyConstraints.get());
  lowerByPolicy(appl_explicit_policy_, facts.applPolicyConstraints.get());
  if (!facts.basicConstraints || facts.basicConstraints->fCA != TRUE) {
    trace_.line("  Intermediate certificate has no basicConstraints extension.");
    return fail(CERT_TRUST_INVALID_BASIC_CONSTRAINTS, &node);
  }
  if (!max_path_length_) {
    trace_.line("  max_path_length == 0");
    return fail(CERT_TRUST_INVALID_BASIC_CONSTRAINTS, &node);
  }
  --max_path_length_;
  if (facts.basicConstraints->fPathLenConstraint == TRUE)
    LowerTo(max_path_length_, facts.basicConstraints->dwPathLenConstraint);
  const CRYPT_BIT_BLOB* const usage = facts.keyUsage.get();
  if (!usage || !usage->cbData || (usage->pbData[0] & kKeyCertSign)) return true;
  trace_.line("  keyCertSign is not set");
  return fail(CERT_TRUST_IS_NOT_VALID_FOR_USAGE, &node);
}

}  // namespace

bool ChainBuilder::validatePath() {
  assert(!chain.empty() && "an empty path would be a valid one");
  return !chain.empty() && ValidationPass(*this).run();
}

bool ChainBuilder::isTimeValid(const CERT_INFO& certificate) const {
  return CompareWithValidity(checkTime, certificate) == 0;
}

}  // namespace certkern
