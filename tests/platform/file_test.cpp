#include "platform/file.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "fake_support.h"
#include "platform/id_bracket.h"
#include "temporary_directory.h"

using namespace certkern;
using certkern::test::fakeIds;
using certkern::test::FakeIds;
using certkern::test::TemporaryDirectory;

namespace {

constexpr DWORD kReadWrite = kReadAccess | kWriteAccess;

std::span<const BYTE> Bytes(const std::string& text) {
  return {reinterpret_cast<const BYTE*>(text.data()), text.size()};
}

// A stream whose every operation fails with one errno.
FileStream FailingStream(int& error) {
  const cookie_io_functions_t functions = {
      [](void* cookie, char*, size_t) -> ssize_t {
        errno = *static_cast<int*>(cookie);
        return -1;
      },
      [](void* cookie, const char*, size_t) -> ssize_t {
        errno = *static_cast<int*>(cookie);
        return 0;  // a cookie's failed write
      },
      [](void* cookie, off64_t*, int) -> int {
        errno = *static_cast<int*>(cookie);
        return -1;
      },
      [](void* cookie) -> int {
        errno = *static_cast<int*>(cookie);
        return -1;
      },
  };
  FileStream stream(fopencookie(&error, "w+", functions));
  setvbuf(stream.get(), nullptr, _IONBF, 0);
  return stream;
}

TEST(File, ErrnoBecomesTheCodeOfTheOperation) {
  const std::string content = "content";
  std::array<BYTE, 8> buffer;
  size_t count;
  uint64_t size;
  struct Case {
    const char* name;
    DWORD other;
    std::function<bool(FileStream)> operation;
  };
  const Case cases[] = {
      {"read",            1359, [&](FileStream stream) { return ReadFile(stream.get(), buffer, count); }  },
      {"write",           29,   [&](FileStream stream) { return WriteFile(stream.get(), Bytes(content)); }},
      {"seek",            132,  [&](FileStream stream) { return SeekFile(stream.get(), 5, SEEK_SET); }    },
      {"seek to the end", 132,  [&](FileStream stream) { return SeekFile(stream.get(), 0, SEEK_END); }    },
      {"size",            132,  [&](FileStream stream) { return FileSize(stream.get(), size); }           },
      {"truncate",        132,  [&](FileStream stream) { return TruncateFile(stream.get()); }             },
      {"close",           1359, [&](FileStream stream) { return CloseFile(std::move(stream)); }           },
  };
  for (const Case& row : cases) {
    for (const auto& [error, code] : {
             std::pair<int, DWORD>{ENOENT, 2        },
              {EACCES, 5        },
              {EIO,    row.other}
    }) {
      SCOPED_TRACE(std::string(row.name) + ", " + strerror(error));
      int cookie = error;
      SetLastError(0);
      EXPECT_FALSE(row.operation(FailingStream(cookie)));
      EXPECT_EQ(GetLastError(), code);
    }
  }
}

TEST(File, AFullDeviceFailsAtFlush) {
  FileStream full(std::fopen("/dev/full", "w"));
  ASSERT_TRUE(full);
  ASSERT_TRUE(WriteFile(full.get(), Bytes("x"))) << "still in the buffer";
  EXPECT_FALSE(FlushFile(full.get()));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_WRITE_FAULT});
}

TEST(File, ReadSaysWhatItGot) {
  const TemporaryDirectory directory;
  FileStream stream(std::fopen(directory.write("f", "0123456789").c_str(), "rb"));
  std::vector<BYTE> buffer(8);
  size_t count = 99;
  SetLastError(ERROR_NO_DATA);
  EXPECT_TRUE(ReadFile(stream.get(), buffer, count));
  EXPECT_EQ(count, 8u);
  EXPECT_TRUE(ReadFile(stream.get(), buffer, count)) << "the end of the file is no failure";
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(buffer[1], '9');
  EXPECT_TRUE(ReadFile(stream.get(), buffer, count));
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_DATA});

  EXPECT_FALSE(ReadFile(stream.get(), {static_cast<BYTE*>(nullptr), 4}, count));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INTERNAL_ERROR});
  EXPECT_TRUE(ReadFile(stream.get(), {}, count));
}

// An interrupted read goes on where it stopped.
TEST(File, ReadGoesOnAfterAnInterruption) {
  int calls = 0;
  const cookie_io_functions_t functions = {[](void* cookie, char* buffer, size_t) -> ssize_t {
                                             const int call = ++*static_cast<int*>(cookie);
                                             if (call == 2) {
                                               errno = EINTR;
                                               return -1;
                                             }
                                             *buffer = static_cast<char>('0' + call);
                                             return call > 4 ? 0 : 1;
                                           },
                                           nullptr, nullptr, nullptr};
  FileStream stream(fopencookie(&calls, "r", functions));
  std::array<BYTE, 3> buffer{};
  size_t count = 0;
  EXPECT_TRUE(ReadFile(stream.get(), buffer, count));
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(std::string(buffer.begin(), buffer.end()), "134");
}

