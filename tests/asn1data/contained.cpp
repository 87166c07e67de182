#include "asn1data/contained.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "asn1data/catalogue.h"
#include "asn1data/round_trip.h"
#include "asn1data/visit.h"
#include "support/hex.h"

using namespace certkern::asn1data;

namespace certkern::test {
namespace {

// Parameters of algorithms, attributes and controls that no object of the schema selects.
const struct {
  std::vector<uint32_t> id;
  const TypeInfo* type;
} kSelected[] = {
    {{1, 2, 840, 113549, 1, 1, 7},        &kInfo_RSAES_OAEP_params},
    {{1, 2, 840, 113549, 1, 1, 10},       &kInfo_RSASSA_PSS_params},
    {{1, 2, 840, 113549, 1, 5, 12},       &kInfo_PBKDF2_params    },
    {{1, 2, 840, 113549, 1, 5, 13},       &kInfo_PBES2_params     },
    {{1, 2, 840, 113549, 1, 12, 1, 3},    &kInfo_PbeParams        },
    {{1, 2, 840, 113549, 1, 9, 16, 3, 9}, &kInfo_KeyWrapAlgorithm },
    {{1, 2, 840, 113549, 3, 2},           &kInfo_RC2CBCParameter  },
    {{1, 2, 840, 113549, 3, 7},           &kInfo_CBCParameter     },
    {{2, 16, 840, 1, 101, 3, 4, 1, 2},    &kInfo_AES_IV           },
    {{2, 16, 840, 1, 101, 3, 4, 1, 42},   &kInfo_AES_IV           },
    {{1, 3, 133, 16, 840, 63, 0, 2},      &kInfo_KeyWrapAlgorithm },
    {{1, 3, 132, 1, 11, 1},               &kInfo_KeyWrapAlgorithm },
    {{1, 2, 840, 113533, 7, 66, 13},      &kInfo_PBMParameter     },
    {{1, 2, 840, 113549, 1, 9, 15},       &kInfo_SMIMECapabilities},
    {{1, 2, 840, 113549, 1, 9, 6},        &kInfo_Countersignature },
    {{1, 3, 6, 1, 5, 5, 7, 5, 1, 5},      &kInfo_OldCertId        },
};

// A type or another name for it.
bool Is(const TypeInfo& type, const TypeInfo& wanted) { return type.members.data() == wanted.members.data(); }

class Inspector {
 public:
  Inspector(SetOrder order, Names& seen) : order_(order), seen_(seen) {}

  void whole(const TypeInfo& type, std::span<const BYTE> bytes) {
    SCOPED_TRACE(type.name);
    Decoded decoded(type, bytes);
    if (!decoded) return;
    VisitValues(type, decoded.value(), [&](const TypeInfo& each, void* slot) {
      seen_.insert(each.name);
      look(each, slot);
    });
    EXPECT_EQ(ToHex(decoded.encoded(order_)), ToHex(bytes));
  }

 private:
  template <class T>
  static const T& As(const void* value) {
    return *static_cast<const T*>(value);
  }

  void look(const TypeInfo& type, const void* value) {
    if (Is(type, kInfo_EncapsulatedContentInfo)) {
      const auto& content = As<ASN1T_EncapsulatedContentInfo>(value);
      selected(kObjects_EncapsulatedContentTypes, content.eContentType, content.eContent.bytes());
    } else if (Is(type, kInfo_Extension)) {
      const auto& extension = As<ASN1T_Extension>(value);
      selected(kObjects_SupportedExtensions, extension.extnID, extension.extnValue.bytes());
    } else if (Is(type, kInfo_CertificateChoicesRaw)) {
      const auto& choice = As<ASN1T_CertificateChoicesRaw>(value);
      if (choice.t == ASN1T_CertificateChoicesRaw::t_certRaw)
        whole(kInfo_Certificate, choice.u.certRaw.encoded.bytes());
    } else if (Is(type, kInfo_RevocationChoiceRaw)) {
      const auto& choice = As<ASN1T_RevocationChoiceRaw>(value);
      if (choice.t == ASN1T_RevocationChoiceRaw::t_crlRaw)
        whole(kInfo_CertificateList, choice.u.crlRaw.encoded.bytes());
    } else if (Is(type, kInfo_AlgorithmIdentifier)) {
      const auto& algorithm = As<ASN1T_AlgorithmIdentifier>(value);
      if (algorithm.m.parametersPresent) open(algorithm.algorithm, algorithm.parameters);
    } else if (Is(type, kInfo_AttributeTypeAndValue)) {
      const auto& attribute = As<ASN1T_AttributeTypeAndValue>(value);
      open(attribute.type, attribute.value);
    } else if (Is(type, kInfo_Attribute)) {
      for (const ASN1OpenValue& each : As<ASN1T_Attribute>(value).values)
        open(As<ASN1T_Attribute>(value).type, each);
    } else {
      lookIntoFile(type, value);
    }
  }

  // The layers of a key file, which are octets inside octets.
  void lookIntoFile(const TypeInfo& type, const void* value) {
    if (Is(type, kInfo_PFX)) {
      data(As<ASN1T_PFX>(value).authSafe, kInfo_AuthenticatedSafe);
    } else if (Is(type, kInfo_AuthenticatedSafe)) {
      for (const ASN1T_ContentInfo& safe : As<ASN1T_AuthenticatedSafe>(value)) data(safe, kInfo_SafeContents);
    } else if (Is(type, kInfo_CertBag)) {
      const auto& bag = As<ASN1T_CertBag>(value);
      ASSERT_EQ(bag.certValue.type, &kInfo__x509Certificate_Type);
      whole(kInfo_Certificate, As<ASN1OctetString>(bag.certValue.decoded).bytes());
    }
  }

  void data(const ASN1T_ContentInfo& content, const TypeInfo& type) {
    if (content.content.type == &kInfo__simpleData_Type)
      whole(type, As<ASN1OctetString>(content.content.decoded).bytes());
  }

  void selected(const ObjectSetInfo& objects, const ASN1ObjectId& id, std::span<const BYTE> bytes) {
    const ObjectInfo* const object = FindObject(objects, id);
    if (!object || bytes.empty()) return;
    SCOPED_TRACE(object->name);
    seen_.insert(object->name);
    whole(*object->type, bytes);
  }

  void open(const ASN1ObjectId& id, const ASN1OpenValue& value) {
    if (value.type || value.encoded.numocts == 0 || value.encoded.data[0] == 0x05) return;
    for (const auto& [arcs, type] : kSelected) {
      if (std::ranges::equal(arcs, id.arcs())) whole(*type, value.encoded.bytes());
    }
  }

  SetOrder order_;
  Names& seen_;
};

}  // namespace

void ExpectAllComesBack(const TypeInfo& type, std::span<const BYTE> bytes, SetOrder order, Names& seen) {
  Inspector(order, seen).whole(type, bytes);
}

}  // namespace certkern::test
