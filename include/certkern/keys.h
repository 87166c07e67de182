/** Public keys, the signatures of certificate-shaped objects, and the way from a certificate to its private key.
 *
 *  All cryptography is the key level's; these functions choose algorithm, converter and provider, and mind the byte
 *  order: a signature is little-endian at the key level and big-endian in the object. */
#ifndef CERTKERN_KEYS_H
#define CERTKERN_KEYS_H

#include <certkern/properties.h>

CERTKERN_EXTERN_C_BEGIN

/** Exports a container's public key as an encodable record.
 *  @param dwKeySpec  AT_KEYEXCHANGE or AT_SIGNATURE
 *  @param pInfo      receives the record with all that it points to; NULL asks for the size
 *  @param pcbInfo    in: bytes at pInfo; out: the size
 *  @return TRUE or FALSE
 *  @errors ERROR_MORE_DATA; those of the extension library and the key level */
CERTKERN_API BOOL CryptExportPublicKeyInfo(HCRYPTPROV_OR_NCRYPT_KEY_HANDLE hCryptProv, DWORD dwKeySpec,
                                           DWORD dwCertEncodingType, PCERT_PUBLIC_KEY_INFO pInfo,
                                           DWORD* pcbInfo);
/** As CryptExportPublicKeyInfo.
 *  @param pszPublicKeyObjId  the algorithm to name; NULL: that of the key
 *  @param dwFlags            handed to the extension library; 0 as a rule
 *  @param pvAuxInfo          handed to the extension library; NULL as a rule */
CERTKERN_API BOOL CryptExportPublicKeyInfoEx(HCRYPTPROV_OR_NCRYPT_KEY_HANDLE hCryptProv, DWORD dwKeySpec,
                                             DWORD dwCertEncodingType, LPSTR pszPublicKeyObjId, DWORD dwFlags,
                                             void* pvAuxInfo, PCERT_PUBLIC_KEY_INFO pInfo, DWORD* pcbInfo);

/** Imports a public key into a provider.
 *  @param pInfo  the key; its algorithm decides how it is converted
 *  @param phKey  receives the key, for CryptDestroyKey
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: pInfo or phKey is NULL; those of the extension library and the key level */
CERTKERN_API BOOL CryptImportPublicKeyInfo(HCRYPTPROV hCryptProv, DWORD dwCertEncodingType,
                                           PCERT_PUBLIC_KEY_INFO pInfo, HCRYPTKEY* phKey);
/** As CryptImportPublicKeyInfo.
 *  @param aiKeyAlg   decides how the key is converted; 0: the provider's type does
 *  @param dwFlags    further flags of CryptImportKey
 *  @param pvAuxInfo  NULL */
CERTKERN_API BOOL CryptImportPublicKeyInfoEx(HCRYPTPROV hCryptProv, DWORD dwCertEncodingType,
                                             PCERT_PUBLIC_KEY_INFO pInfo, ALG_ID aiKeyAlg, DWORD dwFlags,
                                             void* pvAuxInfo, HCRYPTKEY* phKey);

/** The length of a public key.
 *  @return bits; 0 on failure
 *  @errors ERROR_INVALID_PARAMETER: pPublicKey is NULL; NTE_BAD_ALGID: no such algorithm; NTE_FAIL: the provider answers
 *          no length; those of CryptImportPublicKeyInfoEx */
CERTKERN_API DWORD CertGetPublicKeyLength(DWORD dwCertEncodingType, PCERT_PUBLIC_KEY_INFO pPublicKey);
/** Tells if two public keys are the same: algorithm, bits and parameters. Of the parameters of a GOST R 34.10-2012 key
 *  only the parameter set counts (RFC 9215), unless the setting \config\parameters\DisableXnCertComparePublicKeyInfo,
 *  which is read once, is another number than 0.
 *  @return TRUE when equal; FALSE when not (the last error is left alone) or on failure
 *  @errors CRYPT_E_ASN1_INTERNAL: GOST parameters that don't decode */
CERTKERN_API BOOL CertComparePublicKeyInfo(DWORD dwCertEncodingType, PCERT_PUBLIC_KEY_INFO pPublicKey1,
                                           PCERT_PUBLIC_KEY_INFO pPublicKey2);