TEST(File, WriteSeekSizeTruncateTimes) {
  const TemporaryDirectory directory;
  const std::string path = directory.path("f");
  FileStream stream = OpenStoreFile(path.c_str(), kReadWrite, Creation::New);
  ASSERT_TRUE(stream);
  EXPECT_TRUE(WriteFile(stream.get(), Bytes("0123456789")));
  EXPECT_TRUE(WriteFile(stream.get(), {static_cast<const BYTE*>(nullptr), size_t{0}}));
  EXPECT_FALSE(WriteFile(stream.get(), {static_cast<const BYTE*>(nullptr), 1}));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INTERNAL_ERROR});
  EXPECT_TRUE(SeekFile(stream.get(), -6, SEEK_END));
  uint64_t size = 0;
  EXPECT_TRUE(FileSize(stream.get(), size));
  EXPECT_EQ(size, 10u);
  EXPECT_TRUE(TruncateFile(stream.get())) << "at the position, which asking for the size has kept";
  EXPECT_EQ(directory.read("f"), "0123");
  EXPECT_TRUE(SeekFile(stream.get(), 0, SEEK_SET));
  EXPECT_TRUE(TruncateFile(stream.get()));
  EXPECT_EQ(directory.read("f"), "");
  EXPECT_FALSE(SeekFile(stream.get(), -1, SEEK_SET));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_SEEK_ON_DEVICE});

  const timespec times[] = {
      {1,          0        },
      {1700000000, 123456789}
  };
  ASSERT_EQ(futimens(fileno(stream.get()), times), 0);
  timespec modified{};
  EXPECT_TRUE(FileModificationTime(stream.get(), modified));
  EXPECT_EQ(modified.tv_sec, 1700000000);
  EXPECT_EQ(modified.tv_nsec, 123456789);
  EXPECT_TRUE(CloseFile(std::move(stream)));
}

// What a stream of a mode can do, seen from outside: r reads, w writes, a writes at the end whatever the position.
std::string Abilities(std::FILE* stream) {
  const int flags = fcntl(fileno(stream), F_GETFL);
  std::string abilities;
  if ((flags & O_ACCMODE) != O_WRONLY) abilities += 'r';
  if ((flags & O_ACCMODE) != O_RDONLY) abilities += (flags & O_APPEND) ? 'a' : 'w';
  return abilities;
}

TEST(OpenStoreFile, Modes) {
  struct Case {
    Creation creation;
    DWORD access;
    const char* before;  // content, or null for no file
    DWORD code;          // 0 for success
    const char *abilities, *after;
  };
  const char *const old = "old", *const none = nullptr;
  const Case cases[] = {
      {Creation::New,        kReadAccess,     none, 0,   "r",  ""  },
      {Creation::New,        kWriteAccess,    none, 0,   "a",  ""  },
      {Creation::New,        kReadWrite,      none, 0,   "rw", ""  },
      {Creation::New,        kReadAccess,     old,  80,  "",   old },
      {Creation::New,        kWriteAccess,    old,  80,  "",   old },
      {Creation::New,        kReadWrite,      old,  80,  "",   old },
      {Creation::Always,     kReadAccess,     none, 0,   "r",  ""  },
      {Creation::Always,     kReadAccess,     old,  0,   "r",  ""  },
      {Creation::Always,     kWriteAccess,    old,  0,   "a",  ""  },
      {Creation::Always,     kReadWrite,      old,  0,   "rw", ""  },
      {Creation::Always,     kReadWrite,      none, 0,   "rw", ""  },
      {Creation::Existing,   kReadAccess,     none, 2,   "",   none},
      {Creation::Existing,   kWriteAccess,    none, 2,   "",   none},
      {Creation::Existing,   kReadWrite,      none, 2,   "",   none},
      {Creation::Existing,   kReadAccess,     old,  0,   "r",  old },
      {Creation::Existing,   kWriteAccess,    old,  0,   "a",  old },
      {Creation::Existing,   kReadWrite,      old,  0,   "rw", old },
      {Creation::OpenAlways, kReadAccess,     none, 0,   "r",  ""  },
      {Creation::OpenAlways, kWriteAccess,    none, 0,   "a",  ""  },
      {Creation::OpenAlways, kReadWrite,      none, 0,   "rw", ""  },
      {Creation::OpenAlways, kReadAccess,     old,  0,   "r",  old },
      {Creation::OpenAlways, kWriteAccess,    old,  0,   "a",  old },
      {Creation::OpenAlways, kReadWrite,      old,  0,   "rw", old },
      {Creation{0},          kReadAccess,     old,  110, "",   old },
      {Creation{5},          kReadWrite,      none, 110, "",   none},
      {Creation::Existing,   0,               old,  87,  "",   old },
      {Creation::Existing,   kReadAccess | 1, old,  87,  "",   old },
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(testing::Message() << "creation " << static_cast<DWORD>(row.creation) << ", access "
                                    << std::hex << row.access << (row.before ? ", over a file" : ""));
    const TemporaryDirectory directory;
    if (row.before) directory.write("f", row.before);
    constexpr DWORD kUntouched = 12345;
    SetLastError(kUntouched);
    const FileStream stream = OpenStoreFile(directory.path("f").c_str(), row.access, row.creation);
    EXPECT_EQ(static_cast<bool>(stream), row.code == 0);
    EXPECT_EQ(GetLastError(), row.code ? row.code : kUntouched);
    if (stream) {
      EXPECT_EQ(Abilities(stream.get()), row.abilities);
      EXPECT_TRUE(fcntl(fileno(stream.get()), F_GETFD) & FD_CLOEXEC);
    }
    EXPECT_EQ(std::filesystem::exists(directory.path("f")), row.after != nullptr);
    if (row.after) {
      EXPECT_EQ(directory.read("f"), row.after);
    }
  }
}

