#include "ber/name.h"

namespace certkern {
namespace {

// AttributeTypeAndValue ::= SEQUENCE { type OBJECT IDENTIFIER, value ANY }
bool AttributeDecode(BerReadCursor& in, NameValueForm form, CERT_RDN_ATTR& attribute, BerDecodeArena& arena) {
  BerReadCursor content;
  if (!BerExpect(in, kTagSequence, content)) return false;
  CERT_NAME_VALUE value{};
  if (!BerDecodeOidField(content, attribute.pszObjId, arena)) return false;
  if (!NameValueDecode(content, form, value, arena)) return false;
  attribute.dwValueType = value.dwValueType;
  attribute.Value = value.Value;
  return true;
}

template <typename ValueEncoder>
bool AttributeEncode(const CERT_RDN_ATTR& attribute, BerWriteCursor& out, const ValueEncoder& encodeValue) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeOidField(kTagOid, attribute.pszObjId, content)
        && encodeValue(CERT_NAME_VALUE{attribute.dwValueType, attribute.Value}, content);
  });
}

bool TypedAttributeEncode(const CERT_RDN_ATTR& attribute, BerWriteCursor& out) {
  return AttributeEncode(attribute, out, AttributeValueEncode);
}

}  // namespace

bool NameDecode(BerReadCursor& in, NameValueForm form, CERT_NAME_INFO& name, BerDecodeArena& arena) {
  const auto attribute = [form](BerReadCursor& reader, CERT_RDN_ATTR& record, BerDecodeArena& pieces) {
    return AttributeDecode(reader, form, record, pieces);
  };
  const auto rdn = [&](BerReadCursor& reader, CERT_RDN& record, BerDecodeArena& pieces) {
    return BerReadSequenceOf(reader, kTagSet, record.cRDNAttr, record.rgRDNAttr, pieces, attribute);
  };
  return BerReadSequenceOf(in, kTagSequence, name.cRDN, name.rgRDN, arena, rdn);
}

bool NameEncode(const CERT_NAME_INFO& name, NameValues values, BerWriteCursor& out) {
  if (!name.cRDN || !name.rgRDN) return true;
  const auto attribute = values == NameValues::Wide ? WideAttributeEncode : TypedAttributeEncode;
  // in the order given: a set is not sorted here
  const auto rdn = [attribute](const CERT_RDN& record, BerWriteCursor& content) {
    return BerEncodeListOf(kTagSet, record.rgRDNAttr, record.cRDNAttr, content, attribute);
  };
  return BerEncodeListOf(kTagSequence, name.rgRDN, name.cRDN, out, rdn);
}

bool WideAttributeEncode(const CERT_RDN_ATTR& attribute, BerWriteCursor& out) {
  return AttributeEncode(attribute, out, [](const CERT_NAME_VALUE& value, BerWriteCursor& content) {
    return WideNameValueEncode(value, OctetStringType::Allowed, content);
  });
}

}  // namespace certkern
