// A keys directory of a test's own, and what containers are filled with.
#ifndef CERTKERN_TESTS_HOST_KEYKERN_INTERNAL_CONTAINER_BENCH_H
#define CERTKERN_TESTS_HOST_KEYKERN_INTERNAL_CONTAINER_BENCH_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/keykern/internal/key_openssl.h"
#include "keykern/container/container.h"
#include "keykern/key/key_codec.h"

inline std::span<const BYTE> Bytes(std::string_view text) {
  return {reinterpret_cast<const BYTE*>(text.data()), text.size()};
}

class ContainerTest : public testing::Test {
 protected:
  using KeySetPtr = std::unique_ptr<keykern::KeySet>;
  using Files = std::map<std::string, std::vector<BYTE>>;

  ContainerTest() { setenv("XDG_DATA_HOME", bench_.path("data").c_str(), 1); }
  ~ContainerTest() override { unsetenv("XDG_DATA_HOME"); }

  std::string keys(const std::string& name = {}) const { return bench_.path("data/certkern/keys/" + name); }
  // Of the container "box".
  std::string box(const std::string& file = {}) const { return keys("box/" + file); }

  static keykern::KeyRecord newKey(keykern::Family family = keykern::Family::EdDsa) {
    keykern::KeyRecord record{nullptr, keykern::RowOf(family).signature, true};
    EXPECT_EQ(keykern::GenerateKey(family, 1024, "", record.key), 0u);
    return record;
  }
  static KeySetPtr create(const std::string& name = "box") {
    KeySetPtr made;
    EXPECT_EQ(keykern::CreateContainer(name, keykern::Scope::User, made), 0u) << name;
    return made;
  }
  static DWORD tryOpen(KeySetPtr& opened) {
    return keykern::OpenContainer("box", keykern::Scope::User, opened);
  }
  static KeySetPtr open() {
    KeySetPtr opened;
    EXPECT_EQ(tryOpen(opened), 0u);
    return opened;
  }
  // The code of opening, presenting a PIN and loading; with 0 the key is the expected one, or the test fails.
  static DWORD load(DWORD spec, const keykern::KeyRecord& expected, const char* pin = nullptr) {
    KeySetPtr opened;
    keykern::KeyRecord found;
    if (const DWORD code = tryOpen(opened)) return code;
    if (const DWORD code = pin ? opened->presentPin(Bytes(pin)) : 0) return code;
    if (const DWORD code = opened->load(spec, found)) return code;
    EXPECT_EQ(found.key->privateKeyInfo(), expected.key->privateKeyInfo()) << "another key";
    return 0;
  }

  // Every file below a directory, by its path inside.
  static Files snapshot(const std::string& directory) {
    Files files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
      if (!entry.is_regular_file()) continue;
      std::ifstream file(entry.path(), std::ios::binary);
      files[entry.path().lexically_relative(directory)] = {std::istreambuf_iterator<char>(file), {}};
    }
    return files;
  }
  static void put(const std::string& path, std::span<const BYTE> bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }

  const OpensslBench bench_;
};

#endif
