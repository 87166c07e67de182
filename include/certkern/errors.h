/** The codes that GetLastError answers after a failed call.
 *
 *  A code is 32 bits wide and belongs to the calling thread. Three kinds share the one space: small numbers are
 *  plain system errors, a code with the top bit set is an HRESULT with its facility in bits 16 to 26, and a few
 *  functions answer a status word of their own. A successful call leaves the last error alone unless its docstring
 *  says that it clears it, so it is worth reading only after a failure. What a code means to one function is told
 *  with that function; here stands what it means in general. */
#ifndef CERTKERN_ERRORS_H
#define CERTKERN_ERRORS_H

#include <certkern/types.h>

/** The HRESULT form of a plain system error; 0 and what is an HRESULT already stay as they are. */
#define HRESULT_FROM_WIN32(code) \
  ((HRESULT)((HRESULT)(code) <= 0 ? (DWORD)(code) : (((DWORD)(code)&0xFFFFu) | 0x80070000u)))
/** Tells an HRESULT of success from one of failure. */
#define SUCCEEDED(result) ((HRESULT)(result) >= 0)
#define FAILED(result) ((HRESULT)(result) < 0)

/* Plain system errors. */
#define ERROR_SUCCESS 0
#define NO_ERROR 0
#define ERROR_FILE_NOT_FOUND 2 /**< no such file, set, policy or function entry */
#define ERROR_PATH_NOT_FOUND 3 /**< a store directory cannot be resolved */
#define ERROR_ACCESS_DENIED 5  /**< the file system refuses, or a cache is not writable */
#define ERROR_INVALID_HANDLE 6
#define ERROR_NOT_ENOUGH_MEMORY 8 /**< out of memory, but for PKCS #12 and key copies: NTE_NO_MEMORY */
#define ERROR_INVALID_DATA 13     /**< the stored form of a property is damaged */
#define ERROR_WRITE_FAULT 29
#define ERROR_NOT_SUPPORTED 50
#define ERROR_FILE_EXISTS 80      /**< a file that was to be made new exists */
#define ERROR_CANNOT_MAKE 82      /**< the caller's ids could not be taken on, or given back, around a file */
#define ERROR_INVALID_PASSWORD 86 /**< the integrity check of a PKCS #12 file fails under this password */
#define ERROR_INVALID_PARAMETER 87 /**< a bad argument; some functions say E_INVALIDARG instead */
#define ERROR_OPEN_FAILED 110
#define ERROR_CALL_NOT_IMPLEMENTED 120 /**< published, and not served for this kind of object */
#define ERROR_INSUFFICIENT_BUFFER 122  /**< a store name is too long */
#define ERROR_MOD_NOT_FOUND 126        /**< no library is ever loaded by name here */
#define ERROR_SEEK_ON_DEVICE 132       /**< a file can't be positioned, measured or cut */
#define ERROR_BAD_ARGUMENTS 160        /**< a null argument of the Base64 core */
#define ERROR_BAD_PATHNAME 161         /**< a store path is too long */
#define ERROR_LOCK_FAILED 167          /**< the lock of a store file could not be taken for writing */
#define ERROR_NO_DATA 232              /**< a short read that is not the end of the file */
#define ERROR_MORE_DATA 234            /**< too little room; the needed size has been given */
#define ERROR_NO_MORE_ITEMS 259        /**< the end of an enumeration of the key level */
#define ERROR_UNHANDLED_EXCEPTION 574  /**< a fault that the logic did not expect */
#define ERROR_INVALID_FLAGS 1004
#define ERROR_END_OF_MEDIA 1100           /**< serialized data that ends too early */
#define ERROR_NO_UNICODE_TRANSLATION 1113 /**< text that can't be converted */
#define ERROR_DLL_INIT_FAILED 1114    /**< an optional library, or a built-in registration, can't be had */
#define ERROR_DLL_NOT_FOUND 1157      /**< no library is configured */
#define ERROR_NOT_FOUND 1168          /**< no such property or extension */
#define ERROR_NO_NET_OR_BAD_PATH 1203 /**< a responder did not answer with success */
#define ERROR_CANCELLED 1223          /**< the user said no */
#define ERROR_INTERNAL_ERROR 1359     /**< an inconsistency inside, or a stream error without a better code */

