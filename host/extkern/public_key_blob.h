// The two forms of a PUBLICKEYBLOB, as <certkern/keykern.h> lays them out: RSAPUBKEY for RSA, and SubjectPublicKeyInfo for
// every other key and for RSA keys whose exponent does not fit into RSAPUBKEY. Only the form is checked here.
#ifndef CERTKERN_EXTKERN_PUBLIC_KEY_BLOB_H
#define CERTKERN_EXTKERN_PUBLIC_KEY_BLOB_H

#include <certkern/encode.h>
#include <certkern/keykern.h>

#include <span>

#include "common/secret_bytes.h"

namespace extkern {

using Bytes = certkern::SecretBytes;

inline bool IsRsa(ALG_ID algorithm) { return algorithm == CALG_RSA_KEYX || algorithm == CALG_RSA_SIGN; }

// RSAPublicKey ::= SEQUENCE { modulus INTEGER, publicExponent INTEGER }. RFC 8017, A.1.1. Magnitudes, big-endian, without
// leading zeros; borrowed.
struct RsaPublicKey {
  std::span<const BYTE> modulus;
  std::span<const BYTE> exponent;

  bool fitsPublishedForm() const { return exponent.size() <= sizeof(RSAPUBKEY::pubexp); }
};
// Answers a code: CRYPT_E_ASN1_CORRUPT, or CRYPT_E_ASN1_LARGE for more bits than any key has.
DWORD ReadRsaPublicKey(std::span<const BYTE> der, RsaPublicKey& key);

// The published form of a key that fits it.
Bytes RsaKeyBlob(ALG_ID algorithm, const RsaPublicKey& key);
// The other form. KEY_BLOB_INFO leaves the length of the key to the provider, who has to parse the key in any case.
Bytes InfoKeyBlob(ALG_ID algorithm, std::span<const BYTE> publicKeyInfo);

inline constexpr size_t kRsaBlobHead = sizeof(BLOBHEADER) + sizeof(RSAPUBKEY);
// Bytes of a blob in the published form, by how it begins; 0 when it is none.
size_t RsaBlobSize(std::span<const BYTE, kRsaBlobHead> head);
// RSAPublicKey of a blob in the published form; empty when it is none.
Bytes RsaPublicKeyOfBlob(std::span<const BYTE> blob);

// SubjectPublicKeyInfo of a blob in either form. objectId, when given, takes the place of the algorithm's identifier.
// Answers a code: NTE_BAD_DATA, or CRYPT_E_OID_FORMAT for what is no identifier.
DWORD PublicKeyInfoOfBlob(std::span<const BYTE> blob, LPCSTR objectId, Bytes& publicKeyInfo);

// SubjectPublicKeyInfo; empty for a record that has none. Empty Parameters are written by the table.
Bytes WritePublicKeyInfo(const CERT_PUBLIC_KEY_INFO& info);

}  // namespace extkern

#endif
