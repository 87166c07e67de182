// What the decoder takes, what it refuses, and what it may spend on either.
#include "asn1rt/decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "asn1rt/encoder.h"
#include "asn1rt/sample_types.h"
#include "platform/limits.h"
#include "support/hex.h"

using namespace certkern;
using namespace sample;

namespace {

using Bytes = std::vector<BYTE>;

Bytes ReadPublished(const std::string& name) {
  std::ifstream file(CERTKERN_SOURCE_DIR "/tests/data/published/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Decodes from a copy of exactly the input's size and encodes what came out: the DER, or the status as text.
struct Outcome {
  int status;
  size_t offset;
  Bytes der;
};
Outcome Recode(const TypeInfo& type, const Bytes& input, SetOrder order = SetOrder::Der) {
  const auto exact = std::make_unique<BYTE[]>(input.size());
  std::ranges::copy(input, exact.get());
  const auto context = ASN1ContextPtr::Create();
  context->setInput({exact.get(), input.size()});
  context->setSetOrder(order);
  void* const value = context->allocate(type.size);
  const int status = DecodeValue(*context, type, value, Tagging::Explicit, 0);
  if (status < 0) {
    EXPECT_EQ(context->status(), status);
    return {status, context->errorOffset(), {}};
  }
  const size_t position = context->position();
  const int length = EncodeValue(*context, type, value, Tagging::Explicit);
  EXPECT_EQ(length, static_cast<int>(context->output().length()));
  const auto der = context->output().bytes();
  return {
      ASN1_OK, position, {der.begin(), der.end()}
  };
}

std::string Repeat(std::string_view text, size_t count) {
  std::string repeated;
  while (count--) repeated += text;
  return repeated;
}

}  // namespace

struct FormCase {
  const char* name;
  const TypeInfo* type;
  const char* ber;
  const char* der;  // null: refused, with
  int status = ASN1_OK;
};
const FormCase kForms[] = {
  // headers
    {"a length in more octets than needed",                                                              &kInfoOctets,                              "04 84 00 00 00 02 AB CD","04 02 AB CD"},
    {"more leading zeros than a size has",                                                               &kInfoOctets,                              "04 89 000000000000000001 AB","04 01 AB"   },
    {"a length that overflows 64 bits",                                                                  &kInfoOctets,                              "04 89 010000000000000001 AB",nullptr,
     ASN1_E_END_OF_INPUT},
    {"a length of four gigabytes",                                                                                                  &kInfoOctets,                                                                                                                "04 84 FFFFFFFF AB",nullptr,ASN1_E_END_OF_INPUT},
    {"the reserved length",                                                                               &kInfoOctets,                                                                                                                        "04 FF",nullptr,                                                                                                                                          ASN1_E_BAD_LENGTH},
    {"indefinite and primitive",                                                                                           &kInfoOctets,                                                                                                                   "04 80 00 00",                nullptr,ASN1_E_BAD_LENGTH},
    {"a long tag",                                                                                     &kInfoPick,     "9F 87 68 01 AA","9F 87 68 01 AA"},
    {"a long tag with a leading zero",    &kInfoPick,                         "9F 80 87 68 01 AA",                                     nullptr,                                                                                                       ASN1_E_BAD_VALUE},
    {"a long tag over 30 bits",                                                                                     &kInfoPick,                                                                                   "9F 84 80 80 80 00 01 AA",nullptr,ASN1_E_BAD_VALUE},
    {"a small number as a long tag",                                                                          &kInfoPick,                     "9F 01 01 FF","81 01 FF"},
    {"nothing",                                                                                                  &kInfoOctets,                                                                                                              "",nullptr,ASN1_E_END_OF_INPUT},
    {"end of contents as a value",                                                                                                  &kInfoOctets,                                                                                                                                   "00 00",nullptr,ASN1_E_BAD_VALUE},
 // strings in segments
    {"segments",                                                                               &kInfoOctets,                                                                                                                        "24 80 04 02 0102 04 01 03 00 00","04 03 010203"},
    {"segments in segments",                                                                                           &kInfoOctets,                                                                                                                    "24 0B 24 80 04 01 01 24 00 00 00 04 00",                                                                                               "04 01 01"                                                                                                                                                                                                                                   },
    {"no segments",                                                                 &kInfoOctets,"24 80 00 00","04 00"},
    {"a segment of another type",                                                          &kInfoOctets,"24 03 0C 01 41",nullptr,ASN1_E_WRONG_TAG},
    {"segments without an end",                                                                                     &kInfoOctets,                                                                                                                                                   "24 80 04 01 01",                                                                                               nullptr,                                                                                                                                                                                                        ASN1_E_END_OF_INPUT},
    {"bits in segments",                                                                                  &kInfoBits,                                                                                                                                               "23 80 03 03 00 0A3B 03 05 04 5F291CD0 00 00",                                                                                                                                                                                                                                                        "03 07 04 0A3B5F291CD0"                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                           },
    {"bits that end inside an octet, not the last",  &kInfoBits,"23 08 03 02 04 F0 03 02 00 FF",nullptr,
     ASN1_E_BAD_VALUE},
    {"text in octets",                                                                                 &kInfoText,                               "2C 09 04 03 4A6F6E 04 02 6573","0C 05 4A6F6E6573"},
    {"text in text",                                                      &kInfoText,                                                                                    "2C 80 0C 01 4A 00 00", "0C 01 4A"                                                                                                                                                                                                                                                                                                                                                                                                               },
 // primitives
    {"any octet is true",                                                                                                  &kInfoBoolean,                                                                                                                            "01 01 2A","01 01 FF"},
    {"a boolean of two octets",                                                                                                  &kInfoBoolean,                                                                                                                              "01 02 FFFF",nullptr,                                                                                                                                                                                                                                                                                                                                                                                                 ASN1_E_BAD_LENGTH},
    {"a constructed boolean",                                                                                                  &kInfoBoolean,                                                                                                                         "21 03 01 01 FF",nullptr,ASN1_E_WRONG_TAG},
    {"the lowest number of 32 bits",                                                                                                  &kInfoInt32,                                                                                                                   "02 04 80000000","02 04 80000000"},
    {"sign octets that say nothing",                                                                                 &kInfoInt32,                                                                                                                          "02 07 FFFFFFFFFFFF80","02 01 80"},
    {"a number of 33 bits",                                                                                           &kInfoInt32,                                                                                                                    "02 05 0080000000",                                                                                                          nullptr,                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                   ASN1_E_BAD_VALUE},
    {"a number without octets",                                                                                  &kInfoInteger,"02 00",nullptr,                                                                              ASN1_E_BAD_LENGTH},
    {"bits without the first octet",                                                                            &kInfoBits,"03 00",nullptr,                                                                                                                                                                                                                                                                                                                                                                                                                                                  ASN1_E_BAD_LENGTH},
    {"eight unused bits",                                                                                &kInfoBits,"03 02 08 00",nullptr,ASN1_E_BAD_VALUE},
    {"unused bits of nothing",    &kInfoBits,                                              "03 01 01",nullptr,ASN1_E_BAD_VALUE},
    {"unused bits that are set",                                                                     &kInfoBits,                         "03 02 04 FF","03 02 04 F0"},
    {"the joint arc of 2.999",                                                                                                  &kInfoObjectId,                                                                                                                         "06 02 88 37","06 02 88 37"},
    {"the largest arcs",                                                                                  &kInfoObjectId,                                                                                                                           "06 0A 90 80 80 80 4F 8F FF FF FF 7F",
     "06 0A 90 80 80 80 4F 8F FF FF FF 7F"                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                   },
    {"an arc of 33 bits",                                                                                           &kInfoObjectId,                                                                                                                    "06 06 2A 90 80 80 80 00",                                                                  nullptr,                                                                                                                                                                                                                                                                 ASN1_E_BAD_VALUE},
    {"an arc that does not end",                                                                                     &kInfoObjectId,                                                                                         "06 03 2A 03 86",                                                         nullptr,                                                                   ASN1_E_BAD_VALUE},
    {"an arc with a leading zero",                                                                                     &kInfoObjectId,"06 03 2A 80 01",nullptr,                                                                                                 ASN1_E_BAD_VALUE},
    {"an identifier without arcs",                                                             &kInfoObjectId,                                                                                                         "06 00",nullptr,ASN1_E_BAD_VALUE},
 // structures
    {"a default that is written",                                                                         &kInfoGrowing,"30 06 02 01 05 01 01 FF","30 03 02 01 05"},
    {"what is no default",&kInfoGrowing,"30 06 02 01 05 01 01 00","30 06 02 01 05 01 01 00"},
    {"unknown elements at the end",                                                                       &kInfoGrowing,              "30 80 02 01 05 30 80 30 80 00 00 05 00 00 00 05 00 00 00",
     "30 03 02 01 05"},
    {"too little",                                                                                                  &kInfoGrowing,                                                                                                                "30 00",nullptr,ASN1_E_MISSING},
    {"an octet too many",                                                                                  &kInfoAlgorithmIdentifier,                                                                                                                           "30 08 06 02 2A 03 02 01 05 00",nullptr,
     ASN1_E_TRAILING},
    {"too much",                                                                                  &kInfoAlgorithmIdentifier,                                                                                                                           "30 08 06 02 2A 03 05 00 05 00",                                                                                                                                                                                                  nullptr,                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                            ASN1_E_TRAILING},
    {"end of contents in a stated length",                                                                         &kInfoGrowing,                                                                                                                  "30 05 02 01 05 00 00",                                                                                                                                                                                                                     nullptr,                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                               ASN1_E_BAD_VALUE},
    {"a member past the end of its parent",                                                                                   &kInfoGrowing,                                                                                                                            "30 02 02 01 05",nullptr,ASN1_E_END_OF_INPUT},
    {"a primitive sequence",                                                                                           &kInfoGrowing,                                                                                                                      "10 03 02 01 05",                                                                                 nullptr,                                                                                                                                                                                                                                                                                                                     ASN1_E_WRONG_TAG},
    {"an explicit tag of indefinite length",                                                                   &kInfoPick,"A2 80 02 01 05 00 00","A2 03 02 01 05"},
    {"an explicit tag around too much",&kInfoPick,"A2 06 02 01 05 02 01 05",nullptr,ASN1_E_TRAILING},
    {"an explicit tag around another type",                                                               &kInfoPick,                   "A2 03 01 01 05",nullptr,ASN1_E_WRONG_TAG},
    {"an explicit tag around nothing",                                                                                                  &kInfoPick,                                                                                                       "A2 00",nullptr,ASN1_E_END_OF_INPUT},
    {"no alternative",                                                                               &kInfoPick,                                                                                                                        "84 00",nullptr,ASN1_E_UNKNOWN_CHOICE},
    {"a set in any order",                                                                                           &kInfoMixed,
     "31 1E A3 07 06 05 2B 06 01 04 01 0C 01 41 81 01 FF 06 09 2A 86 48 86 F7 0D 01 09 03 80 02 00 80","31 1E 06 09 2A 86 48 86 F7 0D 01 09 03 0C 01 41 80 02 00 80 81 01 FF A3 07 06 05 2B 06 01 04 01"},
    {"a member twice",                                                                            &kInfoMixed,                                                                                                                           "31 06 02 01 05 02 01 05",nullptr,       ASN1_E_REPEATED},
    {"two alternatives of one choice",                                                                         &kInfoMixed,                                                                                                                                                                                                                                    "31 05 81 01 FF 05 00",                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                      nullptr,                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                             ASN1_E_REPEATED},
    {"a set without a member that must be",                          &kInfoMixed,                                 "31 03 02 01 05",                                                                                                                                               nullptr,                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                                           ASN1_E_MISSING},
    {"a foreign member of a set",                                                                   &kInfoMixed, "31 03 0A 01 05",nullptr,ASN1_E_TRAILING},
 // open types
    {"unknown parameters of indefinite length",                                                                                                  &kInfoAlgorithmIdentifier,
     "30 0E 06 02 2A 03 30 80 30 80 04 00 00 00 00 00","30 0E 06 02 2A 03 30 80 30 80 04 00 00 00 00 00"},
    {"unknown parameters without an end",                                                                             &kInfoAlgorithmIdentifier,                                                                                                                      "30 0A 06 02 2A 03 30 80 30 80 00 00",
     nullptr,ASN1_E_END_OF_INPUT},
    {"known parameters of another type", &kInfoAlgorithmIdentifier,
     "30 0E 06 09 60 86 48 01 65 03 04 02 01 02 01 05",nullptr,                                                                                                                                                                                                                                                                                                                                                                                                    ASN1_E_WRONG_TAG},
    {"known content that is contained",                                                                                           &kInfoExtension,                                                                                                                     "30 0A 06 03 55 1D 0E 04 03 04 01 41",
     "30 0A 06 03 55 1D 0E 04 03 04 01 41"},
    {"contained, in segments",                                                                            &kInfoExtension,"30 0E 06 03 55 1D 0E 24 07 04 02 04 01 04 01 41",
     "30 0A 06 03 55 1D 0E 04 03 04 01 41"},
    {"contained, with more behind it",                                                              &kInfoExtension,                                                       "30 0B 06 03 55 1D 0E 04 04 04 01 41 00",nullptr,
     ASN1_E_TRAILING},
    {"unknown and contained is any octets",                                                                        &kInfoExtension,                                    "30 08 06 03 55 1D 7F 04 01 FF",
     "30 08 06 03 55 1D 7F 04 01 FF"                                                                                                                                      },
};

TEST(Asn1Decoder, Forms) {
  for (const FormCase& row : kForms) {
    SCOPED_TRACE(row.name);
    const Outcome outcome = Recode(*row.type, FromHex(row.ber));
    EXPECT_EQ(outcome.status, row.status);
    EXPECT_EQ(ToHex(outcome.der), row.der ? ToHex(FromHex(row.der)) : "");
  }
}

TEST(Asn1Decoder, ImplicitTaggingTakesContentAlone) {
  const auto context = ASN1ContextPtr::Create();
  const Bytes definite = FromHex("02 01 05 FF"), indefinite = FromHex("02 01 06 00 00 FF"),
              inner = FromHex("81 01 FF");
  ASN1T_Growing growing;
  context->setInput(definite);
  EXPECT_EQ(DecodeValue(*context, kInfoGrowing, &growing, Tagging::Implicit, 3), ASN1_OK);
  EXPECT_TRUE(growing.first == 5 && growing.flag && context->position() == 3);
  context->setInput(indefinite);
  EXPECT_EQ(DecodeValue(*context, kInfoGrowing, &growing, Tagging::Implicit, ASN1_INDEFINITE_LENGTH),
            ASN1_OK);
  EXPECT_TRUE(growing.first == 6 && context->position() == 5);
  ASN1T_Pick pick;
  context->setInput(inner);  // a choice has no tag of its own: what was taken off stood around it
  EXPECT_EQ(DecodeValue(*context, kInfoPick, &pick, Tagging::Implicit, 3), ASN1_OK);
  EXPECT_TRUE(pick.t == ASN1T_Pick::t_flag && pick.u.flag);
  for (const int length : {4, -1, INT32_MAX, INT32_MIN}) {
    context->setInput(inner);
    context->clearStatus();
    EXPECT_EQ(DecodeValue(*context, kInfoPick, &pick, Tagging::Implicit, length), ASN1_E_BAD_LENGTH)
        << length;
  }
}

TEST(Asn1Decoder, SignedMessageOfTwoSigners) {
  const Bytes message = ReadPublished("rfc4134/4.6.bin");
  ASN1BERDecodeBuffer buffer(message.data(), message.size());
  ASN1T_ContentInfo info;
  ASSERT_EQ(ASN1C_ContentInfo(buffer, info).Decode(), ASN1_OK);
  ASSERT_EQ(info.content.type, &kInfoSignedData);
  const auto& data = *static_cast<ASN1T_SignedData*>(info.content.decoded);
  EXPECT_EQ(data.encapContentInfo.eContent.encoded.bytes().size(), 28u);
  EXPECT_EQ(data.certificates.count, 2u);
  EXPECT_EQ(data.signerInfos.count, 2u);
  const ASN1T_Certificate& certificate = *data.certificates.begin()->u.certificate;
  EXPECT_EQ(certificate.tbsCertificate.version, 2);
  EXPECT_EQ(certificate.tbsCertificate.validity.notBefore.u.utcTime.text(), "990817020810Z");
  // no string of a DER message is copied
  const BYTE* const start = data.encapContentInfo.eContent.encoded.data;
  EXPECT_TRUE(start > message.data() && start < message.data() + message.size());
}

TEST(Asn1Decoder, SignedMessageInBer) {
  const Bytes message = ReadPublished("rfc4134/4.5.bin");
  ASN1BERDecodeBuffer buffer(message.data(), message.size());
  ASN1T_ContentInfo info;
  ASSERT_EQ(ASN1C_ContentInfo(buffer, info).Decode(), ASN1_OK);
  ASSERT_EQ(info.content.type, &kInfoSignedData);
  const auto& data = *static_cast<ASN1T_SignedData*>(info.content.decoded);
  const auto content = data.encapContentInfo.eContent.encoded.bytes();
  EXPECT_EQ(std::string(content.begin(), content.end()), "This is some sample content.");
  EXPECT_EQ(data.signerInfos.count, 1u);
}

struct PublishedCase {
  const char* name;
  const TypeInfo* type;
  bool comesBack;  // byte for byte, so it is DER
};
const PublishedCase kPublished[] = {
    {"rfc9215/d1_certificate.der",                 &kInfoCertificate, true },
    {"r1323565.1.025/root256_cert.der",            &kInfoCertificate, true },
    {"rfc4134/3.1.bin",                            &kInfoContentInfo, false},
    {"rfc4134/4.2.bin",                            &kInfoContentInfo, true },
    {"rfc4134/4.4.bin",                            &kInfoContentInfo, true },
    {"rfc4134/4.5.bin",                            &kInfoContentInfo, false},
    {"rfc4134/4.6.bin",                            &kInfoContentInfo, true },
    {"r1323565.1.025/encrypted_keytrans_a231.der", &kInfoContentInfo, true },
};

TEST(Asn1Decoder, PublishedObjectsComeBack) {
  for (const auto& [name, type, comesBack] : kPublished) {
    SCOPED_TRACE(name);
    const Bytes input = ReadPublished(name);
    ASSERT_FALSE(input.empty());
    const Outcome outcome = Recode(*type, input);
    EXPECT_EQ(outcome.status, ASN1_OK);
    EXPECT_EQ(outcome.offset, input.size());
    EXPECT_EQ(outcome.der == input, comesBack);
  }
}

TEST(Asn1Decoder, CutAndChangedObjectsHaveAnAnswer) {
  for (const auto& [name, type, comesBack] : kPublished) {
    SCOPED_TRACE(name);
    const Bytes input = ReadPublished(name);
    for (size_t length = 0; length < input.size(); ++length) {
      const Outcome outcome = Recode(*type, {input.begin(), input.begin() + static_cast<ptrdiff_t>(length)});
      EXPECT_LT(outcome.status, 0) << length;
      EXPECT_LE(outcome.offset, length);
    }
    for (size_t i = 0; i < input.size(); ++i) {
      for (const BYTE flip : {0x01, 0x80, 0xFF}) {
        Bytes changed = input;
        changed[i] ^= flip;
        const Outcome once = Recode(*type, changed);
        if (once.status < 0) continue;
        const Outcome twice = Recode(*type, once.der);
        EXPECT_EQ(ToHex(twice.der), ToHex(once.der)) << i;
      }
    }
  }
}

// --- bounds ---

TEST(Asn1Decoder, DepthIsBounded) {
  for (const size_t levels : {size_t{kMaxAsn1Depth} - 1, size_t{kMaxAsn1Depth}, size_t{100000}}) {
    SCOPED_TRACE(levels);
    const Bytes known = FromHex("3080" + Repeat("A080", levels) + Repeat("0000", levels + 1));
    EXPECT_EQ(Recode(kInfoNested, known).status, levels < kMaxAsn1Depth ? ASN1_OK : ASN1_E_TOO_DEEP);
    const Bytes segments = FromHex(Repeat("2480", levels + 1) + Repeat("0000", levels + 1));
    EXPECT_EQ(Recode(kInfoOctets, segments).status, levels < kMaxAsn1Depth ? ASN1_OK : ASN1_E_TOO_DEEP);
    const Bytes skipped =
        FromHex("308006022A03" + Repeat("3080", levels + 1) + Repeat("0000", levels + 1) + "0000");
    EXPECT_EQ(Recode(kInfoAlgorithmIdentifier, skipped).status,
              levels < kMaxAsn1Depth ? ASN1_OK : ASN1_E_TOO_DEEP);
  }
}

TEST(Asn1Decoder, ElementsAreBounded) {
  Bytes input = FromHex("3080020105");
  const size_t first = input.size();
  input.resize(first + 2 * kMaxAsn1Elements + 2);  // NULLs, then the end of contents
  for (size_t i = 0; i < kMaxAsn1Elements; ++i) input[first + 2 * i] = 0x05;
  EXPECT_EQ(Recode(kInfoGrowing, input).status, ASN1_E_TOO_MANY);
}

TEST(Asn1Decoder, HeapIsBoundedByTheInput) {
  for (const size_t elements : {size_t{20}, size_t{10000}}) {
    const Bytes input = FromHex("3080" + Repeat("3000", elements) + "0000");
    EXPECT_EQ(Recode(kInfoWide, input).status, elements == 20 ? ASN1_OK : ASN1_E_NO_MEMORY);
  }
}

TEST(Asn1Decoder, ArcsAreBounded) {
  for (const size_t arcs : {size_t{kMaxOidArcs}, size_t{kMaxOidArcs} + 1}) {
    const Bytes input = FromHex("0681" + ToHex(Bytes{static_cast<BYTE>(arcs - 1)}) + Repeat("05", arcs - 1));
    EXPECT_EQ(Recode(kInfoObjectId, input).status, arcs == kMaxOidArcs ? ASN1_OK : ASN1_E_TOO_MANY);
  }
}

// --- open types ---

TEST(Asn1Decoder, OpenTypesAreKnownByTheirSelector) {
  const Bytes attributes = FromHex(
      "31 37 30 18 06 09 2A864886F70D010903 31 0B 06 09 2A864886F70D010701"
      "      30 1B 06 09 2A864886F70D010904 31 0E 04 03 010203 04 03 040506 04 02 0708");
  ASN1BERDecodeBuffer buffer(attributes.data(), attributes.size());
  ASN1ListOf<ASN1T_Attribute> list;
  ASN1C__SetOfAttribute control(buffer, list);
  ASSERT_EQ(control.Decode(), ASN1_OK);
  ASSERT_EQ(control.size(), 2u);
  const auto& contentType = *static_cast<ASN1T_Attribute*>(control.at(0));
  ASSERT_EQ(contentType.values.begin()->type, &kInfoObjectId);
  EXPECT_EQ(static_cast<ASN1ObjectId*>(contentType.values.begin()->decoded)->subid[6], 1u);
  const auto& digest = *static_cast<ASN1T_Attribute*>(control.at(1));
  EXPECT_EQ(digest.values.count, 3u);
  for (const ASN1OpenValue& value : digest.values) EXPECT_EQ(value.type, &kInfoOctets);
}

// Only where they are asked for, and never for want of what decoding may take.
TEST(Asn1Decoder, OpenValuesThatDoNotDecodeMayBeKept) {
  struct Case {
    const char* name;
    const TypeInfo* type;
    const char* ber;
    uint64_t elements, heap;
    int checked, kept;
  };
  constexpr char kParameters[] = "30 0E 06 09 60 86 48 01 65 03 04 02 01 02 01 05",
                 kAttributes[] = "31 18 30 16 06 09 2A864886F70D010904 31 09 04 02 41 42 05 01 00 30 00";
  const Case kCases[] = {
      {"another type",  &kInfoAlgorithmIdentifier, kParameters,                              99, 4096, ASN1_E_WRONG_TAG, ASN1_OK         },
      {"contained",     &kInfoExtension,           "30 0B 06 03 55 1D 0E 04 04 04 01 41 00", 99, 4096, ASN1_E_TRAILING,
       ASN1_OK                                                                                                                           },
      {"one of a list", &kInfoAttributes,          kAttributes,                              99, 4096, ASN1_E_WRONG_TAG, ASN1_OK         },
      {"no elements",   &kInfoAlgorithmIdentifier, kParameters,                              3,  4096, ASN1_E_TOO_MANY,  ASN1_E_TOO_MANY },
      {"no memory",     &kInfoAlgorithmIdentifier, kParameters,                              99, 36,   ASN1_E_NO_MEMORY, ASN1_E_NO_MEMORY},
  };
  for (const Case& each : kCases) {
    const Bytes input = FromHex(each.ber);
    for (const OpenValues values : {OpenValues::Checked, OpenValues::Kept}) {
      ASN1BERDecodeBuffer buffer(input.data(), input.size());
      buffer.context().setOpenValues(values);
      buffer.context().budget() = {each.heap, each.elements};
      void* const value = buffer.context().allocate(each.type->size);
      const int status = DecodeValue(buffer.context(), *each.type, value, Tagging::Explicit, 0);
      EXPECT_EQ(status, values == OpenValues::Kept ? each.kept : each.checked) << each.name;
      EXPECT_EQ(buffer.context().status(), status) << each.name;
      if (status != ASN1_OK) continue;
      EXPECT_EQ(buffer.context().position(), input.size()) << each.name;
      ASN1BEREncodeBuffer out;
      EXPECT_GT(EncodeValue(out.context(), *each.type, value, Tagging::Explicit), 0) << each.name;
      EXPECT_EQ(Bytes(out.GetMsgPtr(), out.GetMsgPtr() + out.GetMsgLen()), input) << each.name;
    }
  }
}

TEST(Asn1Decoder, NullInPlaceOfParametersIsNoError) {
  const ASN1ObjectId digest = AsField(*kContents.objects[1].id);
  const Bytes null = FromHex("05 00"), octets = FromHex("04 01 41"), bad = FromHex("04 02 41");
  const auto context = ASN1ContextPtr::Create();
  const auto decode = [&](const Bytes& bytes, ASN1OpenValue& value) {
    value = {
        {static_cast<uint32_t>(bytes.size()), bytes.data()},
        nullptr, nullptr
    };
    return DecodeOpenValue(*context, kContents, digest, value);
  };
  ASN1OpenValue value;
  EXPECT_EQ(decode(null, value), ASN1_OK);
  EXPECT_EQ(value.type, nullptr);
  EXPECT_EQ(decode(octets, value), ASN1_OK);
  EXPECT_EQ(value.type, &kInfoOctets);
  EXPECT_EQ(decode(bad, value), ASN1_E_END_OF_INPUT);
}

TEST(Asn1Tables, LookUps) {
  for (const ObjectInfo& object : kContents.objects)
    EXPECT_EQ(FindObject(kContents, AsField(*object.id)), &object);
  const uint32_t between[] = {1, 2, 840, 113549, 1, 7, 3};
  EXPECT_EQ(FindObject(kContents, {7, between}), nullptr);
  EXPECT_EQ(FindObject(kContents, {6, between}), nullptr);
  EXPECT_EQ(FindObject(kContents, {}), nullptr);
  EXPECT_EQ(FindObject(kContents, {7, nullptr}), nullptr);
  for (const TypeInfo* type : Catalogue()) EXPECT_EQ(FindType(Catalogue(), type->name), type);
  for (const char* name : {"", "AlgorithmIdentifie", "Zebra", "zebra", static_cast<const char*>(nullptr)})
    EXPECT_EQ(FindType(Catalogue(), name), nullptr);
}
