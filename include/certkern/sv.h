/** The system's own additions: algorithm choices for GOST keys, PIN callback, installation of certificates, the parts of
 *  chain policies that other policies build on, and two switches. */
#ifndef CERTKERN_SV_H
#define CERTKERN_SV_H

#include <certkern/keykern.h>
#include <certkern/policy.h>

CERTKERN_EXTERN_C_BEGIN

/* --- Which algorithms go together. Rows of the OID table belong to the key level and are never freed. No error is
 * set: what is not there is NULL or 0. --- */

/** The hash that a GOST key signs.
 *  @param pszPublicKeyOid  dotted decimal
 *  @return the ALG_ID; 0 for a key that is no GOST key */
CERTKERN_API ALG_ID SVGetDefaultGostHashAlgId(LPCSTR pszPublicKeyOid);
/** The hash that a key signs when nothing else is said: for a GOST key its own, else that of its default signature. */
CERTKERN_API PCCRYPT_OID_INFO SVCryptGetDefaultHashOIDInfo(LPCSTR pszPublicKeyOid);
/** The signature that a key makes when nothing else is said: with its GOST hash, else with SHA-1, else the first that
 *  the table holds for the key. */
CERTKERN_API PCCRYPT_OID_INFO SVCryptGetDefaultSignatureOIDInfo(LPCSTR pszPublicKeyOid);
/** The signature of a key over a given hash. */
CERTKERN_API PCCRYPT_OID_INFO SVCryptGetSignatureOIDInfo(LPCSTR pszPublicKeyOid, LPCSTR pszHashOid);
/** The row of a public key for one of its uses.
 *  @param dwKeySpec  AT_KEYEXCHANGE or AT_SIGNATURE */
CERTKERN_API PCCRYPT_OID_INFO SVCryptGetPublicKeyOIDInfo(LPCSTR pszPublicKeyOid, DWORD dwKeySpec);
/** A hash that a provider has and that goes with a key.
 *  @param pszPublicKeyOid  NULL: the provider's first hash */
CERTKERN_API ALG_ID SVCryptGetProviderHashAlgId(HCRYPTPROV hCryptProv, LPCSTR pszPublicKeyOid);

/* --- PIN callback. Each thread has its own. --- */

/** Answers a PIN: writes at most cchPin bytes with the NUL; FALSE refuses. An empty text means "no PIN". */
typedef BOOL (*PFN_SV_PIN_CALLBACK)(char* pszPin, DWORD cchPin, void* pvArg);

/** Sets the calling thread's callback.
 *  @param pfnCallback  NULL removes it
 *  @param pvArg        handed to it
 *  @return TRUE or FALSE */
CERTKERN_API BOOL SVCryptSetPinCallback(PFN_SV_PIN_CALLBACK pfnCallback, void* pvArg);
/** Reads the calling thread's callback; NULL when there is none.
 *  @return TRUE or FALSE */
CERTKERN_API BOOL SVCryptGetPinCallback(PFN_SV_PIN_CALLBACK* ppfnCallback, void** ppvArg);
/** Asks the calling thread's callback; without one the PIN is empty.
 *  @param cchPin  bytes at pszPin
 *  @return TRUE, or what the callback answers */
CERTKERN_API BOOL SVCryptGetPinFromCallback(char* pszPin, DWORD cchPin);

/* --- Installation --- */

/** Adds a certificate to a system store, linked to a container's key, and puts it into the container.
 *  @param dwKeySpec      AT_KEYEXCHANGE or AT_SIGNATURE
 *  @param cbCert         bytes at pbCert
 *  @param pwszStoreName  as "my"
 *  @param dwStoreFlags   as dwFlags of CertOpenStore; CERT_SYSTEM_STORE_LOCAL_MACHINE means a machine container too
 *  @param pvReserved     NULL
 *  @param pdwCertError   receives why the container did not take the certificate, which is no failure; may be NULL
 *  @return TRUE if the store has it, or FALSE
 *  @errors those of CertCreateCertificateContext, CertOpenStore and CertAddCertificateContextToStore, and of the key
 *          level */
CERTKERN_API BOOL SVCryptInstallCertificate(HCRYPTPROV hCryptProv, DWORD dwKeySpec, const BYTE* pbCert,
                                            DWORD cbCert, LPCWSTR pwszStoreName, DWORD dwStoreFlags,
                                            void* pvReserved, DWORD* pdwCertError);

