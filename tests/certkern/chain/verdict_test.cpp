// Chains that openssl made, judged end to end. What is expected is written from RFC 5280 and from what this library says
// of itself in <certkern/chain.h>, each with its reason; a status stands at the certificate where validation stopped.
#include <sstream>

#include "certkern/chain/chain_fixture.h"

namespace certkern::test {
namespace {

constexpr char kObjects[] = R"(
cert root | | rsa:root | | | ca
cert inter | root | p256:inter | /CN=inter | | ca
cert leaf | inter | p256:leaf | | | ids; extendedKeyUsage = clientAuth, 1.2.3
cert bare | inter | p256:leaf | | | ids

cert gostroot | | gost256 | | | ca
cert edinter | gostroot | ed25519 | | | ca
cert gostsub | edinter | gost512 | | | ca
cert mixed | gostsub | rsa:root | | | ids

cert foldlower | root | p256:fold | /O=an example/CN=the authority | | ca
cert foldupper | root | p256:fold | /O=An  Example/CN=The Authority | | ca
cert foldutf8 | root | p256:fold | /O=An  Example/CN=The Authority | | ca; !utf8
cert folded | foldupper | p256:leaf
cert renamed | root | p256:fold | /CN=somebody else | | ca

cert past | inter | p256:leaf | | 2015..2020 | ids
cert future | inter | p256:leaf | | 2040..2045 | ids
cert window | root | p256:leaf | | 20250102030405..20250203040506 | ids
cert pastinter | root | p256:inter | /CN=inter | 2015..2020 | ca
cert pastinter2 | root | p256:inter | /CN=inter | 2016..2020 | ca
cert pastroot | | rsa:root | /CN=root | 2015..2020 | ca
cert longer | pastroot | p256:leaf | | 2014..2045 | ids

cert forged | inter | p256:leaf | | | ids; !badsig
cert forgedinter | root | p256:inter | /CN=inter | | ca; !badsig
cert forgedroot | | rsa:root | /CN=root | | ca; !badsig
cert twin | | rsa | /CN=root | | ca
cert selfinter | | p256:inter | /CN=inter | | ca

cert noca | root | p256:inter | /CN=inter | | keyUsage = keyCertSign; ids
cert falseca | root | p256:inter | /CN=inter | | basicConstraints = CA:FALSE; keyUsage = keyCertSign; ids
cert bareroot | | rsa:bareroot | | | none
cert underbare | bareroot | p256:leaf | | | subjectKeyIdentifier = hash
cert root0 | | rsa:root | /CN=root | | ca:0
cert inter0 | root | p256:inter | /CN=inter | | ca:0
cert rollover | inter0 | p256:roll | /CN=inter | | ca
cert underroll | rollover | p256:leaf
cert subinter | inter | p256:sub | /CN=sub | | ca
cert undersub | subinter | p256:leaf

cert nosign | root | p256:inter | /CN=inter | | basicConstraints = CA:TRUE; keyUsage = cRLSign; ids
cert nousage | root | p256:inter | /CN=inter | | basicConstraints = CA:TRUE; ids
cert otherinter | root | p256:inter | /CN=inter | | ca; extendedKeyUsage = 1.2.4
cert anyusage | inter | p256:leaf | | | ids; extendedKeyUsage = anyExtendedKeyUsage

cert anyroot | | rsa:root | /CN=root | | ca; certificatePolicies = 2.5.29.32.0
cert policyinter | root | p256:inter | /CN=inter | | ca; certificatePolicies = 1.2.3, 1.2.4; policyConstraints = critical, requireExplicitPolicy:0
cert laterinter | root | p256:inter | /CN=inter | | ca; certificatePolicies = 1.2.3; policyConstraints = critical, requireExplicitPolicy:1
cert policy3 | inter | p256:leaf | | | ids; certificatePolicies = 1.2.3
cert policy5 | inter | p256:leaf | | | ids; certificatePolicies = 1.2.5
cert noany | root | p256:inter | /CN=inter | | ca; certificatePolicies = 2.5.29.32.0; inhibitAnyPolicy = 0; policyConstraints = requireExplicitPolicy:0

section excluded | excluded.DNS = a.example
cert limited | root | p256:inter | /CN=inter | | ca; nameConstraints = critical, @excluded
cert named | inter | p256:leaf | | | ids; subjectAltName = DNS:a.example
cert critical | inter | p256:leaf | | | ids; 1.2.3.4.5 = critical, DER:0500

cert r1 | | p256:r1 | | | ca
cert r2 | | p256:r2 | | | ca
cert caself | | p256:k | /CN=CA | | ca
cert capast | r1 | p256:k | /CN=CA | 2015..2020 | ca
cert cagood | r1 | p256:k | /CN=CA | | ca
cert cacross | r2 | p256:k | /CN=CA | | ca
cert ee | cagood | p256:leaf
crl revoked | r1 | | cagood:keyCompromise
crl clear | r2
crl eelist | cagood
)";

const ChainObjects& Objects() {
  static const ChainObjects objects(kObjects);
  return objects;
}

// ROOTS | OTHERS | CERTIFICATE and how it is asked for | VERDICT | REASON. How: at:MOMENT; usage:OID, all of them unless
// there is "any"; late: signatures are verified with the whole path; revocation.
constexpr char kVerdicts[] = R"(
root | inter | leaf | leaf inter root | nothing is wrong
root | | root | root | a trusted self-signed certificate is a path
gostroot | edinter gostsub | mixed | mixed gostsub edinter gostroot | each link has an algorithm of its own
root | foldlower | folded | folded foldlower root | case and runs of blanks don't count in PrintableString
root | foldutf8 | folded | folded foldutf8 = 0x10000 | in a UTF8String they do
root | renamed | folded | folded renamed = 0x10000 | found by its key identifier, but names must chain
root | inter | critical | critical inter root | unknown critical extensions are not looked at
root | limited | named | named limited root | neither are name constraints

# time
root | inter | past | past:0x1 inter root = 0x1 | expired
root | inter | future | future:0x1 inter root = 0x1 | not valid yet
root | inter | future at:20410101 | future inter:0x1 = 0x1 | now the issuer has expired
root | pastinter | leaf | leaf pastinter:0x1 = 0x1 | an expired issuer is not followed
pastroot | | longer | longer pastroot:0x1 = 0x1 | an expired root
pastroot | | longer at:20170101 | longer pastroot | validities need not be nested
root | | window at:20250102030404 | window:0x1 root = 0x1 | one second early
root | | window at:20250102030405 | window root | bounds belong to it
root | | window at:20250203040506 | window root | bounds belong to it
root | | window at:20250203040507 | window:0x1 root = 0x1 | one second late

# signatures
root | inter | forged | forged inter:0x8 = 0x8 | no issuer's key made it; said of the issuer that was tried
root | inter | forged late | forged:0x8 inter root = 0x8 | said of the certificate in validation
root | forgedinter | leaf | leaf forgedinter root:0x8 = 0x8 | an intermediate
forgedroot | inter | leaf | leaf inter forgedroot = 0x10000 | a root that did not sign itself ends nothing
twin | inter | leaf | leaf inter = 0x10000 | the root's name with another key identifier

# where a path ends
root | | leaf | leaf = 0x10000 | no issuer
r1 | inter | leaf | leaf inter = 0x10000 | no root
inter | | leaf | leaf inter = 0x10000 | an intermediate in "Root" ends nothing
twin | root inter | leaf | leaf inter root:0x20 = 0x20 | the root is there, but nobody trusts it
twin | | selfinter | selfinter:0x20 = 0x20 | self-signed, a stranger

# basic constraints
root | noca | leaf | leaf noca:0x400 root = 0x400 | the extension is missing, whatever the key usage
root | falseca | leaf | leaf falseca:0x400 root = 0x400 | not an authority
bareroot | | underbare | underbare bareroot:0x400 = 0x400 | roots are not excepted
bareroot | | bareroot | bareroot | but what issues nothing is
root0 | inter | leaf | leaf inter:0x400 root0 = 0x400 | no authority may be below the root
root | inter0 | leaf | leaf inter0 root | no authority is below it
root | inter0 subinter | undersub | undersub subinter:0x400 inter0 root = 0x400 | here one is
root | inter0 rollover | underroll | underroll rollover:0x400 inter0 root = 0x400 | self-issued ones count

# key usage and requested usage
root | nosign | leaf | leaf nosign:0x10 root = 0x10 | may not sign certificates
root | nousage | leaf | leaf nousage root | without the extension it may
root | inter | leaf usage:1.2.3 | leaf inter root | has it
root | inter | leaf usage:1.2.4 | leaf:0x10 inter root = 0x10 | lacks it
root | inter | leaf usage:1.2.3 usage:1.2.4 | leaf:0x10 inter root = 0x10 | lacks one
root | inter | leaf usage:1.2.3 usage:1.2.4 any | leaf inter root | one is enough
root | inter | bare usage:1.2.4 | bare inter root | no extension, no limit
root | inter | anyusage usage:1.2.4 | anyusage:0x10 inter root = 0x10 | the identifier for any is one of many
root | otherinter | leaf usage:1.2.3 | leaf otherinter root | an authority's purposes bind nobody below

# certificate policies
anyroot | policyinter | policy3 | policy3 policyinter anyroot | a policy is shared by all
anyroot | policyinter | policy5 | policy5:0x10 policyinter anyroot = 0x10 | none is, and one is required
anyroot | policyinter | leaf | leaf:0x10 policyinter anyroot = 0x10 | none at all
anyroot | laterinter | leaf | leaf laterinter anyroot | required further down only
anyroot | inter | policy5 | policy5 inter anyroot | nobody requires one
root | policyinter | policy3 | policy3:0x10 policyinter root = 0x10 | the root counts, and has none
anyroot | noany | policy3 | policy3 noany anyroot | that any is inhibited is not looked at

# the best of several failures
r1 | cagood capast caself | ee revocation | ee cagood:0x40 r1 = 0x40 | unknown beats expired and untrusted
r1 | cagood capast caself revoked | ee revocation | ee cagood:0x4 r1 = 0x4 | so does revoked
r1 r2 | cacross cagood capast caself revoked clear eelist | ee revocation | ee cacross r2 | and success beats all
r2 | capast caself | ee | ee capast:0x1 = 0x1 | expired beats untrusted
r2 | caself capast | ee | ee capast:0x1 = 0x1 | in any order
twin | inter selfinter | leaf | leaf selfinter:0x20 = 0x20 | untrusted beats partial
root | forgedinter noca | leaf | leaf noca:0x400 root = 0x400 | no authority beats a bad signature
root | nosign noca | leaf | leaf noca:0x400 root = 0x400 | and a key that may not sign
root | pastinter pastinter2 | leaf | leaf pastinter2:0x1 = 0x1 | the first of equals, newest first
root | pastinter2 pastinter | leaf | leaf pastinter:0x1 = 0x1 | the first of equals, newest first
)";

