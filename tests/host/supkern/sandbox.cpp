#include "host/supkern/sandbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>

void EndChild(const std::function<void()>& body) {
  try {
    body();
  } catch (const std::exception& exception) {
    ADD_FAILURE() << "thrown in the child: " << exception.what();
  }
  std::fflush(stdout);
  _exit(testing::Test::HasFailure() ? 1 : 0);
}

Sandbox::Sandbox() : root_((std::filesystem::temp_directory_path() / "certkern-test-XXXXXX").string()) {
  if (!mkdtemp(root_.data())) ADD_FAILURE() << "no directory for the test";
}

Sandbox::~Sandbox() {
  std::error_code ignored;
  std::filesystem::remove_all(root_, ignored);
}

std::string Sandbox::write(const std::string& name, const std::string& text) const {
  std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
  std::ofstream(path(name), std::ios::binary) << text;
  return path(name);
}

std::string Sandbox::read(const std::string& name) const {
  std::ostringstream text;
  text << std::ifstream(path(name), std::ios::binary).rdbuf();
  return text.str();
}

std::vector<std::string> Sandbox::lines(const std::string& name) const {
  std::vector<std::string> lines;
  std::istringstream text(read(name));
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

void Sandbox::run(const std::string& configuration, const std::function<void()>& body) const {
  const std::string file = write("config.toml", configuration);
  runChild([&] {
    setenv("CERTKERN_CONFIG", file.c_str(), 1);
    body();
  });
}

void Sandbox::runWithLayers(const std::function<void()>& body) const {
  runChild([&] {
    unsetenv("CERTKERN_CONFIG");
    body();
  });
}

void Sandbox::runChild(const std::function<void()>& body) const {
  std::fflush(stdout);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    EndChild([&] {
      const int errors = open(path("stderr").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
      dup2(errors, STDERR_FILENO);
      setenv("HOME", path("home").c_str(), 1);
      setenv("XDG_CONFIG_HOME", path("home/config").c_str(), 1);
      setenv("XDG_DATA_HOME", path("home/data").c_str(), 1);
      body();
    });
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "in the child; its standard error:\n" << read("stderr");
}
