// The openssl program as a judge, in a process of its own, and a directory for what the two exchange.
#ifndef CERTKERN_TESTS_HOST_KEYKERN_INTERNAL_KEY_OPENSSL_H
#define CERTKERN_TESTS_HOST_KEYKERN_INTERNAL_KEY_OPENSSL_H

#include <certkern/types.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

class OpensslBench {
 public:
  OpensslBench() : root_((std::filesystem::temp_directory_path() / "certkern-keys-XXXXXX").string()) {
    if (!mkdtemp(root_.data())) ADD_FAILURE() << "no directory for the test";
  }
  ~OpensslBench() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  OpensslBench(const OpensslBench&) = delete;
  OpensslBench& operator=(const OpensslBench&) = delete;

  std::string path(const std::string& name = {}) const { return name.empty() ? root_ : root_ + '/' + name; }
  void write(const std::string& name, std::span<const BYTE> bytes) const {
    std::ofstream(path(name), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  std::vector<BYTE> read(const std::string& name) const {
    std::ifstream file(path(name), std::ios::binary);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // Runs in the directory; false when it fails.
  bool succeeds(const std::string& arguments) const {
    const std::string command =
        "cd " + root_ + " && env -u OPENSSL_CONF openssl " + arguments + " >stdout 2>stderr </dev/null";
    return std::system(command.c_str())
        == 0;  // NOLINT(concurrency-mt-unsafe): the tests of a program run in turn
  }
  void run(const std::string& arguments) const {
    if (succeeds(arguments)) return;
    const std::vector<BYTE> said = read("stderr");
    ADD_FAILURE() << "openssl " << arguments << "\n" << std::string(said.begin(), said.end());
  }

  // A new key.der, PKCS #8; genpkey itself would write DER in the old forms.
  void newKey(const std::string& algorithm) const {
    run("genpkey -out key.pem -algorithm " + algorithm);
    run("pkcs8 -topk8 -nocrypt -in key.pem -outform DER -out key.der");
  }

 private:
  std::string root_;
};

#endif
