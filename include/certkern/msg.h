/** Messages: building, reading, signing and verifying CMS objects. RFC 5652.
 *
 *  A message handle stands for one object that is built or read: open it, give it the data with CryptMsgUpdate, then ask
 *  for results with CryptMsgGetParam or change it with CryptMsgControl. A message to be read without a stream is given
 *  whole, in one update; what comes after is the content of a detached message. With a stream record the data flows
 *  through a callback in pieces of any size, and memory stays small.
 *
 *  A handle is counted, not locked and not validated: it belongs to one thread at a time. Structures that go in are only
 *  read, and for signed and enveloped messages copied at the open, so that what the library adds to them (attributes,
 *  GOST algorithms in place of foreign ones) never shows in the caller's.
 *
 *  Unless a code is named, a failure of these functions is ERROR_INVALID_PARAMETER; what was wrong is in the trace.
 *  Enveloped messages have their records in <certkern/msg_envelope.h>. */
#ifndef CERTKERN_MSG_H
#define CERTKERN_MSG_H

#include <certkern/find.h>

CERTKERN_EXTERN_C_BEGIN

/** Message types. Those marked (never) are refused. */
#define CMSG_DATA 1u
#define CMSG_SIGNED 2u
#define CMSG_ENVELOPED 3u
#define CMSG_SIGNED_AND_ENVELOPED 4u /**< (never) */
#define CMSG_HASHED 5u
#define CMSG_ENCRYPTED 6u /**< (never) */

/** dwFlags of the open functions. Those marked (no effect) are taken. */
#define CMSG_BARE_CONTENT_FLAG 0x1u /**< a streamed encoder leaves out the ContentInfo around its output */
#define CMSG_LENGTH_ONLY_FLAG 0x2u  /**< (no effect) */
#define CMSG_DETACHED_FLAG 0x4u     /**< the content is not in the message */
#define CMSG_AUTHENTICATED_ATTRIBUTES_FLAG 0x8u  /**< (no effect) */
#define CMSG_CONTENTS_OCTETS_FLAG 0x10u          /**< (no effect) */
#define CMSG_MAX_LENGTH_FLAG 0x20u               /**< (no effect) */
#define CMSG_CMS_ENCAPSULATED_CONTENT_FLAG 0x40u /**< (no effect) */
#define CMSG_SIGNED_DATA_NO_SIGN_FLAG 0x80u      /**< (no effect) */
#define CMSG_CRYPT_RELEASE_CONTEXT_FLAG 0x8000u  /**< decoding: closing the message releases hCryptProv */

/** Extension flags, beside those above: the attributes that bind a GOST signature to its certificate (RFC 5126,
 *  4.3.1), and the display of what is to be signed. */
#define SVCMSG_CADES_STRICT 0x0100u  /**< fail when the signer's certificate isn't found */
#define SVCMSG_CADES_DISABLE 0x0200u /**< add no attributes; not together with SVCMSG_CADES_STRICT */
#define SVCMSG_CADES_NO_KEY_SEARCH \
  0x0400u                           /**< look for it neither in the key container nor in the stores "my" */
#define SVCMSG_DTBS_DISPLAY 0x0800u /**< show what is to be signed, where the key level can */
#define SVCMSG_DTBS_DISPLAY_SIGNER 0x1000u /**< the same, told apart by the display */
#define SVCMSG_EXTENSION_FLAGS 0x1F00u

/* --- Streams --- */

/** Takes a piece of output. pbData lives for the call only and may be NULL with cbData 0; fFinal is TRUE in the last
 *  call, once. FALSE stops the update, with the last error that the callback leaves. */
typedef BOOL (*PFN_CMSG_STREAM_OUTPUT)(const void* pvArg, BYTE* pbData, DWORD cbData, BOOL fFinal);

#define CMSG_INDEFINITE_LENGTH 0xFFFFFFFFu

