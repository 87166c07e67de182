// The plain structures: sequences of elements and identifiers, templates, enrollment attributes, DH parameters.
#ifndef CERTKERN_BER_SEQUENCES_H
#define CERTKERN_BER_SEQUENCES_H

#include "ber/fields.h"

namespace certkern {

// SEQUENCE { contentType OBJECT IDENTIFIER, content [0] EXPLICIT SEQUENCE OF ANY OPTIONAL }
[[nodiscard]] bool ContentInfoDecode(BerReadCursor& in, CRYPT_CONTENT_INFO_SEQUENCE_OF_ANY& info,
                                     BerDecodeArena& arena);
[[nodiscard]] bool ContentInfoEncode(const CRYPT_CONTENT_INFO_SEQUENCE_OF_ANY& info, BerWriteCursor& out);

// SEQUENCE OF ANY
[[nodiscard]] bool SequenceOfAnyDecode(BerReadCursor& in, CRYPT_SEQUENCE_OF_ANY& sequence,
                                       BerDecodeArena& arena);
[[nodiscard]] bool SequenceOfAnyEncode(const CRYPT_SEQUENCE_OF_ANY& sequence, BerWriteCursor& out);

// ExtKeyUsageSyntax ::= SEQUENCE OF OBJECT IDENTIFIER. RFC 5280, 4.2.1.12.
[[nodiscard]] bool EnhancedKeyUsageDecode(BerReadCursor& in, CERT_ENHKEY_USAGE& usage, BerDecodeArena& arena);
[[nodiscard]] bool EnhancedKeyUsageEncode(const CERT_ENHKEY_USAGE& usage, BerWriteCursor& out);

// SEQUENCE { p INTEGER, g INTEGER }
[[nodiscard]] bool DhParametersDecode(BerReadCursor& in, CERT_DH_PARAMETERS& parameters,
                                      BerDecodeArena& arena);
[[nodiscard]] bool DhParametersEncode(const CERT_DH_PARAMETERS& parameters, BerWriteCursor& out);

// SEQUENCE { templateID OBJECT IDENTIFIER, majorVersion INTEGER, minorVersion INTEGER OPTIONAL }; on reading, a wrong
// identifier or length is CRYPT_E_ASN1_EOD.
[[nodiscard]] bool TemplateDecode(BerReadCursor& in, CERT_TEMPLATE_EXT& record, BerDecodeArena& arena);
[[nodiscard]] bool TemplateEncode(const CERT_TEMPLATE_EXT& record, BerWriteCursor& out);

// SEQUENCE { name BMPString, value BMPString OPTIONAL }
[[nodiscard]] bool NameValuePairDecode(BerReadCursor& in, CRYPT_ENROLLMENT_NAME_VALUE_PAIR& pair,
                                       BerDecodeArena& arena);
[[nodiscard]] bool NameValuePairEncode(const CRYPT_ENROLLMENT_NAME_VALUE_PAIR& pair, BerWriteCursor& out);

// SEQUENCE { keySpec INTEGER, cspName BMPString, signature BIT STRING }
[[nodiscard]] bool CspProviderDecode(BerReadCursor& in, CRYPT_CSP_PROVIDER& provider, BerDecodeArena& arena);
[[nodiscard]] bool CspProviderEncode(const CRYPT_CSP_PROVIDER& provider, BerWriteCursor& out);

}  // namespace certkern

#endif
