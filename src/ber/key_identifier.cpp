#include "ber/key_identifier.h"

#include "ber/general_name.h"

namespace certkern {
namespace {

// [number] primitive or constructed
bool NextIsContext(const BerReadCursor& in, int number) {
  return in.nextIs(Context(number), static_cast<BYTE>(~kConstructed));
}

}  // namespace

// AuthorityKeyIdentifier ::= SEQUENCE { keyIdentifier [0] OPTIONAL, authorityCertIssuer [1] OPTIONAL,
//                                       authorityCertSerialNumber [2] OPTIONAL }, by the numbers of the tags alone
bool AuthorityKeyIdDecode(BerReadCursor& in, CERT_AUTHORITY_KEY_ID_INFO& info, BerDecodeArena& arena) {
  BerReadCursor content;
  if (!BerExpect(in, kTagSequence, content)) return false;
  if (content.nextIs(0, 31) && !BerDecodeOctets(content, info.KeyId, arena)) return false;
  if (content.nextIs(1, 31) && !BerDecodeOctets(content, info.CertIssuer, arena)) return false;
  return !content.nextIs(2, 31) || BerDecodeInteger(content, info.CertSerialNumber, arena);
}

bool AuthorityKeyIdEncode(const CERT_AUTHORITY_KEY_ID_INFO& info, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return (!info.KeyId.cbData || BerEncodeOctets(Context(0), info.KeyId, content))
        && (!info.CertIssuer.cbData || BerEncodeOctets(Context(1), info.CertIssuer, content))
        && (!info.CertSerialNumber.cbData || BerEncodeInteger(Context(2), info.CertSerialNumber, content));
  });
}

bool AuthorityKeyId2Decode(BerReadCursor& in, CERT_AUTHORITY_KEY_ID2_INFO& info, BerDecodeArena& arena) {
  BerReadCursor content;
  if (!BerExpect(in, kTagSequence, content)) return false;
  if (content.empty()) return true;
  if (!NextIsContext(content, 0) && !NextIsContext(content, 1) && !NextIsContext(content, 2)) return false;
  if (NextIsContext(content, 0)) {
    if (!BerDecodeOctets(content, info.KeyId, arena) || !info.KeyId.cbData) return false;
  }
  if (NextIsContext(content, 1)) {
    BYTE tag;
    BerReadCursor names;
    if (!content.readElement(tag, names) || !BerDecodeAltNames(names, info.AuthorityCertIssuer, arena))
      return false;
  }
  // an unknown element behind the known ones ends the record
  return !NextIsContext(content, 2) || BerDecodeInteger(content, info.AuthorityCertSerialNumber, arena);
}

bool AuthorityKeyId2Encode(const CERT_AUTHORITY_KEY_ID2_INFO& info, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return (!info.KeyId.cbData || BerEncodeOctets(Context(0), info.KeyId, content))
        && (!info.AuthorityCertIssuer.cAltEntry
            || BerEncodeAltNames(ContextConstructed(1), info.AuthorityCertIssuer, content))
        && (!info.AuthorityCertSerialNumber.cbData
            || BerEncodeInteger(Context(2), info.AuthorityCertSerialNumber, content));
  });
}

}  // namespace certkern
