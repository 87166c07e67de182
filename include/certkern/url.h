/** Objects by URL, with a cache that outlives the process, and fresh OCSP responses for servers.
 *
 *  Only http, https and ldap URLs are followed. Certificates and CRLs are cached in the user's store "cache". */
#ifndef CERTKERN_URL_H
#define CERTKERN_URL_H

#include <certkern/chain.h>

CERTKERN_EXTERN_C_BEGIN

/** What CryptRetrieveObjectByUrl is to make of the answer, and what *ppvObject is then. PEM and Base64 are decoded. */
#define CONTEXT_OID_CERTIFICATE ((LPCSTR)1) /**< CERT_CONTEXT; with CRYPT_RETRIEVE_MULTIPLE_OBJECTS a store */
#define CONTEXT_OID_CRL ((LPCSTR)2)         /**< CRL_CONTEXT; with CRYPT_RETRIEVE_MULTIPLE_OBJECTS a store */
#define CONTEXT_OID_CTL ((LPCSTR)3)         /**< refused */
#define CONTEXT_OID_PKCS7 ((LPCSTR)4)       /**< HCERTSTORE over a signed message */

/** dwRetrievalFlags. */
#define CRYPT_RETRIEVE_MULTIPLE_OBJECTS \
  0x1u /**< answer a memory store; a signed message is taken for certificates */
#define CRYPT_CACHE_ONLY_RETRIEVAL 0x2u /**< never use the network */
#define CRYPT_WIRE_ONLY_RETRIEVAL 0x4u  /**< don't look in the cache */
#define CRYPT_DONT_CACHE_RESULT 0x8u    /**< don't put the result there */

/** What a raw retrieval (object type NULL) answers: one block, for LocalFree, with all that it points to. */
typedef struct _CRYPT_BLOB_ARRAY {
  DWORD cBlob; /**< 1 */
  PCRYPT_DATA_BLOB rgBlob;
} CRYPT_BLOB_ARRAY, *PCRYPT_BLOB_ARRAY;
CERTKERN_RECORD_SIZE(CRYPT_BLOB_ARRAY, 16);

/** Credentials and auxiliary data. They are not looked at. */
typedef struct _CRYPT_CREDENTIALS {
  DWORD cbSize;
  LPCSTR pszCredentialsOid;
  LPVOID pvCredentials;
} CRYPT_CREDENTIALS, *PCRYPT_CREDENTIALS;
CERTKERN_RECORD_SIZE(CRYPT_CREDENTIALS, 24);
typedef struct _CRYPT_RETRIEVE_AUX_INFO {
  DWORD cbSize;
  FILETIME* pLastSyncTime;
  DWORD dwMaxUrlRetrievalByteCount; /**< bytes */
} CRYPT_RETRIEVE_AUX_INFO, *PCRYPT_RETRIEVE_AUX_INFO;
CERTKERN_RECORD_SIZE(CRYPT_RETRIEVE_AUX_INFO, 24);

/** A function for the set SV_OID_RETRIEVE_OBJECT_BY_URL_A_FUNC; as CryptRetrieveObjectByUrlA. */
typedef BOOL (*PFN_SV_RETRIEVE_OBJECT_BY_URL)(LPCSTR pszUrl, LPCSTR pszObjectOid, DWORD dwRetrievalFlags,
                                              DWORD dwTimeout, LPVOID* ppvObject, HCRYPTASYNC hAsyncRetrieve,
                                              PCRYPT_CREDENTIALS pCredentials, LPVOID pvVerify,
                                              PCRYPT_RETRIEVE_AUX_INFO pAuxInfo);

/** Fetches an object: from the cache if it is valid now, else over the network. The last error tells why not.
 *  @param pszObjectOid      NULL: raw bytes, CRYPT_BLOB_ARRAY; or CONTEXT_OID_...
 *  @param dwRetrievalFlags  CRYPT_..._RETRIEVAL and so on
 *  @param dwTimeout         milliseconds for the whole transfer; 0: the fetcher's own limit, 60 seconds
 *  @param ppvObject         receives the object, for the function that frees its kind
 *  @param hAsyncRetrieve    not looked at, as are the three behind it
 *  @return TRUE or FALSE
 *  @errors E_INVALIDARG: no URL, no result, another type or flag, an empty answer; CRYPT_E_NOT_FOUND: not in the cache,
 *          or the transfer failed; ERROR_INTERNAL_ERROR: text that does not decode; EVENT_E_INTERNALEXCEPTION;
 *          ERROR_NOT_ENOUGH_MEMORY; those of the functions that make the object */
