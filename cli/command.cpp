#include "command.h"

#include <memory>

namespace certkern::cli {

Runner PrepareGroup(CLI::App& group, std::span<const Command> commands) {
  const auto chosen = std::make_shared<Runner>();
  for (const Command& row : commands) {
    CLI::App* command = group.add_subcommand(row.name, row.summary);
    command->callback([chosen, run = row.prepare(*command)] { *chosen = run; });
  }
  group.require_subcommand(1);
  return [chosen] { return (*chosen)(); };
}

}  // namespace certkern::cli
