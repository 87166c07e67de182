/** The key-level interface: hashes, ciphers, keys, containers, the OID table, and the services that go with them. */
#ifndef CERTKERN_KEYKERN_H
#define CERTKERN_KEYKERN_H

#include <certkern/types.h>

CERTKERN_EXTERN_C_BEGIN

/** The calling thread's last error code. */
CERTKERN_API DWORD GetLastError(void);
/** Sets the calling thread's last error code. */
CERTKERN_API void SetLastError(DWORD dwErrCode);

/** Code pages. The locale's encoding is UTF-8 also where no locale was set. */
#define CP_ACP 0        /**< the encoding of the process's locale */
#define CP_UTF16LE 1200 /**< 16-bit units, low byte first */
#define CP_UTF8 65001   /**< RFC 3629 */

#define MB_PRECOMPOSED 0x1u         /**< no effect */
#define MB_ERR_INVALID_CHARS 0x8u   /**< fail on ill-formed text instead of writing U+FFFD */
#define WC_ERR_INVALID_CHARS 0x80u  /**< fail on what cannot be written instead of writing a substitute */
#define WC_NO_BEST_FIT_CHARS 0x400u /**< no effect: similar letters are never written instead */

/** Converts text of a code page to wide characters, one a code point. Takes no lock.
 *  Without MB_ERR_INVALID_CHARS each maximal ill-formed piece becomes one U+FFFD.
 *  @param cbMultiByte    bytes at lpMultiByteStr; -1: up to the NUL, which is converted too. For CP_UTF16LE the NUL has
 *                        two bytes
 *  @param lpWideCharStr  receives the text, not terminated beyond what was converted; another place than the input's
 *  @param cchWideChar    wide characters at lpWideCharStr; 0 asks for the size
 *  @return wide characters written or needed; 0 on failure, when the buffer's content is not defined
 *  @errors ERROR_INVALID_PARAMETER: a null or empty text, a negative size, the output in the input's place, no such code
 *          page, or a result above INT_MAX; ERROR_INVALID_FLAGS; ERROR_NO_UNICODE_TRANSLATION: ill-formed text, or a
 *          locale's encoding that the system cannot convert; ERROR_INSUFFICIENT_BUFFER */
CERTKERN_API int MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr, int cbMultiByte,
                                     LPWSTR lpWideCharStr, int cchWideChar);
/** Converts wide characters to text of a code page. Takes no lock.
 *  Without WC_ERR_INVALID_CHARS a wide character that is none, or that the code page lacks, becomes lpDefaultChar.
 *  @param cchWideChar       wide characters at lpWideCharStr; -1: up to the NUL, which is converted too
 *  @param cbMultiByte       bytes at lpMultiByteStr; 0 asks for the size
 *  @param lpDefaultChar     CP_ACP only: the substitute, NUL-terminated; NULL: U+FFFD where the encoding has it,
 *                           otherwise a question mark
 *  @param lpUsedDefaultChar CP_ACP only: receives if a substitute was written; may be NULL
 *  @return bytes written or needed; 0 on failure
 *  @errors as MultiByteToWideChar; ERROR_INVALID_PARAMETER also for a substitute with another code page than CP_ACP */
CERTKERN_API int WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWSTR lpWideCharStr, int cchWideChar,
                                     LPSTR lpMultiByteStr, int cbMultiByte, LPCSTR lpDefaultChar,
                                     LPBOOL lpUsedDefaultChar);

/** Compares two moments, neither NULL.
 *  @return -1, 0 or 1: the first is earlier, the same, later */
CERTKERN_API LONG CompareFileTime(const FILETIME* lpFileTime1, const FILETIME* lpFileTime2);
/** Takes a moment apart, down to milliseconds; what is below them is cut.
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: NULL, or a moment above 0x7FFFFFFFFFFFFFFF */
CERTKERN_API BOOL FileTimeToSystemTime(const FILETIME* lpFileTime, LPSYSTEMTIME lpSystemTime);
/** Puts a moment together. wDayOfWeek is not looked at; there are no leap seconds.
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: NULL, or no day or time of the years 1601 to 30827 */
CERTKERN_API BOOL SystemTimeToFileTime(const SYSTEMTIME* lpSystemTime, LPFILETIME lpFileTime);
/** The present moment, UTC, in parts. */
CERTKERN_API void GetSystemTime(LPSYSTEMTIME lpSystemTime);
/** The present moment, UTC. */
CERTKERN_API void GetSystemTimeAsFileTime(LPFILETIME lpSystemTimeAsFileTime);

/** Algorithm identifiers: a class in the top three bits, a type in the next four, a number below. */
#define ALG_CLASS_ANY 0x0000u
#define ALG_CLASS_SIGNATURE 0x2000u
#define ALG_CLASS_MSG_ENCRYPT 0x4000u
#define ALG_CLASS_DATA_ENCRYPT 0x6000u
#define ALG_CLASS_HASH 0x8000u
#define ALG_CLASS_KEY_EXCHANGE 0xA000u
#define GET_ALG_CLASS(id) ((id)&0xE000u)

