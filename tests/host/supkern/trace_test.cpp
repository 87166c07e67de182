#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "host/supkern/sandbox.h"
#include "platform/supkern.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr unsigned kError = 1, kExpected = 2, kCall = 4, kResult = 16;
constexpr unsigned kErrorMask = 17043521, kExpectedMask = 34087042, kCallMask = 68174084,
                   kResultMask = 272696336;

support_db_ctx Open(const char* module) { return support_print_init2(nullptr, module, 0, 127); }

void Trace(support_db_ctx context, unsigned level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  support_print(context, level, format, 0, 0, "", 57, "CertOpenStore", arguments);
  va_end(arguments);
}

std::string ModuleOn(unsigned levels, const std::string& sink) {
  return "[trace]\nsink = '" + sink + "'\n[trace.CertKern]\nlevel = " + std::to_string(levels) + "\n";
}

TEST(Trace, MasksFollowTheLevelsOfTheModule) {
  const Sandbox sandbox;
  sandbox.run("[trace.certkern]\nlevel = 9\n[trace.all]\nlevel = 63\n[trace.odd]\nlevel = 64\n", [] {
    const struct {
      const char* module;
      unsigned limit, mask;
      bool isOn;
    } kCases[] = {
        {"certkern", 127, kErrorMask,         true },
        {"certkern", 127, kExpectedMask,      false},
        {"certkern", 127, kCallMask,          false},
        {"certkern", 127, 1,                  true },
        {"certkern", 127, 8,                  true },
        {"certkern", 127, 32,                 false},
        {"certkern", 127, kCallMask | 1 << 6, true }, // any bit is enough
        {"certkern", 8,   kErrorMask,         false},
        {"all",      127, kResultMask,        true },
        {"all",      127, 32,                 true },
        {"all",      127, 3u << 30,           false},
        {"odd",      127, ~0u,                false},
        {"unnamed",  127, ~0u,                false},
    };
    for (const auto& [module, limit, mask, isOn] : kCases) {
      const support_db_ctx context = support_print_init(nullptr, module, 0, limit);
      EXPECT_NE(context, 0u);
      EXPECT_EQ(support_print_is(context, mask) != 0, isOn) << module << ' ' << limit << ' ' << mask;
      support_print_done(context);
      EXPECT_EQ(support_print_is(context, mask), 0) << "after the end";
    }
    EXPECT_EQ(Open(""), 0u);
    EXPECT_EQ(Open(nullptr), 0u);
    EXPECT_EQ(Open("a name that is longer than any module's"), 0u);
    for (const support_db_ctx wrong : {0ul, 1ul, ~0ul}) EXPECT_EQ(support_print_is(wrong, ~0u), 0);
  });
}

TEST(Trace, TwoUsersOfOneModuleAreCounted) {
  const Sandbox sandbox;
  sandbox.run(ModuleOn(63, "stderr"), [] {
    const support_db_ctx first = Open("certkern"), second = Open("certkern");
    support_print_done(first);
    EXPECT_NE(support_print_is(second, kErrorMask), 0);
    support_print_done(second);
    EXPECT_EQ(support_print_is(second, kErrorMask), 0);
  });
}

