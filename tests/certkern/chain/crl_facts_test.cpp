// What a CRL tells by its bytes alone.
#include <certkern/oids.h>
#include <gtest/gtest.h>

#include <vector>

#include "certkern/chain/chain_records.h"
#include "certkern/chain/crl_facts.h"
#include "platform/exceptions.h"
#include "support/hex.h"

namespace certkern::test {
namespace {

struct Extension {
  const char* oid;
  const char* value;  // hexadecimal
};

// A list of nothing but extensions.
CrlFacts FactsWith(const std::vector<Extension>& extensions) {
  std::vector<std::vector<BYTE>> values;
  std::vector<CERT_EXTENSION> records;
  for (const Extension& each : extensions) values.push_back(FromHex(each.value));
  for (size_t i = 0; i < extensions.size(); ++i) {
    records.push_back({
        const_cast<LPSTR>(extensions[i].oid),
        FALSE,
        {static_cast<DWORD>(values[i].size()), values[i].data()}
    });
  }
  CRL_INFO info{};
  info.cExtension = static_cast<DWORD>(records.size());
  info.rgExtension = records.data();
  return CrlFacts(info);
}

TEST(CrlFacts, SetsOfReasons) {
  BYTE bytes[] = {0, 0};
  const struct {
    const char* name;
    CRYPT_BIT_BLOB flags;
    BYTE first;
    int reasons;
  } kSets[] = {
      {"absent",                           {0, nullptr, 0}, 0,    0x7F},
      {"there and empty",                  {0, bytes, 0},   0,    0   },
      {"keyCompromise, cACompromise",      {1, bytes, 5},   0x60, 0x03},
      {"what follows them",                {1, bytes, 0},   0x1F, 0x7C},
      {"the same without certificateHold", {1, bytes, 0},   0x1D, 0x5C},
      {"the last of the first octet",      {1, bytes, 0},   0x01, 0x40},
      {"unused only",                      {1, bytes, 7},   0x80, 0   },
      {"bits that don't count are set",    {1, bytes, 5},   0x7F, 0x03},
      {"all eight of them don't count",    {1, bytes, 8},   0x7F, 0   },
      {"aACompromise makes two octets",    {2, bytes, 7},   0x7F, 0x7F},
  };
  for (const auto& [name, flags, first, reasons] : kSets) {
    bytes[0] = first;
    EXPECT_EQ(ReasonsOf(flags), reasons) << name;
  }
}

TEST(CrlFacts, WhoseKeyMustHaveSigned) {
  const Extension number{szOID_CRL_NUMBER, "020101"};
  const Extension version{szOID_CERTSRV_CA_VERSION, "020100"};
  const Extension needed{szOID_GOST_CRL_KEY_MATCH, "0A0100"}, notNeeded{szOID_GOST_CRL_KEY_MATCH, "0A0101"};
  const Extension neither{szOID_GOST_CRL_KEY_MATCH, "0A0102"}, unread{szOID_GOST_CRL_KEY_MATCH, "0500"};
  EXPECT_EQ(FactsWith({}).keyMatch, CrlKeyMatch::NotNeeded);
  EXPECT_EQ(FactsWith({number}).keyMatch, CrlKeyMatch::AsConfigured);
  EXPECT_EQ(FactsWith({version}).keyMatch, CrlKeyMatch::Needed);
  EXPECT_EQ(FactsWith({version, notNeeded}).keyMatch, CrlKeyMatch::NotNeeded);
  EXPECT_EQ(FactsWith({needed}).keyMatch, CrlKeyMatch::Needed);
  EXPECT_EQ(FactsWith({neither}).keyMatch, CrlKeyMatch::AsConfigured);
  EXPECT_EQ(FactsWith({unread, version}).keyMatch, CrlKeyMatch::Needed);
}

TEST(CrlFacts, Numbers) {
  const CrlFacts none = FactsWith({});
  EXPECT_FALSE(none.isDelta || none.hasNumber);
  EXPECT_EQ(none.number, -1);
  const CrlFacts delta = FactsWith({
      {szOID_CRL_NUMBER,          "02020100"},
      {szOID_DELTA_CRL_INDICATOR, "020107"  }
  });
  EXPECT_TRUE(delta.isDelta && delta.hasNumber);
  EXPECT_EQ(delta.number, 256);
  EXPECT_EQ(delta.baseNumber, 7);
  for (const char* value : {"0201FF", "02050100000000", "0500", ""}) {
    const CrlFacts facts = FactsWith({
        {szOID_CRL_NUMBER, value}
    });
    EXPECT_TRUE(facts.hasNumber);
    EXPECT_EQ(facts.number, -1) << value;
  }
}

TEST(CrlFacts, ScopesThatNobodyCanTell) {
  const struct {
    const char* name;
    const char* value;
    bool unusable;
  } kScopes[] = {
      {"nothing said",                   "3000",               false},
      {"for users",                      "30038101FF",         false},
      {"not for attribute certificates", "3003850100",         false},
      {"for attribute certificates",     "30038501FF",         true },
      {"behind other fields",            "30068401FF8501FF",   true },
      {"a field that there is not",      "30038601FF",         true },
      {"out of order",                   "30068401FF8101FF",   true },
      {"twice",                          "30068101FF8101FF",   true },
      {"reasons out of order",           "30078401FF83020640", true },
      {"a name relative to the issuer",  "3004A002A100",       true },
      {"no sequence",                    "0500",               true },
      {"cut off",                        "300381",             true },
      {"empty",                          "",                   true },
  };
  for (const auto& [name, value, unusable] : kScopes) {
    const CrlFacts facts = FactsWith({
        {szOID_ISSUING_DIST_POINT, value}
    });
    EXPECT_EQ(facts.unusable, unusable) << name;
  }
  EXPECT_FALSE(FactsWith({}).unusable);
}

TEST(CrlFacts, UrlsMeet) {
  const UrlSet one({"http://a/1", "http://b/2"});
  EXPECT_TRUE(one.meets(UrlSet({"x", "HTTP://B/2", "y", "z"})));
  EXPECT_FALSE(one.meets(UrlSet({"http://a/", "http://b/22"})));
  EXPECT_FALSE(one.meets(UrlSet({})));
  EXPECT_FALSE(UrlSet({}).meets(UrlSet({})));
}

// The text goes into the trace of the revocation that it ends.
TEST(CrlRecords, FailuresTellTheirPlace) {
  InternedRecords records;
  const CRL_CONTEXT stranger{};
  try {
    records.crl(&stranger);
    ADD_FAILURE();
  } catch (const CryptException& failure) {
    EXPECT_EQ(failure.file(), "certkern/ChainBase");
  }
}

}  // namespace
}  // namespace certkern::test