#define CALG_MD2 0x8001u
#define CALG_MD4 0x8002u
#define CALG_MD5 0x8003u
#define CALG_SHA1 0x8004u
#define CALG_SHA CALG_SHA1
#define CALG_HMAC 0x8009u
#define CALG_SHA_256 0x800Cu
#define CALG_SHA_384 0x800Du
#define CALG_SHA_512 0x800Eu
#define CALG_GR3411 0x801Eu          /**< GOST R 34.11-94. RFC 5831 */
#define CALG_GR3411_2012_256 0x8021u /**< GOST R 34.11-2012, 256 bits. RFC 6986 */
#define CALG_GR3411_2012_512 0x8022u /**< GOST R 34.11-2012, 512 bits. RFC 6986 */
/** A hash whose value is its input: for signatures of the message itself, such as EdDSA. */
#define CALG_MESSAGE_ITSELF 0x80F0u
/** HMAC of one hash; the key comes by HP_HMAC_KEY. RFC 7836, 4.1 */
#define CALG_GR3411_HMAC 0x8037u
#define CALG_GR3411_2012_256_HMAC 0x8038u
#define CALG_GR3411_2012_512_HMAC 0x8039u
/** Keys from passwords: an object whose value is as long as the caller's buffer. RFC 8018, 5.2; RFC 9337 */
#define CALG_PBKDF2 0x803Fu /**< over the hash of HP_BASE_HASH */
#define CALG_GR3411_PBKDF2 0x8040u
#define CALG_GR3411_2012_256_PBKDF2 0x803Bu
#define CALG_GR3411_2012_512_PBKDF2 0x803Au
#define CALG_G28147 0x661Eu        /**< GOST 28147-89. RFC 5830 */
#define CALG_GR3412_2015_M 0x6630u /**< Magma. RFC 8891 */
#define CALG_GR3412_2015_K 0x6631u /**< Kuznyechik. RFC 7801 */
#define CALG_DES 0x6601u
#define CALG_RC2 0x6602u
#define CALG_3DES 0x6603u
#define CALG_3DES_112 0x6609u
#define CALG_AES_128 0x660Eu
#define CALG_AES_192 0x660Fu
#define CALG_AES_256 0x6610u
#define CALG_RC4 0x6801u
#define CALG_HMAC_KEY 0x6615u /**< the carrier of a key for CALG_HMAC */
/** How a key of GOST 28147-89 wraps another: KP_ALGID of the wrapping key. */
#define CALG_EXPORT_DIVERSIFIED 0x661Fu /**< RFC 4357, 6.3 */
#define CALG_EXPORT_SIMPLE 0x6620u      /**< RFC 4357, 6.1 */
#define CALG_EXPORT_KDF 0x6621u         /**< RFC 7836, 4.6 */
/** How an agreed GOST key wraps another with KEG and KExp15. RFC 9189, 8.2.1 and 8.3.1 */
#define CALG_EXPORT_KEXP15_M 0x6624u /**< under Magma */
#define CALG_EXPORT_KEXP15_K 0x6625u /**< under Kuznyechik */
#define CALG_RSA_SIGN 0x2400u
#define CALG_RSA_KEYX 0xA400u
#define CALG_DSS_SIGN 0x2200u
#define CALG_ECDSA 0x2203u
#define CALG_ECDH 0xAA05u
#define CALG_ECDH_EPHEM 0xAE06u
#define CALG_EDDSA 0x2220u    /**< RFC 8032 */
#define CALG_GR3410EL 0x2E23u /**< GOST R 34.10-2001. RFC 5832 */
#define CALG_DH_EL_SF 0xAA24u
#define CALG_DH_EL_EPHEM 0xAA25u
#define CALG_GR3410_12_256 0x2E49u /**< GOST R 34.10-2012, 256 bits. RFC 7091 */
#define CALG_DH_GR3410_12_256_SF 0xAA46u
#define CALG_DH_GR3410_12_256_EPHEM 0xAA47u
#define CALG_GR3410_12_512 0x2E3Du /**< GOST R 34.10-2012, 512 bits. RFC 7091 */
#define CALG_DH_GR3410_12_512_SF 0xAA42u
#define CALG_DH_GR3410_12_512_EPHEM 0xAA43u

/** Provider types. Each has one provider, and every provider serves every algorithm: the types differ in what they are
 *  the default for. */
#define PROV_RSA_FULL 1
#define PROV_EC_ECDSA_FULL 16
#define PROV_RSA_AES 24
#define PROV_EDDSA 32         /**< RFC 8032 */
#define PROV_GOST_2001_DH 75  /**< GOST R 34.10-2001. RFC 5832 */
#define PROV_GOST_2012_256 80 /**< GOST R 34.10-2012, 256 bits. RFC 7091 */
#define PROV_GOST_2012_512 81 /**< GOST R 34.10-2012, 512 bits. RFC 7091 */

/** dwFlags of CryptAcquireContext. */
#define CRYPT_VERIFYCONTEXT 0xF0000000u /**< no container: hashes, public keys and keys for the moment */
#define CRYPT_NEWKEYSET 0x8u
#define CRYPT_DELETEKEYSET 0x10u
#define CRYPT_MACHINE_KEYSET 0x20u
#define CRYPT_SILENT 0x40u

/** Opens a provider, and with it a key container, makes one, or deletes one. Any number of threads may use it.
 *  @param phProv       receives the provider, for CryptReleaseContext; not touched by CRYPT_DELETEKEYSET
 *  @param szContainer  the container, UTF-8, at most 200 bytes in its encoded form, with or without the reader
 *                      \\.\DISKVAULT\ in front; NULL or empty: the one of the user's name, and with CRYPT_VERIFYCONTEXT
 *                      the only choice
 *  @param szProvider   the provider's name; NULL: the one of the type
 *  @param dwProvType   PROV_...
 *  @param dwFlags      CRYPT_VERIFYCONTEXT, CRYPT_NEWKEYSET, CRYPT_DELETEKEYSET or none of them; with CRYPT_SILENT,
 *                      CRYPT_MACHINE_KEYSET
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: phProv is NULL; NTE_BAD_PROV_TYPE: no such type; NTE_KEYSET_NOT_DEF: no such provider,
 *          reader or container; NTE_PROV_TYPE_NO_MATCH: the name is another type's; NTE_BAD_FLAGS; NTE_BAD_KEYSET_PARAM: a
 *          container with CRYPT_VERIFYCONTEXT, or no possible name; NTE_EXISTS: there is one; NTE_BAD_KEYSET: damaged;
 *          NTE_PERM: others may write to it, or this user may not; NTE_NO_MEMORY */
CERTKERN_API BOOL CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer, LPCSTR szProvider,
                                       DWORD dwProvType, DWORD dwFlags);
/** As CryptAcquireContextA. */
CERTKERN_API BOOL CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer, LPCWSTR szProvider,
                                       DWORD dwProvType, DWORD dwFlags);
/** Counts a provider once more: each count wants its CryptReleaseContext.
 *  @param pdwReserved  NULL
 *  @param dwFlags      0
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER: pdwReserved; NTE_BAD_FLAGS */
CERTKERN_API BOOL CryptContextAddRef(HCRYPTPROV hProv, DWORD* pdwReserved, DWORD dwFlags);
/** Gives one count back; with the last one the handle ends. Hashes made from it live on.
 *  @param dwFlags  0
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; NTE_BAD_FLAGS: released all the same */
CERTKERN_API BOOL CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags);

