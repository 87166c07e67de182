// The certkern tool: a table of commands.
#include "command.h"
#include "failure.h"

#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace certkern::cli {
namespace {

constexpr Command kCommands[] = {
    {"show",        "Show certificates, CRLs, requests and messages",             PrepareShow       },
    {"asn1",        "Show the ASN.1 elements of any file",                        PrepareAsn1       },
    {"chain",       "Find a certificate's path to a trusted root, and judge it",  PrepareChain      },
    {"sign",        "Sign files",                                                 PrepareSign       },
    {"verify",      "Verify signed messages, and judge who signed them",          PrepareVerify     },
    {"key",         "Make, list, import, export and delete private keys",         PrepareKey        },
    {"request",     "Make certificate requests",                                  PrepareRequest    },
    {"certificate", "Make self-signed certificates",                              PrepareCertificate},
    {"store",       "List, show, fill and search certificate stores",             PrepareStore      },
    {"name",        "Encode distinguished names, and write encoded ones as text", PrepareName       },
    {"hash",        "Hash files",                                                 PrepareHash       },
    {"fetch",       "Fetch certificates and CRLs by URL",                         PrepareFetch      },
    {"cache",       "List or clear what was fetched and kept",                    PrepareCache      },
    {"random",      "Write random bytes",                                         PrepareRandom     },
};

// The parser takes "[a,b]" for a list of two values; where files stand, it is a file of that name.
std::vector<std::string> Arguments(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  const bool files = command == "show" || command == "asn1" || command == "hash";
  std::vector<std::string> arguments;
  for (int i = argc - 1; i > 0; --i) {  // last first, as the parser wants them
    const std::string argument = argv[i];
    arguments.push_back(files && argument.starts_with('[') ? "./" + argument : argument);
  }
  return arguments;
}

// A file that is opened later must not become a standard stream that the caller has closed: what goes to one would land in
// it. What stands there instead can't be used in the direction of the stream, so that using it still fails.
void OccupyStandardStreams() {
  for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(file, F_GETFD) == -1)
      static_cast<void>(open("/dev/null", file == STDIN_FILENO ? O_WRONLY : O_RDONLY));
  }
}

int Run(int argc, char** argv) {
  CLI::App app("Looks into certificates, CRLs, requests and messages, and makes keys and what they sign.",
               "certkern");
  app.set_version_flag("--version", "certkern " CERTKERN_VERSION);
  app.footer("certkern COMMAND --help tells more about a command; the manual is certkern(1).");
  const Runner run = PrepareGroup(app, kCommands);
  try {
    app.parse(Arguments(argc, argv));
  } catch (const CLI::ParseError& error) {
    if (app.exit(error)) return kWrongUsage;
    return std::cout.flush() ? 0 : kFailed;  // help and version are "errors" of status 0
  }
  return run();
}

}  // namespace
}  // namespace certkern::cli

int main(int argc, char** argv) {
  try {
    certkern::cli::OccupyStandardStreams();
    return certkern::cli::Run(argc, argv);
  } catch (const certkern::cli::Failure& failure) {
    certkern::cli::Complain("{}", failure.what());
    return failure.status();
  } catch (const std::bad_alloc&) {
    certkern::cli::Complain(std::string_view("out of memory"));
  } catch (const std::exception& error) {
    certkern::cli::Complain("{}", error.what());
  }
  return certkern::cli::kFailed;
}
