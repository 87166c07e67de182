/** Enumerating and searching stores.
 *
 *  An enumeration or search gives one context at a time. It takes the count of the previous context in every outcome,
 *  failure included, and goes on behind it; a walk that is not run to its end leaves its last context to be freed. A
 *  collection is searched member by member. The order is that of the store: newest first. The store is locked while one
 *  step runs, not between steps. */
#ifndef CERTKERN_FIND_H
#define CERTKERN_FIND_H

#include <certkern/store.h>

CERTKERN_EXTERN_C_BEGIN

/** Issuer and serial number. */
typedef struct _CERT_ISSUER_SERIAL_NUMBER {
  CERT_NAME_BLOB Issuer; /**< a whole encoded Name */
  CRYPT_INTEGER_BLOB SerialNumber;
} CERT_ISSUER_SERIAL_NUMBER, *PCERT_ISSUER_SERIAL_NUMBER;
CERTKERN_RECORD_SIZE(CERT_ISSUER_SERIAL_NUMBER, 32);

/** Values of CERT_ID.dwIdChoice. */
#define CERT_ID_ISSUER_SERIAL_NUMBER 1
#define CERT_ID_KEY_IDENTIFIER 2
#define CERT_ID_SHA1_HASH 3

/** One of the ways to name a certificate. */
typedef struct _CERT_ID {
  DWORD dwIdChoice;
  union {
    CERT_ISSUER_SERIAL_NUMBER IssuerSerialNumber;
    CRYPT_HASH_BLOB KeyId;
    CRYPT_HASH_BLOB HashId;
  };
} CERT_ID, *PCERT_ID;
CERTKERN_RECORD_SIZE(CERT_ID, 40);
CERTKERN_FIELD_AT(CERT_ID, IssuerSerialNumber, 8);

/** What CertFindCertificateInStore compares, and what pvFindPara is then. Text is found anywhere in the name as
 *  CertNameToStr writes it with CERT_SIMPLE_NAME_STR, with regard to case. */
#define CERT_FIND_ANY 0u                /**< ignored: every certificate */
#define CERT_FIND_SHA1_HASH 0x00010000u /**< CRYPT_HASH_BLOB; also archived ones */
#define CERT_FIND_HASH CERT_FIND_SHA1_HASH
#define CERT_FIND_ISSUER_NAME 0x00020004u   /**< CERT_NAME_BLOB, byte by byte */
#define CERT_FIND_SUBJECT_NAME 0x00020007u  /**< CERT_NAME_BLOB, byte by byte */
#define CERT_FIND_MD5_HASH 0x00040000u      /**< CRYPT_HASH_BLOB; also archived ones */
#define CERT_FIND_PROPERTY 0x00050000u      /**< DWORD: the property is there or can be computed */
#define CERT_FIND_PUBLIC_KEY 0x00060000u    /**< CERT_PUBLIC_KEY_INFO */
#define CERT_FIND_ISSUER_STR_A 0x00070004u  /**< UTF-8 text */
#define CERT_FIND_SUBJECT_STR_A 0x00070007u /**< UTF-8 text */
#define CERT_FIND_ISSUER_STR_W 0x00080004u  /**< wide text */
#define CERT_FIND_SUBJECT_STR_W 0x00080007u /**< wide text */
#define CERT_FIND_ISSUER_STR CERT_FIND_ISSUER_STR_W
#define CERT_FIND_SUBJECT_STR CERT_FIND_SUBJECT_STR_W
#define CERT_FIND_ENHKEY_USAGE \
  0x000A0000u /**< CERT_ENHKEY_USAGE: all of these purposes are in the extension */
#define CERT_FIND_CTL_USAGE CERT_FIND_ENHKEY_USAGE
#define CERT_FIND_SUBJECT_CERT \
  0x000B0000u /**< CERT_INFO: same issuer and serial number; also archived ones */
#define CERT_FIND_EXISTING \
  0x000D0000u /**< CERT_CONTEXT, of which the encoded bytes and the encoding are read: the same certificate */
#define CERT_FIND_KEY_IDENTIFIER 0x000F0000u  /**< CRYPT_HASH_BLOB */
#define CERT_FIND_CERT_ID 0x00100000u         /**< CERT_ID; also archived ones */
#define CERT_FIND_HAS_PRIVATE_KEY 0x00150000u /**< ignored: with key provider information */