/** dwParam of CryptGetProvParam and CryptSetProvParam. */
#define PP_ENUMALGS 1       /**< PROV_ENUMALGS */
#define PP_ENUMCONTAINERS 2 /**< text, narrow, without prefix: those of the user or the machine */
#define PP_NAME 4           /**< text, narrow, with its NUL */
#define PP_CONTAINER 6      /**< text, narrow: the container's name, without prefix */
#define PP_CHANGE_PIN \
  7                    /**< text, narrow, to be set: another PIN; empty: none. The old one was given before */
#define PP_PROVTYPE 16 /**< DWORD */
#define PP_ENUMALGS_EX 22      /**< PROV_ENUMALGS_EX */
#define PP_KEYSET_TYPE 27      /**< DWORD: CRYPT_MACHINE_KEYSET or 0 */
#define PP_KEYEXCHANGE_PIN 32  /**< text, narrow */
#define PP_SIGNATURE_PIN 33    /**< text, narrow */
#define PP_UNIQUE_CONTAINER 36 /**< text, narrow */
#define PP_CONTAINER_PATH 111 /**< text, narrow: the name that opens the container again; empty without one */
#define PP_CONTAINER_EXTENSION 132      /**< CONTAINER_EXTENSION, to be set */
#define PP_ENUM_CONTAINER_EXTENSION 133 /**< CONTAINER_EXTENSION */
#define PP_EPHEMERAL_ATTRIBUTE 172      /**< DWORD: 0 when messages go without the attribute */

/** dwFlags of an enumeration: begin; go on, which 0 means, too. */
#define CRYPT_FIRST 1
#define CRYPT_NEXT 2

/** Something attached to a container: this head, then the dotted OID with its NUL, then the value. Setting one without a
 *  value removes it. */
typedef struct _CONTAINER_EXTENSION {
  BOOL bCritical;
  DWORD cbOid;       /**< bytes, with the NUL */
  DWORD cbExtension; /**< bytes of the value */
} CONTAINER_EXTENSION, *PCONTAINER_EXTENSION;
CERTKERN_RECORD_SIZE(CONTAINER_EXTENSION, 12);

/** An algorithm of a provider; names are with their NUL, and so are their lengths. */
typedef struct _PROV_ENUMALGS {
  ALG_ID aiAlgid;
  DWORD dwBitLen; /**< of the value or key, unless another is asked for */
  DWORD dwNameLen;
  CHAR szName[20];
} PROV_ENUMALGS;
CERTKERN_RECORD_SIZE(PROV_ENUMALGS, 32);
/** The same at length. */
typedef struct _PROV_ENUMALGS_EX {
  ALG_ID aiAlgid;
  DWORD dwDefaultLen; /**< bits, as the next two */
  DWORD dwMinLen;
  DWORD dwMaxLen;
  DWORD dwProtocols; /**< 0 */
  DWORD dwNameLen;
  CHAR szName[20];
  DWORD dwLongNameLen;
  CHAR szLongName[40];
} PROV_ENUMALGS_EX;
CERTKERN_RECORD_SIZE(PROV_ENUMALGS_EX, 88);

/** Answers a property of a provider. An enumeration gives one element a call and keeps its place in the handle, so that
 *  two threads that enumerate want a handle each; it begins with what the provider's type is the default for, and
 *  leaves out what this host does not have.
 *  @param pbData      receives the value; NULL asks for the size and moves no enumeration on
 *  @param pdwDataLen  in: bytes at pbData; out: the size
 *  @param dwFlags     CRYPT_FIRST to begin an enumeration, otherwise 0
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER: no size; NTE_BAD_TYPE: no such property; NTE_BAD_FLAGS;
 *          ERROR_MORE_DATA; ERROR_NO_MORE_ITEMS: the end */
CERTKERN_API BOOL CryptGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                                    DWORD dwFlags);
/** Sets a property of a provider: a PIN, another PIN, an extension of its container.
 *  @param pbData   the value
 *  @param dwFlags  0
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER: no value; NTE_BAD_TYPE: no such property; NTE_BAD_FLAGS; NTE_BAD_DATA;
 *          SCARD_W_WRONG_CHV: not the PIN of these keys; SCARD_W_CARD_NOT_AUTHENTICATED: the old PIN was not given; NTE_PERM */
CERTKERN_API BOOL CryptSetProvParam(HCRYPTPROV hProv, DWORD dwParam, const BYTE* pbData, DWORD dwFlags);

/** Fills a buffer with cryptographically strong random bytes.
 *  @param dwLen  bytes at pbBuffer
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER: no buffer; NTE_FAIL: the generator failed */
CERTKERN_API BOOL CryptGenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer);

/** Enumerates the providers.
 *  @param dwIndex      0, 1 ... until ERROR_NO_MORE_ITEMS
 *  @param pdwReserved  NULL
 *  @param dwFlags      0
 *  @param pdwProvType  receives the type
 *  @param szProvName   receives the name; NULL asks for the size
 *  @param pcbProvName  in: bytes at szProvName; out: the size with the NUL, in bytes also in the wide form
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: a null argument, or pdwReserved; NTE_BAD_FLAGS; ERROR_MORE_DATA;
 *          ERROR_NO_MORE_ITEMS */
CERTKERN_API BOOL CryptEnumProvidersA(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags, DWORD* pdwProvType,
                                      LPSTR szProvName, DWORD* pcbProvName);
/** As CryptEnumProvidersA. */
CERTKERN_API BOOL CryptEnumProvidersW(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags, DWORD* pdwProvType,
                                      LPWSTR szProvName, DWORD* pcbProvName);
/** Enumerates the provider types; otherwise as CryptEnumProvidersA. */
CERTKERN_API BOOL CryptEnumProviderTypesA(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags,
                                          DWORD* pdwProvType, LPSTR szTypeName, DWORD* pcbTypeName);
/** As CryptEnumProviderTypesA. */
CERTKERN_API BOOL CryptEnumProviderTypesW(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags,
                                          DWORD* pdwProvType, LPWSTR szTypeName, DWORD* pcbTypeName);