/** A stream; copied at the open. */
typedef struct _CMSG_STREAM_INFO {
  DWORD cbContent; /**< bytes of content: makes a signed message definite-length; or CMSG_INDEFINITE_LENGTH */
  PFN_CMSG_STREAM_OUTPUT pfnStreamOutput;
  void* pvArg;
} CMSG_STREAM_INFO, *PCMSG_STREAM_INFO;
CERTKERN_RECORD_SIZE(CMSG_STREAM_INFO, 24);

/* --- What a message is made of --- */

/** An attribute with a single value. */
typedef struct _CRYPT_ATTRIBUTE_TYPE_VALUE {
  LPSTR pszObjId;
  CRYPT_OBJID_BLOB Value;
} CRYPT_ATTRIBUTE_TYPE_VALUE, *PCRYPT_ATTRIBUTE_TYPE_VALUE;
CERTKERN_RECORD_SIZE(CRYPT_ATTRIBUTE_TYPE_VALUE, 24);

/** A signer to be. Fields behind cbSize don't exist: records of an array follow each other by their cbSize. */
typedef struct _CMSG_SIGNER_ENCODE_INFO {
  DWORD cbSize;
  PCERT_INFO pCertInfo; /**< Issuer, SerialNumber, SubjectPublicKeyInfo */
  union {
    HCRYPTPROV hCryptProv; /**< holds the key; must outlive the message */
  };
  DWORD dwKeySpec; /**< AT_KEYEXCHANGE or AT_SIGNATURE */
  CRYPT_ALGORITHM_IDENTIFIER HashAlgorithm;
  void* pvHashAuxInfo; /**< not looked at */
  DWORD
  cAuthAttr; /**< 0: no signed attributes; else contentType and messageDigest are added. RFC 5652, 5.3 */
  PCRYPT_ATTRIBUTE rgAuthAttr;
  DWORD cUnauthAttr;
  PCRYPT_ATTRIBUTE rgUnauthAttr;
  CERT_ID SignerId; /**< dwIdChoice 0: issuer and serial number of pCertInfo */
  /** Not looked at: the key's algorithm is used. A key of RSASSA-PSS without parameters signs HashAlgorithm with a mask by the
   *  same hash and a salt of its size. */
  CRYPT_ALGORITHM_IDENTIFIER HashEncryptionAlgorithm;
  void* pvHashEncryptionAuxInfo; /**< not looked at */
} CMSG_SIGNER_ENCODE_INFO, *PCMSG_SIGNER_ENCODE_INFO;
CERTKERN_RECORD_SIZE(CMSG_SIGNER_ENCODE_INFO, 168);
CERTKERN_FIELD_AT(CMSG_SIGNER_ENCODE_INFO, HashAlgorithm, 32);
CERTKERN_FIELD_AT(CMSG_SIGNER_ENCODE_INFO, SignerId, 96);

/** pvMsgEncodeInfo of CMSG_SIGNED. Without signers it makes a bag of certificates and CRLs. */
typedef struct _CMSG_SIGNED_ENCODE_INFO {
  DWORD cbSize;
  DWORD cSigners;
  PCMSG_SIGNER_ENCODE_INFO rgSigners;
  DWORD cCertEncoded;
  PCERT_BLOB rgCertEncoded;
  DWORD cCrlEncoded;
  PCRL_BLOB rgCrlEncoded;
  DWORD cAttrCertEncoded;       /**< not looked at */
  PCERT_BLOB rgAttrCertEncoded; /**< not looked at */
} CMSG_SIGNED_ENCODE_INFO, *PCMSG_SIGNED_ENCODE_INFO;
CERTKERN_RECORD_SIZE(CMSG_SIGNED_ENCODE_INFO, 64);
CERTKERN_FIELD_AT(CMSG_SIGNED_ENCODE_INFO, cAttrCertEncoded, 48);

/** pvMsgEncodeInfo of CMSG_HASHED; cbSize must be exactly this size. */
typedef struct _CMSG_HASHED_ENCODE_INFO {
  DWORD cbSize;
  HCRYPTPROV_LEGACY hCryptProv; /**< 0: the default one of the algorithm */
  CRYPT_ALGORITHM_IDENTIFIER HashAlgorithm;
  void* pvHashAuxInfo; /**< not looked at */
} CMSG_HASHED_ENCODE_INFO, *PCMSG_HASHED_ENCODE_INFO;
CERTKERN_RECORD_SIZE(CMSG_HASHED_ENCODE_INFO, 48);

