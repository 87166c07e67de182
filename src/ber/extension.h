// Extensions. RFC 5280, 4.2.
#ifndef CERTKERN_BER_EXTENSION_H
#define CERTKERN_BER_EXTENSION_H

#include "ber/fields.h"

namespace certkern {

[[nodiscard]] bool ExtensionDecode(BerReadCursor& in, CERT_EXTENSION& extension, BerDecodeArena& arena);
[[nodiscard]] bool ExtensionEncode(const CERT_EXTENSION& extension, BerWriteCursor& out);

// X509_EXTENSIONS; a list of none is zero bytes.
[[nodiscard]] bool ExtensionsDecode(BerReadCursor& in, CERT_EXTENSIONS& extensions, BerDecodeArena& arena);
[[nodiscard]] bool ExtensionsEncode(const CERT_EXTENSIONS& extensions, BerWriteCursor& out);

// The SEQUENCE OF inside a certificate, list or entry; a null array with a count fails.
[[nodiscard]] bool ExtensionListEncode(PCCERT_EXTENSION extensions, DWORD count, BerWriteCursor& out);
// The same under [number] EXPLICIT; nothing for none.
[[nodiscard]] bool TaggedExtensionListEncode(int number, PCCERT_EXTENSION extensions, DWORD count,
                                             BerWriteCursor& out);

}  // namespace certkern

#endif