TEST(Trace, RecordIsOneLineInAPrivateFile) {
  const Sandbox sandbox;
  sandbox.run(ModuleOn(kError | kResult, sandbox.path("trace")), [&] {
    const support_db_ctx context = Open("certkern");
    errno = EILSEQ;
    Trace(context, kError, "failed: LastError = 0x%X, %S, %s", 0x57, L"\u0418\u0432\u0430\u043d", "Ok");
    Trace(context, kCall, "this level is off");
    Trace(context, kResult, "() result: %d(%x)", 5, 5);
    EXPECT_EQ(errno, EILSEQ);
    support_dprint_print_(context, "policy %d", "policy.cpp", 3, "SSLImpl", 1);
    support_elprint_print_(context, "lazy %d", nullptr, 4, nullptr, 2);
    Trace(context, kError, "wide text that is none: %S", std::wstring(1, static_cast<wchar_t>(-1)).c_str());
  });
  const auto lines = sandbox.lines("trace");
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_THAT(
      lines[0],
      MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{6}Z [0-9]+:[0-9]+ "
                   "certkern error CertOpenStore 57 failed: LastError = 0x57, \u0418\u0432\u0430\u043d, Ok"));
  EXPECT_THAT(lines[1], EndsWith(" certkern result CertOpenStore 57 () result: 5(5)"));
  EXPECT_THAT(lines[2], EndsWith(" certkern debug SSLImpl policy.cpp:3 policy 1"));
  EXPECT_THAT(lines[3], EndsWith(" certkern error - 4 lazy 2"));
  EXPECT_THAT(lines[4], EndsWith(" wide text that is none: %S"));
  struct stat status {};
  ASSERT_EQ(stat(sandbox.path("trace").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST(Trace, ForeignTextForgesNoLineAndHasABound) {
  const Sandbox sandbox;
  const std::pair<const char*, const char*> kTexts[] = {
      {"a\n2026-01-01 forged",         "a\\n2026-01-01 forged"           },
      {"\r\t\x1B[2J\x7F",              "\\r\\t\\x1B[2J\\x7F"             },
      {"\\n is not a newline",         "\\\\n is not a newline"          },
      {"CSI \xC2\x9B, NEL \xC2\x85",   "CSI \\xC2\\x9B, NEL \\xC2\\x85"  },
      {"separator \xE2\x80\xA8",       "separator \\xE2\\x80\\xA8"       },
      {"not UTF-8 \xC0\x8A \xFF \xE2", "not UTF-8 \\xC0\\x8A \\xFF \\xE2"},
      {"\xD0\xAF \xF0\x9F\x94\x91",    "\xD0\xAF \xF0\x9F\x94\x91"       },
  };
  // two bytes each, at all alignments to the end of the record
  const std::string longText = std::string("x") + [] {
    std::string text;
    while (text.size() < 100000) text += "\xD0\xAF";
    return text;
  }();
  sandbox.run(ModuleOn(63, sandbox.path("trace")), [&] {
    const support_db_ctx context = Open("certkern");
    for (const auto& [text, shown] : kTexts) Trace(context, kError, "%s", text);
    Trace(context, kError, "%s", longText.c_str());
    Trace(context, kError, "%s", longText.c_str() + 1);
    Trace(context, kError, "%s", std::string(5000, '\n').c_str());
  });
  const auto lines = sandbox.lines("trace");
  ASSERT_EQ(lines.size(), std::size(kTexts) + 3);
  for (size_t i = 0; i < std::size(kTexts); ++i)
    EXPECT_THAT(lines[i], EndsWith(std::string(" 57 ") + kTexts[i].second));
  for (size_t i = std::size(kTexts); i < lines.size(); ++i) {
    EXPECT_LE(lines[i].size() + 1, 4096u);
    EXPECT_GT(lines[i].size() + 1, 4080u);
    EXPECT_THAT(lines[i], EndsWith("..."));
    EXPECT_EQ(lines[i].find("\\x"), std::string::npos) << "a character was cut in two";
  }
}

TEST(Trace, SinksThatCannotBeHadAreSaidOnce) {
  const Sandbox sandbox;
  sandbox.write("target", "precious\n");
  ASSERT_EQ(symlink(sandbox.path("target").c_str(), sandbox.path("link").c_str()), 0);
  for (const std::string& sink :
       {sandbox.path("link"), sandbox.path("missing/trace"), sandbox.path(), std::string("trace.log")}) {
    SCOPED_TRACE(sink);
    const size_t before = sandbox.lines("stderr").size();
    sandbox.run(ModuleOn(63, sink), [&] {
      const support_db_ctx context = Open("certkern");
      for (int i = 0; i < 3; ++i) Trace(context, kError, "text");
      EXPECT_EQ(support_print_is(context, ~0u), 0);
    });
    ASSERT_EQ(sandbox.lines("stderr").size(), before + 1);
    EXPECT_THAT(sandbox.lines("stderr").back(), HasSubstr(sink));
  }
  EXPECT_EQ(sandbox.read("target"), "precious\n");
}

TEST(Trace, WritesIntoNoDescriptorThatChangedHands) {
  const Sandbox sandbox;
  sandbox.run(ModuleOn(63, sandbox.path("trace")), [&] {
    const support_db_ctx context = Open("certkern");
    Trace(context, kError, "before");
    for (int descriptor = 3; descriptor < 64; ++descriptor) close(descriptor);
    for (int i = 0; i < 16; ++i) EXPECT_GE(open(sandbox.path("data").c_str(), O_RDWR | O_CREAT, 0600), 0);
    Trace(context, kError, "after");
  });
  EXPECT_EQ(sandbox.read("data"), "");
  ASSERT_EQ(sandbox.lines("trace").size(), 2u);
  EXPECT_THAT(sandbox.lines("trace")[1], EndsWith("after"));
}

TEST(Trace, ReaderThatWentAwayKillsNobody) {
  const Sandbox sandbox;
  sandbox.run(ModuleOn(63, "stderr"), [] {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    dup2(ends[1], STDERR_FILENO);
    close(ends[0]);
    errno = ENOENT;
    Trace(Open("certkern"), kError, "text");
    EXPECT_EQ(errno, ENOENT);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
  });
}

// Gives this process an empty /etc of its own. False where the system does not allow it.
bool HidesEtc() {
  const uid_t user = getuid();
  const gid_t group = getgid();
  if (unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0) return false;
  if (user != 0) {
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
    std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
  }
  return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
      && mount("tmpfs", "/etc", "tmpfs", 0, nullptr) == 0 && mkdir("/etc/certkern", 0755) == 0;
}

// The file with the fault cannot switch the trace on, but the system's file can.
TEST(Trace, FaultOfTheUserFileIsARecordOfTheSystemFilesSink) {
  const Sandbox sandbox;
  sandbox.write("home/config/certkern/config.toml", "[where]\nfrom = 'user'\n\nbroken = \"\n");
  sandbox.runWithLayers([&] {
    if (!HidesEtc()) {
      sandbox.write("skip", "");
      return;
    }
    std::ofstream("/etc/certkern/config.toml") << "[trace]\nsink = '" << sandbox.path("trace")
                                               << "'\n[trace.supkern]\nlevel = 1\n[where]\nfrom = 'system'\n";
    char from[16] = {};
    size_t size = sizeof from;
    EXPECT_EQ(support_registry_get_string("\\where\\from", &size, from), 0);
    EXPECT_STREQ(from, "system");
    EXPECT_EQ(support_registry_get_string("\\where\\from", &size, from), 0);
  });
  if (access(sandbox.path("skip").c_str(), F_OK) == 0) GTEST_SKIP() << "no mounts of our own here";
  ASSERT_EQ(sandbox.lines("trace").size(), 1u);
  EXPECT_THAT(sandbox.lines("trace")[0], HasSubstr(" supkern error "));
  EXPECT_THAT(sandbox.lines("trace")[0], HasSubstr(sandbox.path("home/config/certkern/config.toml:4:")));
  EXPECT_EQ(sandbox.lines("stderr").size(), 1u);
}

TEST(Trace, ConcurrentRecordsStayWhole) {
  const Sandbox sandbox;
  const std::string text(3000, 'x');
  constexpr int kThreads = 4, kRecords = 50;
  sandbox.run(ModuleOn(63, sandbox.path("trace")), [&] {
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        const support_db_ctx context = Open("certkern");
        for (int n = 0; n < kRecords; ++n) Trace(context, kCall, "%s", text.c_str());
        support_print_done(context);
      });
    }
    for (auto& thread : threads) thread.join();
  });
  const auto lines = sandbox.lines("trace");
  EXPECT_EQ(lines.size(), size_t{kThreads * kRecords});
  for (const auto& line : lines) {
    EXPECT_THAT(line, EndsWith(" 57 " + text));
    EXPECT_EQ(line.find(" certkern call "), line.rfind(" certkern call "));
  }
}

}  // namespace
