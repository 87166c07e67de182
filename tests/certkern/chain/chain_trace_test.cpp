// What a build tells on standard output. The wish is read when the library is loaded, so the build runs in a child.
#include "certkern/chain/chain_trace.h"

#include <certkern/keykern.h>
#include <sys/wait.h>

#include <cstdio>
#include <iostream>
#include <sstream>

#include "certkern/chain/chain_builder.h"
#include "certkern/chain/chain_fixture.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr char kTable[] = R"(
cert root | | | /C=RU/CN=Root | | ca; subjectAltName = email:ca@example.org
cert leaf | root | | /O=An, example/CN=leaf | | ids; subjectAltName = @names; issuerAltName = issuer:copy
section names | DNS.1 = a.example; IP.1 = 127.0.0.1; IP.2 = ::1; URI.1 = http://a/; RID.1 = 1.2.3; dirName.1 = dir
section dir | CN = x

cert top | | | /CN=R | | ca
cert held | top | | /CN=L | | ids; 1.3.6.1.5.5.7.1.1 = DER:3025302306082B060105050730028617687474703A2F2F3132372E302E302E313A312F676F6E65
crl list | top | | held:superseded
)";

// The child's part.
TEST(ChainTraceChild, DISABLED_Build) {
  const ChainObjects objects(kTable);
  const ChainWorld world(objects, "root", "");
  std::cout << "-- good\n";
  SetLastError(4711);
  EXPECT_EQ(world.verdict("leaf"), "leaf root");
  std::cout << "-- late\n";
  EXPECT_EQ(world.verdict("leaf", {.at = "20990101"}), "leaf root:0x1 = 0x1");
  std::cout << "-- revoked\n";
  const ChainWorld listed(objects, "top", "list");
  EXPECT_EQ(listed.verdict("held", {.flags = CERT_CHAIN_REVOCATION_CHECK_CHAIN, .wire = true}),
            "held:0x4 top = 0x4");
  std::cout << "-- spent\n";
  ChainBuilder spent;
  spent.budget->candidateSteps = kMaxChainCandidateSteps - 2;  // for the root and the key of the issuer
  spent.flags = CERT_CHAIN_REVOCATION_CHECK_CHAIN | CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY;
  const MemoryStore stored = objects.store("top list");
  ChainBuilder::addStore(spent.certStores, stored.get(), true);
  ChainBuilder::addStore(spent.crlStores, stored.get(), true);
  EXPECT_FALSE(spent.verifyCertificate(spent.records->certificate(objects.certificate("held"), false)));
  std::cout << "-- trace\n";
  SetLastError(4711);
  const ChainTrace outer;
  outer.nested().line("text ", 5u, "|", std::string("more"));
  outer.nested().nested().certificate(objects.certificate("leaf"));
  EXPECT_EQ(GetLastError(), 4711u);
  std::cout << "-- end\n";
}

std::string RunChild(const std::string& environment) {
  const std::string command = environment + " '" + std::filesystem::read_symlink("/proc/self/exe").string()
      + "' --gtest_also_run_disabled_tests --gtest_filter='ChainTraceChild.*'";
  FILE* const pipe = popen(command.c_str(), "r");
  std::string said;
  for (int byte; pipe && (byte = fgetc(pipe)) != EOF;) said += static_cast<char>(byte);
  EXPECT_TRUE(pipe && pclose(pipe) == 0) << said;
  return said;
}

std::string Between(const std::string& text, const std::string& from, const std::string& to) {
  const size_t begin = text.find(from + "\n");
  const size_t end = text.find(to + "\n", begin);
  if (begin == text.npos || end == text.npos) return "no " + from + " in " + text;
  return text.substr(begin + from.size() + 1, end - begin - from.size() - 1);
}

std::string ResultIn(const std::string& part) {
  const size_t begin = part.find("-----------");
  return begin == part.npos ? part : part.substr(begin);
}

// Handles become "@".
std::string WithoutHandles(std::string text) {
  for (size_t at = 0; (at = text.find("0x", at)) != text.npos;) {
    text.replace(at, text.find_first_not_of("0123456789abcdefx", at) - at, 1, '@');
  }
  return text;
}

