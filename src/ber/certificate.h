// Certificates, revocation lists and requests: what is signed in each. RFC 5280, 4.1 and 5.1; RFC 2986, 4.1.
#ifndef CERTKERN_BER_CERTIFICATE_H
#define CERTKERN_BER_CERTIFICATE_H

#include "ber/fields.h"

namespace certkern {

// TBSCertificate
[[nodiscard]] bool CertInfoDecode(BerReadCursor& in, CERT_INFO& info, BerDecodeArena& arena);
[[nodiscard]] bool CertInfoEncode(const CERT_INFO& info, BerWriteCursor& out);

// TBSCertList; the version must be there.
[[nodiscard]] bool CrlInfoDecode(BerReadCursor& in, CRL_INFO& info, BerDecodeArena& arena);
[[nodiscard]] bool CrlInfoEncode(const CRL_INFO& info, BerWriteCursor& out);

// CertificationRequestInfo
[[nodiscard]] bool CertRequestInfoDecode(BerReadCursor& in, CERT_REQUEST_INFO& info, BerDecodeArena& arena);
[[nodiscard]] bool CertRequestInfoEncode(const CERT_REQUEST_INFO& info, BerWriteCursor& out);

// Attribute ::= SEQUENCE { type OBJECT IDENTIFIER, values SET OF ANY }
[[nodiscard]] bool AttributeDecode(BerReadCursor& in, CRYPT_ATTRIBUTE& attribute, BerDecodeArena& arena);
[[nodiscard]] bool AttributeEncode(const CRYPT_ATTRIBUTE& attribute, BerWriteCursor& out);

}  // namespace certkern

#endif
