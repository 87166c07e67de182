// A directory for a test that makes keys: the tool finds its keys there and nowhere else, and the openssl program, which
// is the other party, finds its GOST algorithms.
#ifndef CERTKERN_TESTS_CLI_TOOL_HOME_H
#define CERTKERN_TESTS_CLI_TOOL_HOME_H

#include "platform/temporary_directory.h"
#include "run_tool.h"

#include <string>
#include <vector>

class ToolHome {
 public:
  ToolHome();
  // A script of /bin/sh in the directory, where certkern and openssl are commands.
  ToolResult run(const std::string& script) const;
  // The same of one that must succeed; what it wrote to standard output.
  std::string out(const std::string& script) const;
  std::string path(const std::string& name) const { return directory_.path(name); }

 private:
  certkern::test::TemporaryDirectory directory_;
};

// A command, the status that it must end with, and what standard error must tell.
struct FaultCase {
  const char* script;
  int status;
  const char* message;
};
void ExpectFaults(const ToolHome& home, const std::vector<FaultCase>& cases);

#endif
