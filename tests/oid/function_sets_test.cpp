#include "oid/function_sets.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "api/startup.h"

using namespace certkern;

namespace {

int first, second, third;  // their addresses stand for functions
constexpr DWORD kStale = ERROR_NO_DATA;

void* AsHandle(ULONG_PTR value) { return reinterpret_cast<void*>(value); }

// The number of a function found, 0 for none; the outputs and the code must agree.
int Found(BOOL done, const void* function, const void* handle) {
  EXPECT_EQ(done != FALSE, function != nullptr);
  EXPECT_EQ(done != FALSE, handle != nullptr);
  EXPECT_EQ(GetLastError(), done ? kStale : DWORD{ERROR_FILE_NOT_FOUND});
  if (!done) return 0;
  EXPECT_EQ(reinterpret_cast<ULONG_PTR>(handle) & 3, 3u);
  return function == &first ? 1 : function == &second ? 2 : 3;
}

int Find(HCRYPTOIDFUNCSET set, DWORD type, LPCSTR oid) {
  void* function = &third;
  HCRYPTOIDFUNCADDR handle = &third;
  SetLastError(kStale);
  const BOOL done = CryptGetOIDFunctionAddress(set, type, oid, 0, &function, &handle);
  return Found(done, function, handle);
}

TEST(FunctionSets, NamesAreMadeOnceOrRefused) {
  const HCRYPTOIDFUNCSET set = CryptInitOIDFunctionSet("test.names", 0);
  ASSERT_NE(set, nullptr);
  EXPECT_EQ(reinterpret_cast<ULONG_PTR>(set) & 3, 3u);
  EXPECT_EQ(CryptInitOIDFunctionSet(std::string("test.names").c_str(), 0), set);
  EXPECT_NE(CryptInitOIDFunctionSet("test.name", 0), set);
  EXPECT_NE(CryptInitOIDFunctionSet("certdll lower case is a name of its own", 0), nullptr);
  const HCRYPTOIDFUNCSET policy = CryptInitOIDFunctionSet(CRYPT_OID_VERIFY_CERTIFICATE_CHAIN_POLICY_FUNC, 0);
  EXPECT_NE(policy, nullptr);
  EXPECT_NE(policy, set) << "a new set is not the first of the list";
  const struct {
    LPCSTR name;
    DWORD flags, code;
  } kRefused[] = {
      {nullptr,                                 0, ERROR_INVALID_PARAMETER   },
      {"test.names",                            1, ERROR_INVALID_PARAMETER   },
      {"CryptDllEncodeObject",                  0, ERROR_CALL_NOT_IMPLEMENTED},
      {"CertDllVerifyRevocation",               0, ERROR_CALL_NOT_IMPLEMENTED},
      {"CertDllVerifyCertificateChainPolicyEx", 0, ERROR_CALL_NOT_IMPLEMENTED},
      {"CryptCNG",                              0, ERROR_CALL_NOT_IMPLEMENTED},
      {"CryptSIPDll",                           0, ERROR_CALL_NOT_IMPLEMENTED},
  };
  for (const auto& [name, flags, code] : kRefused) {
    SCOPED_TRACE(name ? name : "no name");
    SetLastError(kStale);
    EXPECT_EQ(CryptInitOIDFunctionSet(name, flags), nullptr);
    EXPECT_EQ(GetLastError(), code);
    if (flags) continue;
    SetLastError(kStale);
    EXPECT_FALSE(CryptInstallOIDFunctionAddress(nullptr, 0, name, 0, nullptr, 0));
    EXPECT_EQ(GetLastError(), code);
  }
}

TEST(FunctionSets, OrderOfInstallationAndEncodingDecide) {
  std::string text = "1.2.3";
  const CRYPT_OID_FUNC_ENTRY kBoth[] = {
      {text.c_str(), &first },
      {text.c_str(), &second}
  };
  const CRYPT_OID_FUNC_ENTRY kTyped[] = {
      {"1.2.4",                          &first },
      {"7",                              &second},
      {static_cast<LPCSTR>(AsHandle(7)), &third }
  };
  const auto install = [](DWORD type, std::span<const CRYPT_OID_FUNC_ENTRY> entries, DWORD flags) {
    return CryptInstallOIDFunctionAddress(nullptr, type, "test.order", static_cast<DWORD>(entries.size()),
                                          entries.data(), flags);
  };
  ASSERT_TRUE(install(0, {}, 0)) << "makes the set";
  const HCRYPTOIDFUNCSET set = CryptInitOIDFunctionSet("test.order", 0);
  EXPECT_EQ(Find(set, 0, "1.2.3"), 0) << "empty";
  ASSERT_TRUE(install(0, kBoth, 0));
  text = "9.9.9";
  EXPECT_EQ(Find(set, 0, "1.2.3"), 1) << "copied; the first wins";
  EXPECT_EQ(Find(set, 1, "1.2.3"), 0);
  ASSERT_TRUE(install(0x10001, kTyped, 0));
  EXPECT_EQ(Find(set, 0, "1.2.4"), 0);
  EXPECT_EQ(Find(set, 1, "1.2.4"), 1);
  EXPECT_EQ(Find(set, 0x30000, "1.2.4"), 1) << "one bit in common is enough";
  EXPECT_EQ(Find(set, 2, "1.2.4"), 0);
  EXPECT_EQ(Find(set, 1, "7"), 2);
  EXPECT_EQ(Find(set, 1, static_cast<LPCSTR>(AsHandle(7))), 3) << "a number is no text";
  EXPECT_EQ(Find(set, 1, static_cast<LPCSTR>(AsHandle(8))), 0);
  EXPECT_EQ(Find(set, 1, ""), 0);
  EXPECT_EQ(Find(set, 0, nullptr), 0);
  text = "1.2.3";
  ASSERT_TRUE(install(0, kBoth, CRYPT_INSTALL_OID_FUNC_BEFORE_FLAG));
  EXPECT_EQ(Find(set, 0, "1.2.3"), 2) << "each goes in front of the one ahead of it";
}

TEST(FunctionSets, BuiltInEntriesStandBehindThoseInFront) {
  const BuiltInFunction kRows[] = {
      {"policies", static_cast<LPCSTR>(AsHandle(1)), &first },
      {"schemes",  "DEFAULT",                        nullptr}
  };
  FunctionSets sets(kRows);
  const CRYPT_OID_FUNC_ENTRY own = {static_cast<LPCSTR>(AsHandle(1)), &second};
  ASSERT_TRUE(sets.install("policies", 0, {&own, 1}, FunctionSets::Place::AtEnd));
  const HCRYPTOIDFUNCSET set = sets.findOrMake("policies");
  EXPECT_EQ(sets.find(set, 0, own.pszOID)->function, &first);
  ASSERT_TRUE(sets.install("policies", 0, {&own, 1}, FunctionSets::Place::InFront));
  EXPECT_EQ(sets.find(set, 0, own.pszOID)->function, &second);
  EXPECT_FALSE(sets.find(sets.findOrMake("schemes"), 0, CRYPT_DEFAULT_OID));
  sets.clear();
  EXPECT_FALSE(sets.find(set, 0, own.pszOID)) << "not followed any more";
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(sets.find(sets.findOrMake("policies"), 0, own.pszOID)->function, &first) << "made anew";
}

TEST(FunctionSets, DefaultsAreWalkedByHandle) {
  const CRYPT_OID_FUNC_ENTRY kEntries[] = {
      {"DEFAULT", &first },
      {"1.2.3",   &third },
      {"DEFAULT", &second}
  };
  const CRYPT_OID_FUNC_ENTRY other = {"DEFAULT", &third};
  ASSERT_TRUE(CryptInstallOIDFunctionAddress(nullptr, 1, "test.defaults", 3, kEntries, 0));
  ASSERT_TRUE(CryptInstallOIDFunctionAddress(nullptr, 2, "test.defaults", 1, &other, 0));
  const HCRYPTOIDFUNCSET set = CryptInitOIDFunctionSet("test.defaults", 0);
  void* function = nullptr;
  HCRYPTOIDFUNCADDR handle = nullptr;
  const auto next = [&](DWORD type) {
    SetLastError(kStale);
    const BOOL done = CryptGetDefaultOIDFunctionAddress(set, type, nullptr, 0, &function, &handle);
    return Found(done, function, handle);
  };
  EXPECT_EQ(next(1), 1);
  EXPECT_TRUE(CryptFreeOIDFunctionAddress(handle, 0)) << "and works all the same";
  EXPECT_EQ(next(1), 2);
  const HCRYPTOIDFUNCADDR last = handle;
  EXPECT_EQ(next(1), 0);
  EXPECT_EQ(next(2), 3);
  handle = last;
  EXPECT_EQ(next(3), 3) << "behind the entry, whatever its type";
  handle = AsHandle(0x7003);
  EXPECT_EQ(next(3), 0) << "an entry of no set is never met";

  handle = nullptr;
  EXPECT_FALSE(CryptGetDefaultOIDFunctionAddress(set, 1, L"lib.so", 0, &function, &handle));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MOD_NOT_FOUND});
}

