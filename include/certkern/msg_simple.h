/** Messages in one call: sign, verify, encrypt, decrypt; and what is in a file or in memory.
 *
 *  Each function opens a message of <certkern/msg.h>, does its work and closes it; so the codes are those that are told
 *  there. Where a GOST key meets a foreign hash or cipher in the parameters, a GOST one takes its place, unless the
 *  configuration switches that off; the caller's records are never changed. */
#ifndef CERTKERN_MSG_SIMPLE_H
#define CERTKERN_MSG_SIMPLE_H

#include <certkern/msg.h>

CERTKERN_EXTERN_C_BEGIN

/** CRYPT_SIGN_MESSAGE_PARA.dwFlags and CRYPT_DECRYPT_MESSAGE_PARA.dwFlags. The SVCMSG_... flags of <certkern/msg.h>, but
 *  for SVCMSG_CADES_NO_KEY_SEARCH, go with the former. */
#define CRYPT_MESSAGE_BARE_CONTENT_OUT_FLAG 0x1u
#define CRYPT_MESSAGE_ENCAPSULATED_CONTENT_OUT_FLAG 0x2u
#define CRYPT_MESSAGE_KEYID_SIGNER_FLAG 0x4u
#define CRYPT_MESSAGE_SILENT_KEYSET_FLAG 0x40u /**< never ask the user for the key */

/** How to sign. */
typedef struct _CRYPT_SIGN_MESSAGE_PARA {
  DWORD cbSize; /**< fields beyond it don't exist */
  DWORD dwMsgEncodingType;
  PCCERT_CONTEXT pSigningCert; /**< with a private key; NULL: a message without signers */
  CRYPT_ALGORITHM_IDENTIFIER HashAlgorithm;
  void* pvHashAuxInfo;
  DWORD cMsgCert;
  PCCERT_CONTEXT* rgpMsgCert; /**< certificates to put into the message */
  DWORD cMsgCrl;
  PCCRL_CONTEXT* rgpMsgCrl; /**< CRLs to put into the message */
  DWORD cAuthAttr;
  PCRYPT_ATTRIBUTE rgAuthAttr;
  DWORD cUnauthAttr;
  PCRYPT_ATTRIBUTE rgUnauthAttr;
  DWORD dwFlags;
  DWORD dwInnerContentType;                           /**< not looked at */
  CRYPT_ALGORITHM_IDENTIFIER HashEncryptionAlgorithm; /**< not looked at */
  void* pvHashEncryptionAuxInfo;                      /**< not looked at */
} CRYPT_SIGN_MESSAGE_PARA, *PCRYPT_SIGN_MESSAGE_PARA;
CERTKERN_RECORD_SIZE(CRYPT_SIGN_MESSAGE_PARA, 152);
CERTKERN_FIELD_AT(CRYPT_SIGN_MESSAGE_PARA, HashAlgorithm, 16);
CERTKERN_FIELD_AT(CRYPT_SIGN_MESSAGE_PARA, dwFlags, 112);

/** Finds the certificate of a signer: a context that the library frees, or NULL. The store holds the certificates of the
 *  message. */
typedef PCCERT_CONTEXT (*PFN_CRYPT_GET_SIGNER_CERTIFICATE)(void* pvGetArg, DWORD dwCertEncodingType,
                                                           PCERT_INFO pSignerId, HCERTSTORE hMsgCertStore);

/** How to verify. */
typedef struct _CRYPT_VERIFY_MESSAGE_PARA {
  DWORD cbSize;
  DWORD dwMsgAndCertEncodingType;
  HCRYPTPROV_LEGACY hCryptProv;                             /**< not looked at */
  PFN_CRYPT_GET_SIGNER_CERTIFICATE pfnGetSignerCertificate; /**< NULL: the message must hold it */
  void* pvGetArg;
} CRYPT_VERIFY_MESSAGE_PARA, *PCRYPT_VERIFY_MESSAGE_PARA;
CERTKERN_RECORD_SIZE(CRYPT_VERIFY_MESSAGE_PARA, 32);

