// certkern show: all that is in certificates, CRLs and certificate requests.
#ifndef CERTKERN_CLI_SHOW_COMMAND_H
#define CERTKERN_CLI_SHOW_COMMAND_H

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <functional>

namespace certkern::cli {

// Adds the options of the command, and returns what runs it once they are known: its result is the exit
// status.
std::function<int()> PrepareShow(CLI::App& command);

}  // namespace certkern::cli

#endif
