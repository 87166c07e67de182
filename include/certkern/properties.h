/** Certificate and CRL contexts: making, counting and freeing them, and the properties that hang on them.
 *
 *  A context is counted. Who gets one from a Create, Find, Enum, Get or Duplicate function owns one count and gives it
 *  back with the matching Free function; an Enum or Find function takes the count of the previous context that it is
 *  given. Context, decoded record and encoded bytes are never written to after they are made, so any number of threads
 *  may read them. A pointer that is no live context is found out and refused, never followed.
 *
 *  Properties are not part of the encoded object. They are kept in order of setting; a store file keeps them too, but
 *  for the key context. Links to an element share one set of properties with it. */
#ifndef CERTKERN_PROPERTIES_H
#define CERTKERN_PROPERTIES_H

#include <certkern/encode.h>

CERTKERN_EXTERN_C_BEGIN

/** A certificate. The decoded record lives as long as the context. */
typedef struct _CERT_CONTEXT {
  DWORD dwCertEncodingType; /**< as given when the context was made */
  BYTE* pbCertEncoded;      /**< the encoded certificate, without what may have followed it */
  DWORD cbCertEncoded;      /**< bytes */
  PCERT_INFO pCertInfo;
  HCERTSTORE hCertStore; /**< the store it is in; not counted; NULL for a free-standing context */
} CERT_CONTEXT, *PCERT_CONTEXT;
typedef const CERT_CONTEXT* PCCERT_CONTEXT;
CERTKERN_RECORD_SIZE(CERT_CONTEXT, 40);
CERTKERN_FIELD_AT(CERT_CONTEXT, pbCertEncoded, 8);
CERTKERN_FIELD_AT(CERT_CONTEXT, cbCertEncoded, 16);
CERTKERN_FIELD_AT(CERT_CONTEXT, pCertInfo, 24);
CERTKERN_FIELD_AT(CERT_CONTEXT, hCertStore, 32);

/** A CRL. The decoded record lives as long as the context. */
typedef struct _CRL_CONTEXT {
  DWORD dwCertEncodingType;
  BYTE* pbCrlEncoded;
  DWORD cbCrlEncoded;
  PCRL_INFO pCrlInfo;
  HCERTSTORE hCertStore;
} CRL_CONTEXT, *PCRL_CONTEXT;
typedef const CRL_CONTEXT* PCCRL_CONTEXT;
CERTKERN_RECORD_SIZE(CRL_CONTEXT, 40);

/** Makes a context from an encoded certificate. The bytes are copied; what follows the encoded object is ignored.
 *  @param dwCertEncodingType  must have X509_ASN_ENCODING
 *  @param cbCertEncoded       bytes at pbCertEncoded, at least those of the object
 *  @return a context with one count and no store; NULL on failure
 *  @errors E_INVALIDARG: no bytes; ERROR_INVALID_PARAMETER: the encoding type; ERROR_INTERNAL_ERROR: no SEQUENCE, or a
 *          bad length field; CRYPT_E_ASN1_EOD: the content ends early; CRYPT_E_OSS_ERROR: the body does not decode;
 *          ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API PCCERT_CONTEXT CertCreateCertificateContext(DWORD dwCertEncodingType, const BYTE* pbCertEncoded,
                                                         DWORD cbCertEncoded);
/** Makes a context from an encoded CRL; otherwise as CertCreateCertificateContext. A version 1 list is refused. */
CERTKERN_API PCCRL_CONTEXT CertCreateCRLContext(DWORD dwCertEncodingType, const BYTE* pbCrlEncoded,
                                                DWORD cbCrlEncoded);

/** Takes one more count.
 *  @return pCertContext itself; NULL on failure
 *  @errors ERROR_INVALID_PARAMETER: not a live context */
CERTKERN_API PCCERT_CONTEXT CertDuplicateCertificateContext(PCCERT_CONTEXT pCertContext);
/** As CertDuplicateCertificateContext. */
CERTKERN_API PCCRL_CONTEXT CertDuplicateCRLContext(PCCRL_CONTEXT pCrlContext);

/** Gives one count back; the last one frees the context. A store that waits for its last context is closed then.
 *  @param pCertContext  NULL is allowed
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: not a live context, so also when it is freed once too often */
CERTKERN_API BOOL CertFreeCertificateContext(PCCERT_CONTEXT pCertContext);
/** As CertFreeCertificateContext. */
CERTKERN_API BOOL CertFreeCRLContext(PCCRL_CONTEXT pCrlContext);

/** Property identifiers. Those marked "computed" are made on first request and kept. Unless another form is named a
 *  value is plain bytes: pvData is a buffer when it is read and a CRYPT_DATA_BLOB when it is set. */
