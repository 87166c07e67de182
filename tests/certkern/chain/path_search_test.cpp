#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/msg.h>
#include <certkern/oid.h>
#include <certkern/oids.h>
#include <certkern/policy.h>
#include <certkern/sv.h>
#include <certkern/url.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>

#include "certkern/chain/cert_facts.h"
#include "certkern/chain/chain_fixture.h"
#include "certkern/chain/chain_objects.h"
#include "certkern/chain/issuer_search.h"
#include "certkern/chain/made_certificate.h"
#include "oid/built_in_functions.h"
#include "store/store_record.h"
#include "support/hex.h"

namespace certkern::test {
namespace {

// Before anybody reads the configuration.
[[maybe_unused]] const TemporaryDirectory& kSandbox = Sandbox();

constexpr DWORD kNoWire = CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL;

// A search over two stores.
class Search {
 public:
  StoreOwner trusted = MakeMemoryStore();
  StoreOwner others = MakeMemoryStore();
  ChainBuilder builder;

  explicit Search(DWORD flags = kNoWire) { builder.flags = flags; }
  Search(const ChainObjects& objects, const char* roots, const char* rest, DWORD flags = kNoWire)
      : Search(flags) {
    objects.addTo(trusted.get(), roots);
    objects.addTo(others.get(), rest);
  }

