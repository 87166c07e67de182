// The memory of an answer: what stands in it, who owns it, and the chains behind the first one.
#include "certkern/chain/chain_context.h"

#include <certkern/keykern.h>

#include "certkern/chain/chain_fixture.h"

using namespace certkern;
using namespace certkern::test;

namespace {

// ThisUpdate and NextUpdate of the lists are what their ages are counted from.
constexpr char kTable[] = R"(
cert root1 | | p256:root1 | | | ca
cert root2 | | | | | ca
cert root3 | | | | | ca
cert root4 | | | | 2015..2020 | ca
cert ca1 | root1 | p256:ca | /CN=ca | | ca
cert ca2 | root2 | p256:ca | /CN=ca | | ca
cert ca3 | root3 | p256:ca | /CN=ca | | ca
cert ca4 | root4 | p256:ca | /CN=ca | | ca
cert leaf | ca1 | | | | ids; extendedKeyUsage = clientAuth, 1.2.3; certificatePolicies = 1.2.4
cert bare | ca1 | | | | none
crl base1 | ca1 | 20250101..20250301 | leaf:keyCompromise
crl base2 | ca1 | 20250103..20250201
crl delta1 | ca1 | 20250102..20250401 | leaf:certificateHold
crl delta2 | ca1 | 20250104..20250105
)";

const ChainObjects& Objects() {
  static const ChainObjects made(kTable);
  return made;
}

ChainNode& AddNode(ChainBuilder& builder, const std::string& row, DWORD status = 0) {
  CertRecord& record = builder.records->certificate(Objects().certificate(row), false);
  builder.chain.push_back({&record, status, {}, {}});
  return builder.chain.back();
}

CrlRecord* List(ChainBuilder& builder, const std::string& row) {
  return row.empty() ? nullptr : &builder.records->crl(Objects().crl(row));
}

struct Pair {
  std::string base, delta;
};

struct ListCase {
  std::string name;
  std::string now;
  std::vector<Pair> used;
  Pair selected;
  DWORD age;
  Pair told;
  std::string entry;  // the list that names the certificate
};

const ListCase kLists[] = {
    {"one list",                         "20250101000010", {{"base1", ""}},                            {"", ""}, 10,         {"base1", ""},       "base1"},
    {"made in the future",               "20241231",       {{"base1", ""}},                            {"", ""}, 0,          {"base1", ""},       "base1"},
    {"the delta counts, not its base",
     "20250102000010",                                     {{"base1", "delta1"}},
     {"", ""},
     10,                                                                                                                     {"base1", "delta1"},
     "delta1"                                                                                                                                            },
    {"a delta without an entry",
     "20250104000010",                                     {{"base1", "delta2"}},
     {"", ""},
     10,                                                                                                                     {"base1", "delta2"},
     "base1"                                                                                                                                             },
    {"the oldest counts",
     "20250104000010",                                     {{"base2", ""}, {"base1", "delta1"}},
     {"", ""},
     172810,                                                                                                                 {"base2", ""},
     ""                                                                                                                                                  },
    {"what ends first is told",
     "20250104000010",                                     {{"base1", "delta1"}, {"base2", "delta2"}},
     {"", ""},
     172810,                                                                                                                 {"base2", "delta2"},
     ""                                                                                                                                                  },
    {"unless one was selected",
     "20250104000010",                                     {{"base1", "delta1"}, {"base2", "delta2"}},
     {"base1", "delta1"},
     172810,                                                                                                                 {"base1", "delta1"},
     "delta1"                                                                                                                                            },
    {"a later pair's delta is not told",
     "20250104000010",                                     {{"base1", ""}, {"base1", "delta1"}},
     {"", "delta1"},
     259210,                                                                                                                 {"base1", ""},
     "base1"                                                                                                                                             },
    {"more seconds than fit",            "99990101",       {{"base1", ""}},                            {"", ""}, 0xFFFFFFFF, {"base1", ""},       "base1"},
};

