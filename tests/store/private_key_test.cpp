// From a certificate to its private key, over a real container.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/keys.h>
#include <certkern/sv.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "platform/temporary_directory.h"
#include "store/sample_objects.h"

using namespace certkern;
using namespace certkern::test;

namespace {
std::function<void(HCRYPTPROV opened)> whenOpened;  // runs once, inside the next opening of a container
}  // namespace

// The linker leads the library's calls here (--wrap), and __real_ to the key level.
extern "C" {
BOOL __real_CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer, LPCWSTR szProvider,
                                 DWORD dwProvType, DWORD dwFlags);
BOOL __wrap_CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer, LPCWSTR szProvider,
                                 DWORD dwProvType, DWORD dwFlags);
BOOL __wrap_CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer, LPCWSTR szProvider,
                                 DWORD dwProvType, DWORD dwFlags) {
  const BOOL done = __real_CryptAcquireContextW(phProv, szContainer, szProvider, dwProvType, dwFlags);
  if (const auto hook = std::exchange(whenOpened, nullptr); hook && done) hook(*phProv);
  return done;
}
}

namespace {

constexpr wchar_t kContainer[] = L"private key test";
constexpr char kPin[] = "1234";

// A certificate over a container's key, signed by it.
Bytes SelfSigned(HCRYPTPROV provider) {
  DWORD size = 0;
  EXPECT_TRUE(CryptExportPublicKeyInfo(provider, AT_KEYEXCHANGE, X509_ASN_ENCODING, nullptr, &size));
  Bytes key(size);
  auto* const keyInfo = reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(key.data());
  EXPECT_TRUE(CryptExportPublicKeyInfo(provider, AT_KEYEXCHANGE, X509_ASN_ENCODING, keyInfo, &size));
  char algorithm[] = "1.2.643.7.1.1.3.2";
  Bytes name = Der(0x30, {});
  BYTE serial = 1;
  CERT_INFO info{};
  info.dwVersion = CERT_V3;
  info.SerialNumber = {1, &serial};
  info.SignatureAlgorithm.pszObjId = algorithm;
  info.Issuer = info.Subject = {static_cast<DWORD>(name.size()), name.data()};
  info.NotBefore = info.NotAfter = {0x0A000000, 0x01DC0000};
  info.SubjectPublicKeyInfo = *keyInfo;
  Bytes encoded(4096);
  size = 4096;
  EXPECT_TRUE(CryptSignAndEncodeCertificate(provider, AT_KEYEXCHANGE, X509_ASN_ENCODING,
                                            X509_CERT_TO_BE_SIGNED, &info, &info.SignatureAlgorithm, nullptr,
                                            encoded.data(), &size))
      << std::hex << GetLastError();
  encoded.resize(size);
  return encoded;
}

bool IsOpen(HCRYPTPROV provider) {
  BYTE random;
  return CryptGenRandom(provider, 1, &random);
}

// The calling thread's callback, for as long as this lives.
struct Answer {
  const char* pin;
  bool refuses = false;
  int calls = 0;
  DWORD room = 0;
  PCCERT_CONTEXT certificate = nullptr;
  CertificateHandle* last = nullptr;  // given back while it is asked about

  explicit Answer(const char* text) : pin(text) { EXPECT_TRUE(SVCryptSetPinCallback(call, this)); }
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;
  ~Answer() { EXPECT_TRUE(SVCryptSetPinCallback(nullptr, nullptr)); }