/** A signer of a message, the older form: CMSG_SIGNER_INFO_PARAM, PKCS7_SIGNER_INFO. Issuer and serial number are empty
 *  for a signer that is named by its key. RFC 5652, 5.3. */
typedef struct _CMSG_SIGNER_INFO {
  DWORD dwVersion;
  CERT_NAME_BLOB Issuer;
  CRYPT_INTEGER_BLOB SerialNumber;
  CRYPT_ALGORITHM_IDENTIFIER HashAlgorithm;
  CRYPT_ALGORITHM_IDENTIFIER HashEncryptionAlgorithm;
  CRYPT_DATA_BLOB EncryptedHash; /**< the signature, in stream order */
  CRYPT_ATTRIBUTES AuthAttrs;
  CRYPT_ATTRIBUTES UnauthAttrs;
} CMSG_SIGNER_INFO, *PCMSG_SIGNER_INFO;
CERTKERN_RECORD_SIZE(CMSG_SIGNER_INFO, 136);

/** A signer of a message: CMSG_CMS_SIGNER_INFO_PARAM, CMS_SIGNER_INFO. */
typedef struct _CMSG_CMS_SIGNER_INFO {
  DWORD dwVersion;
  CERT_ID SignerId;
  CRYPT_ALGORITHM_IDENTIFIER HashAlgorithm;
  CRYPT_ALGORITHM_IDENTIFIER HashEncryptionAlgorithm;
  CRYPT_DATA_BLOB EncryptedHash; /**< the signature, in stream order */
  CRYPT_ATTRIBUTES AuthAttrs;
  CRYPT_ATTRIBUTES UnauthAttrs;
} CMSG_CMS_SIGNER_INFO, *PCMSG_CMS_SIGNER_INFO;
CERTKERN_RECORD_SIZE(CMSG_CMS_SIGNER_INFO, 144);

/* --- Opening, data, closing --- */

/** Opens a message to be built. For a signed message with a GOST hash the attributes signing-certificate-v2 and
 *  signing-time are added to each signer, unless a flag or the configuration says otherwise. RFC 5035.
 *  @param dwMsgEncodingType     X509_ASN_ENCODING, PKCS_7_ASN_ENCODING or both
 *  @param dwFlags               CMSG_..._FLAG, SVCMSG_...
 *  @param dwMsgType             CMSG_DATA, CMSG_SIGNED, CMSG_ENVELOPED or CMSG_HASHED
 *  @param pvMsgEncodeInfo       NULL for CMSG_DATA, else the type's ..._ENCODE_INFO. Keys and recipients are used now
 *  @param pszInnerContentObjID  the type of the content; NULL: szOID_RSA_data, which is the only one with a stream
 *  @param pStreamInfo           NULL: without a stream; not for CMSG_HASHED
 *  @return a handle for CryptMsgClose; NULL on failure
 *  @errors ERROR_INVALID_PARAMETER; E_INVALIDARG: what the type does not take; CRYPT_E_SIGNER_NOT_FOUND: with
 *          SVCMSG_CADES_STRICT, no certificate; NTE_BAD_ALGID: a signer's RSASSA-PSS key is bound to another hash than
 *          its HashAlgorithm; E_FAIL: the display can't be had; those of the key level */
CERTKERN_API HCRYPTMSG CryptMsgOpenToEncode(DWORD dwMsgEncodingType, DWORD dwFlags, DWORD dwMsgType,
                                            const void* pvMsgEncodeInfo, LPSTR pszInnerContentObjID,
                                            PCMSG_STREAM_INFO pStreamInfo);