/** dwFlags of CryptGetDefaultProvider. */
#define CRYPT_MACHINE_DEFAULT 1
#define CRYPT_USER_DEFAULT 2
/** Answers the name of a type's provider.
 *  @param pdwReserved  NULL
 *  @param dwFlags      CRYPT_MACHINE_DEFAULT or CRYPT_USER_DEFAULT: the answer is the same
 *  @param pszProvName  receives the name; NULL asks for the size
 *  @param pcbProvName  in: bytes at pszProvName; out: the size with the NUL, in bytes also in the wide form
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: no size, or pdwReserved; NTE_BAD_FLAGS; NTE_BAD_PROV_TYPE; ERROR_MORE_DATA */
CERTKERN_API BOOL CryptGetDefaultProviderA(DWORD dwProvType, DWORD* pdwReserved, DWORD dwFlags,
                                           LPSTR pszProvName, DWORD* pcbProvName);
/** As CryptGetDefaultProviderA. */
CERTKERN_API BOOL CryptGetDefaultProviderW(DWORD dwProvType, DWORD* pdwReserved, DWORD dwFlags,
                                           LPWSTR pszProvName, DWORD* pcbProvName);
/** Opens the provider of a type without a container.
 *  @return the provider, for CryptReleaseContext; 0 on failure, as CryptAcquireContextA */
CERTKERN_API HCRYPTPROV SVAPI_I_GetDefaultProvider(DWORD dwProvType);
/** Answers the process's provider for an algorithm.
 *  @return the provider, borrowed: who keeps it beyond the call counts it with CryptContextAddRef; 0 when there is none
 *  @errors NTE_BAD_ALGID; NTE_NO_MEMORY */
CERTKERN_API HCRYPTPROV SVAPI_I_CryptGetDefaultCryptProv(ALG_ID aiAlgid);

/** dwParam of CryptGetHashParam and CryptSetHashParam. */
#define HP_ALGID 1                /**< ALG_ID */
#define HP_HASHVAL 2              /**< bytes */
#define HP_HASHSIZE 4             /**< DWORD: bytes of the value */
#define HP_HMAC_INFO 5            /**< HMAC_INFO, of CALG_HMAC */
#define HP_OID 10                 /**< text, narrow: the parameter set of CALG_GR3411. RFC 4357, 11.2 */
#define HP_HASHSTARTVECT_RESET 11 /**< no value: begin again, with the same parameters */
#define HP_HMAC_KEY 21    /**< the 32 bytes of the key of CALG_GR3411_HMAC and its siblings. RFC 9548, 3 */
#define HP_PBKDF2_SALT 23 /**< CRYPT_DATA_BLOB */
#define HP_PBKDF2_PASSWORD 24 /**< CRYPT_DATA_BLOB */
#define HP_PBKDF2_COUNT 25    /**< DWORD: iterations */
#define HP_BASE_HASH 34       /**< ALG_ID: the hash inside CALG_PBKDF2 */
#define HP_PSS_SALT \
  37 /**< DWORD: salt length. MGF1 works with the same hash; what follows is not read. RFC 8017, 9.1 */

/** What CALG_HMAC works with. Null strings stand for the bytes of RFC 2104, which no others replace. */
typedef struct _HMAC_INFO {
  ALG_ID HashAlgid;
  BYTE* pbInnerString;
  DWORD cbInnerString;
  BYTE* pbOuterString;
  DWORD cbOuterString;
} HMAC_INFO, *PHMAC_INFO;
CERTKERN_RECORD_SIZE(HMAC_INFO, 40);

/** Begins a hash. Several threads may feed it, one after the other.
 *  @param hKey     for CALG_HMAC the key, and for CALG_GR3411_HMAC and its siblings the key or 0, before HP_HMAC_KEY
 *  @param dwFlags  0
 *  @param phHash   receives the hash, for CryptDestroyHash
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: phHash is NULL; ERROR_INVALID_HANDLE; NTE_BAD_ALGID: no hash, or refused on this
 *          host; NTE_BAD_KEY: a key for a hash that takes none; NTE_BAD_FLAGS; NTE_NO_MEMORY */
CERTKERN_API BOOL CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags,
                                  HCRYPTHASH* phHash);
/** Feeds a hash.
 *  @param dwDataLen  bytes at pbData; 0 is allowed
 *  @param dwFlags    0
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER: no data; NTE_BAD_FLAGS; NTE_BAD_HASH_STATE: its value was read
 *          or set */
CERTKERN_API BOOL CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen, DWORD dwFlags);
/** Answers a property of a hash. HP_HASHVAL with a buffer ends the hash; it may be read again.
 *  @param pbData      receives the value; NULL asks for the size
 *  @param pdwDataLen  in: bytes at pbData; out: the size
 *  @param dwFlags     0
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER: no size; NTE_BAD_TYPE: no such property; NTE_BAD_FLAGS;
 *          ERROR_MORE_DATA */
CERTKERN_API BOOL CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                                    DWORD dwFlags);
/** Sets a property of a hash: HP_HASHVAL, which ends it, HP_HASHSTARTVECT_RESET, or one of its algorithm, before any data.
 *  @param pbData   the value: for HP_HASHVAL as many bytes as the hash has
 *  @param dwFlags  0
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER: no value; NTE_BAD_TYPE: no such property; NTE_BAD_FLAGS;
 *          NTE_BAD_HASH_STATE: too late; NTE_BAD_DATA: an unknown parameter set */
CERTKERN_API BOOL CryptSetHashParam(HCRYPTHASH hHash, DWORD dwParam, const BYTE* pbData, DWORD dwFlags);
/** Makes a second hash that goes on from where this one is.
 *  @param pdwReserved  NULL
 *  @param dwFlags      0
 *  @param phHash       receives the copy, for CryptDestroyHash
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER; NTE_BAD_FLAGS; NTE_NO_MEMORY */
CERTKERN_API BOOL CryptDuplicateHash(HCRYPTHASH hHash, DWORD* pdwReserved, DWORD dwFlags, HCRYPTHASH* phHash);
/** Gives a hash back.
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE */
CERTKERN_API BOOL CryptDestroyHash(HCRYPTHASH hHash);

/** Which of a container's two keys. */
#define AT_KEYEXCHANGE 1
#define AT_SIGNATURE 2

