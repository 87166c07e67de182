/** Certificate and CRL stores: opening, filling, saving and closing them; collections and system stores.
 *
 *  A store keeps its contents in memory, newest first. What is kept in a file is read when the store is opened, and what
 *  was changed since is written when it is committed; a store that is never closed is never committed. A handle is counted:
 *  CertOpenStore and CertDuplicateStore give one count, CertCloseStore takes it back. Contexts outlive the store that
 *  they came from. A collection has no contents of its own, only members, and looks like one store.
 *
 *  Any thread may use any store. Two processes, or two handles of one, that change the same file don't see each other until
 *  one of them resynchronises, but lose nothing of each other: a commit applies what its handle has added, taken out and
 *  changed since it last read or wrote the file to what the file holds by then, and leaves the handle's own contents as
 *  they are. The last to commit wins only where both have changed properties of the same object; one that either has taken
 *  out stays away. */
#ifndef CERTKERN_STORE_H
#define CERTKERN_STORE_H

#include <certkern/properties.h>

CERTKERN_EXTERN_C_BEGIN

/* --- Opening and closing --- */

/** What CertOpenStore opens, and what pvPara is then. A provider named by text is refused. */
#define CERT_STORE_PROV_MSG ((LPCSTR)1)        /**< HCRYPTMSG: its certificates and CRLs, copied */
#define CERT_STORE_PROV_MEMORY ((LPCSTR)2)     /**< ignored: an empty store */
#define CERT_STORE_PROV_FILE ((LPCSTR)3)       /**< FILE*, the store's once it is open, which closes it */
#define CERT_STORE_PROV_REG ((LPCSTR)4)        /**< anything but NULL: an empty store, never saved */
#define CERT_STORE_PROV_PKCS7 ((LPCSTR)5)      /**< CRYPT_DATA_BLOB: an encoded signed message */
#define CERT_STORE_PROV_SERIALIZED ((LPCSTR)6) /**< CRYPT_DATA_BLOB: what CertSaveStore wrote */
#define CERT_STORE_PROV_FILENAME_A ((LPCSTR)7) /**< path, UTF-8, at most 4095 bytes */
#define CERT_STORE_PROV_FILENAME_W ((LPCSTR)8) /**< path, wide */
#define CERT_STORE_PROV_FILENAME CERT_STORE_PROV_FILENAME_W
#define CERT_STORE_PROV_SYSTEM_A ((LPCSTR)9)  /**< store name: a collection of the user's and the machine's */
#define CERT_STORE_PROV_SYSTEM_W ((LPCSTR)10) /**< the same, wide */
#define CERT_STORE_PROV_SYSTEM CERT_STORE_PROV_SYSTEM_W
#define CERT_STORE_PROV_COLLECTION ((LPCSTR)11)        /**< ignored: an empty collection */
#define CERT_STORE_PROV_SYSTEM_REGISTRY_A ((LPCSTR)12) /**< store name: the store of one location */
#define CERT_STORE_PROV_SYSTEM_REGISTRY_W ((LPCSTR)13) /**< the same, wide */
#define CERT_STORE_PROV_SYSTEM_REGISTRY CERT_STORE_PROV_SYSTEM_REGISTRY_W
#define sz_CERT_STORE_PROV_SYSTEM "System" /**< as named by CertEnumPhysicalStore */
#define sz_CERT_STORE_PROV_SYSTEM_REGISTRY "SystemRegistry"

/** Flags of CertOpenStore. A bit that isn't named here has no effect. */
#define CERT_STORE_NO_CRYPT_RELEASE_FLAG 0x1u /**< the caller keeps hCryptProv, which must be given */
#define CERT_STORE_NO_CRYPT_PROV_RELEASE CERT_STORE_NO_CRYPT_RELEASE_FLAG
#define CERT_STORE_SET_LOCALIZED_NAME_FLAG 0x2u
#define CERT_STORE_DEFER_CLOSE_UNTIL_LAST_FREE_FLAG \
  0x4u                                       /**< the last context that is freed closes the store */
