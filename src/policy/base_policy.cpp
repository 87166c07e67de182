#include "policy/base_policy.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include "oid/built_in_functions.h"

namespace certkern {

DWORD JudgeTrustStatus(DWORD errorStatus, DWORD flags) {
  struct Row {
    DWORD bit;
    DWORD overlooked;  // by any of these flags
    DWORD code;
  };
  static constexpr Row kRows[] = {
      {CERT_TRUST_IS_PARTIAL_CHAIN,          0,                                                       CERT_E_CHAINING       },
      {CERT_TRUST_IS_NOT_SIGNATURE_VALID,    0,                                                       TRUST_E_CERT_SIGNATURE},
      {CERT_TRUST_IS_NOT_TIME_VALID,         CERT_CHAIN_POLICY_IGNORE_ALL_NOT_TIME_VALID_FLAGS,       CERT_E_EXPIRED        },
      {CERT_TRUST_IS_REVOKED,                0,                                                       CRYPT_E_REVOKED       },
      {CERT_TRUST_IS_NOT_VALID_FOR_USAGE,    CERT_CHAIN_POLICY_IGNORE_WRONG_USAGE_FLAG,               CERT_E_WRONG_USAGE    },
      {CERT_TRUST_IS_UNTRUSTED_ROOT,         CERT_CHAIN_POLICY_ALLOW_UNKNOWN_CA_FLAG,                 CERT_E_UNTRUSTEDROOT  },
      {CERT_TRUST_INVALID_BASIC_CONSTRAINTS, CERT_CHAIN_POLICY_IGNORE_INVALID_BASIC_CONSTRAINTS_FLAG,
       TRUST_E_BASIC_CONSTRAINTS                                                                                            },
      {CERT_TRUST_REVOCATION_STATUS_UNKNOWN, CERT_CHAIN_POLICY_IGNORE_ALL_REV_UNKNOWN_FLAGS,
       CERT_E_REVOCATION_FAILURE                                                                                            },
  };
  for (const Row& row : kRows) {
    if ((errorStatus & row.bit) && !(flags & row.overlooked)) return row.code;
  }
  return ERROR_SUCCESS;
}

BOOL VerifyBasePolicy(LPCSTR, PCCERT_CHAIN_CONTEXT chain, PCERT_CHAIN_POLICY_PARA para,
                      PCERT_CHAIN_POLICY_STATUS status) {
  if (!chain || !para || !status) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  status->cbSize = sizeof *status;
  status->lChainIndex = status->lElementIndex = -1;  // where is not told
  status->dwError = JudgeTrustStatus(chain->TrustStatus.dwErrorStatus, para->dwFlags);
  return TRUE;
}

}  // namespace certkern