/** Hashes an encoded public key record.
 *  @param hCryptProv          0
 *  @param Algid               0: MD5
 *  @param dwFlags             kept for the published shape
 *  @param pbComputedHash      receives the hash; NULL asks for the size
 *  @param pcbComputedHash     in: bytes at pbComputedHash; out: the hash's size
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: no key, no size, a provider; ERROR_FILE_NOT_FOUND: no encoding type;
 *          ERROR_MORE_DATA; those of CryptEncodeObject and the key level */
CERTKERN_API BOOL CryptHashPublicKeyInfo(HCRYPTPROV_LEGACY hCryptProv, ALG_ID Algid, DWORD dwFlags,
                                         DWORD dwCertEncodingType, PCERT_PUBLIC_KEY_INFO pInfo,
                                         BYTE* pbComputedHash, DWORD* pcbComputedHash);

/** Signs encoded bytes.
 *  @param dwKeySpec            AT_KEYEXCHANGE or AT_SIGNATURE
 *  @param pSignatureAlgorithm  a signature, or a bare hash: then the result is that hash. For RSA-PSS the parameters
 *                              say how (RFC 4055, 3); none: the defaults
 *  @param pvHashAuxInfo        not looked at
 *  @param pbSignature          receives the signature in stream order; NULL asks for the size
 *  @param pcbSignature         in: bytes at pbSignature; out: the signature's size. Without a buffer it is the most that
 *                              a signature can have, which those of ECDSA seldom do
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: no bytes, no algorithm, no size; NTE_FAIL: an unknown algorithm; CRYPT_E_ASN1_ERROR:
 *          malformed parameters; NTE_BAD_ALGID: parameters that ask for what there is not, such as two different
 *          hashes; NTE_BAD_FLAGS: RSA-PSS with a key of another family; ERROR_MORE_DATA; those of CryptSignHash */
CERTKERN_API BOOL CryptSignCertificate(HCRYPTPROV_OR_NCRYPT_KEY_HANDLE hCryptProv, DWORD dwKeySpec,
                                       DWORD dwCertEncodingType, const BYTE* pbEncodedToBeSigned,
                                       DWORD cbEncodedToBeSigned,
                                       PCRYPT_ALGORITHM_IDENTIFIER pSignatureAlgorithm,
                                       const void* pvHashAuxInfo, BYTE* pbSignature, DWORD* pcbSignature);
/** Encodes a record, signs it, and encodes both as a signed object.
 *  @param lpszStructType  X509_CERT_TO_BE_SIGNED, X509_CERT_CRL_TO_BE_SIGNED, X509_CERT_REQUEST_TO_BE_SIGNED ...
 *  @param pvStructInfo    the record; its own signature algorithm should be the same as pSignatureAlgorithm
 *  @param pbEncoded       receives the object; NULL asks for the size, which signs nothing
 *  @param pcbEncoded      in: bytes at pbEncoded; out: its size; without a buffer, or with one that is too small, the most
 *                         that it can have
 *  @return TRUE or FALSE
 *  @errors ERROR_MORE_DATA: nothing was signed; those of CryptEncodeObject and CryptSignCertificate */
CERTKERN_API BOOL CryptSignAndEncodeCertificate(HCRYPTPROV_OR_NCRYPT_KEY_HANDLE hCryptProv, DWORD dwKeySpec,
                                                DWORD dwCertEncodingType, LPCSTR lpszStructType,
                                                const void* pvStructInfo,
                                                PCRYPT_ALGORITHM_IDENTIFIER pSignatureAlgorithm,
                                                const void* pvHashAuxInfo, BYTE* pbEncoded,
                                                DWORD* pcbEncoded);

