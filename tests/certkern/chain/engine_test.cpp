// Engines: what a configuration may say, which stores are searched and which are trusted.
#include "certkern/chain/engine.h"

#include <certkern/keykern.h>

#include "certkern/chain/chain_fixture.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr char kTable[] = R"(
cert root | | p256:root | | | ca
cert other | | | | | ca
cert inter | root | p256:inter | /CN=inter | | ca
cert cross | other | p256:inter | /CN=inter | | ca
cert leaf | inter
cert lone
)";

class Engines : public testing::Test {
 protected:
  static const ChainObjects& objects() {
    static const ChainObjects made(kTable);
    return made;
  }
  void SetUp() override {
    FillSystemStore(L"Root", objects(), "root other");
    FillSystemStore(L"CA", objects(), "");
  }

  // The code of a refusal, 0 for an engine.
  static DWORD create(CERT_CHAIN_ENGINE_CONFIG config) {
    EngineHandle engine;
    SetLastError(0);
    if (!CertCreateCertificateChainEngine(&config, engine.out())) return GetLastError();
    EXPECT_TRUE(engine);
    return 0;
  }
  static std::string verdict(const CERT_CHAIN_ENGINE_CONFIG& config, const std::string& row,
                             const Question& question = {}) {
    CERT_CHAIN_ENGINE_CONFIG copy = config;
    EngineHandle engine;
    EXPECT_TRUE(CertCreateCertificateChainEngine(&copy, engine.out())) << GetLastError();
    const ChainHandle chain = AskChain(engine.get(), objects().certificate(row), question);
    return Verdict(objects(), chain.get());
  }

  const MemoryStore root_ = objects().store("root");
  const MemoryStore both_ = objects().store("root other");
  const MemoryStore stranger_ = objects().store("root lone");
  const MemoryStore inters_ = objects().store("inter cross");
};

