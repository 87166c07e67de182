// Commands, and groups of commands, as tables.
#ifndef CERTKERN_CLI_COMMAND_H
#define CERTKERN_CLI_COMMAND_H

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <functional>
#include <span>

namespace certkern::cli {

// Runs a command whose options are known; its result is the exit status.
using Runner = std::function<int()>;

struct Command {
  const char* name;
  const char* summary;
  Runner (*prepare)(CLI::App& command);  // adds the options
};

// Adds the commands, of which one has to be given; what is returned runs that one.
Runner PrepareGroup(CLI::App& group, std::span<const Command> commands);

Runner PrepareShow(CLI::App& command);
Runner PrepareAsn1(CLI::App& command);
Runner PrepareKey(CLI::App& group);
Runner PrepareRequest(CLI::App& group);
Runner PrepareCertificate(CLI::App& group);
Runner PrepareRandom(CLI::App& command);
Runner PrepareHash(CLI::App& command);
Runner PrepareName(CLI::App& group);
Runner PrepareStore(CLI::App& group);
Runner PrepareFetch(CLI::App& command);
Runner PrepareCache(CLI::App& group);

Runner PrepareChain(CLI::App& command);
Runner PrepareSign(CLI::App& command);
Runner PrepareVerify(CLI::App& command);
// Of the group "key".
Runner PrepareKeyImport(CLI::App& command);
Runner PrepareKeyExport(CLI::App& command);
// Of the group "store".
Runner PrepareStoreAdd(CLI::App& command);
Runner PrepareStoreImport(CLI::App& command);
Runner PrepareStoreExport(CLI::App& command);
Runner PrepareStoreCopy(CLI::App& command);

}  // namespace certkern::cli

#endif
