// The policies over chains made by hand.
#include <gtest/gtest.h>

#include <certkern/errors.h>
#include <certkern/oid.h>
#include <certkern/oids.h>
#include <certkern/sv.h>

#include <cstdlib>
#include <filesystem>

#include "api/trace_recorder.h"
#include "platform/temporary_directory.h"
#include "policy/base_policy.h"
#include "policy/made_chain.h"
#include "support/hex.h"

namespace certkern {
namespace {

using test::Bytes;
using test::Concat;
using test::Der;
using test::MadeChain;
using test::MakeCertificate;
using test::MakeExtension;
using test::Sized;

constexpr DWORD kUntouched = 0x5A5A5A5A;

Bytes Raw(std::string_view text) { return {text.begin(), text.end()}; }
Bytes DnsName(std::string_view name) { return MakeExtension(17, Der(0x30, Der(0x82, Raw(name)))); }
Bytes Usages(std::initializer_list<const char*> oids) {
  Bytes list;
  for (const char* oid : oids) list = Concat({list, FromHex(oid)});
  return Der(0x30, list);
}
// 1.3.6.1.5.5.7.3.1 and .2
constexpr char kServerAuth[] = "06082B06010505070301", kClientAuth[] = "06082B06010505070302";
Bytes KeyPeriodUntil(std::string_view notAfter) {
  return MakeExtension(16, Der(0x30, Der(0x81, Raw(notAfter))));
}

struct Judgement {
  BOOL judged;
  DWORD lastError;
  DWORD error;
  LONG chain, element;
};
Judgement Judge(LPCSTR policy, PCCERT_CHAIN_CONTEXT chain, DWORD flags, void* extraPara = nullptr,
                void* extraStatus = nullptr) {
  CERT_CHAIN_POLICY_PARA para{.cbSize = sizeof para, .dwFlags = flags, .pvExtraPolicyPara = extraPara};
  CERT_CHAIN_POLICY_STATUS status{.cbSize = sizeof status,
                                  .dwError = kUntouched,
                                  .lChainIndex = 7,
                                  .lElementIndex = 7,
                                  .pvExtraPolicyStatus = extraStatus};
  SetLastError(0);
  const BOOL judged = CertVerifyCertificateChainPolicy(policy, chain, &para, &status);
  return {judged, GetLastError(), status.dwError, status.lChainIndex, status.lElementIndex};
}

TEST(BasePolicy, EachBitHasItsCodeAndItsFlags) {
  struct Row {
    DWORD status, flags, error;
  };
  constexpr Row kRows[] = {
      {0,       0,          0         },
      {0x10000, 0xFFFFFFFF, 0x800B010A},
      {0x8,     0xFFFFFFFF, 0x80096004},
      {0x4,     0xFFFFFFFF, 0x80092010},
      {0x1,     0x8,        0x800B0101},
      {0x1,     0x1,        0         },
      {0x1,     0x2,        0         },
      {0x1,     0x4,        0         },
      {0x10,    0xFFFFFFDF, 0x800B0110},
      {0x10,    0x20,       0         },
      {0x20,    0xFFFFFFEF, 0x800B0109},
      {0x20,    0x10,       0         },
      {0x400,   0xFFFFFFF7, 0x80096019},
      {0x400,   0x8,        0         },
      {0x40,    0xFFFFF0FF, 0x800B010E},
      {0x40,    0x100,      0         },
      {0x40,    0x800,      0         },
      {0x10008, 0,          0x800B010A},
      {0x1046D, 0,          0x800B010A},
      {0x465,   0,          0x800B0101},
      {0x464,   0,          0x80092010},
      {0x460,   0,          0x800B0109},
      {0x440,   0,          0x80096019},
      {0x80,    0,          0         },
  };
  for (const Row& row : kRows)
    EXPECT_EQ(JudgeTrustStatus(row.status, row.flags), row.error) << row.status << " " << row.flags;

  const MadeChain chain(CERT_TRUST_IS_REVOKED, {MakeCertificate({})});
  const Judgement judged = Judge(CERT_CHAIN_POLICY_BASE, chain.get(), 0);
  EXPECT_TRUE(judged.judged);
  EXPECT_EQ(judged.error, CRYPT_E_REVOKED);
  EXPECT_EQ(judged.chain, -1);
  EXPECT_EQ(judged.element, -1);
}

TEST(Policy, UnknownOnesAndMissingRecords) {
  const MadeChain chain(0, {MakeCertificate({})});
  EXPECT_EQ(Judge(reinterpret_cast<LPCSTR>(2), chain.get(), 0).lastError, DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(Judge("1.2.3", chain.get(), 0).lastError, DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(Judge("{C03D5610", chain.get(), 0).lastError, DWORD{ERROR_FILE_NOT_FOUND}) << "a shorter name";
  EXPECT_FALSE(Judge(nullptr, chain.get(), 0).judged);
  for (LPCSTR policy : {CERT_CHAIN_POLICY_BASE, CERT_CHAIN_POLICY_SSL}) {
    CERT_CHAIN_POLICY_PARA para{.cbSize = sizeof para, .dwFlags = 0, .pvExtraPolicyPara = nullptr};
    auto status = Sized<CERT_CHAIN_POLICY_STATUS>();
    EXPECT_FALSE(CertVerifyCertificateChainPolicy(policy, nullptr, &para, &status));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_FALSE(CertVerifyCertificateChainPolicy(policy, chain.get(), nullptr, &status));
    EXPECT_FALSE(CertVerifyCertificateChainPolicy(policy, chain.get(), &para, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  }
  EXPECT_EQ(Judge(CERT_CHAIN_POLICY_SSL, chain.get(), 0).lastError, DWORD{ERROR_INVALID_PARAMETER})
      << "no extra record";
}

// --- TLS ---

Judgement JudgeSsl(const MadeChain& chain, const wchar_t* server, DWORD checks = 0, DWORD flags = 0,
                   DWORD authType = AUTHTYPE_SERVER) {
  std::wstring name(server ? server : L"");
  SSL_EXTRA_CERT_CHAIN_POLICY_PARA extra{};
  extra.cbSize = sizeof extra;
  extra.dwAuthType = authType;
  extra.fdwChecks = checks;
  extra.pwszServerName = server ? name.data() : nullptr;
  return Judge(CERT_CHAIN_POLICY_SSL, chain.get(), flags, &extra);
}

TEST(SslPolicy, NamesOfServersOnly) {
  const MadeChain chain(0, {MakeCertificate({.subject = "cn.example", .extensions = DnsName("a.example")})});
  EXPECT_EQ(JudgeSsl(chain, L"A.Example").error, 0u);
  const Judgement other = JudgeSsl(chain, L"cn.example");
  EXPECT_EQ(other.error, CERT_E_CN_NO_MATCH) << "the common name is asked only when no name was seen";
  EXPECT_EQ(other.chain, 0);
  EXPECT_EQ(other.element, 0);
  EXPECT_EQ(JudgeSsl(chain, L"other", SECURITY_FLAG_IGNORE_CERT_CN_INVALID).error, 0u);
  EXPECT_EQ(JudgeSsl(chain, L"other", 0, 0, AUTHTYPE_CLIENT).error, 0u);
  EXPECT_EQ(JudgeSsl(chain, nullptr).error, 0u);

  const MadeChain old(0, {MakeCertificate({.subject = "cn.example"})});
  EXPECT_EQ(JudgeSsl(old, L"cn.example").error, 0u);
  EXPECT_EQ(JudgeSsl(old, L"other.example").error, CERT_E_CN_NO_MATCH);

  const MadeChain broken(
      0, {MakeCertificate({.subject = "cn.example", .extensions = MakeExtension(17, {0x82, 1, 'a'})})});
  EXPECT_FALSE(JudgeSsl(broken, L"cn.example").judged)
      << "what can't be read must not fall back to the common name";
}

TEST(SslPolicy, BaseFindingsComeFirstAndStay) {
  const MadeChain chain(CERT_TRUST_IS_UNTRUSTED_ROOT, {MakeCertificate({.subject = "cn.example"})});
  const Judgement judged = JudgeSsl(chain, L"other");
  EXPECT_EQ(judged.error, CERT_E_UNTRUSTEDROOT);
  EXPECT_EQ(judged.element, -1);
  EXPECT_EQ(JudgeSsl(chain, L"other", 0, CERT_CHAIN_POLICY_ALLOW_UNKNOWN_CA_FLAG).error, CERT_E_CN_NO_MATCH);
  EXPECT_EQ(JudgeSsl(chain, L"cn.example", 0, CERT_CHAIN_POLICY_ALLOW_UNKNOWN_CA_FLAG).error, 0u)
      << "what is overlooked does not come back by the key period";
}

TEST(SslPolicy, UsageMustComeThroughTheChain) {
  MadeChain chain(0, {MakeCertificate({.extensions = MakeExtension(37, Usages({kServerAuth}))})});
  char client[] = szOID_PKIX_KP_CLIENT_AUTH;
  LPSTR list[] = {client};
  CERT_ENHKEY_USAGE effective{.cUsageIdentifier = 1, .rgpszUsageIdentifier = list};
  EXPECT_EQ(JudgeSsl(chain, nullptr).error, 0u) << "no restriction";
  chain.element(0).pApplicationUsage = &effective;
  EXPECT_EQ(JudgeSsl(chain, nullptr).error, CERT_E_WRONG_USAGE)
      << "its own extension doesn't override the chain";
  EXPECT_EQ(JudgeSsl(chain, nullptr, SECURITY_FLAG_IGNORE_WRONG_USAGE).error, 0u);
  EXPECT_EQ(JudgeSsl(chain, nullptr, 0, 0, AUTHTYPE_CLIENT).error, 0u);
}

TEST(SslPolicy, KeyPeriodOfTheEnd) {
  const MadeChain chain(0,
                        {MakeCertificate({.subject = "a", .extensions = KeyPeriodUntil("20250601000000Z")})});
  EXPECT_EQ(JudgeSsl(chain, nullptr).error, CERT_E_EXPIRED);
  EXPECT_EQ(JudgeSsl(chain, nullptr, SECURITY_FLAG_IGNORE_CERT_DATE_INVALID).error, 0u);
  EXPECT_EQ(JudgeSsl(chain, nullptr, 0, CERT_CHAIN_POLICY_IGNORE_NOT_TIME_VALID_FLAG).error, 0u);
}

// --- key periods ---

struct StrictKeyPeriods {
  explicit StrictKeyPeriods(bool on) { _strictPkupCheck = on ? 2 : 1; }
  ~StrictKeyPeriods() { _strictPkupCheck = before; }
  uint32_t before = _strictPkupCheck;
};

FILETIME At(WORD year) {
  SYSTEMTIME parts{};
  parts.wYear = year;
  parts.wMonth = 3;
  parts.wDay = 1;
  FILETIME time{};
  SystemTimeToFileTime(&parts, &time);
  return time;
}

struct Findings {
  Judgement plain;
  DWORD bits;
  LONG element;
};
Findings JudgePeriods(const MadeChain& chain, WORD year, DWORD flags = 0) {
  FILETIME time = At(year);
  SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA para{.cbSize = sizeof para, .pTime = &time};
  SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS extra{
      .cbSize = sizeof extra, .dwError = kUntouched, .lChainIndex = 7, .lElementIndex = 7};
  const Judgement plain =
      Judge(SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD, chain.get(), flags, &para, &extra);
  return {plain, extra.dwError, extra.lElementIndex};
}

TEST(KeyPeriodPolicy, EndCertificateAtItsTime) {
  const StrictKeyPeriods lax(false);
  const MadeChain chain(
      0,
      {MakeCertificate({.subject = "a", .extensions = KeyPeriodUntil("20260101000000Z")}),
       MakeCertificate({.subject = "ca", .extensions = KeyPeriodUntil("20200101000000Z")})});
  EXPECT_EQ(JudgePeriods(chain, 2025).bits, 0u);
  EXPECT_EQ(JudgePeriods(chain, 2025).element, -1);
  const Findings late = JudgePeriods(chain, 2027);
  EXPECT_EQ(late.bits, SV_KEY_PERIOD_ERROR_CERT_OR_BASE_CRL);
  EXPECT_EQ(late.element, 0);
  EXPECT_EQ(late.plain.error, 0u) << "the plain status tells of the base policy alone";
  EXPECT_EQ(JudgePeriods(chain, 2027, SVCERT_CHAIN_POLICY_IGNORE_END_CERT_PERIOD_FLAG).bits, 0u);

  FILETIME time = At(2027);
  SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA para{.cbSize = sizeof para, .pTime = &time};
  const Judgement plain = Judge(SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD, chain.get(), 0, &para);
  EXPECT_EQ(plain.error, CERT_E_EXPIRED);
  EXPECT_EQ(plain.element, 0);
}

TEST(KeyPeriodPolicy, IssuersOnlyWhenStrict) {
  const StrictKeyPeriods strict(true);
  const Bytes end = MakeCertificate({.subject = "a"});  // from 2025 on
  const MadeChain good(
      0, {end, MakeCertificate({.subject = "ca", .extensions = KeyPeriodUntil("20260101000000Z")})});
  EXPECT_EQ(JudgePeriods(good, 2025).bits, 0u);
  const MadeChain late(
      0, {end, MakeCertificate({.subject = "ca", .extensions = KeyPeriodUntil("20240101000000Z")})});
  const Findings found = JudgePeriods(late, 2025);
  EXPECT_EQ(found.bits, SV_KEY_PERIOD_ERROR_CERT_OR_BASE_CRL);
  EXPECT_EQ(found.element, 1);
}

TEST(KeyPeriodPolicy, PartsThatAreMissing) {
  const StrictKeyPeriods strict(true);
  const Bytes any = MakeCertificate({});
  const auto refused = [](const MadeChain& chain) {
    const Judgement judged = JudgePeriods(chain, 2025).plain;
    return !judged.judged && judged.lastError == ERROR_INVALID_PARAMETER;
  };
  MadeChain chain(0, {any, any});
  EXPECT_FALSE(refused(chain));
  chain.element(1).pCertContext = nullptr;
  EXPECT_TRUE(refused(chain)) << "no certificate";
  chain.slot(1) = nullptr;
  EXPECT_TRUE(refused(chain)) << "no element";
  MadeChain two(0, {any});
  PCERT_SIMPLE_CHAIN paths[] = {*two.context().rgpChain, nullptr};
  two.context().cChain = 2;
  two.context().rgpChain = paths;
  EXPECT_TRUE(refused(two)) << "no path";
  CERT_SIMPLE_CHAIN hollow = *paths[0];
  hollow.rgpElement = nullptr;
  paths[1] = &hollow;
  EXPECT_TRUE(refused(two)) << "no elements";
}

TEST(KeyPeriodPolicy, ListsOfTheIssuerWhenStrict) {
  const StrictKeyPeriods strict(true);
  // lists are compared with the issuer of their element: "ca" until 2026
  MadeChain chain(0,
                  {MakeCertificate({.subject = "a"}),
                   MakeCertificate({.subject = "ca", .extensions = KeyPeriodUntil("20260601000000Z")})});
  const auto early = test::CreateCrl(test::MakeCrl({.thisUpdate = "260101000000Z"}));
  const auto late = test::CreateCrl(test::MakeCrl({.thisUpdate = "270101000000Z"}));
  const auto foreign = test::CreateCrl(test::MakeCrl({.issuer = "other", .thisUpdate = "270101000000Z"}));
  auto crls = Sized<CERT_REVOCATION_CRL_INFO>();
  crls.pBaseCrlContext = early.get();
  auto revocation = Sized<CERT_REVOCATION_INFO>();
  revocation.pCrlInfo = &crls;
  chain.element(0).pRevocationInfo = &revocation;
  EXPECT_EQ(JudgePeriods(chain, 2025).bits, 0u);
  crls.pDeltaCrlContext = late.get();
  EXPECT_EQ(JudgePeriods(chain, 2025).bits, SV_KEY_PERIOD_ERROR_DELTA_CRL);
  crls.pBaseCrlContext = late.get();
  EXPECT_EQ(JudgePeriods(chain, 2025).bits, SV_KEY_PERIOD_ERROR_CERT_OR_BASE_CRL);
  crls.pBaseCrlContext = foreign.get();
  EXPECT_EQ(JudgePeriods(chain, 2025).bits, 0u) << "not the issuer's list";
}

TEST(KeyPeriodPolicy, RecordsOfOtherSizes) {
  const MadeChain chain(0, {MakeCertificate({})});
  CERT_CHAIN_POLICY_PARA para{.cbSize = sizeof para, .dwFlags = 0, .pvExtraPolicyPara = nullptr};
  auto status = Sized<CERT_CHAIN_POLICY_STATUS>();
  SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA extraPara{.cbSize = 17, .pTime = nullptr};
  SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS extraStatus{};
  extraStatus.cbSize = 15;
  const auto judge = [&](PCERT_CHAIN_POLICY_PARA given) {
    return CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy(
        SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD, chain.get(), given, &status);
  };
  EXPECT_TRUE(judge(nullptr)) << "flags of 0";
  EXPECT_TRUE(judge(&para));
  status.cbSize = 23;
  EXPECT_FALSE(judge(&para));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  status.cbSize = 32;
  EXPECT_TRUE(judge(&para));
  para.pvExtraPolicyPara = &extraPara;
  EXPECT_FALSE(judge(&para));
  extraPara.cbSize = 4;
  EXPECT_TRUE(judge(&para));
  status.pvExtraPolicyStatus = &extraStatus;
  EXPECT_FALSE(judge(&para));
  para.cbSize = 24;
  EXPECT_FALSE(judge(&para));

  const MadeChain broken(0, {MakeCertificate({.extensions = MakeExtension(16, {0x30, 5, 1})})});
  EXPECT_EQ(JudgePeriods(broken, 2025).plain.lastError, E_FAIL);
}

// --- one purpose ---

TEST(ApplicationUsage, RowByRow) {
  const Bytes both = MakeExtension(37, Usages({kServerAuth, kClientAuth}));
  const auto two = test::CreateCertificate(MakeCertificate({.extensions = both}));
  const auto plain = test::CreateCertificate(MakeCertificate({}));
  const Bytes criticalOne =
      Der(0x30, Concat({FromHex("0603551D25"), FromHex("0101FF"), Der(4, Usages({kServerAuth}))}));
  const auto critical = test::CreateCertificate(MakeCertificate({.extensions = criticalOne}));
  char client[] = szOID_PKIX_KP_CLIENT_AUTH;
  LPSTR list[] = {client};
  const CERT_ENHKEY_USAGE onlyClient{.cUsageIdentifier = 1, .rgpszUsageIdentifier = list};
  struct Row {
    PCCERT_CONTEXT certificate;
    const CERT_ENHKEY_USAGE* effective;
    BOOL own, single, mustBeEffective, requireEffective;
    DWORD status;
  };
  const Row kRows[] = {
      {plain.get(),    nullptr,     0, 0, 0, 0, SV_USAGE_VALID                 },
      {plain.get(),    nullptr,     0, 0, 0, 1, SV_USAGE_NOT_VALID             },
      {plain.get(),    nullptr,     1, 0, 0, 0, SV_USAGE_NOT_VALID             },
      {two.get(),      nullptr,     1, 0, 0, 0, SV_USAGE_EXTENSION_NOT_CRITICAL},
      {critical.get(), nullptr,     1, 1, 0, 0, SV_USAGE_VALID                 },
      {two.get(),      nullptr,     0, 1, 0, 0, SV_USAGE_NOT_SINGLE            },
      {plain.get(),    nullptr,     0, 1, 0, 0, SV_USAGE_VALID                 },
      {two.get(),      &onlyClient, 0, 0, 1, 0, SV_USAGE_NOT_VALID             },
      {two.get(),      &onlyClient, 0, 0, 0, 0, SV_USAGE_VALID                 },
      {plain.get(),    &onlyClient, 0, 0, 0, 0, SV_USAGE_NOT_VALID             },
  };
  for (const Row& row : kRows) {
    EXPECT_EQ(IsValidByApplicationUsage(row.certificate, row.effective, szOID_PKIX_KP_SERVER_AUTH, row.own,
                                        row.single, row.mustBeEffective, row.requireEffective),
              row.status)
        << &row - kRows;
  }
  EXPECT_EQ(IsValidByApplicationUsage(nullptr, nullptr, "1", 0, 0, 0, 0), SV_USAGE_NOT_VALID);
  EXPECT_EQ(IsValidByApplicationUsage(plain.get(), nullptr, nullptr, 0, 0, 0, 0), SV_USAGE_NOT_VALID);
}

// --- what a site sets: the configuration is read once in a process, so that a child looks at it ---

TEST(ConfiguredChild, DISABLED_PoliciesAndLenientNames) {
  const MadeChain chain(0, {MakeCertificate({.subject = "cn.example", .extensions = DnsName("a.example")})});
  EXPECT_EQ(JudgeSsl(chain, L"cn.example").error, 0u) << "the common name, though a name was seen";
  EXPECT_EQ(JudgeSsl(chain, L"other").error, CERT_E_CN_NO_MATCH);
  const struct {
    const char* policy;
    BOOL judged;
    DWORD code;  // the last error, or that of the status
  } cases[] = {
      {"1.2.3.1", TRUE,  CERT_E_PURPOSE       },
      {"1.2.3.2", FALSE, ERROR_MORE_DATA      },
      {"1.2.3.3", FALSE, ERROR_DLL_INIT_FAILED},
      {"1.2.3.4", FALSE, ERROR_DLL_INIT_FAILED},
      {"1.2.3.5", FALSE, ERROR_DLL_INIT_FAILED},
      {"1.2.3.6", FALSE, ERROR_FILE_NOT_FOUND },
  };
  for (const auto& [policy, judged, code] : cases) {
    const Judgement judgement = Judge(policy, chain.get(), 0);
    EXPECT_EQ(judgement.judged, judged) << policy;
    EXPECT_EQ(judged ? judgement.error : judgement.lastError, code) << policy;
  }
}

TEST(Policy, AsTheSiteHasConfigured) {
  const test::TemporaryDirectory directory;
  const std::string configuration =
      directory.write("config.toml",
                      "[config.Parameters]\nRfc6125_NotStrict_ServerName_Check = true\n"
                      "[config.policy.OIDs]\n"
                      "'1.2.3.1' = '" POLICY_LIBRARY
                      " FindsFault'\n"
                      "'1.2.3.2' = '" POLICY_LIBRARY
                      " CannotJudge'\n"
                      "'1.2.3.3' = '" POLICY_LIBRARY
                      " NoSuchFunction'\n"
                      "'1.2.3.4' = '" POLICY_LIBRARY
                      "'\n"
                      "'1.2.3.5' = '/nowhere/library.so FindsFault'\n");
  const std::string command = "CERTKERN_CONFIG='" + configuration + "' '"
      + std::filesystem::read_symlink("/proc/self/exe").string()
      + "' --gtest_also_run_disabled_tests --gtest_filter='ConfiguredChild.*'";
  EXPECT_EQ(std::system(command.c_str()), 0);
}

// --- traces ---

std::string PolicyTrace(auto judge) {
  test::TraceRecorder recorder;
  judge();
  std::string told;
  for (const test::TraceRecord& each : recorder.records) {
    if (each.context == test::kPolicyContext) told += each.text;
  }
  return told;
}

TEST(Policy, TellsWhy) {
  constexpr char kNoExtra[] =
      "No extra status supplied. Setting pPolicyStatus->dwError = 0x%08x, pPolicyStatus->lChainIndex = 0, "
      "pPolicyStatus->lElementIndex = 0.\n"
      "Error encountered and no extra status supplied. Other checks must not be performed - returning "
      "true.\n";
  const auto reported = [&](const char* code) {
    std::string text = kNoExtra;
    return text.replace(text.find("0x%08x"), 6, code);
  };
  const MadeChain chain(0, {MakeCertificate({.subject = "cn.example"})});
  EXPECT_EQ(PolicyTrace([&] { JudgeSsl(chain, L"other"); }),
            "Certificate is valid\n" + reported("0x800b010f"));
  EXPECT_EQ(PolicyTrace([&] { JudgeSsl(chain, nullptr, SECURITY_FLAG_IGNORE_CERT_DATE_INVALID); }),
            "Certificate is valid\n"
            "SSL_EXTRA_CERT_CHAIN_POLICY_PARA contains SECURITY_FLAG_IGNORE_CERT_DATE_INVALID in fdwChecks - "
            "skipping PKUP check.\n");
  EXPECT_EQ(PolicyTrace([&] { JudgeSsl(chain, nullptr, 0, CERT_CHAIN_POLICY_IGNORE_NOT_TIME_VALID_FLAG); }),
            "Certificate is valid\n"
            "CERT_CHAIN_POLICY_PARA contains CERT_CHAIN_POLICY_IGNORE_NOT_TIME_VALID_FLAG in dwFlags - "
            "skipping PKUP check.\n");
  const MadeChain revoked(CERT_TRUST_IS_REVOKED, {MakeCertificate({})});
  EXPECT_EQ(PolicyTrace([&] { JudgeSsl(revoked, nullptr); }),
            "Original CERT_CHAIN_POLICY_SSL check returned error: 0x80092010. Other checks must not be "
            "performed - returning.\n");
  const MadeChain late(0,
                       {MakeCertificate({.subject = "a", .extensions = KeyPeriodUntil("20250601000000Z")})});
  FILETIME time = At(2026);
  SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA para{.cbSize = sizeof para, .pTime = &time};
  const std::string told =
      PolicyTrace([&] { Judge(SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD, late.get(), 0, &para); });
  EXPECT_EQ(told.substr(told.find("pOther")),
            "pOtherPolicyStatus->dwError = 0x00000000\n"
            "pOtherPolicyStatus->lChainIndex = -1, pOtherPolicyStatus->lElementIndex = -1\n"
            "No error encountered. Other checks can be performed - returning false.\n"
            "Certificate has not been valid on time (01.03.2026 00:00:00)...\n"
                + reported("0x800b0101"));
}

// The sets are the process's: this one stands last.
TEST(PolicyFunctions, OneInstalledInFrontIsAsked) {
  static struct {
    BOOL judged;
    DWORD code, error;
  } answer;
  static const PFN_CERT_VERIFY_CHAIN_POLICY kMine = [](LPCSTR, PCCERT_CHAIN_CONTEXT, PCERT_CHAIN_POLICY_PARA,
                                                       PCERT_CHAIN_POLICY_STATUS status) -> BOOL {
    status->dwError = answer.error;
    SetLastError(answer.code);
    return answer.judged;
  };
  const CRYPT_OID_FUNC_ENTRY entry{CERT_CHAIN_POLICY_BASE, reinterpret_cast<void*>(kMine)};
  ASSERT_TRUE(CryptInstallOIDFunctionAddress(nullptr, 0, CRYPT_OID_VERIFY_CERTIFICATE_CHAIN_POLICY_FUNC, 1,
                                             &entry, CRYPT_INSTALL_OID_FUNC_BEFORE_FLAG));
  const MadeChain chain(0, {MakeCertificate({})});
  answer = {TRUE, 0, 4711};
  EXPECT_EQ(Judge(CERT_CHAIN_POLICY_BASE, chain.get(), 0).error, 4711u);
  EXPECT_EQ(JudgeSsl(chain, nullptr).error, 4711u);
  answer = {FALSE, 0, 4711};
  EXPECT_EQ(JudgeSsl(chain, nullptr).error, 4711u) << "a finding, all the same";
  for (const auto& [left, code] : {
           std::pair{DWORD{5}, DWORD{5}},
           {0,        E_FAIL  }
  }) {
    answer = {FALSE, left, 0};
    const Judgement ssl = JudgeSsl(chain, nullptr);
    EXPECT_FALSE(ssl.judged);
    EXPECT_EQ(ssl.lastError, code);
    EXPECT_EQ(JudgePeriods(chain, 2025).plain.lastError, code);
  }
}

}  // namespace
}  // namespace certkern
