// Providers: how they are named, opened, listed and found.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/owner.h"

namespace {

using ProviderHandle = certkern::Owner<HCRYPTPROV, CryptReleaseContext>;

constexpr DWORD kTypes[] = {PROV_RSA_FULL,     PROV_EC_ECDSA_FULL, PROV_RSA_AES,      PROV_EDDSA,
                            PROV_GOST_2001_DH, PROV_GOST_2012_256, PROV_GOST_2012_512};

// Name by type, through both calls of each step.
template <class Character, class Enumerate>
std::map<DWORD, std::basic_string<Character>> Enumerated(const Enumerate& enumerate) {
  std::map<DWORD, std::basic_string<Character>> names;
  for (DWORD index = 0;; ++index) {
    DWORD type = 0;
    DWORD size = 0;
    if (!enumerate(index, nullptr, 0, &type, nullptr, &size)) break;
    std::basic_string<Character> name(size / sizeof(Character), Character{});
    DWORD less = size - 1;
    EXPECT_FALSE(enumerate(index, nullptr, 0, &type, name.data(), &less));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(less, size);
    EXPECT_TRUE(enumerate(index, nullptr, 0, &type, name.data(), &size));
    EXPECT_EQ(name.back(), Character{});
    name.pop_back();
    names.emplace(type, name);
  }
  EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_MORE_ITEMS});
  return names;
}

TEST(Provider, EnumerationsAgree) {
  const auto narrow = Enumerated<char>(CryptEnumProvidersA);
  const auto wide = Enumerated<wchar_t>(CryptEnumProvidersW);
  const auto types = Enumerated<char>(CryptEnumProviderTypesA);
  ASSERT_EQ(narrow.size(), std::size(kTypes));
  std::set<std::string> distinct;
  for (const DWORD type : kTypes) {
    SCOPED_TRACE(type);
    ASSERT_TRUE(narrow.count(type) && wide.count(type) && types.count(type));
    const std::string& name = narrow.at(type);
    distinct.insert(name);
    EXPECT_EQ(wide.at(type), std::wstring(name.begin(), name.end()));
    wchar_t buffer[128];
    DWORD size = sizeof(buffer);
    ASSERT_TRUE(CryptGetDefaultProviderW(type, nullptr, CRYPT_MACHINE_DEFAULT, buffer, &size));
    EXPECT_EQ(buffer, wide.at(type));
    EXPECT_EQ(size, (name.size() + 1) * sizeof(wchar_t));

    // by name and by type: the same one
    ProviderHandle provider;
    ASSERT_TRUE(
        CryptAcquireContextW(provider.out(), nullptr, wide.at(type).c_str(), type, CRYPT_VERIFYCONTEXT));
    ASSERT_TRUE(
        CryptAcquireContextA(provider.out(), "", name.c_str(), type, CRYPT_VERIFYCONTEXT | CRYPT_SILENT));
    char got[128];
    size = sizeof(got);
    ASSERT_TRUE(CryptGetProvParam(provider.get(), PP_NAME, reinterpret_cast<BYTE*>(got), &size, 0));
    EXPECT_EQ(got, name);
    DWORD gotType = 0;
    size = sizeof(gotType);
    ASSERT_TRUE(CryptGetProvParam(provider.get(), PP_PROVTYPE, reinterpret_cast<BYTE*>(&gotType), &size, 0));
    EXPECT_EQ(gotType, type);
  }
  EXPECT_EQ(distinct.size(), std::size(kTypes)) << "a name stands for one type";
}

TEST(Provider, RefusedAcquisitions) {
  const std::string gost = Enumerated<char>(CryptEnumProvidersA).at(PROV_GOST_2012_256);
  const struct {
    const char* name;
    const char* container;
    const char* provider;
    DWORD type;
    DWORD flags;
    DWORD code;
  } kCases[] = {
      {"no type",                nullptr, nullptr,      0,                  CRYPT_VERIFYCONTEXT,     NTE_BAD_PROV_TYPE   },
      {"an unknown type",        nullptr, nullptr,      13,                 CRYPT_VERIFYCONTEXT,     NTE_BAD_PROV_TYPE   },
      {"an unknown name",        nullptr, "nobody",     PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT,     NTE_KEYSET_NOT_DEF  },
      {"another type's name",    nullptr, gost.c_str(), PROV_RSA_AES,       CRYPT_VERIFYCONTEXT,
       NTE_PROV_TYPE_NO_MATCH                                                                                            },
      {"new, without container", nullptr, nullptr,      PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT | 8,
       NTE_BAD_FLAGS                                                                                                     },
      {"a container",            "keys",  nullptr,      PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT,     NTE_BAD_KEYSET_PARAM},
  };
  for (const auto& [name, container, provider, type, flags, code] : kCases) {
    SCOPED_TRACE(name);
    HCRYPTPROV handle = 0;
    SetLastError(0);
    EXPECT_FALSE(CryptAcquireContextA(&handle, container, provider, type, flags));
    EXPECT_EQ(GetLastError(), code);
    EXPECT_EQ(handle, 0u);
  }
  EXPECT_FALSE(CryptAcquireContextA(nullptr, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT));
}

template <class Entry>
std::vector<Entry> ListAlgorithms(HCRYPTPROV provider, DWORD param) {
  std::vector<Entry> entries;
  Entry entry{};
  DWORD size = sizeof(entry);
  DWORD flags = CRYPT_FIRST;
  for (; CryptGetProvParam(provider, param, reinterpret_cast<BYTE*>(&entry), &size, flags); flags = 0) {
    EXPECT_EQ(size, sizeof(entry));
    EXPECT_EQ(std::strlen(entry.szName) + 1, entry.dwNameLen);
    entries.push_back(entry);
    DWORD asked = 0;  // must not move on
    CryptGetProvParam(provider, param, nullptr, &asked, 0);
  }
  EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_MORE_ITEMS});
  return entries;
}