/** A callback of CertEnumSystemStoreLocation asked to stop; in the range that is the application's own. */
#define SV_E_ENUMERATION_STOPPED 0x20000001u

/* General HRESULTs. */
#define S_OK 0
#define S_FALSE 1
#define E_NOTIMPL 0x80004001u                 /**< a value type that has no text */
#define E_FAIL 0x80004005u                    /**< a failure without a better code */
#define EVENT_E_INTERNALEXCEPTION 0x80040205u /**< an unexpected exception during a retrieval */
#define E_ACCESSDENIED 0x80070005u            /**< the store is read-only, or takes no additions */
#define E_OUTOFMEMORY 0x8007000Eu
#define E_INVALIDARG 0x80070057u /**< a bad argument; some functions say ERROR_INVALID_PARAMETER instead */

/* Key level. */
#define NTE_BAD_UID 0x80090001u
#define NTE_BAD_HASH 0x80090002u
#define NTE_BAD_KEY 0x80090003u
#define NTE_BAD_LEN 0x80090004u       /**< more key bytes wanted than a derivation gives */
#define NTE_BAD_DATA 0x80090005u      /**< an empty signature, or signature and key disagree on RSA-PSS */
#define NTE_BAD_SIGNATURE 0x80090006u /**< the signature does not verify */
#define NTE_BAD_VER 0x80090007u
#define NTE_BAD_ALGID 0x80090008u /**< no provider, or no such algorithm */
#define NTE_BAD_FLAGS 0x80090009u
#define NTE_BAD_TYPE 0x8009000Au /**< a parameter that the key or provider does not have */
#define NTE_BAD_KEY_STATE 0x8009000Bu
#define NTE_BAD_HASH_STATE 0x8009000Cu
#define NTE_NO_KEY 0x8009000Du
#define NTE_NO_MEMORY 0x8009000Eu /**< out of memory in PKCS #12, key copies and private key acquisition */
#define NTE_EXISTS 0x8009000Fu
#define NTE_PERM 0x80090010u
#define NTE_NOT_FOUND 0x80090011u
#define NTE_DOUBLE_ENCRYPT 0x80090012u
#define NTE_BAD_PROVIDER 0x80090013u
#define NTE_BAD_PROV_TYPE 0x80090014u
#define NTE_BAD_PUBLIC_KEY 0x80090015u /**< the key does not belong to the certificate */
#define NTE_BAD_KEYSET 0x80090016u
#define NTE_PROV_TYPE_NOT_DEF 0x80090017u
#define NTE_PROV_TYPE_ENTRY_BAD 0x80090018u
#define NTE_KEYSET_NOT_DEF 0x80090019u
#define NTE_KEYSET_ENTRY_BAD 0x8009001Au
#define NTE_PROV_TYPE_NO_MATCH 0x8009001Bu
#define NTE_SIGNATURE_FILE_BAD 0x8009001Cu
#define NTE_PROVIDER_DLL_FAIL 0x8009001Du /**< the lock of a store file could not be made or taken */
#define NTE_PROV_DLL_NOT_FOUND 0x8009001Eu
#define NTE_BAD_KEYSET_PARAM 0x8009001Fu
#define NTE_FAIL 0x80090020u /**< no such algorithm row, a refused PIN, a cache step that failed */
#define NTE_SYS_ERR 0x80090021u
#define NTE_SILENT_CONTEXT 0x80090022u /**< the dialog that would have to ask the user can't be had */
#define NTE_TOKEN_KEYSET_STORAGE_FULL 0x80090023u
#define SCARD_W_WRONG_CHV 0x8010006Bu              /**< a wrong PIN */
#define SCARD_W_CARD_NOT_AUTHENTICATED 0x8010006Fu /**< a private key behind a PIN that was not given */
#define SEC_E_INTERNAL_ERROR 0x80090304u           /**< the URL cache has no store */
#define SEC_E_CONTEXT_EXPIRED 0x80090317u          /**< an object outside its validity is not cached */

