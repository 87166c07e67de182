// CRL searches, and who issued a certificate.
#include <certkern/cert.h>
#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/name.h>
#include <certkern/revocation.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "store/crl_entries.h"
#include "store/sample_objects.h"
#include "store/store_kind.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::test;

namespace {

// By openssl, over P-256. The authority and the leaf that names its key, a leaf of it that names none, and an authority
// of the same name with another key:
//   openssl req -x509 -new -key ca.key -subj /CN=ca -days 36500 -set_serial 1
//   openssl x509 -req -in leaf.csr -CA ca.pem -CAkey ca.key -set_serial 3 -days 36500 -extfile names_key
//   the same with -set_serial 4 and authorityKeyIdentifier=none
//   openssl req -x509 -new -key other.key -subj /CN=ca -days 36500 -set_serial 2 -addext subjectKeyIdentifier=none
//   openssl req -x509 -new -key ca.key -subj /CN=ca -days 36500 -set_serial 5
constexpr char kAuthority[] =
    "3082015F30820104A003020102020101300A06082A8648CE3D040302300D310B300906035504030C0263613020170D323631"
    "3132313039353634335A180F32313236313032383039353634335A300D310B300906035504030C0263613059301306072A86"
    "48CE3D020106082A8648CE3D03010703420004F730F19BCD8F4E9DCDF22EA62AF879FBBDF7F6005A0F4B463AC5E3C5BC59F4"
    "65CEFD23CBCBAD1B85210829AE96BAB89CAF210580220FF48F850D3918E22D9B67A3533051301D0603551D0E0416041430CD"
    "3FBBFFF81B936F6F8E63D69B550E97F02418301F0603551D2304183016801430CD3FBBFFF81B936F6F8E63D69B550E97F024"
    "18300F0603551D130101FF040530030101FF300A06082A8648CE3D0403020349003046022100C1AAF201F5259808A6872212"
    "F70D236E39EB19970D9FAA8DC4D8A9DAD25FA5F8022100D7237D38F3E6952638C24822311A1C5390B10B39DABC83A421B1EE"
    "D358871E0B";
constexpr char kLeaf[] =
    "3082012F3081D6A003020102020103300A06082A8648CE3D040302300D310B300906035504030C0263613020170D32363131"
    "32313039353634335A180F32313236313032383039353634335A300F310D300B06035504030C046C6561663059301306072A"
    "8648CE3D020106082A8648CE3D030107034200043449DE253572763D4BC3794D8F60ADA8AA6F66E43805B1F9A28C1B23F8D5"
    "73E343397A89D65386129F90B52818D7EEADF3D91BE1E204624B1F7AF75DE71A5745A3233021301F0603551D230418301680"
    "1430CD3FBBFFF81B936F6F8E63D69B550E97F02418300A06082A8648CE3D0403020348003045022001B2C761E8748F769A42"
    "A0AC0338B8805575A6D3B8FA6FFEBAF3420340DE28CD022100C2E9ED959C27AF18F8F7AF182AFB3979E3AC5386B63A795D4F"
    "C764DE5F43563C";
constexpr char kBareLeaf[] =
    "3082010B3081B1A003020102020104300A06082A8648CE3D040302300D310B300906035504030C0263613020170D32363131"
    "32313039353634335A180F32313236313032383039353634335A300F310D300B06035504030C046C6561663059301306072A"
    "8648CE3D020106082A8648CE3D030107034200043449DE253572763D4BC3794D8F60ADA8AA6F66E43805B1F9A28C1B23F8D5"
    "73E343397A89D65386129F90B52818D7EEADF3D91BE1E204624B1F7AF75DE71A5745300A06082A8648CE3D04030203490030"
    "46022100BA71456821651F189C9F1F21D039CD1D1D09424F3CAA2729C262A36B660F723E022100C36CB9DA7C034D68396F19"
    "2CDFC3D55D9903E6BA0A39C2A47DC43869474262C0";
constexpr char kOther[] =
    "3082013E3081E5A003020102020102300A06082A8648CE3D040302300D310B300906035504030C0263613020170D32363131"
    "32313039353634335A180F32313236313032383039353634335A300D310B300906035504030C0263613059301306072A8648"
    "CE3D020106082A8648CE3D03010703420004F9C8B3A882CE144DEAC928CA74560B1C775C0F29E9519D811D660BCDBA5C2157"
    "5E46E5E18F7DEA969C2F1DF7973A663EDF16B901219C11D6B1C8B75DEEED2BB0A3343032301F0603551D23041830168014E0"
    "D8799B188B3CFDECF7218BD8A02CA6D162EE77300F0603551D130101FF040530030101FF300A06082A8648CE3D0403020348"
    "003045022100CB7D79C6DD1C4A8CC6E3B7682D1CF4E91D2495E188200ABAA9FFEFFDE8012D33022002EB4ED84C7B0E29680F"
    "1B968053AE01D1D8691F6755449C087D53A3A6617BDA";
constexpr char kAgain[] =
    "3082015F30820104A003020102020105300A06082A8648CE3D040302300D310B300906035504030C0263613020170D323631"
    "3132313039353634335A180F32313236313032383039353634335A300D310B300906035504030C0263613059301306072A86"
    "48CE3D020106082A8648CE3D03010703420004F730F19BCD8F4E9DCDF22EA62AF879FBBDF7F6005A0F4B463AC5E3C5BC59F4"
    "65CEFD23CBCBAD1B85210829AE96BAB89CAF210580220FF48F850D3918E22D9B67A3533051301D0603551D0E0416041430CD"
    "3FBBFFF81B936F6F8E63D69B550E97F02418301F0603551D2304183016801430CD3FBBFFF81B936F6F8E63D69B550E97F024"
    "18300F0603551D130101FF040530030101FF300A06082A8648CE3D0403020349003046022100BB737436EB9D04246BF3971C"
    "9556786E5E015E9B3B064524BD275D12B9B41F34022100A565D44B79039D3E2BB3ACDACA589CA9A2D16E4B73A347B547F24A"
    "E42BF92CB4";

CertificateHandle FromText(const char* hex) { return CreateCertificate(FromHex(hex)); }

void Add(HCERTSTORE store, const CertificateHandle& context) {
  ASSERT_TRUE(CertAddCertificateContextToStore(store, context.get(), CERT_STORE_ADD_ALWAYS, nullptr));
}

std::string Issuers(HCERTSTORE store, const CertificateHandle& subject, DWORD checks = 0) {
  std::string all;
  PCCERT_CONTEXT context = nullptr;
  DWORD flags = checks;
  while ((context = CertGetIssuerCertificateFromStore(store, subject.get(), context, &flags))) {
    const CRYPT_INTEGER_BLOB& serial = context->pCertInfo->SerialNumber;
    all.append(std::to_string(serial.pbData[0])).append(":").append(std::to_string(flags)).append(" ");
    flags = checks;
  }
  const DWORD code = GetLastError();
  if (code == CRYPT_E_NOT_FOUND) return all.append("end");
  if (code == CRYPT_E_SELF_SIGNED) return all.append("self ").append(std::to_string(flags));
  return all.append(std::to_string(code));
}

TEST(FindIssuer, NameKeyAndSignatureDecide) {
  const StoreHandle store = OpenMemoryStore(0);
  const CertificateHandle leaf = FromText(kLeaf), bare = FromText(kBareLeaf);
  for (const char* each : {kAuthority, kOther, kLeaf, kAgain}) Add(store.get(), FromText(each));
  EXPECT_EQ(Issuers(store.get(), leaf), "5:0 1:0 end");
  EXPECT_EQ(Issuers(store.get(), bare), "5:0 1:0 end") << "the signature alone tells the other one apart";
  EXPECT_EQ(Issuers(store.get(), leaf, 3), "5:0 1:0 end");
  const CertificateHandle forged = CreateCertificate(MakeCertificate({.subject = "leaf"}));
  EXPECT_EQ(Issuers(store.get(), forged), "end") << "right name, wrong signature";
}

TEST(FindIssuer, KeyIdentifierOfTheSubjectCounts) {
  const StoreHandle store = OpenMemoryStore(0);
  const CertificateHandle authority = FromText(kAuthority);
  BYTE other = 5;
  const CRYPT_DATA_BLOB blob{1, &other};
  ASSERT_TRUE(CertSetCertificateContextProperty(authority.get(), CERT_KEY_IDENTIFIER_PROP_ID, 0, &blob));
  Add(store.get(), authority);
  EXPECT_EQ(Issuers(store.get(), FromText(kLeaf)), "end");
  EXPECT_EQ(Issuers(store.get(), FromText(kBareLeaf)), "1:0 end") << "it names no key";
}

TEST(FindIssuer, SelfSignedAndArguments) {
  const StoreHandle store = OpenMemoryStore(0);
  const CertificateHandle authority = FromText(kAuthority), leaf = FromText(kLeaf);
  Add(store.get(), authority);
  EXPECT_EQ(Issuers(store.get(), authority, 3), "self 0");
  EXPECT_EQ(Issuers(nullptr, authority), "self 0") << "no store is needed";
  const std::string invalid = std::to_string(DWORD{E_INVALIDARG});
  EXPECT_EQ(Issuers(nullptr, leaf), invalid);
  EXPECT_EQ(Issuers(store.get(), leaf, 4), invalid);
  const size_t before = contextRegistry.get()->size();
  EXPECT_EQ(CertGetIssuerCertificateFromStore(store.get(), leaf.get(),
                                              CertEnumCertificatesInStore(store.get(), nullptr), nullptr),
            nullptr);
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  EXPECT_EQ(contextRegistry.get()->size(), before) << "the previous context is taken";
}

TEST(FindIssuer, ChecksOfASubject) {
  const CertificateHandle authority = FromText(kAuthority), other = FromText(kOther), leaf = FromText(kLeaf);
  const struct {
    const char* name;
    PCCERT_CONTEXT subject, issuer;
    DWORD in, out;
  } kCases[] = {
      {"both",                leaf.get(), authority.get(), 3, 0},
      {"another's signature", leaf.get(), other.get(),     3, 1},
      {"what is not asked",   leaf.get(), other.get(),     2, 0},
      {"no issuer",           leaf.get(), nullptr,         3, 1},
      {"no subject",          nullptr,    authority.get(), 3, 3},
  };
  for (const auto& [name, subject, issuer, in, out] : kCases) {
    DWORD flags = in;
    EXPECT_TRUE(CertVerifySubjectCertificateContext(subject, issuer, &flags)) << name;
    EXPECT_EQ(flags, out) << name;
  }
  DWORD flags = 4;
  EXPECT_FALSE(CertVerifySubjectCertificateContext(leaf.get(), nullptr, &flags));
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
}

// --- CRLs ---

std::string Dates(HCERTSTORE store, DWORD type, const void* parameter) {
  std::string all;
  PCCRL_CONTEXT context = nullptr;
  while ((context = CertFindCRLInStore(store, 0, 7, type, parameter, context))) {
    SYSTEMTIME time;
    FileTimeToSystemTime(&context->pCrlInfo->ThisUpdate, &time);
    if (!all.empty()) all += ' ';
    all += std::to_string(time.wDay);
  }
  if (GetLastError() != CRYPT_E_NOT_FOUND) all.append("code ").append(std::to_string(GetLastError()));
  return all;
}

TEST(FindCrl, EveryType) {
  const StoreHandle store = OpenMemoryStore(0);
  const Bytes key = MakeExtension(35, FromHex("3003800101"));
  const Bytes delta = MakeExtension(27, FromHex("020101"));
  const auto make = [](const char* day, const char* issuer, const Bytes& extensions) {
    return CreateCrl(MakeCrl({issuer, std::string("2601") + day + "000000Z", extensions}));
  };
  const auto add = [&](const CrlHandle& crl) {
    ASSERT_TRUE(CertAddCRLContextToStore(store.get(), crl.get(), CERT_STORE_ADD_ALWAYS, nullptr));
  };
  add(make("01", "ca", {}));
  add(make("02", "ca", key));
  add(make("03", "root", {}));
  add(make("04", "ca", delta));
  const CrlHandle archived = make("05", "ca", {});
  const CRYPT_DATA_BLOB none{};
  ASSERT_TRUE(CertSetCRLContextProperty(archived.get(), CERT_ARCHIVED_PROP_ID, 0, &none));
  add(archived);

  const CertificateHandle authority = CreateCertificate(MakeCertificate({.subject = "ca"}));
  const CertificateHandle leaf = CreateCertificate(MakeCertificate({.subject = "leaf"}));
  const CertificateHandle lost = CreateCertificate(MakeCertificate({.subject = "leaf", .issuer = "nobody"}));
  const CertificateHandle root = CreateCertificate(MakeCertificate({.subject = "root"}));
  const CrlHandle plain = make("20", "ca", {}), keyed = make("20", "ca", key);
  const CRL_FIND_ISSUED_FOR_PARA direct{leaf.get(), root.get()}, second{lost.get(), root.get()},
      alone{lost.get(), nullptr}, nobody{nullptr, root.get()};
  const struct {
    const char* name;
    DWORD type;
    const void* parameter;
    const char* found;
  } kCases[] = {
      {"any",                               CRL_FIND_ANY,        nullptr,         "4 3 2 1"},
      {"issued by",                         CRL_FIND_ISSUED_BY,  authority.get(), "4 2 1"  },
      {"issued by whom",                    CRL_FIND_ISSUED_BY,  nullptr,         "code 87"},
      {"existing, neither key nor delta",   CRL_FIND_EXISTING,   plain.get(),     "1"      },
      {"existing, by key",                  CRL_FIND_EXISTING,   keyed.get(),     "2"      },
      {"a certificate is no list",          CRL_FIND_EXISTING,   leaf.get(),      "code 87"},
      {"issued for, by the issuer's name",  CRL_FIND_ISSUED_FOR, &direct,         "4 2 1"  },
      {"issued for, by the issuer itself",  CRL_FIND_ISSUED_FOR, &second,         "3"      },
      {"issued for, nothing else to go by", CRL_FIND_ISSUED_FOR, &alone,          ""       },
      {"issued for nobody",                 CRL_FIND_ISSUED_FOR, &nobody,         "code 87"},
      {"a type that there is not",          4,                   nullptr,         "code 87"},
  };
  for (const auto& [name, type, parameter, found] : kCases) {
    EXPECT_EQ(Dates(store.get(), type, parameter), found) << name;
  }
  store->flags |= CERT_STORE_ENUM_ARCHIVED_FLAG;
  EXPECT_EQ(Dates(store.get(), CRL_FIND_ISSUED_BY, authority.get()), "5 4 2 1");
}

// Lists under the issuer's own name count only where the whole walk has none that the subject names.
TEST(FindCrl, IssuedForNeverMixesTheNames) {
  const CertificateHandle leaf = CreateCertificate(MakeCertificate({.subject = "leaf"}));
  const CertificateHandle lost = CreateCertificate(MakeCertificate({.subject = "leaf", .issuer = "nobody"}));
  const CertificateHandle root = CreateCertificate(MakeCertificate({.subject = "root"}));
  const CRL_FIND_ISSUED_FOR_PARA named{leaf.get(), root.get()}, unnamed{lost.get(), root.get()};
  const auto listOf = [](const char* issuer, const char* day) {
    return CreateCrl(MakeCrl({.issuer = issuer, .thisUpdate = std::string("2401") + day + "000000Z"}));
  };
  const StoreHandle first = OpenMemoryStore(0), second = OpenMemoryStore(0);
  const auto add = [](const StoreHandle& store, const CrlHandle& list) {
    ASSERT_TRUE(CertAddCRLContextToStore(store.get(), list.get(), CERT_STORE_ADD_ALWAYS, nullptr));
  };
  add(first, listOf("root", "01"));
  add(first, listOf("ca", "02"));
  add(second, listOf("root", "03"));
  add(second, listOf("ca", "04"));
  const StoreHandle both = OpenStore({StoreNumber(CERT_STORE_PROV_COLLECTION), 0, 0, 0, nullptr});
  ASSERT_TRUE(CertAddStoreToCollection(both.get(), first.get(), 0, 2));
  ASSERT_TRUE(CertAddStoreToCollection(both.get(), second.get(), 0, 1));
  EXPECT_EQ(Dates(first.get(), CRL_FIND_ISSUED_FOR, &named), "2");
  EXPECT_EQ(Dates(both.get(), CRL_FIND_ISSUED_FOR, &named), "2 4");
  EXPECT_EQ(Dates(both.get(), CRL_FIND_ISSUED_FOR, &unnamed), "1 3");
}

// What only reads published fields takes a context that the caller put together.
TEST(FindCrl, ContextsOfTheCallersMaking) {
  const CertificateHandle ours = CreateCertificate(MakeCertificate({.serial = 5}));
  const CrlHandle list = CreateCrl(MakeCrl({}));
  const CERT_CONTEXT certificate{ours->dwCertEncodingType, ours->pbCertEncoded, ours->cbCertEncoded,
                                 ours->pCertInfo, nullptr};
  CRL_ENTRY listed{};
  listed.SerialNumber = ours->pCertInfo->SerialNumber;
  CRL_INFO info = *list->pCrlInfo;
  info.cCRLEntry = 1;
  info.rgCRLEntry = &listed;
  const CRL_CONTEXT crl{X509_ASN_ENCODING, nullptr, 0, &info, nullptr};
  PCRL_ENTRY entry = nullptr;
  EXPECT_TRUE(CertFindCertificateInCRL(&certificate, &crl, 0, nullptr, &entry));
  EXPECT_EQ(entry, &listed);
  info.rgCRLEntry = nullptr;
  EXPECT_FALSE(CertFindCertificateInCRL(&certificate, &crl, 0, nullptr, &entry));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});

  DWORD checks = CERT_STORE_TIME_VALIDITY_FLAG;
  EXPECT_TRUE(CertVerifySubjectCertificateContext(&certificate, nullptr, &checks));
  EXPECT_EQ(checks, 0u);
}

