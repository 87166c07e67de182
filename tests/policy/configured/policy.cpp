// Policies of a site, for the test.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/policy.h>

extern "C" CERTKERN_API BOOL FindsFault(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA,
                                        PCERT_CHAIN_POLICY_STATUS pPolicyStatus) {
  pPolicyStatus->dwError = CERT_E_PURPOSE;
  return TRUE;
}

extern "C" CERTKERN_API BOOL CannotJudge(LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA,
                                         PCERT_CHAIN_POLICY_STATUS) {
  SetLastError(ERROR_MORE_DATA);
  return FALSE;
}