CERTKERN_API BOOL CryptRetrieveObjectByUrlA(LPCSTR pszUrl, LPCSTR pszObjectOid, DWORD dwRetrievalFlags,
                                            DWORD dwTimeout, LPVOID* ppvObject, HCRYPTASYNC hAsyncRetrieve,
                                            PCRYPT_CREDENTIALS pCredentials, LPVOID pvVerify,
                                            PCRYPT_RETRIEVE_AUX_INFO pAuxInfo);
/** As CryptRetrieveObjectByUrlA. */
CERTKERN_API BOOL CryptRetrieveObjectByUrlW(LPCWSTR pszUrl, LPCSTR pszObjectOid, DWORD dwRetrievalFlags,
                                            DWORD dwTimeout, LPVOID* ppvObject, HCRYPTASYNC hAsyncRetrieve,
                                            PCRYPT_CREDENTIALS pCredentials, LPVOID pvVerify,
                                            PCRYPT_RETRIEVE_AUX_INFO pAuxInfo);

/** Which URLs CryptGetObjectUrl reads. Only the distribution points are served. */
#define URL_OID_CERTIFICATE_ISSUER ((LPCSTR)1)
#define URL_OID_CERTIFICATE_CRL_DIST_POINT ((LPCSTR)2)

/** URLs, in one block with all that it points to. */
typedef struct _CRYPT_URL_ARRAY {
  DWORD cUrl;
  LPWSTR* rgwszUrl;
} CRYPT_URL_ARRAY, *PCRYPT_URL_ARRAY;
CERTKERN_RECORD_SIZE(CRYPT_URL_ARRAY, 16);

/** How URLs belong together. Not filled. */
typedef struct _CRYPT_URL_INFO {
  DWORD cbSize;
  DWORD dwSyncDeltaTime; /**< seconds */
  DWORD cGroup;
  DWORD* rgcGroupEntry;
} CRYPT_URL_INFO, *PCRYPT_URL_INFO;
CERTKERN_RECORD_SIZE(CRYPT_URL_INFO, 24);

/** Reads the URLs of a certificate's CRL distribution points. RFC 5280, 4.2.1.13.
 *  @param pszUrlOid    URL_OID_CERTIFICATE_CRL_DIST_POINT
 *  @param pvPara       CERT_CONTEXT
 *  @param dwFlags      not looked at
 *  @param pUrlArray    receives the array, of no URLs if there are none; NULL asks for the size
 *  @param pcbUrlArray  in: bytes at pUrlArray; out: the size
 *  @param pUrlInfo     not filled
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: another kind, no certificate, no size; ERROR_NOT_FOUND: no such extension; ERROR_MORE_DATA; those of
 *          CryptDecodeObject */
CERTKERN_API BOOL CryptGetObjectUrl(LPCSTR pszUrlOid, LPVOID pvPara, DWORD dwFlags,
                                    PCRYPT_URL_ARRAY pUrlArray, DWORD* pcbUrlArray, PCRYPT_URL_INFO pUrlInfo,
                                    DWORD* pcbUrlInfo, LPVOID pvReserved);

/** Bytes that grow. The library takes them from LocalAlloc and gives them back with LocalFree, and so must a caller who
 *  fills or empties one. */
typedef struct _SV_BYTE_BUFFER {
  DWORD cbData; /**< bytes in use */
  BYTE* pbData;
  DWORD cbCapacity; /**< bytes at pbData: 0, or 4096 doubled as often as needed */
} SV_BYTE_BUFFER, *PSV_BYTE_BUFFER;
CERTKERN_RECORD_SIZE(SV_BYTE_BUFFER, 24);

