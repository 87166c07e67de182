// Each find type, where a search goes on, and what it does with its arguments.
#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "store/context_property.h"
#include "store/element_addition.h"
#include "store/sample_objects.h"
#include "store/store_kind.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr BYTE kSki = 14, kEku = 37;
constexpr char kServer[] = "1.3.6.1.5.5.7.3.1", kMail[] = "1.3.6.1.5.5.7.3.4", kTime[] = "1.3.6.1.5.5.7.3.8";

Bytes Ski(BYTE id) { return MakeExtension(kSki, Der(0x04, {id})); }
Bytes ServerAndMail() { return MakeExtension(kEku, FromHex("301406082B0601050507030106082B06010505070304")); }

void Add(HCERTSTORE store, const Bytes& encoded, bool archived = false) {
  const CertificateHandle source = CreateCertificate(encoded);
  ASSERT_TRUE(source);
  const CRYPT_DATA_BLOB none{};
  if (archived) {
    ASSERT_TRUE(CertSetCertificateContextProperty(source.get(), CERT_ARCHIVED_PROP_ID, 0, &none));
  }
  ASSERT_TRUE(CertAddCertificateContextToStore(store, source.get(), CERT_STORE_ADD_ALWAYS, nullptr));
}

DWORD SerialOf(PCCERT_CONTEXT context) {
  return context->pCertInfo->SerialNumber.pbData[0];  // all are below 256
}

// The serial numbers of all that a search finds, in its order, and the code at its end if that is not the usual one.
std::string FindAll(HCERTSTORE store, DWORD type, const void* parameter, DWORD flags = 0,
                    DWORD encoding = 1) {
  std::string all;
  PCCERT_CONTEXT context = nullptr;
  while ((context = CertFindCertificateInStore(store, encoding, flags, type, parameter, context))) {
    if (!all.empty()) all += ' ';
    all += std::to_string(SerialOf(context));
  }
  if (GetLastError() != CRYPT_E_NOT_FOUND) all.append("code ").append(std::to_string(GetLastError()));
  return all;
}

// 1 to 6, of which 4 is archived. Newest first: 6 5 4 3 2 1.
struct FindTest : ::testing::Test {
  StoreHandle owner = OpenMemoryStore(0);
  HCERTSTORE store = owner.get();
  const Bytes first = MakeCertificate({.subject = "Anna Bell", .serial = 1, .extensions = Ski(7)});
  const Bytes archived = MakeCertificate({.subject = "Anna Bell", .serial = 4, .extensions = Ski(7)});
  const CertificateHandle wanted = CreateCertificate(first);
  const CertificateHandle hidden = CreateCertificate(archived);

  void SetUp() override {
    Add(store, first);
    Add(store, MakeCertificate({.subject = "bell", .serial = 2, .issuer = "Root", .extensions = Ski(8)}));
    Add(store,
        MakeCertificate({.subject = "x", .serial = 3, .extensions = Concat({Ski(7), ServerAndMail()})}));
    Add(store, archived, true);
    Add(store,
        MakeCertificate({.subject = "\xD0\x90\xD0\xBD\xD0\xBD\xD0\xB0", .serial = 5, .issuer = "Root"}));
    Add(store,
        MakeCertificate({.subject = "y y", .serial = 6, .extensions = MakeExtension(kEku, {0x30, 9})}));
  }
  Bytes property(const CertificateHandle& context, DWORD id) {
    DWORD size = 0;
    CertGetCertificateContextProperty(context.get(), id, nullptr, &size);
    Bytes value(size);
    EXPECT_TRUE(CertGetCertificateContextProperty(context.get(), id, value.data(), &size));
    return value;
  }
};

CRYPT_DATA_BLOB Blob(Bytes& bytes) { return {static_cast<DWORD>(bytes.size()), bytes.data()}; }