TEST(ChainContext, RevocationOfAnElement) {
  for (const auto& [name, now, used, selected, age, told, entry] : kLists) {
    SCOPED_TRACE(name);
    ChainBuilder builder;
    builder.now = Moment(now);
    CertRecord& record = *AddNode(builder, "leaf").record;
    for (const Pair& each : used) {
      record.usedCrls.push_back({List(builder, each.base), List(builder, each.delta)});
    }
    record.selected = {List(builder, selected.base), List(builder, selected.delta)};
    const ChainContextOwner chain = MakeChainContext(builder);
    const CERT_REVOCATION_INFO* info = chain->rgpChain[0]->rgpElement[0]->pRevocationInfo;
    ASSERT_TRUE(info && info->pCrlInfo);
    EXPECT_EQ(info->cbSize, 40u);
    EXPECT_TRUE(info->fHasFreshnessTime);
    EXPECT_EQ(info->dwFreshnessTime, age);
    EXPECT_EQ(chain->dwRevocationFreshnessTime, age);
    EXPECT_TRUE(chain->fHasRevocationFreshnessTime);
    const CERT_REVOCATION_CRL_INFO& lists = *info->pCrlInfo;
    const auto is = [&](PCCRL_CONTEXT list, const std::string& row) {
      return row.empty() ? !list
                         : list && list->cbCrlEncoded == Objects().crl(row)->cbCrlEncoded
              && !memcmp(list->pbCrlEncoded, Objects().crl(row)->pbCrlEncoded, list->cbCrlEncoded);
    };
    EXPECT_TRUE(is(lists.pBaseCrlContext, told.base));
    EXPECT_TRUE(is(lists.pDeltaCrlContext, told.delta));
    EXPECT_EQ(lists.pCrlEntry != nullptr, !entry.empty());
    EXPECT_EQ(lists.fDeltaCrlEntry, entry.starts_with("delta") ? TRUE : FALSE);
  }
}

TEST(ChainContext, AgesAreRounded) {
  for (const auto& [ticks, age] : {
           std::pair{4'999'998u, 10u},
           {4'999'999u, 11u}
  }) {
    ChainBuilder builder;
    builder.now = Moment("20250101000010");
    builder.now.dwLowDateTime += ticks;
    AddNode(builder, "leaf").record->usedCrls.push_back({List(builder, "base1"), nullptr});
    EXPECT_EQ(MakeChainContext(builder)->dwRevocationFreshnessTime, age);
  }
}

TEST(ChainContext, RevocationResultFollowsTheStatus) {
  const struct {
    DWORD status, result;
  } kCases[] = {
      {0,                                    0                                              },
      {CERT_TRUST_IS_REVOKED,                static_cast<DWORD>(CRYPT_E_REVOKED)            },
      {CERT_TRUST_REVOCATION_STATUS_UNKNOWN, static_cast<DWORD>(CRYPT_E_NO_REVOCATION_CHECK)},
      {CERT_TRUST_IS_NOT_VALID_FOR_USAGE,    static_cast<DWORD>(CRYPT_E_NO_REVOCATION_CHECK)},
  };
  for (const auto& [status, result] : kCases) {
    ChainBuilder builder;
    AddNode(builder, "leaf", status);
    const ChainContextOwner chain = MakeChainContext(builder);
    const CERT_REVOCATION_INFO* info = chain->rgpChain[0]->rgpElement[0]->pRevocationInfo;
    ASSERT_TRUE(info);
    EXPECT_EQ(info->dwRevocationResult, result);
    EXPECT_FALSE(info->fHasFreshnessTime || info->pCrlInfo || chain->fHasRevocationFreshnessTime);
  }
  ChainBuilder builder;
  builder.flags = CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY;
  AddNode(builder, "leaf");
  EXPECT_FALSE(MakeChainContext(builder)->rgpChain[0]->rgpElement[0]->pRevocationInfo) << "nobody asked";
}