  CertRecord& attach(PCCERT_CONTEXT context) { return builder.records->certificate(context, false); }
  bool run(PCCERT_CONTEXT end) {
    ChainBuilder::addStore(builder.certStores, trusted.get(), true);
    ChainBuilder::addStore(builder.certStores, others.get(), false);
    const bool found = builder.verifyCertificate(attach(end));
    EXPECT_NE(found, builder.chain.empty());
    return found;
  }
  // Rows from the end certificate to the root, "!" behind the one at fault, and the status.
  std::string verdict(const ChainObjects& objects, const char* end) {
    const bool found = run(objects.certificate(end));
    if (!found && !builder.bestError) return "nothing";
    std::string told;
    const Chain& chain = found ? builder.chain : builder.bestError->chain;
    for (auto node = chain.rbegin(); node != chain.rend(); ++node)
      told += objects.nameOf(node->record->context.get()) + (node->errorStatus ? "! " : " ");
    return told + (found ? "good" : std::to_string(builder.bestError->chainError));
  }
};

}  // namespace

// Stands before the key level's own.
static DWORD g_verifyCode = ERROR_SUCCESS;  // of a failure that is made up

extern "C" BOOL CryptVerifySignatureA(HCRYPTHASH hash, const BYTE* signature, DWORD size, HCRYPTKEY key,
                                      LPCSTR description, DWORD flags) {
  static auto* const next = reinterpret_cast<decltype(&CryptVerifySignatureA)>(dlsym(RTLD_NEXT, __func__));
  if (g_verifyCode == ERROR_SUCCESS) return next(hash, signature, size, key, description, flags);
  SetLastError(g_verifyCode);
  return FALSE;
}

namespace {

// --- with signatures by openssl ---

TEST(PathSearch, TheBestFailureIsKept) {
  const ChainObjects objects(R"(
cert R1 | | | | | ca
cert A | R1 | p256:k | /CN=CA | | ca
cert B | R1 | p256:k | /CN=CA | 2010..2012 | ca
cert S | | p256:k | /CN=CA | | ca
cert F | | p256:other | /CN=CA | | basicConstraints = CA:TRUE
cert EE | A | | | | ids
cert EN | A | | | | none
)");
  const struct {
    const char* end;
    const char* others;  // the last one is found first
    DWORD flags;
    const char* verdict;
  } cases[] = {
      {"EE", "",        0,                                 "EE 65536"    },
      {"EE", "S",       0,                                 "EE S! 32"    },
      {"EE", "B S",     0,                                 "EE B! 1"     },
      {"EE", "S B",     0,                                 "EE B! 1"     },
      {"EE", "A B S",   CERT_CHAIN_REVOCATION_CHECK_CHAIN, "EE A! R1 64" },
      {"EE", "S B A",   CERT_CHAIN_REVOCATION_CHECK_CHAIN, "EE A! R1 64" },
      {"EE", "A B S",   0,                                 "EE A R1 good"},
      {"EN", "F",       0,                                 "EN F! 8"     },
      {"EN", "F S",     0,                                 "EN S! 32"    },
      {"EN", "A F S B", 0,                                 "EN A R1 good"},
      {"S",  "",        0,                                 "S! 32"       },
      {"R1", "",        0,                                 "R1! 32"      },
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(std::string(each.end) + " over " + each.others);
    EXPECT_EQ(Search(objects, "R1", each.others, each.flags | kNoWire).verdict(objects, each.end),
              each.verdict);
  }
}

// Stores are walked while they are small; later the index is asked, and strangers are not even looked at.
TEST(PathSearch, CandidatesByKeyIdentifierOrName) {
  const ChainObjects objects(R"(
cert R | | p256:k | /CN=R x | | basicConstraints = CA:TRUE; subjectKeyIdentifier = 6B6579; !serial:07
cert Q | | p256:k | /CN=Q | | basicConstraints = CA:TRUE
cert r | | p256:k | /CN=r  X | | basicConstraints = CA:TRUE
cert key | R | | | | 2.5.29.35 = DER:300580036B6579
cert keySerial | R | | | | 2.5.29.35 = DER:300880036B6579820108
cert keyOtherName | Q | | | | 2.5.29.35 = DER:300580036B6579
cert otherKey | R | | | | 2.5.29.35 = DER:300580036B657A
cert name | R | | | | none
cert foldedName | r | | | | none
cert otherName | Q | | | | none
cert nameSerial | R | | | | 2.5.29.35 = DER:3003820107
cert nameOtherSerial | R | | | | 2.5.29.35 = DER:3003820108
)");
  const struct {
    const char* end;
    const char* verdict;
  } cases[] = {
      {"key",             "key R good"           },
      {"keySerial",       "keySerial R good"     },
      {"keyOtherName",    "keyOtherName R 65536" },
      {"otherKey",        "otherKey 65536"       },
      {"name",            "name R good"          },
      {"foldedName",      "foldedName R good"    },
      {"otherName",       "otherName 65536"      },
      {"nameSerial",      "nameSerial R good"    },
      {"nameOtherSerial", "nameOtherSerial 65536"},
  };
  for (const auto& each : cases) {
    for (const int strangers : {0, 100}) {
      SCOPED_TRACE(std::string(each.end) + " among " + std::to_string(strangers));
      Search search(objects, "R", "");
      for (int i = 0; i < strangers; ++i) {
        const std::string name = "Stranger " + std::to_string(i);
        AddTo(search.trusted, {.subject = name, .issuer = name, .keyId = name});
      }
      EXPECT_EQ(search.verdict(objects, each.end), each.verdict);
      EXPECT_LE(search.builder.records->certificates().size(), 2u);
    }
  }
  // what is attached needs no store, and its serial number is not asked for
  Search search(objects, "", "");
  search.builder.records->certificate(objects.certificate("R"), true);
  EXPECT_EQ(search.verdict(objects, "nameOtherSerial"), "nameOtherSerial R good");
}

TEST(PathSearch, OrderOfCandidates) {
  const ChainObjects objects(R"(
cert R2 | | | | | ca
cert R | | p256:k | /CN=CA | | ca
cert A1 | R2 | p256:k | /CN=CA | | ca
cert A2 | R2 | p256:k | /CN=CA | | ca
cert EE | R | | | | ids
)");
  EXPECT_EQ(Search(objects, "R2", "A1 A2").verdict(objects, "EE"), "EE A2 R2 good") << "newest first";
  Search rootFirst(objects, "R R2", "");
  rootFirst.attach(objects.certificate("A1"));
  EXPECT_EQ(rootFirst.verdict(objects, "EE"), "EE R good") << "although what is attached is found first";
  Search decidedFirst(objects, "R2", "A1 A2");
  decidedFirst.attach(objects.certificate("A1"));
  decidedFirst.attach(objects.certificate("A2"));
  CertRecord& last = *decidedFirst.builder.records->certificates().rbegin()->second;
  last.crlChecked = true;
  ASSERT_TRUE(decidedFirst.run(objects.certificate("EE")));
  EXPECT_EQ(std::next(decidedFirst.builder.chain.rbegin())->record, &last);
}

TEST(PathSearch, OfEqualIssuersThatWithTheSerialNumber) {
  const ChainObjects objects(R"(
cert R | | | | | ca
cert A1 | R | p256:k | /CN=CA | | ca
cert A2 | R | p256:k | /CN=CA | | ca
cert EE | A1 | | | | authorityKeyIdentifier = keyid, issuer:always
)");
  for (const char* others : {"A1 A2", "A2 A1"})
    EXPECT_EQ(Search(objects, "R", others).verdict(objects, "EE"), "EE A1 R good");
}

// Wherever the allocator has put the stores.
TEST(PathSearch, StoresInTheOrderOfAdding) {
  const ChainObjects objects(R"(
cert R | | | | | ca
cert A1 | R | p256:k | /CN=CA | | ca
cert A2 | R | p256:k | /CN=CA | | ca
cert EE | A1 | | | | ids
)");
  const MemoryStore roots = objects.store("R"), first = objects.store("A1"), second = objects.store("A2");
  for (const bool turned : {false, true}) {
    Search search;
    ChainBuilder::addStore(search.builder.certStores, turned ? second.get() : first.get(), false);
    ChainBuilder::addStore(search.builder.certStores, turned ? first.get() : second.get(), false);
    ChainBuilder::addStore(search.builder.certStores, roots.get(), false);
    ChainBuilder::addStore(search.builder.certStores, roots.get(), true);
    EXPECT_EQ(search.verdict(objects, "EE"), turned ? "EE A2 R good" : "EE A1 R good");
    EXPECT_EQ(search.builder.certStores.front().store.get(), roots.get());
  }
}

// What a failure of the moment says must not outlive it.
TEST(PathSearch, OnlyYesAndNoAreKept) {
  const ChainObjects objects(R"(
cert R | | | | | ca
cert EE | R | | | | ids
)");
  Search search(objects, "R", "");
  BuildBudget& budget = *search.builder.budget;
  CertRecord& root = search.builder.records->certificate(objects.certificate("R"), true);
  CertRecord& end = search.attach(objects.certificate("EE"));
  g_verifyCode = NTE_FAIL;
  EXPECT_FALSE(IsSelfSigned(root, budget));
  EXPECT_EQ(SignatureBy(root, end, budget), SignatureVerdict::Failed);
  g_verifyCode = ERROR_SUCCESS;
  EXPECT_TRUE(IsSelfSigned(root, budget));
  EXPECT_EQ(SignatureBy(root, end, budget), SignatureVerdict::Good);
  g_verifyCode = NTE_BAD_SIGNATURE;
  EXPECT_TRUE(search.run(objects.certificate("EE"))) << "both are known by now";
  g_verifyCode = ERROR_SUCCESS;
}

TEST(PathSearch, Anchors) {
  const ChainObjects objects(R"(
cert R | | | | | ca
cert A | R | p256:k | /CN=CA | | ca
cert S | | p256:k | /CN=CA | | ca
cert EE | A | | | | ids
)");
  EXPECT_EQ(Search(objects, "A", "").verdict(objects, "EE"), "EE A 65536")
      << "no anchor, as it is not self-signed";
  EXPECT_EQ(Search(objects, "R", "A S").verdict(objects, "EE"), "EE A R good")
      << "rather than an untrusted root";
  Search before(objects, "R", "A S");
  before.builder.records->certificate(objects.certificate("R"), false);
  EXPECT_EQ(before.verdict(objects, "EE"), "EE A R good")
      << "trusted as soon as it is found in a trusted store";

  const MemoryStore used = objects.store("R");
  Search again(objects, "R", "A");
  again.builder.usedStore = used.get();
  EXPECT_EQ(again.verdict(objects, "EE"), "EE A 65536");
  Search other(objects, "R S", "A");
  other.builder.usedStore = used.get();
  EXPECT_EQ(other.verdict(objects, "EE"), "EE S good");
  Search twice(objects, "", "A");
  twice.attach(objects.certificate("A"));
  EXPECT_EQ(twice.verdict(objects, "EE"), "EE A 65536");
  EXPECT_EQ(twice.builder.budget->candidateSteps, 1u) << "found attached and in a store, but tried once";
  Search quiet(objects, "", "A");
  quiet.builder.isCrlSubcheck = true;
  EXPECT_EQ(quiet.verdict(objects, "EE"), "nothing");
}

TEST(PathSearch, EachSignatureIsVerifiedOnce) {
  const ChainObjects objects(R"(
cert R | | | | | ca
cert noids | | | | | basicConstraints = CA:TRUE
cert bad | noids | | | | none; !badsig
cert good | noids | | | | none
cert twin | | | /CN=R | | ca
cert leaf | R | | | | ids
cert misled | R | | | | 2.5.29.35 = DER:30058003000000
)");
  InternedRecords records;
  const auto record = [&](const char* name) -> CertRecord& {
    return records.certificate(objects.certificate(name), false);
  };
  BuildBudget budget;
  const auto verdict = [&](const char* issuer, const char* subject) {
    return SignatureBy(record(issuer), record(subject), budget);
  };
  EXPECT_TRUE(IsSelfSigned(record("R"), budget));
  EXPECT_FALSE(IsSelfSigned(record("good"), budget));
  EXPECT_EQ(record("good").facts->selfSigned, TriState::No) << "kept for the next build";
  EXPECT_EQ(verdict("noids", "good"), SignatureVerdict::Good);
  EXPECT_EQ(verdict("noids", "bad"), SignatureVerdict::Bad);
  EXPECT_EQ(verdict("R", "leaf"), SignatureVerdict::Good);
  EXPECT_EQ(verdict("twin", "leaf"), SignatureVerdict::OtherKey);
  EXPECT_EQ(verdict("R", "misled"), SignatureVerdict::OtherKey);
  EXPECT_TRUE(IsSelfIssued(record("twin")));
  record("bad").signatures[&record("noids")] = true;
  EXPECT_EQ(verdict("noids", "bad"), SignatureVerdict::Good) << "the memo is asked first";
  EXPECT_EQ(CertFactsOf(objects.certificate("R")).get(), record("R").facts.get());
}

// --- issuers by URL ---

// Stands before the library's own retrieval while it lives.
class FakeWeb {
 public:
  // The store of an answer, empty for a failure.
  using Answer = std::function<StoreOwner(const std::string& url, DWORD flags)>;
  explicit FakeWeb(Answer answer) : answer_(std::move(answer)) {
    static const CRYPT_OID_FUNC_ENTRY entry = {CRYPT_DEFAULT_OID, reinterpret_cast<void*>(&Retrieve)};
    static const BOOL installed = CryptInstallOIDFunctionAddress(
        nullptr, 0, SV_OID_RETRIEVE_OBJECT_BY_URL_A_FUNC, 1, &entry, CRYPT_INSTALL_OID_FUNC_BEFORE_FLAG);
    EXPECT_TRUE(installed);
    active_ = this;
  }
  ~FakeWeb() { active_ = nullptr; }
  FakeWeb(const FakeWeb&) = delete;
  FakeWeb& operator=(const FakeWeb&) = delete;

