/** Enveloped messages: recipients, their keys, and the functions of a key exchange library. RFC 5652, 6.
 *
 *  The content is encrypted with a key of its own, which goes to each recipient by key transport (RSA, and GOST with an
 *  ephemeral key) or key agreement. How a content key is made, exported and imported is the extension library's: it
 *  exports functions of the PFN_CMSG_... types, chosen by algorithm. For GOST: RFC 4490. */
#ifndef CERTKERN_MSG_ENVELOPE_H
#define CERTKERN_MSG_ENVELOPE_H

#include <certkern/msg.h>

CERTKERN_EXTERN_C_BEGIN

/** Values of dwRecipientChoice. */
#define CMSG_KEY_TRANS_RECIPIENT 1
#define CMSG_KEY_AGREE_RECIPIENT 2
#define CMSG_MAIL_LIST_RECIPIENT 3 /**< not served */

/* --- Recipients to be --- */

/** A recipient by key transport. */
typedef struct _CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO {
  DWORD cbSize;
  CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm; /**< as a rule the public key's */
  void* pvKeyEncryptionAuxInfo;
  HCRYPTPROV_LEGACY hCryptProv;
  CRYPT_BIT_BLOB RecipientPublicKey;
  CERT_ID RecipientId;
} CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO, *PCMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO;
CERTKERN_RECORD_SIZE(CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO, 112);

/** One key of a recipient by key agreement. */
typedef struct _CMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO {
  DWORD cbSize;
  CRYPT_BIT_BLOB RecipientPublicKey;
  CERT_ID RecipientId;
  FILETIME Date;                          /**< all zero: none */
  PCRYPT_ATTRIBUTE_TYPE_VALUE pOtherAttr; /**< NULL: none */
} CMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO, *PCMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO;
CERTKERN_RECORD_SIZE(CMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO, 88);

/** Values of CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO.dwKeyChoice. */
#define CMSG_KEY_AGREE_EPHEMERAL_KEY_CHOICE 1
#define CMSG_KEY_AGREE_STATIC_KEY_CHOICE 2

/** A recipient by key agreement. */
typedef struct _CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO {
  DWORD cbSize;
  CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm;
  void* pvKeyEncryptionAuxInfo;
  CRYPT_ALGORITHM_IDENTIFIER KeyWrapAlgorithm;
  void* pvKeyWrapAuxInfo;
  HCRYPTPROV_LEGACY hCryptProv;
  DWORD dwKeySpec;
  DWORD dwKeyChoice;
  union {
    PCRYPT_ALGORITHM_IDENTIFIER pEphemeralAlgorithm;
    PCERT_ID pSenderId;
  };
  CRYPT_DATA_BLOB UserKeyingMaterial;
  DWORD cRecipientEncryptedKeys;
  PCMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO* rgpRecipientEncryptedKeys;
} CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO, *PCMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO;
CERTKERN_RECORD_SIZE(CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO, 128);

/** A recipient by a key that is known already. Not served; the record completes the union below. */
typedef struct _CMSG_MAIL_LIST_RECIPIENT_ENCODE_INFO {
  DWORD cbSize;
  CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm;
  void* pvKeyEncryptionAuxInfo;
  HCRYPTPROV hCryptProv;
  DWORD dwKeyChoice;
  union {
    HCRYPTKEY hKeyEncryptionKey;
    void* pvKeyEncryptionKey;
  };
  CRYPT_DATA_BLOB KeyId;
  FILETIME Date;
  PCRYPT_ATTRIBUTE_TYPE_VALUE pOtherAttr;
} CMSG_MAIL_LIST_RECIPIENT_ENCODE_INFO, *PCMSG_MAIL_LIST_RECIPIENT_ENCODE_INFO;
CERTKERN_RECORD_SIZE(CMSG_MAIL_LIST_RECIPIENT_ENCODE_INFO, 96);

/** A recipient of any kind. */
typedef struct _CMSG_RECIPIENT_ENCODE_INFO {
  DWORD dwRecipientChoice;
  union {
    PCMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO pKeyTrans;
    PCMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO pKeyAgree;
    PCMSG_MAIL_LIST_RECIPIENT_ENCODE_INFO pMailList;
  };
} CMSG_RECIPIENT_ENCODE_INFO, *PCMSG_RECIPIENT_ENCODE_INFO;
CERTKERN_RECORD_SIZE(CMSG_RECIPIENT_ENCODE_INFO, 16);

/** pvMsgEncodeInfo of CMSG_ENVELOPED. Either array of recipients must be given. With a GOST recipient a foreign cipher
 *  is replaced by a GOST one unless the configuration says otherwise. */
