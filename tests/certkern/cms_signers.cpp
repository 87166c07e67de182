#include "certkern/cms_signers.h"

#include <certkern/encode.h>
#include <certkern/keys.h>
#include <certkern/name.h>
#include <certkern/sv.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "platform/temporary_directory.h"

namespace certkern::test {
namespace {

constexpr char kConfigured[] = "CERTKERN_TEST_CONFIGURED";

const TemporaryDirectory& Home() {
  static const TemporaryDirectory home;
  return home;
}

std::string WriteConfiguration(const std::string& name, const std::string& settings) {
  std::string paths = "[paths]\n";
  for (const char* each : {"local_stores", "global_stores", "local_keys", "global_keys"}) {
    std::filesystem::create_directories(Home().path(each));
    std::filesystem::permissions(Home().path(each), std::filesystem::perms::owner_all);
    paths += std::string(each) + " = '" + Home().path(each) + "'\n";
  }
  return Home().write(name, paths + settings);
}

// Before any test has the configuration read.
class OwnConfiguration : public testing::Environment {
 public:
  void SetUp() override {
    if (!std::getenv(kConfigured))
      setenv("CERTKERN_CONFIG", WriteConfiguration("config.toml", "").c_str(), 1);
  }
};
const testing::Environment* const kEnvironment =
    testing::AddGlobalTestEnvironment(new OwnConfiguration);  // the framework deletes it

FILETIME NewYear(WORD year) {
  SYSTEMTIME parts{};
  parts.wYear = year;
  parts.wMonth = parts.wDay = 1;
  FILETIME time{};
  EXPECT_TRUE(SystemTimeToFileTime(&parts, &time));
  return time;
}

Bytes NameOf(const std::wstring& text) {
  Bytes name(256);
  auto size = static_cast<DWORD>(name.size());
  EXPECT_TRUE(CertStrToNameW(X509_ASN_ENCODING, (L"CN=" + text).c_str(), CERT_X500_NAME_STR, nullptr,
                             name.data(), &size, nullptr));
  name.resize(size);
  return name;
}

Bytes PublicKey(const TestSigner& signer) {
  DWORD size = 0;
  EXPECT_TRUE(CryptExportPublicKeyInfo(signer.provider.get(), signer.spec, X509_ASN_ENCODING, nullptr, &size))
      << std::hex << GetLastError();
  Bytes record(size);
  EXPECT_TRUE(CryptExportPublicKeyInfo(signer.provider.get(), signer.spec, X509_ASN_ENCODING,
                                       reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(record.data()), &size));
  return record;
}

Bytes SignRecord(const TestSigner& signer, const CERT_INFO& record) {
  CRYPT_ALGORITHM_IDENTIFIER algorithm = record.SignatureAlgorithm;
  Bytes encoded(4096);
  auto size = static_cast<DWORD>(encoded.size());
  EXPECT_TRUE(CryptSignAndEncodeCertificate(signer.provider.get(), signer.spec, X509_ASN_ENCODING,
                                            X509_CERT_TO_BE_SIGNED, &record, &algorithm, nullptr,
                                            encoded.data(), &size))
      << std::hex << GetLastError();
  encoded.resize(size);
  return encoded;
}

}  // namespace

TestSigner MakeSigner(DWORD providerType) {
  static int count = 0;
  TestSigner signer;
  signer.container = L"signer" + std::to_wstring(getpid()) + L"-" + std::to_wstring(++count);
  signer.providerType = providerType;
  signer.spec = AT_SIGNATURE;
  EXPECT_TRUE(CryptAcquireContextW(signer.provider.out(), signer.container.c_str(), nullptr, providerType,
                                   CRYPT_NEWKEYSET))
      << std::hex << GetLastError();
  Owner<HCRYPTKEY, CryptDestroyKey> key;
  EXPECT_TRUE(CryptGenKey(signer.provider.get(), AT_SIGNATURE, 0, key.out())) << std::hex << GetLastError();
  return signer;
}

Certificate TestSigner::certificate(WORD lastYear) const {
  Bytes name = NameOf(container);
  BYTE serial[] = {7, 1};
  Bytes key = PublicKey(*this);
  CERT_INFO record{};
  record.dwVersion = CERT_V3;
  record.SerialNumber = {sizeof serial, serial};
  record.Issuer = record.Subject = {static_cast<DWORD>(name.size()), name.data()};
  record.NotBefore = NewYear(2020);
  record.NotAfter = NewYear(lastYear);
  record.SubjectPublicKeyInfo = *reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(key.data());
  const PCCRYPT_OID_INFO algorithm =
      SVCryptGetDefaultSignatureOIDInfo(record.SubjectPublicKeyInfo.Algorithm.pszObjId);
  record.SignatureAlgorithm.pszObjId = const_cast<LPSTR>(algorithm->pszOID);
  const Bytes encoded = SignRecord(*this, record);
  Certificate made(
      CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(), static_cast<DWORD>(encoded.size())));
  EXPECT_TRUE(made);
  CRYPT_KEY_PROV_INFO info{};
  info.pwszContainerName = const_cast<LPWSTR>(container.c_str());
  info.dwProvType = providerType;
  info.dwKeySpec = spec;
  EXPECT_TRUE(CertSetCertificateContextProperty(made.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
  return made;
}

Store OpenMy(DWORD location) {
  Store store(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, location, L"my"));
  EXPECT_TRUE(store) << std::hex << GetLastError();
  return store;
}

void RunWithSettings(const std::string& test, const std::string& settings) {
  const std::string configuration = WriteConfiguration("settings.toml", settings);
  const std::string program = std::filesystem::read_symlink("/proc/self/exe");
  const std::string output =
      RunShell(std::string(kConfigured) + "=1 CERTKERN_CONFIG='" + configuration + "' '" + program
               + "' --gtest_also_run_disabled_tests --gtest_filter='" + test + "' 2>&1 || { cat; exit 1; }");
  EXPECT_NE(output.find("[  PASSED  ] 1 test."), std::string::npos) << output;
}

}  // namespace certkern::test
