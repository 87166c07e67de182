// A handful of types as the schema compiler would write them, by hand: a signed message down to its certificates, and small
// ones for what those do not have.
#ifndef CERTKERN_TESTS_ASN1RT_SAMPLE_TYPES_H
#define CERTKERN_TESTS_ASN1RT_SAMPLE_TYPES_H

#include <span>

#include "asn1rt/control.h"
#include "asn1rt/type_table.h"
#include "asn1rt/values.h"

namespace sample {

using namespace certkern;

struct ASN1T_AlgorithmIdentifier {
  struct {
    unsigned parametersPresent : 1;
  } m;
  ASN1ObjectId algorithm;
  ASN1OpenValue parameters;
};

struct ASN1T_AttributeTypeAndValue {
  ASN1ObjectId type;
  ASN1OpenValue value;
};

struct ASN1T_Name {
  int32_t t;
  enum { t_rdnSequence = 1 };
  union {
    ASN1ListOf<ASN1ListOf<ASN1T_AttributeTypeAndValue>>* rdnSequence;
  } u;
};

struct ASN1T_Time {
  int32_t t;
  enum { t_utcTime = 1, t_generalTime };
  union {
    ASN1Text utcTime;
    ASN1Text generalTime;
  } u;
};

struct ASN1T_Validity {
  ASN1T_Time notBefore;
  ASN1T_Time notAfter;
};

struct ASN1T_SubjectPublicKeyInfo {
  ASN1T_AlgorithmIdentifier algorithm;
  ASN1BitString subjectPublicKey;
};

struct ASN1T_Extension {
  ASN1ObjectId extnID;
  bool critical;
  ASN1OpenValue extnValue;
};

struct ASN1T_TBSCertificate {
  struct {
    unsigned issuerUniqueIDPresent : 1;
    unsigned subjectUniqueIDPresent : 1;
    unsigned extensionsPresent : 1;
  } m;
  int32_t version;
  ASN1BigInteger serialNumber;
  ASN1T_AlgorithmIdentifier signature;
  ASN1T_Name issuer;
  ASN1T_Validity validity;
  ASN1T_Name subject;
  ASN1T_SubjectPublicKeyInfo subjectPublicKeyInfo;
  ASN1BitString issuerUniqueID;
  ASN1BitString subjectUniqueID;
  ASN1ListOf<ASN1T_Extension> extensions;
};

struct ASN1T_Certificate {
  ASN1T_TBSCertificate tbsCertificate;
  ASN1T_AlgorithmIdentifier signatureAlgorithm;
  ASN1BitString signature;
};

struct ASN1T_Attribute {
  ASN1ObjectId type;
  ASN1ListOf<ASN1OpenValue> values;
};

struct ASN1T_IssuerAndSerialNumber {
  ASN1T_Name issuer;
  ASN1BigInteger serialNumber;
};

struct ASN1T_SignerIdentifier {
  int32_t t;
  union {
    ASN1T_IssuerAndSerialNumber* issuerAndSerialNumber;
    ASN1OctetString subjectKeyIdentifier;
  } u;
};

struct ASN1T_SignerInfo {
  struct {
    unsigned signedAttrsPresent : 1;
    unsigned unsignedAttrsPresent : 1;
  } m;
  int32_t version;
  ASN1T_SignerIdentifier sid;
  ASN1T_AlgorithmIdentifier digestAlgorithm;
  ASN1ListOf<ASN1T_Attribute> signedAttrs;
  ASN1T_AlgorithmIdentifier signatureAlgorithm;
  ASN1OctetString signature;
  ASN1ListOf<ASN1T_Attribute> unsignedAttrs;
};

struct ASN1T_EncapsulatedContentInfo {
  struct {
    unsigned eContentPresent : 1;
  } m;
  ASN1ObjectId eContentType;
  ASN1OpenValue eContent;
};

struct ASN1T_CertificateChoices {
  int32_t t;
  union {
    ASN1T_Certificate* certificate;
    ASN1OpenValue other;
  } u;
};

struct ASN1T_SignedData {
  struct {
    unsigned certificatesPresent : 1;
    unsigned crlsPresent : 1;
  } m;
  int32_t version;
  ASN1ListOf<ASN1T_AlgorithmIdentifier> digestAlgorithms;
  ASN1T_EncapsulatedContentInfo encapContentInfo;
  ASN1ListOf<ASN1T_CertificateChoices> certificates;
  ASN1ListOf<ASN1OpenValue> crls;
  ASN1ListOf<ASN1T_SignerInfo> signerInfos;
};

struct ASN1T_ContentInfo {
  ASN1ObjectId contentType;
  ASN1OpenValue content;
};

// Nested ::= SEQUENCE { inner [0] Nested OPTIONAL }
struct ASN1T_Nested {
  struct {
    unsigned innerPresent : 1;
  } m;
  ASN1T_Nested* inner;
};

// Pick ::= CHOICE { flag [1] BOOLEAN, number [2] EXPLICIT INTEGER (0..100), far [1000] OCTET STRING, nothing NULL }
struct ASN1T_Pick {
  int32_t t;
  enum { t_flag = 1, t_number, t_far, t_nothing };
  union {
    bool flag;
    int32_t number;
    ASN1OctetString far;
    uint8_t nothing;
  } u;
};

// Mixed ::= SET { number INTEGER DEFAULT 7, pick Pick, bits [0] BIT STRING { a(0) } OPTIONAL, oid OBJECT IDENTIFIER,
//                 value ANY BY oid, text UTF8String OPTIONAL }: any order, and the selector behind what it selects.
struct ASN1T_Mixed {
  struct {
    unsigned bitsPresent : 1;
    unsigned textPresent : 1;
  } m;
  int32_t number;
  ASN1T_Pick pick;
  ASN1BitString bits;
  ASN1ObjectId oid;
  ASN1OpenValue value;  // [3] EXPLICIT
  ASN1Text text;
};

// Growing ::= SEQUENCE { first INTEGER (0..100), flag BOOLEAN DEFAULT TRUE, ... }
struct ASN1T_Growing {
  int32_t first;
  bool flag;
};

// Wide ::= SEQUENCE OF SEQUENCE { all [0] OCTET STRING OPTIONAL ... }: much memory for few octets
struct ASN1T_WideElement {
  struct {
    unsigned firstPresent : 1;
  } m;
  ASN1OctetString room[64];
};

extern const TypeInfo kInfoAlgorithmIdentifier, kInfoCertificate, kInfoSignedData, kInfoContentInfo,
    kInfoNested, kInfoPick, kInfoMixed, kInfoGrowing, kInfoWide, kInfoAttributes, kInfoExtension, kInfoOctets,
    kInfoBits, kInfoText, kInfoObjectId, kInfoInteger, kInfoInt32, kInfoBoolean;
extern const ObjectSetInfo kContents;
// Sorted by name.
std::span<const TypeInfo* const> Catalogue();

class ASN1C_ContentInfo : public ASN1Control<ASN1T_ContentInfo, kInfoContentInfo> {
  using ASN1Control::ASN1Control;
};
class ASN1C__SetOfAttribute : public ASN1ListControl<ASN1T_Attribute, kInfoAttributes> {
  using ASN1ListControl::ASN1ListControl;
};
class ASN1C_Growing : public ASN1Control<ASN1T_Growing, kInfoGrowing> {
  using ASN1Control::ASN1Control;
};

}  // namespace sample

#endif
