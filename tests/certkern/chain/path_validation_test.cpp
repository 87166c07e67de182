#include <certkern/oids.h>
#include <gtest/gtest.h>

#include "certkern/chain/cert_facts.h"
#include "certkern/chain/made_certificate.h"

namespace certkern::test {
namespace {

constexpr char kA[] = "1.1", kB[] = "1.2", kC[] = "1.3", kD[] = "1.4", kX[] = "1.5", kY[] = "1.6";
constexpr char kAny[] = "2.5.29.32.0";

using Extensions = std::vector<MadeExtension>;

MadeExtension Authority(int pathLength = -1) { return {szOID_BASIC_CONSTRAINTS2, DerAuthority(pathLength)}; }
MadeExtension NoAuthority() { return {szOID_BASIC_CONSTRAINTS2, DerSequence({})}; }
MadeExtension KeyUsage(char bits) { return {szOID_KEY_USAGE, Der(0x03, {'\0', bits})}; }
MadeExtension Policies(const std::vector<std::string>& oids) {
  return {szOID_CERT_POLICIES, DerPolicies(oids)};
}
MadeExtension Purposes(const std::vector<std::string>& oids) {
  return {szOID_ENHANCED_KEY_USAGE, DerOids(oids)};
}
MadeExtension ApplPolicies(const std::vector<std::string>& oids) {
  return {szOID_APPLICATION_CERT_POLICIES, DerPolicies(oids)};
}
// requireExplicitPolicy
MadeExtension Explicit(char skip, const char* oid = szOID_POLICY_CONSTRAINTS) {
  return {oid, DerSequence({Der(0x80, std::string(1, skip))})};
}

// Certificates from the root down, each issued by the one before; all of them are trusted, so that nothing here depends
// on revocation.
class Path {
 public:
  Path& add(const std::string& subject, const Extensions& extensions) {
    MadeCertificate made;
    made.subject = subject;
    made.issuer = issuer_.empty() ? subject : issuer_;
    made.serial = std::string(1, static_cast<char>(builder.chain.size() + 1));
    made.extensions = extensions;
    issuer_ = subject;
    return add(made);
  }
  Path& add(const MadeCertificate& made) {
    CertRecord& record = builder.records->certificate(made.context().get(), true);
    builder.chain.push_back({&record, 0, {}, {}});
    return *this;
  }
  CertRecord& at(size_t place) { return *std::next(builder.chain.begin(), static_cast<long>(place))->record; }
  std::string verdict() {
    const bool valid = builder.validatePath();
    EXPECT_NE(valid, builder.bestError.has_value());
    for (const ChainNode& node : builder.chain) EXPECT_EQ(node.errorStatus, 0u) << "only in the snapshot";
    return valid ? "valid" : ToldBest(builder);
  }

  ChainBuilder builder;

