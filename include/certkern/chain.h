/** Certificate chains: engines, building, and what a finished chain tells.
 *
 *  CertGetCertificateChain searches a path from a certificate to a self-signed one in a trusted store, validates it
 *  from the root down (RFC 5280, 6.1) and answers a chain context, which belongs to the caller and needs neither engine
 *  nor stores any more. A context that carries an error is still a success of the call.
 *
 *  What is particular here: validation stops at the first fault, so a chain carries one error bit at most, and of all
 *  failing paths the best is answered; info bits are never set; there is one simple chain per context; name constraints,
 *  policy mappings, inhibitAnyPolicy and unknown critical extensions are not looked at. Revocation is judged by CRLs.
 *  An engine may be used by several threads, and so may a chain context, which nothing changes any more. */
#ifndef CERTKERN_CHAIN_H
#define CERTKERN_CHAIN_H

#include <certkern/find.h>

CERTKERN_EXTERN_C_BEGIN

/* --- Engines --- */

/** The engine of the current user: NULL, over the system stores "Root" and "CA". */
#define HCCE_CURRENT_USER ((HCERTCHAINENGINE)NULL)

/** What an engine searches. Stores may be NULL; the engine takes its own counts on them. */
typedef struct _CERT_CHAIN_ENGINE_CONFIG {
  DWORD cbSize;                /**< fields beyond it don't exist */
  HCERTSTORE hRestrictedRoot;  /**< trusted, in place of "Root"; all of it must be in "Root" too */
  HCERTSTORE hRestrictedTrust; /**< searched, not trusted */
  HCERTSTORE hRestrictedOther; /**< searched, in place of "CA" */
  DWORD cAdditionalStore;
  HCERTSTORE* rghAdditionalStore;     /**< searched, not trusted */
  DWORD dwFlags;                      /**< kept for the published shape */
  DWORD dwUrlRetrievalTimeout;        /**< milliseconds; 0: as configured */
  DWORD MaximumCachedCertificates;    /**< kept for the published shape */
  DWORD CycleDetectionModulus;        /**< kept for the published shape */
  HCERTSTORE hExclusiveRoot;          /**< trusted, in place of all other roots */
  HCERTSTORE hExclusiveTrustedPeople; /**< NULL */
  DWORD dwExclusiveFlags;             /**< 0 */
} CERT_CHAIN_ENGINE_CONFIG, *PCERT_CHAIN_ENGINE_CONFIG;
CERTKERN_RECORD_SIZE(CERT_CHAIN_ENGINE_CONFIG, 88);
CERTKERN_FIELD_AT(CERT_CHAIN_ENGINE_CONFIG, dwUrlRetrievalTimeout, 52);
CERTKERN_FIELD_AT(CERT_CHAIN_ENGINE_CONFIG, hExclusiveRoot, 64);

/** Makes an engine.
 *  @param phChainEngine  receives it, for CertFreeCertificateChainEngine
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: no configuration or result, stores announced and not given;
 *          ERROR_CALL_NOT_IMPLEMENTED: hExclusiveTrustedPeople or dwExclusiveFlags; ERROR_INTERNAL_ERROR: "Root" can't be
 *          opened; ERROR_FILE_NOT_FOUND: hRestrictedRoot holds what is not in "Root"; ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API BOOL CertCreateCertificateChainEngine(PCERT_CHAIN_ENGINE_CONFIG pConfig,
                                                   HCERTCHAINENGINE* phChainEngine);
/** Frees an engine and gives its counts on stores back; NULL and the like of (HCERTCHAINENGINE)1 are allowed. Chains
 *  that it built live on. */
CERTKERN_API void CertFreeCertificateChainEngine(HCERTCHAINENGINE hChainEngine);
/** Does nothing: an engine keeps nothing that could grow stale. @return TRUE */
CERTKERN_API BOOL CertResyncCertificateChainEngine(HCERTCHAINENGINE hChainEngine);

/* --- What a chain tells --- */

/** Error bits of dwErrorStatus. Those marked (never) exist by name only. */
#define CERT_TRUST_NO_ERROR 0x0u
#define CERT_TRUST_IS_NOT_TIME_VALID \
  0x1u /**< outside its validity, or made outside the issuer's key period */