// The same answers as for one of the library's, and a clear refusal where what is read is not there.
TEST(FindCrl, CallersContextsAreReadAsOurs) {
  struct Asked {
    HCERTSTORE store;
    PCCRL_CONTEXT list;
  };
  // 0: refused
  const struct {
    const char* name;
    DWORD (*ask)(PCCERT_CONTEXT certificate, const Asked& with);
    bool readsBytes = false;
  } kQuestions[] = {
      {"existing",
       [](PCCERT_CONTEXT c, const Asked& with) {
         const CertificateHandle found(
             CertFindCertificateInStore(with.store, 1, 0, CERT_FIND_EXISTING, c, nullptr));
         return found ? found->cbCertEncoded : 0;
       }, true},
      {"issuer",
       [](PCCERT_CONTEXT c,          const Asked& with) {
         DWORD checks = 3;
         const CertificateHandle found(CertGetIssuerCertificateFromStore(with.store, c, nullptr, &checks));
         return found ? found->cbCertEncoded + checks : 0;
       },          true},
      {"list of an issuer",
       [](PCCERT_CONTEXT c,             const Asked& with) {
         DWORD checks = 3;
         const CrlHandle found(CertGetCRLFromStore(with.store, c, nullptr, &checks));
         return found ? found->cbCrlEncoded + checks : 0;
       }},
      {"list for it",
       [](PCCERT_CONTEXT c,          const Asked& with) {
         return static_cast<DWORD>(CertIsValidCRLForCertificate(c, with.list, 0, nullptr));
       }            },
      {"purposes",
       [](PCCERT_CONTEXT c,          const Asked&) {
         DWORD size = 0;
         return CertGetEnhancedKeyUsage(c, CERT_FIND_EXT_ONLY_ENHKEY_USAGE_FLAG, nullptr, &size) ? size : 0;
       }},
      {"name",
       [](PCCERT_CONTEXT c,          const Asked&) {
         return CertGetNameStringW(c, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, nullptr, 0) - 1;
       }                },
  };
  const Bytes serverUse = Der(0x30, Der(0x06, {0x2B, 6, 1, 5, 5, 7, 3, 1}));
  const CertificateHandle leaf = CreateCertificate(FromHex(kLeaf));
  const CertificateHandle ours = CreateCertificate(
      MakeCertificate({.subject = "ca", .issuer = "ca", .extensions = MakeExtension(37, serverUse)}));
  const CrlHandle list = CreateCrl(MakeCrl({.issuer = "ca"}));
  const StoreHandle store = OpenMemoryStore(0);
  for (const CertificateHandle& each :
       {CreateCertificate(FromHex(kAuthority)), CreateCertificate(FromHex(kLeaf))})
    ASSERT_TRUE(CertAddCertificateContextToStore(store.get(), each.get(), CERT_STORE_ADD_ALWAYS, nullptr));
  ASSERT_TRUE(CertAddCertificateContextToStore(store.get(), ours.get(), CERT_STORE_ADD_ALWAYS, nullptr));
  ASSERT_TRUE(CertAddCRLContextToStore(store.get(), list.get(), CERT_STORE_ADD_ALWAYS, nullptr));
  const CRL_INFO ownInfo = *list->pCrlInfo;
  const CRL_CONTEXT ownList{1, nullptr, 0, const_cast<PCRL_INFO>(&ownInfo), nullptr};

  for (const auto& [name, ask, readsBytes] : kQuestions) {
    SCOPED_TRACE(name);
    const CERT_CONTEXT& live = readsBytes ? *leaf.get() : *ours.get();
    Bytes bytes(live.pbCertEncoded, live.pbCertEncoded + live.cbCertEncoded);
    CERT_INFO info = *live.pCertInfo;
    const CERT_CONTEXT made{1, bytes.data(), live.cbCertEncoded, &info, nullptr};
    const DWORD answer = ask(&live, {store.get(), list.get()});
    EXPECT_NE(answer, 0u);
    EXPECT_EQ(ask(&made, {store.get(), &ownList}), answer);
    const auto expectRefused = [&](const CERT_CONTEXT& hollow) {
      SetLastError(0);
      EXPECT_EQ(ask(&hollow, {store.get(), &ownList}), 0u);
      EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    };
    expectRefused({1, bytes.data(), live.cbCertEncoded, nullptr, nullptr});
    if (readsBytes) expectRefused({1, nullptr, live.cbCertEncoded, &info, nullptr});
  }

  CERT_INFO nameless = *ours->pCertInfo;
  nameless.Subject.pbData = nullptr;
  const CERT_CONTEXT made{1, ours->pbCertEncoded, ours->cbCertEncoded, &nameless, nullptr};
  DWORD checks = 0;
  const auto isRefused = [](bool taken) {
    return !taken && GetLastError() == DWORD{ERROR_INVALID_PARAMETER};
  };
  EXPECT_TRUE(isRefused(CertGetNameStringW(&made, CERT_NAME_RDN_TYPE, 0, nullptr, nullptr, 0) > 1));
  EXPECT_TRUE(isRefused(CertGetIssuerCertificateFromStore(store.get(), &made, nullptr, &checks)));
  EXPECT_TRUE(isRefused(CertGetCRLFromStore(store.get(), &made, nullptr, &checks)));
  // a property, which is the record's
  nameless = *ours->pCertInfo;
  EXPECT_TRUE(
      isRefused(CertGetNameStringW(&made, CERT_NAME_FRIENDLY_DISPLAY_TYPE, 0, nullptr, nullptr, 0) > 1));
}