/** Posts a request, as to an OCSP responder or a registration service, and waits at most 5 seconds for the answer.
 *  @param pwszUrl          the texts are at most 247 bytes long in the current encoding
 *  @param pwszUserAgent    sent as it is, as the first header line
 *  @param pwszContentType  a whole header line, as L"Content-type: application/ocsp-request"
 *  @param pwszProxy        NULL: none
 *  @param pwszProxyAuth    user and password, separated by a colon; NULL: none
 *  @param pRequest         the body; only read
 *  @param pResponse        in: empty (all zero) or an earlier answer; out: the answer's body, all zero for an empty one
 *  @return 200 on success; else the transfer's error code when it is below 512, otherwise 456, also for a
 *          text that is too long, does not convert or has an end of line in it; 0 for the errors below
 *  @errors ERROR_INVALID_PARAMETER: no URL, request or response; ERROR_UNHANDLED_EXCEPTION */
CERTKERN_API DWORD SendPKIRequest(LPCWSTR pwszUrl, LPCWSTR pwszUserAgent, LPCWSTR pwszContentType,
                                  LPCWSTR pwszProxy, LPCWSTR pwszProxyAuth, const SV_BYTE_BUFFER* pRequest,
                                  PSV_BYTE_BUFFER pResponse);

/* --- OCSP responses for a server --- */

/** dwFlags of CertOpenServerOcspResponse: don't wait for the first response. */
#define CERT_SERVER_OCSP_RESPONSE_ASYNC_FLAG 0x1u

/** A response, as it came: neither parsed nor verified. */
typedef struct _CERT_SERVER_OCSP_RESPONSE_CONTEXT {
  DWORD cbSize;
  BYTE* pbEncodedOcspResponse;
  DWORD cbEncodedOcspResponse; /**< bytes */
} CERT_SERVER_OCSP_RESPONSE_CONTEXT, *PCERT_SERVER_OCSP_RESPONSE_CONTEXT;
typedef const CERT_SERVER_OCSP_RESPONSE_CONTEXT* PCCERT_SERVER_OCSP_RESPONSE_CONTEXT;
CERTKERN_RECORD_SIZE(CERT_SERVER_OCSP_RESPONSE_CONTEXT, 24);

/** Keeps a fresh response for the end certificate of a chain, to be stapled: a thread of its own asks the responder that
 *  the certificate names, each 600 seconds, and each 15 seconds after a failure. RFC 6960; RFC 6066, 8.
 *  @param pChainContext  counted, not copied
 *  @param dwFlags        0 or CERT_SERVER_OCSP_RESPONSE_ASYNC_FLAG
 *  @param pOpenPara      NULL
 *  @return a handle for CertCloseServerOcspResponse, whether or not there is a response yet; NULL on failure
 *  @errors CRYPT_E_NOT_IN_REVOCATION_DATABASE: a self-issued certificate; ERROR_INVALID_PARAMETER: flags, parameters, an
 *          empty chain; CRYPT_E_ASN1_ERROR: the certificate names no responder; CERT_E_ISSUERCHAINING,
 *          CRYPT_E_SIGNER_NOT_FOUND: no issuer; ERROR_NO_NET_OR_BAD_PATH, with a handle: no response yet;
 *          ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API HCERT_SERVER_OCSP_RESPONSE CertOpenServerOcspResponse(PCCERT_CHAIN_CONTEXT pChainContext,
                                                                   DWORD dwFlags, LPVOID pOpenPara);
/** Stops the thread and frees all. Waits for it: 100 ms as a rule, 5 s at most.
 *  @param dwFlags  0
 *  @errors ERROR_INVALID_PARAMETER: no handle, flags */
CERTKERN_API void CertCloseServerOcspResponse(HCERT_SERVER_OCSP_RESPONSE hServerOcspResponse, DWORD dwFlags);
/** Copies the newest response.
 *  @param dwFlags     0
 *  @param pvReserved  NULL
 *  @return a context for CertFreeServerOcspResponseContext; NULL on failure
 *  @errors ERROR_INVALID_PARAMETER; CRYPT_E_REVOCATION_OFFLINE: none has come yet; ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API PCCERT_SERVER_OCSP_RESPONSE_CONTEXT CertGetServerOcspResponseContext(
    HCERT_SERVER_OCSP_RESPONSE hServerOcspResponse, DWORD dwFlags, LPVOID pvReserved);
/** Frees a copy; NULL is allowed. */
CERTKERN_API void CertFreeServerOcspResponseContext(
    PCCERT_SERVER_OCSP_RESPONSE_CONTEXT pServerOcspResponseContext);

CERTKERN_EXTERN_C_END
#endif
