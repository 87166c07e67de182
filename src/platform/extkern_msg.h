// The key exchange of enveloped messages, the other half of the extension library: functions of the published PFN_CMSG_...
// types. libcertkern never links them either; see platform/extkern.h.
//
// All answer TRUE, or FALSE with the last error and nothing written; none throws; any thread may call any of them. dwFlags
// is 0 (NTE_BAD_FLAGS) and pvReserved null (ERROR_INVALID_PARAMETER). A record whose cbSize does not cover it is
// ERROR_INVALID_PARAMETER. Everywhere: NTE_BAD_ALGID for an algorithm, a scheme or parameters that are not served,
// NTE_BAD_DATA for what is malformed, has a wrong length or does not come out of its wrapping, and the provider's codes.
//
// Ownership. Memory of an answer comes from the pfnAlloc of CMSG_CONTENT_ENCRYPT_INFO, which must be there with pfnFree,
// one piece a field, and a bit of the answer's dwFlags tells of each piece that the caller gives back by pfnFree. A
// pointer whose bit is not set is a constant, or borrowed from what the caller gave. EncryptedKey has no bit: it is always
// a piece of its own.
#ifndef CERTKERN_PLATFORM_EXTKERN_MSG_H
#define CERTKERN_PLATFORM_EXTKERN_MSG_H

#include <certkern/msg_envelope.h>
#include <certkern/types.h>

#include <type_traits>

// Bits of CMSG_CONTENT_ENCRYPT_INFO.dwFlags.
#define CMSG_CONTENT_ENCRYPT_FREE_PARA_FLAG 0x1u
#define CMSG_CONTENT_ENCRYPT_FREE_OBJID_FLAG 0x2u
#define CMSG_CONTENT_ENCRYPT_RELEASE_CONTEXT_FLAG 0x8000u  // hCryptProv: the caller releases it
// Bits of CMSG_KEY_TRANS_ENCRYPT_INFO.dwFlags.
#define CMSG_KEY_TRANS_ENCRYPT_FREE_PARA_FLAG 0x1u
#define CMSG_KEY_TRANS_ENCRYPT_FREE_OBJID_FLAG 0x2u
// Bits of CMSG_KEY_AGREE_ENCRYPT_INFO.dwFlags.
#define CMSG_KEY_AGREE_ENCRYPT_FREE_PARA_FLAG 0x1u
#define CMSG_KEY_AGREE_ENCRYPT_FREE_MATERIAL_FLAG 0x2u
#define CMSG_KEY_AGREE_ENCRYPT_FREE_PUBKEY_ALG_FLAG 0x4u
#define CMSG_KEY_AGREE_ENCRYPT_FREE_PUBKEY_PARA_FLAG 0x8u
#define CMSG_KEY_AGREE_ENCRYPT_FREE_PUBKEY_BITS_FLAG 0x10u
#define CMSG_KEY_AGREE_ENCRYPT_FREE_OBJID_FLAG 0x20u

// What pvEncryptionAuxInfo points to for RC2 and RC4; null: 128 bits.
typedef struct _CMSG_RC2_AUX_INFO {
  DWORD cbSize;
  DWORD dwBitLen;  // of the key
} CMSG_RC2_AUX_INFO, *PCMSG_RC2_AUX_INFO, CMSG_RC4_AUX_INFO, *PCMSG_RC4_AUX_INFO;
CERTKERN_RECORD_SIZE(CMSG_RC2_AUX_INFO, 8);

