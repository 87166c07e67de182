// certkern chain: finds a certificate's path to a trusted root, and judges it.
#include "chain_report.h"
#include "command.h"
#include "output.h"
#include "subject.h"
#include "text.h"

#include <certkern/policy.h>
#include <fmt/format.h>

#include <cstdio>
#include <memory>

namespace certkern::cli {
namespace {

struct ChainArguments {
  ChainOptions chain;
  std::string policy;
  std::string host;
  bool client = false;
  bool json = false;
  bool dot = false;
};

PolicyResult JudgeBy(LPCSTR oid, const std::string& name, const BuiltChain& built, void* extra) {
  CERT_CHAIN_POLICY_PARA para{sizeof para, 0, extra};
  CERT_CHAIN_POLICY_STATUS status{};
  status.cbSize = sizeof status;
  if (!CertVerifyCertificateChainPolicy(oid, built.chain.get(), &para, &status)) ThrowLastError("the policy");
  return {name, status.dwError};
}

std::optional<PolicyResult> JudgePolicy(const ChainArguments& arguments, const BuiltChain& built) {
  if (arguments.policy.empty()) return std::nullopt;
  if (arguments.policy == "base") return JudgeBy(CERT_CHAIN_POLICY_BASE, "base", built, nullptr);
  std::wstring host = Wide(arguments.host, "--host");
  SSL_EXTRA_CERT_CHAIN_POLICY_PARA extra{};
  extra.cbSize = sizeof extra;
  extra.dwAuthType = arguments.client ? AUTHTYPE_CLIENT : AUTHTYPE_SERVER;
  extra.pwszServerName = host.empty() ? nullptr : host.data();
  return JudgeBy(CERT_CHAIN_POLICY_SSL, "ssl", built, &extra);
}

void CheckUsage(const ChainArguments& arguments) {
  if (arguments.policy == "ssl" && arguments.host.empty() && !arguments.client)
    throw WrongUsage("--policy ssl: needs the server's name (--host), or --client");
  if (arguments.policy != "ssl" && (!arguments.host.empty() || arguments.client))
    throw WrongUsage("--host and --client go with --policy ssl");
  WarnOfTrustOptions(arguments.chain);
}

int RunChain(const ChainArguments& arguments) {
  CheckUsage(arguments);
  const BuiltChain built = BuildChain(arguments.chain);
  const std::optional<PolicyResult> policy = JudgePolicy(arguments, built);
  if (arguments.dot) {
    std::fputs(ChainDot(built).c_str(), stdout);
  } else if (arguments.json) {
    const Field field = ChainField(built, policy);
    PrintObjects({&field, 1}, true);
  } else {
    std::fputs(ChainText(built, policy).c_str(), stdout);
  }
  return FlushOutput() ? ExitStatusOf(VerdictOnAll(built, policy)) : kFailed;
}

}  // namespace

Runner PrepareChain(CLI::App& command) {
  const auto arguments = std::make_shared<ChainArguments>();
  AddChainOptions(command, arguments->chain);
  command.add_option("--policy", arguments->policy, "Judge the path by this policy, too")
      ->check(CLI::IsMember(std::vector<std::string>{"base", "ssl"}));
  command
      .add_option("--host", arguments->host, "The server that the certificate must be for; with --policy ssl")
      ->type_name("NAME");
  command.add_flag("--client", arguments->client, "The certificate is a client's; with --policy ssl");
  CLI::Option* json = command.add_flag("--json", arguments->json, "Write JSON: an array with one object");
  command
      .add_flag("--dot", arguments->dot,
                "Write a Graphviz picture of the path and of the issuers that were in question")
      ->excludes(json);
  command.footer(
      "Exit status: 0 valid; 3 not valid; 4 it could not be found out; 1 nothing could be judged; 2 wrong "
      "usage.\n\n"
      "Examples:\n"
      "  certkern chain server.crt --policy ssl --host www.example.org\n"
      "  certkern chain anna.crt --store root.crt --additional ca.crt --additional ca.crl --cache-only\n"
      "  certkern chain anna.crt --dot | dot -Tsvg >anna.svg");
  return [arguments] { return RunChain(*arguments); };
}

}  // namespace certkern::cli