TEST(FunctionSets, BadArguments) {
  const HCRYPTOIDFUNCSET set = CryptInitOIDFunctionSet("test.arguments", 0);
  const CRYPT_OID_FUNC_ENTRY entry = {"1.2.3", &first};
  ASSERT_TRUE(CryptInstallOIDFunctionAddress(nullptr, 0, "test.arguments", 1, &entry, 0));
  void* function = &third;
  HCRYPTOIDFUNCADDR none = nullptr, handle = &third, one = AsHandle(1), bare = AsHandle(3);
  const auto refused = [](BOOL done) {
    const DWORD code = GetLastError();
    SetLastError(kStale);
    return !done && code == ERROR_INVALID_PARAMETER;
  };
  void* const kBadSets[] = {nullptr, bare, AsHandle(0x1001), AsHandle(0x1003), static_cast<char*>(set) + 8};
  for (void* bad : kBadSets) {
    SCOPED_TRACE(bad);
    function = handle = &third;
    EXPECT_TRUE(refused(CryptGetOIDFunctionAddress(bad, 0, "1.2.3", 0, &function, &handle)));
    EXPECT_EQ(function, nullptr);
    EXPECT_TRUE(refused(CryptGetDefaultOIDFunctionAddress(bad, 0, nullptr, 0, &function, &none)));
  }
  function = &third;
  EXPECT_TRUE(refused(CryptGetOIDFunctionAddress(set, 0, "1.2.3", 2, &function, &handle)));
  EXPECT_EQ(function, nullptr);
  EXPECT_TRUE(refused(CryptGetOIDFunctionAddress(set, 0, "1.2.3", 0, nullptr, &handle)));
  EXPECT_TRUE(refused(CryptGetOIDFunctionAddress(set, 0, "1.2.3", 0, &function, nullptr)));
  EXPECT_TRUE(
      CryptGetOIDFunctionAddress(set, 0, "1.2.3", CRYPT_GET_INSTALLED_OID_FUNC_FLAG, &function, &handle));
  for (HCRYPTOIDFUNCADDR* bad : {&one, &bare}) {
    EXPECT_TRUE(refused(CryptGetDefaultOIDFunctionAddress(set, 0, nullptr, 0, &function, bad)));
    EXPECT_TRUE(refused(CryptFreeOIDFunctionAddress(*bad, 0)));
  }
  EXPECT_TRUE(refused(CryptGetDefaultOIDFunctionAddress(set, 0, nullptr, 1, &function, &none)));
  EXPECT_TRUE(refused(CryptInstallOIDFunctionAddress(&first, 0, "test.arguments", 1, &entry, 0)));
  EXPECT_TRUE(refused(CryptInstallOIDFunctionAddress(nullptr, 0, "test.arguments", 1, nullptr, 0)));
  EXPECT_TRUE(refused(CryptInstallOIDFunctionAddress(nullptr, 0, "test.arguments", 1, &entry, 2)));
  EXPECT_TRUE(refused(CryptFreeOIDFunctionAddress(handle, 1)));
  EXPECT_TRUE(CryptFreeOIDFunctionAddress(nullptr, 0));
}

