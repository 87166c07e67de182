#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "host/supkern/sandbox.h"
#include "platform/supkern.h"

namespace {

constexpr int kNotFound = 2, kBadArgument = 87, kMoreData = 234, kWrongKind = 1629;

int Long(const char* path, int64_t& value) { return support_registry_get_long(path, &value); }
int Bool(const char* path, int& value) { return support_registry_get_bool(path, &value); }

TEST(Settings, EachGetterTakesItsKinds) {
  const Sandbox sandbox;
  sandbox.run(
      "big = -9223372036854775808\nyes = true\nno = false\ntext = 'abc'\nfloat = 1.0\nnul = \"a\\u0000b\"\n",
      [] {
        int64_t number = 77;
        EXPECT_EQ(Long("\\big", number), 0);
        EXPECT_EQ(number, INT64_MIN);
        EXPECT_EQ(Long("\\yes", number), 0);
        EXPECT_EQ(number, 1);
        int truth = 77;
        EXPECT_EQ(Bool("\\big", truth), 0);
        EXPECT_EQ(truth, 1);
        EXPECT_EQ(Bool("\\no", truth), 0);
        EXPECT_EQ(truth, 0);

        number = truth = 77;
        for (const char* path : {"\\text", "\\float"}) {
          EXPECT_EQ(Long(path, number), kWrongKind) << path;
          EXPECT_EQ(Bool(path, truth), kWrongKind) << path;
        }
        EXPECT_EQ(Long("\\missing", number), kNotFound);
        EXPECT_EQ(Long(nullptr, number), kBadArgument);
        EXPECT_EQ(number, 77);
        EXPECT_EQ(truth, 77);

        char buffer[8] = "#######";
        size_t size = 0;
        EXPECT_EQ(support_registry_get_string("\\text", &size, nullptr), 0);
        EXPECT_EQ(size, 4u);
        size = 3;
        EXPECT_EQ(support_registry_get_string("\\text", &size, buffer), kMoreData);
        EXPECT_EQ(size, 4u);
        EXPECT_STREQ(buffer, "#######");
        EXPECT_EQ(support_registry_get_string("\\text", &size, buffer), 0);
        EXPECT_STREQ(buffer, "abc");
        EXPECT_EQ(buffer[4], '#');
        EXPECT_EQ(support_registry_get_string("\\big", &size, buffer), kWrongKind);
        EXPECT_EQ(support_registry_get_string("\\nul", &size, buffer), kWrongKind) << "would arrive cut";
        EXPECT_EQ(support_registry_get_string("\\missing", &size, buffer), kNotFound);
      });
  EXPECT_EQ(sandbox.read("stderr"), "");
}

TEST(Settings, UserFileLiesBelowTheConfigurationHome) {
  const Sandbox sandbox;
  sandbox.write("home/config/certkern/config.toml", "where = 1\n");
  sandbox.write("home/.config/certkern/config.toml", "where = 2\n");
  const auto expect = [](int64_t wanted) {
    int64_t where = 0;
    EXPECT_EQ(Long("\\where", where), 0);
    EXPECT_EQ(where, wanted);
  };
  sandbox.runWithLayers([&] { expect(1); });
  sandbox.runWithLayers([&] {
    setenv("XDG_CONFIG_HOME", "relative/counts/as/unset", 1);
    expect(2);
  });
  sandbox.run("where = 3\n", [&] { expect(3); });
}

TEST(Settings, BrokenFileIsReportedOnceWithItsPlace) {
  const Sandbox sandbox;
  sandbox.run("[config]\nkey = = 1\n", [] {
    int64_t value = 5;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Long("\\config\\key", value), kNotFound);
  });
  const auto lines = sandbox.lines("stderr");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rfind("certkern: " + sandbox.path("config.toml") + ":2:", 0), 0u) << lines[0];
}

TEST(Settings, ConcurrentFirstReadsAgree) {
  const Sandbox sandbox;
  sandbox.run("[a]\nb = 42\n", [] {
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&] {
        int64_t value = 0;
        if (Long("\\a\\B", value) != 0 || value != 42) ++wrong;
      });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
  });
}

}  // namespace