/** How to encrypt. */
typedef struct _CRYPT_ENCRYPT_MESSAGE_PARA {
  DWORD cbSize;
  DWORD dwMsgEncodingType;
  HCRYPTPROV_LEGACY hCryptProv; /**< 0: a default one */
  CRYPT_ALGORITHM_IDENTIFIER ContentEncryptionAlgorithm;
  void* pvEncryptionAuxInfo;
  DWORD dwFlags;            /**< 0 */
  DWORD dwInnerContentType; /**< not looked at */
} CRYPT_ENCRYPT_MESSAGE_PARA, *PCRYPT_ENCRYPT_MESSAGE_PARA;
CERTKERN_RECORD_SIZE(CRYPT_ENCRYPT_MESSAGE_PARA, 56);

/** How to decrypt. */
typedef struct _CRYPT_DECRYPT_MESSAGE_PARA {
  DWORD cbSize; /**< at least 24 */
  DWORD dwMsgAndCertEncodingType;
  DWORD cCertStore;
  HCERTSTORE* rghCertStore; /**< searched for a recipient's certificate, in this order */
  DWORD dwFlags;
} CRYPT_DECRYPT_MESSAGE_PARA, *PCRYPT_DECRYPT_MESSAGE_PARA;
CERTKERN_RECORD_SIZE(CRYPT_DECRYPT_MESSAGE_PARA, 32);
CERTKERN_FIELD_AT(CRYPT_DECRYPT_MESSAGE_PARA, dwFlags, 24);

/** Signs one piece of data.
 *  @param fDetachedSignature  leave the data out of the message
 *  @param cToBeSigned         0 or 1, the number of elements in the two arrays
 *  @param rgcbToBeSigned      bytes of each piece
 *  @param pbSignedBlob        receives the message; NULL asks for the size
 *  @param pcbSignedBlob       in: bytes at pbSignedBlob; out: the message's size, an upper bound for a query
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: no parameters, more than one piece; CRYPT_E_NO_KEY_PROPERTY; ERROR_MORE_DATA; those
 *          of CryptAcquireCertificatePrivateKey and CryptMsgOpenToEncode */
CERTKERN_API BOOL CryptSignMessage(PCRYPT_SIGN_MESSAGE_PARA pSignPara, BOOL fDetachedSignature,
                                   DWORD cToBeSigned, const BYTE* rgpbToBeSigned[], DWORD rgcbToBeSigned[],
                                   BYTE* pbSignedBlob, DWORD* pcbSignedBlob);

/** Verifies one signature of a message. Whether the signer is to be trusted is not asked: build its chain.
 *  @param dwSignerIndex  from 0
 *  @param cbSignedBlob   bytes at pbSignedBlob
 *  @param pbDecoded      receives the content; NULL asks for the size
 *  @param pcbDecoded     in: bytes at pbDecoded; out: the content's size; may be NULL: not wanted
 *  @param ppSignerCert   receives a context to be freed; may be NULL
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER; CRYPT_E_UNEXPECTED_MSG_TYPE: not a signed message; CRYPT_E_NO_SIGNER: no such
 *          signer; NTE_BAD_SIGNATURE; ERROR_MORE_DATA; those of CryptMsgUpdate and CryptMsgControl */
CERTKERN_API BOOL CryptVerifyMessageSignature(PCRYPT_VERIFY_MESSAGE_PARA pVerifyPara, DWORD dwSignerIndex,
                                              const BYTE* pbSignedBlob, DWORD cbSignedBlob, BYTE* pbDecoded,
                                              DWORD* pcbDecoded, PCCERT_CONTEXT* ppSignerCert);
/** Verifies one signature of a message whose content is elsewhere.
 *  @param cToBeSigned     at least 1, the number of elements in the two arrays
 *  @param rgpbToBeSigned  the pieces of the content, in order
 *  @param rgcbToBeSigned  bytes of each piece
 *  @return TRUE or FALSE
 *  @errors as CryptVerifyMessageSignature */
CERTKERN_API BOOL CryptVerifyDetachedMessageSignature(PCRYPT_VERIFY_MESSAGE_PARA pVerifyPara,
                                                      DWORD dwSignerIndex, const BYTE* pbDetachedSignBlob,
                                                      DWORD cbDetachedSignBlob, DWORD cToBeSigned,
                                                      const BYTE* rgpbToBeSigned[], DWORD rgcbToBeSigned[],
                                                      PCCERT_CONTEXT* ppSignerCert);