/** dwFindFlags of CERT_FIND_ENHKEY_USAGE: a certificate without the extension matches too. */
#define CERT_FIND_OPTIONAL_ENHKEY_USAGE_FLAG 0x1u

/** Finds the next certificate.
 *  @param dwCertEncodingType  must have X509_ASN_ENCODING or PKCS_7_ASN_ENCODING
 *  @param dwFindFlags         0 or CERT_FIND_OPTIONAL_ENHKEY_USAGE_FLAG
 *  @param dwFindType          CERT_FIND_...
 *  @param pPrevCertContext    where to go on from; freed. NULL: from the start, after a resynchronisation if the store
 *                             was told to do that by itself
 *  @return a context; NULL when there is none, or on failure
 *  @errors CRYPT_E_NOT_FOUND: no more; ERROR_INVALID_PARAMETER: no store, a previous context that is not live, an
 *          unknown type, a parameter that lacks what is read of it */
CERTKERN_API PCCERT_CONTEXT CertFindCertificateInStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType,
                                                       DWORD dwFindFlags, DWORD dwFindType,
                                                       const void* pvFindPara,
                                                       PCCERT_CONTEXT pPrevCertContext);
/** Finds the next certificate, whichever. Archived ones only if the store was opened to see them.
 *  @param pPrevCertContext  where to go on from; freed. NULL: from the start
 *  @return a context; NULL at the end or on failure
 *  @errors CRYPT_E_NOT_FOUND: no more; ERROR_INVALID_PARAMETER: no store, not a live context */
CERTKERN_API PCCERT_CONTEXT CertEnumCertificatesInStore(HCERTSTORE hCertStore,
                                                        PCCERT_CONTEXT pPrevCertContext);

/** What CertFindCRLInStore compares. */
#define CRL_FIND_ANY 0u       /**< every CRL */
#define CRL_FIND_ISSUED_BY 1u /**< CERT_CONTEXT: the CRL's issuer is this certificate's subject */
#define CRL_FIND_EXISTING \
  2u /**< CRL_CONTEXT: same issuer and authority key identifier, both base or both delta */
#define CRL_FIND_ISSUED_FOR 3u /**< CRL_FIND_ISSUED_FOR_PARA: by the issuer of a certificate */

/** dwFindFlags of CRL_FIND_ISSUED_BY. They are taken and change nothing. */
#define CRL_FIND_ISSUED_BY_AKI_FLAG 0x1u
#define CRL_FIND_ISSUED_BY_SIGNATURE_FLAG 0x2u
#define CRL_FIND_ISSUED_BY_DELTA_FLAG 0x4u
#define CRL_FIND_ISSUED_BY_BASE_FLAG 0x8u

/** Whose CRL is looked for. */
typedef struct _CRL_FIND_ISSUED_FOR_PARA {
  PCCERT_CONTEXT pSubjectCert; /**< the CRL's issuer is this one's issuer */
  PCCERT_CONTEXT pIssuerCert;  /**< or, when given, this one's subject */
} CRL_FIND_ISSUED_FOR_PARA, *PCRL_FIND_ISSUED_FOR_PARA;
CERTKERN_RECORD_SIZE(CRL_FIND_ISSUED_FOR_PARA, 16);

/** Finds the next CRL.
 *  @param dwCertEncodingType  not looked at
 *  @param dwFindFlags         not looked at
 *  @param dwFindType          CRL_FIND_...
 *  @param pPrevCrlContext     where to go on from; freed. NULL: from the start
 *  @return a context; NULL when there is none, or on failure
 *  @errors CRYPT_E_NOT_FOUND: no more; ERROR_INVALID_PARAMETER: no store, a previous context that is not live, an
 *          unknown type, a parameter that lacks what is read of it */
CERTKERN_API PCCRL_CONTEXT CertFindCRLInStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType,
                                              DWORD dwFindFlags, DWORD dwFindType, const void* pvFindPara,
                                              PCCRL_CONTEXT pPrevCrlContext);
/** As CertEnumCertificatesInStore. */
CERTKERN_API PCCRL_CONTEXT CertEnumCRLsInStore(HCERTSTORE hCertStore, PCCRL_CONTEXT pPrevCrlContext);

/** Finds a certificate by issuer and serial number.
 *  @param pCertId  of which only Issuer and SerialNumber are read
 *  @return a context to be freed; NULL when there is none, or on failure
 *  @errors CRYPT_E_NOT_FOUND; ERROR_INVALID_PARAMETER */