  std::string asked;  // "url?flags" behind each other, without the flag for many objects
  DWORD timeout = 0;  // of the last question

 private:
  static BOOL Retrieve(LPCSTR url, LPCSTR type, DWORD flags, DWORD timeout, LPVOID* object, HCRYPTASYNC async,
                       PCRYPT_CREDENTIALS credentials, LPVOID verify, PCRYPT_RETRIEVE_AUX_INFO info) {
    if (!active_) {
      return CryptRetrieveObjectByUrlAInternal(url, type, flags, timeout, object, async, credentials, verify,
                                               info);
    }
    EXPECT_EQ(type, CONTEXT_OID_CERTIFICATE);
    EXPECT_TRUE(flags & CRYPT_RETRIEVE_MULTIPLE_OBJECTS);
    flags &= ~CRYPT_RETRIEVE_MULTIPLE_OBJECTS;
    active_->asked.append(url).append("?").append(std::to_string(flags)).append(" ");
    active_->timeout = timeout;
    *object = active_->answer_(url, flags).release();
    return *object != nullptr;
  }

  inline static FakeWeb* active_ = nullptr;
  Answer answer_;
};

std::string IssuerAccess(const std::vector<std::string>& urls) {
  std::vector<std::string> descriptions;
  for (const std::string& url : urls)
    descriptions.push_back(DerSequence({DerOid(szOID_PKIX_CA_ISSUERS), Der(0x86, url)}));
  descriptions.push_back(DerSequence({DerOid("1.3.6.1.5.5.7.48.1"), Der(0x86, "ocsp:")}));
  return DerSequence(descriptions);
}

size_t CountUserAuthorities() {
  const StoreOwner store(
      CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"CA"));
  size_t count = 0;
  for (PCCERT_CONTEXT each = nullptr; (each = CertEnumCertificatesInStore(store.get(), each));) ++count;
  return count;
}

// "EE" has the URLs of its issuer.
const ChainObjects& Linked() {
  const std::string access = IssuerAccess({"a:", "b:"});
  static const ChainObjects objects(
      "cert R | | | | | ca\ncert A | R | p256:a | | | basicConstraints = CA:TRUE; subjectKeyIdentifier = "
      "6B6579\ncert fake | R | p256:f | /CN=A | | "
      "basicConstraints = CA:TRUE; subjectKeyIdentifier = 6B6579\ncert other | R | p256:a | /CN=other | | "
      "basicConstraints = CA:TRUE; subjectKeyIdentifier = 6B6579\ncert strange | | | | | ca\n"
      "cert own | strange | p256:a | /CN=A | | basicConstraints = CA:TRUE; subjectKeyIdentifier = 6B6579; "
      "authorityKeyIdentifier = keyid\ncert holder | R | | | | basicConstraints = CA:FALSE; "
      "subjectKeyIdentifier = hash\n"
      "cert minted | holder | p256:a | /CN=A | | basicConstraints = CA:TRUE; subjectKeyIdentifier = 6B6579; "
      "authorityKeyIdentifier = keyid\ncert EE | A | | | | 2.5.29.35 = DER:300580036B6579; "
      "1.3.6.1.5.5.7.1.1 = DER:"
      + ToHex(std::span(reinterpret_cast<const BYTE*>(access.data()), access.size())));
  return objects;
}

TEST(PathSearchUrls, TheCacheThenTheWire) {
  const ChainObjects& objects = Linked();
  constexpr DWORD kLate = CERT_CHAIN_DISABLE_PASS1_QUALITY_FILTERING;
  constexpr char kOnce[] = "a:?2 b:?2 ", kTwice[] = "a:?2 b:?2 a:?4 b:?4 ";
  const struct {
    const char* name;
    DWORD flags;
    const char* bundle;  // of b:, on the wire
    const char* asked;
    const char* verdict;
    size_t kept;  // for the user
  } cases[] = {
      {"the second URL has it",                     0,                                              "A",             kTwice, "EE A R good",              1},
      {"nobody has it",                             0,                                              nullptr,         kTwice, "EE 65536",                 0},
      {"not allowed",                               kNoWire,                                        "A",             kOnce,  "EE 65536",                 0},
      {"not allowed for CRLs",                      CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY,         "A",             kTwice, "EE A R good",              1},
      {"not allowed, as revocation asks",
       CERT_CHAIN_REVOCATION_CHECK_CHAIN | CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY,                  "A",             kOnce,  "EE 65536",                 0},
      {"tried without the network",                 CERT_CHAIN_REVOCATION_CHECK_END_CERT | kNoWire, "A",
       "a:?2 b:?2 a:?6 b:?6 ",                                                                                               "EE 65536",                 0},
      {"a root that came along is the trusted one", 0,                                              "A R",           kTwice, "EE A R good",              2},
      {"fakes are not kept",                        0,                                              "A fake other",  kTwice, "EE A R good",              1},
      {"nor where signatures are verified late",    kLate,                                          "A fake other",  kTwice, "EE A R good",              1},
      {"nor where nothing else comes",              0,                                              "fake",          kTwice, "EE fake! 8",               0},
      {"nor under a root of their own",             0,                                              "own strange",   kTwice, "EE own strange! 32",       0},
      {"nor what no authority has signed",          0,                                              "minted holder", kTwice, "EE minted holder! R 1024", 0},
      {"another name is no issuer",                 0,                                              "other",         kTwice, "EE 65536",                 0},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    FillSystemStore(L"CA", objects, "");
    FakeWeb web([&](const std::string& url, DWORD flags) {
      if (url != "b:" || flags != CRYPT_WIRE_ONLY_RETRIEVAL || !each.bundle) return StoreOwner();
      return StoreOwner(objects.store(each.bundle).release());
    });
    Search search(objects, "R", "", each.flags);
    search.builder.urlTimeoutMs = 1000;
    EXPECT_EQ(search.verdict(objects, "EE"), each.verdict);
    EXPECT_EQ(web.asked, each.asked);
    EXPECT_EQ(search.builder.budget->wireRetrievals, std::string_view(each.asked).ends_with("?4 ") ? 2u : 0u);
    EXPECT_EQ(CountUserAuthorities(), each.kept);
  }
}

// What the cache has is used, and that is all.
TEST(PathSearchUrls, FromTheCacheAlone) {
  FillSystemStore(L"CA", Linked(), "");
  FakeWeb web([](const std::string& url, DWORD flags) {
    if (url != "b:" || flags != CRYPT_CACHE_ONLY_RETRIEVAL) return StoreOwner();
    return StoreOwner(Linked().store("A").release());
  });
  Search search(Linked(), "R", "", 0);
  search.builder.urlTimeoutMs = 1000;
  EXPECT_EQ(search.verdict(Linked(), "EE"), "EE A R good");
  EXPECT_EQ(web.asked, "a:?2 b:?2 ");
  EXPECT_EQ(search.builder.budget->wireRetrievals, 0u);
  EXPECT_EQ(CountUserAuthorities(), 0u) << "it is where it was found";
}

TEST(PathSearchUrls, TimeoutsOfTheCallTheEngineAndTheConfiguration) {
  constexpr DWORD kWhole = sizeof(CERT_CHAIN_PARA);
  constexpr DWORD kCut = offsetof(CERT_CHAIN_PARA, dwUrlRetrievalTimeout);
  const struct {
    DWORD ofCall, size, ofEngine, flags, milliseconds;
  } cases[] = {
      {0,    kWhole,   0,    0,                                          15000    },
      {0,    kWhole,   0,    CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT, 65535 / 2},
      {0,    kWhole,   7000, 0,                                          7000     },
      {3000, kWhole,   7000, 0,                                          3000     },
      {3000, kCut + 4, 7000, 0,                                          3000     },
      {3000, kCut,     7000, 0,                                          7000     },
  };
  FillSystemStore(L"Root", Linked(), "R");
  FillSystemStore(L"CA", Linked(), "");
  FakeWeb web([](const std::string&, DWORD) { return StoreOwner(); });
  for (const auto& [ofCall, size, ofEngine, flags, milliseconds] : cases) {
    CERT_CHAIN_ENGINE_CONFIG config{};
    config.cbSize = sizeof config;
    config.dwUrlRetrievalTimeout = ofEngine;
    EngineHandle engine;
    ASSERT_TRUE(CertCreateCertificateChainEngine(&config, engine.out()));
    CERT_CHAIN_PARA para{};
    para.cbSize = size;
    para.dwUrlRetrievalTimeout = ofCall;
    ChainHandle chain;
    EXPECT_TRUE(CertGetCertificateChain(engine.get(), Linked().certificate("EE"), nullptr, nullptr, &para,
                                        flags, nullptr, chain.out()));
    EXPECT_NEAR(web.timeout, milliseconds, 5) << ofCall << ' ' << size << ' ' << ofEngine;
  }
}

TEST(PathSearchUrls, TimeBudget) {
  ChainBuilder builder;
  builder.urlTimeoutMs = 1000;
  builder.flags = 0;
  builder.addRetrievalTime(900);
  EXPECT_EQ(builder.retrievalBudget(), 1000u);
  builder.flags = CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT;
  EXPECT_EQ(builder.retrievalBudget(), 500u) << "half of what remains";
  builder.addRetrievalTime(400);
  EXPECT_EQ(builder.retrievalBudget(), 300u);
  builder.addRetrievalTime(600);
  EXPECT_EQ(builder.retrievalBudget(), 0u);
  // all retrievals of a call share a minute, whatever each may take; the last gets what remains
  builder.flags = 0;
  builder.addWireTime(59'400);
  EXPECT_EQ(builder.retrievalBudget(), 1000u);
  EXPECT_EQ(builder.wireBudget(), 600u);
  builder.addWireTime(600);
  EXPECT_EQ(builder.wireBudget(), 0u);
  FakeWeb web([](const std::string&, DWORD) { return MakeMemoryStore(); });
  IssuerCandidates candidates({}, {}, *builder.budget);
  EXPECT_FALSE(builder.loadUrl("a:", candidates, CRYPT_WIRE_ONLY_RETRIEVAL));
  EXPECT_EQ(web.asked, "");
  EXPECT_TRUE(builder.loadUrl("a:", candidates, CRYPT_CACHE_ONLY_RETRIEVAL)) << "the cache costs no time";
  builder.flags = CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT;
  EXPECT_FALSE(builder.loadUrl("b:", candidates, CRYPT_CACHE_ONLY_RETRIEVAL));
  EXPECT_EQ(web.asked, "a:?2 ");
}

// --- bounds, with certificates that lead nowhere ---

constexpr DWORD kNoSignatures = kNoWire | CERT_CHAIN_DISABLE_PASS1_QUALITY_FILTERING;

MadeCertificate Authority(const std::string& name, const std::string& issuer, const std::string& keyId,
                          const std::string& authorityKeyId) {
  return {.subject = name,
          .issuer = issuer,
          .keyId = keyId,
          .authorityKeyId = authorityKeyId,
          .extensions = {{szOID_BASIC_CONSTRAINTS2, DerAuthority()}}};
}

std::string Number(int number) { return std::to_string(number); }
std::string KeyId(int number) { return std::string("k").append(Number(number)); }

// The bound is of work; the time is only there to tell minutes from seconds.
void ExpectPartial(Search& search, const MadeCertificate& end) {
  const auto start = std::chrono::steady_clock::now();
  const CertificateOwner context = end.context();
  SetSelfSigned(context.get(), false);
  EXPECT_FALSE(search.run(context.get()));
  ASSERT_TRUE(search.builder.bestError);
  EXPECT_EQ(search.builder.bestError->chainError, CERT_TRUST_IS_PARTIAL_CHAIN);
  EXPECT_LE(search.builder.bestError->chain.size(), kMaxChainNodes);
  EXPECT_LE(search.builder.budget->candidateSteps, kMaxChainCandidateSteps);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(PathSearchBounds, CrossCertifiedAuthorities) {
  constexpr int kAuthorities = 12;
  for (const bool byName : {false, true}) {
    Search search(kNoSignatures);
    for (int subject = 0; subject < kAuthorities; ++subject) {
      for (int issuer = 0; issuer < kAuthorities; ++issuer) {
        if (subject == issuer) continue;
        AddTo(search.others,
              byName ? Authority(Number(subject), Number(issuer), "", "")
                     : Authority(Number(subject), Number(issuer), KeyId(subject), KeyId(issuer)));
      }
    }
    ExpectPartial(search, {.subject = "EE", .issuer = "0", .authorityKeyId = byName ? "" : "k0"});
    EXPECT_EQ(search.builder.budget->candidateSteps, kMaxChainCandidateSteps);
    EXPECT_LE(search.builder.bestError->chain.size(), size_t{kAuthorities * (kAuthorities - 1) + 1})
        << "each certificate once";
  }
}

TEST(PathSearchBounds, LongPaths) {
  Search search(kNoSignatures);
  for (int i = 0; i < 1000; ++i)
    AddTo(search.others, Authority(Number(i), Number(i + 1), KeyId(i), KeyId(i + 1)));
  ExpectPartial(search, {.subject = "EE", .issuer = "0", .authorityKeyId = "k0"});
  EXPECT_EQ(search.builder.bestError->chain.size(), kMaxChainNodes);
}

TEST(PathSearchBounds, ThousandsOfOneNameAndKey) {
  Search search(kNoSignatures);
  for (int i = 0; i < 2500; ++i) {
    MadeCertificate made = Authority("CA", "CA", "k", "k");
    made.serial = {'\x01', static_cast<char>(i >> 8), static_cast<char>(i)};
    AddTo(search.others, made);
  }
  ExpectPartial(search, {.subject = "EE", .issuer = "CA", .authorityKeyId = "k"});
}

// An earlier build may have left any number of them in a store, and the newest are tried first.
TEST(PathSearchBounds, FakesBeforeTheHonestIssuer) {
  const ChainObjects objects(R"(
cert R | | | | | ca
cert A | R | p256:k | /CN=CA | | ca
cert EE | A | | | | ids
cert EE2 | A | | | | ids
cert EE3 | A | | | | ids
)");
  const std::vector<BYTE> keyId = *CertFactsOf(objects.certificate("A"))->subjectKeyId;
  const auto addFakes = [&](const Search& search, int count) {
    for (int i = 0; i < count; ++i) {
      MadeCertificate fake = Authority("CA", "CA", {keyId.begin(), keyId.end()}, "");
      fake.serial = {'\x01', static_cast<char>(i >> 8), static_cast<char>(i)};
      AddTo(search.others, fake);
    }
  };
  Search search(objects, "R", "A");
  addFakes(search, 5120);
  EXPECT_EQ(search.verdict(objects, "EE"), "EE A R good");

  constexpr uint32_t kTwo = 2 * 3;  // verifications with curves
  Search again;
  again.trusted.reset(CertDuplicateStore(search.trusted.get()));
  again.others.reset(CertDuplicateStore(search.others.get()));
  again.builder.budget->verificationUnits = kMaxChainVerificationUnits - kTwo;
  EXPECT_EQ(again.verdict(objects, "EE2"), "EE2 A R good") << "who was tried in vain comes behind";

  Search spent(objects, "R", "A");
  addFakes(spent, 3);
  spent.builder.budget->verificationUnits = kMaxChainVerificationUnits - kTwo;
  EXPECT_EQ(spent.verdict(objects, "EE3"), "EE3 65536") << "the right one was not tried";
}

// Of one call, and of a message: what is spent, what costs nothing, and what is left when nothing is left.
TEST(PathSearchBounds, Verifications) {
  const ChainObjects objects(R"(
cert R | | | | | ca
cert A | R | | | | ca
cert EE | A | | | | ids
cert EE2 | A | | | | ids
)");
  const StoreOwner saved = StoreOwner(objects.store("A EE EE2").release());
  CRYPT_DATA_BLOB blob{};
  ASSERT_TRUE(CertSaveStore(saved.get(), X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, CERT_STORE_SAVE_AS_PKCS7,
                            CERT_STORE_SAVE_TO_MEMORY, &blob, 0));
  std::vector<BYTE> bytes(blob.cbData);
  blob.pbData = bytes.data();
  ASSERT_TRUE(CertSaveStore(saved.get(), X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, CERT_STORE_SAVE_AS_PKCS7,
                            CERT_STORE_SAVE_TO_MEMORY, &blob, 0));
  const Owner<HCRYPTMSG, CryptMsgClose> message(
      CryptMsgOpenToDecode(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0, 0, 0, nullptr, nullptr));
  ASSERT_TRUE(CryptMsgUpdate(message.get(), bytes.data(), static_cast<DWORD>(bytes.size()), TRUE));
  const MemoryStore ofMessage(
      CertOpenStore(CERT_STORE_PROV_MSG, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0, 0, message.get()));
  ASSERT_TRUE(ofMessage);
  const auto inMessage = [&](const char* row) {
    return CertificateHandle(CertFindCertificateInStore(
        ofMessage.get(), X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, objects.certificate(row), nullptr));
  };
  const CertificateHandle end = inMessage("EE"), other = inMessage("EE2");
  const MemoryStore roots = objects.store("R");
  const auto unitsFor = [&](const CertificateHandle& which, uint32_t spent) -> int {
    Search search;
    ChainBuilder::addStore(search.builder.certStores, roots.get(), true);
    ChainBuilder::addStore(search.builder.certStores, ofMessage.get(), false);
    search.builder.budget->verificationUnits = spent;
    const bool good = search.run(which.get());
    return good ? static_cast<int>(search.builder.budget->verificationUnits - spent) : -1;
  };
  constexpr int kEach = 3;  // of a curve of 256 bits
  std::atomic<int64_t>& left = AsStore(ofMessage.get())->verificationUnits;
  const int64_t all = left;
  EXPECT_EQ(all, kMaxMessageVerificationUnits);
  EXPECT_EQ(unitsFor(end, kMaxChainVerificationUnits), -1) << "the call has nothing left";
  EXPECT_EQ(left, all);
  EXPECT_EQ(unitsFor(end, 0), 3 * kEach) << "two links and the root's own";
  EXPECT_EQ(left, all - kEach) << "by a key of the message";
  EXPECT_EQ(unitsFor(end, kMaxChainVerificationUnits), 0) << "known from before";
  left = kEach - 1;
  EXPECT_EQ(unitsFor(other, 0), -1) << "the message has nothing left";
  EXPECT_EQ(unitsFor(end, 0), 0);
  left = kEach;
  EXPECT_EQ(unitsFor(other, 0), kEach);
}

// What is hashed counts, and what it takes to open a signature: twice if it is a bad one.
TEST(PathSearchBounds, VerificationCosts) {
  const ChainObjects objects(R"(
cert A | | rsa | | | ca
cert B | | rsa | | | ca
cert byA | A | | | | none
)");
  InternedRecords records;
  const auto unitsFor = [&](PCCERT_CONTEXT issuer, PCCERT_CONTEXT subject) {
    BuildBudget budget;
    SignatureBy(records.certificate(issuer, false), records.certificate(subject, false), budget);
    return budget.verificationUnits;
  };
  const PCCERT_CONTEXT byA = objects.certificate("byA");
  EXPECT_EQ(unitsFor(objects.certificate("A"), byA), 2u);
  EXPECT_EQ(unitsFor(objects.certificate("B"), byA), 4u) << "a bad one";

  const std::string key =
      DerSequence({Der(0x02, std::string(256, '\x71')), Der(0x02, std::string(8, '\x7F'))});
  const CertificateOwner longExponent = MadeCertificate{.subject = "C", .issuer = "C"}.context();
  CERT_PUBLIC_KEY_INFO& info = longExponent->pCertInfo->SubjectPublicKeyInfo;
  info = objects.certificate("A")->pCertInfo->SubjectPublicKeyInfo;
  info.PublicKey.cbData = static_cast<DWORD>(key.size());
  info.PublicKey.pbData = reinterpret_cast<BYTE*>(const_cast<char*>(key.data()));
  EXPECT_GE(unitsFor(longExponent.get(), byA), 2u * 4) << "an exponent of 64 bits";

  MadeCertificate made{.subject = "EE", .issuer = "CA"};
  const uint32_t small = unitsFor(byA, made.context().get());
  made.extensions = {
      {"1.2.3", std::string(1 << 20, 'x')}
  };
  EXPECT_EQ(unitsFor(byA, made.context().get()), small + 64) << "a megabyte more";
}

// Each further chain passes over the roots of those before it: one budget of the call ends that.
TEST(PathSearchBounds, FurtherChains) {
  const StoreOwner roots = MakeMemoryStore();
  for (int i = 0; i < 150; ++i) {
    MadeCertificate root = Authority("CA", "CA", "k", "");
    root.serial = {'\x01', static_cast<char>(i >> 8), static_cast<char>(i)};
    AddTo(roots, root, true);
  }
  const CertificateOwner end =
      MadeCertificate{.subject = "EE", .issuer = "CA", .authorityKeyId = "k"}.context();
  SetSelfSigned(end.get(), false);
  // all have one key, and it has signed
  const CertFacts& facts = *CertFactsOf(end.get());
  facts.signatures.keep(*facts.keyDigest.get(end.get()->pCertInfo->SubjectPublicKeyInfo), true);
  CERT_CHAIN_ENGINE_CONFIG config{};
  config.cbSize = sizeof config;
  config.hExclusiveRoot = config.hRestrictedOther = roots.get();
  EngineHandle engine;
  ASSERT_TRUE(CertCreateCertificateChainEngine(&config, engine.out()));
  const ChainHandle chain =
      AskChain(engine.get(), end.get(), {.flags = CERT_CHAIN_RETURN_LOWER_QUALITY_CONTEXTS});
  ASSERT_TRUE(chain);
  EXPECT_EQ(chain->TrustStatus.dwErrorStatus, 0u);
  EXPECT_GT(chain->cLowerQualityChainContext, 50u);
  EXPECT_LT(chain->cLowerQualityChainContext, 100u) << "of steps 1 + 2 + 3 and so on";
}

// A server that makes a new authority for each question, in a bundle that has no end.
TEST(PathSearchBounds, AuthoritiesByUrl) {
  const auto access = [](int number) {
    return MadeExtension{szOID_AUTHORITY_INFO_ACCESS, IssuerAccess({"u:" + Number(number)})};
  };
  int asked = 0;
  FakeWeb web([&](const std::string& url, DWORD flags) {
    if (flags != CRYPT_WIRE_ONLY_RETRIEVAL) return StoreOwner();
    ++asked;
    const int number = std::stoi(url.substr(2));
    StoreOwner bundle = MakeMemoryStore();
    for (int i = 0; number == 0 && i < 300; ++i) AddTo(bundle, {.subject = Number(i), .issuer = "none"});
    MadeCertificate authority = Authority("CA", "CA", KeyId(number), KeyId(number + 1));
    authority.extensions.push_back(access(number + 1));
    AddTo(bundle, authority);
    return bundle;
  });
  Search search(CERT_CHAIN_DISABLE_PASS1_QUALITY_FILTERING);
  search.builder.urlTimeoutMs = 1000;
  ExpectPartial(search, {.subject = "EE", .issuer = "CA", .authorityKeyId = "k0", .extensions = {access(0)}});
  EXPECT_EQ(asked, static_cast<int>(kMaxChainRetrievals));
  EXPECT_EQ(search.builder.records->certificates().size(), kMaxChainBundleCertificates + kMaxChainRetrievals);
}

TEST(IssuerCandidates, TakeNoMoreThanMayBeTried) {
  const NormalName name;
  BuildBudget budget;
  IssuerCandidates candidates({&name, {}, {}}, {}, budget);
  std::vector<CertRecord> records(kMaxChainCandidates + 1);
  const auto facts = std::make_shared<const CertFacts>(CERT_INFO{});
  for (CertRecord& each : records) {
    each.facts = facts;
    candidates.offer(each);
  }
  EXPECT_EQ(candidates.take().size(), kMaxChainCandidates);
}

// --- what is read of a certificate ---

TEST(CertFacts, SubjectKeyIdentifier) {
  const struct {
    const char* name;
    std::string value;
    bool found;
    std::string keyId;
    DWORD code;
  } cases[] = {
      {"OCTET STRING",             {"\x04\x02\xAA\xBB", 4},     true,  "\xAA\xBB", 0                    },
      {"behind it nothing counts", {"\x04\x01\xAA\xBB", 4},     true,  "\xAA",     0                    },
      {"a long length",            {"\x04\x82\x00\x01\xAA", 5}, true,  "\xAA",     0                    },
      {"empty, yet there",         {"\x04\x00", 2},             true,  "",         0                    },
      {"bare",                     {"\xAA\xBB", 2},             true,  "\xAA\xBB", 0                    },
      {"a bare byte",              {"\xAA", 1},                 true,  "\xAA",     0                    },
      {"short",                    {"\x04", 1},                 false, "",         CRYPT_E_ASN1_INTERNAL},
      {"nothing",                  {},                          false, "",         CRYPT_E_ASN1_INTERNAL},
      {"runs off the end",         {"\x04\x03\xAA\xBB", 4},     false, "",         CRYPT_E_ASN1_EOD     },
      {"the length runs off",      {"\x04\x84\x00\x00", 4},     false, "",         CRYPT_E_ASN1_EOD     },
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    SetLastError(0);
    const auto keyId =
        ReadSubjectKeyId(std::span(reinterpret_cast<const BYTE*>(each.value.data()), each.value.size()));
    ASSERT_EQ(keyId.has_value(), each.found);
    if (each.found) {
      EXPECT_EQ(std::string(keyId->begin(), keyId->end()), each.keyId);
    }
    EXPECT_EQ(GetLastError(), each.code);
  }
}

TEST(KeyPeriod, OfTheKeyOrTheCertificate) {
  const auto period = [](const char* from, const char* to) {
    return MadeExtension{szOID_PRIVATEKEY_USAGE_PERIOD,
                         DerSequence({from ? Der(0x80, from) : "", to ? Der(0x81, to) : ""})};
  };
  const char* const kFrom = "20240101000000Z";
  const char* const kTo = "20240201000000Z";
  const struct {
    const char* name;
    std::vector<MadeExtension> extensions;
    const char* moment;
    bool inside;
  } cases[] = {
      {"first second",        {period(kFrom, kTo)},       "20240101000000", true },
      {"last second",         {period(kFrom, kTo)},       "20240201000000", true },
      {"before",              {period(kFrom, kTo)},       "20231231235959", false},
      {"behind",              {period(kFrom, kTo)},       "20240201000001", false},
      {"no lower bound",      {period(nullptr, kTo)},     "20100101000000", true },
      {"no upper bound",      {period(kFrom, nullptr)},   "21500101000000", true },
      {"no bounds: validity", {period(nullptr, nullptr)}, "20191231235959", false},
      {"no extension",        {},                         "20191231235959", false},
      {"inside the validity", {},                         "20200101000000", true },
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    InternedRecords records;
    const CertRecord& issuer = records.certificate(
        MadeCertificate{.subject = "R", .issuer = "R", .extensions = each.extensions}.context().get(), false);
    _strictPkupCheck = 2;
    EXPECT_EQ(IsInKeyPeriod(FileTimeOf(each.moment), issuer), each.inside);
    _strictPkupCheck = 0;
    EXPECT_TRUE(IsInKeyPeriod(FileTimeOf(each.moment), issuer));
    EXPECT_EQ(_strictPkupCheck, 1u) << "not configured: off";
  }
}

// In the search the issuer is to blame, in the pass that makes up for it the certificate.
TEST(KeyPeriod, DecidesAboutPaths) {
  const ChainObjects objects(R"(
cert R | | | | | ca; 2.5.29.16 = DER:3011800F32303230303130313030303030305A
cert EE | R | | | 2019..2040 | ids
cert later | R | | | 2021..2040 | ids
)");
  const struct {
    const char* end;
    DWORD flags;
    const char* verdict;
  } cases[] = {
      {"EE",    0,                                          "EE R! 1"     },
      {"EE",    CERT_CHAIN_DISABLE_PASS1_QUALITY_FILTERING, "EE! R 1"     },
      {"later", 0,                                          "later R good"},
      {"later", CERT_CHAIN_DISABLE_PASS1_QUALITY_FILTERING, "later R good"},
  };
  for (const auto& [end, flags, verdict] : cases) {
    _strictPkupCheck = 2;
    EXPECT_EQ(Search(objects, "R", "", flags | kNoWire).verdict(objects, end), verdict) << flags;
    _strictPkupCheck = 1;
    EXPECT_TRUE(Search(objects, "R", "", flags | kNoWire).run(objects.certificate(end)));
  }
  _strictPkupCheck = 0;
}

}  // namespace
}  // namespace certkern::test
