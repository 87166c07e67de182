#include "platform/retrying_open.h"

#include <certkern/keykern.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <map>
#include <string>
#include <vector>

#include "fake_support.h"
#include "temporary_directory.h"

using namespace certkern;
using certkern::test::fakeIds;
using certkern::test::FakeIds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

bool SignalsAreBlocked() {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGUSR1) == 1;
}

// Plays the system: an open that fails a number of times, and no time that passes.
struct Script {
  int failures = 0;  // then opens succeed
  int error = 0;
  int opens = 0, yields = 0;
  std::map<uint32_t, int> sleeps;  // milliseconds, how often
  bool blockedInSleep = true, blockedInYield = false;
  std::vector<std::pair<int, std::string>> log;
};
Script script;

const RetryingOpenSystem kScripted = {
    [](const char*, const char*) -> std::FILE* {
      if (script.opens++ >= script.failures) return std::tmpfile();
      errno = script.error;
      return nullptr;
    },
    [] {
      ++script.yields;
      script.blockedInYield |= SignalsAreBlocked();
    },
    [](uint32_t milliseconds) {
      ++script.sleeps[milliseconds];
      script.blockedInSleep &= SignalsAreBlocked();
      errno = EBADF;
    },
    [](int priority, const char* text) {
      script.log.emplace_back(priority, text);
      errno = EBADF;
    },
};

#define LOG_HEAD \
  "libcertkern [-0-9]+ [:0-9]+\\.[0-9]{6} platform/retrying_open:[0-9]+ p:[0-9]+ t:0x0x[0-9a-f]+ "

class RetryingOpenTest : public testing::Test {
 protected:
  ~RetryingOpenTest() override {
    EXPECT_FALSE(SignalsAreBlocked()) << "the mask is the caller's again";
    fakeIds = FakeIds{};
  }
  static FileStream open(int failures, int error) {
    script = Script{};
    script.failures = failures;
    script.error = error;
    return FileStream(RetryingOpen(kScripted, "blob", "rb"));
  }
};

TEST_F(RetryingOpenTest, PassingFailuresAreTriedAgain) {
  struct Case {
    int failures, yields, sleeps;
  };
  for (const int error : {EINTR, EAGAIN, EINPROGRESS}) {
    for (const auto& [failures, yields, sleeps] : {
             Case{0,     0,   0    },
             {1,     1,   0    },
             {127,   127, 0    },
             {128,   127, 1    },
             {32767, 127, 32640}
    }) {
      SCOPED_TRACE(testing::Message() << failures << " times errno " << error);
      EXPECT_TRUE(open(failures, error));
      EXPECT_EQ(script.opens, failures + 1);
      EXPECT_EQ(script.yields, yields);
      EXPECT_EQ(script.sleeps[4], sleeps);
      EXPECT_TRUE(script.blockedInSleep);
      EXPECT_FALSE(script.blockedInYield);
      EXPECT_THAT(script.log, IsEmpty());
      if (error != EINTR) break;  // the long way once
    }
  }
}

TEST_F(RetryingOpenTest, AStormIsGivenUp) {
  EXPECT_FALSE(open(1 << 20, EAGAIN));
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(script.opens, 32768);
  EXPECT_THAT(script.sleeps, ElementsAre(std::pair{4u, 32640}, std::pair{7u, 1}));
  ASSERT_EQ(script.log.size(), 1u);
  EXPECT_EQ(script.log[0].first, 35);
  EXPECT_THAT(script.log[0].second,
              MatchesRegex(LOG_HEAD "EINTR/EAGAIN storm detect by support_an_fopen\\(\\), retry=32768 "
                                    "errno = .+\\(11\\)"));
}

TEST_F(RetryingOpenTest, OtherFailuresEndAtOnce) {
  for (const int error : {ENOENT, EACCES, EISDIR}) {
    EXPECT_FALSE(open(1, error));
    EXPECT_EQ(errno, error);
    EXPECT_EQ(script.opens, 1);
  }
  ASSERT_EQ(script.log.size(), 1u);
  EXPECT_EQ(script.log[0].first, 39);
  EXPECT_THAT(script.log[0].second,
              MatchesRegex(LOG_HEAD "support_an_fopen\\(\"blob\", \"rb\"\\) = 0x\\(nil\\) fail .+\\(21\\)"));
}

TEST_F(RetryingOpenTest, BracketFailures) {
  fakeIds.actualize = [] {
    errno = EINTR;
    return 7;
  };
  EXPECT_FALSE(open(0, 0));
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(script.opens, 0) << "never under the wrong ids";
  ASSERT_EQ(script.log.size(), 1u);
  EXPECT_EQ(script.log[0].first, 35);
  EXPECT_THAT(
      script.log[0].second,
      MatchesRegex(LOG_HEAD
                   "support_an_fopen\\(\\) support_thread_actualize_uids\\(\\) rc=7 errno = .+\\(4\\)"));

  fakeIds = FakeIds{};
  fakeIds.deactualize = [] {
    errno = 0;
    return 1;
  };
  EXPECT_FALSE(open(0, 0));
  EXPECT_EQ(errno, EPERM) << "a failure always has an errno";
  EXPECT_EQ(script.opens, 1);
}

TEST_F(RetryingOpenTest, RealFiles) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.write("blob", "old");
  SetLastError(4711);
  EXPECT_TRUE(OpenBlobForReading(path.c_str()));
  EXPECT_EQ(directory.read("blob"), "old");
  EXPECT_TRUE(OpenBlobForWriting(path.c_str()));
  EXPECT_EQ(directory.read("blob"), "");
  EXPECT_FALSE(OpenBlobForReading(directory.path("none").c_str()));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(OpenBlobForReading(nullptr));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(GetLastError(), 4711u);
}

}  // namespace
