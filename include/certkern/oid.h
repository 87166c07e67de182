/** OID function sets, by which a program plugs its own functions in, and the plain algorithm look-ups.
 *
 *  A set is a named list of entries, each of which ties an encoding type and an identifier to a function. Sets live in
 *  the process alone: nothing is read from configuration, no library is loaded, and nothing is ever unloaded. Any thread
 *  may install and look up at any time. */
#ifndef CERTKERN_OID_H
#define CERTKERN_OID_H

#include <certkern/types.h>

CERTKERN_EXTERN_C_BEGIN

/** Sets that the library asks, with their built-in entries. */
#define CRYPT_OID_VERIFY_CERTIFICATE_CHAIN_POLICY_FUNC \
  "CertDllVerifyCertificateChainPolicy" /**< PFN_CERT_VERIFY_CHAIN_POLICY; built in: CERT_CHAIN_POLICY_BASE */
#define SV_OID_RETRIEVE_OBJECT_BY_URL_A_FUNC \
  "SvDllRetrieveObjectByUrlA" /**< PFN_SV_RETRIEVE_OBJECT_BY_URL; built in: CRYPT_DEFAULT_OID */
/** The function of a revocation library, PFN_CERT_VERIFY_REVOCATION. It is found by configuration, not by a set. */
#define CRYPT_OID_VERIFY_REVOCATION_FUNC "CertDllVerifyRevocation"
/** The identifier of a default entry. */
#define CRYPT_DEFAULT_OID "DEFAULT"

/** One entry to install. */
typedef struct _CRYPT_OID_FUNC_ENTRY {
  LPCSTR pszOID; /**< text, copied; or a number below 0x10000 */
  void* pvFuncAddr;
} CRYPT_OID_FUNC_ENTRY, *PCRYPT_OID_FUNC_ENTRY;
CERTKERN_RECORD_SIZE(CRYPT_OID_FUNC_ENTRY, 16);

/** Finds a set by name, or makes it.
 *  @param dwFlags  0
 *  @return a handle that stays good until the process ends; NULL on failure
 *  @errors ERROR_INVALID_PARAMETER: no name, flags; ERROR_CALL_NOT_IMPLEMENTED: a name with a reserved beginning
 *          (CertDll, CryptDll, CryptCNG, CryptSIP) that is not CRYPT_OID_VERIFY_CERTIFICATE_CHAIN_POLICY_FUNC;
 *          ERROR_DLL_INIT_FAILED: the built-in entries; ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API HCRYPTOIDFUNCSET CryptInitOIDFunctionSet(LPCSTR pszFuncName, DWORD dwFlags);

/** dwFlags of CryptInstallOIDFunctionAddress: put the entries in front, so that they are found before others. */
#define CRYPT_INSTALL_OID_FUNC_BEFORE_FLAG 0x1u

/** Adds entries to a set, which is made when it does not exist.
 *  @param hModule         NULL
 *  @param dwEncodingType  for which the entries hold; 0: for look-ups with 0
 *  @param cFuncEntry      elements of rgFuncEntry; 0 makes the set and no more
 *  @param rgFuncEntry     copied; of several with one identifier the first is found, or with the flag the last
 *  @param dwFlags         0 or CRYPT_INSTALL_OID_FUNC_BEFORE_FLAG
 *  @return TRUE or FALSE; all entries are installed or none
 *  @errors ERROR_INVALID_PARAMETER: a module, a count without an array, flags; those of CryptInitOIDFunctionSet */
CERTKERN_API BOOL CryptInstallOIDFunctionAddress(HMODULE hModule, DWORD dwEncodingType, LPCSTR pszFuncName,
                                                 DWORD cFuncEntry, const CRYPT_OID_FUNC_ENTRY rgFuncEntry[],
                                                 DWORD dwFlags);

/** dwFlags of CryptGetOIDFunctionAddress, for the published shape: all entries are installed ones. */
#define CRYPT_GET_INSTALLED_OID_FUNC_FLAG 0x1u

/** Finds the first entry of an identifier.
 *  @param dwEncodingType  an entry must share a bit with it; 0 finds entries of type 0 only
 *  @param pszOID          text, or a number below 0x10000
 *  @param dwFlags         0 or CRYPT_GET_INSTALLED_OID_FUNC_FLAG
 *  @param ppvFuncAddr     receives the function; NULL on failure
 *  @param phFuncAddr      receives a handle for CryptFreeOIDFunctionAddress; NULL on failure
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: a bad handle or null argument, flags; ERROR_FILE_NOT_FOUND: no such entry */
CERTKERN_API BOOL CryptGetOIDFunctionAddress(HCRYPTOIDFUNCSET hFuncSet, DWORD dwEncodingType, LPCSTR pszOID,
                                             DWORD dwFlags, void** ppvFuncAddr,
                                             HCRYPTOIDFUNCADDR* phFuncAddr);
/** Walks the default entries of a set.
 *  @param pwszDll     NULL
 *  @param dwFlags     0
 *  @param ppvFuncAddr receives the function; NULL when there are no more
 *  @param phFuncAddr  in: NULL to begin, else the handle of the entry to go on behind; out: that of the entry found, NULL
 *                     when there are no more
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: as for CryptGetOIDFunctionAddress; ERROR_MOD_NOT_FOUND: a library name;
 *          ERROR_FILE_NOT_FOUND: no more */
CERTKERN_API BOOL CryptGetDefaultOIDFunctionAddress(HCRYPTOIDFUNCSET hFuncSet, DWORD dwEncodingType,
                                                    LPCWSTR pwszDll, DWORD dwFlags, void** ppvFuncAddr,
                                                    HCRYPTOIDFUNCADDR* phFuncAddr);
/** Gives a function handle back. Nothing is unloaded: the function goes on working.
 *  @param hFuncAddr  NULL is allowed
 *  @param dwFlags    0
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: flags, or not a handle */
CERTKERN_API BOOL CryptFreeOIDFunctionAddress(HCRYPTOIDFUNCADDR hFuncAddr, DWORD dwFlags);

/** The identifier of an algorithm; an ALG_ID that is both a hash and something else gives the hash.
 *  @return text that belongs to the key level; NULL when there is none. No error is set */
CERTKERN_API LPCSTR CertAlgIdToOID(DWORD dwAlgId);
/** The algorithm of an identifier.
 *  @return the ALG_ID; 0 when there is none. No error is set */
CERTKERN_API DWORD CertOIDToAlgId(LPCSTR pszObjId);

CERTKERN_EXTERN_C_END
#endif