#define CERT_KEY_PROV_HANDLE_PROP_ID 1 /**< can't be set */
#define CERT_KEY_PROV_INFO_PROP_ID 2   /**< CRYPT_KEY_PROV_INFO: where the private key is */
#define CERT_SHA1_HASH_PROP_ID 3       /**< computed; 20 bytes, over the encoded object */
#define CERT_HASH_PROP_ID CERT_SHA1_HASH_PROP_ID
#define CERT_MD5_HASH_PROP_ID 4     /**< computed; 16 bytes, over the encoded object */
#define CERT_KEY_CONTEXT_PROP_ID 5  /**< CERT_KEY_CONTEXT: an open key; never enumerated, never saved */
#define CERT_KEY_SPEC_PROP_ID 6     /**< can't be set */
#define CERT_ENHKEY_USAGE_PROP_ID 9 /**< encoded key purposes that narrow the extension's */
#define CERT_CTL_USAGE_PROP_ID CERT_ENHKEY_USAGE_PROP_ID
#define CERT_NEXT_UPDATE_LOCATION_PROP_ID 10 /**< can't be set on a CRL */
#define CERT_FRIENDLY_NAME_PROP_ID 11        /**< wide text, 4 bytes to a character, with its NUL */
#define CERT_PVK_FILE_PROP_ID 12
#define CERT_DESCRIPTION_PROP_ID 13    /**< wide text, as above */
#define CERT_ACCESS_STATE_PROP_ID 14   /**< can't be set */
#define CERT_SIGNATURE_HASH_PROP_ID 15 /**< computed; the hash that the issuer signed, 32 bytes at most */
#define CERT_SMART_CARD_DATA_PROP_ID 16
#define CERT_ARCHIVED_PROP_ID 19       /**< its presence hides the object from most searches */
#define CERT_KEY_IDENTIFIER_PROP_ID 20 /**< computed; the extension's content, else SHA-1 of the key bits */
#define CERT_AUTO_ENROLL_PROP_ID 21
#define CERT_PUBKEY_ALG_PARA_PROP_ID 22
#define CERT_CROSS_CERT_DIST_POINTS_PROP_ID 23
#define CERT_ENROLLMENT_PROP_ID 26
#define CERT_DATE_STAMP_PROP_ID 27 /**< can't be set on a certificate */
#define CERT_RENEWAL_PROP_ID 64
#define CERT_OCSP_RESPONSE_PROP_ID 70
#define CERT_NCRYPT_KEY_HANDLE_PROP_ID 78               /**< can't be set on a certificate */
#define CERT_HCRYPTPROV_OR_NCRYPT_KEY_HANDLE_PROP_ID 79 /**< can't be set on a certificate */
#define CERT_NCRYPT_KEY_HANDLE_TRANSFER_PROP_ID 99      /**< can't be set on a certificate */
#define CERT_HCRYPTPROV_TRANSFER_PROP_ID 100            /**< can't be set on a certificate */
#define CERT_FIRST_USER_PROP_ID 0x8000 /**< from here to CERT_LAST_USER_PROP_ID the application's own */
#define CERT_LAST_USER_PROP_ID 0xFFFF
#define SV_CRL_ISSUER_PROP_ID 32000         /**< computed, CRLs only: the issuer name, kept for searches */
#define SV_KEY_PROV_INFO_FLAT_PROP_ID 32001 /**< CERT_KEY_PROV_INFO_PROP_ID as it is stored; reading only */
#define SV_URL_CACHE_PROP_ID 32769 /**< in the store "cache": two FILETIMEs (changed, used), URL, NUL */

/** An open private key on a certificate. Setting it hands the provider to the certificate, which releases it. */
typedef struct _CERT_KEY_CONTEXT {
  DWORD cbSize; /**< at least sizeof(CERT_KEY_CONTEXT) */
  union {
    HCRYPTPROV hCryptProv;
  };
  DWORD dwKeySpec; /**< AT_KEYEXCHANGE or AT_SIGNATURE */
} CERT_KEY_CONTEXT, *PCERT_KEY_CONTEXT;
CERTKERN_RECORD_SIZE(CERT_KEY_CONTEXT, 24);
CERTKERN_FIELD_AT(CERT_KEY_CONTEXT, hCryptProv, 8);
CERTKERN_FIELD_AT(CERT_KEY_CONTEXT, dwKeySpec, 16);

/** A provider parameter that is set whenever the key is acquired. */
typedef struct _CRYPT_KEY_PROV_PARAM {
  DWORD dwParam; /**< PP_... */
  BYTE* pbData;
  DWORD cbData; /**< bytes */
  DWORD dwFlags;
} CRYPT_KEY_PROV_PARAM, *PCRYPT_KEY_PROV_PARAM;
CERTKERN_RECORD_SIZE(CRYPT_KEY_PROV_PARAM, 24);