  static BOOL call(char* out, DWORD size, void* argument) {
    Answer& self = *static_cast<Answer*>(argument);
    ++self.calls;
    self.room = size;
    std::strncpy(out, self.pin, size);
    if (self.certificate) {  // the lock of the properties is held by this very thread
      DWORD needed = 0;
      EXPECT_TRUE(
          CertGetCertificateContextProperty(self.certificate, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &needed));
    }
    if (self.last) self.last->reset();
    return !self.refuses;
  }
};

class PrivateKeys : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    directory = std::make_unique<TemporaryDirectory>();
    setenv("XDG_DATA_HOME", directory->path("").c_str(), 1);
    ProviderHandle provider;
    ASSERT_TRUE(
        CryptAcquireContextW(provider.out(), kContainer, nullptr, PROV_GOST_2012_256, CRYPT_NEWKEYSET));
    Owner<HCRYPTKEY, CryptDestroyKey> key;
    ASSERT_TRUE(CryptGenKey(provider.get(), AT_KEYEXCHANGE, 0, key.out()));
    encoded = SelfSigned(provider.get());
    ASSERT_TRUE(CryptSetProvParam(provider.get(), PP_CHANGE_PIN, reinterpret_cast<const BYTE*>(kPin), 0));
  }
  static void TearDownTestSuite() {
    HCRYPTPROV none;
    CryptAcquireContextW(&none, kContainer, nullptr, PROV_GOST_2012_256, CRYPT_DELETEKEYSET);
    unsetenv("XDG_DATA_HOME");
    directory.reset();
  }
  void SetUp() override { certificate = CreateCertificate(encoded); }

  void setInfo(DWORD flags = 0, const wchar_t* container = kContainer, const char* pin = nullptr) {
    CRYPT_KEY_PROV_PARAM parameter{PP_KEYEXCHANGE_PIN, nullptr, 0, 0};
    CRYPT_KEY_PROV_INFO info{};
    info.pwszContainerName = const_cast<wchar_t*>(container);
    info.dwProvType = PROV_GOST_2012_256;
    info.dwFlags = flags;
    info.dwKeySpec = AT_KEYEXCHANGE;
    if (pin) {
      parameter.pbData = reinterpret_cast<BYTE*>(const_cast<char*>(pin));
      parameter.cbData = static_cast<DWORD>(std::strlen(pin) + 1);
      info.cProvParam = 1;
      info.rgProvParam = &parameter;
    }
    ASSERT_TRUE(CertSetCertificateContextProperty(certificate.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
  }
  // 0, or the code of the failure.
  DWORD acquire(DWORD flags) {
    SetLastError(77);
    caller.reset();
    frees = 5;
    provider = 5;
    if (!CryptAcquireCertificatePrivateKey(certificate.get(), flags, nullptr, &provider, &keySpec, &frees)) {
      EXPECT_EQ(provider, 5u) << "untouched";
      return GetLastError();
    }
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(keySpec, DWORD{AT_KEYEXCHANGE});
    if (frees) caller.reset(provider);
    return 0;
  }
  bool keeps() const {
    DWORD size = 0;
    return CertGetCertificateContextProperty(certificate.get(), CERT_KEY_CONTEXT_PROP_ID, nullptr, &size);
  }

  static inline std::unique_ptr<TemporaryDirectory> directory;
  static inline Bytes encoded;
  CertificateHandle certificate;
  HCRYPTPROV provider = 0;
  ProviderHandle caller;
  DWORD keySpec = 0;
  BOOL frees = FALSE;
};

TEST_F(PrivateKeys, WhoKeepsTheProvider) {
  const struct {
    const char* name;
    DWORD infoFlags, flags;
    bool kept;
  } kCases[] = {
      {"nobody asks",                 0,                            0,                                                    false},
      {"the information alone",       CERT_SET_KEY_CONTEXT_PROP_ID, 0,                                                    false},
      {"left to it, and it says no",  0,                            CRYPT_ACQUIRE_USE_PROV_INFO_FLAG,                     false},
      {"left to it, and it says yes", CERT_SET_KEY_CONTEXT_PROP_ID, CRYPT_ACQUIRE_USE_PROV_INFO_FLAG,                     true },
      {"the caller, silently",        0,                            CRYPT_ACQUIRE_CACHE_FLAG | CRYPT_ACQUIRE_SILENT_FLAG, true },
  };
  for (const auto& [name, infoFlags, flags, kept] : kCases) {
    SCOPED_TRACE(name);
    certificate = CreateCertificate(encoded);
    setInfo(infoFlags);
    ASSERT_EQ(acquire(flags), 0u);
    EXPECT_EQ(frees, !kept);
    EXPECT_EQ(keeps(), kept);
    const HCRYPTPROV first = provider;
    ASSERT_EQ(acquire(CRYPT_ACQUIRE_CACHE_FLAG), 0u);
    EXPECT_EQ(provider == first, kept);
    EXPECT_FALSE(frees);
    EXPECT_TRUE(IsOpen(provider));
    const HCRYPTPROV last = provider;
    EXPECT_TRUE(CertSetCertificateContextProperty(certificate.get(), CERT_KEY_CONTEXT_PROP_ID, 0, nullptr));
    EXPECT_FALSE(IsOpen(last)) << "it was the certificate's";
  }
}

TEST_F(PrivateKeys, OneThatIsKeptNeedsNoInformation) {
  setInfo();
  ASSERT_EQ(acquire(CRYPT_ACQUIRE_CACHE_FLAG), 0u);
  const HCRYPTPROV kept = provider;
  EXPECT_TRUE(CertSetCertificateContextProperty(certificate.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, nullptr));
  EXPECT_EQ(acquire(0), DWORD{CRYPT_E_NO_KEY_PROPERTY}) << "who does not ask for it does not get it";
  ASSERT_EQ(acquire(CRYPT_ACQUIRE_USE_PROV_INFO_FLAG | CRYPT_ACQUIRE_COMPARE_KEY_FLAG), 0u);
  EXPECT_EQ(provider, kept);
  certificate.reset();
  EXPECT_FALSE(IsOpen(kept)) << "gone with the last context";
}

TEST_F(PrivateKeys, Failures) {
  EXPECT_EQ(acquire(CRYPT_ACQUIRE_CACHE_FLAG), DWORD{CRYPT_E_NO_KEY_PROPERTY});
  setInfo(0, L"no such container");
  EXPECT_EQ(acquire(CRYPT_ACQUIRE_CACHE_FLAG), DWORD{NTE_KEYSET_NOT_DEF});
  setInfo(CRYPT_DELETEKEYSET);
  EXPECT_EQ(acquire(0), DWORD{NTE_BAD_FLAGS});
  setInfo(0, kContainer, "wrong");
  EXPECT_EQ(acquire(0), DWORD{SCARD_W_WRONG_CHV}) << "a parameter is refused";
  EXPECT_FALSE(keeps());
  setInfo(0, kContainer, kPin);
  EXPECT_EQ(acquire(0), 0u) << "the container is still there";
  EXPECT_FALSE(CryptAcquireCertificatePrivateKey(certificate.get(), 0, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(CryptAcquireCertificatePrivateKey(nullptr, 0, nullptr, &provider, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(PrivateKeys, Comparison) {
  setInfo();
  EXPECT_EQ(acquire(CRYPT_ACQUIRE_COMPARE_KEY_FLAG), 0u) << "no callback, no PIN";
  {
    Answer answer(kPin);
    answer.certificate = certificate.get();
    EXPECT_EQ(acquire(0), 0u);
    EXPECT_EQ(answer.calls, 0) << "who does not compare needs no PIN";
    EXPECT_EQ(acquire(CRYPT_ACQUIRE_COMPARE_KEY_FLAG), 0u);
    EXPECT_EQ(answer.calls, 1);
    EXPECT_EQ(answer.room, 32u);
    answer.pin = "one that has thirty-two characters and then some";
    EXPECT_EQ(acquire(CRYPT_ACQUIRE_COMPARE_KEY_FLAG), DWORD{SCARD_W_WRONG_CHV});
    answer.refuses = true;
    EXPECT_EQ(acquire(CRYPT_ACQUIRE_COMPARE_KEY_FLAG), DWORD{NTE_FAIL});
  }
  {
    Answer answer(kPin);
    answer.last = &certificate;
    EXPECT_EQ(acquire(CRYPT_ACQUIRE_COMPARE_KEY_FLAG), 0u) << "it lives as long as it is needed";
  }
  ProviderHandle other;
  ASSERT_TRUE(CryptAcquireContextW(other.out(), nullptr, nullptr, PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT));
  Owner<HCRYPTKEY, CryptDestroyKey> key;
  ASSERT_TRUE(CryptGenKey(other.get(), AT_KEYEXCHANGE, 0, key.out()));
  certificate = CreateCertificate(SelfSigned(other.get()));
  setInfo();
  EXPECT_EQ(acquire(CRYPT_ACQUIRE_COMPARE_KEY_FLAG), DWORD{NTE_BAD_PUBLIC_KEY});
  EXPECT_EQ(acquire(CRYPT_ACQUIRE_COMPARE_KEY_FLAG | CRYPT_ACQUIRE_CACHE_FLAG), DWORD{NTE_BAD_PUBLIC_KEY});
}

// Opening a container may run code of the application's, and the lock keeps only other threads out.
TEST_F(PrivateKeys, AKeyContextThatAppearsMeanwhileCounts) {
  setInfo();
  CERT_KEY_CONTEXT own{};
  own.cbSize = sizeof own;
  own.dwKeySpec = AT_KEYEXCHANGE;
  ASSERT_TRUE(
      CryptAcquireContextA(&own.hCryptProv, nullptr, nullptr, PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT));
  HCRYPTPROV fresh = 0;
  whenOpened = [&](HCRYPTPROV opened) {
    fresh = opened;
    EXPECT_TRUE(CertSetCertificateContextProperty(certificate.get(), CERT_KEY_CONTEXT_PROP_ID, 0, &own));
  };
  EXPECT_EQ(acquire(CRYPT_ACQUIRE_CACHE_FLAG), 0u);
  EXPECT_EQ(provider, own.hCryptProv);
  EXPECT_FALSE(frees);
  EXPECT_NE(fresh, 0u);
  EXPECT_FALSE(IsOpen(fresh)) << "nobody else has it";
  EXPECT_TRUE(IsOpen(own.hCryptProv));
}

TEST(PinCallback, EachThreadHasItsOwn) {
  PFN_SV_PIN_CALLBACK function = nullptr;
  void* argument = nullptr;
  char pin[8] = "unasked";
  ASSERT_TRUE(SVCryptGetPinFromCallback(pin, 0));
  EXPECT_STREQ(pin, "unasked") << "no room, nothing written";
  ASSERT_TRUE(SVCryptGetPinFromCallback(pin, sizeof pin));
  EXPECT_STREQ(pin, "");
  Answer answer("42");
  ASSERT_TRUE(SVCryptGetPinCallback(&function, &argument));
  EXPECT_EQ(function, &Answer::call);
  EXPECT_EQ(argument, &answer);
  ASSERT_TRUE(SVCryptGetPinFromCallback(pin, sizeof pin));
  EXPECT_STREQ(pin, "42");
  answer.refuses = true;
  EXPECT_FALSE(SVCryptGetPinFromCallback(pin, sizeof pin));
  std::thread([&] {
    ASSERT_TRUE(SVCryptGetPinCallback(&function, &argument));
    EXPECT_EQ(function, nullptr);
    EXPECT_EQ(argument, nullptr);
  }).join();
  EXPECT_FALSE(SVCryptGetPinCallback(nullptr, &argument));
  EXPECT_FALSE(SVCryptGetPinFromCallback(nullptr, 8));
}

}  // namespace
