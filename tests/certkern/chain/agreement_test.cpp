// Hundreds of chains, each with some of a set of faults, beside what "openssl verify" says of them. Everything that the
// two judge differently on purpose is left out: roots without extensions, self-issued authorities, policies, name
// constraints, unknown critical extensions, and a choice between several issuers.
#include <array>
#include <cstdio>
#include <random>
#include <set>

#include "certkern/chain/chain_fixture.h"

namespace certkern::test {
namespace {

// What may be wrong with a certificate of each floor; floors are linked by key and name, so that any variant goes with
// any other. The first of each floor is sound.
struct Variant {
  const char* name;
  const char* validity;
  const char* extensions;
};

const std::vector<Variant> kAuthorities = {
    {"sound",   "2018..2045", "ca"                                                           },
    {"short",   "2022..2024", "ca"                                                           },
    {"late",    "2026..2045", "ca"                                                           },
    {"none0",   "2018..2045", "ca:0"                                                         },
    {"none1",   "2018..2045", "ca:1"                                                         },
    {"false",   "2018..2045", "basicConstraints = CA:FALSE; ids"                             },
    {"missing", "2018..2045", "ids"                                                          },
    {"nosign",  "2018..2045", "basicConstraints = critical, CA:TRUE; keyUsage = cRLSign; ids"},
    {"nousage", "2018..2045", "basicConstraints = CA:TRUE; ids"                              },
    {"forged",  "2018..2045", "ca; !badsig"                                                  },
};
const std::vector<Variant> kEnds = {
    {"sound",  "2018..2045", "ids"                              },
    {"short",  "2022..2024", "keyUsage = digitalSignature; ids" },
    {"late",   "2026..2045", "none; subjectKeyIdentifier = hash"},
    {"forged", "2018..2045", "ids; !badsig"                     },
    {"ca",     "2018..2045", "ca:0"                             },
};

void AddFloor(std::string& table, const std::string& floor, const std::string& issuer, const std::string& key,
              const std::vector<Variant>& variants) {
  for (const Variant& each : variants) {
    table += "cert " + floor + "-" + each.name + " | " + issuer + " | " + key + ":" + floor
        + " | /CN=" + floor + " | " + each.validity + " | " + each.extensions + "\n";
  }
}

std::string MakeTable() {
  std::string table;
  AddFloor(table, "root", "", "rsa", kAuthorities);
  AddFloor(table, "upper", "root-sound", "p256", kAuthorities);
  AddFloor(table, "lower", "upper-sound", "ed25519", kAuthorities);
  AddFloor(table, "end", "lower-sound", "p256", kEnds);
  AddFloor(table, "short", "root-sound", "p256", kEnds);
  return table + "cert stranger | | p256 | /CN=root | 2018..2045 | ca\n";
}

struct Sample {
  std::string root, others, end, at;
};

// Half of the draws is sound anyway, so that whole chains are often good.
const char* Draw(std::mt19937& random, const std::vector<Variant>& variants) {
  return random() % 2 ? variants[0].name : variants[random() % variants.size()].name;
}

Sample DrawSample(std::mt19937& random) {
  constexpr std::array<const char*, 3> kMoments = {"20230601", "20250601", "20300601"};
  const bool isLong = random() % 4;
  Sample sample;
  sample.at = kMoments[random() % kMoments.size()];
  sample.root = random() % 16 ? std::string("root-") + Draw(random, kAuthorities) : "stranger";
  if (isLong && random() % 16) sample.others += std::string(" upper-") + Draw(random, kAuthorities);
  if (isLong && random() % 16) sample.others += std::string(" lower-") + Draw(random, kAuthorities);
  sample.end = std::string(isLong ? "end-" : "short-") + Draw(random, kEnds);
  return sample;
}

time_t UnixTime(const std::string& at) {
  const FILETIME time = Moment(at);
  const uint64_t ticks = uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
  return static_cast<time_t>(ticks / 10000000 - 11644473600u);
}

class Oracle {
 public:
  explicit Oracle(const ChainObjects& objects) : objects_(objects) {}
  // What it said, empty for a good chain.
  std::string complaint(const Sample& sample) const {
    std::string command =
        "OPENSSL_CONF=/dev/null openssl verify -no-CApath -no-CAstore -check_ss_sig -attime "
        + std::to_string(UnixTime(sample.at)) + " -CAfile '" + file(sample.root) + "'";
    std::istringstream others(sample.others);
    for (std::string row; others >> row;) command += " -untrusted '" + file(row) + "'";
    command += " '" + file(sample.end) + "' 2>&1";
    std::string said;
    FILE* const pipe = popen(command.c_str(), "r");
    for (int byte; pipe && (byte = fgetc(pipe)) != EOF;) said += static_cast<char>(byte);
    return pipe && pclose(pipe) == 0 ? "" : said;
  }

 private:
  std::string file(const std::string& row) const { return objects_.path(row + ".pem"); }
  const ChainObjects& objects_;
};

// The whole verdict, with the root alone trusted.
std::string Judge(const ChainObjects& objects, const Sample& sample) {
  const MemoryStore roots = objects.store(sample.root);
  const MemoryStore others = objects.store(sample.others);
  CERT_CHAIN_ENGINE_CONFIG config{};
  config.cbSize = sizeof config;
  config.hExclusiveRoot = roots.get();
  config.hRestrictedOther = others.get();
  EngineHandle engine;
  EXPECT_TRUE(CertCreateCertificateChainEngine(&config, engine.out()));
  return Verdict(objects, AskChain(engine.get(), objects.certificate(sample.end), {.at = sample.at}).get());
}

TEST(Agreement, WithOpensslVerify) {
  constexpr int kSamples = 300;
  Sandbox();
  const ChainObjects objects(MakeTable());
  const Oracle oracle(objects);
  std::mt19937 random(20260101);  // the same chains each time
  std::set<std::string> kinds;
  int good = 0;
  for (int i = 0; i < kSamples; ++i) {
    const Sample sample = DrawSample(random);
    const std::string complaint = oracle.complaint(sample);
    const std::string verdict = Judge(objects, sample);
    const size_t status = verdict.find(" = ");
    EXPECT_EQ(complaint.empty(), status == verdict.npos)
        << sample.end << sample.others << " " << sample.root << " at " << sample.at << "\n"
        << verdict << "\n"
        << complaint;
    kinds.insert(status == verdict.npos ? "" : verdict.substr(status));
    good += complaint.empty();
  }
  EXPECT_GT(good, kSamples / 8) << "the draw is too gloomy to tell anything";
  EXPECT_EQ(kinds.size(), 6u) << "each status that these faults can lead to, and success";
}

}  // namespace
}  // namespace certkern::test