TEST(FindCrl, CertificateInAList) {
  const CrlHandle crl = CreateCrl(MakeCrl({}));
  const CertificateHandle certificate = CreateCertificate(MakeCertificate({}));
  CRL_ENTRY sentinel;
  const auto find = [&](PCCERT_CONTEXT whose, PCCRL_CONTEXT where, DWORD flags, PCRL_ENTRY* entry) {
    SetLastError(0);
    return CertFindCertificateInCRL(whose, where, flags, nullptr, entry);
  };
  for (const PCCERT_CONTEXT whose : {certificate.get(), PCCERT_CONTEXT{}}) {
    PCRL_ENTRY entry = &sentinel;
    EXPECT_TRUE(find(whose, crl.get(), 0, &entry));
    EXPECT_EQ(entry, nullptr);
  }
  PCRL_ENTRY entry = &sentinel;
  EXPECT_FALSE(find(certificate.get(), nullptr, 0, &entry));
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  EXPECT_FALSE(find(certificate.get(), crl.get(), 1, &entry));
  EXPECT_FALSE(find(certificate.get(), crl.get(), 0, nullptr));
  EXPECT_EQ(entry, &sentinel);
}

TEST(FindCrl, Entries) {
  BYTE listed[] = {5, 0}, other[] = {6}, same[] = {5};
  CRL_ENTRY entries[2] = {};
  entries[0].SerialNumber = {1, other};
  entries[1].SerialNumber = {2, listed};
  CRL_INFO list{};
  list.cCRLEntry = 2;
  list.rgCRLEntry = entries;
  CRL_INFO empty{};
  PCRL_INFO lists[] = {&empty, &list};
  CERT_INFO id{};
  id.SerialNumber = {1, same};
  SetLastError(77);
  EXPECT_FALSE(CertVerifyCRLRevocation(1, &id, 2, lists));
  EXPECT_EQ(GetLastError(), 77u) << "an answer, not a fault";
  EXPECT_TRUE(CertVerifyCRLRevocation(1, &id, 1, lists));
  EXPECT_TRUE(CertVerifyCRLRevocation(1, &id, 0, nullptr));
  EXPECT_TRUE(CertVerifyCRLRevocation(1, nullptr, 2, lists));
  CRL_INFO hollow{};
  hollow.cCRLEntry = 1;
  PCRL_INFO hollowLists[] = {&list, &hollow};
  const auto isRefused = [&](DWORD count, PCRL_INFO* array) {
    SetLastError(0);
    return !CertVerifyCRLRevocation(1, &id, count, array) && GetLastError() == DWORD{E_INVALIDARG};
  };
  EXPECT_TRUE(isRefused(1, nullptr));
  EXPECT_TRUE(isRefused(2, hollowLists)) << "entries that are not there";
  entries[0].SerialNumber = {5, nullptr};
  EXPECT_TRUE(isRefused(2, lists)) << "a number that is not there";
}