#define CERT_STORE_DELETE_FLAG 0x10u         /**< removes the file; the result is NULL with last error 0 */
#define CERT_STORE_ENUM_ARCHIVED_FLAG 0x200u /**< searches see archived objects, saving keeps them */
#define CERT_STORE_UPDATE_KEYID_FLAG 0x400u
#define CERT_STORE_BACKUP_RESTORE_FLAG 0x800u
#define CERT_STORE_MAXIMUM_ALLOWED_FLAG 0x1000u
#define CERT_STORE_CREATE_NEW_FLAG 0x2000u    /**< the file must not exist */
#define CERT_STORE_OPEN_EXISTING_FLAG 0x4000u /**< the file must exist */
#define CERT_STORE_READONLY_FLAG \
  0x8000u /**< changes are refused; a missing file is not made, and nothing is found */
#define CERT_FILE_STORE_COMMIT_ENABLE_FLAG \
  0x10000u /**< a file or path store is written back when it is closed */
#define CERT_FILE_STORE_COMMIT_ENABLE CERT_FILE_STORE_COMMIT_ENABLE_FLAG

/** Where a system store lives. */
#define CERT_SYSTEM_STORE_LOCATION_MASK 0x00FF0000u
#define CERT_SYSTEM_STORE_LOCATION_SHIFT 16
#define CERT_SYSTEM_STORE_CURRENT_USER_ID 1
#define CERT_SYSTEM_STORE_LOCAL_MACHINE_ID 2
#define CERT_SYSTEM_STORE_CURRENT_USER 0x00010000u  /**< the user's own directory */
#define CERT_SYSTEM_STORE_LOCAL_MACHINE 0x00020000u /**< the directory that all users share */

/** Opens a store. A system store is one file, named by its lower-case name; the store "Root" holds what is trusted.
 *  @param lpszStoreProvider  one of the CERT_STORE_PROV_... numbers
 *  @param dwEncodingType     kept with the store
 *  @param hCryptProv         for hashes of its objects; 0: a default one. Owned by the store unless
 *                            CERT_STORE_NO_CRYPT_RELEASE_FLAG is set; when the open fails it stays the caller's, as a
 *                            FILE does
 *  @param dwFlags            CERT_STORE_..._FLAG, and the location of a system store. A file that can't be written
 *                            is opened read-only
 *  @param pvPara             what the provider needs
 *  @return a handle for CertCloseStore; NULL on failure
 *  @errors ERROR_INVALID_PARAMETER: an unknown provider, a missing pvPara, CERT_STORE_NO_CRYPT_RELEASE_FLAG without a
 *          provider; E_INVALIDARG: read-only and commit both asked for; CRYPT_E_FILE_ERROR: neither a store nor a
 *          message nor a certificate, nor several PEM blocks of them; ERROR_END_OF_MEDIA: serialized data cut short; ERROR_INSUFFICIENT_BUFFER,
 *          ERROR_NOT_ENOUGH_MEMORY: the name is too long; ERROR_BAD_PATHNAME: the path is; ERROR_PATH_NOT_FOUND: no
 *          directory for system stores; ERROR_FILE_NOT_FOUND, ERROR_FILE_EXISTS, ERROR_ACCESS_DENIED,
 *          ERROR_OPEN_FAILED: the file; NTE_PROVIDER_DLL_FAIL: its lock; ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API HCERTSTORE CertOpenStore(LPCSTR lpszStoreProvider, DWORD dwEncodingType,
                                      HCRYPTPROV_LEGACY hCryptProv, DWORD dwFlags, const void* pvPara);

/** Opens the user's system store of a name: the user's file first, the machine's behind it, read-only. Additions go to
 *  the user's.
 *  @param hProv                as hCryptProv of CertOpenStore
 *  @param szSubsystemProtocol  the store's name, UTF-8, in any case
 *  @return a handle for CertCloseStore; NULL on failure
 *  @errors as CertOpenStore */