typedef struct _CMSG_ENVELOPED_ENCODE_INFO {
  DWORD cbSize;                 /**< fields beyond it don't exist */
  HCRYPTPROV_LEGACY hCryptProv; /**< 0: a default one */
  CRYPT_ALGORITHM_IDENTIFIER ContentEncryptionAlgorithm;
  void* pvEncryptionAuxInfo;
  DWORD cRecipients;                           /**< of whichever array is given */
  PCERT_INFO* rgpRecipients;                   /**< certificates, for key transport */
  PCMSG_RECIPIENT_ENCODE_INFO rgCmsRecipients; /**< used when rgpRecipients is NULL */
  DWORD cCertEncoded;                          /**< certificates and CRLs are not looked at */
  PCERT_BLOB rgCertEncoded;
  DWORD cCrlEncoded;
  PCRL_BLOB rgCrlEncoded;
  DWORD cAttrCertEncoded;
  PCERT_BLOB rgAttrCertEncoded;
  DWORD cUnprotectedAttr;
  PCRYPT_ATTRIBUTE rgUnprotectedAttr;
} CMSG_ENVELOPED_ENCODE_INFO, *PCMSG_ENVELOPED_ENCODE_INFO;
CERTKERN_RECORD_SIZE(CMSG_ENVELOPED_ENCODE_INFO, 136);
CERTKERN_FIELD_AT(CMSG_ENVELOPED_ENCODE_INFO, rgCmsRecipients, 64);
CERTKERN_FIELD_AT(CMSG_ENVELOPED_ENCODE_INFO, cUnprotectedAttr, 120);

/* --- Recipients of a message that was read --- */

/** A recipient by key transport. RFC 5652, 6.2.1. */
typedef struct _CMSG_KEY_TRANS_RECIPIENT_INFO {
  DWORD dwVersion;
  CERT_ID RecipientId;
  CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm;
  CRYPT_DATA_BLOB EncryptedKey;
} CMSG_KEY_TRANS_RECIPIENT_INFO, *PCMSG_KEY_TRANS_RECIPIENT_INFO;
CERTKERN_RECORD_SIZE(CMSG_KEY_TRANS_RECIPIENT_INFO, 88);

/** One key of a recipient by key agreement. */
typedef struct _CMSG_RECIPIENT_ENCRYPTED_KEY_INFO {
  CERT_ID RecipientId;
  CRYPT_DATA_BLOB EncryptedKey;
  FILETIME Date;                          /**< all zero: none */
  PCRYPT_ATTRIBUTE_TYPE_VALUE pOtherAttr; /**< NULL: none */
} CMSG_RECIPIENT_ENCRYPTED_KEY_INFO, *PCMSG_RECIPIENT_ENCRYPTED_KEY_INFO;
CERTKERN_RECORD_SIZE(CMSG_RECIPIENT_ENCRYPTED_KEY_INFO, 72);

/** Values of dwOriginatorChoice. */
#define CMSG_KEY_AGREE_ORIGINATOR_CERT 1
#define CMSG_KEY_AGREE_ORIGINATOR_PUBLIC_KEY 2

/** A recipient by key agreement. RFC 5652, 6.2.2. */
typedef struct _CMSG_KEY_AGREE_RECIPIENT_INFO {
  DWORD dwVersion;
  DWORD dwOriginatorChoice;
  union {
    CERT_ID OriginatorCertId;
    CERT_PUBLIC_KEY_INFO OriginatorPublicKeyInfo;
  };
  CRYPT_DATA_BLOB UserKeyingMaterial;
  CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm;
  DWORD cRecipientEncryptedKeys;
  PCMSG_RECIPIENT_ENCRYPTED_KEY_INFO* rgpRecipientEncryptedKeys;
} CMSG_KEY_AGREE_RECIPIENT_INFO, *PCMSG_KEY_AGREE_RECIPIENT_INFO;
CERTKERN_RECORD_SIZE(CMSG_KEY_AGREE_RECIPIENT_INFO, 112);

/** A recipient by a known key. Never answered; the record completes the union below. RFC 5652, 6.2.3. */
typedef struct _CMSG_MAIL_LIST_RECIPIENT_INFO {
  DWORD dwVersion;
  CRYPT_DATA_BLOB KeyId;
  CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm;
  CRYPT_DATA_BLOB EncryptedKey;
  FILETIME Date;
  PCRYPT_ATTRIBUTE_TYPE_VALUE pOtherAttr;
} CMSG_MAIL_LIST_RECIPIENT_INFO, *PCMSG_MAIL_LIST_RECIPIENT_INFO;
CERTKERN_RECORD_SIZE(CMSG_MAIL_LIST_RECIPIENT_INFO, 80);