TEST(ChainContext, StandsByItself) {
  ChainContextOwner chain;
  {
    ChainBuilder builder;
    AddNode(builder, "root1");
    ChainNode& leaf = AddNode(builder, "leaf", CERT_TRUST_IS_NOT_VALID_FOR_USAGE);
    leaf.certPolicies = {"1.2.4"};
    leaf.applPolicies = {"1.3.6.1.5.5.7.3.2", "1.2.3", "1.2.3"};
    builder.chainError = CERT_TRUST_IS_NOT_VALID_FOR_USAGE;
    chain = MakeChainContext(builder);
  }
  EXPECT_EQ(chain->cbSize, 48u);
  EXPECT_EQ(chain->cChain, 1u);
  EXPECT_EQ(chain->cLowerQualityChainContext, 0u);
  const CERT_SIMPLE_CHAIN& simple = *chain->rgpChain[0];
  EXPECT_EQ(simple.cbSize, 40u);
  EXPECT_EQ(simple.pTrustListInfo, nullptr);
  EXPECT_EQ(Verdict(Objects(), chain.get()), "leaf:0x10 root1 = 0x10");
  const CERT_CHAIN_ELEMENT& leaf = *simple.rgpElement[0];
  EXPECT_EQ(leaf.cbSize, 56u);
  ASSERT_EQ(leaf.pApplicationUsage->cUsageIdentifier, 3u) << "with its doubles";
  EXPECT_STREQ(leaf.pApplicationUsage->rgpszUsageIdentifier[1], "1.2.3");
  ASSERT_EQ(leaf.pIssuanceUsage->cUsageIdentifier, 1u);
  EXPECT_STREQ(leaf.pIssuanceUsage->rgpszUsageIdentifier[0], "1.2.4");
  EXPECT_FALSE(simple.rgpElement[1]->pIssuanceUsage || simple.rgpElement[1]->pApplicationUsage);
}

TEST(ChainContext, IsCounted) {
  ChainBuilder builder;
  AddNode(builder, "leaf");
  const PCCERT_CHAIN_CONTEXT chain = MakeChainContext(builder).release();
  EXPECT_EQ(CertDuplicateCertificateChain(chain), chain);
  CertFreeCertificateChain(chain);
  EXPECT_EQ(Verdict(Objects(), chain), "leaf") << "one count is left";
  CertFreeCertificateChain(chain);  // a leak or a second free is the sanitizer's to see
  CertFreeCertificateChain(nullptr);
  EXPECT_EQ(CertDuplicateCertificateChain(nullptr), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

// The others are good chains to other roots, found one by one; ca4 leads to a root that is not valid any more.
TEST(ChainContext, LowerQuality) {
  const ChainWorld world(Objects(), "root1 root2 root3 root4", "ca1 ca2 ca3 ca4");
  const ChainHandle chain = world.ask("leaf", {.flags = CERT_CHAIN_RETURN_LOWER_QUALITY_CONTEXTS});
  ASSERT_TRUE(chain);
  EXPECT_EQ(Verdict(Objects(), chain.get()), "leaf ca3 root3");
  ASSERT_EQ(chain->cLowerQualityChainContext, 2u);
  EXPECT_EQ(Verdict(Objects(), chain->rgpLowerQualityChainContext[0]), "leaf ca2 root2");
  EXPECT_EQ(Verdict(Objects(), chain->rgpLowerQualityChainContext[1]), "leaf ca1 root1");
  EXPECT_EQ(world.ask("leaf")->cLowerQualityChainContext, 0u);
  const ChainWorld poor(Objects(), "root4", "ca4");
  const ChainHandle error = poor.ask("leaf", {.flags = CERT_CHAIN_RETURN_LOWER_QUALITY_CONTEXTS});
  ASSERT_TRUE(error);
  EXPECT_EQ(Verdict(Objects(), error.get()), "leaf ca4 root4:0x1 = 0x1");
  EXPECT_EQ(error->cLowerQualityChainContext, 0u);
}

TEST(ChainContext, ArgumentsThatAreNone) {
  CERT_CHAIN_PARA para{};
  para.cbSize = sizeof para;
  PCCERT_CHAIN_CONTEXT chain = nullptr;
  const PCCERT_CONTEXT leaf = Objects().certificate("leaf");
  EXPECT_FALSE(CertGetCertificateChain(nullptr, nullptr, nullptr, nullptr, &para, 0, nullptr, &chain));
  EXPECT_FALSE(CertGetCertificateChain(nullptr, leaf, nullptr, nullptr, nullptr, 0, nullptr, &chain));
  EXPECT_FALSE(CertGetCertificateChain(nullptr, leaf, nullptr, nullptr, &para, 0, nullptr, nullptr));
  para.RequestedUsage.Usage.cUsageIdentifier = 1;
  SetLastError(0);
  EXPECT_FALSE(CertGetCertificateChain(nullptr, leaf, nullptr, nullptr, &para, 0, nullptr, &chain));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(chain);
}

}  // namespace