// What was found out about a list before is asked first, and saves the decoding.
TEST(FindCrl, KeptIssuerIsAFilter) {
  const StoreHandle store = OpenMemoryStore(0);
  const CertificateHandle issuer = CreateCertificate(MakeCertificate({.subject = "ca"}));
  const CertificateHandle other = CreateCertificate(MakeCertificate({.subject = "other"}));
  const CrlHandle crl = CreateCrl(MakeCrl({.issuer = "ca"}));
  const auto keeps = [&](const CertificateHandle& whose) {
    EXPECT_TRUE(CertSetCRLContextProperty(crl.get(), SV_CRL_ISSUER_PROP_ID, 0, &whose->pCertInfo->Subject));
    EXPECT_TRUE(CertAddCRLContextToStore(store.get(), crl.get(), CERT_STORE_ADD_REPLACE_EXISTING, nullptr));
  };
  keeps(issuer);
  EXPECT_EQ(Dates(store.get(), CRL_FIND_ISSUED_BY, issuer.get()), "1");
  keeps(other);
  EXPECT_EQ(Dates(store.get(), CRL_FIND_ISSUED_BY, issuer.get()), "") << "what is kept decides";
  EXPECT_EQ(Dates(store.get(), CRL_FIND_ISSUED_BY, other.get()), "") << "and alone it is no match";
}