/** CMSG_CMS_RECIPIENT_INFO_PARAM: a recipient of any kind. Recipients that are named by their key can't be answered. */
typedef struct _CMSG_CMS_RECIPIENT_INFO {
  DWORD dwRecipientChoice;
  union {
    PCMSG_KEY_TRANS_RECIPIENT_INFO pKeyTrans;
    PCMSG_KEY_AGREE_RECIPIENT_INFO pKeyAgree;
    PCMSG_MAIL_LIST_RECIPIENT_INFO pMailList;
  };
} CMSG_CMS_RECIPIENT_INFO, *PCMSG_CMS_RECIPIENT_INFO;
CERTKERN_RECORD_SIZE(CMSG_CMS_RECIPIENT_INFO, 16);

/* --- Decrypting --- */

/** CMSG_CTRL_DECRYPT: key transport, by index alone. */
typedef struct _CMSG_CTRL_DECRYPT_PARA {
  DWORD cbSize;
  union {
    HCRYPTPROV hCryptProv; /**< holds the recipient's private key */
  };
  DWORD dwKeySpec;
  DWORD dwRecipientIndex; /**< from 0 */
} CMSG_CTRL_DECRYPT_PARA, *PCMSG_CTRL_DECRYPT_PARA;
CERTKERN_RECORD_SIZE(CMSG_CTRL_DECRYPT_PARA, 24);

/** CMSG_CTRL_KEY_TRANS_DECRYPT. */
typedef struct _CMSG_CTRL_KEY_TRANS_DECRYPT_PARA {
  DWORD cbSize;
  union {
    HCRYPTPROV hCryptProv; /**< holds the recipient's private key */
  };
  DWORD dwKeySpec;
  PCMSG_KEY_TRANS_RECIPIENT_INFO pKeyTrans;
  DWORD dwRecipientIndex; /**< from 0 */
} CMSG_CTRL_KEY_TRANS_DECRYPT_PARA, *PCMSG_CTRL_KEY_TRANS_DECRYPT_PARA;
CERTKERN_RECORD_SIZE(CMSG_CTRL_KEY_TRANS_DECRYPT_PARA, 40);

/** CMSG_CTRL_KEY_AGREE_DECRYPT. */
typedef struct _CMSG_CTRL_KEY_AGREE_DECRYPT_PARA {
  DWORD cbSize;
  union {
    HCRYPTPROV hCryptProv; /**< holds the recipient's private key */
  };
  DWORD dwKeySpec;
  PCMSG_KEY_AGREE_RECIPIENT_INFO pKeyAgree;
  DWORD dwRecipientIndex;             /**< from 0 */
  DWORD dwRecipientEncryptedKeyIndex; /**< from 0 */
  CRYPT_BIT_BLOB OriginatorPublicKey;
} CMSG_CTRL_KEY_AGREE_DECRYPT_PARA, *PCMSG_CTRL_KEY_AGREE_DECRYPT_PARA;
CERTKERN_RECORD_SIZE(CMSG_CTRL_KEY_AGREE_DECRYPT_PARA, 64);

/* --- Key exchange functions --- */

/** Memory for what a key exchange function answers; it is given back by whoever called the function. */
typedef void* (*PFN_CMSG_ALLOC)(size_t cb);
typedef void (*PFN_CMSG_FREE)(void* pv);

/** The content encryption, as the key exchange functions see it. */
typedef struct _CMSG_CONTENT_ENCRYPT_INFO {
  DWORD cbSize;
  HCRYPTPROV_LEGACY hCryptProv;
  CRYPT_ALGORITHM_IDENTIFIER ContentEncryptionAlgorithm; /**< parameters may be filled in by key generation */
  void* pvEncryptionAuxInfo;
  DWORD cRecipients;
  PCMSG_RECIPIENT_ENCODE_INFO rgCmsRecipients;
  PFN_CMSG_ALLOC pfnAlloc;
  PFN_CMSG_FREE pfnFree;
  DWORD dwEncryptFlags;
  union {
    HCRYPTKEY hContentEncryptKey; /**< made by key generation; the message destroys it */
  };
  DWORD dwFlags;
} CMSG_CONTENT_ENCRYPT_INFO, *PCMSG_CONTENT_ENCRYPT_INFO;
CERTKERN_RECORD_SIZE(CMSG_CONTENT_ENCRYPT_INFO, 104);

