#include "asn1rt/sample_types.h"

#include <cstddef>

namespace sample {
namespace {

constexpr Asn1Tag Context(uint32_t number) { return MakeTag(TagClass::Context, number); }
// Tags that members have in front.
template <Asn1Tag... kTags>
constexpr Asn1Tag kTagsOf[] = {kTags...};
using Tags = std::span<const Asn1Tag>;
constexpr Tags kBoolTag(kTagsOf<1>), kIntTag(kTagsOf<2>), kBitTag(kTagsOf<3>), kOctetTag(kTagsOf<4>),
    kNullTag(kTagsOf<5>), kOidTag(kTagsOf<6>), kUtf8Tag(kTagsOf<12>), kSeqTag(kTagsOf<16>),
    kSetTag(kTagsOf<17>), kUtcTag(kTagsOf<23>), kGenTag(kTagsOf<24>), kTag0(kTagsOf<Context(0)>),
    kTag1(kTagsOf<Context(1)>), kTag2(kTagsOf<Context(2)>), kTag3(kTagsOf<Context(3)>),
    kTag1000(kTagsOf<Context(1000)>), kTag0Int(kTagsOf<Context(0), 2>), kTag2Int(kTagsOf<Context(2), 2>),
    kTag0Octets(kTagsOf<Context(0), 4>), kTag3Seq(kTagsOf<Context(3), 16>);

// Rows as nested calls: what is special about a member stands around it.
#define MEMBER(Owner, field, info, tagList) Member(#field, info, tagList, offsetof(ASN1T_##Owner, field))
constexpr MemberInfo Member(const char* name, const TypeInfo& type, Tags tags, size_t offset) {
  return {.name = name, .type = &type, .tags = tags, .offset = static_cast<uint32_t>(offset)};
}
constexpr MemberInfo Optional(MemberInfo member, int16_t presentBit) {
  member.presentBit = presentBit;
  member.optional = true;
  return member;
}
constexpr MemberInfo Default(MemberInfo member, int32_t value) {
  member.optional = member.hasDefault = true;
  member.defaultValue = value;
  return member;
}
constexpr MemberInfo Pointer(MemberInfo member) {
  member.pointer = true;
  return member;
}
constexpr MemberInfo Known(MemberInfo member, const ObjectSetInfo& objects, int16_t selector) {
  member.objects = &objects;
  member.selector = selector;
  return member;
}
constexpr MemberInfo Contained(MemberInfo member) {
  member.contained = true;
  return member;
}
constexpr MemberInfo Element(const TypeInfo& type, Tags tags) { return Member("element", type, tags, 0); }

#define STRUCT(Owner, typeKind, tagList, memberList) \
  Type(#Owner, TypeKind::typeKind, tagList, sizeof(ASN1T_##Owner), memberList)
#define LIST(listName, typeKind, tagList, memberList) \
  Type(listName, TypeKind::typeKind, tagList, sizeof(ASN1List), memberList)
constexpr TypeInfo Type(const char* name, TypeKind kind, Tags tags, size_t size,
                        std::span<const MemberInfo> members = {}) {
  return {.name = name, .kind = kind, .tags = tags, .size = static_cast<uint32_t>(size), .members = members};
}
constexpr TypeInfo Extensible(TypeInfo type) {
  type.extensible = true;
  return type;
}

constexpr TypeInfo kNull = Type("Null", TypeKind::Null, kNullTag, 1);
constexpr TypeInfo kUtc = Type("UTCTime", TypeKind::Text, kUtcTag, sizeof(ASN1Text));
constexpr TypeInfo kGen = Type("GeneralizedTime", TypeKind::Text, kGenTag, sizeof(ASN1Text));
constexpr TypeInfo kAny = Type("Any", TypeKind::Open, Tags(), sizeof(ASN1OpenValue));

}  // namespace

constexpr TypeInfo kInfoBoolean = Type("Boolean", TypeKind::Boolean, kBoolTag, 1);
constexpr TypeInfo kInfoInt32 = Type("Int32", TypeKind::Int32, kIntTag, 4);
constexpr TypeInfo kInfoInteger = Type("Integer", TypeKind::BigInteger, kIntTag, sizeof(ASN1BigInteger));
constexpr TypeInfo kInfoBits = Type("Bits", TypeKind::BitString, kBitTag, sizeof(ASN1BitString));
constexpr TypeInfo kInfoOctets = Type("Octets", TypeKind::OctetString, kOctetTag, sizeof(ASN1OctetString));
constexpr TypeInfo kInfoText = Type("Text", TypeKind::Text, kUtf8Tag, sizeof(ASN1Text));
constexpr TypeInfo kInfoObjectId = Type("ObjectId", TypeKind::ObjectId, kOidTag, sizeof(ASN1ObjectId));

// --- information objects ---

namespace {

constexpr ASN1OBJID kIdSha256{
    9, {2, 16, 840, 1, 101, 3, 4, 2, 1}
};
constexpr ASN1OBJID kIdBasicConstraints{
    4, {2, 5, 29, 19}
};
constexpr ASN1OBJID kIdSubjectKeyId{
    4, {2, 5, 29, 14}
};
constexpr ASN1OBJID kIdMessageDigest{
    7, {1, 2, 840, 113549, 1, 9, 4}
};
constexpr ASN1OBJID kIdContentType{
    7, {1, 2, 840, 113549, 1, 9, 3}
};
constexpr ASN1OBJID kIdData{
    7, {1, 2, 840, 113549, 1, 7, 1}
};
constexpr ASN1OBJID kIdSignedData{
    7, {1, 2, 840, 113549, 1, 7, 2}
};

constexpr ObjectInfo kAlgorithmObjects[] = {
    {"sha256", &kIdSha256, &kNull},
};
constexpr ObjectSetInfo kAlgorithms{"Algorithms", "ALGORITHM_ID", kAlgorithmObjects};
constexpr ObjectInfo kExtensionObjects[] = {
    {"subjectKeyIdentifier", &kIdSubjectKeyId, &kInfoOctets},
};
constexpr ObjectSetInfo kExtensions{"Extensions", "EXTENSION", kExtensionObjects};
constexpr ObjectInfo kAttributeObjects[] = {
    {"contentType",   &kIdContentType,   &kInfoObjectId},
    {"messageDigest", &kIdMessageDigest, &kInfoOctets  },
};
constexpr ObjectSetInfo kAttributes{"Attributes", "ATTRIBUTE", kAttributeObjects};
constexpr ObjectInfo kContentObjects[] = {
    {"basicConstraints", &kIdBasicConstraints, nullptr         }, // an object without a type
    {"data",             &kIdData,             &kInfoOctets    },
    {"signedData",       &kIdSignedData,       &kInfoSignedData},
};

// --- types of a signed message ---

constexpr MemberInfo kAlgorithmMembers[] = {
    MEMBER(AlgorithmIdentifier, algorithm, kInfoObjectId, kOidTag),
    Optional(Known(MEMBER(AlgorithmIdentifier, parameters, kAny, Tags()), kAlgorithms, 0), 0),
};
}  // namespace
constexpr ObjectSetInfo kContents{"Contents", "CONTENT_TYPE", kContentObjects};
constexpr TypeInfo kInfoAlgorithmIdentifier =
    STRUCT(AlgorithmIdentifier, Sequence, kSeqTag, kAlgorithmMembers);

namespace {
constexpr MemberInfo kAtavMembers[] = {
    MEMBER(AttributeTypeAndValue, type, kInfoObjectId, kOidTag),
    MEMBER(AttributeTypeAndValue, value, kAny, Tags()),
};
constexpr TypeInfo kAtav = STRUCT(AttributeTypeAndValue, Sequence, kSeqTag, kAtavMembers);
constexpr MemberInfo kRdnElement[] = {Element(kAtav, kSeqTag)};
constexpr TypeInfo kRdn = LIST("_SetOfAttributeTypeAndValue", SetOf, kSetTag, kRdnElement);
constexpr MemberInfo kRdnsElement[] = {Element(kRdn, kSetTag)};
constexpr TypeInfo kRdns = LIST("_SeqOfRelativeDistinguishedName", SequenceOf, kSeqTag, kRdnsElement);
constexpr MemberInfo kNameMembers[] = {Pointer(MEMBER(Name, u.rdnSequence, kRdns, kSeqTag))};
constexpr TypeInfo kName = STRUCT(Name, Choice, Tags(), kNameMembers);

constexpr MemberInfo kTimeMembers[] = {
    MEMBER(Time, u.utcTime, kUtc, kUtcTag),
    MEMBER(Time, u.generalTime, kGen, kGenTag),
};
constexpr TypeInfo kTime = STRUCT(Time, Choice, Tags(), kTimeMembers);
constexpr MemberInfo kValidityMembers[] = {
    MEMBER(Validity, notBefore, kTime, Tags()),
    MEMBER(Validity, notAfter, kTime, Tags()),
};
constexpr TypeInfo kValidity = STRUCT(Validity, Sequence, kSeqTag, kValidityMembers);
constexpr MemberInfo kKeyMembers[] = {
    MEMBER(SubjectPublicKeyInfo, algorithm, kInfoAlgorithmIdentifier, kSeqTag),
    MEMBER(SubjectPublicKeyInfo, subjectPublicKey, kInfoBits, kBitTag),
};
constexpr TypeInfo kKey = STRUCT(SubjectPublicKeyInfo, Sequence, kSeqTag, kKeyMembers);

constexpr MemberInfo kExtensionMembers[] = {
    MEMBER(Extension, extnID, kInfoObjectId, kOidTag),
    Default(MEMBER(Extension, critical, kInfoBoolean, kBoolTag), 0),
    Known(Contained(MEMBER(Extension, extnValue, kAny, kOctetTag)), kExtensions, 0),
};
}  // namespace
constexpr TypeInfo kInfoExtension = STRUCT(Extension, Sequence, kSeqTag, kExtensionMembers);

namespace {
constexpr MemberInfo kExtensionElement[] = {Element(kInfoExtension, kSeqTag)};
constexpr TypeInfo kExtensionList = LIST("_SeqOfExtension", SequenceOf, kSeqTag, kExtensionElement);
constexpr MemberInfo kTbsMembers[] = {
    Default(MEMBER(TBSCertificate, version, kInfoInt32, kTag0Int), 0),
    MEMBER(TBSCertificate, serialNumber, kInfoInteger, kIntTag),
    MEMBER(TBSCertificate, signature, kInfoAlgorithmIdentifier, kSeqTag),
    MEMBER(TBSCertificate, issuer, kName, Tags()),
    MEMBER(TBSCertificate, validity, kValidity, kSeqTag),
    MEMBER(TBSCertificate, subject, kName, Tags()),
    MEMBER(TBSCertificate, subjectPublicKeyInfo, kKey, kSeqTag),
    Optional(MEMBER(TBSCertificate, issuerUniqueID, kInfoBits, kTag1), 0),
    Optional(MEMBER(TBSCertificate, subjectUniqueID, kInfoBits, kTag2), 1),
    Optional(MEMBER(TBSCertificate, extensions, kExtensionList, kTag3Seq), 2),
};
constexpr TypeInfo kTbs = STRUCT(TBSCertificate, Sequence, kSeqTag, kTbsMembers);
constexpr MemberInfo kCertificateMembers[] = {
    MEMBER(Certificate, tbsCertificate, kTbs, kSeqTag),
    MEMBER(Certificate, signatureAlgorithm, kInfoAlgorithmIdentifier, kSeqTag),
    MEMBER(Certificate, signature, kInfoBits, kBitTag),
};
}  // namespace
constexpr TypeInfo kInfoCertificate = STRUCT(Certificate, Sequence, kSeqTag, kCertificateMembers);

namespace {
constexpr MemberInfo kAnyElement[] = {Element(kAny, Tags())};
constexpr TypeInfo kAnySet = LIST("_SetOfAny", SetOf, kSetTag, kAnyElement);
constexpr MemberInfo kAttributeMembers[] = {
    MEMBER(Attribute, type, kInfoObjectId, kOidTag),
    Known(MEMBER(Attribute, values, kAnySet, kSetTag), kAttributes, 0),
};
constexpr TypeInfo kAttribute = STRUCT(Attribute, Sequence, kSeqTag, kAttributeMembers);
constexpr MemberInfo kAttributeElement[] = {Element(kAttribute, kSeqTag)};
}  // namespace
constexpr TypeInfo kInfoAttributes = LIST("_SetOfAttribute", SetOf, kSetTag, kAttributeElement);

namespace {
constexpr MemberInfo kIssuerMembers[] = {
    MEMBER(IssuerAndSerialNumber, issuer, kName, Tags()),
    MEMBER(IssuerAndSerialNumber, serialNumber, kInfoInteger, kIntTag),
};
constexpr TypeInfo kIssuer = STRUCT(IssuerAndSerialNumber, Sequence, kSeqTag, kIssuerMembers);
constexpr MemberInfo kSidMembers[] = {
    Pointer(MEMBER(SignerIdentifier, u.issuerAndSerialNumber, kIssuer, kSeqTag)),
    MEMBER(SignerIdentifier, u.subjectKeyIdentifier, kInfoOctets, kTag0),
};
constexpr TypeInfo kSid = STRUCT(SignerIdentifier, Choice, Tags(), kSidMembers);
constexpr MemberInfo kSignerMembers[] = {
    MEMBER(SignerInfo, version, kInfoInt32, kIntTag),
    MEMBER(SignerInfo, sid, kSid, Tags()),
    MEMBER(SignerInfo, digestAlgorithm, kInfoAlgorithmIdentifier, kSeqTag),
    Optional(MEMBER(SignerInfo, signedAttrs, kInfoAttributes, kTag0), 0),
    MEMBER(SignerInfo, signatureAlgorithm, kInfoAlgorithmIdentifier, kSeqTag),
    MEMBER(SignerInfo, signature, kInfoOctets, kOctetTag),
    Optional(MEMBER(SignerInfo, unsignedAttrs, kInfoAttributes, kTag1), 1),
};
constexpr TypeInfo kSigner = STRUCT(SignerInfo, Sequence, kSeqTag, kSignerMembers);
constexpr MemberInfo kEncapMembers[] = {
    MEMBER(EncapsulatedContentInfo, eContentType, kInfoObjectId, kOidTag),
    Optional(Contained(MEMBER(EncapsulatedContentInfo, eContent, kAny, kTag0Octets)), 0),
};
constexpr TypeInfo kEncap = STRUCT(EncapsulatedContentInfo, Sequence, kSeqTag, kEncapMembers);
constexpr MemberInfo kChoicesMembers[] = {
    Pointer(MEMBER(CertificateChoices, u.certificate, kInfoCertificate, kSeqTag)),
    MEMBER(CertificateChoices, u.other, kAny, Tags()),
};
constexpr TypeInfo kChoices = STRUCT(CertificateChoices, Choice, Tags(), kChoicesMembers);

constexpr MemberInfo kAlgorithmElement[] = {Element(kInfoAlgorithmIdentifier, kSeqTag)};
constexpr TypeInfo kAlgorithmSet = LIST("_SetOfAlgorithmIdentifier", SetOf, kSetTag, kAlgorithmElement);
constexpr MemberInfo kChoicesElement[] = {Element(kChoices, Tags())};
constexpr TypeInfo kChoicesSet = LIST("_SetOfCertificateChoices", SetOf, kSetTag, kChoicesElement);
constexpr MemberInfo kSignerElement[] = {Element(kSigner, kSeqTag)};
constexpr TypeInfo kSignerSet = LIST("_SetOfSignerInfo", SetOf, kSetTag, kSignerElement);
constexpr MemberInfo kSignedMembers[] = {
    MEMBER(SignedData, version, kInfoInt32, kIntTag),
    MEMBER(SignedData, digestAlgorithms, kAlgorithmSet, kSetTag),
    MEMBER(SignedData, encapContentInfo, kEncap, kSeqTag),
    Optional(MEMBER(SignedData, certificates, kChoicesSet, kTag0), 0),
    Optional(MEMBER(SignedData, crls, kAnySet, kTag1), 1),
    MEMBER(SignedData, signerInfos, kSignerSet, kSetTag),
};
constexpr MemberInfo kContentMembers[] = {
    MEMBER(ContentInfo, contentType, kInfoObjectId, kOidTag),
    Known(MEMBER(ContentInfo, content, kAny, kTag0), kContents, 0),
};

// --- small types ---

constexpr MemberInfo kNestedMembers[] = {
    Optional(Pointer(MEMBER(Nested, inner, kInfoNested, kTag0)), 0),
};
constexpr MemberInfo kPickMembers[] = {
    MEMBER(Pick, u.flag, kInfoBoolean, kTag1),
    MEMBER(Pick, u.number, kInfoInt32, kTag2Int),
    MEMBER(Pick, u.far, kInfoOctets, kTag1000),
    MEMBER(Pick, u.nothing, kNull, kNullTag),
};
constexpr MemberInfo kMixedMembers[] = {
    Default(MEMBER(Mixed, number, kInfoInt32, kIntTag), 7),
    MEMBER(Mixed, pick, kInfoPick, Tags()),
    Optional(MEMBER(Mixed, bits, kInfoBits, kTag0), 0),
    MEMBER(Mixed, oid, kInfoObjectId, kOidTag),
    Known(MEMBER(Mixed, value, kAny, kTag3), kAttributes, 3),
    Optional(MEMBER(Mixed, text, kInfoText, kUtf8Tag), 1),
};
constexpr MemberInfo kGrowingMembers[] = {
    MEMBER(Growing, first, kInfoInt32, kIntTag),
    Default(MEMBER(Growing, flag, kInfoBoolean, kBoolTag), 1),
};
constexpr MemberInfo kWideMembers[] = {
    Optional(MEMBER(WideElement, room, kInfoOctets, kTag0), 0),
};
constexpr TypeInfo kWideElement = STRUCT(WideElement, Sequence, kSeqTag, kWideMembers);
constexpr MemberInfo kWideElementMember[] = {Element(kWideElement, kSeqTag)};

}  // namespace

constexpr TypeInfo kInfoSignedData = STRUCT(SignedData, Sequence, kSeqTag, kSignedMembers);
constexpr TypeInfo kInfoContentInfo = STRUCT(ContentInfo, Sequence, kSeqTag, kContentMembers);
constexpr TypeInfo kInfoNested = STRUCT(Nested, Sequence, kSeqTag, kNestedMembers);
constexpr TypeInfo kInfoPick = STRUCT(Pick, Choice, Tags(), kPickMembers);
constexpr TypeInfo kInfoMixed = STRUCT(Mixed, Set, kSetTag, kMixedMembers);
constexpr TypeInfo kInfoGrowing = Extensible(STRUCT(Growing, Sequence, kSeqTag, kGrowingMembers));
constexpr TypeInfo kInfoWide = LIST("Wide", SequenceOf, kSeqTag, kWideElementMember);

namespace {
constexpr const TypeInfo* kCatalogue[] = {
    &kInfoAlgorithmIdentifier,
    &kInfoBits,
    &kInfoBoolean,
    &kInfoCertificate,
    &kInfoContentInfo,
    &kInfoExtension,
    &kInfoGrowing,
    &kInfoInt32,
    &kInfoInteger,
    &kInfoMixed,
    &kInfoNested,
    &kInfoObjectId,
    &kInfoOctets,
    &kInfoPick,
    &kInfoSignedData,
    &kInfoText,
    &kInfoWide,
    &kInfoAttributes,
};
}  // namespace

std::span<const TypeInfo* const> Catalogue() { return kCatalogue; }

}  // namespace sample