CERTKERN_API HCERTSTORE CertOpenSystemStoreA(HCRYPTPROV_LEGACY hProv, LPCSTR szSubsystemProtocol);
/** As CertOpenSystemStoreA. */
CERTKERN_API HCERTSTORE CertOpenSystemStoreW(HCRYPTPROV_LEGACY hProv, LPCWSTR szSubsystemProtocol);
/** CertOpenSystemStoreA under the plain name, a function in its own right. */
CERTKERN_API HCERTSTORE CertOpenSystemStore(HCRYPTPROV_LEGACY hProv, LPCSTR szSubsystemProtocol);

/** Flags of CertCloseStore. */
#define CERT_CLOSE_STORE_FORCE_FLAG 0x1u /**< frees everything, contexts that are still out included */
#define CERT_CLOSE_STORE_CHECK_FLAG 0x2u /**< tells if contexts or handles are still out */

/** Gives one count back. The last one commits the store and releases its contents; contexts that are still out live on
 *  without a store.
 *  @param hCertStore  NULL is allowed
 *  @param dwFlags     CERT_CLOSE_STORE_...
 *  @return TRUE or FALSE; the handle is gone in either case
 *  @errors CRYPT_E_PENDING_CLOSE: with the check flag, something is still out; ERROR_LOCK_FAILED, ERROR_WRITE_FAULT,
 *          ERROR_SEEK_ON_DEVICE: the commit failed */
CERTKERN_API BOOL CertCloseStore(HCERTSTORE hCertStore, DWORD dwFlags);

/** Takes one more count.
 *  @return hCertStore itself; NULL on failure
 *  @errors ERROR_INVALID_PARAMETER: NULL */
CERTKERN_API HCERTSTORE CertDuplicateStore(HCERTSTORE hCertStore);

/** What CertControlStore does. */
#define CERT_STORE_CTRL_RESYNC 1        /**< takes over what changed in the file; system stores only */
#define CERT_STORE_CTRL_NOTIFY_CHANGE 2 /**< not served */
#define CERT_STORE_CTRL_COMMIT 3        /**< writes the changes now */
#define CERT_STORE_CTRL_AUTO_RESYNC 4   /**< resynchronise before each new certificate search */

/** Controls a store, or each member of a collection.
 *  @param dwFlags     0 for a commit, otherwise not looked at
 *  @param dwCtrlType  CERT_STORE_CTRL_...
 *  @param pvCtrlPara  NULL for a commit, otherwise not looked at
 *  @return TRUE or FALSE. A resynchronisation is TRUE when any member could be resynchronised, or there is none. A commit
 *          that is FALSE has left the file as it was, and the changes can be committed later; once it is TRUE no crash
 *          undoes it
 *  @errors ERROR_INVALID_PARAMETER: no store, arguments of a commit; ERROR_CALL_NOT_IMPLEMENTED: another control, or
 *          not for this kind of store; ERROR_LOCK_FAILED and the file codes of CertOpenStore. Of a commit also
 *          ERROR_FILE_NOT_FOUND: the file is gone, and the store was opened with CERT_STORE_OPEN_EXISTING_FLAG, or the
 *          directory is gone; CRYPT_E_FILE_ERROR, ERROR_END_OF_MEDIA: what has come into the file is no store */
CERTKERN_API BOOL CertControlStore(HCERTSTORE hCertStore, DWORD dwFlags, DWORD dwCtrlType,
                                   const void* pvCtrlPara);