/** The result of key transport; EncryptedKey comes from pfnAlloc. */
typedef struct _CMSG_KEY_TRANS_ENCRYPT_INFO {
  DWORD cbSize;
  DWORD dwRecipientIndex;
  CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm;
  CRYPT_DATA_BLOB EncryptedKey;
  DWORD dwFlags;
} CMSG_KEY_TRANS_ENCRYPT_INFO, *PCMSG_KEY_TRANS_ENCRYPT_INFO;
CERTKERN_RECORD_SIZE(CMSG_KEY_TRANS_ENCRYPT_INFO, 56);

/** One encrypted key of key agreement, from pfnAlloc. */
typedef struct _CMSG_KEY_AGREE_KEY_ENCRYPT_INFO {
  DWORD cbSize;
  CRYPT_DATA_BLOB EncryptedKey;
} CMSG_KEY_AGREE_KEY_ENCRYPT_INFO, *PCMSG_KEY_AGREE_KEY_ENCRYPT_INFO;
CERTKERN_RECORD_SIZE(CMSG_KEY_AGREE_KEY_ENCRYPT_INFO, 24);

/** The result of key agreement. */
typedef struct _CMSG_KEY_AGREE_ENCRYPT_INFO {
  DWORD cbSize;
  DWORD dwRecipientIndex;
  CRYPT_ALGORITHM_IDENTIFIER KeyEncryptionAlgorithm;
  CRYPT_DATA_BLOB UserKeyingMaterial;
  DWORD dwOriginatorChoice;
  union {
    CERT_ID OriginatorCertId;
    CERT_PUBLIC_KEY_INFO OriginatorPublicKeyInfo;
  };
  DWORD cKeyAgreeKeyEncryptInfo;
  PCMSG_KEY_AGREE_KEY_ENCRYPT_INFO* rgpKeyAgreeKeyEncryptInfo;
  DWORD dwFlags;
} CMSG_KEY_AGREE_ENCRYPT_INFO, *PCMSG_KEY_AGREE_ENCRYPT_INFO;
CERTKERN_RECORD_SIZE(CMSG_KEY_AGREE_ENCRYPT_INFO, 128);

/** Makes the content encryption key. dwFlags is 0 and pvReserved NULL, here and below; FALSE with a last error is a
 *  failure. */
typedef BOOL (*PFN_CMSG_GEN_CONTENT_ENCRYPT_KEY)(PCMSG_CONTENT_ENCRYPT_INFO pContentEncryptInfo,
                                                 DWORD dwFlags, void* pvReserved);
/** Encrypts the content encryption key to a recipient by key transport. */
typedef BOOL (*PFN_CMSG_EXPORT_KEY_TRANS)(PCMSG_CONTENT_ENCRYPT_INFO pContentEncryptInfo,
                                          PCMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO pKeyTransEncodeInfo,
                                          PCMSG_KEY_TRANS_ENCRYPT_INFO pKeyTransEncryptInfo, DWORD dwFlags,
                                          void* pvReserved);
/** Encrypts the content encryption key to a recipient by key agreement. */
typedef BOOL (*PFN_CMSG_EXPORT_KEY_AGREE)(PCMSG_CONTENT_ENCRYPT_INFO pContentEncryptInfo,
                                          PCMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO pKeyAgreeEncodeInfo,
                                          PCMSG_KEY_AGREE_ENCRYPT_INFO pKeyAgreeEncryptInfo, DWORD dwFlags,
                                          void* pvReserved);
/** Decrypts the content encryption key by key transport; the message destroys the key. */
typedef BOOL (*PFN_CMSG_IMPORT_KEY_TRANS)(PCRYPT_ALGORITHM_IDENTIFIER pContentEncryptionAlgorithm,
                                          PCMSG_CTRL_KEY_TRANS_DECRYPT_PARA pKeyTransDecryptPara,
                                          DWORD dwFlags, void* pvReserved, HCRYPTKEY* phContentEncryptKey);
/** Decrypts the content encryption key by key agreement; the message destroys the key. */
typedef BOOL (*PFN_CMSG_IMPORT_KEY_AGREE)(PCRYPT_ALGORITHM_IDENTIFIER pContentEncryptionAlgorithm,
                                          PCMSG_CTRL_KEY_AGREE_DECRYPT_PARA pKeyAgreeDecryptPara,
                                          DWORD dwFlags, void* pvReserved, HCRYPTKEY* phContentEncryptKey);

CERTKERN_EXTERN_C_END
#endif
