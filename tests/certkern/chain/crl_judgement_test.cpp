// The revocation step by itself: what it selects, what it leaves behind, where it fetches, and where it stops.
#include <certkern/url.h>

#include <chrono>
#include <sstream>

#include "certkern/chain/chain_fixture.h"
#include "certkern/chain/crl_judgement.h"
#include "certkern/chain/good_verdicts.h"
#include "certkern/chain/made_certificate.h"
#include "support/raw_server.h"
#include "url/url_cache.h"

namespace certkern::test {
namespace {

constexpr DWORD kChain = CERT_CHAIN_REVOCATION_CHECK_CHAIN;
constexpr DWORD kEnd = CERT_CHAIN_REVOCATION_CHECK_END_CERT;
constexpr DWORD kNoRoot = CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT;
constexpr DWORD kNoWire = CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL | CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY;

TEST(RevocationStep, Selection) {
  using enum RevocationStep;
  const struct {
    DWORD flags;
    RevocationStep end, middle, root, alone;
  } kSelections[] = {
      {0,                       TestedCert, MiddleCert, RootCert, TestedCert},
      {kEnd,                    MiddleCert, MiddleCert, RootCert, RootCert  },
      {kChain,                  Check,      Check,      Check,    Check     },
      {kNoRoot,                 Check,      Check,      RootCert, RootCert  },
      {kEnd | kChain,           MiddleCert, MiddleCert, RootCert, RootCert  },
      {kEnd | kNoRoot,          MiddleCert, MiddleCert, RootCert, RootCert  },
      {kChain | kNoRoot,        MiddleCert, MiddleCert, RootCert, RootCert  },
      {kEnd | kChain | kNoRoot, MiddleCert, MiddleCert, RootCert, RootCert  },
  };
  for (const auto& [flags, end, middle, root, alone] : kSelections) {
    for (const DWORD other : {DWORD{0}, CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY}) {
      EXPECT_EQ(SelectRevocationStep(flags | other, false, true), end) << flags;
      EXPECT_EQ(SelectRevocationStep(flags | other, false, false), middle) << flags;
      EXPECT_EQ(SelectRevocationStep(flags | other, true, false), root) << flags;
      EXPECT_EQ(SelectRevocationStep(flags | other, true, true), alone) << flags;
    }
  }
}

// One build over "root", which is trusted, and other rows.
class Build {
 public:
  Build(const ChainObjects& objects, const std::string& others, DWORD flags)
      : objects_(objects), roots_(objects.store("root")), others_(objects.store(others)) {
    Sandbox();
    builder.flags = flags;
    ChainBuilder::addStore(builder.certStores, roots_.get(), true);
    ChainBuilder::addStore(builder.certStores, others_.get(), false);
    ChainBuilder::addStore(builder.crlStores, others_.get(), false);
  }
  // The error status of the best path.
  DWORD run(const char* row) {
    CertRecord& end = record(row);
    const bool good = builder.verifyCertificate(end);
    if (good) return 0;
    EXPECT_TRUE(builder.bestError);
    return builder.bestError ? builder.bestError->chainError : ~DWORD{0};
  }
  CertRecord& record(const char* row) {
    return builder.records->certificate(objects_.certificate(row), false);
  }
  // Base and delta of each pair: "base base+delta".
  std::string used(const char* row) {
    std::ostringstream told;
    for (const CrlPair& pair : record(row).usedCrls) told << nameOf(pair) << ' ';
    return told.str();
  }
  std::string selected(const char* row) { return nameOf(record(row).selected); }

  ChainBuilder builder;

 private:
  std::string nameOf(const CrlPair& pair) const {
    if (!pair.base) return "none";
    std::string told = nameOf(*pair.base);
    if (pair.delta) told.append("+").append(nameOf(*pair.delta));
    return told;
  }
  std::string nameOf(const CrlRecord& crl) const {
    for (const char* row : {"base", "delta", "newdelta", "points", "low", "rest"}) {
      const PCCRL_CONTEXT other = objects_.crl(row);
      if (std::ranges::equal(crl.encoded(), std::span(other->pbCrlEncoded, other->cbCrlEncoded))) return row;
    }
    return "?";
  }

