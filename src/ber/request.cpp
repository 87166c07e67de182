#include "ber/algorithm.h"
#include "ber/certificate.h"

namespace certkern {

bool AttributeDecode(BerReadCursor& in, CRYPT_ATTRIBUTE& attribute, BerDecodeArena& arena) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content) && BerDecodeOidField(content, attribute.pszObjId, arena)
      && BerReadSequenceOf(content, kTagSet, attribute.cValue, attribute.rgValue, arena, BerCaptureElement);
}

bool AttributeEncode(const CRYPT_ATTRIBUTE& attribute, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeOidField(kTagOid, attribute.pszObjId, content)
        && BerEncodeListOf(kTagSet, attribute.rgValue, attribute.cValue, content, BerEncodeVerbatim);
  });
}

// CertificationRequestInfo ::= SEQUENCE { version INTEGER, subject Name, subjectPKInfo SubjectPublicKeyInfo,
//                                         attributes [0] IMPLICIT SET OF Attribute }
bool CertRequestInfoDecode(BerReadCursor& in, CERT_REQUEST_INFO& info, BerDecodeArena& arena) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content) && BerDecodeVersion(content, info.dwVersion)
      && BerCaptureElement(content, info.Subject, arena)
      && PublicKeyInfoDecode(content, info.SubjectPublicKeyInfo, arena)
      && BerReadSequenceOf(content, ContextConstructed(0), info.cAttribute, info.rgAttribute, arena,
                           AttributeDecode);
}

bool CertRequestInfoEncode(const CERT_REQUEST_INFO& info, BerWriteCursor& out) {
  if (!IsComplete(info.SubjectPublicKeyInfo)) return false;
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeInteger32(kTagInteger, info.dwVersion, content)
        && BerEncodeVerbatim(info.Subject, content)
        && PublicKeyInfoEncode(info.SubjectPublicKeyInfo, content)
        // without attributes [0] is left out, which peers read as an empty set
        && (!info.cAttribute
            || BerEncodeListOf(Context(0), info.rgAttribute, info.cAttribute, content, AttributeEncode));
  });
}

}  // namespace certkern