/* Messages. */
#define CRYPT_E_MSG_ERROR 0x80091001u
#define CRYPT_E_UNKNOWN_ALGO 0x80091002u /**< no hash of this algorithm runs over the detached content */
#define CRYPT_E_OID_FORMAT 0x80091003u   /**< not a dotted object identifier */
#define CRYPT_E_INVALID_MSG_TYPE \
  0x80091004u /**< not a message, or a parameter or control that this type lacks */
#define CRYPT_E_UNEXPECTED_ENCODING 0x80091005u /**< streamed data ended before its header or content did */
#define CRYPT_E_AUTH_ATTR_MISSING 0x80091006u
#define CRYPT_E_HASH_VALUE 0x80091007u    /**< the digest in the message is not that of the content */
#define CRYPT_E_INVALID_INDEX 0x80091008u /**< no such recipient */
#define CRYPT_E_ALREADY_DECRYPTED 0x80091009u
#define CRYPT_E_NOT_DECRYPTED 0x8009100Au /**< never answered here: undecrypted content is empty */
#define CRYPT_E_RECIPIENT_NOT_FOUND 0x8009100Bu
#define CRYPT_E_CONTROL_TYPE 0x8009100Cu /**< never answered here: CRYPT_E_INVALID_MSG_TYPE is */
#define CRYPT_E_ISSUER_SERIALNUMBER 0x8009100Du
#define CRYPT_E_SIGNER_NOT_FOUND \
  0x8009100Eu /**< no such signer, or its or the issuer's certificate is missing */
#define CRYPT_E_ATTRIBUTES_MISSING 0x8009100Fu /**< an authentication code has no attribute to stand in */
#define CRYPT_E_STREAM_MSG_NOT_READY \
  0x80091010u /**< the type of the message, or its header, is not known yet */
#define CRYPT_E_STREAM_INSUFFICIENT_DATA 0x80091011u

/* Stores, certificates, revocation. */
#define CRYPT_E_BAD_LEN 0x80092001u
#define CRYPT_E_BAD_ENCODE 0x80092002u /**< no such text form, or a record that has no encoding */
#define CRYPT_E_FILE_ERROR 0x80092003u /**< what was to be a store is none */
#define CRYPT_E_NOT_FOUND 0x80092004u  /**< the expected negative answer of a search or property query */
#define CRYPT_E_EXISTS 0x80092005u     /**< the store holds this object already, or a newer one */
#define CRYPT_E_NO_PROVIDER 0x80092006u
#define CRYPT_E_SELF_SIGNED 0x80092007u /**< the issuer found is the subject itself */
#define CRYPT_E_DELETED_PREV 0x80092008u
#define CRYPT_E_NO_MATCH 0x80092009u            /**< the CRL is for other distribution points */
#define CRYPT_E_UNEXPECTED_MSG_TYPE 0x8009200Au /**< a message of another type than the function is for */
#define CRYPT_E_NO_KEY_PROPERTY 0x8009200Bu     /**< the certificate has no link to a private key */
#define CRYPT_E_NO_DECRYPT_CERT \
  0x8009200Cu /**< none of the stores holds a recipient's certificate with its key */
