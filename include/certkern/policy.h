/** Chain policies: turning a finished chain into a yes or no for a purpose.
 *
 *  CertGetCertificateChain says what is the case; a policy says what to make of it. Four kinds exist: the base policy,
 *  the TLS policy, the private key usage period policy, and what a site configures under an identifier, a function of
 *  the type PFN_CERT_VERIFY_CHAIN_POLICY. */
#ifndef CERTKERN_POLICY_H
#define CERTKERN_POLICY_H

#include <certkern/chain.h>

CERTKERN_EXTERN_C_BEGIN

/** Policies. A number that isn't marked "served" is refused. */
#define CERT_CHAIN_POLICY_BASE ((LPCSTR)1) /**< served */
#define CERT_CHAIN_POLICY_AUTHENTICODE ((LPCSTR)2)
#define CERT_CHAIN_POLICY_AUTHENTICODE_TS ((LPCSTR)3)
#define CERT_CHAIN_POLICY_SSL ((LPCSTR)4) /**< served; SSL_EXTRA_CERT_CHAIN_POLICY_PARA is required */
#define CERT_CHAIN_POLICY_BASIC_CONSTRAINTS ((LPCSTR)5)
#define CERT_CHAIN_POLICY_NT_AUTH ((LPCSTR)6)
#define SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD \
  "{C03D5610-26C8-4B6F-9549-245B5B3AB743}" /**< served: all was signed within its signer's key period */

/** CERT_CHAIN_POLICY_PARA.dwFlags: what to overlook. A partial chain, a bad signature and a revocation never are. */
#define CERT_CHAIN_POLICY_IGNORE_NOT_TIME_VALID_FLAG 0x1u
#define CERT_CHAIN_POLICY_IGNORE_CTL_NOT_TIME_VALID_FLAG 0x2u
#define CERT_CHAIN_POLICY_IGNORE_NOT_TIME_NESTED_FLAG 0x4u
#define CERT_CHAIN_POLICY_IGNORE_ALL_NOT_TIME_VALID_FLAGS 0x7u /**< any of these overlooks the validity */
#define CERT_CHAIN_POLICY_IGNORE_INVALID_BASIC_CONSTRAINTS_FLAG 0x8u
#define CERT_CHAIN_POLICY_ALLOW_UNKNOWN_CA_FLAG 0x10u
#define CERT_CHAIN_POLICY_IGNORE_WRONG_USAGE_FLAG 0x20u
#define CERT_CHAIN_POLICY_IGNORE_INVALID_NAME_FLAG 0x40u
#define CERT_CHAIN_POLICY_IGNORE_INVALID_POLICY_FLAG 0x80u
#define CERT_CHAIN_POLICY_IGNORE_END_REV_UNKNOWN_FLAG 0x100u
#define CERT_CHAIN_POLICY_IGNORE_CTL_SIGNER_REV_UNKNOWN_FLAG 0x200u
#define CERT_CHAIN_POLICY_IGNORE_CA_REV_UNKNOWN_FLAG 0x400u
#define CERT_CHAIN_POLICY_IGNORE_ROOT_REV_UNKNOWN_FLAG 0x800u
#define CERT_CHAIN_POLICY_IGNORE_PEER_TRUST_FLAG 0x1000u
#define CERT_CHAIN_POLICY_IGNORE_NOT_SUPPORTED_CRITICAL_EXT_FLAG 0x2000u
#define CERT_CHAIN_POLICY_IGNORE_ALL_REV_UNKNOWN_FLAGS \
  0xF00u /**< any of these overlooks an unknown revocation */
#define CERT_CHAIN_POLICY_TRUST_TESTROOT_FLAG 0x4000u
#define CERT_CHAIN_POLICY_ALLOW_TESTROOT_FLAG 0x8000u
/** For SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD: don't test the end certificate's own period. */
#define SVCERT_CHAIN_POLICY_IGNORE_END_CERT_PERIOD_FLAG 0x10000u

/** How to judge. */
typedef struct _CERT_CHAIN_POLICY_PARA {
  DWORD cbSize;
  DWORD dwFlags;           /**< CERT_CHAIN_POLICY_..._FLAG */
  void* pvExtraPolicyPara; /**< by policy; NULL where none is required */
} CERT_CHAIN_POLICY_PARA, *PCERT_CHAIN_POLICY_PARA;
CERTKERN_RECORD_SIZE(CERT_CHAIN_POLICY_PARA, 16);