/** dwFlags of CryptGenKey, CryptDeriveKey and CryptImportKey; the upper half is the key's length in bits, 0 the usual. */
#define CRYPT_EXPORTABLE 0x1u
#define CRYPT_USER_PROTECTED 0x2u
#define CRYPT_CREATE_SALT 0x4u
#define CRYPT_NO_SALT 0x10u
#define CRYPT_PREGEN 0x40u       /**< parameters follow: the key is made when it is first used */
#define CRYPT_ARCHIVABLE 0x4000u /**< exportable as long as this handle lives */
#define CRYPT_FORCE_KEY_PROTECTION_HIGH 0x8000u /**< CryptImportKey: taken, and without effect */
#define CRYPT_PUBLIC_IMPORT \
  0x10000u /**< CryptImportKey: the blob is this library's own form of a public key */

/** dwFlags of CryptExportKey, CryptImportKey, CryptEncrypt and CryptDecrypt. */
#define CRYPT_OAEP 0x40u /**< RSAES-OAEP. RFC 8017, 7.1 */

/** dwFlags of CryptSignHash and CryptVerifySignature. */
#define CRYPT_PSS 0x80u /**< RSASSA-PSS with the salt of HP_PSS_SALT. RFC 8017, 8.1 */

/** dwBlobType of CryptExportKey, and bType of a blob's header. */
#define SIMPLEBLOB 0x1
#define PUBLICKEYBLOB 0x6
#define PRIVATEKEYBLOB 0x7
#define PLAINTEXTKEYBLOB 0x8
#define OPAQUEKEYBLOB 0x9          /**< a session key with its settings, not encrypted */
#define PKCS8_SHROUDEDKEYBLOB 0x19 /**< the header, then PrivateKeyInfo under the wrapping key. RFC 5958 */
#define CUR_BLOB_VERSION 2
/** What a key blob begins with. */
typedef struct _PUBLICKEYSTRUC {
  BYTE bType;
  BYTE bVersion;
  WORD reserved;
  ALG_ID aiKeyAlg;
} BLOBHEADER, PUBLICKEYSTRUC;
CERTKERN_RECORD_SIZE(BLOBHEADER, 8);

/** What follows the header, little-endian:
 *  - PUBLICKEYBLOB of RSA: RSAPUBKEY with RSA1, the modulus; an exponent above 32 bits takes the next form.
 *  - PUBLICKEYBLOB of others: KEY_BLOB_INFO with KEY_BLOB_PUBLIC, SubjectPublicKeyInfo (RFC 5280, 4.1).
 *  - PRIVATEKEYBLOB without a wrapping key: RSA: RSAPUBKEY with RSA2, then modulus, both primes, both exponents, the
 *    coefficient, the private exponent; others: KEY_BLOB_INFO with KEY_BLOB_PRIVATE, PrivateKeyInfo (RFC 5958).
 *  - PRIVATEKEYBLOB with a wrapping key: KEY_BLOB_INFO with KEY_BLOB_WRAPPED, then SEQUENCE { AlgorithmIdentifier of the
 *    key, OCTET STRING wrapped } under a CALG_EXPORT_... of GOST 28147-89, or SEQUENCE { OCTET STRING initial value,
 *    OCTET STRING encrypted PrivateKeyInfo } under any other cipher.
 *  - SIMPLEBLOB: WRAPPED_KEY_INFO, the wrapped key, the dotted substitution box with its NUL (an empty text for other
 *    ciphers). Under RSA the encrypted key is reversed, as published, and WRAPPED_KEY_INFO is its first word alone.
 *  - PLAINTEXTKEYBLOB: DWORD bytes of the key, the key.
 *  - PKCS8_SHROUDEDKEYBLOB: the encrypted PrivateKeyInfo, and behind it the tag where the mode has one. */
typedef struct _RSAPUBKEY {
  DWORD magic; /**< RSA1 or RSA2 */
  DWORD bitlen;
  DWORD pubexp;
} RSAPUBKEY;
CERTKERN_RECORD_SIZE(RSAPUBKEY, 12);
#define RSA1 0x31415352u
#define RSA2 0x32415352u

typedef struct _KEY_BLOB_INFO {
  DWORD dwMagic; /**< KEY_BLOB_... */
  DWORD dwBitLen;
} KEY_BLOB_INFO;
CERTKERN_RECORD_SIZE(KEY_BLOB_INFO, 8);
#define KEY_BLOB_PUBLIC 0x42504B43u
#define KEY_BLOB_PRIVATE 0x56504B43u
#define KEY_BLOB_WRAPPED 0x57504B43u

typedef struct _WRAPPED_KEY_INFO {
  ALG_ID
  aiWrapAlg; /**< CALG_RSA_KEYX, CALG_EXPORT_..., or a cipher: CALG_AES_... and CALG_3DES of an agreed key */
  DWORD cbWrapped; /**< bytes. CALG_EXPORT_... of GOST 28147-89: UKM (8), encrypted key, MAC (4) */
} WRAPPED_KEY_INFO;
CERTKERN_RECORD_SIZE(WRAPPED_KEY_INFO, 8);

/** dwParam of CryptGetKeyParam and CryptSetKeyParam. */
#define KP_IV 1                /**< as many bytes as a block */
#define KP_SALT 2              /**< bytes */
#define KP_PADDING 3           /**< DWORD */
#define KP_MODE 4              /**< DWORD: CRYPT_MODE_... */
#define KP_MODE_BITS 5         /**< DWORD */
#define KP_PERMISSIONS 6       /**< DWORD */
#define KP_ALGID 7             /**< ALG_ID */
#define KP_BLOCKLEN 8          /**< DWORD: bits */
#define KP_KEYLEN 9            /**< DWORD: bits */
#define KP_X 14                /**< no value: make the key of CRYPT_PREGEN now */
#define KP_EFFECTIVE_KEYLEN 19 /**< DWORD: bits, of CALG_RC2 */
#define KP_CERTIFICATE 26      /**< an encoded certificate */
#define KP_MODE_WORD 101 /**< DWORD: CRYPT_MODE_CFB, CRYPT_MODE_CTR_ACPKM or CRYPT_MODE_CTR_ACPKM_OMAC */
#define KP_CIPHEROID 104 /**< text, narrow: the substitution box of CALG_G28147. RFC 4357, 11.1; RFC 7836 */
#define KP_CURVEOID 106  /**< text, narrow: the parameter set of a public key. RFC 4357, 11.4; RFC 7836 */
#define KP_FP 107        /**< bytes that tell two public keys apart, the same for either half */
#define KP_AUTH_TAG 112  /**< bytes; to be set as a CRYPT_DATA_BLOB: the tag of CRYPT_MODE_CTR_ACPKM_OMAC */
#define KP_KEY_LABEL \
  0x800000FEu /**< printable text of at most 256 bytes, no NUL: the fingerprint, hexadecimal */
