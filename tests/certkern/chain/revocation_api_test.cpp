// The exported functions about revocation.
#include <certkern/revocation.h>

#include "certkern/chain/chain_fixture.h"

namespace certkern::test {
namespace {

constexpr DWORD kInvalid = static_cast<DWORD>(E_INVALIDARG);
constexpr DWORD kNoMatch = static_cast<DWORD>(CRYPT_E_NO_MATCH);

const ChainObjects& Objects() {
  static const ChainObjects objects(R"(
section here  | fullname = URI:http://crl.invalid/here
section users | onlyuser = TRUE
cert root  | | | | | ca
cert other | | | /CN=root | | ca
cert inter | root | | | | ca
cert leaf  | inter | | | | ids; crlDistributionPoints = URI:http://crl.invalid/there, URI:HTTP://crl.invalid/HERE
cert away  | inter | | | | ids; crlDistributionPoints = URI:http://crl.invalid/there
cert bare  | inter
crl rootlist | root | | inter:superseded
crl cleanroot | root
crl interlist | inter
crl old     | inter | 20200101..20210101
crl delta   | inter | | | authorityKeyIdentifier = keyid; 2.5.29.27 = critical, DER:020101
crl here    | inter | | | issuingDistributionPoint = @here
crl users   | inter | | | issuingDistributionPoint = @users
crl unread  | inter | | | 2.5.29.28 = DER:0500
)");
  return objects;
}

TEST(RevocationApi, TimeValidity) {
  CRL_INFO info{};
  info.ThisUpdate = Moment("20250101");
  info.NextUpdate = Moment("20250201");
  const auto at = [&info](const char* moment) {
    FILETIME time = Moment(moment);
    return CertVerifyCRLTimeValidity(&time, &info);
  };
  EXPECT_EQ(at("20241231235959"), -1);
  EXPECT_EQ(at("20250101"), 0);
  EXPECT_EQ(at("20250201"), 0);
  EXPECT_EQ(at("20250201000001"), 1);
  EXPECT_EQ(CertVerifyCRLTimeValidity(nullptr, &info), 1);
  info.NextUpdate = {};
  EXPECT_EQ(at("20250115"), 1) << "without an end it has ended";
  SetLastError(0);
  EXPECT_EQ(CertVerifyCRLTimeValidity(nullptr, nullptr), LONG{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(RevocationApi, CrlsOfAStore) {
  constexpr DWORD kAll = CERT_STORE_SIGNATURE_FLAG | CERT_STORE_TIME_VALIDITY_FLAG | CERT_STORE_BASE_CRL_FLAG
      | CERT_STORE_DELTA_CRL_FLAG;
  const struct {
    const char* list;
    const char* issuer;
    DWORD asked, left;
  } kCases[] = {
      {"rootlist",  "root",  kAll, CERT_STORE_DELTA_CRL_FLAG                                },
      {"rootlist",  "root",  0,    0                                                        },
      {"rootlist",  "other", kAll, CERT_STORE_SIGNATURE_FLAG | CERT_STORE_DELTA_CRL_FLAG    },
      {"old",       "inter", kAll, CERT_STORE_TIME_VALIDITY_FLAG | CERT_STORE_DELTA_CRL_FLAG},
      {"delta",     "inter", kAll, CERT_STORE_BASE_CRL_FLAG                                 },
      {"interlist", nullptr, kAll,
       CERT_STORE_SIGNATURE_FLAG | CERT_STORE_NO_ISSUER_FLAG | CERT_STORE_DELTA_CRL_FLAG    },
      {"interlist", nullptr, 0,    CERT_STORE_NO_ISSUER_FLAG                                },
  };
  for (const auto& [list, issuer, asked, left] : kCases) {
    const MemoryStore store = Objects().store(list);
    DWORD flags = asked;
    const CrlHandle found(
        CertGetCRLFromStore(store.get(), issuer ? Objects().certificate(issuer) : nullptr, nullptr, &flags));
    EXPECT_TRUE(found) << list;
    EXPECT_EQ(flags, left) << list << " of " << (issuer ? issuer : "anybody");
  }
  const MemoryStore both = Objects().store("rootlist interlist old");
  DWORD flags = 0;
  PCCRL_CONTEXT each = nullptr;
  int count = 0;
  while ((each = CertGetCRLFromStore(both.get(), Objects().certificate("inter"), each, &flags))) ++count;
  EXPECT_EQ(count, 2);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(CRYPT_E_NOT_FOUND));
  EXPECT_FALSE(CertGetCRLFromStore(both.get(), nullptr, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), kInvalid);
}

TEST(RevocationApi, CrlForCertificate) {
  const struct {
    const char* certificate;
    const char* list;
    DWORD code;  // 0: TRUE
  } kCases[] = {
      {"bare", "interlist", 0                                   },
      {"leaf", "here",      0                                   },
      {"away", "here",      kNoMatch                            },
      {"bare", "here",      kNoMatch                            },
      {"leaf", "users",     kNoMatch                            },
      {"leaf", "unread",    static_cast<DWORD>(CRYPT_E_ASN1_EOD)},
  };
  for (const auto& [certificate, list, code] : kCases) {
    SetLastError(0);
    EXPECT_EQ(
        CertIsValidCRLForCertificate(Objects().certificate(certificate), Objects().crl(list), 0, nullptr),
        code == 0)
        << certificate << ' ' << list;
    EXPECT_EQ(GetLastError(), code) << certificate << ' ' << list;
  }
  EXPECT_FALSE(CertIsValidCRLForCertificate(nullptr, Objects().crl("here"), 0, nullptr));
  EXPECT_FALSE(CertIsValidCRLForCertificate(Objects().certificate("leaf"), nullptr, 0, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

// The user's engine, over what the sandbox has in "Root" and "CA".
TEST(RevocationApi, WholeChains) {
  FillSystemStore(L"Root", Objects(), "root");
  FillSystemStore(L"CA", Objects(), "inter");
  void* contexts[] = {const_cast<CERT_CONTEXT*>(Objects().certificate("bare")),
                      const_cast<CERT_CONTEXT*>(Objects().certificate("other"))};
  const MemoryStore lists = Objects().store("interlist"), good = Objects().store("cleanroot");
  const MemoryStore bad = Objects().store("rootlist");
  HCERTSTORE goodStores[] = {lists.get(), good.get()}, badStores[] = {lists.get(), bad.get()};
  CERT_REVOCATION_PARA para{};
  para.cbSize = sizeof para;
  para.cCertStore = 2;
  CERT_REVOCATION_STATUS status{};
  status.cbSize = sizeof status;
  const auto verify = [&](DWORD count, DWORD flags) {
    SetLastError(0);
    status.dwIndex = status.dwError = 99;
    return CertVerifyRevocation(X509_ASN_ENCODING, CERT_CONTEXT_REVOCATION_TYPE, count, contexts, flags,
                                &para, &status);
  };
  para.rgCertStore = goodStores;
  EXPECT_TRUE(verify(1, 0)) << std::hex << GetLastError();
  EXPECT_FALSE(verify(2, 0));
  EXPECT_EQ(status.dwIndex, 1u);
  EXPECT_EQ(status.dwError, CERT_TRUST_IS_UNTRUSTED_ROOT);
  EXPECT_EQ(GetLastError(), CERT_TRUST_IS_UNTRUSTED_ROOT);
  EXPECT_TRUE(verify(2, CERT_VERIFY_REV_CHAIN_FLAG)) << "the first only";
  para.rgCertStore = badStores;
  EXPECT_FALSE(verify(1, 0));
  EXPECT_EQ(status.dwIndex, 0u);
  EXPECT_EQ(status.dwError, CERT_TRUST_IS_REVOKED);
  para.cbSize = 16;
  EXPECT_FALSE(verify(1, 0));
  EXPECT_EQ(status.dwError, CERT_TRUST_REVOCATION_STATUS_UNKNOWN) << "the stores are beyond the record";
  para.cbSize = sizeof para;
  para.rgCertStore = nullptr;
  EXPECT_FALSE(verify(1, 0));
  EXPECT_EQ(GetLastError(), kInvalid);
  EXPECT_FALSE(verify(0, 0));
  EXPECT_FALSE(CertVerifyRevocation(1, 1, 1, nullptr, 0, nullptr, &status));
  EXPECT_FALSE(CertVerifyRevocation(1, 1, 1, contexts, 0, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), kInvalid);
}

}  // namespace
}  // namespace certkern::test
