// Which structure types go to the extension library, with which arguments, and what happens where it, or a part of it,
// is missing. Each test that bends the loader runs in a process of its own: what was once bound stays bound.
#include "platform/extension_library.h"
#include "platform/supkern.h"
#include "support/hex.h"

#include <certkern/attributes.h>
#include <certkern/oids.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <latch>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

enum class Loader { Real, Missing, Fake };
constinit std::atomic<Loader> loader{Loader::Real};
constinit std::atomic<int> loads{0};
constinit std::latch* together = nullptr;  // where all who load wait for each other

template <typename Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// --- a library that writes down how it is called; each of its functions has a number, and so its name ---

struct Call {
  std::string function;
  DWORD encodingType;
  LPCSTR type;
  const void* in;
  DWORD inSize;
  DWORD flags;
  void* out;
  DWORD* outSize;
  bool operator==(const Call&) const = default;
};
std::vector<Call> calls;
BOOL fakeAnswer = TRUE;
DWORD fakeCode = 0;

constexpr size_t kMaxFunctions = 32;
std::array<std::string, kMaxFunctions> functions;
size_t functionCount = 0;

BOOL Answer() {
  if (fakeCode) SetLastError(fakeCode);
  return fakeAnswer;
}
template <size_t kNumber>
BOOL FakeEncode(DWORD encodingType, LPCSTR type, const void* record, BYTE* encoded, DWORD* size) {
  calls.push_back({functions[kNumber], encodingType, type, record, 0, 0, encoded, size});
  return Answer();
}
template <size_t kNumber>
BOOL FakeDecode(DWORD encodingType, LPCSTR type, const BYTE* encoded, DWORD encodedSize, DWORD flags,
                void* record, DWORD* size) {
  calls.push_back({functions[kNumber], encodingType, type, encoded, encodedSize, flags, record, size});
  return Answer();
}
template <size_t... kNumbers>
void* FakeFunction(const std::string& name, std::index_sequence<kNumbers...>) {
  static constexpr XnEncode* kEncoders[] = {FakeEncode<kNumbers>...};
  static constexpr XnDecode* kDecoders[] = {FakeDecode<kNumbers>...};
  functions[functionCount] = name;
  const size_t number = functionCount++;
  return name.ends_with("Encode") ? reinterpret_cast<void*>(kEncoders[number])
                                  : reinterpret_cast<void*>(kDecoders[number]);
}

}  // namespace

extern "C" {

void* support_load_library_registry(const char* name, int flags) {
  ++loads;
  if (together) together->arrive_and_wait();
  if (loader == Loader::Real)
    return Next<decltype(support_load_library_registry)>("support_load_library_registry")(name, flags);
  EXPECT_STREQ(name, "libextkern.so.4");
  return loader == Loader::Fake ? &calls : nullptr;
}
void* support_load_library_getaddr(void* library, const char* symbol) {
  if (loader == Loader::Real)
    return Next<decltype(support_load_library_getaddr)>("support_load_library_getaddr")(library, symbol);
  if (std::string(symbol) == "XnDllIssuerSignToolEncode") return nullptr;  // a library without this one
  return FakeFunction(symbol, std::make_index_sequence<kMaxFunctions>());
}
void support_unload_library_registry(void* library) {
  --loads;
  if (loader == Loader::Real)
    Next<decltype(support_unload_library_registry)>("support_unload_library_registry")(library);
}

}  // extern "C"

