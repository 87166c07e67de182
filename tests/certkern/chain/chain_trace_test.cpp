// What a build tells on standard output. The wish is read when the library is loaded, so the build runs in a child.
#include "certkern/chain/chain_trace.h"

#include <certkern/keykern.h>
#include <sys/wait.h>

#include <cstdio>
#include <iostream>
#include <sstream>

#include "certkern/chain/chain_fixture.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr char kTable[] = R"(
cert root | | | /C=RU/CN=Root | | ca; subjectAltName = email:ca@example.org
cert leaf | root | | /O=An, example/CN=leaf | | ids; subjectAltName = @names; issuerAltName = issuer:copy
section names | DNS.1 = a.example; IP.1 = 127.0.0.1; IP.2 = ::1; URI.1 = http://a/; RID.1 = 1.2.3; dirName.1 = dir
section dir | CN = x
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
  EXPECT_EQ(ResultIn(Between(said, "-- late", "-- trace")),
            "----------- Error chain -----------\n"
            "Chain status: IS_NOT_TIME_VALID\n"
            "Revocation reason: unused\n"
            "1. \n" + root + "Cert status: IS_NOT_TIME_VALID\n"
            "2. \n" + leaf + "Cert status: CERT_TRUST_NO_ERROR\n");
  std::istringstream indented("  text 5|more\n" + leaf);
  std::string expected, line;
  for (size_t i = 0; std::getline(indented, line); ++i) expected += (i ? "    " + line : line) + "\n";
  EXPECT_EQ(Between(said, "-- trace", "-- end"), expected);
}

TEST(ChainTrace, IsSilentWithoutTheWish) {
  EXPECT_EQ(Between(RunChild("env -u SV_PRINT_CHAIN_DETAIL"), "-- good", "-- end"), "-- late\n-- trace\n");
}

}  // namespace
