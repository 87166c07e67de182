// System stores by name: which files stand behind one, what the settings change, and the enumerations. A program of its
// own, because directories and settings are read from a configuration of the test's.
#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "platform/temporary_directory.h"
#include "store/sample_objects.h"
#include "store/store_kind.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr DWORD kUser = CERT_SYSTEM_STORE_CURRENT_USER;
constexpr DWORD kMachine = CERT_SYSTEM_STORE_LOCAL_MACHINE;

// Both locations, with a file for each store of the machine.
class SystemStores : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (directory) return;  // the configuration is read once
    directory = std::make_unique<TemporaryDirectory>();
    std::filesystem::create_directory(directory->path("user"));
    std::filesystem::create_directory(directory->path("machine"));
    for (const char* path : {"user", "machine"}) {
      std::filesystem::permissions(directory->path(path), std::filesystem::perms::owner_all);
    }
    const std::string settings = "[config.Certkern.Stores.";
    const std::string configuration =
        directory->write("config.toml",
                         "[paths]\nlocal_stores = '" + directory->path("user") + "'\nglobal_stores = '"
                             + directory->path("machine") + "'\n" + settings + "Shared]\nsettings = 1\n"
                             + settings + "alone]\nsettings = 2\n" + settings + "fresh]\nsettings = 6\n");
    setenv("CERTKERN_CONFIG", configuration.c_str(), 1);
    for (const char* name : {"both", "shared", "alone"})
      directory->write("machine/" + std::string(name) + ".sto", "");
  }

  static inline std::unique_ptr<TemporaryDirectory> directory;
};

// --- enumerations ---

// What a callback was told; it stops the walk at the given call.
struct Told {
  std::vector<std::wstring> names;
  std::vector<DWORD> flags;
  std::vector<std::string> stores;
  size_t stopsAt = 100;

  bool add(const void* name, DWORD flag) {
    names.emplace_back(static_cast<const wchar_t*>(name));
    flags.push_back(flag);
    return names.size() != stopsAt;
  }
  static BOOL location(LPCWSTR name, DWORD flags, void* reserved, void* told) {
    EXPECT_EQ(reserved, nullptr);
    return static_cast<Told*>(told)->add(name, flags);
  }
  static BOOL system(const void* name, DWORD flags, PCERT_SYSTEM_STORE_INFO info, void* reserved,
                     void* told) {
    EXPECT_EQ(info->cbSize, 4u);
    EXPECT_EQ(reserved, nullptr);
    return static_cast<Told*>(told)->add(name, flags);
  }
  static BOOL physical(const void* system, DWORD flags, LPCWSTR name, PCERT_PHYSICAL_STORE_INFO info,
                       void* reserved, void* told) {
    const std::wstring text = static_cast<const wchar_t*>(system);
    EXPECT_EQ(reserved, nullptr);
    EXPECT_EQ(info->cbSize, sizeof *info);
    EXPECT_EQ(info->OpenParameters.cbData, (text.size() + 1) * 4);
    EXPECT_EQ(reinterpret_cast<wchar_t*>(info->OpenParameters.pbData), text);
    char line[64];
    std::snprintf(line, sizeof line, "%s %x %u", info->pszOpenStoreProvider, info->dwOpenFlags,
                  info->dwFlags);
    static_cast<Told*>(told)->stores.emplace_back(line);
    return static_cast<Told*>(told)->add(name, flags);
  }
};

TEST_F(SystemStores, LocationsAreListed) {
  Told told;
  SetLastError(77);
  EXPECT_TRUE(CertEnumSystemStoreLocation(0, &told, Told::location));
  EXPECT_EQ(GetLastError(), 0u);
  EXPECT_EQ(told.names, (std::vector<std::wstring>{L"CurrentUser", L"LocalMachine"}));
  EXPECT_EQ(told.flags, (std::vector<DWORD>{kUser, kMachine}));
  for (const size_t at : {1, 2}) {
    Told stopped;
    stopped.stopsAt = at;
    EXPECT_FALSE(CertEnumSystemStoreLocation(0, &stopped, Told::location));
    EXPECT_EQ(GetLastError(), DWORD{SV_E_ENUMERATION_STOPPED});
    EXPECT_EQ(stopped.names.size(), at);
  }
  EXPECT_FALSE(CertEnumSystemStoreLocation(1, &told, Told::location));
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  EXPECT_FALSE(CertEnumSystemStoreLocation(0, &told, nullptr));
}

