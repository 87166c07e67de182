// A directory of one test, gone with it.
#ifndef CERTKERN_TESTS_PLATFORM_TEMPORARY_DIRECTORY_H
#define CERTKERN_TESTS_PLATFORM_TEMPORARY_DIRECTORY_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace certkern::test {

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "certkern-XXXXXX").string();
    if (!mkdtemp(name.data())) std::abort();
    path_ = name;
    std::filesystem::permissions(path_,
                                 std::filesystem::perms::others_exec | std::filesystem::perms::others_read,
                                 std::filesystem::perm_options::add);
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  std::string path(const std::string& name) const { return (path_ / name).string(); }
  std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(path_ / name, std::ios::binary) << content;
    return path(name);
  }
  std::string read(const std::string& name) const {
    std::ifstream file(path_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::filesystem::path path_;
};

}  // namespace certkern::test

#endif