/** Verifies the signature of a signed object.
 *  @param hCryptProv  0: a provider for the algorithm is looked for
 *  @param cbEncoded   bytes at pbEncoded
 *  @param pPublicKey  the issuer's key
 *  @return TRUE or FALSE
 *  @errors CRYPT_E_ASN1_ERROR: no bytes, not a signed object, or malformed RSA-PSS parameters; ERROR_INVALID_PARAMETER: no
 *          key; NTE_BAD_DATA: no signature, or key and signature disagree on RSA-PSS (RFC 4055, 3); NTE_BAD_SIGNATURE: the
 *          object was not signed with this key; every other code leaves that open: NTE_NO_MEMORY; NTE_BAD_ALGID;
 *          NTE_BAD_FLAGS: RSA-PSS with a key of another family; NTE_BAD_LEN: an RSA key above the configured length; those of the extension library and the key level. An unknown signature algorithm leaves the
 *          last error as it was */
CERTKERN_API BOOL CryptVerifyCertificateSignature(HCRYPTPROV_LEGACY hCryptProv, DWORD dwCertEncodingType,
                                                  const BYTE* pbEncoded, DWORD cbEncoded,
                                                  PCERT_PUBLIC_KEY_INFO pPublicKey);

/** What pvSubject and pvIssuer of CryptVerifyCertificateSignatureEx are. */
#define CRYPT_VERIFY_CERT_SIGN_SUBJECT_BLOB 1  /**< CRYPT_DATA_BLOB: an encoded signed object */
#define CRYPT_VERIFY_CERT_SIGN_SUBJECT_CERT 2  /**< CERT_CONTEXT */
#define CRYPT_VERIFY_CERT_SIGN_SUBJECT_CRL 3   /**< CRL_CONTEXT */
#define CRYPT_VERIFY_CERT_SIGN_ISSUER_PUBKEY 1 /**< CERT_PUBLIC_KEY_INFO */
#define CRYPT_VERIFY_CERT_SIGN_ISSUER_CERT 2   /**< CERT_CONTEXT */

/** As CryptVerifyCertificateSignature, over contexts.
 *  @param dwFlags  0
 *  @param pvExtra  NULL
 *  @return TRUE or FALSE
 *  @errors E_INVALIDARG: a null subject or issuer, another type, flags or extra; those of
 *          CryptVerifyCertificateSignature */
CERTKERN_API BOOL CryptVerifyCertificateSignatureEx(HCRYPTPROV_LEGACY hCryptProv, DWORD dwCertEncodingType,
                                                    DWORD dwSubjectType, void* pvSubject, DWORD dwIssuerType,
                                                    void* pvIssuer, DWORD dwFlags, void* pvExtra);

/** Flags of CryptAcquireCertificatePrivateKey. */
#define CRYPT_ACQUIRE_CACHE_FLAG 0x1u /**< keep the key on the certificate, which releases it */
#define CRYPT_ACQUIRE_USE_PROV_INFO_FLAG \
  0x2u /**< keep it if the key information says CERT_SET_KEY_CONTEXT_PROP_ID */
#define CRYPT_ACQUIRE_COMPARE_KEY_FLAG 0x4u /**< make sure that it is the key of this certificate */
#define CRYPT_ACQUIRE_SILENT_FLAG 0x40u     /**< never ask the user */

/** Opens the private key of a certificate: the one that is kept on it, or what CERT_KEY_PROV_INFO_PROP_ID points to.
 *  Calls for one certificate wait for each other.
 *  @param dwFlags          CRYPT_ACQUIRE_...
 *  @param pvReserved       ignored
 *  @param phCryptProv      receives the provider
 *  @param pdwKeySpec       receives AT_KEYEXCHANGE or AT_SIGNATURE; may be NULL
 *  @param pfCallerFreeProv receives TRUE when the caller is to release the provider; may be NULL
 *  @return TRUE, which clears the last error, or FALSE
 *  @errors ERROR_INVALID_PARAMETER: not a live context; CRYPT_E_NO_KEY_PROPERTY; NTE_BAD_PUBLIC_KEY: another key;
 *          NTE_FAIL: the PIN callback refused; NTE_NO_MEMORY; those of CryptAcquireContext */
CERTKERN_API BOOL CryptAcquireCertificatePrivateKey(PCCERT_CONTEXT pCert, DWORD dwFlags, void* pvReserved,
                                                    HCRYPTPROV_OR_NCRYPT_KEY_HANDLE* phCryptProv,
                                                    DWORD* pdwKeySpec, BOOL* pfCallerFreeProv);

CERTKERN_EXTERN_C_END
#endif