/** Forms and targets of CertSaveStore. */
#define CERT_STORE_SAVE_AS_STORE 1
#define CERT_STORE_SAVE_AS_PKCS7 2  /**< a signed message without signers; properties are lost */
#define CERT_STORE_SAVE_TO_FILE 1   /**< pvSaveToPara is a FILE* */
#define CERT_STORE_SAVE_TO_MEMORY 2 /**< pvSaveToPara is a CRYPT_DATA_BLOB; pbData NULL asks for the size */
#define CERT_STORE_SAVE_TO_FILENAME_A 3 /**< pvSaveToPara is a path, UTF-8; the file is replaced at once */
#define CERT_STORE_SAVE_TO_FILENAME_W 4 /**< the same, wide */
#define CERT_STORE_SAVE_TO_FILENAME CERT_STORE_SAVE_TO_FILENAME_W

/** Writes the contents of a store elsewhere. Archived objects are left out unless the store was opened to see them.
 *  @param dwEncodingType  kept for the published shape
 *  @param dwSaveAs        CERT_STORE_SAVE_AS_PKCS7; all else is the form that CERT_STORE_PROV_SERIALIZED reads
 *  @param dwSaveTo        CERT_STORE_SAVE_TO_...
 *  @param pvSaveToPara    the target
 *  @param dwFlags         ignored
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: no store, no target, an unknown target; ERROR_MORE_DATA: too little room, cbData
 *          has the size; ERROR_NO_UNICODE_TRANSLATION: the path; the file codes of CertOpenStore; ERROR_WRITE_FAULT;
 *          the codes of CryptMsgOpenToEncode for an object that does not decode (PKCS7) */
CERTKERN_API BOOL CertSaveStore(HCERTSTORE hCertStore, DWORD dwEncodingType, DWORD dwSaveAs, DWORD dwSaveTo,
                                void* pvSaveToPara, DWORD dwFlags);

/* --- Adding and deleting --- */

/** What to do when the same object is in the store already: a certificate of the same bytes; a CRL of the same issuer
 *  with the same authority key identifier or none, base or delta as well. Archived objects don't count unless the store
 *  was opened to see them. */
#define CERT_STORE_ADD_NEW 1                                 /**< fail with CRYPT_E_EXISTS */
#define CERT_STORE_ADD_USE_EXISTING 2                        /**< keep the one there, and answer it */
#define CERT_STORE_ADD_REPLACE_EXISTING 3                    /**< replace it, and its properties */
#define CERT_STORE_ADD_ALWAYS 4                              /**< add another one */
#define CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES 5 /**< add the new properties to those there */
#define CERT_STORE_ADD_NEWER 6 /**< replace an older one (notBefore, thisUpdate), else CRYPT_E_EXISTS */

/** Adds a copy of a certificate with its properties. An addition to the user's store "Root" is put to the user first.
 *  @param hCertStore        NULL: nothing is stored, and the result is a free-standing copy. A collection passes the
 *                           object to its first member that takes additions
 *  @param dwAddDisposition  CERT_STORE_ADD_...
 *  @param ppStoreContext    receives the store's own context, to be freed, or NULL on failure; may be NULL
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: not a live context; E_INVALIDARG: the disposition; CRYPT_E_EXISTS; E_ACCESSDENIED:
 *          a read-only store, a collection without a member that takes additions; ERROR_CANCELLED: the user refused;
 *          ERROR_INTERNAL_ERROR: the object can't be hashed; ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API BOOL CertAddCertificateContextToStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pCertContext,
                                                   DWORD dwAddDisposition, PCCERT_CONTEXT* ppStoreContext);
/** As CertAddCertificateContextToStore; nobody is asked. */
CERTKERN_API BOOL CertAddCRLContextToStore(HCERTSTORE hCertStore, PCCRL_CONTEXT pCrlContext,
                                           DWORD dwAddDisposition, PCCRL_CONTEXT* ppStoreContext);