/** The number of signers.
 *  @param cbSignedBlob  bytes at pbSignedBlob
 *  @return the number; -1 on failure
 *  @errors ERROR_INVALID_PARAMETER; CRYPT_E_UNEXPECTED_MSG_TYPE: not a signed message; those of CryptMsgUpdate */
CERTKERN_API LONG CryptGetMessageSignerCount(DWORD dwMsgEncodingType, const BYTE* pbSignedBlob,
                                             DWORD cbSignedBlob);

/** Encrypts data to recipients.
 *  @param rgpRecipientCert  cRecipientCert certificates, at least one
 *  @param cbToBeEncrypted   bytes at pbToBeEncrypted
 *  @param pbEncryptedBlob   receives the message; NULL asks for the size, which costs a whole encryption
 *  @param pcbEncryptedBlob  in: bytes at pbEncryptedBlob; out: the message's size
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: no parameters, no recipients, flags; ERROR_MORE_DATA; those of CryptMsgOpenToEncode */
CERTKERN_API BOOL CryptEncryptMessage(PCRYPT_ENCRYPT_MESSAGE_PARA pEncryptPara, DWORD cRecipientCert,
                                      PCCERT_CONTEXT rgpRecipientCert[], const BYTE* pbToBeEncrypted,
                                      DWORD cbToBeEncrypted, BYTE* pbEncryptedBlob, DWORD* pcbEncryptedBlob);
/** Decrypts a message with the key of the first recipient whose certificate is in one of the stores.
 *  @param cbEncryptedBlob  bytes at pbEncryptedBlob
 *  @param pbDecrypted      receives the content; NULL asks for the size
 *  @param pcbDecrypted     in: bytes at pbDecrypted; out: the content's size
 *  @param ppXchgCert       receives that certificate, to be freed; may be NULL
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER; E_INVALIDARG: cbSize; CRYPT_E_UNEXPECTED_MSG_TYPE: not an enveloped message;
 *          CRYPT_E_NO_DECRYPT_CERT; ERROR_MORE_DATA; those of CryptAcquireCertificatePrivateKey and CryptMsgControl */
CERTKERN_API BOOL CryptDecryptMessage(PCRYPT_DECRYPT_MESSAGE_PARA pDecryptPara, const BYTE* pbEncryptedBlob,
                                      DWORD cbEncryptedBlob, BYTE* pbDecrypted, DWORD* pcbDecrypted,
                                      PCCERT_CONTEXT* ppXchgCert);

/* --- What is this? --- */

/** What pvObject of CryptQueryObject is. */
#define CERT_QUERY_OBJECT_FILE 1 /**< wide path */
#define CERT_QUERY_OBJECT_BLOB 2 /**< CRYPT_DATA_BLOB */

/** Kinds of contents, in *pdwContentType. Those marked (never) are not looked for. */
#define CERT_QUERY_CONTENT_CERT 1
#define CERT_QUERY_CONTENT_CTL 2 /**< (never) */
#define CERT_QUERY_CONTENT_CRL 3
#define CERT_QUERY_CONTENT_SERIALIZED_STORE 4
#define CERT_QUERY_CONTENT_SERIALIZED_CERT 5
#define CERT_QUERY_CONTENT_SERIALIZED_CTL 6 /**< (never) */
#define CERT_QUERY_CONTENT_SERIALIZED_CRL 7
#define CERT_QUERY_CONTENT_PKCS7_SIGNED 8
#define CERT_QUERY_CONTENT_PKCS7_UNSIGNED 9      /**< a hashed message */
#define CERT_QUERY_CONTENT_PKCS7_SIGNED_EMBED 10 /**< (never) */
#define CERT_QUERY_CONTENT_PKCS10 11
#define CERT_QUERY_CONTENT_PFX 12
#define CERT_QUERY_CONTENT_CERT_PAIR 13    /**< (never) */
#define CERT_QUERY_CONTENT_PFX_AND_LOAD 14 /**< without a password, keys are not kept */

