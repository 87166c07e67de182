// The property that an object in the URL cache carries.
#include "url/cached_url.h"

#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include "platform/limits.h"
#include "support/hex.h"

using namespace certkern;

namespace {

// 2024-01-02 03:04:05 and 2026-11-21 00:00 UTC
constexpr char kProperty[] =
    "80 C0 48 58 28 3D DA 01  00 00 58 40 4B 79 DD 01"
    "68 74 74 70 3A 2F 2F 61 2E 62 2F 63 2E 63 72 6C 00";

TEST(CachedUrl, IsTwoTimesAndTheUrl) {
  const CachedUrl value{
      {0x5848C080, 0x01DA3D28},
      {0x40580000, 0x01DD794B},
      "http://a.b/c.crl"
  };
  EXPECT_EQ(ToHex(EncodeCachedUrl(value)), ToHex(FromHex(kProperty)));
  const auto decoded = DecodeCachedUrl(FromHex(kProperty));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->url, value.url);
  EXPECT_EQ(CompareFileTime(&decoded->lastModified, &value.lastModified), 0);
  EXPECT_EQ(CompareFileTime(&decoded->lastUsed, &value.lastUsed), 0);
}

TEST(CachedUrl, ForeignBytes) {
  const std::string times(32, '0');
  const std::string longest = std::string(2 * kMaxUrl, '6');
  const struct {
    const char* name;
    std::string hex;
    bool good;
  } cases[] = {
      {"nothing",               "",                       false},
      {"no URL",                times,                    false},
      {"an empty URL",          times + "00",             false},
      {"an empty URL and more", times + "0061",           false},
      {"no NUL",                times + "6162",           false},
      {"the shortest",          times + "6100",           true },
      {"more behind the NUL",   times + "610062",         true },
      {"the longest",           times + longest + "00",   true },
      {"too long",              times + longest + "6100", false},
  };
  for (const auto& [name, hex, good] : cases)
    EXPECT_EQ(DecodeCachedUrl(FromHex(hex)).has_value(), good) << name;
}

}  // namespace