/** Opens a message to be read.
 *  @param dwMsgEncodingType  not looked at
 *  @param dwFlags            CMSG_DETACHED_FLAG, CMSG_CRYPT_RELEASE_CONTEXT_FLAG, SVCMSG_DTBS_...
 *  @param dwMsgType          0: the data tells; else the bare content of that type comes, without its ContentInfo
 *  @param hCryptProv         for hashes and signatures; counted. 0: default ones. Not for data messages
 *  @param pRecipientInfo     not looked at
 *  @param pStreamInfo        NULL: without a stream
 *  @return a handle for CryptMsgClose; NULL on failure
 *  @errors ERROR_INVALID_PARAMETER: another type, the release flag without a provider; E_INVALIDARG: what the type does
 *          not take; E_FAIL: the display can't be had */
CERTKERN_API HCRYPTMSG CryptMsgOpenToDecode(DWORD dwMsgEncodingType, DWORD dwFlags, DWORD dwMsgType,
                                            HCRYPTPROV_LEGACY hCryptProv, PCERT_INFO pRecipientInfo,
                                            PCMSG_STREAM_INFO pStreamInfo);

/** Gives a message data. Of a detached message to be read the message comes first, whole, then its content.
 *  @param pbData  cbData bytes; NULL with 0 bytes changes nothing, not even with fFinal
 *  @param fFinal  the last piece
 *  @return TRUE or FALSE; after a failure the message is good for closing only
 *  @errors ERROR_INVALID_PARAMETER: no handle, no bytes, data after the end; CRYPT_E_INVALID_MSG_TYPE: not a message, or
 *          of a type that is not served; E_INVALIDARG: the end before the type is known, data for the wrong kind;
 *          CRYPT_E_ASN1_CORRUPT: malformed; CRYPT_E_UNEXPECTED_ENCODING: a streamed data message ends early; those of
 *          the key level, and what a stream's callback leaves */
CERTKERN_API BOOL CryptMsgUpdate(HCRYPTMSG hCryptMsg, const BYTE* pbData, DWORD cbData, BOOL fFinal);

/** Takes one more count; not atomic.
 *  @return hCryptMsg itself; NULL on failure
 *  @errors ERROR_INVALID_PARAMETER: NULL */
CERTKERN_API HCRYPTMSG CryptMsgDuplicate(HCRYPTMSG hCryptMsg);
/** Gives one count back; the last one frees the message. The last error stays what it was.
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: NULL */
CERTKERN_API BOOL CryptMsgClose(HCRYPTMSG hCryptMsg);

/** The size of a message that is yet to be built.
 *  The arguments before cbData are those of CryptMsgOpenToEncode.
 *  @param cbData  bytes of content
 *  @return bytes: exact, but for signed messages an upper bound; 0 on failure
 *  @errors ERROR_INVALID_PARAMETER; those of CryptMsgOpenToEncode */
CERTKERN_API DWORD CryptMsgCalculateEncodedLength(DWORD dwMsgEncodingType, DWORD dwFlags, DWORD dwMsgType,
                                                  const void* pvMsgEncodeInfo, LPSTR pszInnerContentObjID,
                                                  DWORD cbData);

/* --- Parameters --- */

/** What CryptMsgGetParam answers: to whom (D data, H hashed, S signed, E enveloped; small letter: to be built, capital:
 *  to be read), and in what form. Counts and versions are DWORD. */
