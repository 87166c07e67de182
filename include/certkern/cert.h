/** Questions about one certificate, one name or one list: hashes, comparisons, look-ups, times and usages. None needs a
 *  store or a chain, none keeps anything, and any number of threads may ask. */
#ifndef CERTKERN_CERT_H
#define CERTKERN_CERT_H

#include <certkern/properties.h>

CERTKERN_EXTERN_C_BEGIN

/** Finds the first extension with a given identifier.
 *  @param pszObjId      dotted decimal
 *  @param cExtensions   number of elements in rgExtensions
 *  @param rgExtensions  borrowed; the result points into it and lives as long
 *  @return the extension; NULL when none matches (last error untouched) or on failure
 *  @errors ERROR_INVALID_PARAMETER: pszObjId or rgExtensions is NULL */
CERTKERN_API PCERT_EXTENSION CertFindExtension(LPCSTR pszObjId, DWORD cExtensions,
                                               CERT_EXTENSION rgExtensions[]);
/** Finds the first attribute with a given identifier; otherwise as CertFindExtension, but no error is ever set: a NULL
 *  pszObjId or rgAttr finds nothing. */
CERTKERN_API PCRYPT_ATTRIBUTE CertFindAttribute(LPCSTR pszObjId, DWORD cAttr, CRYPT_ATTRIBUTE rgAttr[]);

/** Compares two names as opaque bytes: neither case nor string type nor white space is evened out.
 *  @param dwCertEncodingType  not looked at
 *  @return TRUE when equal; FALSE when not (the last error is left alone) or on failure
 *  @errors ERROR_INVALID_PARAMETER: a null blob, a length without bytes */
CERTKERN_API BOOL CertCompareCertificateName(DWORD dwCertEncodingType, PCERT_NAME_BLOB pCertName1,
                                             PCERT_NAME_BLOB pCertName2);
/** Tells if two records name the same certificate: Issuer and SerialNumber are compared, all else is not read.
 *  @return TRUE when equal; FALSE when not, or on failure
 *  @errors ERROR_INVALID_PARAMETER: a null record; those of CertCompareCertificateName and CertCompareIntegerBlob */
CERTKERN_API BOOL CertCompareCertificate(DWORD dwCertEncodingType, PCERT_INFO pCertId1, PCERT_INFO pCertId2);
/** Compares two little-endian integers; redundant sign bytes at the top don't count.
 *  @return TRUE when equal; FALSE when not (the last error is left alone) or on failure
 *  @errors ERROR_INVALID_PARAMETER: a null blob, a length without bytes */
CERTKERN_API BOOL CertCompareIntegerBlob(PCRYPT_INTEGER_BLOB pInt1, PCRYPT_INTEGER_BLOB pInt2);

/** Tells if a moment lies inside a certificate's validity, bounds included. RFC 5280, 4.1.2.5.
 *  @param pTimeToVerify  NULL: now
 *  @return -1 before NotBefore, 1 after NotAfter, 0 inside; 87 for a NULL pCertInfo
 *  @errors ERROR_INVALID_PARAMETER: no certificate */
CERTKERN_API LONG CertVerifyTimeValidity(LPFILETIME pTimeToVerify, PCERT_INFO pCertInfo);
/** Tells if the subject's validity lies inside the issuer's; equal bounds do.
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: a null argument */
CERTKERN_API BOOL CertVerifyValidityNesting(PCERT_INFO pSubjectInfo, PCERT_INFO pIssuerInfo);

/** Bits of the first byte of a key usage, and of its second. RFC 5280, 4.2.1.3. */
#define CERT_DIGITAL_SIGNATURE_KEY_USAGE 0x80
#define CERT_NON_REPUDIATION_KEY_USAGE 0x40
#define CERT_KEY_ENCIPHERMENT_KEY_USAGE 0x20
#define CERT_DATA_ENCIPHERMENT_KEY_USAGE 0x10
#define CERT_KEY_AGREEMENT_KEY_USAGE 0x08
#define CERT_KEY_CERT_SIGN_KEY_USAGE 0x04
#define CERT_CRL_SIGN_KEY_USAGE 0x02
#define CERT_OFFLINE_CRL_SIGN_KEY_USAGE 0x02
#define CERT_ENCIPHER_ONLY_KEY_USAGE 0x01
#define CERT_DECIPHER_ONLY_KEY_USAGE 0x80 /**< second byte */

