#include "ber/extension.h"

namespace certkern {

// Extension ::= SEQUENCE { extnID OBJECT IDENTIFIER, critical BOOLEAN DEFAULT FALSE, extnValue OCTET STRING }
bool ExtensionDecode(BerReadCursor& in, CERT_EXTENSION& extension, BerDecodeArena& arena) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content) && BerDecodeOidField(content, extension.pszObjId, arena)
      && BerDecodeBoolean(content, extension.fCritical) && BerDecodeOctets(content, extension.Value, arena);
}

bool ExtensionEncode(const CERT_EXTENSION& extension, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeOidField(kTagOid, extension.pszObjId, content)
        && (!extension.fCritical || BerEncodeTrue(kTagBoolean, content))
        && BerEncodeOctets(kTagOctetString, extension.Value, content);
  });
}

bool ExtensionsDecode(BerReadCursor& in, CERT_EXTENSIONS& extensions, BerDecodeArena& arena) {
  return BerReadSequenceOf(in, kTagSequence, extensions.cExtension, extensions.rgExtension, arena,
                           ExtensionDecode);
}

bool ExtensionsEncode(const CERT_EXTENSIONS& extensions, BerWriteCursor& out) {
  if (!extensions.cExtension || !extensions.rgExtension) return true;
  return ExtensionListEncode(extensions.rgExtension, extensions.cExtension, out);
}

bool ExtensionListEncode(PCCERT_EXTENSION extensions, DWORD count, BerWriteCursor& out) {
  return BerEncodeListOf(kTagSequence, extensions, count, out, ExtensionEncode);
}

bool TaggedExtensionListEncode(int number, PCCERT_EXTENSION extensions, DWORD count, BerWriteCursor& out) {
  if (!count) return true;
  return BerEncodeConstructed(Context(number), out, [&](BerWriteCursor& content) {
    return ExtensionListEncode(extensions, count, content);
  });
}

}  // namespace certkern
