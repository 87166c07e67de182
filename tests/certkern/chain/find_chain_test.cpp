// Chains found in a store: which certificates are candidates, what is asked of each, and how a walk goes on.
#include "certkern/chain/find_chain.h"

#include <certkern/keykern.h>

#include "certkern/chain/chain_fixture.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr char kTable[] = R"(
cert root | | | /CN=root | | ca
cert inter | root | | /CN=inter | | ca
cert client | inter | | | | ids; extendedKeyUsage = clientAuth
cert server | inter | | | | ids; extendedKeyUsage = serverAuth, 1.2.3
cert any | root
cert stranger | root
)";

class FoundChains : public testing::Test {
 protected:
  static const ChainObjects& objects() {
    static const ChainObjects made(kTable);
    return made;
  }
  void SetUp() override {
    FillSystemStore(L"Root", objects(), "root");
    FillSystemStore(L"CA", objects(), "");
    CRYPT_KEY_PROV_INFO key{};
    key.pwszContainerName = const_cast<LPWSTR>(L"container");
    CertificateHandle each;
    while (each.reset(CertEnumCertificatesInStore(store_.get(), each.release())), each) {
      const std::string row = objects().nameOf(each.get());
      if (row != "client" && row != "any") continue;
      ASSERT_TRUE(CertSetCertificateContextProperty(each.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &key));
    }
  }

  // The verdicts of a whole walk, and that it ends with CRYPT_E_NOT_FOUND.
  std::string walk(const CERT_CHAIN_FIND_BY_ISSUER_PARA& para, DWORD flags = 0) {
    std::string found;
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    while (
        (chain = CertFindChainInStore(store_.get(), 0, flags | CERT_CHAIN_FIND_BY_ISSUER_CACHE_ONLY_URL_FLAG,
                                      CERT_CHAIN_FIND_BY_ISSUER, &para, chain))) {
      const PCCERT_CONTEXT end = chain->rgpChain[0]->rgpElement[0]->pCertContext;
      EXPECT_EQ(end->hCertStore, store_.get()) << "the store's own context";
      found += Verdict(objects(), chain) + "; ";
    }
    EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_NOT_FOUND});
    return found;
  }
  static CERT_CHAIN_FIND_BY_ISSUER_PARA whole() {
    CERT_CHAIN_FIND_BY_ISSUER_PARA para{};
    para.cbSize = sizeof para;
    return para;
  }

  const MemoryStore store_ = objects().store("inter any server client");
};

TEST_F(FoundChains, CandidatesHaveKeys) {
  EXPECT_EQ(walk(whole()), "client inter root; any root; ");
  EXPECT_EQ(walk(whole(), CERT_CHAIN_FIND_BY_ISSUER_NO_KEY_FLAG),
            "client inter root; server inter root; any root; inter root; ");
}

TEST_F(FoundChains, WhatIsAskedOfEach) {
  CERT_NAME_BLOB issuers[] = {objects().certificate("root")->pCertInfo->Subject,
                              objects().certificate("inter")->pCertInfo->Subject};
  const auto with = [&](auto change) {
    CERT_CHAIN_FIND_BY_ISSUER_PARA para = whole();
    change(para);
    return walk(para, CERT_CHAIN_FIND_BY_ISSUER_NO_KEY_FLAG);
  };
  EXPECT_EQ(with([](auto& p) { p.pszUsageIdentifier = "1.2.3"; }), "server inter root; ");
  EXPECT_EQ(with([&](auto& p) { p.cIssuer = 1, p.rgIssuer = issuers; }), "any root; inter root; ")
      << "the direct issuer alone";
  EXPECT_EQ(with([&](auto& p) { p.cIssuer = 2, p.rgIssuer = issuers; }),
            "client inter root; server inter root; any root; inter root; ");
  EXPECT_EQ(with([](auto& p) {
              p.pvFindArg = &p;
              p.pfnFindCallback = [](PCCERT_CONTEXT candidate, void* argument) -> BOOL {
                EXPECT_NE(argument, nullptr);
                return objects().nameOf(candidate) == "any";
              };
            }),
            "any root; ");
  // a property that does not decode is one candidate's fault, and not the walk's
  BYTE broken[] = {0x30, 0x05, 0x06};
  const CRYPT_DATA_BLOB property{sizeof broken, broken};
  const CertificateHandle client(CertFindCertificateInStore(
      store_.get(), X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, objects().certificate("client"), nullptr));
  ASSERT_TRUE(CertSetCertificateContextProperty(client.get(), CERT_ENHKEY_USAGE_PROP_ID, 0, &property));
  EXPECT_EQ(with([](auto& p) { p.pszUsageIdentifier = "1.2.3"; }), "server inter root; ");
  // what no candidate can pass is no failure of its own
  EXPECT_EQ(with([](auto& p) { p.cbSize = 55; }), "");
  EXPECT_EQ(with([](auto& p) { p.dwKeySpec = 1; }), "");
  EXPECT_EQ(with([](auto& p) { p.dwAcquirePrivateKeyFlags = 1; }), "");
  EXPECT_EQ(with([](auto& p) { p.cIssuer = 1; }), "");
}

TEST_F(FoundChains, Arguments) {
  const CERT_CHAIN_FIND_BY_ISSUER_PARA para = whole();
  EXPECT_FALSE(CertFindChainInStore(store_.get(), 0, 0, 2, &para, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  EXPECT_FALSE(CertFindChainInStore(nullptr, 0, 0, CERT_CHAIN_FIND_BY_ISSUER, &para, nullptr));
  const ChainWorld world(objects(), "root", "");
  ChainHandle previous = world.ask("any");
  SetLastError(0);
  EXPECT_FALSE(CertFindChainInStore(store_.get(), 0, 0, CERT_CHAIN_FIND_BY_ISSUER, nullptr,
                                    previous.release()));  // a leak unless it was freed
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  previous = world.ask("stranger");
  EXPECT_FALSE(
      CertFindChainInStore(store_.get(), 0, 0, CERT_CHAIN_FIND_BY_ISSUER, &para, previous.release()));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_NOT_FOUND}) << "not of this store";
}

}  // namespace
