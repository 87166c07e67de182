#include "interop/openssl_tool.h"

#include "platform/temporary_directory.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

const fs::path& WorkDirectory() {
  static const certkern::test::TemporaryDirectory directory;
  static const fs::path path = directory.path("");
  return path;
}

Bytes ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  return {text.begin(), text.end()};
}

fs::path WriteScratch(std::span<const BYTE> bytes) {
  const fs::path path = WorkDirectory() / "scratch.der";
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  file.close();
  EXPECT_TRUE(file) << path;
  return path;
}

std::string RunShell(const std::string& command) {
  std::string output;
  const fs::path complaints = WorkDirectory() / "stderr";
  FILE* pipe = popen(("{ " + command + "; } 2>'" + complaints.string() + "'").c_str(), "r");
  if (!pipe) {
    ADD_FAILURE() << "no process for " << command;
    return output;
  }
  std::array<char, 4096> buffer;
  while (const size_t count = fread(buffer.data(), 1, buffer.size(), pipe))
    output.append(buffer.data(), count);
  const int status = pclose(pipe);
  if (!WIFEXITED(status) || WEXITSTATUS(status)) {
    const Bytes said = ReadFile(complaints);
    ADD_FAILURE() << command << "\n" << std::string(said.begin(), said.end());
  }
  return output;
}