CERTKERN_API PCCERT_CONTEXT CertGetSubjectCertificateFromStore(HCERTSTORE hCertStore,
                                                               DWORD dwCertEncodingType, PCERT_INFO pCertId);

/** Checks that are asked for with a flag word: a check that succeeds clears its flag, one that fails leaves it. */
#define CERT_STORE_SIGNATURE_FLAG 0x1u     /**< the signature verifies with the issuer's key */
#define CERT_STORE_TIME_VALIDITY_FLAG 0x2u /**< valid now */
#define CERT_STORE_REVOCATION_FLAG 0x4u    /**< not served */
#define CERT_STORE_BASE_CRL_FLAG 0x100u    /**< a base CRL */
#define CERT_STORE_DELTA_CRL_FLAG 0x200u   /**< a delta CRL */
#define CERT_STORE_NO_CRL_FLAG 0x10000u
#define CERT_STORE_NO_ISSUER_FLAG 0x20000u /**< answer: there is no issuer to check the signature with */

/** Finds the next issuer of a certificate: a certificate whose name and, where given, key identifier match, and whose
 *  key verifies the subject's signature. For a self-signed subject, which needs no store, the answer is
 *  CRYPT_E_SELF_SIGNED.
 *  @param pSubjectContext     of which the published fields are read: it may be put together by the caller
 *  @param pPrevIssuerContext  where to go on from; NULL: from the start
 *  @param pdwFlags            in: checks of the subject against what was found, CERT_STORE_SIGNATURE_FLAG and
 *                             CERT_STORE_TIME_VALIDITY_FLAG; out: those that failed
 *  @return a context to be freed; NULL when there is none, or on failure
 *  @errors E_INVALIDARG: no subject, flags or store, other flags; CRYPT_E_SELF_SIGNED: what was found is the subject;
 *          CRYPT_E_NOT_FOUND: no more; ERROR_INVALID_PARAMETER: a previous context that is not live, a subject without
 *          names or encoded bytes */
CERTKERN_API PCCERT_CONTEXT CertGetIssuerCertificateFromStore(HCERTSTORE hCertStore,
                                                              PCCERT_CONTEXT pSubjectContext,
                                                              PCCERT_CONTEXT pPrevIssuerContext,
                                                              DWORD* pdwFlags);
/** Runs checks of a certificate.
 *  @param pIssuer   needed for CERT_STORE_SIGNATURE_FLAG
 *  @param pdwFlags  in: CERT_STORE_SIGNATURE_FLAG, CERT_STORE_TIME_VALIDITY_FLAG; out: those that failed
 *  @return TRUE, whatever the checks said, or FALSE
 *  @errors E_INVALIDARG: other flags */
CERTKERN_API BOOL CertVerifySubjectCertificateContext(PCCERT_CONTEXT pSubject, PCCERT_CONTEXT pIssuer,
                                                      DWORD* pdwFlags);

/** Looks a certificate's serial number up in a CRL. Whether the CRL is for this certificate is not asked.
 *  @param pCert       NULL: no entry is found
 *  @param dwFlags     0
 *  @param pvReserved  NULL
 *  @param ppCrlEntry  receives the entry, which belongs to the CRL context, or NULL for none
 *  @return TRUE, found or not, or FALSE
 *  @errors E_INVALIDARG: no CRL, no ppCrlEntry, flags or reserved */
CERTKERN_API BOOL CertFindCertificateInCRL(PCCERT_CONTEXT pCert, PCCRL_CONTEXT pCrlContext, DWORD dwFlags,
                                           void* pvReserved, PCRL_ENTRY* ppCrlEntry);
/** Tells if none of some CRLs lists a serial number.
 *  @param pCertId    of which only SerialNumber is read; NULL: TRUE
 *  @param rgpCrlInfo cCrlInfo decoded CRLs
 *  @return FALSE if it is listed (the last error is left alone) or on failure
 *  @errors E_INVALIDARG: a count without an array */
CERTKERN_API BOOL CertVerifyCRLRevocation(DWORD dwCertEncodingType, PCERT_INFO pCertId, DWORD cCrlInfo,
                                          PCRL_INFO rgpCrlInfo[]);

CERTKERN_EXTERN_C_END
#endif