std::string Trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(' ');
  return begin == text.npos ? "" : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

std::vector<std::string> Fields(const std::string& row) {
  std::vector<std::string> fields;
  std::istringstream parts(row);
  for (std::string part; std::getline(parts, part, '|');) fields.push_back(Trimmed(part));
  return fields;
}

struct AskedQuestion {
  std::string end;
  std::vector<std::string> usages;
  Question question;

  explicit AskedQuestion(const std::string& text) {
    std::istringstream words(text);
    words >> end;
    for (std::string word; words >> word;) {
      const std::string value = word.substr(word.find(':') + 1);
      if (word.starts_with("at:")) question.at = value;
      if (word.starts_with("usage:")) usages.push_back(value);
      if (word == "any") question.usageType = USAGE_MATCH_TYPE_OR;
      if (word == "late") question.flags |= CERT_CHAIN_DISABLE_PASS1_QUALITY_FILTERING;
      if (word == "revocation") question.flags |= CERT_CHAIN_REVOCATION_CHECK_CHAIN;
    }
    for (const std::string& each : usages) question.usages.push_back(each.c_str());
  }
};

TEST(Verdicts, AsRfc5280AndTheHeaderSay) {
  std::istringstream rows(kVerdicts);
  for (std::string row; std::getline(rows, row);) {
    if (row.empty() || row.starts_with('#')) continue;
    const std::vector<std::string> fields = Fields(row);
    ASSERT_EQ(fields.size(), 5u) << row;
    const AskedQuestion asked(fields[2]);
    const ChainWorld world(Objects(), fields[0], fields[1]);
    EXPECT_EQ(world.verdict(asked.end, asked.question), fields[3]) << row;
  }
}

}  // namespace
}  // namespace certkern::test