TEST_F(SystemStores, StoresOfALocationAreListed) {
  for (const char* name : {"listed.sto", ".hidden.sto", "other.txt", "\xC3\xA4.sto"}) {
    directory->write("user/" + std::string(name), "");
  }
  std::filesystem::create_directory(directory->path("user/directory.sto"));
  const auto names = [](DWORD flags, bool& done) {
    Told told;
    SetLastError(77);
    done = CertEnumSystemStore(flags, nullptr, &told, Told::system);
    EXPECT_EQ(GetLastError(), 0u);
    for (const DWORD each : told.flags) EXPECT_EQ(each, flags);
    return std::set<std::wstring>(told.names.begin(), told.names.end());
  };
  bool done = false;
  const std::set<std::wstring> user = names(kUser | kMachine | 0x8, done);
  EXPECT_TRUE(done);
  EXPECT_TRUE(user.count(L"listed") && user.count(L"\u00E4"));
  for (const wchar_t* name : {L".hidden", L"other", L"directory", L"both"})
    EXPECT_FALSE(user.count(name)) << name;
  EXPECT_TRUE(names(kMachine, done).count(L"both"));

  Told told;
  told.stopsAt = 1;
  SetLastError(77);
  EXPECT_FALSE(CertEnumSystemStore(kMachine, nullptr, &told, Told::system));
  EXPECT_EQ(GetLastError(), 0u);
  EXPECT_EQ(told.names.size(), 1u);
  EXPECT_FALSE(CertEnumSystemStore(kMachine, nullptr, &told, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(CertEnumSystemStore(0x40000, nullptr, &told, Told::system));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(SystemStores, PhysicalStoresAreListed) {
  const struct {
    const wchar_t* name;
    DWORD flags;
    std::vector<std::string> stores;
  } kCases[] = {
      {L"both",   kUser,    {"SystemRegistry 10000 1", "System 28000 0"}},
      {L"both",   kMachine, {"SystemRegistry 20000 1"}                  },
      {L"mY",     kUser,    {"SystemRegistry 10400 1", "System 28000 0"}},
      {L"my2",    kUser,    {"SystemRegistry 10000 1", "System 28000 0"}},
      {L"shared", kUser,    {"SystemRegistry 20000 1"}                  },
      {L"alone",  kUser,    {"SystemRegistry 10000 1"}                  },
      {L"alone",  kMachine, {"SystemRegistry 20000 1"}                  },
  };
  for (const auto& [name, flags, stores] : kCases) {
    SCOPED_TRACE(testing::Message() << name << " " << flags);
    Told told;
    EXPECT_TRUE(CertEnumPhysicalStore(name, flags, &told, Told::physical));
    EXPECT_EQ(told.stores, stores);
    EXPECT_EQ(told.names.front(), L".Default");
    EXPECT_EQ(told.flags.front(), flags | 1);
    EXPECT_EQ(told.names.back(), stores.size() > 1 ? L".LocalMachine" : L".Default");
  }
  const struct {
    const wchar_t* name;
    DWORD flags;
    bool hasCallback;
    DWORD code;
  } kFaults[] = {
      {L"both", 0,       true,  ERROR_FILE_NOT_FOUND},
      {nullptr, 0x50000, false, ERROR_FILE_NOT_FOUND},
      {nullptr, kUser,   true,  E_INVALIDARG        },
      {L"",     kUser,   true,  E_INVALIDARG        },
      {L"both", kUser,   false, E_INVALIDARG        },
  };
  for (const auto& [name, flags, hasCallback, code] : kFaults) {
    Told told;
    EXPECT_FALSE(CertEnumPhysicalStore(name, flags, &told, hasCallback ? Told::physical : nullptr));
    EXPECT_EQ(GetLastError(), code);
  }
  for (const size_t at : {1, 2}) {
    Told stopped;
    stopped.stopsAt = at;
    EXPECT_FALSE(CertEnumPhysicalStore(L"both", kUser, &stopped, Told::physical));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(stopped.names.size(), at);
  }
}

// --- opening ---

// Location, read-only, whether it takes additions: "user+ machine-ro".
std::string Describe(HCERTSTORE handle) {
  std::string all;
  const StoreMembers members(*AsStore(handle));
  for (size_t i = 0; i < members.size(); ++i) {
    const CertStore& store = members[i];
    const bool machine = (store.flags & CERT_SYSTEM_STORE_LOCATION_MASK) == kMachine;
    all += i ? " " : "";
    all += machine ? "machine" : "user";
    all += store.has(CERT_STORE_READONLY_FLAG) ? "-ro" : "";
    all += members.updateFlags(i) ? "+" : "";
  }
  return all;
}

using OpenedSystemStores = SystemStores;

TEST_F(OpenedSystemStores, AreMadeOfTheirFiles) {
  const struct {
    const wchar_t* name;
    DWORD flags;
    const char* members;
  } kCases[] = {
      {L"both",   kUser,                                 "user+ machine-ro"  },
      {L"BOTH",   0,                                     "user+ machine-ro"  },
      {L"both",   kUser | CERT_STORE_READONLY_FLAG,      "user-ro machine-ro"},
      {L"both",   kMachine,                              "machine+"          },
      {L"both",   0x50000,                               "user+"             },
      {L"shared", kUser,                                 "machine+"          },
      {L"alone",  kUser,                                 "user+"             },
      {L"fresh",  kUser | CERT_STORE_OPEN_EXISTING_FLAG, "user+"             },
      {L"Root",   kUser | CERT_STORE_OPEN_EXISTING_FLAG, "user+ machine-ro"  },
      {L"cA",     kUser | CERT_STORE_OPEN_EXISTING_FLAG, "user+ machine-ro"  },
      {L"made",   kUser | CERT_STORE_CREATE_NEW_FLAG,    "user+"             },
  };
  for (const auto& [name, flags, members] : kCases) {
    SCOPED_TRACE(testing::Message() << name << " " << flags);
    HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, flags, name);
    ASSERT_NE(store, nullptr) << GetLastError();
    EXPECT_TRUE(IsCollection(*AsStore(store)));
    EXPECT_EQ(Describe(store), members);
    EXPECT_TRUE(CertCloseStore(store, CERT_CLOSE_STORE_CHECK_FLAG));
  }
  EXPECT_EQ(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, kUser | CERT_STORE_OPEN_EXISTING_FLAG, L"roots"),
            nullptr)
      << "no name is like another";
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  HCERTSTORE registry = CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_A, 0, 0, kUser, "shared");
  ASSERT_NE(registry, nullptr);
  EXPECT_FALSE(IsCollection(*AsStore(registry)));
  EXPECT_EQ(Describe(registry), "machine+") << "the settings count for one location as well";
  EXPECT_TRUE(CertCloseStore(registry, CERT_CLOSE_STORE_CHECK_FLAG));
  for (const LPCSTR provider : {CERT_STORE_PROV_SYSTEM_A, CERT_STORE_PROV_SYSTEM_W,
                                CERT_STORE_PROV_SYSTEM_REGISTRY_A, CERT_STORE_PROV_SYSTEM_REGISTRY_W}) {
    EXPECT_EQ(CertOpenStore(provider, 0, 0, kUser, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  }
}

TEST_F(OpenedSystemStores, EachHasItsOwnReferenceOnTheProvider) {
  HCRYPTPROV provider = 0;
  ASSERT_TRUE(CryptAcquireContextA(&provider, nullptr, nullptr, PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT));
  HCERTSTORE store = CertOpenSystemStoreW(provider, L"both");
  ASSERT_EQ(Describe(store), "user+ machine-ro");
  const HCERTSTORE machine = &StoreMembers(*AsStore(store))[1];
  CertDuplicateStore(machine);
  EXPECT_TRUE(CertCloseStore(store, 0));
  BYTE random;
  EXPECT_TRUE(CryptGenRandom(provider, 1, &random)) << "the machine's store is still open";
  EXPECT_TRUE(CertCloseStore(machine, 0));
  EXPECT_FALSE(CryptGenRandom(provider, 1, &random));
}

TEST_F(OpenedSystemStores, AdditionsGoToTheUsersFile) {
  const Bytes encoded = MakeCertificate({});
  const DWORD size = static_cast<DWORD>(encoded.size());
  for (int twice = 0; twice < 2; ++twice) {
    ASSERT_TRUE(CertAddEncodedCertificateToSystemStoreA("Both", encoded.data(), size)) << GetLastError();
  }
  EXPECT_NE(directory->read("user/both.sto"), "");
  EXPECT_EQ(directory->read("machine/both.sto"), "");
  const HCERTSTORE store = CertOpenSystemStore(0, "both");
  ASSERT_NE(store, nullptr);
  EXPECT_EQ(CountOf(StoreMembers(*AsStore(store))[0], ElementType::Certificate), 1u);
  EXPECT_TRUE(CertCloseStore(store, 0));
  EXPECT_FALSE(CertAddEncodedCertificateToSystemStoreW(L"both", nullptr, size));
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  EXPECT_EQ(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, kUser | CERT_STORE_DELETE_FLAG, L"both"), nullptr);
  EXPECT_EQ(GetLastError(), 0u);
  EXPECT_FALSE(std::filesystem::exists(directory->path("user/both.sto")));
  EXPECT_TRUE(std::filesystem::exists(directory->path("machine/both.sto")));
}

DWORD AddTo(HCERTSTORE store, DWORD serial) {
  const Bytes encoded = MakeCertificate({.serial = serial});
  return CertAddEncodedCertificateToStore(store, 1, encoded.data(), static_cast<DWORD>(encoded.size()),
                                          CERT_STORE_ADD_NEW, nullptr)
      ? 0
      : GetLastError();
}

// The machine's store is only read, so it stays without a file, and another open finds the file that has come since.
TEST_F(OpenedSystemStores, TheMachinesIsNotMadeAlong) {
  const HCERTSTORE user = CertOpenSystemStoreA(0, "later");
  ASSERT_EQ(Describe(user), "user+ machine-ro");
  EXPECT_FALSE(std::filesystem::exists(directory->path("machine/later.sto")));
  const HCERTSTORE machine = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, kMachine, L"later");
  EXPECT_EQ(AddTo(machine, 7), 0u);
  EXPECT_TRUE(CertCloseStore(machine, 0));
  EXPECT_TRUE(CertControlStore(user, 0, CERT_STORE_CTRL_RESYNC, nullptr));
  EXPECT_EQ(Serials(StoreMembers(*AsStore(user))[1]), "");
  const HCERTSTORE again = CertOpenSystemStoreA(0, "later");
  EXPECT_EQ(Serials(StoreMembers(*AsStore(again))[1]), "7");
  EXPECT_TRUE(CertCloseStore(again, 0));
  EXPECT_TRUE(CertCloseStore(user, 0));
}