/** The parts of a certificate that are optional in it, in the order of CERT_INFO. */
typedef struct _SV_TEMPLATE_EXTENSIONS {
  CRYPT_BIT_BLOB IssuerUniqueId;
  CRYPT_BIT_BLOB SubjectUniqueId;
  DWORD cExtension;
  PCERT_EXTENSION rgExtension;
} SV_TEMPLATE_EXTENSIONS, *PSV_TEMPLATE_EXTENSIONS;
CERTKERN_RECORD_SIZE(SV_TEMPLATE_EXTENSIONS, 64);

/** What a self-signed certificate is made from. */
typedef struct _SV_CERT_TEMPLATE {
  CERT_NAME_BLOB Name;                           /**< subject and issuer: a whole encoded Name */
  CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm; /**< NULL identifier: the default of the key */
  SV_TEMPLATE_EXTENSIONS Extensions;
  DWORD dwVersion; /**< CERT_V3 as a rule */
} SV_CERT_TEMPLATE, *PSV_CERT_TEMPLATE;
typedef const SV_CERT_TEMPLATE* PCSV_CERT_TEMPLATE;
CERTKERN_RECORD_SIZE(SV_CERT_TEMPLATE, 112);
CERTKERN_FIELD_AT(SV_CERT_TEMPLATE, SignatureAlgorithm, 16);
CERTKERN_FIELD_AT(SV_CERT_TEMPLATE, Extensions, 40);

/** Makes a self-signed certificate for a container's key, valid from now for ten calendar years with a random serial
 *  number, and installs it as SVCryptInstallCertificate does.
 *  @return TRUE or FALSE
 *  @errors CRYPT_E_NOT_FOUND: no signature algorithm for the key; E_OUTOFMEMORY; those of CryptExportPublicKeyInfo,
 *          CryptSignAndEncodeCertificate and SVCryptInstallCertificate */
CERTKERN_API BOOL SVCryptInstallTemplate(HCRYPTPROV hCryptProv, DWORD dwKeySpec, DWORD dwCertEncodingType,
                                         PCSV_CERT_TEMPLATE pTemplate, LPCWSTR pwszStoreName,
                                         DWORD dwStoreFlags);

/* --- Parts of chain policies --- */

/** Results of IsValidByApplicationUsage. */
#define SV_USAGE_VALID 0x0u
#define SV_USAGE_EXTENSION_NOT_CRITICAL 0x4u
#define SV_USAGE_NOT_SINGLE 0x8u
#define SV_USAGE_NOT_VALID 0x10u

/** Tells if a certificate is good for a purpose, by what its chain lets through and by its own extensions.
 *  @param pEffectiveUsage        pApplicationUsage of its chain element; NULL: any purpose
 *  @param pszRequiredUsage       the purpose, as szOID_PKIX_KP_SERVER_AUTH
 *  @param fRequireOwnExtension   it must have application policies or key purposes of its own, critical
 *  @param fSingleUsage           and no more than one
 *  @param fUsageMustBeEffective  the purpose must be among the effective ones; else the certificate's own will do
 *  @param fRequireEffective      pEffectiveUsage must not be NULL
 *  @return SV_USAGE_...; no error is set by itself */
CERTKERN_API DWORD IsValidByApplicationUsage(PCCERT_CONTEXT pCertContext,
                                             const CERT_ENHKEY_USAGE* pEffectiveUsage,
                                             LPCSTR pszRequiredUsage, BOOL fRequireOwnExtension,
                                             BOOL fSingleUsage, BOOL fUsageMustBeEffective,
                                             BOOL fRequireEffective);
/** The TLS policy by itself; as CertVerifyCertificateChainPolicy with CERT_CHAIN_POLICY_SSL. RFC 6125, 6.4. */
CERTKERN_API BOOL SSLImpl(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                          PCERT_CHAIN_POLICY_PARA pPolicyPara, PCERT_CHAIN_POLICY_STATUS pPolicyStatus);
/** The private key usage period policy by itself; as CertVerifyCertificateChainPolicy with
 *  SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD. */
CERTKERN_API BOOL PrivateKeyUsagePeriodImpl(LPCSTR pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                            PCERT_CHAIN_POLICY_PARA pPolicyPara,
                                            PCERT_CHAIN_POLICY_STATUS pPolicyStatus);

/* --- Data --- */

/** The trace context of the chain policies; 0 traces nothing. Policies of others may write to it. */
extern CERTKERN_API uint64_t pkivalidator_db_ctx;
/** Whether everything must have been signed within the private key usage period of its signer: 0 not read from the
 *  configuration yet, 1 no, 2 yes. */
extern CERTKERN_API uint32_t _strictPkupCheck;

CERTKERN_EXTERN_C_END
#endif
