// General names and the extensions that are lists of them. RFC 5280, 4.2.1.6 and 4.2.2.
#ifndef CERTKERN_BER_GENERAL_NAME_H
#define CERTKERN_BER_GENERAL_NAME_H

#include "ber/fields.h"

namespace certkern {

// One name. X.400 addresses and EDI party names are neither written nor read. An absent one leaves a zero record.
[[nodiscard]] bool BerDecodeAltEntry(BerReadCursor& in, CERT_ALT_NAME_ENTRY& entry, BerDecodeArena& arena);
[[nodiscard]] bool BerEncodeAltEntry(const CERT_ALT_NAME_ENTRY& entry, BerWriteCursor& out);

// The names up to the end of the reader, without a header around them.
[[nodiscard]] bool BerDecodeAltNames(BerReadCursor& in, CERT_ALT_NAME_INFO& info, BerDecodeArena& arena);
[[nodiscard]] bool BerEncodeAltNames(BYTE tag, const CERT_ALT_NAME_INFO& info, BerWriteCursor& out);

// GeneralNames ::= SEQUENCE OF GeneralName
[[nodiscard]] bool AltNameDecode(BerReadCursor& in, CERT_ALT_NAME_INFO& info, BerDecodeArena& arena);
[[nodiscard]] bool AltNameEncode(const CERT_ALT_NAME_INFO& info, BerWriteCursor& out);

// AuthorityInfoAccessSyntax ::= SEQUENCE OF SEQUENCE { accessMethod, accessLocation }
[[nodiscard]] bool AccessDecode(BerReadCursor& in, CERT_AUTHORITY_INFO_ACCESS& info, BerDecodeArena& arena);
[[nodiscard]] bool AccessEncode(const CERT_AUTHORITY_INFO_ACCESS& info, BerWriteCursor& out);

}  // namespace certkern

#endif