/** CRYPT_KEY_PROV_INFO.dwFlags beside those of CryptAcquireContext: let CRYPT_ACQUIRE_USE_PROV_INFO_FLAG cache. */
#define CERT_SET_KEY_PROV_HANDLE_PROP_ID 0x1u
#define CERT_SET_KEY_CONTEXT_PROP_ID 0x1u

/** Where a certificate's private key is: container, provider, key. Read from a property it is one block with all that
 *  it points to. */
typedef struct _CRYPT_KEY_PROV_INFO {
  LPWSTR pwszContainerName; /**< NULL: the default container */
  LPWSTR pwszProvName;      /**< NULL: the default provider of the type */
  DWORD dwProvType;         /**< PROV_... */
  DWORD dwFlags;            /**< CRYPT_MACHINE_KEYSET, CERT_SET_KEY_CONTEXT_PROP_ID ... */
  DWORD cProvParam;
  PCRYPT_KEY_PROV_PARAM rgProvParam;
  DWORD dwKeySpec; /**< AT_KEYEXCHANGE or AT_SIGNATURE */
} CRYPT_KEY_PROV_INFO, *PCRYPT_KEY_PROV_INFO;
CERTKERN_RECORD_SIZE(CRYPT_KEY_PROV_INFO, 48);
CERTKERN_FIELD_AT(CRYPT_KEY_PROV_INFO, dwProvType, 16);
CERTKERN_FIELD_AT(CRYPT_KEY_PROV_INFO, rgProvParam, 32);
CERTKERN_FIELD_AT(CRYPT_KEY_PROV_INFO, dwKeySpec, 40);

/** Reads a property. Other threads that use the same properties wait meanwhile.
 *  @param dwPropId  which; not 0
 *  @param pvData    receives the value; NULL asks for the size
 *  @param pcbData   in: bytes at pvData; out: the value's size. For CERT_KEY_PROV_INFO_PROP_ID the size is a bound that
 *                   the record may not fill
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: not a live context, identifier 0, a NULL pcbData; CRYPT_E_NOT_FOUND: no such
 *          property, and none to compute; ERROR_MORE_DATA: too little room, or a signed hash above 32 bytes;
 *          ERROR_INVALID_DATA: the stored key information is damaged; the code of what should have computed it */
CERTKERN_API BOOL CertGetCertificateContextProperty(PCCERT_CONTEXT pCertContext, DWORD dwPropId, void* pvData,
                                                    DWORD* pcbData);
/** As CertGetCertificateContextProperty. */
CERTKERN_API BOOL CertGetCRLContextProperty(PCCRL_CONTEXT pCrlContext, DWORD dwPropId, void* pvData,
                                            DWORD* pcbData);

/** Sets, replaces or removes a property, and marks the context's store as changed.
 *  @param dwPropId  which; those that can't be set are marked above. A computed one may be overridden
 *  @param dwFlags   ignored
 *  @param pvData    NULL removes the property; the record for CERT_KEY_PROV_INFO_PROP_ID and CERT_KEY_CONTEXT_PROP_ID,
 *                   a CRYPT_DATA_BLOB for all others. Copied, but for the provider of a key context, which the
 *                   certificate owns from then on
 *  @return TRUE or FALSE. Removing what is not there is TRUE with ERROR_NOT_FOUND as last error
 *  @errors ERROR_INVALID_PARAMETER: not a live context, an identifier that can't be set, a blob with a length and no
 *          bytes, a key context that is too short; E_ACCESSDENIED: the store is read-only; ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API BOOL CertSetCertificateContextProperty(PCCERT_CONTEXT pCertContext, DWORD dwPropId,
                                                    DWORD dwFlags, const void* pvData);
/** As CertSetCertificateContextProperty. */
CERTKERN_API BOOL CertSetCRLContextProperty(PCCRL_CONTEXT pCrlContext, DWORD dwPropId, DWORD dwFlags,
                                            const void* pvData);

/** Walks the properties that are there, in order of setting. A computed one is there once it was asked for; the key
 *  context never is. Each step finds its place by the identifier, so a walk ends where that one was removed.
 *  @param dwPropId  0 to begin, then what the last call answered
 *  @return the next identifier; 0 at the end, and for a NULL context */
CERTKERN_API DWORD CertEnumCertificateContextProperties(PCCERT_CONTEXT pCertContext, DWORD dwPropId);
/** As CertEnumCertificateContextProperties. */
CERTKERN_API DWORD CertEnumCRLContextProperties(PCCRL_CONTEXT pCrlContext, DWORD dwPropId);

CERTKERN_EXTERN_C_END
#endif
