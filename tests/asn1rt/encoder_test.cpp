// What the encoder refuses, in what order sets go out, and where the octets go.
#include "asn1rt/encoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "asn1rt/sample_types.h"
#include "platform/limits.h"
#include "support/hex.h"

using namespace certkern;
using namespace sample;

namespace {

std::string Encoded(const TypeInfo& type, const void* value, SetOrder order = SetOrder::Der) {
  const auto context = ASN1ContextPtr::Create();
  context->setSetOrder(order);
  const int length = EncodeValue(*context, type, value, Tagging::Explicit);
  EXPECT_EQ(context->status(), std::min(length, 0));
  EXPECT_EQ(context->output().length(), static_cast<size_t>(std::max(length, 0))) << "half-written";
  return length < 0 ? std::to_string(length) : ToHex(context->output().bytes());
}

ASN1OctetString Octets(const std::vector<BYTE>& bytes) {
  return {static_cast<uint32_t>(bytes.size()), bytes.data()};
}

}  // namespace

TEST(Asn1Encoder, RefusesWhatCannotBe) {
  const ASN1OctetString nowhere{3, nullptr}, nothing{};
  const ASN1BitString noBits{9, nullptr}, allBits{UINT32_MAX, nullptr};
  const uint32_t arcs[kMaxOidArcs + 1] = {1, 2}, third[] = {3, 1}, wide[] = {1, 40};
  const ASN1ObjectId one{1, arcs}, tooMany{kMaxOidArcs + 1, arcs}, noArcs{2, nullptr}, badFirst{2, third},
      badSecond{2, wide};
  const ASN1ListOf<ASN1T_Attribute> noNodes{
      {2, nullptr, nullptr}
  };
  ASN1ListNode empty{}, half{};
  const ASN1ListOf<ASN1T_Attribute> noElement{
      {1, &empty, &empty}
  },
      short2{{2, &half, &half}};
  ASN1T_Attribute attribute{};
  half.data = &attribute;
  attribute.type = AsField(*kContents.objects[0].id);
  const ASN1T_Pick none{}, far{.t = 5, .u = {}}, negative{.t = -1, .u = {}};
  const ASN1T_Nested noInner{.m = {1}, .inner = nullptr};
  ASN1T_Nested ring{.m = {1}, .inner = nullptr};
  ring.inner = &ring;
  const ASN1T_ContentInfo noContent{AsField(*kContents.objects[0].id), {}};
  const struct {
    const char* name;
    const TypeInfo* type;
    const void* value;
    int status;
  } kCases[] = {
      {"octets without data",                  &kInfoOctets,      &nowhere,   ASN1_E_BAD_VALUE     },
      {"text without data",                    &kInfoText,        &nowhere,   ASN1_E_BAD_VALUE     },
      {"number without data",                  &kInfoInteger,     &nowhere,   ASN1_E_BAD_VALUE     },
      {"number without octets",                &kInfoInteger,     &nothing,   ASN1_E_BAD_VALUE     },
      {"bits without data",                    &kInfoBits,        &noBits,    ASN1_E_BAD_VALUE     },
      {"the most bits without data",           &kInfoBits,        &allBits,   ASN1_E_BAD_VALUE     },
      {"one arc",                              &kInfoObjectId,    &one,       ASN1_E_BAD_VALUE     },
      {"too many arcs",                        &kInfoObjectId,    &tooMany,   ASN1_E_BAD_VALUE     },
      {"arcs nowhere",                         &kInfoObjectId,    &noArcs,    ASN1_E_BAD_VALUE     },
      {"first arc 3",                          &kInfoObjectId,    &badFirst,  ASN1_E_BAD_VALUE     },
      {"second arc 40",                        &kInfoObjectId,    &badSecond, ASN1_E_BAD_VALUE     },
      {"a list that counts what is not there", &kInfoAttributes,  &noNodes,   ASN1_E_BAD_VALUE     },
      {"a node without an element",            &kInfoAttributes,  &noElement, ASN1_E_BAD_VALUE     },
      {"a list that counts one more",          &kInfoAttributes,  &short2,    ASN1_E_BAD_VALUE     },
      {"no alternative",                       &kInfoPick,        &none,      ASN1_E_UNKNOWN_CHOICE},
      {"an alternative past the last",         &kInfoPick,        &far,       ASN1_E_UNKNOWN_CHOICE},
      {"a negative alternative",               &kInfoPick,        &negative,  ASN1_E_UNKNOWN_CHOICE},
      {"a null pointer with its bit set",      &kInfoNested,      &noInner,   ASN1_E_MISSING       },
      {"a value inside itself",                &kInfoNested,      &ring,      ASN1_E_TOO_DEEP      },
      {"an open value without content",        &kInfoContentInfo, &noContent, ASN1_E_MISSING       },
      {"no value",                             &kInfoPick,        nullptr,    ASN1_E_BAD_VALUE     },
  };
  for (const auto& [name, type, value, status] : kCases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(Encoded(*type, value), std::to_string(status));
  }
}