/** Adds a link: the same certificate, sharing its properties. A commit leaves links out.
 *  @param hCertStore        not a collection
 *  @param dwAddDisposition  CERT_STORE_ADD_NEW to CERT_STORE_ADD_ALWAYS
 *  @param ppStoreContext    receives the link, to be freed; may be NULL
 *  @return TRUE or FALSE
 *  @errors E_INVALIDARG: no store, a collection, the disposition; ERROR_INVALID_PARAMETER: not a live context;
 *          CRYPT_E_EXISTS; E_ACCESSDENIED: replacing in a read-only store; ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API BOOL CertAddCertificateLinkToStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pCertContext,
                                                DWORD dwAddDisposition, PCCERT_CONTEXT* ppStoreContext);
/** As CertAddCertificateLinkToStore. */
CERTKERN_API BOOL CertAddCRLLinkToStore(HCERTSTORE hCertStore, PCCRL_CONTEXT pCrlContext,
                                        DWORD dwAddDisposition, PCCRL_CONTEXT* ppStoreContext);

/** Makes a context from an encoded certificate and adds it.
 *  @param cbCertEncoded   bytes at pbCertEncoded
 *  @param ppCertContext   as ppStoreContext of CertAddCertificateContextToStore
 *  @return TRUE or FALSE
 *  @errors those of CertCreateCertificateContext and CertAddCertificateContextToStore */
CERTKERN_API BOOL CertAddEncodedCertificateToStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType,
                                                   const BYTE* pbCertEncoded, DWORD cbCertEncoded,
                                                   DWORD dwAddDisposition, PCCERT_CONTEXT* ppCertContext);
/** As CertAddEncodedCertificateToStore. */
CERTKERN_API BOOL CertAddEncodedCRLToStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType,
                                           const BYTE* pbCrlEncoded, DWORD cbCrlEncoded,
                                           DWORD dwAddDisposition, PCCRL_CONTEXT* ppCrlContext);

/** Adds an encoded certificate to the user's system store of a name, unless it is there already.
 *  @param szCertStoreName  UTF-8
 *  @param cbCertEncoded    bytes at pbCertEncoded
 *  @return TRUE or FALSE; TRUE only when the store could be closed and saved as well
 *  @errors those of CertOpenSystemStoreA, CertAddEncodedCertificateToStore and CertCloseStore */
CERTKERN_API BOOL CertAddEncodedCertificateToSystemStoreA(LPCSTR szCertStoreName, const BYTE* pbCertEncoded,
                                                          DWORD cbCertEncoded);
/** As CertAddEncodedCertificateToSystemStoreA. */
CERTKERN_API BOOL CertAddEncodedCertificateToSystemStoreW(LPCWSTR szCertStoreName, const BYTE* pbCertEncoded,
                                                          DWORD cbCertEncoded);

/** Takes a certificate out of its store and frees the context, on failure too: duplicate it first to go on using it, as
 *  in an enumeration, which goes on from the one that was taken out. Other contexts of it stay good; taking it out by
 *  one of them as well is no failure. A context without a store is left alone, and not freed.
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: not a live context; E_ACCESSDENIED: the store is read-only */
CERTKERN_API BOOL CertDeleteCertificateFromStore(PCCERT_CONTEXT pCertContext);
/** As CertDeleteCertificateFromStore. */
CERTKERN_API BOOL CertDeleteCRLFromStore(PCCRL_CONTEXT pCrlContext);

/* --- Single serialized objects --- */

/** Writes a certificate and its properties as one serialized element.
 *  @param dwFlags     0
 *  @param pbElement   receives the element; NULL asks for the size
 *  @param pcbElement  in: bytes at pbElement; out: its size
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: not a live context, flags, no pcbElement; ERROR_MORE_DATA */
CERTKERN_API BOOL CertSerializeCertificateStoreElement(PCCERT_CONTEXT pCertContext, DWORD dwFlags,
                                                       BYTE* pbElement, DWORD* pcbElement);
/** As CertSerializeCertificateStoreElement. */
CERTKERN_API BOOL CertSerializeCRLStoreElement(PCCRL_CONTEXT pCrlContext, DWORD dwFlags, BYTE* pbElement,
                                               DWORD* pcbElement);

