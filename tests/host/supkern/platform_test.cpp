// Messages, optional libraries, thread slots and ids.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <nl_types.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <string>
#include <thread>

#include "host/supkern/sandbox.h"
#include "platform/supkern.h"

namespace {

std::string catalogueFile;  // what the initialiser below opens
int initialiserCalls = 0;

int OpenTestCatalogue(support_resource* resource) {
  ++initialiserCalls;
  resource->catalogue = catopen(catalogueFile.c_str(), 0);
  return resource->catalogue == reinterpret_cast<nl_catd>(-1) ? 1812 : 0;
}

TEST(Messages, ComeFromTheCatalogue) {
  const Sandbox sandbox;
  sandbox.write("test.msg", "$quote \"\n2164 \"Trust %s (%s)?\"\n7 \"\"\n");
  const std::string command = "gencat " + sandbox.path("test.cat") + " " + sandbox.path("test.msg");
  ASSERT_EQ(std::system(command.c_str()), 0);  // NOLINT(cert-env33-c): a path of our own making

  support_resource resource{OpenTestCatalogue, reinterpret_cast<void*>(-1)};
  size_t size = 0;
  initialiserCalls = 0;
  catalogueFile = sandbox.path("missing.cat");
  EXPECT_EQ(support_resource_string(&resource, 2164, nullptr, &size), 1812) << "the initialiser's own code";
  catalogueFile = sandbox.path("test.cat");
  ASSERT_EQ(support_resource_string(&resource, 2164, nullptr, &size), 0);
  EXPECT_EQ(size, sizeof "Trust %s (%s)?");
  std::string text(size, '#');
  size = 3;
  EXPECT_EQ(support_resource_string(&resource, 2164, text.data(), &size), 234);
  EXPECT_EQ(text[0], '#');
  ASSERT_EQ(support_resource_string(&resource, 2164, text.data(), &size), 0);
  EXPECT_STREQ(text.c_str(), "Trust %s (%s)?");
  EXPECT_EQ(support_resource_string(&resource, 2165, nullptr, &size), 317);
  EXPECT_EQ(initialiserCalls, 2) << "once it is open, it stays so";
  catclose(resource.catalogue);

  support_resource none{nullptr, reinterpret_cast<void*>(-1)};
  EXPECT_EQ(support_resource_string(&none, 2164, nullptr, &size), 2);
  EXPECT_EQ(support_resource_string(nullptr, 2164, nullptr, &size), 87);
}

TEST(Messages, DialogLanguageFollowsTheEnvironment) {
  const struct {
    const char *all, *messages, *lang;
    unsigned language;
  } kCases[] = {
      {"",   "",            "",            0x409},
      {"",   "",            "ru_RU.UTF-8", 0x419},
      {"",   "en_GB",       "ru_RU.UTF-8", 0x409},
      {"ru", "en_GB",       "en_GB",       0x419},
      {"C",  "",            "ru_RU.UTF-8", 0x409},
      {"",   "rup_XX.UTF8", "",            0x409},
  };
  for (const auto& [all, messages, lang, language] : kCases) {
    setenv("LC_ALL", all, 1);
    setenv("LC_MESSAGES", messages, 1);
    setenv("LANG", lang, 1);
    EXPECT_EQ(support_wnd_language_update(), 0);
    EXPECT_EQ(support_wnd_language_get(), language) << all << ' ' << messages << ' ' << lang;
  }
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(name);
}

TEST(Messages, ErrorTextsAreEachThreadsOwn) {
  EXPECT_STREQ(support_strerror(ENOENT), "No such file or directory");
  const char* mine = support_strerror(123456);
  std::thread([&] { EXPECT_STREQ(support_strerror(654321), "Unknown error 654321"); }).join();
  EXPECT_STREQ(mine, "Unknown error 123456");
}

TEST(Loader, TakesNamesPathsAndSettings) {
  const Sandbox sandbox;
  sandbox.run(
      "[lib]\nplain = 'libm.so.6'\nbeside = 'libkeykern.so.4'\nrelative = './libm.so.6'\nempty = ''\n"
      "loop = '\\lib\\plain'\n",
      [] {
        for (const char* name : {"libm.so.6", "\\lib\\plain", "\\LIB\\Plain"}) {
          SCOPED_TRACE(name);
          void* library = support_load_library_registry(name, 7);
          ASSERT_NE(library, nullptr);
          EXPECT_NE(support_load_library_getaddr(library, "cos"), nullptr);
          EXPECT_EQ(support_load_library_getaddr(library, "no such function"), nullptr);
          support_unload_library_registry(library);
        }
        void* beside = support_load_library_registry("\\lib\\beside", 17);
        EXPECT_NE(beside, nullptr) << "lies where this library lies, which is no system directory";
        support_unload_library_registry(beside);
        for (const char* name : {"", "libnothere.so", "\\lib\\missing", "\\lib\\relative", "\\lib\\empty",
                                 "\\lib\\loop", "./libm.so.6", "../lib/libm.so.6"}) {
          EXPECT_EQ(support_load_library_registry(name, 7), nullptr) << name;
        }
        ASSERT_EQ(chdir(CERTKERN_BINARY_DIR "/lib"), 0);
        EXPECT_EQ(support_load_library_registry("./libkeykern.so.4", 7), nullptr)
            << "there, but only from here";
        EXPECT_EQ(support_load_library_registry(nullptr, 7), nullptr);
        EXPECT_EQ(support_load_library_getaddr(nullptr, "malloc"), nullptr);
        support_unload_library_registry(nullptr);
      });
}

TEST(ThreadSlots, HoldAValueForEachThread) {
  support_tskey* key = nullptr;
  ASSERT_EQ(support_load_library(&key), 0);
  ASSERT_EQ(support_tskey_create(&key), 0);
  int mine = 0, theirs = 0;
  EXPECT_EQ(support_get_thread_specific(key), nullptr);
  EXPECT_EQ(support_set_thread_specific(key, &mine), 0);
  std::thread([&] {
    EXPECT_EQ(support_get_thread_specific(key), nullptr);
    EXPECT_EQ(support_set_thread_specific(key, &theirs), 0);
  }).join();
  EXPECT_EQ(support_get_thread_specific(key), &mine);
  EXPECT_EQ(support_tskey_delete(&key), 0);
  EXPECT_EQ(key, nullptr);
  EXPECT_EQ(support_tskey_delete(&key), EINVAL);
  EXPECT_EQ(support_set_thread_specific(nullptr, &mine), EINVAL);
}

uid_t OwnerOfNew(const char* file) {
  close(open(file, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  struct stat status {};
  return lstat(file, &status) == 0 ? status.st_uid : static_cast<uid_t>(-1);
}

constexpr uid_t kUser = 1000;

// A process that took another effective id by itself acts for that one.
TEST(FileIds, StayWhereTheProgramPutThem) {
  if (getuid() != 0) GTEST_SKIP() << "needs root";
  const Sandbox sandbox;
  chmod(sandbox.path().c_str(), 01777);
  sandbox.run("", [&] {
    ASSERT_EQ(seteuid(kUser), 0);
    EXPECT_EQ(support_thread_deactualize_uids(), EINVAL);
    EXPECT_EQ(support_thread_actualize_uids(), 0);
    EXPECT_EQ(OwnerOfNew(sandbox.path("inside").c_str()), kUser);
    EXPECT_EQ(support_thread_deactualize_uids(), 0);
  });
}

// Runs in a copy of this program that is set-id root, started by another user from a directory that all write
// to.
TEST(DISABLED_SetIdProgram, OpensFilesAsItsUser) {
  ASSERT_EQ(geteuid(), 0u);
  std::promise<void> bracketIsOpen;
  std::thread other([&] {
    bracketIsOpen.get_future().wait();
    EXPECT_EQ(OwnerOfNew("other-thread"), 0u) << "the bracket is its own thread's only";
  });
  ASSERT_EQ(support_thread_actualize_uids(), 0);
  ASSERT_EQ(support_thread_actualize_uids(), 0);
  EXPECT_EQ(OwnerOfNew("nested"), kUser);
  EXPECT_EQ(open("root-only", O_RDONLY | O_CLOEXEC), -1);
  bracketIsOpen.set_value();
  other.join();
  ASSERT_EQ(support_thread_deactualize_uids(), 0);
  EXPECT_EQ(OwnerOfNew("still-inside"), kUser);
  ASSERT_EQ(support_thread_deactualize_uids(), 0);
  EXPECT_EQ(OwnerOfNew("outside"), 0u);

  // what the caller controls does not steer it
  int64_t value = 0;
  EXPECT_NE(support_registry_get_long("\\planted", &value), 0);
}

TEST(FileIds, BelongToTheUserOfASetIdProgram) {
  if (getuid() != 0) GTEST_SKIP() << "needs root";
  const Sandbox sandbox;
  const std::string program = sandbox.path("program");
  std::filesystem::copy_file("/proc/self/exe", program);
  chmod(sandbox.path().c_str(), 01777);
  chmod(program.c_str(), 04755);
  chmod(sandbox.write("root-only", "").c_str(), 0600);
  const std::string planted = sandbox.write("planted.toml", "planted = 1\n");
  chmod(planted.c_str(), 0644);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    setenv("CERTKERN_CONFIG", planted.c_str(), 1);
    if (chdir(sandbox.path().c_str()) != 0 || setgid(kUser) != 0 || setuid(kUser) != 0) _exit(2);
    execl(program.c_str(), program.c_str(), "--gtest_also_run_disabled_tests",
          "--gtest_filter=DISABLED_SetIdProgram.*", nullptr);
    _exit(3);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
