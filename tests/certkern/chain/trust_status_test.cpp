#include "certkern/chain/trust_status.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using namespace certkern;

namespace {

// Best to worst, as the table of published bits is to be ranked.
constexpr DWORD kRanking[] = {0, 0x400, 0x10, 0x40, 4, 1, 0x20, 8, 0x10000};

TEST(TrustStatus, Ranking) {
  for (size_t i = 0; i < std::size(kRanking); ++i) {
    for (size_t j = 0; j < std::size(kRanking); ++j) {
      EXPECT_EQ(CompareTrustStatus(kRanking[i], kRanking[j]), i < j ? 1 : i > j ? -1 : 0) << i << " " << j;
    }
  }
  EXPECT_EQ(CompareTrustStatus(0x400 | 1, 1), -1) << "what both have decides nothing";
  EXPECT_EQ(CompareTrustStatus(0x400 | 0x10 | 0x40, 0x20), 1) << "the worst bit decides";
  EXPECT_EQ(CompareTrustStatus(0x800, 0x100), 0) << "bits that nobody sets";
}

TEST(TrustStatus, Names) {
  EXPECT_EQ(TrustStatusNames(0), "CERT_TRUST_NO_ERROR");
  EXPECT_EQ(TrustStatusNames(0x10409),
            "IS_NOT_TIME_VALID|IS_NOT_SIGNATURE_VALID|INVALID_BASIC_CONSTRAINTS|"
            "IS_PARTIAL_CHAIN");
  EXPECT_EQ(TrustStatusNames(0x1000804), "IS_REVOKED|0x1000800");
  EXPECT_EQ(TrustStatusTextRussian(0), "Сертификат действителен");
  EXPECT_EQ(TrustStatusTextRussian(4), "Этот сертификат или один из сертификатов цепочки отозван.");
  for (const DWORD bit : kRanking) {
    EXPECT_EQ(TrustStatusFromName(TrustStatusNames(bit)), bit);
    EXPECT_EQ(TrustStatusTextRussian(bit).find("0x"), std::string::npos);
  }
  EXPECT_EQ(TrustStatusFromName("NOT_SUCCESS"), 66669u);
  EXPECT_EQ(TrustStatusFromName("ANY_ERROR"), 66605u);
  EXPECT_EQ(TrustStatusFromName("CT_NO_ERROR"), 0u);
  EXPECT_EQ(TrustStatusFromName("IS_CYCLIC"), std::nullopt);
}

TEST(TrustStatus, Reasons) {
  EXPECT_EQ(ReasonName(0), "unused");
  EXPECT_EQ(ReasonName(6), "certificateHold");
  EXPECT_EQ(ReasonName(7), "");
  EXPECT_EQ(ReasonName(8), "removeFromCRL");
  EXPECT_EQ(ReasonName(0xFFFFFFFF), "");
}

}  // namespace