TEST(OpenStoreFile, OtherFailures) {
  const TemporaryDirectory directory;
  EXPECT_FALSE(OpenStoreFile(nullptr, kReadAccess, Creation::Existing));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(OpenStoreFile(directory.path("").c_str(), kReadWrite, Creation::Existing)) << "a directory";
  EXPECT_EQ(GetLastError(), DWORD{ERROR_OPEN_FAILED});
  EXPECT_FALSE(OpenStoreFile(directory.path("no/such").c_str(), kReadWrite, Creation::OpenAlways));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

// The ids inside the bracket decide what may be opened, and whatever happens the thread gets its own back.
class IdBrackets : public testing::Test {
 protected:
  IdBrackets() { entered = left = 0; }
  ~IdBrackets() override { fakeIds = FakeIds{}; }
  static int entered, left;
  const TemporaryDirectory directory;
};
int IdBrackets::entered, IdBrackets::left;

TEST_F(IdBrackets, OpenAsSomebodyElse) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
  constexpr uid_t kNobody = 65534;
  fakeIds.actualize = [] {
    ++entered;
    return seteuid(kNobody);
  };
  fakeIds.deactualize = [] {
    ++left;
    return seteuid(0);
  };
  const std::string path = directory.write("secret", "x");
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  ASSERT_EQ(chmod(directory.path("").c_str(), 0777), 0) << "where nobody could make a file of that name";
  for (const Creation creation :
       {Creation::New, Creation::Always, Creation::Existing, Creation::OpenAlways}) {
    SCOPED_TRACE(static_cast<DWORD>(creation));
    EXPECT_FALSE(OpenStoreFile(path.c_str(), kReadWrite, creation));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(geteuid(), 0u);
  }
  EXPECT_EQ(directory.read("secret"), "x") << "what cannot be looked at is not missing";
  EXPECT_GT(entered, 0);
  EXPECT_EQ(entered, left);
}

TEST_F(IdBrackets, FailuresOfTheBracketItself) {
  const std::string path = directory.write("f", "x");
  fakeIds.actualize = [] { return EPERM; };
  fakeIds.deactualize = [] {
    ++left;
    return 0;
  };
  EXPECT_FALSE(OpenStoreFile(path.c_str(), kReadAccess, Creation::Existing));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INTERNAL_ERROR});
  EXPECT_EQ(left, 0) << "what was not taken on is not given back";

  fakeIds = FakeIds{};
  fakeIds.deactualize = [] { return EPERM; };
  EXPECT_FALSE(OpenStoreFile(path.c_str(), kReadAccess, Creation::Existing));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_CANNOT_MAKE});
}

TEST_F(IdBrackets, EveryWayOutLeaves) {
  fakeIds.deactualize = [] {
    ++left;
    errno = EBADF;
    return 0;
  };
  { IdBracket ids; }
  EXPECT_EQ(left, 1) << "as when a cancelled thread unwinds";
  {
    IdBracket ids;
    errno = EAGAIN;
    EXPECT_EQ(ids.leave(), 0);
    EXPECT_EQ(errno, EAGAIN) << "what the open has left";
  }
  EXPECT_EQ(left, 2) << "once";
}

TEST(OpenStoreFileConcurrent, OneOfManyCreatesIt) {
  for (const DWORD access : {kReadAccess, kReadWrite}) {
    for (int round = 0; round < 20; ++round) {
      const TemporaryDirectory directory;
      std::atomic<int> ready{0}, created{0}, late{0};
      std::vector<std::thread> threads;
      for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
          for (++ready; ready < 4;) std::this_thread::yield();
          const FileStream stream = OpenStoreFile(directory.path("f").c_str(), access, Creation::New);
          if (stream) {
            ++created;
          } else if (GetLastError() == ERROR_FILE_EXISTS) {
            ++late;
          }
        });
      }
      for (std::thread& thread : threads) thread.join();
      EXPECT_EQ(created, 1);
      EXPECT_EQ(late, 3);
    }
  }
}

}  // namespace