TEST_F(Engines, ConfigurationsThatAreRefused) {
  HCERTSTORE none = nullptr;
  CERT_CHAIN_ENGINE_CONFIG whole{};
  whole.cbSize = sizeof whole;
  const auto with = [&](auto change) {
    CERT_CHAIN_ENGINE_CONFIG config = whole;
    change(config);
    return create(config);
  };
  EXPECT_EQ(create(whole), 0u);
  EXPECT_EQ(with([](auto& c) { c.dwExclusiveFlags = 1; }), DWORD{ERROR_CALL_NOT_IMPLEMENTED});
  EXPECT_EQ(with([](auto& c) { c.dwExclusiveFlags = 1, c.cbSize = 80; }), 0u) << "out of its reach";
  EXPECT_EQ(with([](auto& c) { c.dwExclusiveFlags = 1, c.cbSize = 83; }), 0u) << "half of it";
  EXPECT_EQ(with([](auto& c) { c.dwExclusiveFlags = 1, c.cbSize = 0xFFFFFFFF; }),
            DWORD{ERROR_CALL_NOT_IMPLEMENTED});
  EXPECT_EQ(with([&](auto& c) { c.hExclusiveTrustedPeople = root_.get(); }),
            DWORD{ERROR_CALL_NOT_IMPLEMENTED});
  EXPECT_EQ(with([&](auto& c) { c.hRestrictedRoot = stranger_.get(); }), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(with([&](auto& c) { c.hExclusiveRoot = stranger_.get(); }), 0u) << "needs no consent";
  EXPECT_EQ(with([&](auto& c) { c.hRestrictedRoot = stranger_.get(), c.cbSize = 12; }), 0u)
      << "half a handle is none";
  EXPECT_EQ(with([](auto& c) { c.cAdditionalStore = 1; }), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(with([&](auto& c) { c.cAdditionalStore = 1, c.rghAdditionalStore = &none; }),
            DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(CertCreateCertificateChainEngine(nullptr, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(CertCreateCertificateChainEngine(&whole, nullptr));
}

TEST_F(Engines, NumbersAreNoEngines) {
  const auto local = reinterpret_cast<HCERTCHAINENGINE>(uintptr_t{1});
  EXPECT_FALSE(AskChain(local, objects().certificate("root")));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  CertFreeCertificateChainEngine(local);
  CertFreeCertificateChainEngine(nullptr);
  EXPECT_TRUE(CertResyncCertificateChainEngine(local));
}

TEST_F(Engines, WhatIsSearchedAndWhatIsTrusted) {
  HCERTSTORE additional = inters_.get();
  CERT_CHAIN_ENGINE_CONFIG config{};
  config.cbSize = sizeof config;
  EXPECT_EQ(verdict(config, "leaf"), "leaf = 0x10000") << "\"CA\" is empty";
  EXPECT_EQ(verdict(config, "lone"), "lone:0x20 = 0x20");
  EXPECT_EQ(verdict(config, "root"), "root") << "the user's roots stand in";
  for (HCERTSTORE CERT_CHAIN_ENGINE_CONFIG::*store :
       {&CERT_CHAIN_ENGINE_CONFIG::hRestrictedOther, &CERT_CHAIN_ENGINE_CONFIG::hRestrictedTrust}) {
    CERT_CHAIN_ENGINE_CONFIG knowing = config;
    knowing.*store = inters_.get();
    EXPECT_EQ(verdict(knowing, "leaf"), "leaf cross other");
  }
  config.cAdditionalStore = 1;
  config.rghAdditionalStore = &additional;
  EXPECT_EQ(verdict(config, "leaf"), "leaf cross other");
  config.hRestrictedRoot = root_.get();
  EXPECT_EQ(verdict(config, "leaf"), "leaf inter root");
  EXPECT_EQ(verdict(config, "other"), "other") << "the user's own root needs no engine's blessing";
  config.hExclusiveRoot = stranger_.get();
  EXPECT_EQ(verdict(config, "lone"), "lone");
  EXPECT_EQ(verdict(config, "other"), "other:0x20 = 0x20") << "now it does";
  config.cbSize = offsetof(CERT_CHAIN_ENGINE_CONFIG, hExclusiveRoot);
  EXPECT_EQ(verdict(config, "lone"), "lone:0x20 = 0x20") << "out of its reach";
}

TEST_F(Engines, CallersStores) {
  CERT_CHAIN_ENGINE_CONFIG config{};
  config.cbSize = sizeof config;
  EXPECT_EQ(verdict(config, "leaf", {.additional = inters_.get()}), "leaf cross other");
  const MemoryStore own = objects().store("cross leaf");
  const CertificateHandle leaf(CertEnumCertificatesInStore(own.get(), nullptr));
  ASSERT_EQ(objects().nameOf(leaf.get()), "leaf");
  EngineHandle engine;
  ASSERT_TRUE(CertCreateCertificateChainEngine(&config, engine.out()));
  EXPECT_EQ(Verdict(objects(), AskChain(engine.get(), leaf.get()).get()), "leaf cross other");
  const MemoryStore untrusted = objects().store("lone");
  EXPECT_EQ(verdict(config, "lone", {.additional = untrusted.get()}), "lone:0x20 = 0x20");
}

TEST_F(Engines, HoldItsStoresOpen) {
  MemoryStore other = objects().store("inter");
  CERT_CHAIN_ENGINE_CONFIG config{};
  config.cbSize = sizeof config;
  config.hRestrictedOther = other.get();
  EngineHandle engine;
  ASSERT_TRUE(CertCreateCertificateChainEngine(&config, engine.out()));
  other.reset();
  ChainHandle chain = AskChain(engine.get(), objects().certificate("leaf"));
  engine.reset();
  EXPECT_EQ(Verdict(objects(), chain.get()), "leaf inter root") << "a chain needs no engine";
}

// Stores that the process opened once see what is put into them later.
TEST_F(Engines, TheUsersOwn) {
  const auto ask = [](const std::string& row) {
    return Verdict(objects(), AskChain(nullptr, objects().certificate(row)).get());
  };
  EXPECT_EQ(ask("leaf"), "leaf = 0x10000");
  FillSystemStore(L"CA", objects(), "inter");
  EXPECT_EQ(ask("leaf"), "leaf inter root");
  FillSystemStore(L"Root", objects(), "other");
  EXPECT_EQ(ask("leaf"), "leaf inter = 0x10000");
}

// In a process that has no engine yet: where there can be no store there is no engine, but does not spoil the next try.
TEST_F(Engines, TheUsersOwnMayComeLate) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto tryTwice = [] {
    namespace fs = std::filesystem;
    const PCCERT_CONTEXT root = objects().certificate("root");
    fs::rename(Sandbox().path("user"), Sandbox().path("away"));
    Sandbox().write("user", "a file where the directory should be");
    const bool failed = !AskChain(nullptr, root) && GetLastError() == ERROR_DLL_INIT_FAILED;
    fs::remove(Sandbox().path("user"));
    fs::rename(Sandbox().path("away"), Sandbox().path("user"));
    std::exit(failed && Verdict(objects(), AskChain(nullptr, root).get()) == "root" ? 0 : 1);
  };
  EXPECT_EXIT(tryTwice(), testing::ExitedWithCode(0), "");
}

// The sandbox's configuration says 65536 for one, 65535 for all.
TEST_F(Engines, TimeoutsOutOfRangeAreNotTaken) {
  EXPECT_EQ(ConfiguredUrlTimeout(0), 15000u);
  EXPECT_EQ(ConfiguredUrlTimeout(CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT), 65535u);
}

}  // namespace