/** The judgement. */
typedef struct _CERT_CHAIN_POLICY_STATUS {
  DWORD cbSize;
  DWORD dwError;             /**< 0, or why not: CERT_E_..., TRUST_E_..., CRYPT_E_REVOKED */
  LONG lChainIndex;          /**< -1, or 0 */
  LONG lElementIndex;        /**< -1, or 0 for the end certificate */
  void* pvExtraPolicyStatus; /**< by policy; may be NULL */
} CERT_CHAIN_POLICY_STATUS, *PCERT_CHAIN_POLICY_STATUS;
CERTKERN_RECORD_SIZE(CERT_CHAIN_POLICY_STATUS, 24);

/** Values of dwAuthType, and bits of fdwChecks. */
#define AUTHTYPE_CLIENT 1 /**< the chain is a client's, for the eyes of a server */
#define AUTHTYPE_SERVER 2 /**< the chain is a server's */
#define SECURITY_FLAG_IGNORE_REVOCATION 0x80u
#define SECURITY_FLAG_IGNORE_UNKNOWN_CA 0x100u
#define SECURITY_FLAG_IGNORE_WRONG_USAGE 0x200u
#define SECURITY_FLAG_IGNORE_CERT_CN_INVALID 0x1000u   /**< don't compare the server name */
#define SECURITY_FLAG_IGNORE_CERT_DATE_INVALID 0x2000u /**< don't test the private key usage period */

/** pvExtraPolicyPara of CERT_CHAIN_POLICY_SSL. */
typedef struct _HTTPSPolicyCallbackData {
  union {
    DWORD cbStruct;
    DWORD cbSize;
  };
  DWORD dwAuthType;
  DWORD fdwChecks;
  WCHAR* pwszServerName; /**< host name or dotted address; NULL: not compared. RFC 6125, 6.4 */
} HTTPSPolicyCallbackData, *PHTTPSPolicyCallbackData, SSL_EXTRA_CERT_CHAIN_POLICY_PARA,
    *PSSL_EXTRA_CERT_CHAIN_POLICY_PARA;
CERTKERN_RECORD_SIZE(SSL_EXTRA_CERT_CHAIN_POLICY_PARA, 24);

/** pvExtraPolicyPara of SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD. */
typedef struct _SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA {
  DWORD cbSize;
  LPFILETIME pTime; /**< when the end certificate's key was used; NULL: now */
} SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA, *PSV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA;
CERTKERN_RECORD_SIZE(SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA, 16);

/** Bits of SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS.dwError. */
#define SV_KEY_PERIOD_ERROR_CERT_OR_BASE_CRL \
  0x1u /**< a certificate or base CRL was made outside its issuer's period */
#define SV_KEY_PERIOD_ERROR_DELTA_CRL 0x2u /**< a delta CRL was */

/** pvExtraPolicyStatus of SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD. Where it is given, what this policy finds goes
 *  here, and the plain status tells of the base policy alone. */
typedef struct _SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS {
  DWORD cbSize;
  DWORD dwError;
  LONG lChainIndex;   /**< where; -1 when nowhere */
  LONG lElementIndex; /**< where; -1 when nowhere */
} SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS, *PSV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS;
CERTKERN_RECORD_SIZE(SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS, 16);

/** The function of a policy: judges, writes pPolicyStatus and answers TRUE; FALSE only if it could not judge. */
typedef BOOL (*PFN_CERT_VERIFY_CHAIN_POLICY)(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                             PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                             PCERT_CHAIN_POLICY_STATUS pPolicyStatus);

/** Judges a chain by a policy.
 *  @param pszPolicyOID   CERT_CHAIN_POLICY_..., or text: the private key usage period policy, or one that is configured
 *  @param pPolicyPara    required, but for SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD
 *  @param pPolicyStatus  receives the judgement
 *  @return TRUE if it could be judged, whatever the judgement; FALSE otherwise
 *  @errors ERROR_FILE_NOT_FOUND: no such policy; ERROR_DLL_INIT_FAILED: its library or function can't be had;
 *          ERROR_INVALID_PARAMETER: a record of the wrong size */
CERTKERN_API BOOL CertVerifyCertificateChainPolicy(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                                   PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                                   PCERT_CHAIN_POLICY_STATUS pPolicyStatus);

/** The private key usage period policy, under the name by which others plug it in; as CertVerifyCertificateChainPolicy
 *  with SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD. RFC 3280, 4.2.1.4. */
CERTKERN_API BOOL CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy(
    LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext, PCERT_CHAIN_POLICY_PARA pPolicyPara,
    PCERT_CHAIN_POLICY_STATUS pPolicyStatus);

CERTKERN_EXTERN_C_END
#endif