#define CERT_TRUST_IS_NOT_TIME_NESTED 0x2u /**< (never) */
#define CERT_TRUST_IS_REVOKED 0x4u
#define CERT_TRUST_IS_NOT_SIGNATURE_VALID 0x8u
#define CERT_TRUST_IS_NOT_VALID_FOR_USAGE 0x10u /**< requested usage, policies, keyCertSign */
#define CERT_TRUST_IS_UNTRUSTED_ROOT 0x20u      /**< self-signed and not from a trusted store */
#define CERT_TRUST_REVOCATION_STATUS_UNKNOWN 0x40u
#define CERT_TRUST_IS_CYCLIC 0x80u                     /**< (never) */
#define CERT_TRUST_INVALID_EXTENSION 0x100u            /**< (never) */
#define CERT_TRUST_INVALID_POLICY_CONSTRAINTS 0x200u   /**< (never) */
#define CERT_TRUST_INVALID_BASIC_CONSTRAINTS 0x400u    /**< an issuer that is no CA, or a path too long */
#define CERT_TRUST_INVALID_NAME_CONSTRAINTS 0x800u     /**< (never) */
#define CERT_TRUST_IS_OFFLINE_REVOCATION 0x1000000u    /**< (never) */
#define CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY 0x2000000u /**< (never) */
#define CERT_TRUST_IS_PARTIAL_CHAIN 0x10000u           /**< no issuer found, or names that don't chain */

/** Info bits of dwInfoStatus, which is always 0 here. */
#define CERT_TRUST_HAS_EXACT_MATCH_ISSUER 0x1u
#define CERT_TRUST_HAS_KEY_MATCH_ISSUER 0x2u
#define CERT_TRUST_HAS_NAME_MATCH_ISSUER 0x4u
#define CERT_TRUST_IS_SELF_SIGNED 0x8u
#define CERT_TRUST_IS_COMPLEX_CHAIN 0x10000u

typedef struct _CERT_TRUST_STATUS {
  DWORD dwErrorStatus;
  DWORD dwInfoStatus;
} CERT_TRUST_STATUS, *PCERT_TRUST_STATUS;
CERTKERN_RECORD_SIZE(CERT_TRUST_STATUS, 8);

/** The CRLs that a certificate was looked up in. */
typedef struct _CERT_REVOCATION_CRL_INFO {
  DWORD cbSize;
  PCCRL_CONTEXT pBaseCrlContext;
  PCCRL_CONTEXT pDeltaCrlContext; /**< NULL when none was used */
  PCRL_ENTRY pCrlEntry;           /**< NULL when not listed */
  BOOL fDeltaCrlEntry;            /**< the entry is the delta's */
} CERT_REVOCATION_CRL_INFO, *PCERT_REVOCATION_CRL_INFO;
CERTKERN_RECORD_SIZE(CERT_REVOCATION_CRL_INFO, 40);

/** What is known of a certificate's revocation. */
typedef struct _CERT_REVOCATION_INFO {
  DWORD cbSize;
  DWORD dwRevocationResult; /**< 0, CRYPT_E_REVOKED, or CRYPT_E_NO_REVOCATION_CHECK */
  LPCSTR pszRevocationOid;  /**< NULL */
  LPVOID pvOidSpecificInfo; /**< NULL */
  BOOL fHasFreshnessTime;
  DWORD dwFreshnessTime; /**< age of the oldest CRL used, seconds */
  PCERT_REVOCATION_CRL_INFO pCrlInfo;
} CERT_REVOCATION_INFO, *PCERT_REVOCATION_INFO;
CERTKERN_RECORD_SIZE(CERT_REVOCATION_INFO, 40);

/** One certificate of a chain. A list of usages has the identifiers that hold for the path down to here; it is NULL when none
 *  can be named: the path names none, allows any, or has none in common. */
typedef struct _CERT_CHAIN_ELEMENT {
  DWORD cbSize;
  PCCERT_CONTEXT pCertContext;
  CERT_TRUST_STATUS TrustStatus;
  PCERT_REVOCATION_INFO pRevocationInfo; /**< NULL when revocation was not asked for */
  PCERT_ENHKEY_USAGE pIssuanceUsage;     /**< certificate policies */
  PCERT_ENHKEY_USAGE pApplicationUsage;  /**< application policies or key purposes */
  LPCWSTR pwszExtendedErrorInfo;         /**< NULL */
} CERT_CHAIN_ELEMENT, *PCERT_CHAIN_ELEMENT;
typedef const CERT_CHAIN_ELEMENT* PCCERT_CHAIN_ELEMENT;
CERTKERN_RECORD_SIZE(CERT_CHAIN_ELEMENT, 56);

/** Trust lists are not served; the record is known by name only. */
typedef struct _CERT_TRUST_LIST_INFO CERT_TRUST_LIST_INFO, *PCERT_TRUST_LIST_INFO;