#define CMSG_TYPE_PARAM 1u    /**< all: CMSG_... */
#define CMSG_CONTENT_PARAM 2u /**< dhse: the message; DHSE: its content (E: empty before it is decrypted) */
#define CMSG_BARE_CONTENT_PARAM 3u          /**< all: the message without its ContentInfo (D: empty) */
#define CMSG_INNER_CONTENT_TYPE_PARAM 4u    /**< hHSE: dotted text with its NUL */
#define CMSG_SIGNER_COUNT_PARAM 5u          /**< S */
#define CMSG_SIGNER_INFO_PARAM 6u           /**< sS: CMSG_SIGNER_INFO */
#define CMSG_SIGNER_CERT_INFO_PARAM 7u      /**< S: CERT_INFO with Issuer and SerialNumber */
#define CMSG_SIGNER_HASH_ALGORITHM_PARAM 8u /**< not served */
#define CMSG_SIGNER_AUTH_ATTR_PARAM 9u      /**< S: CRYPT_ATTRIBUTES */
#define CMSG_SIGNER_UNAUTH_ATTR_PARAM 10u   /**< S: CRYPT_ATTRIBUTES */
#define CMSG_CERT_COUNT_PARAM 11u           /**< S */
#define CMSG_CERT_PARAM 12u                 /**< S: encoded certificate */
#define CMSG_CRL_COUNT_PARAM 13u            /**< S */
#define CMSG_CRL_PARAM 14u                  /**< S: encoded CRL */
#define CMSG_ENVELOPE_ALGORITHM_PARAM 15u   /**< E: CRYPT_ALGORITHM_IDENTIFIER */
#define CMSG_RECIPIENT_COUNT_PARAM 17u      /**< E */
#define CMSG_RECIPIENT_INDEX_PARAM 18u      /**< not served */
#define CMSG_RECIPIENT_INFO_PARAM 19u  /**< E: CERT_INFO with Issuer and SerialNumber; key transport only */
#define CMSG_HASH_ALGORITHM_PARAM 20u  /**< hH: CRYPT_ALGORITHM_IDENTIFIER */
#define CMSG_HASH_DATA_PARAM 21u       /**< hH: the hash computed here */
#define CMSG_COMPUTED_HASH_PARAM 22u   /**< hHsS: the hash computed here; of a signer, what it signs */
#define CMSG_ENCRYPT_PARAM 26u         /**< not served */
#define CMSG_ENCRYPTED_DIGEST 27u      /**< sS: signature, in stream order */
#define CMSG_ENCODED_SIGNER 28u        /**< sS: encoded SignerInfo */
#define CMSG_ENCODED_MESSAGE 29u       /**< HSE: the message, encoded again; D: the bytes read */
#define CMSG_VERSION_PARAM 30u         /**< hHSE */
#define CMSG_ATTR_CERT_COUNT_PARAM 31u /**< not served */
#define CMSG_ATTR_CERT_PARAM 32u       /**< not served */
#define CMSG_CMS_RECIPIENT_COUNT_PARAM 33u               /**< E */
#define CMSG_CMS_RECIPIENT_INDEX_PARAM 34u               /**< not served */
#define CMSG_CMS_RECIPIENT_ENCRYPTED_KEY_INDEX_PARAM 35u /**< not served */
#define CMSG_CMS_RECIPIENT_INFO_PARAM 36u                /**< E: CMSG_CMS_RECIPIENT_INFO */
#define CMSG_UNPROTECTED_ATTR_PARAM 37u                  /**< not served */
#define CMSG_SIGNER_CERT_ID_PARAM 38u                    /**< S: CERT_ID */
#define CMSG_CMS_SIGNER_INFO_PARAM 39u                   /**< sS: CMSG_CMS_SIGNER_INFO */

/** Reads a parameter. A message to be built is signed the first time that it is asked for.
 *  @param dwIndex  of signer, certificate, CRL or recipient, from 0; otherwise ignored
 *  @param pvData   receives the value, a record with all that it points to; NULL asks for the size
 *  @param pcbData  in: bytes at pvData; out: the size
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: no handle, no such signer, a streamed message to be built; CRYPT_E_INVALID_MSG_TYPE:
 *          not served by this message; ERROR_MORE_DATA: too little room, or a data message that is not finished;
 *          CRYPT_E_STREAM_MSG_NOT_READY: the type is not known yet; CRYPT_E_NO_SIGNER, E_INVALIDARG,
 *          CRYPT_E_INVALID_INDEX: an index of signer, certificate or CRL, recipient past the end; those of the key
 *          level */
CERTKERN_API BOOL CryptMsgGetParam(HCRYPTMSG hCryptMsg, DWORD dwParamType, DWORD dwIndex, void* pvData,
                                   DWORD* pcbData);

/* --- Controls --- */