/** Reads the key usage extension.
 *  @param pbKeyUsage  receives as many bytes of the bit string as fit; what they leave is zeroed, in every case
 *  @param cbKeyUsage  bytes at pbKeyUsage; 1 or 2 are enough
 *  @return TRUE; FALSE when there is none, with last error 0, or on failure
 *  @errors ERROR_INVALID_PARAMETER: no certificate, no buffer; those of CryptDecodeObject; CRYPT_E_ASN1_ERROR: far more
 *          bits than are defined */
CERTKERN_API BOOL CertGetIntendedKeyUsage(DWORD dwCertEncodingType, PCERT_INFO pCertInfo, BYTE* pbKeyUsage,
                                          DWORD cbKeyUsage);

/** dwFlags of CertGetEnhancedKeyUsage. */
#define CERT_FIND_EXT_ONLY_ENHKEY_USAGE_FLAG 0x2u  /**< the extension alone */
#define CERT_FIND_PROP_ONLY_ENHKEY_USAGE_FLAG 0x4u /**< the property alone */

/** Reads what a certificate may be used for: the extension, narrowed by CERT_ENHKEY_USAGE_PROP_ID. RFC 5280, 4.2.1.12.
 *  @param dwFlags   0 (both; where both exist, what is in both) or one of the flags above
 *  @param pUsage    receives the record with all that it points to; NULL asks for the size
 *  @param pcbUsage  in: bytes at pUsage; out: the size
 *  @return TRUE or FALSE. No identifiers, always with last error CRYPT_E_NOT_FOUND: neither list exists, or both have
 *          nothing in common
 *  @errors ERROR_INVALID_PARAMETER: a null argument; a context that is not live, whose property can't be asked, but
 *          for the extension alone; ERROR_INVALID_FLAGS; ERROR_MORE_DATA;
 *          CRYPT_E_ASN1_ERROR: the extension does not decode; those of CryptDecodeObject: the property does not;
 *          CRYPT_E_NOT_FOUND: with a flag, no such list, or an empty one; ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API BOOL CertGetEnhancedKeyUsage(PCCERT_CONTEXT pCertContext, DWORD dwFlags,
                                          PCERT_ENHKEY_USAGE pUsage, DWORD* pcbUsage);
/** Reads what all of some certificates may be used for: the purposes that none of them excludes. A certificate restricts
 *  nothing when CertGetEnhancedKeyUsage gives no identifiers for it, or fails.
 *  @param rghCerts  cCerts contexts
 *  @param cNumOIDs  receives the number of identifiers, in the order of the first that restricts; -1: none does, and
 *                   rghOIDs is left alone
 *  @param rghOIDs   receives pointers to the identifiers, which lie behind them in the same buffer; NULL asks for the
 *                   size
 *  @param pcbOIDs   in: bytes at rghOIDs; out: the size
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: a null argument; ERROR_MORE_DATA; ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API BOOL CertGetValidUsages(DWORD cCerts, PCCERT_CONTEXT* rghCerts, int* cNumOIDs, LPSTR* rghOIDs,
                                     DWORD* pcbOIDs);

/** Hashes bytes, as a rule a whole encoded certificate.
 *  @param hCryptProv      0: a provider that has the algorithm is looked for
 *  @param Algid           0: SHA-1
 *  @param dwFlags         kept for the published shape
 *  @param cbEncoded       bytes at pbEncoded
 *  @param pbComputedHash  receives the hash; NULL asks for the size
 *  @param pcbComputedHash in: bytes at pbComputedHash; out: the hash's size
 *  @return TRUE or FALSE
 *  @errors ERROR_MORE_DATA; NTE_BAD_ALGID; those of the key level */
CERTKERN_API BOOL CryptHashCertificate(HCRYPTPROV_LEGACY hCryptProv, ALG_ID Algid, DWORD dwFlags,
                                       const BYTE* pbEncoded, DWORD cbEncoded, BYTE* pbComputedHash,
                                       DWORD* pcbComputedHash);
/** Hashes the signed part of a signed object, with the hash that its signature algorithm's row names: of RSA-PSS that is
 *  SHA-1, whatever the parameters say.
 *  @param pbEncoded  a whole certificate, CRL or request, cbEncoded bytes
 *  @return TRUE or FALSE; sizes as for CryptHashCertificate
 *  @errors CRYPT_E_ASN1_ERROR: not a signed object; NTE_FAIL: an unknown signature algorithm; ERROR_MORE_DATA; those
 *          of the key level */
CERTKERN_API BOOL CryptHashToBeSigned(HCRYPTPROV_LEGACY hCryptProv, DWORD dwCertEncodingType,
                                      const BYTE* pbEncoded, DWORD cbEncoded, BYTE* pbComputedHash,
                                      DWORD* pcbComputedHash);

CERTKERN_EXTERN_C_END
#endif
