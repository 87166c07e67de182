// The certkern tool: a table of commands.
#include "show_command.h"

#include <fmt/format.h>

#include <cstdio>
#include <exception>
#include <new>

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
    app.parse(argc, argv);
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
