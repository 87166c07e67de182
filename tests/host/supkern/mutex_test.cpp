#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "host/supkern/sandbox.h"
#include "platform/supkern.h"

namespace {

constexpr char kName[] = "_home_user_my.sto_store_lock_file_";

std::string LocksIn(const Sandbox& sandbox) { return "[paths]\nlocks = '" + sandbox.path("locks") + "'\n"; }

ubi_mutex* Open(const char* name = kName) {
  ubi_mutex* mutex = nullptr;
  EXPECT_EQ(ubi_mutex_open(&mutex, name, 8), 0);
  return mutex;
}

pid_t Fork(const std::function<void()>& body) {
  const pid_t child = fork();
  if (child == 0) EndChild(body);
  return child;
}

int Wait(pid_t child) {
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

// Whether another process could have the lock now; asks the kernel, not the library.
bool IsFree(const std::string& file) {
  const int descriptor = open(file.c_str(), O_RDONLY);
  const bool isFree = flock(descriptor, LOCK_EX | LOCK_NB) == 0;
  close(descriptor);
  return isFree;
}

TEST(Mutex, LocksOnceForItsThreadAndHandle) {
  const Sandbox sandbox;
  sandbox.run(LocksIn(sandbox), [&] {
    ubi_mutex *first = Open(), *second = Open();
    const std::string file = sandbox.path("locks/certkern") + kName;
    EXPECT_EQ(ubi_mutex_unlock(first), EPERM);
    EXPECT_EQ(ubi_mutex_lock(first), 0);
    EXPECT_FALSE(IsFree(file));
    EXPECT_EQ(ubi_mutex_lock(first), EDEADLK);
    EXPECT_EQ(ubi_mutex_lock(second), EDEADLK);
    EXPECT_EQ(ubi_mutex_unlock(second), EPERM);
    EXPECT_EQ(ubi_mutex_close(first), EBUSY);
    EXPECT_EQ(ubi_mutex_unlock(first), 0);
    EXPECT_TRUE(IsFree(file));
    EXPECT_EQ(ubi_mutex_lock(second), 0);
    EXPECT_EQ(ubi_mutex_unlock(second), 0);
    EXPECT_EQ(ubi_mutex_close(first), 0);
    EXPECT_EQ(ubi_mutex_close(second), 0);
    EXPECT_EQ(ubi_mutex_lock(nullptr), EINVAL);
  });
}

TEST(Mutex, NamesAreValidatedAndLongOnesStayApart) {
  const Sandbox sandbox;
  sandbox.run(LocksIn(sandbox), [&] {
    ubi_mutex* mutex = nullptr;
    for (const char* name : {"", "a/b", "a\\b", "../a", "a\nb"})
      EXPECT_EQ(ubi_mutex_open(&mutex, name, 8), EINVAL) << name;
    EXPECT_EQ(ubi_mutex_open(&mutex, std::string(100000, 'a').c_str(), 8), ENAMETOOLONG);
    EXPECT_EQ(mutex, nullptr);
    // a path of 4095 bytes with the suffix of a store; the two differ at the far beginning
    const std::string tail(4094, 'p');
    ubi_mutex* a = Open(("a" + tail + "_store_lock_file_").c_str());
    ubi_mutex* b = Open(("b" + tail + "_store_lock_file_").c_str());
    EXPECT_EQ(ubi_mutex_lock(a), 0);
    EXPECT_EQ(ubi_mutex_lock(b), 0);
    EXPECT_EQ(ubi_mutex_unlock(a), 0);
    EXPECT_EQ(ubi_mutex_unlock(b), 0);
    ubi_mutex_close(a);
    ubi_mutex_close(b);
  });
}

TEST(Mutex, FollowsNoLinkAndTrustsNoOpenDirectory) {
  const Sandbox sandbox;
  sandbox.run(LocksIn(sandbox), [&] {
    ubi_mutex* mutex = Open();
    const std::string file = sandbox.path("locks/certkern") + kName;
    ASSERT_EQ(symlink(sandbox.path("made").c_str(), file.c_str()), 0);
    EXPECT_EQ(ubi_mutex_lock(mutex), ELOOP);
    EXPECT_FALSE(std::filesystem::exists(sandbox.path("made")));
    unlink(file.c_str());
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(ubi_mutex_lock(mutex), EINVAL);
    unlink(file.c_str());
    EXPECT_EQ(ubi_mutex_lock(mutex), 0) << "a failed lock must leave nothing behind";
    EXPECT_EQ(ubi_mutex_unlock(mutex), 0);
    ubi_mutex_close(mutex);

    chmod(sandbox.path("locks").c_str(), 0777);
    EXPECT_EQ(ubi_mutex_open(&mutex, kName, 8), EACCES);
    chmod(sandbox.path("locks").c_str(), 01777);
    EXPECT_EQ(ubi_mutex_open(&mutex, kName, 8), 0);
    ubi_mutex_close(mutex);
  });
}

TEST(Mutex, KeepsOtherProcessesOut) {
  const Sandbox sandbox;
  constexpr int kProcesses = 4, kRounds = 60;
  sandbox.run(LocksIn(sandbox), [&] {
    sandbox.write("count", "0");
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
      children.push_back(Fork([&] {
        ubi_mutex* mutex = Open();
        for (int n = 0; n < kRounds; ++n) {
          ASSERT_EQ(ubi_mutex_lock(mutex), 0);
          sandbox.write("count", std::to_string(std::stoi(sandbox.read("count")) + 1));
          // a lock file that vanishes must not let two in
          if (n % 20 == 0) unlink((sandbox.path("locks/certkern") + kName).c_str());
          ASSERT_EQ(ubi_mutex_unlock(mutex), 0);
        }
      }));
    }
    for (const pid_t child : children) EXPECT_EQ(Wait(child), 0);
  });
  EXPECT_EQ(sandbox.read("count"), std::to_string(kProcesses * kRounds));
}

TEST(Mutex, DeathOfTheHolderReleases) {
  const Sandbox sandbox;
  sandbox.run(LocksIn(sandbox), [&] {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t holder = Fork([&] {
      EXPECT_EQ(ubi_mutex_lock(Open()), 0);
      EXPECT_EQ(write(ready[1], "x", 1), 1);
      pause();
    });
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_FALSE(IsFree(sandbox.path("locks/certkern") + kName));
    kill(holder, SIGKILL);
    EXPECT_TRUE(WIFSIGNALED(Wait(holder)));
    ubi_mutex* mutex = Open();
    EXPECT_EQ(ubi_mutex_lock(mutex), 0);
    EXPECT_EQ(ubi_mutex_unlock(mutex), 0);
    ubi_mutex_close(mutex);
  });
}

TEST(Mutex, ForkLeavesTheLockWithTheParent) {
  const Sandbox sandbox;
  sandbox.run(LocksIn(sandbox), [&] {
    const std::string file = sandbox.path("locks/certkern") + kName;
    ubi_mutex* mutex = Open();
    ASSERT_EQ(ubi_mutex_lock(mutex), 0);
    int go[2], looked[2];
    ASSERT_EQ(pipe(go), 0);
    ASSERT_EQ(pipe(looked), 0);
    const pid_t child = Fork([&] {
      EXPECT_EQ(ubi_mutex_unlock(mutex), EPERM);
      EXPECT_FALSE(IsFree(file)) << "the child must not release it either";
      char byte = 0;
      EXPECT_EQ(write(looked[1], "x", 1), 1);
      EXPECT_EQ(read(go[0], &byte, 1), 1);
      EXPECT_EQ(ubi_mutex_lock(mutex), 0);
      EXPECT_EQ(ubi_mutex_unlock(mutex), 0);
    });
    char byte = 0;
    EXPECT_EQ(read(looked[0], &byte, 1), 1);
    EXPECT_EQ(ubi_mutex_unlock(mutex), 0);
    EXPECT_TRUE(IsFree(file)) << "a child that goes on must not keep it";
    EXPECT_EQ(write(go[1], "x", 1), 1);
    EXPECT_EQ(Wait(child), 0);

    // a child that was made behind the library's back keeps the descriptor, but not the lock
    ASSERT_EQ(ubi_mutex_lock(mutex), 0);
    const pid_t silent = _Fork();
    if (silent == 0) {
      pause();
      _exit(0);
    }
    EXPECT_EQ(ubi_mutex_unlock(mutex), 0);
    EXPECT_TRUE(IsFree(file));
    kill(silent, SIGKILL);
    Wait(silent);
    ubi_mutex_close(mutex);
  });
}

TEST(MutexThreads, ConcurrentHandlesExcludeEachOther) {
  const Sandbox sandbox;
  constexpr int kThreads = 4, kRounds = 100;
  sandbox.run(LocksIn(sandbox), [&] {
    int count = 0;  // not atomic: the mutex has to be enough
    std::atomic<int> failed = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        for (int n = 0; n < kRounds; ++n) {
          ubi_mutex* mutex = nullptr;
          failed += ubi_mutex_open(&mutex, kName, 8) != 0;
          failed += ubi_mutex_lock(mutex) != 0;
          ++count;
          failed += ubi_mutex_unlock(mutex) != 0;
          failed += ubi_mutex_close(mutex) != 0;
        }
      });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(count, kThreads * kRounds);
  });
}

TEST(MutexThreads, AnotherThreadCannotUnlock) {
  const Sandbox sandbox;
  sandbox.run(LocksIn(sandbox), [&] {
    ubi_mutex* mutex = Open();
    ASSERT_EQ(ubi_mutex_lock(mutex), 0);
    std::thread([&] { EXPECT_EQ(ubi_mutex_unlock(mutex), EPERM); }).join();
    EXPECT_FALSE(IsFree(sandbox.path("locks/certkern") + kName));
    EXPECT_EQ(ubi_mutex_unlock(mutex), 0);
    ubi_mutex_close(mutex);
  });
}

}  // namespace
