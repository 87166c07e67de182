/** Base types of the certkern interface.
 *
 *  The names are the published ones; the sizes are those of this platform: DWORD and LONG have 32 bits, a wide
 *  character has 32 bits, handles and pointers have 64. Every record is laid out by the C rules of the x86-64 and
 *  AArch64 ABIs, and the sizes that callers rely on are asserted beside each record.
 *
 *  A blob never owns its bytes: who does is said by the function that fills it. */
#ifndef CERTKERN_TYPES_H
#define CERTKERN_TYPES_H

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#ifdef __cplusplus
#define CERTKERN_EXTERN_C_BEGIN extern "C" {
#define CERTKERN_EXTERN_C_END }
#define CERTKERN_STATIC_ASSERT(condition) static_assert(condition, #condition)
#else
#define CERTKERN_EXTERN_C_BEGIN
#define CERTKERN_EXTERN_C_END
#define CERTKERN_STATIC_ASSERT(condition) _Static_assert(condition, #condition)
#endif

/** Marks a name that a shared library lets out. */
#define CERTKERN_API __attribute__((visibility("default")))

/** Asserts the published size of a record, in bytes. */
#define CERTKERN_RECORD_SIZE(record, size) CERTKERN_STATIC_ASSERT(sizeof(record) == (size))
/** Asserts the published offset of a field, in bytes. */
#define CERTKERN_FIELD_AT(record, field, offset) CERTKERN_STATIC_ASSERT(offsetof(record, field) == (offset))

typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef uint32_t UINT;
typedef uint32_t ULONG;
typedef int32_t LONG;
typedef int32_t INT;
typedef int32_t HRESULT;
typedef uint64_t ULONGLONG;
typedef int64_t LONGLONG;
typedef int BOOL;
typedef char CHAR;
typedef wchar_t WCHAR; /**< 32 bits, one code point */
typedef uintptr_t ULONG_PTR;
typedef uintptr_t UINT_PTR;
typedef uintptr_t DWORD_PTR;
typedef size_t SIZE_T;

typedef BYTE* PBYTE;
typedef const BYTE* LPCBYTE;
typedef BYTE* LPBYTE;
typedef BOOL* PBOOL;
typedef DWORD* PDWORD;
typedef DWORD* LPDWORD;
typedef void* PVOID;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef CHAR* LPSTR;
typedef CHAR* PSTR;
typedef const CHAR* LPCSTR;
typedef WCHAR* LPWSTR;
typedef WCHAR* PWSTR;
typedef const WCHAR* LPCWSTR;
typedef const WCHAR* PCWSTR;
typedef BOOL* LPBOOL;

typedef void* HANDLE;
typedef void* HLOCAL;
typedef void* HMODULE;
typedef void* HWND;
typedef void* HCERTSTORE;       /**< a store; CertCloseStore */
typedef void* HCRYPTMSG;        /**< a message; CryptMsgClose */
typedef void* HCERTCHAINENGINE; /**< a chain engine; CertFreeCertificateChainEngine */
typedef void* HCRYPTASYNC;
typedef void* HCRYPTOIDFUNCSET;
typedef void* HCRYPTOIDFUNCADDR;
typedef void* HCERT_SERVER_OCSP_RESPONSE;
typedef ULONG_PTR HCRYPTPROV; /**< a provider of the key level; CryptReleaseContext */
typedef ULONG_PTR HCRYPTKEY;  /**< a key of the key level; CryptDestroyKey */
typedef ULONG_PTR HCRYPTHASH; /**< a hash of the key level; CryptDestroyHash */
typedef ULONG_PTR HCRYPTPROV_LEGACY;
typedef ULONG_PTR HCRYPTPROV_OR_NCRYPT_KEY_HANDLE;
typedef unsigned int ALG_ID;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

/** A moment: units of 100 nanoseconds since 1601-01-01 00:00 UTC, split into two halves. All zero means "none". */
typedef struct _FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
} FILETIME, *PFILETIME, *LPFILETIME;
CERTKERN_RECORD_SIZE(FILETIME, 8);

/** A moment in parts, UTC, of the Gregorian calendar from 1601 on. */
typedef struct _SYSTEMTIME {
  WORD wYear;      /**< 1601 to 30827 */
  WORD wMonth;     /**< 1 to 12 */
  WORD wDayOfWeek; /**< 0 (Sunday) to 6; ignored on input */
  WORD wDay;       /**< 1 to 31 */
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
} SYSTEMTIME, *PSYSTEMTIME, *LPSYSTEMTIME;
CERTKERN_RECORD_SIZE(SYSTEMTIME, 16);

typedef struct _GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
} GUID;
CERTKERN_RECORD_SIZE(GUID, 16);

/** A stretch of bytes; cbData is in bytes. Its many names tell what the bytes are: integers are little-endian,
 *  everything else is in stream order. */
typedef struct _CRYPTOAPI_BLOB {
  DWORD cbData;
  BYTE* pbData;
} CRYPT_DATA_BLOB, *PCRYPT_DATA_BLOB, CRYPT_INTEGER_BLOB, *PCRYPT_INTEGER_BLOB, CRYPT_UINT_BLOB,
    *PCRYPT_UINT_BLOB, CRYPT_OBJID_BLOB, *PCRYPT_OBJID_BLOB, CERT_NAME_BLOB, *PCERT_NAME_BLOB,
    CERT_RDN_VALUE_BLOB, *PCERT_RDN_VALUE_BLOB, CERT_BLOB, *PCERT_BLOB, CRL_BLOB, *PCRL_BLOB, DATA_BLOB,
    *PDATA_BLOB, CRYPT_HASH_BLOB, *PCRYPT_HASH_BLOB, CRYPT_DIGEST_BLOB, *PCRYPT_DIGEST_BLOB, CRYPT_DER_BLOB,
    *PCRYPT_DER_BLOB, CRYPT_ATTR_BLOB, *PCRYPT_ATTR_BLOB;
CERTKERN_RECORD_SIZE(CRYPT_DATA_BLOB, 16);
CERTKERN_FIELD_AT(CRYPT_DATA_BLOB, pbData, 8);

/** A bit string: the bytes, and how many low bits of the last one do not count (0 to 7). */
typedef struct _CRYPT_BIT_BLOB {
  DWORD cbData;
  BYTE* pbData;
  DWORD cUnusedBits;
} CRYPT_BIT_BLOB, *PCRYPT_BIT_BLOB;
CERTKERN_RECORD_SIZE(CRYPT_BIT_BLOB, 24);

#endif
