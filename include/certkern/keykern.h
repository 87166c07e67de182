/** The key-level interface: hashes, ciphers, keys, containers, the OID table, and the services that go with them. */
#ifndef CERTKERN_KEYKERN_H
#define CERTKERN_KEYKERN_H

#include <certkern/types.h>

CERTKERN_EXTERN_C_BEGIN

/** The calling thread's last error code. */
CERTKERN_API DWORD GetLastError(void);
/** Sets the calling thread's last error code. */
CERTKERN_API void SetLastError(DWORD dwErrCode);

#define CP_ACP 0
#define CP_UTF16LE 1200
#define CP_UTF8 65001

#define MB_PRECOMPOSED 0x1u
#define MB_ERR_INVALID_CHARS 0x8u
#define WC_ERR_INVALID_CHARS 0x80u
#define WC_NO_BEST_FIT_CHARS 0x400u

CERTKERN_API int MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr, int cbMultiByte, LPWSTR lpWideCharStr,
                                     int cchWideChar);
CERTKERN_API int WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWSTR lpWideCharStr, int cchWideChar, LPSTR lpMultiByteStr,
                                     int cbMultiByte, LPCSTR lpDefaultChar, LPBOOL lpUsedDefaultChar);

CERTKERN_API LONG CompareFileTime(const FILETIME* lpFileTime1, const FILETIME* lpFileTime2);
CERTKERN_API BOOL FileTimeToSystemTime(const FILETIME* lpFileTime, LPSYSTEMTIME lpSystemTime);
CERTKERN_API BOOL SystemTimeToFileTime(const SYSTEMTIME* lpSystemTime, LPFILETIME lpFileTime);
CERTKERN_API void GetSystemTime(LPSYSTEMTIME lpSystemTime);
CERTKERN_API void GetSystemTimeAsFileTime(LPFILETIME lpSystemTimeAsFileTime);

/** Algorithm identifiers: a class in the top three bits, a type in the next four, a number below. */
#define ALG_CLASS_ANY 0x0000u
#define ALG_CLASS_SIGNATURE 0x2000u
#define ALG_CLASS_MSG_ENCRYPT 0x4000u
#define ALG_CLASS_DATA_ENCRYPT 0x6000u
#define ALG_CLASS_HASH 0x8000u
#define ALG_CLASS_KEY_EXCHANGE 0xA000u
#define GET_ALG_CLASS(id) ((id) & 0xE000u)

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
#define CALG_RSA_SIGN 0x2400u
#define CALG_RSA_KEYX 0xA400u
#define CALG_DSS_SIGN 0x2200u
#define CALG_ECDSA 0x2203u
#define CALG_ECDH 0xAA05u
#define CALG_EDDSA 0x2220u                   /**< RFC 8032 */
#define CALG_GR3410EL 0x2E23u                /**< GOST R 34.10-2001. RFC 5832 */
#define CALG_DH_EL_SF 0xAA24u
#define CALG_DH_EL_EPHEM 0xAA25u
#define CALG_GR3410_12_256 0x2E49u           /**< GOST R 34.10-2012, 256 bits. RFC 7091 */
#define CALG_DH_GR3410_12_256_SF 0xAA46u
#define CALG_DH_GR3410_12_256_EPHEM 0xAA47u
#define CALG_GR3410_12_512 0x2E3Du           /**< GOST R 34.10-2012, 512 bits. RFC 7091 */
#define CALG_DH_GR3410_12_512_SF 0xAA42u
#define CALG_DH_GR3410_12_512_EPHEM 0xAA43u

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
CERTKERN_API BOOL CryptEnumOIDInfo(DWORD dwGroupId, DWORD dwFlags, void* pvArg, PFN_CRYPT_ENUM_OID_INFO pfnEnumOIDInfo);

CERTKERN_EXTERN_C_END
#endif