TEST_F(FindTest, EveryType) {
  Bytes sha1 = property(wanted, 3), md5 = property(wanted, 4), keyId{7}, hiddenSha1 = property(hidden, 3);
  CRYPT_DATA_BLOB sha1Blob = Blob(sha1), md5Blob = Blob(md5), keyBlob = Blob(keyId), none{};
  CRYPT_DATA_BLOB hiddenBlob = Blob(hiddenSha1);
  const CERT_INFO& info = *wanted->pCertInfo;
  const CERT_INFO& hiddenInfo = *hidden->pCertInfo;
  CERT_INFO shortSerial = info;
  BYTE one = 1;
  shortSerial.SerialNumber = {1, &one};
  CERT_PUBLIC_KEY_INFO otherKey = info.SubjectPublicKeyInfo;
  otherKey.PublicKey.cbData--;
  CERT_ID byIssuer{}, byKey{}, byHash{}, badChoice{};
  byIssuer.dwIdChoice = CERT_ID_ISSUER_SERIAL_NUMBER;
  byIssuer.IssuerSerialNumber = {info.Issuer, shortSerial.SerialNumber};
  byKey.dwIdChoice = CERT_ID_KEY_IDENTIFIER;
  byKey.KeyId = keyBlob;
  byHash.dwIdChoice = CERT_ID_SHA1_HASH;
  byHash.HashId = hiddenBlob;
  badChoice.dwIdChoice = 4;
  const DWORD sha1Id = 3, keyIdId = 20, noId = 77, contextId = CERT_KEY_CONTEXT_PROP_ID;
  LPSTR purposes[] = {const_cast<LPSTR>(kMail), const_cast<LPSTR>(kServer), const_cast<LPSTR>(kTime)};
  const CERT_ENHKEY_USAGE two{2, purposes}, three{3, purposes}, anyUsage{0, nullptr}, broken{1, nullptr};
  Bytes copy(wanted->pbCertEncoded, wanted->pbCertEncoded + wanted->cbCertEncoded);
  const CERT_CONTEXT made{X509_ASN_ENCODING, copy.data(), wanted->cbCertEncoded, hidden->pCertInfo, nullptr};
  const CERT_CONTEXT hollow{X509_ASN_ENCODING, nullptr, wanted->cbCertEncoded, wanted->pCertInfo, nullptr};
  const std::string bad = "code 87";
  const struct {
    const char* name;
    DWORD type;
    const void* parameter;
    std::string found;
    DWORD flags = 0;
  } kCases[] = {
      {"any",                             CERT_FIND_ANY,             nullptr,                    "6 5 3 2 1"                                            },
      {"SHA-1",                           CERT_FIND_SHA1_HASH,       &sha1Blob,                  "1"                                                    },
      {"SHA-1 of an archived one",        CERT_FIND_SHA1_HASH,       &hiddenBlob,                "4"                                                    },
      {"SHA-1 of no bytes",               CERT_FIND_SHA1_HASH,       &none,                      ""                                                     },
      {"MD5",                             CERT_FIND_MD5_HASH,        &md5Blob,                   "1"                                                    },
      {"key identifier",                  CERT_FIND_KEY_IDENTIFIER,  &keyBlob,                   "3 1"                                                  },
      {"existing",                        CERT_FIND_EXISTING,        wanted.get(),               "1"                                                    },
      {"existing, archived",              CERT_FIND_EXISTING,        hidden.get(),               ""                                                     },
      {"subject name",                    CERT_FIND_SUBJECT_NAME,    &info.Subject,              "1"                                                    },
      {"issuer name",                     CERT_FIND_ISSUER_NAME,     &info.Issuer,               "6 3 1"                                                },
      {"subject text",                    CERT_FIND_SUBJECT_STR_A,   "ell",                      "2 1"                                                  },
      {"subject text has its case",       CERT_FIND_SUBJECT_STR_A,   "Bell",                     "1"                                                    },
      {"a name of one character is none", CERT_FIND_SUBJECT_STR_A,   "x",                        ""                                                     },
      {"no text is in all longer names",  CERT_FIND_SUBJECT_STR_W,   L"",                        "6 5 2 1"                                              },
      {"UTF-8",                           CERT_FIND_SUBJECT_STR_A,   "\xD0\xBD\xD0\xBD",         "5"                                                    },
      {"wide",                            CERT_FIND_SUBJECT_STR_W,   L"\x43D\x43D",              "5"                                                    },
      {"issuer text",                     CERT_FIND_ISSUER_STR_A,    "oo",                       "5 2"                                                  },
      {"issuer text, wide",               CERT_FIND_ISSUER_STR_W,    L"Root",                    "5 2"                                                  },
      {"a computed property",             CERT_FIND_PROPERTY,        &sha1Id,                    "6 5 3 2 1"                                            },
      {"key identifier as a property",    CERT_FIND_PROPERTY,        &keyIdId,                   "6 5 3 2 1"                                            },
      {"a property that nobody has",      CERT_FIND_PROPERTY,        &noId,                      ""                                                     },
      {"a key context",                   CERT_FIND_PROPERTY,        &contextId,                 ""                                                     },
      {"private key",                     CERT_FIND_HAS_PRIVATE_KEY, nullptr,                    ""                                                     },
      {"public key",                      CERT_FIND_PUBLIC_KEY,      &info.SubjectPublicKeyInfo, "6 5 3 2 1"                                            },
      {"another public key",              CERT_FIND_PUBLIC_KEY,      &otherKey,                  ""                                                     },
      {"purposes in any order",           CERT_FIND_ENHKEY_USAGE,    &two,                       "3"                                                    },
      {"one purpose too many",            CERT_FIND_ENHKEY_USAGE,    &three,                     ""                                                     },
      {"no purposes: has the extension",  CERT_FIND_ENHKEY_USAGE,    &anyUsage,                  "3"                                                    },
      {"or none; unreadable is neither",  CERT_FIND_ENHKEY_USAGE,    &two,                       "5 3 2 1",                                               1},
      {"optional is that flag alone",                                 CERT_FIND_ENHKEY_USAGE,                              &two,  "3",                        3},
      {"subject certificate, archived",                                CERT_FIND_SUBJECT_CERT,                                                         &hiddenInfo,                                                     "4"                               },
      {"its serial is compared as bytes",                              CERT_FIND_SUBJECT_CERT,                                                       &shortSerial,""},
      {"identifier: serial as a value",                               CERT_FIND_CERT_ID,                                                        &byIssuer,                                                        "1"                                                                                              },
      {"identifier: key, archived too",                              CERT_FIND_CERT_ID,                                                       &byKey,"4 3 1"},
      {"identifier: SHA-1, archived",                          CERT_FIND_CERT_ID,                                                   &byHash,                                                      "4"                                                                                                                                                            },
      {"identifier of no kind",                              CERT_FIND_CERT_ID,                                                       &badChoice,      bad},
      {"no identifier",                              CERT_FIND_CERT_ID,                                                       nullptr,                                                              bad                                                                                                                                                                                                                    },
      {"no hash",                              CERT_FIND_SHA1_HASH,                                                       nullptr,            bad},
      {"purposes without their array",                              CERT_FIND_ENHKEY_USAGE,                                                       &broken,                                         bad                                                                                                                                                                                                                                              },
      {"existing, by bytes alone",                              CERT_FIND_EXISTING,                                                       &made,                "1"},
      {"existing, without its bytes",                              CERT_FIND_EXISTING,                                                       &hollow,                                      bad                                                                                                                                                                                                                                                                    },
      {"a type that there is not",                              0x00120000,                                                       nullptr,                   bad},
  };
  for (const auto& [name, type, parameter, found, flags] : kCases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(FindAll(store, type, parameter, flags), found);
  }
  EXPECT_EQ(FindAll(store, CERT_FIND_ANY, nullptr, 0, 2), bad) << "2 is no encoding";
  EXPECT_EQ(FindAll(store, CERT_FIND_ANY, nullptr, 0, PKCS_7_ASN_ENCODING), "6 5 3 2 1");
  owner->flags |= CERT_STORE_ENUM_ARCHIVED_FLAG;
  EXPECT_EQ(FindAll(store, CERT_FIND_ISSUER_NAME, &info.Issuer), "6 4 3 1");
}