  const ChainObjects& objects_;
  const MemoryStore roots_, others_;
};

constexpr char kObjects[] = R"(
section one   | fullname = URI:http://127.0.0.1:1/one
section low   | fullname = URI:http://127.0.0.1:1/one; onlysomereasons = keyCompromise, CACompromise
section rest  | fullname = URI:http://127.0.0.1:1/one; onlysomereasons = affiliationChanged, superseded, cessationOfOperation, certificateHold, privilegeWithdrawn
cert root | | | | | ca
cert held | root | | | | ids; freshestCRL = one
cert point | root | | | | ids; crlDistributionPoints = one
cert plain | root
crl base | root | | held:certificateHold plain:superseded
crl clean | root | -10 days..+30 days
crl delta | root | -2 hours..+1 day | held:keyCompromise | authorityKeyIdentifier = keyid; !number:02; 2.5.29.27 = critical, DER:020101
crl newdelta | root | -1 hour..+1 day | held:removeFromCRL | authorityKeyIdentifier = keyid; !number:03; 2.5.29.27 = critical, DER:020101
crl points | root | | | authorityKeyIdentifier = keyid; issuingDistributionPoint = @one
crl low | root | | | authorityKeyIdentifier = keyid; issuingDistributionPoint = @low
crl rest | root | | | authorityKeyIdentifier = keyid; issuingDistributionPoint = @rest

# the lists of "root" by somebody whose certificate is itself under decision
cert between | root | | | | ca
cert delegate | between | | /CN=root | | ca
crl circular | delegate
)";

const ChainObjects& Objects() {
  static const ChainObjects objects(kObjects);
  return objects;
}

TEST(CrlJudgement, WhatIsLeftBehind) {
  Build listed(Objects(), "base", kChain | kNoWire);
  EXPECT_EQ(listed.run("plain"), CERT_TRUST_IS_REVOKED);
  EXPECT_EQ(listed.builder.bestError->chainRevReason, DWORD{CRL_REASON_SUPERSEDED});
  EXPECT_EQ(listed.used("plain"), "base ");
  EXPECT_EQ(listed.selected("plain"), "base");
  EXPECT_FALSE(listed.record("plain").crlChecked);
  // whatever way the store has them, the newest delta is read first, and one is enough
  Build delta(Objects(), "base newdelta delta", kChain | kNoWire);
  EXPECT_EQ(delta.run("held"), 0u);
  EXPECT_EQ(delta.used("held"), "base+newdelta ");
  EXPECT_EQ(delta.selected("held"), "base+newdelta");
  // decided for good only by way of its own points
  Build points(Objects(), "low rest", kChain | kNoWire);
  EXPECT_EQ(points.run("point"), 0u);
  EXPECT_EQ(points.selected("point"), "none");
  EXPECT_TRUE(points.record("point").crlChecked);
  const std::string both = points.used("point");
  EXPECT_TRUE(both.find("low ") != both.npos && both.find("rest ") != both.npos) << both;
  Build known(Objects(), "base", kChain | kNoWire);
  EXPECT_EQ(known.run("point"), 0u);
  EXPECT_TRUE(known.record("point").crlChecked);
}

// The list is asked as of the moment of the check, but must be valid as of now.
TEST(CrlJudgement, EarlierThanTheEntry) {
  Build before(Objects(), "base", kChain | kNoWire);
  before.builder.checkTime = Moment("20260101");
  EXPECT_EQ(before.run("plain"), 0u);
}

TEST(CrlJudgement, SignersUnderDecision) {
  Build circular(Objects(), "between delegate circular", kChain | kNoWire);
  EXPECT_EQ(circular.run("between"), CERT_TRUST_REVOCATION_STATUS_UNKNOWN);
  EXPECT_LT(circular.builder.budget->candidateSteps, 12u) << "seen, not run into the bound";
  // nothing is wrong with the delegate where its own chain is not looked at
  Build elsewhere(Objects(), "between delegate circular base", kChain | kNoWire);
  EXPECT_EQ(elsewhere.run("between"), 0u);
}

TEST(CrlJudgement, Bounds) {
  Build deep(Objects(), "base", kChain | kNoWire);
  deep.builder.cloneDepth = kMaxRevocationClones - 1;
  EXPECT_EQ(deep.run("point"), 0u);
  Build tooDeep(Objects(), "base", kChain | kNoWire);
  tooDeep.builder.cloneDepth = kMaxRevocationClones;
  EXPECT_EQ(tooDeep.run("point"), CERT_TRUST_REVOCATION_STATUS_UNKNOWN);
  // steps: the root, the issuer's key, the search for the signer, the signer itself
  for (const auto& [left, status] : {
           std::pair{4u, 0u                                  },
           {3u, CERT_TRUST_REVOCATION_STATUS_UNKNOWN}
  }) {
    Build build(Objects(), "base", kChain | kNoWire);
    build.builder.budget->candidateSteps = kMaxChainCandidateSteps - left;
    EXPECT_EQ(build.run("point"), status) << left;
  }
  // the list is collected, looked at, looked at for the point
  for (const auto& [left, status] : {
           std::pair{3u, 0u                                  },
           {2u, CERT_TRUST_REVOCATION_STATUS_UNKNOWN}
  }) {
    Build build(Objects(), "base", kChain | kNoWire);
    build.builder.budget->crlSteps = kMaxChainCrlSteps - left;
    EXPECT_EQ(build.run("point"), status) << left;
  }
}

// Authorities in a row, of which each has a list.
// The newer list can't be verified for now, the older one was before.
TEST(CrlJudgement, NoOlderListInPlaceOfOneThatCannotBeJudged) {
  Build build(Objects(), "base clean", kChain | kNoWire);
  CertRecord& root = build.record("root");
  BuildBudget before;
  ASSERT_TRUE(IsSelfSigned(root, before));
  ASSERT_EQ(SignatureBy(root, build.record("plain"), before), SignatureVerdict::Good);
  CrlRecord& clean = build.builder.records->crl(Objects().crl("clean"));
  ASSERT_EQ(SignatureBy(root, clean, before), SignatureVerdict::Good);
  build.builder.budget->verificationUnits = kMaxChainVerificationUnits;
  EXPECT_EQ(build.run("plain"), CERT_TRUST_REVOCATION_STATUS_UNKNOWN);
  build.builder.budget->verificationUnits = 0;
  build.builder.bestError.reset();
  EXPECT_EQ(build.run("plain"), CERT_TRUST_IS_REVOKED);
}

TEST(CrlJudgement, LongPaths) {
  std::string table = "cert root | | | | | ca\ncrl list0 | root\n", rows = "list0";
  std::string issuer = "root";
  for (int i = 1; i <= 18; ++i) {
    const std::string number = std::to_string(i);
    table += "cert ca" + number + " | " + issuer + " | | | | ca\n";
    issuer = "ca" + number;
    table += "crl list" + number + " | " + issuer + "\n";
    rows += " " + issuer + " list" + number;
  }
  const ChainObjects objects(table);
  const struct {
    const char* end;
    DWORD status;
    uint32_t steps;  // at most
  } cases[] = {
      {"ca13", 0,                                    1000                   },
      {"ca16", 0,                                    2000                   },
      {"ca17", CERT_TRUST_REVOCATION_STATUS_UNKNOWN, kMaxChainCandidateSteps},
  };
  for (const auto& [end, status, steps] : cases) {
    Build build(objects, rows, kChain | kNoWire);
    EXPECT_EQ(build.run(end), status) << end;
    EXPECT_LE(build.builder.budget->candidateSteps, steps) << end;
  }
}

// A verdict is no more than it was: where it could have come out otherwise, it is made again.
TEST(GoodVerdicts, OnlyWhereNothingElseCouldCome) {
  InternedRecords records;
  CertRecord& a = records.certificate(Objects().certificate("plain"), false);
  CertRecord& b = records.certificate(Objects().certificate("held"), false);
  CertRecord& c = records.certificate(Objects().certificate("point"), false);
  GoodVerdicts verdicts(records);
  const auto good = [] { return kNotRevoked; };
  const auto decideAll = [&](CertRecord& circle) {  // a by way of b, b by way of c
    verdicts.decide(a, [&] {
      verdicts.met(b, false);
      return verdicts.decide(b, [&] {
        return verdicts.decide(c, [&] {
          verdicts.met(circle, true);
          return kNotRevoked;
        });
      });
    });
  };
  decideAll(a);
  EXPECT_TRUE(verdicts.has(a, {}, 0));
  EXPECT_FALSE(verdicts.has(b, {}, 0)) << "elsewhere a would not be under decision";
  decideAll(b);
  EXPECT_TRUE(verdicts.has(b, {}, 0));
  EXPECT_TRUE(verdicts.has(a, {&c}, kMaxRevocationClones - 3));
  EXPECT_FALSE(verdicts.has(a, {}, kMaxRevocationClones - 2)) << "needs three clones";
  EXPECT_FALSE(verdicts.has(a, {&b}, 0)) << "would close a circle";
  // what a remembered verdict met belongs to the one that uses it
  verdicts.decide(c, [&] {
    EXPECT_TRUE(verdicts.has(a, {&c}, 1));
    return kNotRevoked;
  });
  EXPECT_FALSE(verdicts.has(c, {&b}, 0));
  EXPECT_FALSE(verdicts.has(c, {}, kMaxRevocationClones - 3));

  verdicts.checkedForGood();
  EXPECT_FALSE(verdicts.has(a, {}, 0)) << "more is known now";
  verdicts.decide(a, [] { return kUndetermined; });
  verdicts.decide(b, [&] {
    EXPECT_THROW(verdicts.decide(c, []() -> RevocationResult { throw 1; }), int);
    return kNotRevoked;
  });
  for (const CertRecord* each : {&a, &b, &c}) EXPECT_FALSE(verdicts.has(*each, {}, 0));
  verdicts.decide(a, [&] {
    verdicts.metTheBound();
    return kNotRevoked;
  });
  EXPECT_FALSE(verdicts.has(a, {}, 0));
  verdicts.decide(a, good);
  EXPECT_TRUE(verdicts.has(a, {}, 0));
}

// --- over the network ---

// Answers with the content of a path, 404 where there is none.
class CrlServer {
 public:
  CrlServer() : server_([this](RawConnection& peer) { answer(peer); }) {}
  std::string url(const std::string& path) const { return server_.url(path); }
  int requests() const { return server_.connections(); }
  void put(const std::string& path, PCCRL_CONTEXT crl) {
    const std::lock_guard guard(lock_);
    content_[path].assign(reinterpret_cast<const char*>(crl->pbCrlEncoded), crl->cbCrlEncoded);
  }

