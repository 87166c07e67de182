// The certkern tool: a table of commands.
#include "show_command.h"

#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

namespace certkern::cli {
namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

struct Command {
  const char* name;
  const char* summary;
  std::function<int()> (*prepare)(CLI::App& command);
};
constexpr Command kCommands[] = {
    {"show", "Show certificates, CRLs and certificate requests", PrepareShow},
};

// The parser takes "[a,b]" for a list of two values; here it is a file of that name.
std::vector<std::string> Arguments(int argc, char** argv) {
  std::vector<std::string> arguments;
  for (int i = argc - 1; i > 0; --i) {  // last first, as the parser wants them
    const std::string argument = argv[i];
    arguments.push_back(argument.starts_with('[') ? "./" + argument : argument);
  }
  return arguments;
}

int Run(int argc, char** argv) {
  CLI::App app("Looks into certificates, CRLs and certificate requests.", "certkern");
  app.set_version_flag("--version", "certkern " CERTKERN_VERSION);
  app.require_subcommand(1);
  app.footer("certkern COMMAND --help tells more about a command; the manual is certkern(1).");
  std::function<int()> chosen;
  for (const Command& row : kCommands) {
    CLI::App* command = app.add_subcommand(row.name, row.summary);
    command->callback([&chosen, run = row.prepare(*command)] { chosen = run; });
  }
  try {
    app.parse(Arguments(argc, argv));
  } catch (const CLI::ParseError& error) {
    return app.exit(error) ? kWrongUsage : 0;  // help and version are "errors" of status 0
  }
  return chosen();
}

}  // namespace
}  // namespace certkern::cli

int main(int argc, char** argv) {
  try {
    return certkern::cli::Run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fputs("certkern: out of memory\n", stderr);
  } catch (const std::exception& error) {
    fmt::print(stderr, "certkern: {}\n", error.what());
  }
  return certkern::cli::kFailed;
}
