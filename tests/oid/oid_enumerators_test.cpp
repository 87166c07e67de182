// Walks over the groups of the OID table, against what the table itself answers.
#include "oid/oid_enumerators.h"

#include <certkern/encode.h>
#include <certkern/oids.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "oid/algorithm_finders.h"

namespace {

struct Seen {
  std::vector<std::string> oids;
  size_t stopAfter = SIZE_MAX;
  BOOL add(LPCSTR oid) {
    oids.emplace_back(oid);
    return oids.size() < stopAfter;
  }
};

std::vector<std::string> GroupOf(DWORD group) {
  Seen seen;
  CryptEnumOIDInfo(group, 0, &seen, [](PCCRYPT_OID_INFO info, void* arg) -> BOOL {
    return static_cast<Seen*>(arg)->add(info->pszOID);
  });
  return seen.oids;
}

template <class Base>
struct Collect final : Base, Seen {
  BOOL OnInfo(LPCSTR oid, LPCWSTR, ALG_ID) override { return add(oid); }
};

template <class Base>
void ExpectGroup(DWORD group) {
  Collect<Base> all;
  EXPECT_TRUE(all.Enum());
  EXPECT_EQ(all.oids, GroupOf(group)) << "group " << group;
}

TEST(OidEnumerators, EachShowsItsGroup) {
  ExpectGroup<ATL2::CHashAlgorithmOidEnum>(1);
  ExpectGroup<ATL2::CEncryptionAlgorithmOidEnum>(2);
  ExpectGroup<ATL2::CPublicKeyAlgorithmOidEnum>(3);
  ExpectGroup<ATL2::CExtensionOrAttributeOidEnum>(6);
  ExpectGroup<ATL2::CEnhancedKeyUsageOidEnum>(7);
  ExpectGroup<ATL2::CPolicyOidEnum>(8);
  ExpectGroup<ATL2::CTemplateOidEnum>(9);
  Collect<ATL2::CHashAlgorithmOidEnum> some;
  some.stopAfter = 2;
  EXPECT_FALSE(some.Enum());
  EXPECT_EQ(some.oids.size(), 2u) << "a walk ends when it is told to";
}

TEST(OidEnumerators, NameAttributesWithTheirValueTypes) {
  struct Names final : ATL2::CRdnAttributeOidEnum {
    std::map<std::string, std::vector<DWORD>> types;
    BOOL OnInfo(LPCSTR oid, LPCWSTR, ALG_ID, DWORD count, const DWORD* first) override {
      types[oid].assign(first, first + count);
      return TRUE;
    }
  } names;
  EXPECT_TRUE(names.Enum());
  EXPECT_EQ(names.types.at("2.5.4.6"), (std::vector<DWORD>{CERT_RDN_PRINTABLE_STRING}));
}

TEST(OidEnumerators, SignaturesOfAKeyAndOfAHash) {
  ATL2::CFindSignatureAlgPubKeyEnum byKey;
  // the row of the key that agrees comes first and signs nothing; the search goes on to the one that signs
  EXPECT_STREQ(byKey.find(szOID_RSA_RSA), szOID_RSA_SHA1RSA);
  EXPECT_STREQ(byKey.find(szOID_GOST_R3410_2001), szOID_GOST_R3411_94_R3410_2001);
  EXPECT_EQ(byKey.find("1.2.3"), nullptr);
  ATL2::CFindSignatureAlgorithmEnum byHash;
  EXPECT_STREQ(byHash.find(szOID_NIST_sha384), szOID_RSA_SHA384RSA);
  EXPECT_STREQ(byHash.find(szOID_GOST_R3411_2012_512), szOID_GOST_R3411_2012_512_R3410);
  EXPECT_EQ(byHash.find(szOID_RSA_MD4), nullptr) << "a hash that nothing signs";
}

}  // namespace