 private:
  void answer(RawConnection& peer) {
    std::istringstream head(peer.readHead());
    std::string method, path;
    head >> method >> path;
    const std::lock_guard guard(lock_);
    const auto found = content_.find(path);
    std::string reply = found == content_.end() ? "HTTP/1.1 404 Gone\r\n" : "HTTP/1.1 200 OK\r\n";
    const std::string body = found == content_.end() ? std::string() : found->second;
    reply.append("Connection: close\r\nContent-Length: ").append(std::to_string(body.size()));
    peer.send(reply.append("\r\n\r\n").append(body));
  }

  std::mutex lock_;
  std::map<std::string, std::string> content_;
  RawServer server_;
};

std::string WithServer(std::string table, const std::string& url) {
  constexpr std::string_view kPlace = "SERVER";
  for (size_t at = 0; (at = table.find(kPlace, at)) != table.npos;) table.replace(at, kPlace.size(), url);
  return table;
}

DWORD Ask(const ChainObjects& objects, const char* row, DWORD flags) {
  Build build(objects, "", flags);
  build.builder.urlTimeoutMs = 5000;
  return build.run(row);
}

TEST(CrlFetch, FromPoints) {
  CrlServer server;
  const ChainObjects objects(WithServer(R"(
section two   | fullname = URI:SERVER/gone, URI:SERVER/first
section fresh | fullname = URI:SERVER/delta
section base  | fullname = URI:SERVER/base
cert root | | | | | ca
cert leaf | root | | | | ids; crlDistributionPoints = two
cert other | root | | | | ids; freshestCRL = fresh; crlDistributionPoints = base
crl listing | root | | leaf:superseded
crl base | root | 20200101..20210101 | | authorityKeyIdentifier = keyid; !number:05
crl delta | root | | other:keyCompromise | authorityKeyIdentifier = keyid; !number:06; 2.5.29.27 = critical, DER:020105
)",
                                        server.url("")));
  constexpr DWORD kUnknown = CERT_TRUST_REVOCATION_STATUS_UNKNOWN;
  EXPECT_EQ(Ask(objects, "leaf", kChain | kNoWire), kUnknown);
  EXPECT_EQ(server.requests(), 0);
  EXPECT_EQ(Ask(objects, "leaf", kChain), kUnknown) << "not there yet";
  server.put("/first", objects.crl("listing"));
  EXPECT_EQ(Ask(objects, "leaf", kChain), CERT_TRUST_IS_REVOKED) << "the second URL of the point";
  const int requests = server.requests();
  EXPECT_EQ(Ask(objects, "leaf", kChain | kNoWire), CERT_TRUST_IS_REVOKED) << "from the cache";
  EXPECT_EQ(server.requests(), requests);
  // what has expired is taken from the network only, and then needs its delta
  server.put("/base", objects.crl("base"));
  EXPECT_EQ(Ask(objects, "other", kChain), kUnknown);
  server.put("/delta", objects.crl("delta"));
  EXPECT_EQ(Ask(objects, "other", kChain), CERT_TRUST_IS_REVOKED);