TEST(Asn1Encoder, NumbersAndLengthsAreMinimal) {
  const struct {
    int32_t value;
    const char* der;
  } kNumbers[] = {
      {0,         "020100"      },
      {127,       "02017F"      },
      {128,       "02020080"    },
      {-128,      "020180"      },
      {-129,      "0202FF7F"    },
      {65536,     "0203010000"  },
      {INT32_MAX, "02047FFFFFFF"},
      {INT32_MIN, "020480000000"},
  };
  for (const auto& [value, der] : kNumbers) EXPECT_EQ(Encoded(kInfoInt32, &value), der);
  const struct {
    size_t size;
    const char* header;
  } kSizes[] = {
      {127,   "047F"      },
      {128,   "048180"    },
      {255,   "0481FF"    },
      {256,   "04820100"  },
      {65536, "0483010000"}
  };
  for (const auto& [size, header] : kSizes) {
    const std::vector<BYTE> data(size, 0xAB);
    const ASN1OctetString value = Octets(data);
    EXPECT_EQ(Encoded(kInfoOctets, &value), header + ToHex(data));
  }
}

// X.690, 11.6: shorter ones as if continued by zeros.
TEST(Asn1Encoder, SetOfIsSortedUnlessAskedFor) {
  const auto context = ASN1ContextPtr::Create();
  const std::vector<BYTE> values[] = {FromHex("0402FF00"), FromHex("0C0141"), FromHex("0401FF"),
                                      FromHex("04020001"), FromHex("020107"), FromHex("0401FF")};
  ASN1ListOf<ASN1OpenValue> list{};
  for (const auto& value : values) AppendElement(*context, list, {Octets(value), nullptr, nullptr});
  ASN1T_Attribute attribute{AsField(*kContents.objects[0].id), list};
  ASN1ListOf<ASN1T_Attribute> attributes{};
  AppendElement(*context, attributes, attribute);
  const std::string head = "311D301B0603551D133114";
  EXPECT_EQ(Encoded(kInfoAttributes, &attributes), head + "020107" "0401FF" "0401FF" "04020001" "0402FF00" "0C0141");
  EXPECT_EQ(Encoded(kInfoAttributes, &attributes, SetOrder::AsGiven),
            head + "0402FF00" "0C0141" "0401FF" "04020001" "020107" "0401FF");
}

TEST(Asn1Encoder, OpenValuesGoOutFromWhatTheyWereGiven) {
  const std::vector<BYTE> content = FromHex("414243");
  ASN1OctetString octets = Octets(content);
  ASN1T_ContentInfo info{
      AsField(*kContents.objects[1].id), {{}, &kInfoOctets, &octets}
  };
  EXPECT_EQ(Encoded(kInfoContentInfo, &info), "301206092A864886F70D010701A0050403414243");
  const ASN1T_Extension extension{
      AsField(*kContents.objects[0].id), true, {{}, &kInfoOctets, &octets}
  };
  EXPECT_EQ(Encoded(kInfoExtension, &extension), "300F0603551D130101FF04050403414243");
  const ASN1T_Extension nothing{AsField(*kContents.objects[0].id), false, {}};
  EXPECT_EQ(Encoded(kInfoExtension, &nothing), "30070603551D130400");
}

TEST(Asn1Encoder, FillsRoomsFromTheEnd) {
  const std::vector<BYTE> content(300, 0x5A);
  const ASN1OctetString value = Octets(content);
  const std::string expected = "0482012C" + ToHex(content);
  for (const size_t size : {304, 303, 301, 300, 299, 1}) {
    std::vector<BYTE> room(size, 0xEE);
    ASN1BEREncodeBuffer buffer(room);
    const int length = EncodeValue(buffer.context(), kInfoOctets, &value, Tagging::Explicit);
    EXPECT_EQ(length, size >= 304 ? 304 : int{ASN1_E_BUFFER_FULL}) << size;
    EXPECT_EQ(buffer.GetMsgPtr(), size >= 304 ? room.data() : nullptr);
  }
  // many values in front of each other: the room grows and keeps what is there
  const auto context = ASN1ContextPtr::Create();
  std::string all;
  for (int i = 0; i < 100; ++i, all += expected) {
    ASSERT_EQ(EncodeValue(*context, kInfoOctets, &value, Tagging::Explicit), 304);
    ASSERT_EQ(EncodeValue(*context, kInfoOctets, &value, Tagging::Implicit), 300);
    all += ToHex(content);
  }
  std::string written = ToHex(context->output().bytes());
  EXPECT_EQ(written.size(), all.size());
  EXPECT_EQ(written.substr(0, 1208), ToHex(content) + expected);
  EXPECT_EQ(written.substr(written.size() - 1208), ToHex(content) + expected);
}