namespace {

struct Route {
  LPCSTR type;
  const char* function;  // without its direction
  bool encodes;
};
const Route kRoutes[] = {
    {"1.2.643.2.2.37.3.1",                     "XnDllGostPrivateCertificateStore",           true },
    {"1.2.643.2.2.37.3.2",                     "XnDllGostPrivateCertificateStore",           true },
    {"1.2.643.2.2.37.3.3",                     "XnDllGostPrivateCertificateStore",           true },
    {"{272ED084-4C55-42A9-AD88-A1502D9ED755}", "XnDllSigningCertificate",                    true },
    {"{42AB327A-BE56-4899-9B81-1BF2F3C5E154}", "XnDllSigningCertificateV2",                  true },
    {"{410F6306-0ADE-4485-80CC-462DEB3AD109}", "XnDllOtherSigningCertificate",               true },
    {"{E36FC6F5-4880-4CB7-BA51-1FCD92CA1453}", "XnDllPrivateKeyUsagePeriod",                 true },
    {"1.2.643.2.2.37.3.5",                     "XnDllPrivateKeyUsagePeriod",                 false},
    {"1.2.643.2.2.37.3.9",                     "XnDllPrivateKeyUsagePeriod",                 false},
    {"1.2.643.2.2.37.3.10",                    "XnDllPrivateKeyUsagePeriod",                 false},
    {"1.2.643.2.2.37.3.6",                     "XnDllPrivateKeyDeriveCounter",               false},
    {"1.2.643.2.2.37.3.11",                    "XnDllGostPrivateKeyTimeValidityControlMode", false},
    {"1.2.643.100.112",                        "XnDllIssuerSignTool",                        false}, // its encoder is missing, see above
    {RSA_CSP_PUBLICKEYBLOB,                    "XnRsaPublicKey",                             true },
};

// In a fresh process, which exits with 0 when nothing in it failed.
template <typename Body>
void InProcessOfItsOwn(const Body& body) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT((body(), std::exit(testing::Test::HasFailure())), testing::ExitedWithCode(0), "");
}

BYTE byte = 5;
DWORD size = 1;
BYTE buffer[8];

TEST(ExtensionRoutes, ArgumentsAreHandedOnUnchanged) {
  InProcessOfItsOwn([] {
    loader = Loader::Fake;
    for (const auto& [type, function, encodes] : kRoutes) {
      SCOPED_TRACE(function);
      const std::string name = function;
      calls.clear();
      EXPECT_TRUE(CryptDecodeObject(X509_ASN_ENCODING, type, &byte, 1, 0x5A5Au, buffer, &size));
      EXPECT_TRUE(calls
                  == (std::vector<Call>{
                      {name + "Decode", 1, type, &byte, 1, 0x5A5Au, buffer, &size}
      }));
      calls.clear();
      EXPECT_EQ(CryptEncodeObject(0x77, type, &byte, buffer, &size) != FALSE, encodes);
      if (!encodes) continue;
      EXPECT_TRUE(calls
                  == (std::vector<Call>{
                      {name + "Encode", 0x77, type, &byte, 0, 0, buffer, &size}
      }));
    }
    EXPECT_EQ(functionCount, 15u) << "each was looked for once";
    EXPECT_FALSE(CryptDecodeObject(1, "{272ed084-4c55-42a9-ad88-a1502d9ed755}", &byte, 1, 0, nullptr, &size));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER}) << "as spelled";
    EXPECT_FALSE(CryptDecodeObject(1, "1.2.643.100.112", &byte, 0, 0, nullptr, &size));
    EXPECT_FALSE(CryptDecodeObject(0, "1.2.643.100.112", &byte, 1, 0, nullptr, &size));
  });
}

TEST(ExtensionRoutes, FailuresKeepTheRulesOfTheEntries) {
  InProcessOfItsOwn([] {
    loader = Loader::Fake;
    fakeAnswer = FALSE;
    fakeCode = NTE_BAD_HASH;  // not one of the codes of the hand-written encoder
    EXPECT_FALSE(CryptEncodeObject(1, RSA_CSP_PUBLICKEYBLOB, &byte, buffer, &size));
    EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_HASH});
    ASSERT_EQ(calls.size(), 2u) << "once more for the size";
    EXPECT_EQ(calls[1].out, nullptr);
    EXPECT_FALSE(CryptEncodeObject(1, RSA_CSP_PUBLICKEYBLOB, &byte, nullptr, &size));
    EXPECT_EQ(calls.size(), 3u);
    fakeCode = 0;
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(CryptDecodeObject(1, RSA_CSP_PUBLICKEYBLOB, &byte, 1, 0, nullptr, &size));
    EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_ASN1_ERROR});
  });
}