  Build served(objects, "", kChain);
  served.builder.urlTimeoutMs = 5000;
  EXPECT_EQ(served.run("leaf"), CERT_TRUST_IS_REVOKED);
  EXPECT_EQ(served.builder.budget->wireRetrievals, 2u)
      << "what is cached says revoked, so that the network is asked";

  Build spent(objects, "", kChain);
  spent.builder.urlTimeoutMs = 5000;
  spent.builder.budget->wireRetrievals = kMaxChainRetrievals;
  const int before = server.requests();
  EXPECT_EQ(spent.run("other"), kUnknown);
  EXPECT_EQ(server.requests(), before);
}

// What the cache says is asked again of the network. What is no list of the issuer's throws no good one out, and what somebody
// else has put into the cache does not stay there.
TEST(CrlFetch, LiftedHoldsAndBadLists) {
  CrlServer server;
  const ChainObjects objects(WithServer(R"(
section one | fullname = URI:SERVER/one
section far | fullname = URI:SERVER/far
cert root | | | | | ca
cert absent | root | | /CN=root | | ca
cert leaf | root | | | | ids; crlDistributionPoints = one
crl early | root | -4 hours..+1 day
crl holds | root | -3 hours..+1 day | leaf:certificateHold
crl lifts | root | -2 hours..+1 day
crl bad | root | -1 hour..+1 day | | authorityKeyIdentifier = keyid; !badsig
crl version | root | -1 hour..+1 day | | authorityKeyIdentifier = keyid; 1.3.6.1.4.1.311.21.1 = DER:020100; !badsig
crl unknown | absent | -1 hour..+1 day
crl foreign | root | -1 hour..+1 day | | authorityKeyIdentifier = keyid; issuingDistributionPoint = @far; !badsig
)",
                                        server.url("")));
  const std::string url = server.url("/one");
  const auto cached = [&]() -> std::string {
    const UrlCacheHandle cache = UrlCacheSingleton(ElementType::Crl);
    const std::optional<CachedObject> found = cache ? cache->find(url) : std::nullopt;
    if (!found) return "";
    for (const char* row : {"early", "holds", "lifts", "bad", "version", "unknown", "foreign"}) {
      const PCCRL_CONTEXT crl = objects.crl(row);
      if (std::ranges::equal(found->context->element().encoded(),
                             std::span(crl->pbCrlEncoded, crl->cbCrlEncoded)))
        return row;
    }
    return "?";
  };
  constexpr DWORD kUnknown = CERT_TRUST_REVOCATION_STATUS_UNKNOWN, kRevoked = CERT_TRUST_IS_REVOKED;
  const struct {
    const char* list;  // on the server
    bool byOthers;     // a program fetches it by itself before
    DWORD flags;
    DWORD status;
    const char* cached;
  } steps[] = {
      {"bad",     true,  kChain | kNoWire, kUnknown, ""     },
      {"version", true,  kChain | kNoWire, kUnknown, ""     },
      {"unknown", false, kChain,           kUnknown, ""     },
      {"holds",   false, kChain | kNoWire, kUnknown, ""     },
      {"holds",   false, kChain,           kRevoked, "holds"},
      {"bad",     false, kChain,           kRevoked, "holds"},
      {"version", false, kChain,           kRevoked, "holds"},
      {"unknown", false, kChain,           kRevoked, "holds"},
      {"foreign", false, kChain,           kRevoked, "holds"},
      {"early",   false, kChain,           kRevoked, "holds"},
      {"lifts",   false, kChain | kNoWire, kRevoked, "holds"},
      {"lifts",   false, kChain,           0,        "lifts"},
  };
  for (const auto& each : steps) {
    SCOPED_TRACE(each.list);
    server.put("/one", objects.crl(each.list));
    CrlHandle fetched;
    if (each.byOthers) {
      void* crl = nullptr;
      ASSERT_TRUE(CryptRetrieveObjectByUrlA(url.c_str(), CONTEXT_OID_CRL, CRYPT_WIRE_ONLY_RETRIEVAL, 5000,
                                            &crl, nullptr, nullptr, nullptr, nullptr));
      fetched.reset(static_cast<PCCRL_CONTEXT>(crl));
      ASSERT_EQ(cached(), each.list);
    }
    EXPECT_EQ(Ask(objects, "leaf", each.flags), each.status);
    EXPECT_EQ(cached(), each.cached);
  }
}

TEST(CrlFetch, ServersThatNeverAnswer) {
  RawServer server([](RawConnection& peer) { peer.sleep(20000); });
  const ChainObjects objects(WithServer(R"(
section many | fullname = URI:SERVER/1, URI:SERVER/2, URI:SERVER/3, URI:SERVER/4, URI:SERVER/5, URI:SERVER/6
cert root | | | | | ca
cert leaf | root | | | | ids; crlDistributionPoints = many
)",
                                        server.url("")));
  Build build(objects, "", kChain | CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT);
  build.builder.urlTimeoutMs = 400;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(build.run("leaf"), CERT_TRUST_REVOCATION_STATUS_UNKNOWN);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << "one budget for all";
}

}  // namespace
}  // namespace certkern::test