/** A path: rgpElement[0] is the end certificate, the last one the root. */
typedef struct _CERT_SIMPLE_CHAIN {
  DWORD cbSize;
  CERT_TRUST_STATUS TrustStatus;
  DWORD cElement;
  PCERT_CHAIN_ELEMENT* rgpElement;
  PCERT_TRUST_LIST_INFO pTrustListInfo; /**< NULL */
  BOOL fHasRevocationFreshnessTime;
  DWORD dwRevocationFreshnessTime; /**< the largest of its elements, seconds */
} CERT_SIMPLE_CHAIN, *PCERT_SIMPLE_CHAIN;
typedef const CERT_SIMPLE_CHAIN* PCCERT_SIMPLE_CHAIN;
CERTKERN_RECORD_SIZE(CERT_SIMPLE_CHAIN, 40);

/** The answer of CertGetCertificateChain. */
typedef struct _CERT_CHAIN_CONTEXT CERT_CHAIN_CONTEXT, *PCERT_CHAIN_CONTEXT;
typedef const CERT_CHAIN_CONTEXT* PCCERT_CHAIN_CONTEXT;
struct _CERT_CHAIN_CONTEXT {
  DWORD cbSize;
  CERT_TRUST_STATUS TrustStatus;
  DWORD cChain; /**< 1 */
  PCERT_SIMPLE_CHAIN* rgpChain;
  DWORD cLowerQualityChainContext;
  PCCERT_CHAIN_CONTEXT*
      rgpLowerQualityChainContext; /**< further good chains, to other roots; freed with this one */
  BOOL fHasRevocationFreshnessTime;
  DWORD dwRevocationFreshnessTime; /**< seconds */
};
CERTKERN_RECORD_SIZE(CERT_CHAIN_CONTEXT, 48);
CERTKERN_FIELD_AT(CERT_CHAIN_CONTEXT, cChain, 12);
CERTKERN_FIELD_AT(CERT_CHAIN_CONTEXT, rgpLowerQualityChainContext, 32);

/* --- Building --- */

/** Values of CERT_USAGE_MATCH.dwType. */
#define USAGE_MATCH_TYPE_AND 0 /**< all of the purposes must be in the extension */
#define USAGE_MATCH_TYPE_OR 1  /**< one is enough */

/** Which purposes the end certificate must have; a certificate without the extension has all. */
typedef struct _CERT_USAGE_MATCH {
  DWORD dwType;
  CERT_ENHKEY_USAGE Usage; /**< no identifiers: not asked */
} CERT_USAGE_MATCH, *PCERT_USAGE_MATCH;
CERTKERN_RECORD_SIZE(CERT_USAGE_MATCH, 24);

/** How to build a chain. */
typedef struct _CERT_CHAIN_PARA {
  DWORD cbSize; /**< fields beyond it don't exist */
  CERT_USAGE_MATCH RequestedUsage;
  CERT_USAGE_MATCH RequestedIssuancePolicy; /**< not looked at */
  DWORD dwUrlRetrievalTimeout;              /**< milliseconds; 0: the engine's */
  BOOL fCheckRevocationFreshnessTime;       /**< not looked at */
  DWORD dwRevocationFreshnessTime;          /**< not looked at */
  LPFILETIME pftCacheResync;                /**< not looked at */
} CERT_CHAIN_PARA, *PCERT_CHAIN_PARA;
CERTKERN_RECORD_SIZE(CERT_CHAIN_PARA, 80);
CERTKERN_FIELD_AT(CERT_CHAIN_PARA, RequestedIssuancePolicy, 32);
CERTKERN_FIELD_AT(CERT_CHAIN_PARA, dwUrlRetrievalTimeout, 56);

/** dwFlags of CertGetCertificateChain. Of the three CHECK_..., only one at a time selects anything, and END_CERT alone
 *  checks no certificate. A certificate from a trusted store is never checked. */
#define CERT_CHAIN_CACHE_END_CERT 0x1u
#define CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL 0x4u /**< fetch no certificates over the network */
#define CERT_CHAIN_DISABLE_PASS1_QUALITY_FILTERING \
  0x40u /**< verify signatures when a path is whole, not before */
#define CERT_CHAIN_RETURN_LOWER_QUALITY_CONTEXTS 0x80u /**< answer further good chains too */
#define CERT_CHAIN_DISABLE_AUTH_ROOT_AUTO_UPDATE 0x100u
#define CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT \
  0x08000000u /**< one time budget for all retrievals of the call */
#define CERT_CHAIN_REVOCATION_CHECK_END_CERT 0x10000000u
#define CERT_CHAIN_REVOCATION_CHECK_CHAIN 0x20000000u
#define CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT 0x40000000u
#define CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY 0x80000000u /**< fetch no CRLs over the network */