// By what was set on an element, not by what it says.
TEST_F(FindTest, PrivateKeys) {
  const auto set = [&](DWORD serial, DWORD id, const void* value) {
    PCCERT_CONTEXT context = nullptr;
    while ((context = CertEnumCertificatesInStore(store, context)) && SerialOf(context) != serial) continue;
    EXPECT_TRUE(CertSetCertificateContextProperty(context, id, 0, value));
    EXPECT_TRUE(CertFreeCertificateContext(context));
  };
  CRYPT_KEY_PROV_INFO info{};
  CERT_KEY_CONTEXT key{};
  key.cbSize = sizeof key;
  key.dwKeySpec = AT_SIGNATURE;
  ASSERT_TRUE(CryptAcquireContextA(&key.hCryptProv, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT));
  set(3, CERT_KEY_PROV_INFO_PROP_ID, &info);
  set(5, CERT_KEY_CONTEXT_PROP_ID, &key);
  const DWORD infoId = CERT_KEY_PROV_INFO_PROP_ID, flatId = SV_KEY_PROV_INFO_FLAT_PROP_ID,
              keyId = CERT_KEY_CONTEXT_PROP_ID;
  EXPECT_EQ(FindAll(store, CERT_FIND_HAS_PRIVATE_KEY, nullptr), "3");
  EXPECT_EQ(FindAll(store, CERT_FIND_PROPERTY, &infoId), "3");
  EXPECT_EQ(FindAll(store, CERT_FIND_PROPERTY, &flatId), "3");
  EXPECT_EQ(FindAll(store, CERT_FIND_PROPERTY, &keyId), "5");
}

