/** CRLs and revocation: finding and judging CRLs, checking certificates, and the interface of a revocation library.
 *
 *  A site may name a library that judges revocation in place of the built-in CRL engine. It exports
 *  CertDllVerifyRevocation, a PFN_CERT_VERIFY_REVOCATION. */
#ifndef CERTKERN_REVOCATION_H
#define CERTKERN_REVOCATION_H

#include <certkern/chain.h>

CERTKERN_EXTERN_C_BEGIN

/** Finds the next CRL of an issuer in a store.
 *  @param pIssuerContext   whose CRL; NULL: any
 *  @param pPrevCrlContext  where to go on from; freed. NULL: from the start
 *  @param pdwFlags         in: what to check, CERT_STORE_SIGNATURE_FLAG, CERT_STORE_TIME_VALIDITY_FLAG,
 *                          CERT_STORE_BASE_CRL_FLAG, CERT_STORE_DELTA_CRL_FLAG; out: what does not hold, and
 *                          CERT_STORE_NO_ISSUER_FLAG when pIssuerContext is NULL
 *  @return a context to be freed; NULL when there is none, or on failure
 *  @errors CRYPT_E_NOT_FOUND: no more; E_INVALIDARG: pdwFlags is NULL; those of CertFindCRLInStore */
CERTKERN_API PCCRL_CONTEXT CertGetCRLFromStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pIssuerContext,
                                               PCCRL_CONTEXT pPrevCrlContext, DWORD* pdwFlags);

/** Tells if a moment lies between a CRL's ThisUpdate and NextUpdate, bounds included.
 *  @param pTimeToVerify  NULL: now
 *  @return -1 before, 1 after (always of a CRL without NextUpdate that has begun), 0 inside; 87 for a NULL pCrlInfo
 *  @errors ERROR_INVALID_PARAMETER: no CRL */
CERTKERN_API LONG CertVerifyCRLTimeValidity(LPFILETIME pTimeToVerify, PCRL_INFO pCrlInfo);

/** Tells if a CRL is meant for a certificate: it has no issuing distribution point, or one whose URLs meet those of the
 *  certificate's distribution points. RFC 5280, 5.2.5. Nothing is verified.
 *  @param dwFlags     not looked at
 *  @param pvReserved  not looked at
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: a null argument; CRYPT_E_NO_MATCH: no point, or none in common;
 *          CRYPT_E_ASN1_EOD: the CRL's point can't be read */
CERTKERN_API BOOL CertIsValidCRLForCertificate(PCCERT_CONTEXT pCert, PCCRL_CONTEXT pCrl, DWORD dwFlags,
                                               void* pvReserved);

/** dwRevType and dwFlags of CertVerifyRevocation and of a revocation library. */
#define CERT_CONTEXT_REVOCATION_TYPE 1
#define CERT_VERIFY_REV_CHAIN_FLAG 0x1u              /**< the contexts are one chain: the first is checked */
#define CERT_VERIFY_CACHE_ONLY_BASED_REVOCATION 0x2u /**< fetch nothing over the network */
#define CERT_VERIFY_REV_ACCUMULATIVE_TIMEOUT_FLAG 0x4u

/** What helps to judge. */
typedef struct _CERT_REVOCATION_PARA {
  DWORD cbSize; /**< fields beyond it don't exist */
  PCCERT_CONTEXT pIssuerCert;
  DWORD cCertStore;
  HCERTSTORE* rgCertStore; /**< searched for issuers */
  HCERTSTORE hCrlStore;
  LPFILETIME pftTimeToUse;     /**< NULL: now */
  DWORD dwUrlRetrievalTimeout; /**< milliseconds */
  BOOL fCheckFreshnessTime;
  DWORD dwFreshnessTime; /**< seconds */
  LPFILETIME pftCurrentTime;
  PCERT_REVOCATION_CRL_INFO pCrlInfo;
} CERT_REVOCATION_PARA, *PCERT_REVOCATION_PARA;
CERTKERN_RECORD_SIZE(CERT_REVOCATION_PARA, 80);
CERTKERN_FIELD_AT(CERT_REVOCATION_PARA, pftTimeToUse, 40);

/** The judgement. */
typedef struct _CERT_REVOCATION_STATUS {
  DWORD cbSize;
  DWORD dwIndex;  /**< the context that failed */
  DWORD dwError;  /**< why: an error code, or the error bits of its chain */
  DWORD dwReason; /**< CRL_REASON_... when revoked */
  BOOL fHasFreshnessTime;
  DWORD dwFreshnessTime; /**< seconds */
} CERT_REVOCATION_STATUS, *PCERT_REVOCATION_STATUS;
CERTKERN_RECORD_SIZE(CERT_REVOCATION_STATUS, 24);

/** Checks certificates: each one's whole chain is built, by the user's engine, with
 *  CERT_CHAIN_REVOCATION_CHECK_CHAIN, as of now.
 *  @param dwEncodingType  not looked at
 *  @param dwRevType       not looked at: the contexts are CERT_CONTEXT
 *  @param rgpvContext     cContext contexts
 *  @param dwFlags         CERT_VERIFY_REV_CHAIN_FLAG
 *  @param pRevPara        may be NULL; its stores are searched too, and no more of it is read
 *  @param pRevStatus      receives dwIndex and dwError on failure
 *  @return TRUE if all chains are good, or FALSE
 *  @errors E_INVALIDARG: no contexts, no status, a number of stores without stores; the error bits of the chain
 *          (CERT_TRUST_...); those of CertGetCertificateChain */
CERTKERN_API BOOL CertVerifyRevocation(DWORD dwEncodingType, DWORD dwRevType, DWORD cContext,
                                       PVOID rgpvContext[], DWORD dwFlags, PCERT_REVOCATION_PARA pRevPara,
                                       PCERT_REVOCATION_STATUS pRevStatus);

/** What a revocation library exports. TRUE: not revoked. FALSE with CRYPT_E_REVOKED: revoked; with any other last error:
 *  not to be found out. It is called with one certificate, its issuer and the moment, and unloaded afterwards. A chain
 *  that it builds meanwhile on the same thread is judged by the built-in engine. */
typedef BOOL (*PFN_CERT_VERIFY_REVOCATION)(DWORD dwEncodingType, DWORD dwRevType, DWORD cContext,
                                           PVOID rgpvContext[], DWORD dwFlags, PCERT_REVOCATION_PARA pRevPara,
                                           PCERT_REVOCATION_STATUS pRevStatus);

CERTKERN_EXTERN_C_END
#endif