/** How an agreed key of CALG_ECDH makes a wrapping key (SEC 1, 3.6.1), and how RSAES-OAEP is done (RFC 8017, 7.1). */
#define KP_KDF_HASH 0x80000101u  /**< ALG_ID */
#define KP_KDF_INFO 0x80000102u  /**< CRYPT_DATA_BLOB: the shared info */
#define KP_OAEP_HASH 0x80000103u /**< ALG_ID; CALG_SHA1 unless set */
#define KP_OAEP_LABEL 36         /**< CRYPT_DATA_BLOB */

/** Values of KP_PADDING and bits of KP_PERMISSIONS. */
#define PKCS5_PADDING 1 /**< RFC 8018, 6.1.1 */
#define ZERO_PADDING 3  /**< zeros up to a whole block, which decryption leaves */
#define CRYPT_ENCRYPT 0x1u
#define CRYPT_DECRYPT 0x2u
#define CRYPT_EXPORT 0x4u
#define CRYPT_READ 0x8u
#define CRYPT_WRITE 0x10u
#define CRYPT_MAC 0x20u

#define CRYPT_MODE_CBC 1
#define CRYPT_MODE_ECB 2
#define CRYPT_MODE_OFB 3
#define CRYPT_MODE_CFB \
  4 /**< GOST 28147-89: with key meshing, but under the test substitution box. RFC 4357, 2.3.2 */
#define CRYPT_MODE_CTR 6             /**< Magma and Kuznyechik, without re-keying */
#define CRYPT_MODE_CNT 31            /**< GOST 28147-89, RFC 5830, 6, with key meshing as CRYPT_MODE_CFB */
#define CRYPT_MODE_CTR_ACPKM 32      /**< RFC 9337; RFC 8645, 6.2.2 */
#define CRYPT_MODE_CTR_ACPKM_OMAC 35 /**< the same with a tag */

/** Signs a hash with a key of its provider, which ends the hash. A hash of CALG_MESSAGE_ITSELF signs by EdDSA; every other
 *  family takes the value of a hash function that fits: GOST keys their own alone.
 *  @param dwKeySpec      AT_KEYEXCHANGE or AT_SIGNATURE
 *  @param szDescription  takes part in nothing
 *  @param dwFlags        0 or CRYPT_PSS
 *  @param pbSignature    receives the signature, reversed as a string of bytes to what standards write; NULL asks for the
 *                        most that it can have, and leaves the hash at work
 *  @param pdwSigLen      in: bytes at pbSignature; out: the size
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER: no size; NTE_NO_KEY: no such key; NTE_BAD_HASH: not a hash of this
 *          key; NTE_BAD_ALGID: the family does not sign this way; NTE_BAD_FLAGS; ERROR_MORE_DATA; SCARD_W_WRONG_CHV: a wrong
 *          PIN; SCARD_W_CARD_NOT_AUTHENTICATED: none; NTE_SILENT_CONTEXT: none, in a silent provider; NTE_BAD_KEYSET: a damaged
 *          container; NTE_FAIL */
CERTKERN_API BOOL CryptSignHashA(HCRYPTHASH hHash, DWORD dwKeySpec, LPCSTR szDescription, DWORD dwFlags,
                                 BYTE* pbSignature, DWORD* pdwSigLen);
/** As CryptSignHashA. */
CERTKERN_API BOOL CryptSignHashW(HCRYPTHASH hHash, DWORD dwKeySpec, LPCWSTR szDescription, DWORD dwFlags,
                                 BYTE* pbSignature, DWORD* pdwSigLen);
/** Verifies a signature of a hash, which ends the hash.
 *  @param pbSignature    reversed, as CryptSignHash gives it
 *  @param hPubKey        a public key, or a pair
 *  @param szDescription  takes part in nothing
 *  @param dwFlags        0 or CRYPT_PSS: then the salt has exactly the length of HP_PSS_SALT
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER: no signature; NTE_BAD_SIGNATURE: every mismatch, a wrong length or encoding
 *          too, and nothing else; NTE_NO_MEMORY, NTE_FAIL: it was not found out;
 *          NTE_BAD_HASH, NTE_BAD_ALGID, NTE_BAD_FLAGS as CryptSignHashA; NTE_BAD_KEY: not such a key */
CERTKERN_API BOOL CryptVerifySignatureA(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                                        HCRYPTKEY hPubKey, LPCSTR szDescription, DWORD dwFlags);
/** As CryptVerifySignatureA. */
CERTKERN_API BOOL CryptVerifySignatureW(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                                        HCRYPTKEY hPubKey, LPCWSTR szDescription, DWORD dwFlags);

/** Makes a session key of a hash's value, which ends the hash: of its first bytes, or, where it is too short, of the
 *  published expansion by 0x36 and 0x5C.
 *  @param Algid      a cipher, or CALG_HMAC_KEY
 *  @param hBaseData  the hash
 *  @param dwFlags    CRYPT_EXPORTABLE, CRYPT_NO_SALT; the upper half: bits of the key, 0 the usual
 *  @param phKey      receives the key, for CryptDestroyKey
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER; NTE_BAD_ALGID; NTE_BAD_FLAGS; NTE_BAD_HASH; NTE_BAD_LEN: more than the
 *          hash gives, or not a length of the cipher */
CERTKERN_API BOOL CryptDeriveKey(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTHASH hBaseData, DWORD dwFlags,
                                 HCRYPTKEY* phKey);
