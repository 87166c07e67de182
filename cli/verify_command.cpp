// certkern verify: judges the signers of a message.
#include "command.h"
#include "output.h"
#include "verification.h"

#include <cstdio>
#include <memory>

namespace certkern::cli {
namespace {

struct VerifyArguments {
  VerifyOptions verify;
  bool json = false;
};

int RunVerify(const VerifyArguments& arguments) {
  WarnOfTrustOptions(arguments.verify.chain);
  const MessageFindings findings = VerifyMessage(arguments.verify);
  if (arguments.json) {
    const Field field = VerificationField(findings);
    PrintObjects({&field, 1}, true);
  } else {
    std::fputs(VerificationText(findings).c_str(), stdout);
  }
  return FlushOutput() ? ExitStatusOf(VerdictOn(findings)) : kFailed;
}

}  // namespace

Runner PrepareVerify(CLI::App& command) {
  const auto arguments = std::make_shared<VerifyArguments>();
  VerifyOptions& options = arguments->verify;
  command.add_option("FILE", options.file, "The message: DER, PEM or Base64; - stands for standard input")
      ->required()
      ->type_name("");
  command.add_option("--content", options.content, "What a message without its content is about")
      ->type_name("FILE");
  command.add_option("--signer", options.signer, "Judge this signer only, counted from 1; all unless given")
      ->check([](const std::string& text) {
        const bool number = !text.empty() && text.size() < 10
            && text.find_first_not_of("0123456789") == text.npos && text.find_first_not_of('0') != text.npos;
        return number ? std::string() : "must be a number from 1 to 999999999";
      })
      ->type_name("N");
  AddTrustOptions(command, options.chain);
  command.add_flag("--json", arguments->json, "Write JSON: an array with one object");
  command.footer(
      "Exit status: 0 every signer is valid; 3 one is not valid; 4 it could not be found out of one; 1 "
      "nothing "
      "could be judged; 2 wrong usage.\n\n"
      "Examples:\n"
      "  certkern verify letter.cms --store root.crt --additional ca.crl\n"
      "  certkern verify letter.sig --content letter.txt");
  return [arguments] { return RunVerify(*arguments); };
}

}  // namespace certkern::cli