/** What CryptMsgControl does: to whom, letters as for the parameters, and what pvCtrlPara is. */
#define CMSG_CTRL_VERIFY_SIGNATURE 1u       /**< S: CERT_INFO of the signer's certificate */
#define CMSG_CTRL_DECRYPT 2u                /**< E: CMSG_CTRL_DECRYPT_PARA; key transport */
#define CMSG_CTRL_VERIFY_HASH 5u            /**< H: not looked at */
#define CMSG_CTRL_ADD_SIGNER 6u             /**< S: CMSG_SIGNER_ENCODE_INFO */
#define CMSG_CTRL_DEL_SIGNER 7u             /**< S: DWORD index */
#define CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR 8u /**< sS: CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA */
#define CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR 9u /**< sS: CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR_PARA */
#define CMSG_CTRL_ADD_CERT 10u              /**< sS: CERT_BLOB */
#define CMSG_CTRL_DEL_CERT 11u              /**< S: DWORD index */
#define CMSG_CTRL_ADD_CRL 12u               /**< sS: CRL_BLOB */
#define CMSG_CTRL_DEL_CRL 13u               /**< S: DWORD index */
#define CMSG_CTRL_ADD_ATTR_CERT 14u         /**< not served */
#define CMSG_CTRL_DEL_ATTR_CERT 15u         /**< not served */
#define CMSG_CTRL_KEY_TRANS_DECRYPT 16u     /**< E: CMSG_CTRL_KEY_TRANS_DECRYPT_PARA */
#define CMSG_CTRL_KEY_AGREE_DECRYPT 17u     /**< E: CMSG_CTRL_KEY_AGREE_DECRYPT_PARA */
#define CMSG_CTRL_MAIL_LIST_DECRYPT 18u     /**< not served */
#define CMSG_CTRL_VERIFY_SIGNATURE_EX 19u   /**< S: CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA */
#define CMSG_CTRL_ADD_CMS_SIGNER_INFO 20u   /**< S: CMSG_CMS_SIGNER_INFO, taken as it is */

/** Adds an attribute that is not signed; the signature that it speaks of stays. All or nothing. */
typedef struct _CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA {
  DWORD cbSize;
  DWORD dwSignerIndex;
  CRYPT_DATA_BLOB blob; /**< an encoded Attribute */
} CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA, *PCMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA;
CERTKERN_RECORD_SIZE(CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA, 24);

/** Takes one away; an attribute index past the end takes none away. */
typedef struct _CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR_PARA {
  DWORD cbSize;
  DWORD dwSignerIndex;
  DWORD dwUnauthAttrIndex;
} CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR_PARA, *PCMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR_PARA;
CERTKERN_RECORD_SIZE(CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR_PARA, 12);

/** What pvSigner of CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA is. */
#define CMSG_VERIFY_SIGNER_PUBKEY 1 /**< CERT_PUBLIC_KEY_INFO */
#define CMSG_VERIFY_SIGNER_CERT 2   /**< CERT_CONTEXT */
#define CMSG_VERIFY_SIGNER_CHAIN 3  /**< CERT_CHAIN_CONTEXT: the end certificate of its first chain */
#define CMSG_VERIFY_SIGNER_NULL 4   /**< refused */

/** Verifies a signature by index. */
typedef struct _CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA {
  DWORD cbSize;
  HCRYPTPROV_LEGACY hCryptProv; /**< 0: that of the message, or a default one */
  DWORD dwSignerIndex;
  DWORD dwSignerType; /**< CMSG_VERIFY_SIGNER_... */
  void* pvSigner;
} CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA, *PCMSG_CTRL_VERIFY_SIGNATURE_EX_PARA;
CERTKERN_RECORD_SIZE(CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA, 32);