/** Makes a random key. A pair of a family goes into the provider's container, in the place of the one that was there, under
 *  AT_SIGNATURE or AT_KEYEXCHANGE as Algid says; a provider without container keeps it as long as it lives. Ephemeral pairs
 *  and session keys live as long as their handle.
 *  @param Algid    CALG_..., or AT_KEYEXCHANGE, AT_SIGNATURE: the family of the provider's type
 *  @param dwFlags  CRYPT_EXPORTABLE, CRYPT_PREGEN (pairs); the upper half: bits of the key (RSA, RC2, RC4), 0 the usual
 *  @param phKey    receives the key, for CryptDestroyKey
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER; NTE_BAD_ALGID; NTE_BAD_FLAGS; NTE_BAD_LEN: not a length of the
 *          family, or an RSA key above the configured length (8192 bits); NTE_NO_MEMORY; NTE_PERM: the process's own
 *          provider, or a container that cannot be written; NTE_FAIL; NTE_TOKEN_KEYSET_STORAGE_FULL */
CERTKERN_API BOOL CryptGenKey(HCRYPTPROV hProv, ALG_ID Algid, DWORD dwFlags, HCRYPTKEY* phKey);
/** Opens a key of the provider's container. The PIN is wanted only when the private half is used.
 *  @param dwKeySpec  AT_KEYEXCHANGE or AT_SIGNATURE
 *  @param phUserKey  receives the key, for CryptDestroyKey
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER; NTE_NO_KEY; NTE_BAD_KEYSET: damaged; NTE_KEYSET_NOT_DEF: gone */
CERTKERN_API BOOL CryptGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey);
/** Reads a key blob. A public key under a private one gives the key that the two agree on; its KP_ALGID says how it wraps,
 *  and then KP_IV the UKM (8 octets, 32 for CALG_EXPORT_KEXP15_...). A private key goes into the container as CryptGenKey tells.
 *  @param pbData    dwDataLen bytes, whole
 *  @param hPubKey   the key that the blob is wrapped under, the private key of an agreement, or 0
 *  @param dwFlags   CRYPT_EXPORTABLE, CRYPT_OAEP, CRYPT_PUBLIC_IMPORT
 *  @param phKey     receives the key, for CryptDestroyKey
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER; NTE_BAD_DATA: malformed, or wrapped under another key; NTE_BAD_VER;
 *          NTE_BAD_TYPE: no such blob; NTE_BAD_ALGID; NTE_BAD_LEN: as CryptGenKey; NTE_BAD_KEY: not a key, or no way to wrap; NTE_BAD_PUBLIC_KEY: not
 *          a public key, a point off its curve; NTE_BAD_KEY_STATE: wrapped another way than KP_ALGID says; NTE_BAD_FLAGS; those of
 *          CryptGenKey. With RSAES-PKCS1-v1_5 a wrong padding gives a random key and no error (RFC 3218) */
CERTKERN_API BOOL CryptImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen, HCRYPTKEY hPubKey,
                                 DWORD dwFlags, HCRYPTKEY* phKey);
/** Writes a key blob.
 *  @param hExpKey     the key to wrap under; 0: none
 *  @param dwBlobType  ...BLOB
 *  @param dwFlags     0 or CRYPT_OAEP
 *  @param pbData      receives the blob; NULL asks for the size
 *  @param pdwDataLen  in: bytes at pbData; out: the size
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER: no size; NTE_BAD_TYPE: not a form of this key; NTE_BAD_KEY_STATE: not
 *          exportable, or the wrapping key lacks a setting; NTE_BAD_KEY: the wrapping key does not wrap so; NTE_BAD_FLAGS;
 *          ERROR_MORE_DATA; those of CryptSignHashA about the PIN */
CERTKERN_API BOOL CryptExportKey(HCRYPTKEY hKey, HCRYPTKEY hExpKey, DWORD dwBlobType, DWORD dwFlags,
                                 BYTE* pbData, DWORD* pdwDataLen);
/** Makes a second handle with the same key and settings, and a message of its own.
 *  @param pdwReserved  NULL
 *  @param dwFlags      0
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER; NTE_BAD_FLAGS; NTE_BAD_KEY_STATE: a key that is still to be made */
CERTKERN_API BOOL CryptDuplicateKey(HCRYPTKEY hKey, DWORD* pdwReserved, DWORD dwFlags, HCRYPTKEY* phKey);
/** Gives a key back; a container's key stays in the container.
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE */
CERTKERN_API BOOL CryptDestroyKey(HCRYPTKEY hKey);
/** Answers a property of a key.
 *  @param pbData      receives the value; NULL asks for the size
 *  @param pdwDataLen  in: bytes at pbData; out: the size
 *  @param dwFlags     0
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER: no size; NTE_BAD_TYPE: not a property of this key; NTE_BAD_KEY_STATE: no
 *          tag yet; NTE_NOT_FOUND: no certificate; NTE_BAD_FLAGS; ERROR_MORE_DATA */
CERTKERN_API BOOL CryptGetKeyParam(HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                                   DWORD dwFlags);
/** Sets a property of a key. A new mode, initial value or substitution box begins a new message.
 *  @param pbData   the value; how long it is, the property and the key's settings say
 *  @param dwFlags  0
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER: no value; NTE_BAD_TYPE: not a property of this key, or a certificate for a
 *          key that no container keeps; NTE_BAD_DATA: not a value of it; KP_AUTH_TAG after the last piece: another tag;
 *          NTE_BAD_ALGID; NTE_BAD_KEY_STATE: too late, or too early; NTE_BAD_FLAGS; those of the container */
CERTKERN_API BOOL CryptSetKeyParam(HCRYPTKEY hKey, DWORD dwParam, const BYTE* pbData, DWORD dwFlags);
/** Encrypts a piece of a message in place.
 *  @param hHash       a hash to feed with the plaintext, or 0
 *  @param Final       the last piece: adds padding where the mode needs it, and ends the message
 *  @param dwFlags     0 or CRYPT_OAEP (RSA)
 *  @param pbData      the piece; NULL asks for the size of the result and moves nothing on
 *  @param pdwDataLen  in: bytes of the piece; out: bytes of the result
 *  @param dwBufLen    bytes at pbData
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER; ERROR_MORE_DATA: the buffer has no room for the result; NTE_BAD_LEN: not
 *          whole blocks; NTE_BAD_KEY: a key that does not encrypt; NTE_BAD_KEY_STATE: it is decrypting; NTE_BAD_FLAGS; NTE_FAIL */