std::string Indented(const std::string& text, const std::string& blanks) {
  std::istringstream lines(text);
  std::string indented;
  for (std::string line; std::getline(lines, line);) indented.append(blanks).append(line).append("\n");
  return indented;
}

TEST(ChainTrace, TellsTheBuild) {
  const std::string said = RunChild("SV_PRINT_CHAIN_DETAIL=");
  const std::string root =
      "AltName:rfc822Name=ca@example.org\n"
      "Subject:'C=RU, CN=Root'\n"
      "Issuer:'C=RU, CN=Root'\n";
  const std::string leaf =
      "AltName:dNSName=a.example, iPAddress=127.0.0.1, iPAddress=::1, uniformResourceIdentifier=http://a/, "
      "registeredID=1.2.3, ALTNAME=<DIRECTORY_NAME>\n"
      "Subject:'O=\"An, example\", CN=leaf'\n"
      "AltName:rfc822Name=ca@example.org\n"
      "Issuer:'C=RU, CN=Root'\n";
  EXPECT_EQ(ResultIn(Between(said, "-- good", "-- late")),
            "----------- Valid chain -----------\n"
            "Chain status: CERT_TRUST_NO_ERROR\n"
            "Revocation reason: unused\n"
            "1. \n" + root + "Cert status: CERT_TRUST_NO_ERROR\n"
            "2. \n" + leaf + "Cert status: CERT_TRUST_NO_ERROR\n");
  EXPECT_EQ(ResultIn(Between(said, "-- late", "-- revoked")),
            "----------- Error chain -----------\n"
            "Chain status: IS_NOT_TIME_VALID\n"
            "Revocation reason: unused\n"
            "1. \n" + root + "Cert status: IS_NOT_TIME_VALID\n"
            "2. \n" + leaf + "Cert status: CERT_TRUST_NO_ERROR\n");
  EXPECT_EQ(Between(said, "-- trace", "-- end"), "  text 5|more\n" + Indented(leaf, "    "));
}

TEST(ChainTrace, TellsTheSearchTheValidationAndTheLists) {
  const std::string said = WithoutHandles(RunChild("SV_PRINT_CHAIN_DETAIL=1"));
  const std::string root = "Subject:'CN=R'\nIssuer:'CN=R'\n";
  const std::string leaf = "Subject:'CN=L'\nIssuer:'CN=R'\n";
  const std::string access = "AIA urls 1. Not found in cache 1\n";
  const std::string found = "Found at attached list:\n" + root + "Found at store @:\n" + root;
  const std::string rootIsGood =
      "Verifing chain....\n"
      " initial oid = 2.5.29.32.0\n"
      "1. Verifing chain item:\n" + root +
      " No extension. Create new leaf depth1\n"
      "level = 1 Node size = 0 num_child = 0 parent_i = 0 parent_j = 0\n"
      "level = 1 Node size = 1 num_child = 0 parent_i = 0 parent_j = 0\n";
  const std::string list =
      "  (1). Verifing certificate in crl\n"
      "Verifing crl signature.\n" + found + "1.Find path for:\n" + root + rootIsGood +
      "Build chain is valid.\n"
      "Crl signature verified.\n"
      "  (1). Certificate found in crl.\n"
      "Certificate found at crl.\n";
  const std::string revoked = Between(said, "-- revoked", "-- spent");
  EXPECT_EQ(revoked.substr(0, revoked.find("-----------")),
            "1.Find path for:\n" + leaf + "Found at store @:\n" + root + access + "2.Find path for:\n" + root
                + rootIsGood + "2. Verifing chain item:\n" + leaf
                + Indented("Searching certificate in crl.\n" + found + access + list + list, "  ") +
                "Build chain is not valid.\n"
                "Can't load http://127.0.0.1:1/gone\n"
                "There is no valid issuer.\n");
  EXPECT_NE(
      Between(said, "-- spent", "-- trace")
          .find(
              "  Verifing crl signature.\n  Crl signature is not verified.\n    (1). CRL is not verified.\n"),
      std::string::npos);
}

TEST(ChainTrace, IsSilentWithoutTheWish) {
  EXPECT_EQ(Between(RunChild("env -u SV_PRINT_CHAIN_DETAIL"), "-- good", "-- end"),
            "-- late\n-- revoked\n-- spent\n-- trace\n");
}

}  // namespace
