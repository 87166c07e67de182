// Runs the built tool as a program of its own.
#ifndef CERTKERN_TESTS_CLI_RUN_TOOL_H
#define CERTKERN_TESTS_CLI_RUN_TOOL_H

#include <certkern/types.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

struct ToolResult {
  int status = -1;  // exit status; negative: the signal that ended it
  std::string out;
  std::string err;
};

extern const char* const kTool;  // path of the program

ToolResult RunProgram(std::vector<std::string> words, std::string_view input = {});
ToolResult RunTool(const std::vector<std::string>& arguments, std::string_view input = {});

std::string ReadFile(const std::string& path);
// Of tests/cli/data and of examples/data.
std::string DataPath(const std::string& name);
std::string ExamplePath(const std::string& name);

// A file that is gone with the test.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string_view content);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// "-----BEGIN CERTIFICATE-----" and so on, by the library.
std::string Pem(std::string_view der);
std::string Base64(std::string_view der);
std::string Der(const std::string& pem);

#endif
