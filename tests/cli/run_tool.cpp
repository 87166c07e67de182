#include "run_tool.h"

#include <certkern/encode.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

const char* const kTool = CERTKERN_BINARY_DIR "/bin/certkern";

namespace {

std::string Encode(std::string_view bytes, DWORD form) {
  DWORD size = 0;
  const auto* data = reinterpret_cast<const BYTE*>(bytes.data());
  EXPECT_TRUE(CryptBinaryToStringA(data, static_cast<DWORD>(bytes.size()), form, nullptr, &size));
  std::string text(size, '\0');
  EXPECT_TRUE(CryptBinaryToStringA(data, static_cast<DWORD>(bytes.size()), form, text.data(), &size));
  text.resize(size);
  return text;
}

}  // namespace

ToolResult RunProgram(std::vector<std::string> words, std::string_view input) {
  // files, not pipes: nothing can fill up while nobody reads
  const TemporaryFile in(input), out(""), err("");
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, in.path().c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.path().c_str(), O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.path().c_str(), O_WRONLY, 0);
  // in a session of its own it has no terminal, and whoever wants to ask there learns so
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  pid_t child = 0;
  const int started = posix_spawn(&child, argv[0], &actions, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  EXPECT_EQ(started, 0) << argv[0];
  int status = 0;
  if (started != 0 || waitpid(child, &status, 0) != child) return {};
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), ReadFile(out.path()),
          ReadFile(err.path())};
}

ToolResult RunTool(const std::vector<std::string>& arguments, std::string_view input) {
  std::vector<std::string> words = {kTool};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return RunProgram(std::move(words), input);
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string DataPath(const std::string& name) { return CERTKERN_SOURCE_DIR "/tests/cli/data/" + name; }
std::string ExamplePath(const std::string& name) { return CERTKERN_SOURCE_DIR "/examples/data/" + name; }

TemporaryFile::TemporaryFile(std::string_view content) {
  const char* directory = std::getenv("TMPDIR");
  path_ = std::string(directory ? directory : "/tmp") + "/certkern-test-XXXXXX";
  const int file = mkstemp(path_.data());
  EXPECT_GE(file, 0) << path_;
  EXPECT_EQ(write(file, content.data(), content.size()), static_cast<ssize_t>(content.size()));
  close(file);
}

TemporaryFile::~TemporaryFile() { unlink(path_.c_str()); }

std::string Pem(std::string_view der) { return Encode(der, CRYPT_STRING_BASE64HEADER); }
std::string Base64(std::string_view der) { return Encode(der, CRYPT_STRING_BASE64); }

std::string Der(const std::string& pem) {
  DWORD size = static_cast<DWORD>(pem.size());
  std::string bytes(size, '\0');
  EXPECT_TRUE(CryptStringToBinaryA(pem.data(), size, CRYPT_STRING_BASE64_ANY,
                                   reinterpret_cast<BYTE*>(bytes.data()), &size, nullptr, nullptr));
  bytes.resize(size);
  return bytes;
}
