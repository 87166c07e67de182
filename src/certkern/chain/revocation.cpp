// The revocation step of path validation.
#include "certkern/chain/revocation.h"

#include <string_view>

#include "certkern/chain/chain_builder.h"
#include "certkern/chain/good_verdicts.h"

namespace certkern {
namespace {

constexpr DWORD kSelection = CERT_CHAIN_REVOCATION_CHECK_END_CERT | CERT_CHAIN_REVOCATION_CHECK_CHAIN
    | CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT;

std::string_view TextOf(RevocationStep step) {
  switch (step) {
    case RevocationStep::TestedCert:
      return "tested cert";
    case RevocationStep::MiddleCert:
      return "midle cert";
    case RevocationStep::RootCert:
      return "root cert";
    case RevocationStep::Check:
      break;
  }
  return {};
}

RevocationResult Decide(const ChainBuilder& builder, CertRecord& cert, const CertRecord& issuer) {
  if (const auto answer = AskRevocationLibrary(builder, cert, issuer)) return *answer;
  GoodVerdicts& verdicts = *builder.goodVerdicts;
  if (verdicts.has(cert, builder.revocationCycleGuard, builder.cloneDepth)) {
    builder.trace.line("  Certificate already verified at CRL.");
    return kNotRevoked;
  }
  // the signers of CRLs have CRLs of their own, whose signers have CRLs
  if (builder.cloneDepth >= kMaxRevocationClones) {
    verdicts.metTheBound();
    return kUndetermined;
  }
  return verdicts.decide(cert, [&] {
    ChainBuilder clone(builder, cert);
    return JudgeByCrls(clone, cert);
  });
}

}  // namespace

// One flag selects, and CHECK_END_CERT selects nothing.
RevocationStep SelectRevocationStep(DWORD flags, bool isFront, bool isBack) {
  const DWORD selection = flags & kSelection;
  if (!selection && isBack) return RevocationStep::TestedCert;
  if (selection == CERT_CHAIN_REVOCATION_CHECK_CHAIN) return RevocationStep::Check;
  if (isFront) return RevocationStep::RootCert;
  return selection == CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT ? RevocationStep::Check
                                                                     : RevocationStep::MiddleCert;
}

bool ChainBuilder::checkRevocation(ChainNode& node, ChainNode& issuer) {
  CertRecord& cert = *node.record;
  if (cert.crlChecked) {
    trace.line("  Certificate already verified at CRL.");
    return true;
  }
  const auto fail = [&](DWORD status, DWORD reason) {
    recordPathError(status, &node, reason);
    return false;
  };
  const bool isCircle = revocationCycleGuard.contains(&cert);
  goodVerdicts->met(cert, isCircle);
  if (isCircle) {
    trace.line("  Cycle detected while checking CRL.");
    return fail(CERT_TRUST_REVOCATION_STATUS_UNKNOWN, 0);
  }
  const RevocationStep step = SelectRevocationStep(flags, &node == &chain.front(), &node == &chain.back());
  if (step != RevocationStep::Check) {
    trace.line("  CRL not checked. Reason:", TextOf(step));
    return true;
  }
  const RevocationResult result = Decide(*this, cert, *issuer.record);
  if (result == kNotRevoked) return true;
  if (result == kUndetermined) return fail(CERT_TRUST_REVOCATION_STATUS_UNKNOWN, 0);
  return fail(CERT_TRUST_IS_REVOKED, result.reason);
}

}  // namespace certkern