// The store is opened before the bytes are looked at.
TEST_F(OpenedSystemStores, AnAdditionOfNothing) {
  EXPECT_FALSE(CertAddEncodedCertificateToSystemStoreA(nullptr, nullptr, 0));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER}) << "the name";
  EXPECT_FALSE(CertAddEncodedCertificateToSystemStoreW(L"nothing", nullptr, 0));
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  EXPECT_TRUE(std::filesystem::exists(directory->path("user/nothing.sto")));
}

TEST_F(OpenedSystemStores, FollowTheirFileWhereASearchBegins) {
  const auto open = [] { return CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, kUser, L"followed"); };
  const HCERTSTORE store = open();
  ASSERT_EQ(AddTo(store, 1), 0u);
  ASSERT_TRUE(CertControlStore(store, 0, CERT_STORE_CTRL_COMMIT, nullptr));
  ASSERT_TRUE(CertControlStore(store, 0, CERT_STORE_CTRL_AUTO_RESYNC, nullptr));
  const PCCERT_CONTEXT previous = CertEnumCertificatesInStore(store, nullptr);
  const HCERTSTORE other = open();
  ASSERT_EQ(AddTo(other, 2), 0u);
  ASSERT_TRUE(CertCloseStore(other, 0));
  EXPECT_EQ(CertEnumCRLsInStore(store, nullptr), nullptr);
  EXPECT_EQ(Serials(*AsStore(store)), "1") << "a search for lists does not";
  EXPECT_EQ(CertEnumCertificatesInStore(store, previous), nullptr);
  EXPECT_EQ(Serials(*AsStore(store)), "1") << "nor one that goes on";
  EXPECT_TRUE(CertificateHandle(CertEnumCertificatesInStore(store, nullptr)));
  EXPECT_EQ(Serials(*AsStore(store)), "2 1");
  EXPECT_TRUE(CertCloseStore(store, 0));
}

}  // namespace