/** Verifies, decrypts or changes a message. A changed message is encoded again when it is next asked for.
 *  @param dwFlags     SVCMSG_..., for CMSG_CTRL_ADD_SIGNER
 *  @param dwCtrlType  CMSG_CTRL_...
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: no handle, no message yet, no such signer; CRYPT_E_INVALID_MSG_TYPE: not served by
 *          this message; NTE_BAD_SIGNATURE: content or signature don't verify; NTE_BAD_DATA: signature and key disagree
 *          on RSA-PSS; NTE_BAD_ALGID: no provider; CRYPT_E_HASH_VALUE: CMSG_CTRL_VERIFY_HASH;
 *          CRYPT_E_SIGNER_NOT_FOUND: no such signer; CRYPT_E_UNKNOWN_ALGO: CMSG_CTRL_ADD_SIGNER, a hash that did not
 *          run over detached content; CRYPT_E_ATTRIBUTES_MISSING: decrypting, no authentication code;
 *          CRYPT_E_STREAM_MSG_NOT_READY: decrypting, before the recipients are known; E_INVALIDARG: the parameters;
 *          those of the key level and the extension library */
CERTKERN_API BOOL CryptMsgControl(HCRYPTMSG hCryptMsg, DWORD dwFlags, DWORD dwCtrlType,
                                  const void* pvCtrlPara);

/** dwFlags of CryptMsgGetAndVerifySigner. */
#define CMSG_TRUSTED_SIGNER_FLAG 0x1u   /**< look in the caller's stores only, not in the message */
#define CMSG_SIGNER_ONLY_FLAG 0x2u      /**< find, don't verify */
#define CMSG_USE_SIGNER_INDEX_FLAG 0x4u /**< this signer only; else the first whose certificate is found */

/** Finds the certificate of a signer, and verifies its signature with it. The store of the message's own certificates, which
 *  those that are found here come from, stays with the message until they change.
 *  @param rghSignerStore  cSignerStore stores to look in
 *  @param ppSigner        receives a context to be freed; may be NULL
 *  @param pdwSignerIndex  in: with CMSG_USE_SIGNER_INDEX_FLAG, the index; out: that of the signer found; may be NULL
 *                         without that flag
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER; CRYPT_E_NO_TRUSTED_SIGNER: no certificate; those of CryptMsgControl */
CERTKERN_API BOOL CryptMsgGetAndVerifySigner(HCRYPTMSG hCryptMsg, DWORD cSignerStore,
                                             HCERTSTORE* rghSignerStore, DWORD dwFlags,
                                             PCCERT_CONTEXT* ppSigner, DWORD* pdwSignerIndex);

/* --- Countersignatures --- */

/** Not served: FALSE, and the last error stays what it was. A countersignature (RFC 5652, 11.4) can be added as an
 *  attribute that the caller makes, with CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR. */
CERTKERN_API BOOL CryptMsgCountersign(HCRYPTMSG hCryptMsg, DWORD dwIndex, DWORD cCountersigners,
                                      PCMSG_SIGNER_ENCODE_INFO rgCountersigners);
/** As CryptMsgCountersign. */
CERTKERN_API BOOL CryptMsgCountersignEncoded(DWORD dwEncodingType, PBYTE pbSignerInfo, DWORD cbSignerInfo,
                                             DWORD cCountersigners, PCMSG_SIGNER_ENCODE_INFO rgCountersigners,
                                             PBYTE pbCountersignature, PDWORD pcbCountersignature);
/** As CryptMsgCountersign. */
CERTKERN_API BOOL CryptMsgVerifyCountersignatureEncoded(HCRYPTPROV_LEGACY hCryptProv, DWORD dwEncodingType,
                                                        PBYTE pbSignerInfo, DWORD cbSignerInfo,
                                                        PBYTE pbSignerInfoCountersignature,
                                                        DWORD cbSignerInfoCountersignature,
                                                        PCERT_INFO pciCountersigner);
/** As CryptMsgCountersign. */
CERTKERN_API BOOL CryptMsgVerifyCountersignatureEncodedEx(HCRYPTPROV_LEGACY hCryptProv, DWORD dwEncodingType,
                                                          PBYTE pbSignerInfo, DWORD cbSignerInfo,
                                                          PBYTE pbSignerInfoCountersignature,
                                                          DWORD cbSignerInfoCountersignature,
                                                          DWORD dwSignerType, void* pvSigner, DWORD dwFlags,
                                                          void* pvExtra);

CERTKERN_EXTERN_C_END
#endif
