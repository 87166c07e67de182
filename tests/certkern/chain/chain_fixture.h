// Chains built in a sandbox: system stores in a directory of the test program, an engine over memory stores, and a
// verdict as one line of text.
#ifndef CERTKERN_TESTS_CERTKERN_CHAIN_CHAIN_FIXTURE_H
#define CERTKERN_TESTS_CERTKERN_CHAIN_CHAIN_FIXTURE_H

#include <certkern/chain.h>
#include <certkern/errors.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "certkern/chain/chain_objects.h"

namespace certkern::test {

using EngineHandle = Owner<HCERTCHAINENGINE, CertFreeCertificateChainEngine>;
using ChainHandle = Owner<PCCERT_CHAIN_CONTEXT, CertFreeCertificateChain>;

// The configuration is read once in a process, so that all tests of it share one. Answers the directory, with
// "user/root.sto" and the like in it. `more` counts in the first call only; a child that a test starts gets what stands
// in its environment.
inline const TemporaryDirectory& Sandbox(const std::string& more = {}) {
  static const TemporaryDirectory& directory = [&more]() -> const TemporaryDirectory& {
    static const TemporaryDirectory made;
    for (const char* name : {"user", "machine"}) {
      std::filesystem::create_directory(made.path(name));
      std::filesystem::permissions(made.path(name), std::filesystem::perms::owner_all);
    }
    const char* const ofChild = std::getenv("CERTKERN_TEST_CONFIG");
    const std::string configuration =
        made.write("config.toml",
                   "[paths]\nlocal_stores = '" + made.path("user") + "'\nglobal_stores = '"
                       + made.path("machine")
                       + "'\n[cryptography.OID.\"EncodingType 0\".CertDllCreateCertificateChainEngine.Config]\n"
                         "ChainUrlRetrievalTimeoutMilliseconds = 65536\n"
                         "ChainRevAccumulativeUrlRetrievalTimeoutMilliseconds = 65535\n"
                       + more + (ofChild ? ofChild : ""));
    setenv("CERTKERN_CONFIG", configuration.c_str(), 1);
    return made;
  }();
  return directory;
}

// Leaves exactly these rows in a system store, in the machine's file: a root of the user's own needs his consent.
inline void FillSystemStore(const wchar_t* name, const ChainObjects& objects, const std::string& rows) {
  Sandbox();
  for (const DWORD location : {CERT_SYSTEM_STORE_CURRENT_USER, CERT_SYSTEM_STORE_LOCAL_MACHINE}) {
    const MemoryStore store(CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, location, name));
    ASSERT_TRUE(store) << GetLastError();
    while (const PCCERT_CONTEXT certificate = CertEnumCertificatesInStore(store.get(), nullptr))
      ASSERT_TRUE(CertDeleteCertificateFromStore(certificate));
    while (const PCCRL_CONTEXT crl = CertEnumCRLsInStore(store.get(), nullptr))
      ASSERT_TRUE(CertDeleteCRLFromStore(crl));
    if (location == CERT_SYSTEM_STORE_LOCAL_MACHINE) objects.addTo(store.get(), rows);
  }
}

// "20250102" or "20250102030405", in UTC.
inline FILETIME Moment(std::string text) {
  text.resize(14, '0');
  tm parts{};
  EXPECT_TRUE(strptime(text.c_str(), "%Y%m%d%H%M%S", &parts)) << text;
  const uint64_t ticks = (static_cast<uint64_t>(timegm(&parts)) + 11644473600u) * 10000000u;
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

struct Question {
  DWORD flags = 0;
  std::string at = {};  // empty: now
  HCERTSTORE additional = nullptr;
  std::vector<const char*> usages = {};
  DWORD usageType = USAGE_MATCH_TYPE_AND;
  bool wire = false;  // whether URLs may be fetched
};

// The failure of the call is an empty handle.
inline ChainHandle AskChain(HCERTCHAINENGINE engine, PCCERT_CONTEXT certificate,
                            const Question& question = {}) {
  constexpr DWORD kNoWire = CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL | CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY;
  CERT_CHAIN_PARA para{};
  para.cbSize = sizeof para;
  para.RequestedUsage.dwType = question.usageType;
  para.RequestedUsage.Usage.cUsageIdentifier = static_cast<DWORD>(question.usages.size());
  para.RequestedUsage.Usage.rgpszUsageIdentifier = const_cast<LPSTR*>(question.usages.data());
  FILETIME at{};
  if (!question.at.empty()) at = Moment(question.at);
  ChainHandle chain;
  if (!CertGetCertificateChain(engine, certificate, question.at.empty() ? nullptr : &at, question.additional,
                               &para, question.flags | (question.wire ? 0 : kNoWire), nullptr, chain.out())) {
    EXPECT_FALSE(chain) << "written by a failed call";
  }
  return chain;
}

// End certificate first: "leaf inter:0x40 root = 0x40". A good one has no numbers: "leaf inter root".
inline std::string Verdict(const ChainObjects& objects, PCCERT_CHAIN_CONTEXT chain) {
  const auto status = [](const char* before, DWORD value) {
    char text[16];
    snprintf(text, sizeof text, "%s0x%X", before, value);
    return std::string(value ? text : "");
  };
  if (!chain) return "none";
  std::string verdict;
  const CERT_SIMPLE_CHAIN& simple = *chain->rgpChain[0];
  for (DWORD i = 0; i < simple.cElement; ++i) {
    const CERT_CHAIN_ELEMENT& element = *simple.rgpElement[i];
    verdict.append(i ? " " : "").append(objects.nameOf(element.pCertContext));
    verdict.append(status(":", element.TrustStatus.dwErrorStatus));
    EXPECT_EQ(element.TrustStatus.dwInfoStatus, 0u);
  }
  EXPECT_EQ(simple.TrustStatus.dwErrorStatus, chain->TrustStatus.dwErrorStatus);
  return verdict + status(" = ", chain->TrustStatus.dwErrorStatus);
}

// An engine that trusts some rows, which are put into "Root", and knows others: certificates and lists.
class ChainWorld {
 public:
  ChainWorld(const ChainObjects& objects, const std::string& roots, const std::string& others)
      : objects_(objects), roots_(objects.store(roots)), others_(objects.store(others)) {
    FillSystemStore(L"Root", objects, roots);
    CERT_CHAIN_ENGINE_CONFIG config{};
    config.cbSize = sizeof config;
    config.hRestrictedRoot = roots_.get();
    config.hRestrictedOther = others_.get();
    EXPECT_TRUE(CertCreateCertificateChainEngine(&config, engine_.out())) << GetLastError();
  }

  HCERTCHAINENGINE engine() const { return engine_.get(); }
  HCERTSTORE others() const { return others_.get(); }
  ChainHandle ask(const std::string& row, const Question& question = {}) const {
    return AskChain(engine(), objects_.certificate(row), question);
  }
  std::string verdict(const std::string& row, const Question& question = {}) const {
    return Verdict(objects_, ask(row, question).get());
  }

 private:
  const ChainObjects& objects_;
  const MemoryStore roots_, others_;
  EngineHandle engine_;
};

}  // namespace certkern::test

#endif
