// The small DER reader and writer, beside bytes that others wrote.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/der.h"
#include "support/hex.h"

namespace {

using namespace certkern;  // NOLINT(google-build-using-namespace): the names under test

TEST(Der, WritesWhatTheStandardSays) {
  EXPECT_EQ(ToHex(der::Unsigned(FromHex("00 00 80"))), ToHex(FromHex("02 02 00 80")));
  EXPECT_EQ(ToHex(der::Unsigned({})), ToHex(FromHex("02 01 00")));
  EXPECT_EQ(ToHex(der::Small(65537)), ToHex(FromHex("02 03 01 00 01")));
  EXPECT_EQ(ToHex(der::BitString(FromHex("AA"))), ToHex(FromHex("03 02 00 AA")));
  EXPECT_EQ(ToHex(der::AlgorithmIdentifier("1.2.840.113549.1.1.1", der::Null())),
            ToHex(FromHex("30 0D 06 09 2A 86 48 86 F7 0D 01 01 01 05 00")));
  EXPECT_TRUE(der::Oid("no.oid").empty());
  const SecretBytes longer = der::OctetString(std::vector<BYTE>(300));
  EXPECT_EQ(ToHex(std::span(longer).first(4)), ToHex(FromHex("04 82 01 2C")));
}

TEST(Der, ReadsNothingBeyondTheEnd) {
  const struct {
    const char* name;
    const char* hex;
    bool ok;
    size_t content;
  } rows[] = {
      {"short",                     "04 02 01 02",             true,  2},
      {"longer length than needed", "04 81 02 01 02",          true,  2},
      {"content cut",               "04 03 01 02",             false, 0},
      {"length cut",                "04 82 01",                false, 0},
      {"indefinite",                "04 80 00 00",             false, 0},
      {"length of five octets",     "04 85 00 00 00 00 01 00", false, 0},
      {"length at the top",         "04 84 FF FF FF FF 00",    false, 0},
      {"one octet",                 "04",                      false, 0},
      {"another identifier",        "05 00",                   false, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::vector<BYTE> input = FromHex(row.hex);
    der::Reader in(input);
    std::span<const BYTE> content;
    EXPECT_EQ(in.take(der::kOctetString, content), row.ok);
    EXPECT_EQ(content.size(), row.content);
    if (!row.ok) {
      EXPECT_EQ(in.rest().size(), input.size()) << "a failed read stays where it was";
    }
  }
}

TEST(Der, NumbersAndAlgorithms) {
  const std::vector<BYTE> input = FromHex("02 02 00 FF 02 01 80 02 05 01 00 00 00 00");
  der::Reader in(input);
  uint32_t number = 0;
  EXPECT_TRUE(in.takeSmall(number));
  EXPECT_EQ(number, 255u);
  EXPECT_FALSE(in.takeSmall(number)) << "negative";
  std::span<const BYTE> skipped;
  ASSERT_TRUE(in.takeWhole(skipped));
  EXPECT_FALSE(in.takeSmall(number)) << "33 bits";

  const std::vector<BYTE> trailing = FromHex("30 09 06 03 2A 85 03 05 00 05 00");
  der::Reader two(trailing);
  der::Algorithm algorithm;
  EXPECT_FALSE(der::TakeAlgorithm(two, algorithm)) << "two parameters";
  EXPECT_EQ(two.rest().size(), trailing.size());
}

}  // namespace
