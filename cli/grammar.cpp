// RFC 5280, 4.1 and 5.1; RFC 2986, 4.
#include "grammar.h"

#include <array>

namespace certkern::cli {
namespace {

using enum Content;

constexpr Shape Item(const char* name, BYTE tag, Content content, std::span<const Shape> inner = {}) {
  return {name, tag, content, inner, Presence::Required};
}
constexpr Shape Maybe(const char* name, BYTE tag, Content content, std::span<const Shape> inner = {}) {
  return {name, tag, content, inner, Presence::Optional};
}

constexpr Shape kAlgorithm[] = {
    Item("algorithm identifier", kOidTag, Content::Oid),
    Maybe("algorithm parameters", kAnyTag, Any),
};
constexpr Shape kAttributeTypeAndValue[] = {
    Item("attribute type", kOidTag, Content::Oid),
    Item("attribute value", kAnyTag, Any),
};
constexpr Shape kNameAttribute[] = {
    Item("AttributeTypeAndValue", kSequenceTag, Fields, kAttributeTypeAndValue),
};
constexpr Shape kRelativeName[] = {
    Item("RelativeDistinguishedName", kSetTag, ListOf, kNameAttribute),
};
constexpr Shape kPublicKeyInfo[] = {
    Item("algorithm", kSequenceTag, Fields, kAlgorithm),
    Item("subjectPublicKey", kBitStringTag, Bits),
};
constexpr Shape kValidity[] = {
    Item("notBefore", kTimeTag, Time),
    Item("notAfter", kTimeTag, Time),
};
constexpr Shape kExtensionFields[] = {
    Item("extnID", kOidTag, Content::Oid),
    Maybe("critical", kBooleanTag, Boolean),
    Item("extnValue", kOctetStringTag, Octets),
};
constexpr Shape kExtension[] = {
    Item("Extension", kSequenceTag, Fields, kExtensionFields),
};
constexpr Shape kExtensions[] = {
    Item("Extensions", kSequenceTag, ListOf, kExtension),
};
constexpr Shape kVersion[] = {
    Item("version", kIntegerTag, Integer),
};
constexpr Shape kTbsCertificate[] = {
    Maybe("version", ContextTag(0), Fields, kVersion),
    Item("serialNumber", kIntegerTag, Integer),
    Item("signature", kSequenceTag, Fields, kAlgorithm),
    Item("issuer", kSequenceTag, ListOf, kRelativeName),
    Item("validity", kSequenceTag, Fields, kValidity),
    Item("subject", kSequenceTag, ListOf, kRelativeName),
    Item("subjectPublicKeyInfo", kSequenceTag, Fields, kPublicKeyInfo),
    Maybe("issuerUniqueID", 0x81, Bits),
    Maybe("subjectUniqueID", 0x82, Bits),
    Maybe("extensions", ContextTag(3), Fields, kExtensions),
};
constexpr Shape kRevokedFields[] = {
    Item("userCertificate", kIntegerTag, Integer),
    Item("revocationDate", kTimeTag, Time),
    Maybe("crlEntryExtensions", kSequenceTag, ListOf, kExtension),
};
constexpr Shape kRevoked[] = {
    Item("entry", kSequenceTag, Fields, kRevokedFields),
};
constexpr Shape kTbsCertList[] = {
    Maybe("version", kIntegerTag, Integer),
    Item("signature", kSequenceTag, Fields, kAlgorithm),
    Item("issuer", kSequenceTag, ListOf, kRelativeName),
    Item("thisUpdate", kTimeTag, Time),
    Maybe("nextUpdate", kTimeTag, Time),
    Maybe("revokedCertificates", kSequenceTag, ListOf, kRevoked),
    Maybe("crlExtensions", ContextTag(0), Fields, kExtensions),
};
constexpr Shape kAttributeValue[] = {
    Item("attribute value", kAnyTag, Any),
};
constexpr Shape kAttributeFields[] = {
    Item("attribute type", kOidTag, Content::Oid),
    Item("values", kSetTag, ListOf, kAttributeValue),
};
constexpr Shape kAttribute[] = {
    Item("Attribute", kSequenceTag, Fields, kAttributeFields),
};
constexpr Shape kRequestInfo[] = {
    Item("version", kIntegerTag, Integer),
    Item("subject", kSequenceTag, ListOf, kRelativeName),
    Item("subjectPKInfo", kSequenceTag, Fields, kPublicKeyInfo),
    Maybe("attributes", ContextTag(0), ListOf, kAttribute),
};

// What all signed objects have in common.
constexpr std::array<Shape, 3> Signed(const char* name, std::span<const Shape> fields) {
  return {
      Item(name, kSequenceTag, Fields, fields),
      Item("signatureAlgorithm", kSequenceTag, Fields, kAlgorithm),
      Item("signature", kBitStringTag, Bits),
  };
}
constexpr auto kCertificate = Signed("tbsCertificate", kTbsCertificate);
constexpr auto kCrl = Signed("tbsCertList", kTbsCertList);
constexpr auto kRequest = Signed("certificationRequestInfo", kRequestInfo);

constexpr Shape kObjects[] = {
    Item("certificate", kSequenceTag, Fields, kCertificate),
    Item("CRL", kSequenceTag, Fields, kCrl),
    Item("certificate request", kSequenceTag, Fields, kRequest),
};

constexpr Shape kSigned[] = {
    Item("signed part", kSequenceTag, Any),
    Item("signatureAlgorithm", kSequenceTag, Fields, kAlgorithm),
    Item("signature", kBitStringTag, Bits),
};
constexpr Shape kAnyObject = Item("object", kSequenceTag, Fields, kSigned);

}  // namespace

const Shape& ShapeOf(ObjectKind kind) { return kObjects[static_cast<size_t>(kind)]; }
const Shape& ShapeOfAnyObject() { return kAnyObject; }

}  // namespace certkern::cli