TEST(FunctionSets, HandlesEndWithTheLibrary) {
  const HCRYPTOIDFUNCSET set = CryptInitOIDFunctionSet("test.end", 0);
  void* function = nullptr;
  HCRYPTOIDFUNCADDR handle = nullptr;
  EndLibrary();
  EXPECT_FALSE(CryptGetOIDFunctionAddress(set, 0, "1.2.3", 0, &function, &handle));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(CryptInitOIDFunctionSet("test.end", 0), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_DLL_INIT_FAILED});
  BeginLibrary();
  EXPECT_NE(CryptInitOIDFunctionSet("test.end", 0), nullptr);
}

TEST(FunctionSetsThread, InstallingWhileOthersLookUp) {
  std::vector<HCRYPTOIDFUNCSET> made(4);
  std::vector<std::thread> threads;
  for (HCRYPTOIDFUNCSET& slot : made) {
    threads.emplace_back([&slot] {
      const CRYPT_OID_FUNC_ENTRY entry = {"1.2.3", &first};
      for (DWORD i = 0; i < 200; ++i) {
        slot = CryptInitOIDFunctionSet("test.threads", 0);
        ASSERT_TRUE(CryptInstallOIDFunctionAddress(nullptr, 0, "test.threads", 1, &entry, i & 1));
        ASSERT_EQ(Find(slot, 0, "1.2.3"), 1);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (HCRYPTOIDFUNCSET slot : made) EXPECT_EQ(slot, made[0]);
}

}  // namespace