CERTKERN_API BOOL CryptEncrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags, BYTE* pbData,
                               DWORD* pdwDataLen, DWORD dwBufLen);
/** Decrypts a piece of a message in place.
 *  @param pdwDataLen  in: bytes of the piece; out: bytes of the result, never more
 *  @return TRUE or FALSE
 *  @errors as CryptEncrypt; NTE_BAD_DATA: padding, tag or length are wrong, and the piece is wiped */
CERTKERN_API BOOL CryptDecrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags, BYTE* pbData,
                               DWORD* pdwDataLen);

/* --- Display of what is to be signed. A key level that can show it to its user before a key is used exports the
 * following four; they may be missing altogether, which is the same as "not enabled". --- */

/** What a registration tells about the bytes that are about to be signed. */
typedef struct _HASH_MSG_RECORD {
  HCRYPTPROV hCryptProv;
  DWORD dwReserved[2]; /**< 0 */
  DWORD dwFlags;       /**< of the message: its display bits 0x1800; 0 for a certificate */
  DWORD fForced;       /**< 1: a signer added with 0x1000 among its flags */
} HASH_MSG_RECORD;
CERTKERN_RECORD_SIZE(HASH_MSG_RECORD, 24);

/** Tells if what is to be signed is shown.
 *  @return TRUE or FALSE */
CERTKERN_API BOOL isDTBSEnabled(void);
/** Registers something to be signed with the calling thread.
 *  @param key       tells registrations apart: the address of a message, or of the bytes
 *  @param reserved  0
 *  @param record    copied
 *  @return TRUE or FALSE */
CERTKERN_API BOOL TlsInitHashMsgIndex(void* key, DWORD reserved, const HASH_MSG_RECORD* record);
/** Makes a registration the one that the thread's next signature belongs to, or ends that.
 *  @param active  1 or 0
 *  @return TRUE or FALSE */
CERTKERN_API BOOL TlsSetHashMsgIndex(void* key, DWORD active);
/** Drops a registration.
 *  @return TRUE or FALSE */
CERTKERN_API BOOL TlsReleaseHashMsgIndex(void* key);

/** A row of the OID table. */
typedef struct _CRYPT_OID_INFO {
  DWORD cbSize;
  LPCSTR pszOID;
  LPCWSTR pwszName;
  DWORD dwGroupId;
  union {
    DWORD dwValue;
    ALG_ID Algid;
    DWORD dwLength;
  };
  CRYPT_DATA_BLOB ExtraInfo;
} CRYPT_OID_INFO, *PCRYPT_OID_INFO;
typedef const CRYPT_OID_INFO CCRYPT_OID_INFO, *PCCRYPT_OID_INFO;

#define CRYPT_OID_INFO_OID_KEY 1
#define CRYPT_OID_INFO_NAME_KEY 2
#define CRYPT_OID_INFO_ALGID_KEY 3
#define CRYPT_OID_INFO_SIGN_KEY 4

#define CRYPT_HASH_ALG_OID_GROUP_ID 1
#define CRYPT_ENCRYPT_ALG_OID_GROUP_ID 2
#define CRYPT_PUBKEY_ALG_OID_GROUP_ID 3
#define CRYPT_SIGN_ALG_OID_GROUP_ID 4
#define CRYPT_RDN_ATTR_OID_GROUP_ID 5
#define CRYPT_EXT_OR_ATTR_OID_GROUP_ID 6
#define CRYPT_ENHKEY_USAGE_OID_GROUP_ID 7
#define CRYPT_POLICY_OID_GROUP_ID 8
#define CRYPT_TEMPLATE_OID_GROUP_ID 9

#define CRYPT_OID_INHIBIT_SIGNATURE_FORMAT_FLAG 0x1
/** The same bit by what it does here: the signature stands in the encoding as the key level gives it, not reversed. */
#define CRYPT_OID_NO_REVERSE CRYPT_OID_INHIBIT_SIGNATURE_FORMAT_FLAG
#define CRYPT_OID_USE_PUBKEY_PARA_FOR_PKCS7_FLAG 0x2
#define CRYPT_OID_NO_NULL_ALGORITHM_PARA_FLAG 0x4

#define CRYPT_FIRST_ALG_OID_GROUP_ID CRYPT_HASH_ALG_OID_GROUP_ID
#define CRYPT_LAST_ALG_OID_GROUP_ID CRYPT_SIGN_ALG_OID_GROUP_ID
#define CRYPT_LAST_OID_GROUP_ID 9
/** The low half of dwGroupId is the group; the rest is flags, which this table has no use for. */
#define CRYPT_OID_INFO_GROUP_MASK 0x0000FFFFu
#define CRYPT_OID_DISABLE_SEARCH_DS_FLAG 0x80000000u

/** Finds the first row that fits.
 *  @param dwKeyType  CRYPT_OID_INFO_OID_KEY: pvKey is a dotted OID, narrow; CRYPT_OID_INFO_NAME_KEY: a name, wide,
 *                    compared without regard to case; CRYPT_OID_INFO_ALGID_KEY: points to an ALG_ID;
 *                    CRYPT_OID_INFO_SIGN_KEY: points to two, of the hash and of the public key
 *  @param dwGroupId  a group, 0 for all
 *  @return a constant row, never freed; NULL when none fits (last error untouched) */
CERTKERN_API PCCRYPT_OID_INFO CryptFindOIDInfo(DWORD dwKeyType, void* pvKey, DWORD dwGroupId);
typedef BOOL (*PFN_CRYPT_ENUM_OID_INFO)(PCCRYPT_OID_INFO pInfo, void* pvArg);
/** Calls back with each row of a group, 0 for all, in the order of the table, until a call answers FALSE.
 *  @param dwFlags  0
 *  @return TRUE when every row was shown
 *  @errors ERROR_INVALID_PARAMETER: no callback, or flags */
CERTKERN_API BOOL CryptEnumOIDInfo(DWORD dwGroupId, DWORD dwFlags, void* pvArg,
                                   PFN_CRYPT_ENUM_OID_INFO pfnEnumOIDInfo);

CERTKERN_EXTERN_C_END
#endif
