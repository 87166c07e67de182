/* The interface as a C program sees it: every name is declared with a type of its kind, and prototypes whose shape is
 * easily got wrong have exactly the published one. Nothing here is called, so nothing has to be linked. */
#include <certkern/certkern.h>

/* sizeof does not evaluate its operand: the declaration is used, the symbol isn't. */
#define FUNCTION(name) _Static_assert(sizeof(&name) == sizeof(void (*)(void)), #name);
#define DATA(name) _Static_assert(sizeof(name) == 4 || sizeof(name) == 8, #name);
#include "exported_names.inc"
#undef FUNCTION
#undef DATA

#define HAS_TYPE(name, ...) \
  _Static_assert(_Generic(&name, __VA_ARGS__ : 1, default : 0), #name " has another type")

HAS_TYPE(CertOpenSystemStore, HCERTSTORE (*)(HCRYPTPROV, LPCSTR));
HAS_TYPE(CertOpenSystemStoreW, HCERTSTORE (*)(HCRYPTPROV, LPCWSTR));
HAS_TYPE(CertRemoveStoreFromCollection, void (*)(HCERTSTORE, HCERTSTORE));
HAS_TYPE(CertVerifyTimeValidity, LONG (*)(LPFILETIME, PCERT_INFO));
HAS_TYPE(CertFindCertificateInCRL, BOOL (*)(PCCERT_CONTEXT, PCCRL_CONTEXT, DWORD, void*, PCRL_ENTRY*));
HAS_TYPE(CertGetValidUsages, BOOL (*)(DWORD, PCCERT_CONTEXT*, int*, LPSTR*, DWORD*));
HAS_TYPE(CertAddSerializedElementToStore,
         BOOL (*)(HCERTSTORE, const BYTE*, DWORD, DWORD, DWORD, DWORD, DWORD*, const void**));
HAS_TYPE(CertStrToNameW, BOOL (*)(DWORD, LPCWSTR, DWORD, void*, BYTE*, DWORD*, LPCWSTR*));
HAS_TYPE(CertFreeCertificateChain, void (*)(PCCERT_CHAIN_CONTEXT));
HAS_TYPE(CryptSignMessage,
         BOOL (*)(PCRYPT_SIGN_MESSAGE_PARA, BOOL, DWORD, const BYTE**, DWORD*, BYTE*, DWORD*));
HAS_TYPE(CryptGetMessageSignerCount, LONG (*)(DWORD, const BYTE*, DWORD));
HAS_TYPE(CryptMsgCalculateEncodedLength, DWORD (*)(DWORD, DWORD, DWORD, const void*, LPSTR, DWORD));
HAS_TYPE(CertCloseServerOcspResponse, void (*)(HCERT_SERVER_OCSP_RESPONSE, DWORD));
HAS_TYPE(LocalAlloc, HLOCAL (*)(UINT, SIZE_T));

/* What others plug in must fit what the library itself exports. */
HAS_TYPE(CryptRetrieveObjectByUrlA, PFN_SV_RETRIEVE_OBJECT_BY_URL);
HAS_TYPE(CertVerifyCertificateChainPolicy, PFN_CERT_VERIFY_CHAIN_POLICY);
HAS_TYPE(CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy, PFN_CERT_VERIFY_CHAIN_POLICY);
HAS_TYPE(CertVerifyRevocation, PFN_CERT_VERIFY_REVOCATION);
HAS_TYPE(SSLImpl, PFN_CERT_VERIFY_CHAIN_POLICY);

/* Names without A or W stand for the narrow form; the one that is a function stays itself. */
HAS_TYPE(CertGetNameString, DWORD (*)(PCCERT_CONTEXT, DWORD, DWORD, void*, LPSTR, DWORD));
#ifdef CertOpenSystemStore
#error "CertOpenSystemStore is an exported function, not a macro"
#endif

/* The masks over groups of flags are what their groups make them. */
_Static_assert((CERT_QUERY_CONTENT_FLAG_ALL & CERT_QUERY_CONTENT_FLAG_PFX_AND_LOAD) == 0,
               "no keys on mere inspection");
_Static_assert((CERT_QUERY_CONTENT_FLAG_ALL | CERT_QUERY_CONTENT_FLAG_PFX_AND_LOAD) == 0x7FFE,
               "all fourteen kinds");
_Static_assert(CERT_QUERY_FORMAT_FLAG_ALL
                   == (CERT_QUERY_FORMAT_FLAG_BINARY | CERT_QUERY_FORMAT_FLAG_BASE64_ENCODED
                       | CERT_QUERY_FORMAT_FLAG_ASN_ASCII_HEX_ENCODED),
               "all three forms");
_Static_assert(SVCMSG_EXTENSION_FLAGS
                   == (SVCMSG_CADES_STRICT | SVCMSG_CADES_DISABLE | SVCMSG_CADES_NO_KEY_SEARCH
                       | SVCMSG_DTBS_DISPLAY | SVCMSG_DTBS_DISPLAY_SIGNER),
               "the extension flags");
_Static_assert((SVCMSG_EXTENSION_FLAGS & (CMSG_CRYPT_RELEASE_CONTEXT_FLAG | 0xFFu)) == 0,
               "apart from the published");
_Static_assert(CERT_STORE_CERTIFICATE_CONTEXT_FLAG == 2 && CERT_STORE_CRL_CONTEXT_FLAG == 4,
               "published values");

/* A program's own use: records are aggregates, unions are reached without a name. */
DWORD SizeOfPublicUse(void);
DWORD SizeOfPublicUse(void) {
  CERT_ID id = {
      .dwIdChoice = CERT_ID_KEY_IDENTIFIER, .KeyId = {0, NULL}
  };
  CMSG_SIGNER_ENCODE_INFO signer = {.cbSize = sizeof(signer), .hCryptProv = 0, .SignerId = id};
  CMSG_SIGNED_ENCODE_INFO info = {.cbSize = sizeof(info), .cSigners = 1, .rgSigners = &signer};
  SSL_EXTRA_CERT_CHAIN_POLICY_PARA tls = {.cbSize = sizeof(tls), .dwAuthType = AUTHTYPE_SERVER};
  CERT_KEY_CONTEXT key = {.cbSize = sizeof(key)};
  return info.rgSigners->cbSize + info.cbSize + tls.cbStruct + key.cbSize;
}