/** Which kinds to try, in dwExpectedContentTypeFlags. */
#define CERT_QUERY_CONTENT_FLAG_CERT (1u << CERT_QUERY_CONTENT_CERT)
#define CERT_QUERY_CONTENT_FLAG_CTL (1u << CERT_QUERY_CONTENT_CTL)
#define CERT_QUERY_CONTENT_FLAG_CRL (1u << CERT_QUERY_CONTENT_CRL)
#define CERT_QUERY_CONTENT_FLAG_SERIALIZED_STORE (1u << CERT_QUERY_CONTENT_SERIALIZED_STORE)
#define CERT_QUERY_CONTENT_FLAG_SERIALIZED_CERT (1u << CERT_QUERY_CONTENT_SERIALIZED_CERT)
#define CERT_QUERY_CONTENT_FLAG_SERIALIZED_CTL (1u << CERT_QUERY_CONTENT_SERIALIZED_CTL)
#define CERT_QUERY_CONTENT_FLAG_SERIALIZED_CRL (1u << CERT_QUERY_CONTENT_SERIALIZED_CRL)
#define CERT_QUERY_CONTENT_FLAG_PKCS7_SIGNED (1u << CERT_QUERY_CONTENT_PKCS7_SIGNED)
#define CERT_QUERY_CONTENT_FLAG_PKCS7_UNSIGNED (1u << CERT_QUERY_CONTENT_PKCS7_UNSIGNED)
#define CERT_QUERY_CONTENT_FLAG_PKCS7_SIGNED_EMBED (1u << CERT_QUERY_CONTENT_PKCS7_SIGNED_EMBED)
#define CERT_QUERY_CONTENT_FLAG_PKCS10 (1u << CERT_QUERY_CONTENT_PKCS10)
#define CERT_QUERY_CONTENT_FLAG_PFX (1u << CERT_QUERY_CONTENT_PFX)
#define CERT_QUERY_CONTENT_FLAG_CERT_PAIR (1u << CERT_QUERY_CONTENT_CERT_PAIR)
#define CERT_QUERY_CONTENT_FLAG_PFX_AND_LOAD (1u << CERT_QUERY_CONTENT_PFX_AND_LOAD)
#define CERT_QUERY_CONTENT_FLAG_ALL 0x3FFEu /**< all but CERT_QUERY_CONTENT_FLAG_PFX_AND_LOAD */

/** Forms, in *pdwFormatType, and which to try, in dwExpectedFormatTypeFlags. */
#define CERT_QUERY_FORMAT_BINARY 1
#define CERT_QUERY_FORMAT_BASE64_ENCODED 2        /**< narrow or wide text, with or without banners */
#define CERT_QUERY_FORMAT_ASN_ASCII_HEX_ENCODED 3 /**< (never) */
#define CERT_QUERY_FORMAT_FLAG_BINARY (1u << CERT_QUERY_FORMAT_BINARY)
#define CERT_QUERY_FORMAT_FLAG_BASE64_ENCODED (1u << CERT_QUERY_FORMAT_BASE64_ENCODED)
#define CERT_QUERY_FORMAT_FLAG_ASN_ASCII_HEX_ENCODED (1u << CERT_QUERY_FORMAT_ASN_ASCII_HEX_ENCODED)
#define CERT_QUERY_FORMAT_FLAG_ALL 0xEu

/** Finds out what a file or some bytes hold, by trying: serialized store, PFX, signed message, hashed message, request,
 *  certificate, CRL, serialized certificate, serialized CRL, in this order. Each result may be NULL: not wanted.
 *  @param dwFlags                    0
 *  @param pdwMsgAndCertEncodingType  receives X509_ASN_ENCODING, for stores and messages with PKCS_7_ASN_ENCODING
 *  @param phCertStore                receives a store over what was found, for CertCloseStore, or NULL
 *  @param phMsg                      receives the message, for CryptMsgClose, or NULL
 *  @param ppvContext                 receives the certificate or CRL context, to be freed, or NULL
 *  @return TRUE or FALSE
 *  @errors E_INVALIDARG: no object or bytes, another object type, flags; HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND): the
 *          file can't be opened; E_FAIL: it can't be read, or is empty; ERROR_NOT_ENOUGH_MEMORY; otherwise what the last
 *          attempt left */
CERTKERN_API BOOL CryptQueryObject(DWORD dwObjectType, const void* pvObject, DWORD dwExpectedContentTypeFlags,
                                   DWORD dwExpectedFormatTypeFlags, DWORD dwFlags,
                                   DWORD* pdwMsgAndCertEncodingType, DWORD* pdwContentType,
                                   DWORD* pdwFormatType, HCERTSTORE* phCertStore, HCRYPTMSG* phMsg,
                                   const void** ppvContext);

CERTKERN_EXTERN_C_END
#endif
