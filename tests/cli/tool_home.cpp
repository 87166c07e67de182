#include "tool_home.h"

#include <gmock/gmock.h>

namespace {

constexpr char kConfiguration[] = R"(openssl_conf = init
[init]
engines = engines
[engines]
gost = gost
[gost]
engine_id = gost
dynamic_path = /usr/lib/x86_64-linux-gnu/engines-3/gost.so
default_algorithms = ALL
[req]
distinguished_name = name
[name]
)";

}  // namespace

// What the machine has is none of a test's business.
ToolHome::ToolHome() {
  directory_.write("openssl.cnf", kConfiguration);
  directory_.write("config.toml", "[paths]\nglobal_stores = '" + directory_.path("machine") + "'\n");
}

ToolResult ToolHome::run(const std::string& script) const {
  const std::string home = directory_.path("");
  const std::string prelude = "set -eu; cd '" + home + "'; export XDG_DATA_HOME='" + home
      + "data' CERTKERN_CONFIG='" + home + "config.toml'\n" + "certkern() { '" + kTool + "' \"$@\"; }\n"
      + "openssl() { OPENSSL_CONF='" + home + "openssl.cnf' command openssl \"$@\"; }\n";
  return RunProgram({"/bin/sh", "-c", prelude + script});
}

std::string ToolHome::out(const std::string& script) const {
  const ToolResult result = run(script);
  EXPECT_EQ(result.status, 0) << script << "\n" << result.err;
  return result.out;
}

void ExpectFaults(const ToolHome& home, const std::vector<FaultCase>& cases) {
  for (const auto& [script, status, message] : cases) {
    SCOPED_TRACE(script);
    const ToolResult result = home.run(script);
    EXPECT_EQ(result.status, status);
    EXPECT_THAT(result.err, testing::HasSubstr(message));
    EXPECT_EQ(result.out, "");
  }
}