 private:
  std::string issuer_;
};

// Root R, authorities A and B as needed, end certificate EE.
std::string Verdict(const std::vector<Extensions>& certificates) {
  constexpr const char* kNames[] = {"R", "A", "B", "C"};
  Path path;
  for (size_t i = 0; i < certificates.size(); ++i)
    path.add(i && i + 1 == certificates.size() ? "EE" : kNames[i], certificates[i]);
  return path.verdict();
}

TEST(PathValidation, Authorities) {
  const MadeExtension ca = Authority();
  const MadeExtension broken = {szOID_BASIC_CONSTRAINTS2, "\x30\x7F"};
  const struct {
    const char* name;
    std::vector<Extensions> path;
    const char* verdict;
  } cases[] = {
      {"a root by itself is an end certificate", {{}},                                               "valid"               },
      {"three",                                  {{ca}, {ca}, {}},                                   "valid"               },
      {"a root is an authority, too",            {{}, {}},                                           "EE R:0x400 = 0x400"  },
      {"explicitly none",                        {{ca}, {NoAuthority()}, {}},                        "EE A:0x400 R = 0x400"},
      {"broken constraints are none",            {{ca}, {broken}, {}},                               "EE A:0x400 R = 0x400"},
      {"path length 0 allows the end",           {{Authority(0)}, {}},                               "valid"               },
      {"but no authority",                       {{Authority(0)}, {ca}, {}},                         "EE A:0x400 R = 0x400"},
      {"a longer one below doesn't help",
       {{Authority(1)}, {Authority(9)}, {ca}, {}},
       "EE B:0x400 A R = 0x400"                                                                                            },
      {"negative: no bound",                     {{Authority(0xFF)}, {ca}, {}},                      "valid"               },
      {"key usage without keyCertSign",          {{ca}, {ca, KeyUsage('\x02')}, {}},                 "EE A:0x10 R = 0x10"  },
      {"with it",                                {{ca}, {ca, KeyUsage('\x06')}, {KeyUsage('\x02')}}, "valid"               },
      {"broken key usage is none",               {{ca}, {ca, {szOID_KEY_USAGE, "\x03\x7F"}}, {}},    "valid"               },
      {"constraints come before key usage",      {{ca}, {KeyUsage('\x02')}, {}},                     "EE A:0x400 R = 0x400"},
      {"what nobody knows changes nothing",
       {{ca}, {ca, {"1.9", "\x05"}, {szOID_NAME_CONSTRAINTS, "\x30"}}, {}},
       "valid"                                                                                                             },
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    EXPECT_EQ(Verdict(each.path), each.verdict);
  }
  // a self-issued certificate counts like any other
  EXPECT_EQ(Path().add("R", {Authority(1)}).add("R", {ca}).add("B", {ca}).add("EE", {}).verdict(),
            "EE B:0x400 R R = 0x400");
}

TEST(PathValidation, Policies) {
  const MadeExtension ca = Authority();
  const MadeExtension applExplicit = Explicit(0, szOID_APPLICATION_POLICY_CONSTRAINTS);
  const struct {
    const char* name;
    std::vector<Extensions> path;
    const char* verdict;
  } cases[] = {
      {"an empty tree is allowed",            {{ca}, {ca, Policies({kC})}, {Policies({kD})}},   "valid"               },
      {"unless a policy is required",
       {{ca, Policies({kA, kC})}, {ca, Policies({kC}), Explicit(0)}, {Policies({kD})}},
       "EE:0x10 A R = 0x10"                                                                                           },
      {"which there is",
       {{ca, Policies({kA, kC})}, {ca, Policies({kC}), Explicit(0)}, {Policies({kC})}},
       "valid"                                                                                                        },
      {"no policies are none",
       {{ca, Policies({kAny})}, {ca, Policies({kAny}), Explicit(0)}, {}},
       "EE:0x10 A R = 0x10"                                                                                           },
      {"a root without policies leaves none",
       {{ca}, {ca, Policies({kA}), Explicit(0)}, {Policies({kA})}},
       "EE:0x10 A R = 0x10"                                                                                           },
      {"skip one",                            {{ca}, {ca, Explicit(1)}, {}},                    "valid"               },
      {"skip one of two",                     {{ca}, {ca, Explicit(1)}, {ca}, {}},              "EE:0x10 B A R = 0x10"},
      {"negative: never",                     {{ca}, {ca, Explicit('\xFF')}, {}},               "valid"               },
      {"the others' constraints don't count", {{ca}, {ca, applExplicit}, {}},                   "valid"               },
      {"application policies are required",
       {{ca}, {ca, Purposes({kX}), applExplicit}, {Purposes({kY})}},
       "EE:0x10 A R = 0x10"                                                                                           },
      {"and come to life behind a mismatch",  {{ca, Purposes({kX})}, {ca, Purposes({kY})}, {}}, "valid"               },
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    EXPECT_EQ(Verdict(each.path), each.verdict);
  }
  // a self-issued authority does not use up a certificate that may be skipped
  EXPECT_EQ(Path().add("R", {ca, Explicit(1)}).add("R", {ca}).add("EE", {}).verdict(), "valid");
  EXPECT_EQ(Path().add("R", {ca, Explicit(1)}).add("A", {ca}).add("EE", {}).verdict(), "EE:0x10 A R = 0x10");
}

TEST(PathValidation, ListsOfAnElement) {
  const MadeExtension ca = Authority();
  const auto lists = [](const ChainNode& node) {
    std::string told;
    for (const std::string& each : node.certPolicies) told += each + " ";
    told += "/";
    for (const std::string& each : node.applPolicies) told += " " + each;
    return told;
  };
  const struct {
    const char* name;
    Extensions root, authority, end;
    const char* lists;
  } cases[] = {
      {"policies narrow down",              {ca, Policies({kA, kB, kC})}, {ca, Policies({kC})},     {Policies({kC})},   "1.3 /"},
      {"to nothing",                        {ca, Policies({kA, kB, kC})}, {ca, Policies({kC})},     {Policies({kD})},   "/"    },
      {"one of both passes stands twice",
       {ca, Policies({kAny})},
       {ca, Policies({kAny, kA})},
       {Policies({kA})},
       "1.1 1.1 /"                                                                                                             },
      {"any is not listed",                 {ca, Policies({kAny})},       {ca, Policies({kAny})},   {Policies({kAny})}, "/"    },
      {"purposes narrow down",              {ca},                         {ca, Purposes({kX, kY})}, {Purposes({kY})},   "/ 1.6"},
      {"application policies replace them",
       {ca},
       {ca, Purposes({kX, kY})},
       {Purposes({kX}), ApplPolicies({kY})},
       "/ 1.6"                                                                                                                 },
      {"a mismatch is forgotten",           {ca, Purposes({kX})},         {ca, Purposes({kY})},     {},                 "/"    },
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    Path path;
    path.add("R", each.root).add("A", each.authority).add("EE", each.end);
    for (int pass = 0; pass < 2; ++pass) {  // and nothing is left of an earlier pass
      EXPECT_EQ(path.verdict(), "valid");
      EXPECT_EQ(lists(path.builder.chain.back()), each.lists);
    }
    path.builder.checkTime = {};
    EXPECT_EQ(path.verdict(), "EE A R:0x1 = 0x1");
    EXPECT_EQ(lists(path.builder.bestError->chain.back()), "/") << "nor where a pass does not come to";
  }
}

TEST(PathValidation, RequestedUsage) {
  const struct {
    const char* name;
    Extensions end;
    std::vector<const char*> wanted;
    DWORD type;
    bool valid;
  } cases[] = {
      {"nothing is asked",                 {Purposes({kX})},                     {},        USAGE_MATCH_TYPE_AND, true },
      {"no extension",                     {},                                   {kX},      USAGE_MATCH_TYPE_AND, true },
      {"a broken extension",               {{szOID_ENHANCED_KEY_USAGE, "\x30"}}, {kX},      USAGE_MATCH_TYPE_AND, true },
      {"all are there",                    {Purposes({kY, kX})},                 {kX, kY},  USAGE_MATCH_TYPE_AND, true },
      {"not all",                          {Purposes({kX})},                     {kX, kY},  USAGE_MATCH_TYPE_AND, false},
      {"one is enough",                    {Purposes({kX})},                     {kX, kY},  USAGE_MATCH_TYPE_OR,  true },
      {"another type is OR",               {Purposes({kX})},                     {kX, kY},  7,                    true },
      {"none",                             {Purposes({kA})},                     {kX, kY},  USAGE_MATCH_TYPE_OR,  false},
      {"any purpose is only a name",       {Purposes({"2.5.29.37.0"})},          {kX},      USAGE_MATCH_TYPE_OR,  false},
      {"application policies don't count",
       {Purposes({kX}), ApplPolicies({kY})},
       {kX},
       USAGE_MATCH_TYPE_AND,                                                                                      true },
      {"a record without texts",           {Purposes({kX})},                     {nullptr}, USAGE_MATCH_TYPE_OR,  false},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    CERT_USAGE_MATCH match{
        each.type, {static_cast<DWORD>(each.wanted.size()), const_cast<LPSTR*>(each.wanted.data())}
    };
    Path path;
    path.builder.requestedUsage = &match;
    path.add("R", {Authority(), Purposes({kA})}).add("EE", each.end);
    EXPECT_EQ(path.verdict(), each.valid ? "valid" : "EE:0x10 R = 0x10");
  }
}

TEST(PathValidation, TimeAndNames) {
  MadeCertificate root{.subject = "R", .issuer = "R", .extensions = {Authority()}};
  MadeCertificate end{.subject = "EE", .issuer = "R", .serial = "\x02"};
  end.notBefore = "20240101000000Z";
  end.notAfter = "20240201000000Z";
  const struct {
    const char* name;
    const char* at;
    const char* issuer;
    const char* verdict;
  } cases[] = {
      {"the first second counts",                 "20240101000000", "R",    "valid"         },
      {"so does the last",                        "20240201000000", "R",    "valid"         },
      {"before",                                  "20231231235959", "R",    "EE:0x1 R = 0x1"},
      {"behind",                                  "20240201000001", "R",    "EE:0x1 R = 0x1"},
      {"the root comes first",                    "20190101000000", "R",    "EE R:0x1 = 0x1"},
      {"names are folded",                        "20240110000000", "  r ", "valid"         },
      {"another name is the whole chain's fault", "20240110000000", "Q",    "EE R = 0x10000"},
      {"time comes before names",                 "20250110000000", "Q",    "EE:0x1 R = 0x1"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    end.issuer = each.issuer;
    Path path;
    path.builder.checkTime = FileTimeOf(each.at);
    EXPECT_EQ(path.add(root).add(end).verdict(), each.verdict);
  }
}

TEST(PathValidation, DeferredSignatures) {
  const MadeExtension ca = Authority();
  for (const bool good : {false, true}) {
    Path path;
    path.add("R", {ca}).add("A", {ca}).add("EE", {});
    path.at(1).signatures[&path.at(0)] = true;
    path.at(2).signatures[&path.at(1)] = good;
    EXPECT_EQ(path.verdict(), "valid") << "the search has verified them";
    path.builder.flags |= CERT_CHAIN_DISABLE_PASS1_QUALITY_FILTERING;
    EXPECT_EQ(path.verdict(), good ? "valid" : "EE:0x8 A R = 0x8");
    path.builder.bestError.reset();
    path.at(2).verifiedIssuers.push_back(&path.at(1));
    EXPECT_EQ(path.verdict(), "valid");
  }
}

// Each policy of a certificate makes a node under each of the level above.
TEST(PathValidation, ExponentialPolicies) {
  const Extensions many = {Authority(), Policies(std::vector<std::string>(64, kAny))};
  EXPECT_EQ(Verdict({many, many, many}), "EE:0x10 A R = 0x10");
  const MadeExtension policies = Policies(std::vector<std::string>(250, kAny));
  const MadeExtension purposes = Purposes(std::vector<std::string>(60, kX));
  const auto twice = [](const Extensions& each) { return Verdict({each, each}); };
  EXPECT_EQ(twice({Authority(), policies}), "valid");
  EXPECT_EQ(twice({Authority(), purposes}), "valid");
  EXPECT_EQ(twice({Authority(), policies, purposes}), "EE:0x10 R = 0x10") << "both trees count";
}

}  // namespace
}  // namespace certkern::test
