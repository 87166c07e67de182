// Judging finished chains by a policy.
#include <certkern/errors.h>
#include <certkern/policy.h>
#include <certkern/sv.h>

#include "api/frame.h"
#include "policy/application_usage.h"
#include "policy/chain_policy.h"
#include "store/context_record.h"

using certkern::ElementType;
using certkern::FindLiveContext;
using certkern::Frame;
using certkern::Maps;
using certkern::MessageGuarded;
using certkern::PolicyCall;
using certkern::Returns;

namespace {

// Whatever the policy: it can be judged, or the exception says why not.
template <auto Verify>
BOOL Judge(const Frame& frame, const PolicyCall& call) {
  frame.entry("(pszPolicyOID = %p, pChainContext = %p, pPolicyPara = %p, pPolicyStatus = %p)", call.oid,
              call.chain, call.para, call.status);
  Verify(call);
  return frame.result(TRUE);
}

}  // namespace

extern "C" {

BOOL CertVerifyCertificateChainPolicy(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                      PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                      PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
  return MessageGuarded<Maps<std::bad_alloc, ERROR_NOT_ENOUGH_MEMORY>>([&](Frame& frame) -> BOOL {
    return Judge<certkern::VerifyChainPolicy>(frame,
                                              {pszPolicyOID, pChainContext, pPolicyPara, pPolicyStatus});
  });
}

BOOL CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy(LPCSTR pszPolicyOID,
                                                              PCCERT_CHAIN_CONTEXT pChainContext,
                                                              PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                                              PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
  return MessageGuarded<Maps<std::bad_alloc, ERROR_NOT_ENOUGH_MEMORY>>([&](Frame& frame) -> BOOL {
    const BOOL judged = Judge<certkern::VerifyKeyPeriodPolicy>(
        frame, {pszPolicyOID, pChainContext, pPolicyPara, pPolicyStatus});
    certkern::TracePolicy("Finish. Returning TRUE.\n");
    return judged;
  });
}

BOOL PrivateKeyUsagePeriodImpl(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                               PCERT_CHAIN_POLICY_PARA pPolicyPara, PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
  return MessageGuarded<Maps<std::bad_alloc, ERROR_NOT_ENOUGH_MEMORY>>([&](Frame& frame) -> BOOL {
    return Judge<certkern::VerifyKeyPeriodPolicy>(frame,
                                                  {pszPolicyOID, pChainContext, pPolicyPara, pPolicyStatus});
  });
}

BOOL SSLImpl(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext, PCERT_CHAIN_POLICY_PARA pPolicyPara,
             PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
  return MessageGuarded<Maps<std::bad_alloc, ERROR_NOT_ENOUGH_MEMORY>>([&](Frame& frame) -> BOOL {
    return Judge<certkern::VerifySslPolicy>(frame, {pszPolicyOID, pChainContext, pPolicyPara, pPolicyStatus});
  });
}

DWORD IsValidByApplicationUsage(PCCERT_CONTEXT pCertContext, const CERT_ENHKEY_USAGE* pEffectiveUsage,
                                LPCSTR pszRequiredUsage, BOOL fRequireOwnExtension, BOOL fSingleUsage,
                                BOOL fUsageMustBeEffective, BOOL fRequireEffective) {
  // a caller asks for bits, so what could not be judged is not valid
  return MessageGuarded<Returns<SV_USAGE_NOT_VALID>, Maps<std::bad_alloc, ERROR_NOT_ENOUGH_MEMORY>>(
      [&](Frame& frame) -> DWORD {
        frame.entry("(pCertContext = %p, pEffectiveUsage = %p, pszRequiredUsage = %p)", pCertContext,
                    pEffectiveUsage, pszRequiredUsage);
        if (!FindLiveContext(pCertContext, ElementType::Certificate))
          return frame.failed(ERROR_INVALID_PARAMETER);
        const DWORD status =
            certkern::JudgeApplicationUsage(pCertContext, pEffectiveUsage,
                                            {.usage = pszRequiredUsage,
                                             .ownExtension = fRequireOwnExtension != FALSE,
                                             .single = fSingleUsage != FALSE,
                                             .mustBeEffective = fUsageMustBeEffective != FALSE,
                                             .requiresEffective = fRequireEffective != FALSE});
        return frame.result(status);
      });
}

}  // extern "C"