extern "C" {

using XnGenContentKey = std::remove_pointer_t<PFN_CMSG_GEN_CONTENT_ENCRYPT_KEY>;
using XnExportKeyTrans = std::remove_pointer_t<PFN_CMSG_EXPORT_KEY_TRANS>;
using XnExportKeyAgree = std::remove_pointer_t<PFN_CMSG_EXPORT_KEY_AGREE>;
using XnImportKeyTrans = std::remove_pointer_t<PFN_CMSG_IMPORT_KEY_TRANS>;
using XnImportKeyAgree = std::remove_pointer_t<PFN_CMSG_IMPORT_KEY_AGREE>;

// Makes hContentEncryptKey, ready for CryptEncrypt, with a fresh initial value. A null hCryptProv becomes the default
// provider of the algorithm, counted: CMSG_CONTENT_ENCRYPT_RELEASE_CONTEXT_FLAG. Parameters that the caller gave (more
// than a NULL) are kept and used, and must be well-formed; otherwise they are made:
//   1.2.643.2.2.21                 SEQUENCE { OCTET STRING iv, OBJECT IDENTIFIER substitution box }: that of RFC 4357 when
//                                  a recipient's key is of GOST R 34.10-2001, otherwise that of RFC 7836
//   1.2.643.7.1.1.5.1.x, .5.2.x    SEQUENCE { OCTET STRING ukm }
//   AES, triple DES, DES           OCTET STRING iv
//   RC2                            SEQUENCE { INTEGER version, OCTET STRING iv }
//   RC4                            none
CERTKERN_API XnGenContentKey XnMsgDllGenContentEncryptKey;

// For keys of GOST R 34.10. KeyEncryptionAlgorithm is the recipient's public key algorithm with its parameters. A content
// key of Magma or Kuznyechik goes by KExp15, any other one of 32 bytes by RFC 4490; the answer names what was done.
CERTKERN_API XnExportKeyTrans XnMsgDllExportKeyTrans;
// KeyEncryptionAlgorithm: rsaEncryption, or id-RSAES-OAEP with RSAES-OAEP-params, where MGF1 works with the same hash
// (without parameters: SHA-1). RFC 8017, 7; RFC 4055, 4.1
CERTKERN_API XnExportKeyTrans XnMsgDllExportKeyTransRSA;

// For keys of GOST R 34.10; an ephemeral key is the originator, and a static one is ERROR_NOT_SUPPORTED. The recipients'
// public key algorithm, with its parameters, is pEphemeralAlgorithm, or when that is null KeyEncryptionAlgorithm.
// KeyEncryptionAlgorithm may also name one of the KExp15 wraps, and KeyWrapAlgorithm one of those of RFC 4357; the choice
// is otherwise as for key transport. UserKeyingMaterial: of the right length (8, with KExp15 32), or empty for a fresh
// one. The caller provides rgpKeyAgreeKeyEncryptInfo with an entry for each recipient key.
CERTKERN_API XnExportKeyAgree XnMsgDllExportKeyAgree;
// The same for keys of SEC 1. KeyEncryptionAlgorithm may name one of the five one-pass schemes, KeyWrapAlgorithm the wrap
// of AES or triple DES; otherwise the scheme fits the curve and the wrap the content key. RFC 5753. UserKeyingMaterial is
// not used, and the answer has none: the ephemeral key alone makes each wrapping key a fresh one.
CERTKERN_API XnExportKeyAgree XnMsgDllExportKeyAgreeECDH;

// The private key is that of hCryptProv and dwKeySpec (0: AT_KEYEXCHANGE). The content key has its mode, initial value
// and substitution box. For agreement OriginatorPublicKey is the originator's key, of the algorithm that
// OriginatorPublicKeyInfo names, or of the recipient's where it stands by a certificate or without parameters; when it is
// empty, the key of OriginatorPublicKeyInfo counts. CRYPT_E_INVALID_INDEX: no such encrypted key.
//
// RSAES-PKCS1-v1_5 never tells a wrong padding: the key is then a random one. RFC 3218
CERTKERN_API XnImportKeyTrans XnMsgDllImportKeyTrans;         // RFC 4490
CERTKERN_API XnImportKeyTrans XnMsgDllImportKeyTrans_GR3412;  // KExp15
CERTKERN_API XnImportKeyTrans XnMsgDllImportKeyTransRSA;
CERTKERN_API XnImportKeyAgree XnMsgDllImportKeyAgree;         // RFC 4490
CERTKERN_API XnImportKeyAgree XnMsgDllImportKeyAgree_GR3412;  // KExp15
CERTKERN_API XnImportKeyAgree XnMsgDllImportKeyAgreeECDH;

}  // extern "C"

#endif