TEST(ExtensionRoutes, WhatIsMissingFailsAlone) {
  InProcessOfItsOwn([] {
    loader = Loader::Missing;
    for (const Route& route : kRoutes) {
      EXPECT_FALSE(CryptDecodeObject(1, route.type, &byte, 1, 0, nullptr, &size));
      EXPECT_EQ(GetLastError(), DWORD{ERROR_MOD_NOT_FOUND});
    }
    const int reason = 1;
    size = sizeof(buffer);
    EXPECT_TRUE(CryptEncodeObject(1, "2.5.29.21", &reason, buffer, &size));
    EXPECT_FALSE(certkern::extension::XnRsaConvertPublicKeyInfo(0u, nullptr, 0u, 0u, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MOD_NOT_FOUND});
    loader = Loader::Fake;
    EXPECT_FALSE(CryptEncodeObject(1, "1.2.643.100.112", &byte, buffer, &size));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_CALL_NOT_IMPLEMENTED});
    EXPECT_TRUE(CryptDecodeObject(1, "1.2.643.100.112", &byte, 1, 0, nullptr, &size))
        << "installed meanwhile";
  });
}

TEST(ExtensionRoutes, ConcurrentFirstUseKeepsOneHandle) {
  InProcessOfItsOwn([] {
    constexpr int kThreads = 8;
    std::latch all(kThreads);
    together = &all;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([] {
        BYTE counter[] = {2, 1, 7};
        DWORD value = 0;
        DWORD room = sizeof(value);
        EXPECT_TRUE(CryptDecodeObject(1, "1.2.643.2.2.37.3.6", counter, sizeof(counter), 0, &value, &room));
        EXPECT_EQ(value, 7u);
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(loads, 1) << "all other counts were given back";
  });
}

TEST(ExtensionRoutes, TheRealLibraryServesTheEntries) {
  const std::vector<BYTE> input = FromHex("30 08 30 06 30 04 04 02 AA BB");
  SV_SIGNING_CERTIFICATE* record = nullptr;
  EXPECT_FALSE(CryptDecodeObjectEx(1, SV_SIGNING_CERTIFICATE_V2_STRUCT, input.data(), 10,
                                   CRYPT_DECODE_ALLOC_FLAG, nullptr, &record, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_ASN1_CORRUPT}) << "two octets are no SHA-256 value";

  BYTE hash[32] = {1};
  SV_CERT_HASH_ID id = {
      {    },
      { sizeof(hash), hash},
      nullptr
  };
  const SV_SIGNING_CERTIFICATE certificates = {1, &id};
  BYTE* encoded = nullptr;
  DWORD encodedSize = 0;
  ASSERT_TRUE(CryptEncodeObjectEx(1, SV_SIGNING_CERTIFICATE_V2_STRUCT, &certificates, CRYPT_ENCODE_ALLOC_FLAG,
                                  nullptr, &encoded, &encodedSize));
  ASSERT_TRUE(CryptDecodeObjectEx(1, SV_SIGNING_CERTIFICATE_V2_STRUCT, encoded, encodedSize,
                                  CRYPT_DECODE_ALLOC_FLAG, nullptr, &record, nullptr));
  EXPECT_EQ(record->rgCert[0].CertHash.cbData, sizeof(hash));
  EXPECT_EQ(record->rgCert[0].CertHash.pbData[0], 1);
  LocalFree(record);
  LocalFree(encoded);
  encodedSize = 3;
  BYTE small[3];
  EXPECT_FALSE(CryptEncodeObject(1, SV_SIGNING_CERTIFICATE_V2_STRUCT, &certificates, small, &encodedSize));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(encodedSize, 40u);
}

}  // namespace
