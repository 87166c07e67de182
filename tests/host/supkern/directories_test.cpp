#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "host/supkern/sandbox.h"
#include "platform/supkern.h"

namespace {

constexpr int kPathNotFound = 3, kDenied = 5, kBadArgument = 87, kBadPathName = 161, kMoreData = 234;

// The directory, or "code N".
std::string Directory(const char* path) {
  char buffer[1024];
  size_t size = sizeof buffer;
  if (const int code = support_path2dir(path, &size, buffer)) return "code " + std::to_string(code);
  EXPECT_EQ(size, std::string(buffer).size() + 1);
  return buffer;
}

std::string Code(int code) { return "code " + std::to_string(code); }

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(Directories, UserDirectoriesAreMadePrivateOnFirstNeed) {
  const Sandbox sandbox;
  sandbox.run("", [&] {
    umask(0);
    EXPECT_FALSE(std::filesystem::exists(sandbox.path("home")));
    EXPECT_EQ(Directory("\\local\\stores\\"), sandbox.path("home/data/certkern/stores/"));
    EXPECT_EQ(Directory("\\LOCAL\\Keys"), sandbox.path("home/data/certkern/keys/"));
    EXPECT_EQ(Directory("\\local\\stores\\"), sandbox.path("home/data/certkern/stores/"));
    for (const char* made :
         {"home", "home/data/certkern", "home/data/certkern/stores", "home/data/certkern/keys"}) {
      EXPECT_EQ(ModeOf(sandbox.path(made)), 0700u) << made;
    }
    for (const char* unknown :
         {"", "\\", "\\local", "\\local\\stores\\..\\", "\\local\\stores\\\\", "/local/stores/"}) {
      EXPECT_EQ(Directory(unknown), Code(kPathNotFound)) << unknown;
    }
    size_t size = 0;
    EXPECT_EQ(support_path2dir("\\local\\stores\\", &size, nullptr), 0);
    EXPECT_EQ(size, sandbox.path("home/data/certkern/stores/").size() + 1);
    char small[4] = "###";
    size = sizeof small;
    EXPECT_EQ(support_path2dir("\\local\\stores\\", &size, small), kMoreData);
    EXPECT_STREQ(small, "###");
    EXPECT_EQ(support_path2dir("\\local\\stores\\", nullptr, small), kBadArgument);
  });
}

TEST(Directories, SettingsMoveEachOfThem) {
  const Sandbox sandbox;
  sandbox.run("[paths]\nglobal_stores = '" + sandbox.path("a/b") + "'\nlocal_stores = '" + sandbox.path("c/")
                  + "'\nlocal_keys = 'relative'\nglobal_keys = 5\ncatalogue = '/somewhere/en/LC_MESSAGES'\n",
              [&] {
                umask(077);
                EXPECT_EQ(Directory("\\global\\stores\\"), sandbox.path("a/b/"));
                EXPECT_EQ(ModeOf(sandbox.path("a/b")), 0755u) << "all users read these";
                EXPECT_EQ(Directory("\\local\\stores\\"), sandbox.path("c/"));
                EXPECT_EQ(Directory("\\local\\keys\\"), Code(kBadPathName));
                EXPECT_EQ(Directory("\\global\\keys\\"), Code(kBadPathName));
                EXPECT_STREQ(csp_get_paths()->entry[10], "/somewhere/en/LC_MESSAGES");
                for (const char* entry : csp_get_paths()->entry) EXPECT_NE(entry, nullptr);
              });
}

TEST(Directories, WhatSomebodyElseCanWriteToIsRefused) {
  const Sandbox sandbox;
  const std::string stores = sandbox.path("top/middle/stores");
  const std::string configuration = "[paths]\nlocal_stores = '" + stores + "'\n";
  std::filesystem::create_directories(stores);
  const struct {
    const char* name;
    mode_t top, middle, last;
    bool isTrusted;
  } kCases[] = {
      {"private",                            0755,  0755, 0700,  true },
      {"others read it",                     0755,  0755, 0755,  true },
      {"its group writes",                   0755,  0755, 0770,  false},
      {"everybody writes",                   0755,  0755, 0707,  false},
      {"everybody adds, nobody removes",     0755,  0755, 01777, false},
      {"a group writes above",               0755,  0775, 0700,  true },
      {"everybody writes above",             0755,  0777, 0700,  false},
      {"everybody writes high above",        0777,  0755, 0700,  false},
      {"everybody adds above, as in a /tmp", 01777, 0755, 0700,  true },
  };
  for (const auto& [name, top, middle, last, isTrusted] : kCases) {
    SCOPED_TRACE(name);
    chmod(sandbox.path("top").c_str(), top);
    chmod(sandbox.path("top/middle").c_str(), middle);
    chmod(stores.c_str(), last);
    sandbox.run(configuration,
                [&] { EXPECT_EQ(Directory("\\local\\stores\\"), isTrusted ? stores + '/' : Code(kDenied)); });
  }
  // a link is followed, and what lies behind it is judged
  chmod(sandbox.path("top").c_str(), 0777);
  ASSERT_EQ(symlink(stores.c_str(), sandbox.path("link").c_str()), 0);
  sandbox.run("[paths]\nlocal_stores = '" + sandbox.path("link") + "'\n",
              [&] { EXPECT_EQ(Directory("\\local\\stores\\"), Code(kDenied)); });
  sandbox.run("[paths]\nlocal_stores = '" + sandbox.write("file", "") + "'\n",
              [&] { EXPECT_EQ(Directory("\\local\\stores\\"), Code(kPathNotFound)); });
}

TEST(Directories, WhatBelongsToSomebodyElseIsRefused) {
  if (getuid() != 0) GTEST_SKIP() << "needs to give a directory away";
  const Sandbox sandbox;
  chmod(sandbox.path().c_str(), 0755);
  const std::string above = sandbox.path("above"), stores = above + "/stores";
  const struct {
    uid_t parent;
    mode_t mode;
    uid_t owner, user;
    bool isTrusted;
  } kCases[] = {
      {0,    0755,  0,    1000, true },
      {0,    0755,  1000, 1000, true },
      {0,    0755,  1001, 1000, false},
      {0,    0755,  1000, 0,    false},
      {1000, 0755,  1000, 1000, true },
      {1001, 0755,  1000, 1000, false},
      {1001, 0755,  0,    0,    false},
      {0,    01777, 1000, 1000, true },
      {0,    01777, 1001, 1000, false},
      {1001, 01777, 1000, 1000, false},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(std::to_string(row.parent) + " " + std::to_string(row.owner) + " "
                 + std::to_string(row.user));
    std::filesystem::create_directories(stores);
    ASSERT_EQ(chown(above.c_str(), row.parent, row.parent), 0);
    ASSERT_EQ(chmod(above.c_str(), row.mode), 0);
    ASSERT_EQ(chown(stores.c_str(), row.owner, row.owner), 0);
    const bool wanted = row.isTrusted;
    sandbox.run("[paths]\nlocal_stores = '" + stores + "'\n", [&, caller = row.user] {
      chmod(sandbox.path("config.toml").c_str(), 0644);
      ASSERT_EQ(setuid(caller), 0);
      EXPECT_EQ(Directory("\\local\\stores\\") == stores + '/', wanted);
    });
  }
}

}  // namespace