#define CRYPT_E_BAD_MSG 0x8009200Du
#define CRYPT_E_NO_SIGNER 0x8009200Eu     /**< the message has no signer with this index */
#define CRYPT_E_PENDING_CLOSE 0x8009200Fu /**< the handle is closed; contexts or handles are still out */
#define CRYPT_E_REVOKED 0x80092010u
#define CRYPT_E_NO_REVOCATION_DLL 0x80092011u
#define CRYPT_E_NO_REVOCATION_CHECK 0x80092012u
#define CRYPT_E_REVOCATION_OFFLINE 0x80092013u /**< no response has been fetched yet */
#define CRYPT_E_NOT_IN_REVOCATION_DATABASE \
  0x80092014u /**< a self-issued certificate has no responder to ask */

/* Names. */
#define CRYPT_E_INVALID_NUMERIC_STRING 0x80092020u
#define CRYPT_E_INVALID_PRINTABLE_STRING 0x80092021u
#define CRYPT_E_INVALID_IA5_STRING 0x80092022u
#define CRYPT_E_INVALID_X500_STRING 0x80092023u
#define CRYPT_E_NOT_CHAR_STRING 0x80092024u
#define CRYPT_E_NO_TRUSTED_SIGNER 0x8009202Bu /**< no certificate of any signer was found */

/* Encoding. */
#define CRYPT_E_OSS_ERROR 0x80093000u  /**< a certificate or CRL whose body does not decode */
#define CRYPT_E_ASN1_ERROR 0x80093100u /**< malformed, in a way without a code of its own */
#define CRYPT_E_ASN1_INTERNAL 0x80093101u
#define CRYPT_E_ASN1_EOD 0x80093102u     /**< the encoding ends before it should */
#define CRYPT_E_ASN1_CORRUPT 0x80093103u /**< a message that does not decode */
#define CRYPT_E_ASN1_LARGE 0x80093104u
#define CRYPT_E_ASN1_CONSTRAINT 0x80093105u
#define CRYPT_E_ASN1_MEMORY 0x80093106u
#define CRYPT_E_ASN1_OVERFLOW 0x80093107u
#define CRYPT_E_ASN1_BADPDU 0x80093108u
#define CRYPT_E_ASN1_BADARGS 0x80093109u /**< a response status or type that can't be written */
#define CRYPT_E_ASN1_BADREAL 0x8009310Au
#define CRYPT_E_ASN1_BADTAG 0x8009310Bu /**< another element was expected here */
#define CRYPT_E_ASN1_CHOICE 0x8009310Cu
#define CRYPT_E_ASN1_RULE 0x8009310Du
#define CRYPT_E_ASN1_UTF8 0x8009310Eu

/* Trust: what CertVerifyCertificateChainPolicy answers in dwError. */
#define TRUST_E_CERT_SIGNATURE 0x80096004u
#define TRUST_E_BASIC_CONSTRAINTS 0x80096019u
#define CERT_E_EXPIRED 0x800B0101u /**< also: made outside the private key usage period of its issuer */
#define CERT_E_VALIDITYPERIODNESTING 0x800B0102u
#define CERT_E_ROLE 0x800B0103u
#define CERT_E_PATHLENCONST 0x800B0104u
#define CERT_E_CRITICAL 0x800B0105u
#define CERT_E_PURPOSE 0x800B0106u
#define CERT_E_ISSUERCHAINING 0x800B0107u /**< the chain's second certificate did not issue its first */
#define CERT_E_MALFORMED 0x800B0108u
#define CERT_E_UNTRUSTEDROOT 0x800B0109u
#define CERT_E_CHAINING 0x800B010Au /**< no path to a self-signed certificate */
#define TRUST_E_FAIL 0x800B010Bu    /**< the search ended without any chain */
#define CERT_E_REVOKED 0x800B010Cu
#define CERT_E_UNTRUSTEDTESTROOT 0x800B010Du
#define CERT_E_REVOCATION_FAILURE 0x800B010Eu /**< the revocation state can't be determined */
#define CERT_E_CN_NO_MATCH 0x800B010Fu        /**< the certificate is for another server name */
#define CERT_E_WRONG_USAGE 0x800B0110u

#endif
