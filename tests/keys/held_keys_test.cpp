// Which keys stay imported, and that none is taken for another.
#include <certkern/errors.h>
#include <certkern/oids.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "keys/fake_key_level.h"
#include "keys/held_keys.h"
#include "platform/limits.h"

using namespace certkern;
using certkern::test::FakeKeyLevel;

namespace {

struct Asked {
  const char* name;
  std::string oid = szOID_ECC_PUBLIC_KEY;
  std::vector<BYTE> parameters = {5, 0};
  std::vector<BYTE> bits = {1, 2, 3, 4};
  DWORD unusedBits = 0;
  ALG_ID algorithm = CALG_ECDSA;
  const char* signature = szOID_ECDSA_SHA256;

  SharedKey ask() {
    const std::optional<SignatureRow> row = FindSignatureRow(signature);
    CERT_PUBLIC_KEY_INFO info{};
    info.Algorithm.pszObjId = oid.data();
    info.Algorithm.Parameters = {static_cast<DWORD>(parameters.size()), parameters.data()};
    info.PublicKey = {static_cast<DWORD>(bits.size()), bits.data(), unusedBits};
    return KeyForSignature(*row, info, algorithm);
  }
};

class HeldKeysTest : public testing::Test {
 protected:
  FakeKeyLevel fake_;
};

TEST_F(HeldKeysTest, WhatMakesTheDifference) {
  std::vector<SharedKey> all;
  for (Asked each : {
           Asked{"plain"                    },
           Asked{                       .name = "identifier", .oid = "1.2.840.10045.2.2"},
           Asked{                       .name = "parameters",       .parameters = {5, 1}},
           Asked{                       .name = "no parameters",           .parameters = {}},
 // the same bytes behind each other as in the first
           Asked{                       .name = "border",    .parameters = {5, 0, 1}, .bits = {2, 3, 4}},
           Asked{      .name = "bits",              .bits = {1, 2, 3, 5}},
           Asked{.name = "unused",            .unusedBits = 1},
           Asked{           .name = "algorithm",         .algorithm = CALG_ECDH},
           Asked{.name = "provider",          .signature = szOID_GOST_R3411_2012_256_R3410}
  }) {
    SCOPED_TRACE(each.name);
    const SharedKey key = each.ask();
    ASSERT_TRUE(key);
    EXPECT_EQ(std::ranges::count(all, key), 0) << "another one's key";
    EXPECT_EQ(each.ask(), key) << "imported twice";
    all.push_back(key);
  }
}

TEST_F(HeldKeysTest, TheLastUsedStay) {
  const auto numbered = [](size_t number) {
    return Asked{
        .name = "", .bits = {static_cast<BYTE>(number), static_cast<BYTE>(number >> 8)}
    };
  };
  const SharedKey first = numbered(0).ask(), second = numbered(1).ask();
  for (size_t i = 2; i < kMaxHeldKeys; ++i) numbered(i).ask();
  EXPECT_EQ(numbered(0).ask(), first);
  numbered(kMaxHeldKeys).ask();
  EXPECT_EQ(numbered(0).ask(), first) << "it was used";
  EXPECT_EQ(first.use_count(), 2);
  EXPECT_EQ(second.use_count(), 1) << "the one that was longest not";
  EXPECT_EQ(fake_.liveKeys, static_cast<int>(kMaxHeldKeys) + 1);
}

TEST_F(HeldKeysTest, WhatIsNotHeld) {
  Asked large{.name = "large"};
  large.bits.resize(kMaxHeldKey);
  large.ask();
  EXPECT_EQ(fake_.liveKeys, 0) << "too large";
  fake_.importFails = static_cast<DWORD>(NTE_BAD_DATA);
  EXPECT_FALSE(Asked{"bad"}.ask());
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(NTE_BAD_DATA));
  fake_.importFails = 0;
  EXPECT_TRUE(Asked{"bad"}.ask()) << "a failure must not be remembered";
  EndHoldingKeys();
  EXPECT_EQ(fake_.liveKeys, 0) << "left at exit";
  EXPECT_TRUE(Asked{"afterwards"}.ask());
  EXPECT_EQ(fake_.liveKeys, 0);
  BeginHoldingKeys();
}

}  // namespace
