// Engines: what a configuration may say, which stores are searched and which are trusted.
#include "certkern/chain/engine.h"

#include <certkern/keykern.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>

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

// In the machine's "CA", as another process writes it.
void ReplaceAuthority(const ChainObjects& objects, const char* row) {
  const MemoryStore store(
      CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"CA"));
  while (const PCCERT_CONTEXT each = CertEnumCertificatesInStore(store.get(), nullptr))
    CertDeleteCertificateFromStore(each);
  CertAddCertificateContextToStore(store.get(), objects.certificate(row), CERT_STORE_ADD_ALWAYS, nullptr);
}

// A pipe of single bytes between two processes.
struct Pipe {
  int ends[2];
  Pipe() { EXPECT_EQ(pipe(ends), 0); }
  void send(char byte) const { EXPECT_EQ(write(ends[1], &byte, 1), 1); }
  char receive() const {
    char byte = 0;
    return read(ends[0], &byte, 1) == 1 ? byte : '\0';
  }
};

// Thousands of changes, many within one tick of the file system's clock, and one after the files had settled.
TEST_F(Engines, BuildsSeeWhatAnotherProcessHasWritten) {
  constexpr int kChanges = 2000;
  const char* const rows[] = {"inter", "cross"};
  const std::string verdicts[] = {"leaf inter root", "leaf cross other"};
  const std::string path = Sandbox().path("machine/ca.sto");
  std::string images[2];
  for (int i : {0, 1}) {
    ReplaceAuthority(objects(), rows[i]);
    images[i] = Sandbox().read("machine/ca.sto");
  }
  const PCCERT_CONTEXT leaf = objects().certificate("leaf");
  const Pipe toWriter, toReader;
  const pid_t writer = fork();
  if (!writer) {
    // by turns into the file itself and into another that takes its place
    for (int times = 0; const char row = toWriter.receive(); ++times) {
      const std::string& image = images[row - '0'];
      const std::string to = times % 3 ? path : Sandbox().path("machine/next");
      std::ofstream(to, std::ios::binary | std::ios::trunc) << image;
      if (to != path) std::filesystem::rename(to, path);
      toReader.send('x');
    }
    _exit(0);
  }
  const auto change = [&](int row) {
    toWriter.send(static_cast<char>('0' + row));
    return toReader.receive();
  };
  CERT_CHAIN_ENGINE_CONFIG config{};
  config.cbSize = sizeof config;
  EngineHandle withoutStores;
  ASSERT_TRUE(CertCreateCertificateChainEngine(&config, withoutStores.out()));
  int wrong = 0;
  const auto look = [&](int row) {
    for (const HCERTCHAINENGINE engine : {HCERTCHAINENGINE{}, withoutStores.get()})
      wrong += Verdict(objects(), AskChain(engine, leaf).get()) != verdicts[row];
  };
  for (int i = 0; i < kChanges; ++i) {
    ASSERT_EQ(change(i % 2), 'x');
    look(i % 2);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(2200));
  for (int i = 0; i < 3; ++i) look((kChanges - 1) % 2);
  ASSERT_EQ(change(0), 'x');
  look(0);
  // the machine's file goes, and comes again
  std::filesystem::remove(path);
  EXPECT_EQ(Verdict(objects(), AskChain(nullptr, leaf).get()), "leaf = 0x10000");
  ASSERT_EQ(change(1), 'x');
  look(1);
  EXPECT_EQ(wrong, 0);
  toWriter.send('\0');
  int status = 0;
  EXPECT_EQ(waitpid(writer, &status, 0), writer);
  EXPECT_EQ(status, 0);
}

// While the store changes under them, each sees what was there at one time or the other.
TEST_F(Engines, ThreadsBuildAtOnce) {
  ReplaceAuthority(objects(), "inter");
  const PCCERT_CONTEXT leaf = objects().certificate("leaf");
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      CERT_CHAIN_PARA para{};
      para.cbSize = sizeof para;
      for (int times = 0; times < 100; ++times) {
        ChainHandle chain;
        const bool built = CertGetCertificateChain(nullptr, leaf, nullptr, nullptr, &para,
                                                   CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL, nullptr, chain.out());
        if (!built || chain->TrustStatus.dwErrorStatus || chain->rgpChain[0]->cElement != 3) ++wrong;
      }
    });
  }
  for (int i = 0; i < 50; ++i) ReplaceAuthority(objects(), i % 2 ? "inter" : "cross");
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(wrong, 0);
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

// Without a store that exists the verdict would be one over those that are left.
TEST_F(Engines, StoresThatCannotBeReadNow) {
  namespace fs = std::filesystem;
  FillSystemStore(L"CA", objects(), "inter");
  const PCCERT_CONTEXT leaf = objects().certificate("leaf");
  ASSERT_EQ(Verdict(objects(), AskChain(nullptr, leaf).get()), "leaf inter root");
  const fs::path file = Sandbox().path("user/ca.sto"), away = Sandbox().path("away.sto");
  fs::rename(file, away);
  fs::create_directory(file);
  SetLastError(ERROR_SUCCESS);
  EXPECT_FALSE(AskChain(nullptr, leaf));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_OPEN_FAILED});
  fs::remove(file);
  fs::rename(away, file);
  EXPECT_EQ(Verdict(objects(), AskChain(nullptr, leaf).get()), "leaf inter root");
}

// The sandbox's configuration says 65536 for one, 65535 for all.
TEST_F(Engines, TimeoutsOutOfRangeAreNotTaken) {
  EXPECT_EQ(ConfiguredUrlTimeout(0), 15000u);
  EXPECT_EQ(ConfiguredUrlTimeout(CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT), 65535u);
}

}  // namespace