TEST(Provider, ListsWhatItHashes) {
  for (const DWORD type : kTypes) {
    SCOPED_TRACE(type);
    const ProviderHandle provider(SVAPI_I_GetDefaultProvider(type));
    ASSERT_TRUE(provider);
    const auto shorts = ListAlgorithms<PROV_ENUMALGS>(provider.get(), PP_ENUMALGS);
    const auto longs = ListAlgorithms<PROV_ENUMALGS_EX>(provider.get(), PP_ENUMALGS_EX);
    ASSERT_EQ(shorts.size(), longs.size());
    std::set<ALG_ID> listed;
    for (size_t i = 0; i < shorts.size(); ++i) {
      EXPECT_EQ(shorts[i].aiAlgid, longs[i].aiAlgid);
      EXPECT_TRUE(listed.insert(shorts[i].aiAlgid).second) << "twice: " << shorts[i].szName;
      if (GET_ALG_CLASS(shorts[i].aiAlgid) != ALG_CLASS_HASH) continue;
      if (shorts[i].aiAlgid == CALG_HMAC) continue;  // begins with a key
      HCRYPTHASH hash = 0;
      ASSERT_TRUE(CryptCreateHash(provider.get(), shorts[i].aiAlgid, 0, 0, &hash)) << shorts[i].szName;
      DWORD size = 0;
      EXPECT_TRUE(CryptGetHashParam(hash, HP_HASHVAL, nullptr, &size, 0));
      EXPECT_EQ(size * 8, shorts[i].dwBitLen);
      EXPECT_TRUE(CryptDestroyHash(hash));
    }
    for (const ALG_ID id :
         {CALG_SHA1, CALG_SHA_256, CALG_GR3411_2012_256, CALG_GR3411_2012_512, CALG_GR3411}) {
      EXPECT_TRUE(listed.count(id)) << id;
    }
  }
}

// Who asks a GOST provider for its hash takes the first one that it lists.
TEST(Provider, ListsItsOwnHashFirst) {
  const struct {
    DWORD type;
    ALG_ID hash;
  } kCases[] = {
      {PROV_GOST_2012_256, CALG_GR3411_2012_256},
      {PROV_GOST_2012_512, CALG_GR3411_2012_512},
      {PROV_GOST_2001_DH,  CALG_GR3411         },
      {PROV_RSA_AES,       CALG_SHA_256        },
      {PROV_RSA_FULL,      CALG_SHA1           },
  };
  for (const auto& [type, hash] : kCases) {
    const ProviderHandle provider(SVAPI_I_GetDefaultProvider(type));
    EXPECT_EQ(ListAlgorithms<PROV_ENUMALGS>(provider.get(), PP_ENUMALGS).at(0).aiAlgid, hash) << type;
  }
}

TEST(Provider, DefaultsAreBorrowed) {
  const HCRYPTPROV first = SVAPI_I_CryptGetDefaultCryptProv(CALG_GR3411_2012_512);
  ASSERT_TRUE(first);
  EXPECT_EQ(SVAPI_I_CryptGetDefaultCryptProv(CALG_GR3411_2012_512), first) << "not a new one each time";
  DWORD type = 0;
  DWORD size = sizeof(type);
  ASSERT_TRUE(CryptGetProvParam(first, PP_PROVTYPE, reinterpret_cast<BYTE*>(&type), &size, 0));
  EXPECT_EQ(type, DWORD{PROV_GOST_2012_512});
  // who releases it all the same does not take it away from the rest of the process
  ASSERT_TRUE(CryptReleaseContext(first, 0));
  const HCRYPTPROV second = SVAPI_I_CryptGetDefaultCryptProv(CALG_GR3411_2012_512);
  HCRYPTHASH hash = 0;
  EXPECT_TRUE(CryptCreateHash(second, CALG_GR3411_2012_512, 0, 0, &hash));
  EXPECT_TRUE(CryptDestroyHash(hash));

  for (const ALG_ID none : {ALG_ID{0}, ALG_ID{CALG_MD2}}) {
    SetLastError(0);
    EXPECT_EQ(SVAPI_I_CryptGetDefaultCryptProv(none), 0u);
    EXPECT_EQ(GetLastError(), NTE_BAD_ALGID);
  }
  EXPECT_EQ(SVAPI_I_GetDefaultProvider(13), 0u);
  EXPECT_EQ(GetLastError(), NTE_BAD_PROV_TYPE);
}

TEST(ProviderConcurrent, FirstQuestionsForADefault) {
  std::vector<HCRYPTPROV> found(8);
  std::vector<std::thread> threads;
  for (HCRYPTPROV& place : found) {
    threads.emplace_back([&place] { place = SVAPI_I_CryptGetDefaultCryptProv(CALG_GR3411); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(found[0]);
  EXPECT_EQ(std::count(found.begin(), found.end(), found[0]), 8);
}

TEST(Provider, RandomBytesDiffer) {
  const ProviderHandle provider(SVAPI_I_GetDefaultProvider(PROV_GOST_2012_256));
  std::set<std::vector<BYTE>> seen;
  for (int i = 0; i < 50; ++i) {
    std::vector<BYTE> bytes(16);
    ASSERT_TRUE(CryptGenRandom(provider.get(), 16, bytes.data()));
    EXPECT_TRUE(seen.insert(bytes).second);
  }
  EXPECT_FALSE(CryptGenRandom(provider.get(), 16, nullptr));
  EXPECT_TRUE(CryptGenRandom(provider.get(), 0, nullptr));
}

}  // namespace
