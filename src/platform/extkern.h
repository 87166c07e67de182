// The operations of the extension library, libextkern: codecs of GOST key attributes and signature attributes, and the
// conversion of public keys. A site may install another library of the same soname, so nothing beyond these declarations
// may be relied on. libcertkern never links it: platform/extension_library.h binds each operation on first use.
//
// All answer TRUE, or FALSE with the last error; none throws; any thread may call any of them.
#ifndef CERTKERN_PLATFORM_EXTKERN_H
#define CERTKERN_PLATFORM_EXTKERN_H

#include <certkern/attributes.h>
#include <certkern/keykern.h>
#include <certkern/types.h>

extern "C" {

// --- codecs ---
// The arguments are those of CryptEncodeObject and CryptDecodeObject, unchanged. A null buffer asks for the size; too
// little room is ERROR_MORE_DATA; both leave the size that is needed. A decoded record lies in one buffer, at a multiple
// of 8. dwCertEncodingType and lpszStructType are not looked at: each function knows its type.
using XnEncode = BOOL(DWORD dwCertEncodingType, LPCSTR lpszStructType, const void* pvStructInfo,
                      BYTE* pbEncoded, DWORD* pcbEncoded);
using XnDecode = BOOL(DWORD dwCertEncodingType, LPCSTR lpszStructType, const BYTE* pbEncoded, DWORD cbEncoded,
                      DWORD dwFlags, void* pvStructInfo, DWORD* pcbStructInfo);

// RSA_CSP_PUBLICKEYBLOB: the key blob stands for the record; its length is told by the bit length inside.
CERTKERN_API XnEncode XnRsaPublicKeyEncode;
CERTKERN_API XnDecode XnRsaPublicKeyDecode;
// SV_SIGNING_CERTIFICATE in its three forms.
CERTKERN_API XnEncode XnDllSigningCertificateEncode;
CERTKERN_API XnDecode XnDllSigningCertificateDecode;
CERTKERN_API XnEncode XnDllSigningCertificateV2Encode;
CERTKERN_API XnDecode XnDllSigningCertificateV2Decode;
CERTKERN_API XnEncode XnDllOtherSigningCertificateEncode;
CERTKERN_API XnDecode XnDllOtherSigningCertificateDecode;
// SV_PRIVATE_KEY_USAGE_PERIOD
CERTKERN_API XnEncode XnDllPrivateKeyUsagePeriodEncode;
CERTKERN_API XnDecode XnDllPrivateKeyUsagePeriodDecode;
// SV_ISSUER_SIGN_TOOL
CERTKERN_API XnEncode XnDllIssuerSignToolEncode;
CERTKERN_API XnDecode XnDllIssuerSignToolDecode;
// SV_PRIVATE_CERTIFICATE_STORE
CERTKERN_API XnEncode XnDllGostPrivateCertificateStoreEncode;
CERTKERN_API XnDecode XnDllGostPrivateCertificateStoreDecode;
// DWORD
CERTKERN_API XnDecode XnDllPrivateKeyDeriveCounterDecode;
CERTKERN_API XnDecode XnDllGostPrivateKeyTimeValidityControlModeDecode;

// --- public keys ---
// From a SubjectPublicKeyInfo to a PUBLICKEYBLOB for CryptImportKey, in memory for LocalFree, that is, from malloc. The
// form is checked, the key is not: that is the provider's. The header names the algorithm of the identifier's first row,
// or aiKeyAlg when that is not 0. RSASSA-PSS keys come out as plain RSA keys. dwCertEncodingType is not looked at.
// ERROR_INVALID_PARAMETER: a null pointer; NTE_BAD_FLAGS: any flag; NTE_BAD_ALGID: not a key of this family;
// NTE_BAD_DATA: malformed
using XnConvertKey = BOOL(DWORD dwCertEncodingType, PCERT_PUBLIC_KEY_INFO pInfo, ALG_ID aiKeyAlg,
                          DWORD dwFlags, BYTE** ppbBlob, DWORD* pcbBlob);
CERTKERN_API XnConvertKey XnConvertPublicKeyInfo;       // GOST R 34.10, DSA
CERTKERN_API XnConvertKey XnEcdsaConvertPublicKeyInfo;  // curves of SEC 1
CERTKERN_API XnConvertKey XnEdDSAConvertPublicKeyInfo;  // RFC 8032
CERTKERN_API XnConvertKey XnRsaConvertPublicKeyInfo;

// A provider's public key as one buffer: the record, then its pieces. pszPublicKeyObjId, when given, takes the place of
// the key's own algorithm identifier. dwFlags is 0 and pvAuxInfo null. Codes as for a codec and as the provider's; also
// ERROR_FILE_NOT_FOUND: no such encoding type
using XnExportKey = BOOL(HCRYPTPROV hCryptProv, DWORD dwKeySpec, DWORD dwCertEncodingType,
                         LPSTR pszPublicKeyObjId, DWORD dwFlags, void* pvAuxInfo, PCERT_PUBLIC_KEY_INFO pInfo,
                         DWORD* pcbInfo);
CERTKERN_API XnExportKey XnDllExportPublicKeyInfoEx;

}  // extern "C"

#endif