/** Kinds of contexts, and the flags that allow them in CertAddSerializedElementToStore. */
#define CERT_STORE_CERTIFICATE_CONTEXT 1
#define CERT_STORE_CRL_CONTEXT 2
#define CERT_STORE_CTL_CONTEXT 3
#define CERT_STORE_ALL_CONTEXT_FLAG 0xFFFFFFFFu
#define CERT_STORE_CERTIFICATE_CONTEXT_FLAG (1u << CERT_STORE_CERTIFICATE_CONTEXT)
#define CERT_STORE_CRL_CONTEXT_FLAG (1u << CERT_STORE_CRL_CONTEXT)

/** Adds what CertSerialize...StoreElement wrote.
 *  @param hCertStore          NULL: as for CertAddCertificateContextToStore
 *  @param cbElement           bytes at pbElement
 *  @param dwAddDisposition    CERT_STORE_ADD_...
 *  @param dwFlags             0
 *  @param dwContextTypeFlags  which kind is allowed: exactly one of the flags above
 *  @param pdwContextType      receives CERT_STORE_CERTIFICATE_CONTEXT or CERT_STORE_CRL_CONTEXT; may be NULL
 *  @param ppvContext          receives the store's own context, to be freed; may be NULL
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: no bytes, flags; E_INVALIDARG: a kind that is not allowed; ERROR_END_OF_MEDIA: cut
 *          short; CRYPT_E_FILE_ERROR: a length beyond the data, properties without an object; those of
 *          CertAddCertificateContextToStore */
CERTKERN_API BOOL CertAddSerializedElementToStore(HCERTSTORE hCertStore, const BYTE* pbElement,
                                                  DWORD cbElement, DWORD dwAddDisposition, DWORD dwFlags,
                                                  DWORD dwContextTypeFlags, DWORD* pdwContextType,
                                                  const void** ppvContext);

/* --- Collections and locations --- */

/** dwUpdateFlags of CertAddStoreToCollection. */
#define CERT_PHYSICAL_STORE_ADD_ENABLE_FLAG 0x1u /**< this member takes additions */
#define CERT_PHYSICAL_STORE_OPEN_DISABLE_FLAG 0x2u
#define CERT_PHYSICAL_STORE_REMOTE_OPEN_DISABLE_FLAG 0x4u
#define CERT_PHYSICAL_STORE_INSERT_COMPUTER_NAME_ENABLE_FLAG 0x8u
#define CERT_PHYSICAL_STORE_PREDEFINED_ENUM_FLAG 0x1u /**< in the flags of an enumeration callback */

/** Makes a store a member of a collection, which takes a count of its own on it. The members of a collection are added
 *  one by one: what changes in it later is not seen.
 *  @param hSiblingStore  NULL, and the collection itself, are allowed and change nothing
 *  @param dwUpdateFlags  0 or CERT_PHYSICAL_STORE_ADD_ENABLE_FLAG
 *  @param dwPriority     a member of higher priority is searched earlier; equal ones in the order of adding
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: no collection, the flags; E_INVALIDARG: not a collection;
 *          ERROR_CALL_NOT_IMPLEMENTED: a member already; ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API BOOL CertAddStoreToCollection(HCERTSTORE hCollectionStore, HCERTSTORE hSiblingStore,
                                           DWORD dwUpdateFlags, DWORD dwPriority);
/** Takes a member, or each member of a collection, out of a collection and gives its count back. What is no member is
 *  ignored. @errors ERROR_INVALID_PARAMETER: no collection */
CERTKERN_API void CertRemoveStoreFromCollection(HCERTSTORE hCollectionStore, HCERTSTORE hSiblingStore);

/** What is told of a system store. */
typedef struct _CERT_SYSTEM_STORE_INFO {
  DWORD cbSize;
} CERT_SYSTEM_STORE_INFO, *PCERT_SYSTEM_STORE_INFO;
CERTKERN_RECORD_SIZE(CERT_SYSTEM_STORE_INFO, 4);

