// AlgorithmIdentifier and SubjectPublicKeyInfo. RFC 5280, 4.1.1.2 and 4.1.2.7.
#ifndef CERTKERN_BER_ALGORITHM_H
#define CERTKERN_BER_ALGORITHM_H

#include "ber/fields.h"

namespace certkern {

[[nodiscard]] bool AlgorithmDecode(BerReadCursor& in, CRYPT_ALGORITHM_IDENTIFIER& algorithm,
                                   BerDecodeArena& arena);
// Without parameters in the record the OID table says whether they are absent or NULL.
[[nodiscard]] bool AlgorithmEncode(const CRYPT_ALGORITHM_IDENTIFIER& algorithm, BerWriteCursor& out);

[[nodiscard]] bool PublicKeyInfoDecode(BerReadCursor& in, CERT_PUBLIC_KEY_INFO& info, BerDecodeArena& arena);
[[nodiscard]] bool PublicKeyInfoEncode(const CERT_PUBLIC_KEY_INFO& info, BerWriteCursor& out);
// Certificates and requests want an algorithm and a key.
inline bool IsComplete(const CERT_PUBLIC_KEY_INFO& info) {
  return info.Algorithm.pszObjId && info.PublicKey.pbData;
}

// X509_CERT: the frame of every signed object. The to-be-signed element is taken and given as it stands.
[[nodiscard]] bool SignedContentDecode(BerReadCursor& in, CERT_SIGNED_CONTENT_INFO& content,
                                       BerDecodeArena& arena);
[[nodiscard]] bool SignedContentEncode(const CERT_SIGNED_CONTENT_INFO& content, BerWriteCursor& out);

}  // namespace certkern

#endif
