/** PKCS #12 files: certificates with their private keys, under a password. RFC 7292; for GOST, RFC 9337 and RFC 9548.
 *
 *  Passwords are wide text. No password and an empty one are taken for each other where a file is read. */
#ifndef CERTKERN_PFX_H
#define CERTKERN_PFX_H

#include <certkern/store.h>

CERTKERN_EXTERN_C_BEGIN

/** dwFlags of the export. */
#define REPORT_NO_PRIVATE_KEY 0x1u                 /**< fail when a key can't be opened */
#define REPORT_NOT_ABLE_TO_EXPORT_PRIVATE_KEY 0x2u /**< fail when a key can't be had from its container */
#define EXPORT_PRIVATE_KEYS 0x4u
#define PKCS12_INCLUDE_EXTENDED_PROPERTIES 0x10u /**< usage, description and key identifier properties */
#define SVPFX_SILENT 0x40u                       /**< never ask the user; export and import */

/** dwFlags of the import, beside CRYPT_EXPORTABLE, CRYPT_USER_PROTECTED and CRYPT_MACHINE_KEYSET of the key level. */
#define CRYPT_USER_KEYSET 0x1000u          /**< the user's containers, whatever the file says */
#define PKCS12_ALLOW_OVERWRITE_KEY 0x4000u /**< replace a container of the same name */
#define PKCS12_NO_PERSIST_KEY \
  0x8000u /**< keys live as long as the store; CERT_KEY_CONTEXT_PROP_ID has them */
#define SVPFX_FORCE_KEY_PROTECTION 0x100000u /**< imports keys with the key level's strongest protection */

/** Writes a store's certificates, and their keys where asked for, as a PFX.
 *  @param hStore      not a collection
 *  @param pPFX        receives the file; pbData NULL asks for the size, cbData is in: bytes at pbData, out: the size. A
 *                     query does all the work too
 *  @param szPassword  NULL: the empty one
 *  @param pvPara      NULL
 *  @param dwFlags     EXPORT_PRIVATE_KEYS and so on
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: no store, no blob, parameters; NTE_BAD_FLAGS; ERROR_CALL_NOT_IMPLEMENTED: a
 *          collection; ERROR_MORE_DATA; CRYPT_E_OID_FORMAT: a configured algorithm; CRYPT_E_ASN1_ERROR; NTE_NO_MEMORY;
 *          those of CryptAcquireCertificatePrivateKey and the key level */
CERTKERN_API BOOL PFXExportCertStoreEx(HCERTSTORE hStore, CRYPT_DATA_BLOB* pPFX, LPCWSTR szPassword,
                                       void* pvPara, DWORD dwFlags);
/** As PFXExportCertStoreEx with a NULL pvPara. */
CERTKERN_API BOOL PFXExportCertStore(HCERTSTORE hStore, CRYPT_DATA_BLOB* pPFX, LPCWSTR szPassword,
                                     DWORD dwFlags);

/** Reads a PFX: its certificates into a new memory store, its keys into containers, each certificate linked to its key.
 *  The integrity of the file must be protected by a password.
 *  @param szPassword  NULL: none
 *  @param dwFlags     PKCS12_... and so on; CRYPT_USER_KEYSET and CRYPT_MACHINE_KEYSET exclude each other
 *  @return a store for CertCloseStore; NULL on failure, when containers that were made before stay
 *  @errors ERROR_INVALID_PARAMETER: no file; NTE_BAD_FLAGS; ERROR_INVALID_PASSWORD; CRYPT_E_ASN1_ERROR: malformed, or
 *          without certificates; NTE_BAD_ALGID, NTE_BAD_DATA: an algorithm; NTE_EXISTS: a container of this name is
 *          there; NTE_NO_MEMORY; those of the key level */
CERTKERN_API HCERTSTORE PFXImportCertStore(CRYPT_DATA_BLOB* pPFX, LPCWSTR szPassword, DWORD dwFlags);
/** Tells if bytes have the outer form of a PFX. Sets the last error to 0. @return TRUE or FALSE */
CERTKERN_API BOOL PFXIsPFXBlob(CRYPT_DATA_BLOB* pPFX);
/** Tells if a password is the right one. Sets the last error to 0, unless an argument is bad.
 *  @param szPassword  NULL: none
 *  @param dwFlags     0
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: flags */
CERTKERN_API BOOL PFXVerifyPassword(CRYPT_DATA_BLOB* pPFX, LPCWSTR szPassword, DWORD dwFlags);

CERTKERN_EXTERN_C_END
#endif