TEST_F(FindTest, ThePreviousContextIsTakenInEveryOutcome) {
  const size_t before = contextRegistry.get()->size();
  const StoreHandle elsewhere = OpenMemoryStore(0);
  const auto enumerated = [&] { return CertEnumCertificatesInStore(store, nullptr); };
  EXPECT_EQ(CertEnumCertificatesInStore(nullptr, enumerated()), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(CertFindCertificateInStore(store, 1, 0, 0x00120000, nullptr, enumerated()), nullptr);
  EXPECT_EQ(CertEnumCertificatesInStore(elsewhere.get(), enumerated()), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_NOT_FOUND});
  EXPECT_EQ(contextRegistry.get()->size(), before);
  CERT_CONTEXT stranger{};
  EXPECT_EQ(CertEnumCertificatesInStore(store, &stranger), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(FindTest, DeletingWhileEnumerating) {
  std::string seen;
  PCCERT_CONTEXT context = nullptr;
  while ((context = CertEnumCertificatesInStore(store, context))) {
    seen += std::to_string(SerialOf(context));
    EXPECT_TRUE(CertDeleteCertificateFromStore(CertDuplicateCertificateContext(context)));
  }
  EXPECT_EQ(seen, "65321");
  EXPECT_EQ(Serials(*owner.get()), "4");
}

TEST_F(FindTest, SubjectByIssuerAndSerial) {
  CERT_INFO id = *wanted->pCertInfo;
  BYTE one = 1;
  id.SerialNumber = {1, &one};
  const CertificateHandle found(CertGetSubjectCertificateFromStore(store, 1, &id));
  ASSERT_TRUE(found);
  EXPECT_EQ(SerialOf(found.get()), 1u);
  id = *hidden->pCertInfo;
  EXPECT_EQ(CertGetSubjectCertificateFromStore(store, 1, &id), nullptr) << "archived";
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_NOT_FOUND});
  id.Issuer.pbData = nullptr;
  for (const auto& [handle, parameter] : {
           std::pair(store, PCERT_INFO{   }
            ), {  HCERTSTORE{}, &id},
            { store, &id}
  }) {
    EXPECT_EQ(CertGetSubjectCertificateFromStore(handle, 1, parameter), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  }
}

// Members are walked one after the other, and one that fails ends only its own search.
TEST_F(FindTest, Collections) {
  const StoreHandle second = OpenMemoryStore(0), damaged = OpenMemoryStore(0);
  Add(second.get(), MakeCertificate({.serial = 21}));
  Add(second.get(), MakeCertificate({.serial = 22}));
  Add(damaged.get(), MakeCertificate({.serial = 31}));
  {
    const std::lock_guard guard(damaged->lock);
    LinkElement(*damaged.get(),
                NewElement(ElementType::Certificate, 1, Bytes{0x30, 0x00}, damaged.get(), {}));
  }
  const StoreHandle collection(AsStore(CertOpenStore(CERT_STORE_PROV_COLLECTION, 0, 0, 0, nullptr)));
  auto members = std::make_shared<MemberList>();
  for (CertStore* each : {damaged.get(), owner.get(), second.get()}) {
    auto member = std::make_shared<CollectionMember>();
    AddStoreHandle(*each);
    member->store.reset(each);
    members->push_back(std::move(member));
  }
  collection->members = members;
  EXPECT_EQ(FindAll(collection.get(), CERT_FIND_ANY, nullptr), "6 5 3 2 1 22 21");
  EXPECT_EQ(FindAll(damaged.get(), CERT_FIND_ANY, nullptr), "");
}

}  // namespace