// Against the walk, over numbers that collide by value but not by bytes, and numbers of all sizes.
TEST(FindCrl, IndexedEntries) {
  std::minstd_rand random(1);
  std::vector<std::vector<BYTE>> numbers;
  for (size_t i = 0; i < 3000; ++i) {
    std::vector<BYTE> number(random() % 21);
    for (BYTE& byte : number) byte = static_cast<BYTE>(random());
    if (random() % 3 == 0 && !number.empty()) number.push_back(number.back() & 0x80 ? 0xFF : 0);
    if (random() % 4 == 0 && i) number = numbers[random() % i];
    numbers.push_back(std::move(number));
  }
  const auto blob = [](std::vector<BYTE>& number) {
    return CRYPT_INTEGER_BLOB{static_cast<DWORD>(number.size()), number.data()};
  };
  for (const size_t count : {size_t{1}, size_t{17}, size_t{100}, size_t{2000}}) {
    std::vector<CRL_ENTRY> entries(count);
    for (size_t i = 0; i < count; ++i) entries[i].SerialNumber = blob(numbers[i]);
    CRL_INFO list{};
    list.cCRLEntry = static_cast<DWORD>(count);
    list.rgCRLEntry = entries.data();
    const CrlEntryIndex index(entries);
    for (std::vector<BYTE>& number : numbers) {
      ASSERT_EQ(index.find(blob(number)), FindEntry(list, blob(number))) << count;
    }
    EXPECT_EQ(IndexOf(list) != nullptr, count > 16);
  }
}

}  // namespace