/** What is told of one of the stores behind a system store: how CertOpenStore would open it. */
typedef struct _CERT_PHYSICAL_STORE_INFO {
  DWORD cbSize;
  LPSTR pszOpenStoreProvider;     /**< "SystemRegistry" or "System" */
  DWORD dwOpenEncodingType;       /**< 0 */
  DWORD dwOpenFlags;              /**< location and CERT_STORE_..._FLAG */
  CRYPT_DATA_BLOB OpenParameters; /**< the store's name, wide; cbData in bytes, with the NUL */
  DWORD dwFlags;                  /**< CERT_PHYSICAL_STORE_ADD_ENABLE_FLAG or 0 */
  DWORD dwPriority;               /**< 0 */
} CERT_PHYSICAL_STORE_INFO, *PCERT_PHYSICAL_STORE_INFO;
CERTKERN_RECORD_SIZE(CERT_PHYSICAL_STORE_INFO, 48);
CERTKERN_FIELD_AT(CERT_PHYSICAL_STORE_INFO, OpenParameters, 24);
CERTKERN_FIELD_AT(CERT_PHYSICAL_STORE_INFO, dwFlags, 40);

/** Callbacks of the enumerations. All they get is borrowed for the call; FALSE stops the walk. */
typedef BOOL (*PFN_CERT_ENUM_SYSTEM_STORE_LOCATION)(LPCWSTR pwszStoreLocation, DWORD dwFlags,
                                                    void* pvReserved, void* pvArg);
typedef BOOL (*PFN_CERT_ENUM_SYSTEM_STORE)(const void* pvSystemStore, DWORD dwFlags,
                                           PCERT_SYSTEM_STORE_INFO pStoreInfo, void* pvReserved, void* pvArg);
typedef BOOL (*PFN_CERT_ENUM_PHYSICAL_STORE)(const void* pvSystemStore, DWORD dwFlags, LPCWSTR pwszStoreName,
                                             PCERT_PHYSICAL_STORE_INFO pStoreInfo, void* pvReserved,
                                             void* pvArg);

/** Tells the callback the locations "CurrentUser" and "LocalMachine", each with its CERT_SYSTEM_STORE_... value.
 *  @param dwFlags  0
 *  @return TRUE, which clears the last error, or FALSE
 *  @errors E_INVALIDARG: flags; SV_E_ENUMERATION_STOPPED: the callback stopped the walk */
CERTKERN_API BOOL CertEnumSystemStoreLocation(DWORD dwFlags, void* pvArg,
                                              PFN_CERT_ENUM_SYSTEM_STORE_LOCATION pfnEnum);
/** Tells the callback the names (wide) of the stores that exist in a location, in no particular order.
 *  @param dwFlags                    CERT_SYSTEM_STORE_CURRENT_USER or CERT_SYSTEM_STORE_LOCAL_MACHINE; handed to the
 *                                    callback as they are
 *  @param pvSystemStoreLocationPara  ignored
 *  @return TRUE, which clears the last error. FALSE with last error 0: the callback stopped the walk
 *  @errors ERROR_INVALID_PARAMETER: no callback, no location; ERROR_PATH_NOT_FOUND: the directory */
CERTKERN_API BOOL CertEnumSystemStore(DWORD dwFlags, void* pvSystemStoreLocationPara, void* pvArg,
                                      PFN_CERT_ENUM_SYSTEM_STORE pfnEnum);
/** Tells the callback the stores that CertOpenStore puts together for a system store: ".Default" and ".LocalMachine".
 *  @param pvSystemStore  the store's name, wide
 *  @param dwFlags        the location
 *  @return TRUE or FALSE
 *  @errors ERROR_FILE_NOT_FOUND: the location, or the callback stopped the walk; E_INVALIDARG: no name, no callback */
CERTKERN_API BOOL CertEnumPhysicalStore(const void* pvSystemStore, DWORD dwFlags, void* pvArg,
                                        PFN_CERT_ENUM_PHYSICAL_STORE pfnEnum);

CERTKERN_EXTERN_C_END
#endif