/** Builds and validates a chain. Fetches missing certificates and CRLs by URL unless a flag forbids it; of the fetched
 *  certificates those that stand as issuers on a path to a trusted root, with all signatures good, are added to the
 *  user's store "CA". The call may block for the time-out per URL, and for one minute (as configured) in all.
 *  @param hChainEngine      NULL: HCCE_CURRENT_USER
 *  @param pTime             the moment to judge at; NULL: now
 *  @param hAdditionalStore  searched too, not trusted; may be NULL. The certificate's own store is searched as well
 *  @param dwFlags           CERT_CHAIN_...
 *  @param pvReserved        NULL
 *  @param ppChainContext    receives the chain, for CertFreeCertificateChain; not written on failure
 *  @return TRUE, whatever the chain's status, or FALSE
 *  @errors ERROR_INVALID_PARAMETER: no certificate, parameters or result, usages announced and not given, an engine
 *          that is no handle; ERROR_DLL_INIT_FAILED: the user's engine can't be made; TRUST_E_FAIL: no path at all;
 *          ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API BOOL CertGetCertificateChain(HCERTCHAINENGINE hChainEngine, PCCERT_CONTEXT pCertContext,
                                          LPFILETIME pTime, HCERTSTORE hAdditionalStore,
                                          PCERT_CHAIN_PARA pChainPara, DWORD dwFlags, LPVOID pvReserved,
                                          PCCERT_CHAIN_CONTEXT* ppChainContext);
/** Takes one more count.
 *  @return pChainContext itself; NULL on failure
 *  @errors ERROR_INVALID_PARAMETER: NULL */
CERTKERN_API PCCERT_CHAIN_CONTEXT CertDuplicateCertificateChain(PCCERT_CHAIN_CONTEXT pChainContext);
/** Gives one count back; the last one frees the chain. NULL is allowed. */
CERTKERN_API void CertFreeCertificateChain(PCCERT_CHAIN_CONTEXT pChainContext);

/** dwFindType and dwFindFlags of CertFindChainInStore. */
#define CERT_CHAIN_FIND_BY_ISSUER 1
#define CERT_CHAIN_FIND_BY_ISSUER_COMPARE_KEY_FLAG 0x1u
#define CERT_CHAIN_FIND_BY_ISSUER_COMPLEX_CHAIN_FLAG 0x2u
#define CERT_CHAIN_FIND_BY_ISSUER_CACHE_ONLY_URL_FLAG 0x4u /**< fetch nothing over the network */
#define CERT_CHAIN_FIND_BY_ISSUER_LOCAL_MACHINE_FLAG 0x8u
#define CERT_CHAIN_FIND_BY_ISSUER_NO_KEY_FLAG 0x4000u /**< certificates without a private key count too */
#define CERT_CHAIN_FIND_BY_ISSUER_CACHE_ONLY_FLAG 0x8000u

/** Asks if a candidate will do. The context is borrowed. */
typedef BOOL (*PFN_CERT_CHAIN_FIND_BY_ISSUER_CALLBACK)(PCCERT_CONTEXT pCert, void* pvFindArg);

/** Which certificates to look for: with a private key, of one of these issuers, good for this purpose. */
typedef struct _CERT_CHAIN_FIND_BY_ISSUER_PARA {
  DWORD cbSize;
  LPCSTR pszUsageIdentifier;      /**< NULL: not asked; a purpose matches only where it is listed */
  DWORD dwKeySpec;                /**< 0 */
  DWORD dwAcquirePrivateKeyFlags; /**< 0 */
  DWORD cIssuer;                  /**< 0: any issuer */
  CERT_NAME_BLOB* rgIssuer;       /**< encoded Names; the certificate's direct issuer is compared */
  PFN_CERT_CHAIN_FIND_BY_ISSUER_CALLBACK pfnFindCallback; /**< NULL: not asked */
  void* pvFindArg;
} CERT_CHAIN_FIND_BY_ISSUER_PARA, *PCERT_CHAIN_FIND_BY_ISSUER_PARA;
CERTKERN_RECORD_SIZE(CERT_CHAIN_FIND_BY_ISSUER_PARA, 56);

/** Finds the next certificate of a store by CERT_CHAIN_FIND_BY_ISSUER_PARA, and builds its chain.
 *  @param dwCertEncodingType  not looked at
 *  @param pPrevChainContext   where to go on from; freed. NULL: from the start
 *  @return a chain for CertFreeCertificateChain, whatever its status; NULL when there is none, or on failure
 *  @errors E_INVALIDARG: another find type, a null argument; CRYPT_E_NOT_FOUND: no more; those of
 *          CertGetCertificateChain */
CERTKERN_API PCCERT_CHAIN_CONTEXT CertFindChainInStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType,
                                                       DWORD dwFindFlags, DWORD dwFindType,
                                                       const void* pvFindPara,
                                                       PCCERT_CHAIN_CONTEXT pPrevChainContext);

CERTKERN_EXTERN_C_END
#endif
