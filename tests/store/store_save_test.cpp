// CertSaveStore into each of its targets, and what a resynchronisation does without.
#include <certkern/keykern.h>
#include <certkern/text.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <functional>

#include "platform/file.h"
#include "store/store_file.h"
#include "store/store_file_fixture.h"

using namespace certkern;
using namespace certkern::test;

namespace {

// --- saving ---

struct SaveToFile : StoreFile {
  static DWORD save(const StoreHandle& store, DWORD to, const void* target,
                    DWORD as = CERT_STORE_SAVE_AS_STORE) {
    SetLastError(0);
    return CertSaveStore(store.get(), 1, as, to, const_cast<void*>(target), 0) ? 0 : GetLastError();
  }
  static Bytes image(const StoreHandle& store) {
    CRYPT_DATA_BLOB blob{};
    EXPECT_EQ(save(store, CERT_STORE_SAVE_TO_MEMORY, &blob), 0u);
    Bytes bytes(blob.cbData);
    blob.pbData = bytes.data();
    EXPECT_EQ(save(store, CERT_STORE_SAVE_TO_MEMORY, &blob), 0u);
    return bytes;
  }
  // Of a commit that was to add a 4, and died before it wrote anything.
  void leaveJournal(bool pieces) const {
    const StoreHandle store = open(kCommit);
    store->layout.certain = pieces;
    add(store, 4);
    FileStream readOnly(std::fopen(path.c_str(), "rb"));
    const FileStream old(store->file.exchange(readOnly.release()));
    EXPECT_TRUE(commit(store));
    EXPECT_TRUE(Exists(directory + "/.a.sto.journal"));
  }
};

TEST_F(SaveToFile, TheSameImageEverywhere) {
  const StoreHandle store = OpenMemoryStore(0);
  add(store, 1);
  add(store, 2);
  const Bytes expected = image(store);
  const Bytes longer(expected.size() + 100, 0x5A);
  const std::wstring wide(path.begin(), path.end());

  WriteAll(path, longer);
  EXPECT_EQ(save(store, CERT_STORE_SAVE_TO_FILENAME_A, path.c_str()), 0u);
  EXPECT_EQ(ReadAll(path), expected);
  WriteAll(path, longer);
  EXPECT_EQ(save(store, CERT_STORE_SAVE_TO_FILENAME_W, wide.c_str()), 0u);
  EXPECT_EQ(ReadAll(path), expected);
  const std::wstring cyrillic = std::wstring(directory.begin(), directory.end()) + L"/\u0416.sto";
  EXPECT_EQ(save(store, CERT_STORE_SAVE_TO_FILENAME_W, cyrillic.c_str()), 0u);
  EXPECT_EQ(ReadAll(directory + "/\xD0\x96.sto"), expected);

  WriteAll(path, longer);
  const FileStream stream(std::fopen(path.c_str(), "r+b"));
  ASSERT_EQ(std::fseek(stream.get(), 50, SEEK_SET), 0);
  EXPECT_EQ(save(store, CERT_STORE_SAVE_TO_FILE, stream.get()), 0u);
  EXPECT_EQ(ReadAll(path), expected) << "from its start, without a remainder, and flushed";
  EXPECT_EQ(content(), "2 1");
}

TEST_F(SaveToFile, Failures) {
  const StoreHandle store = OpenMemoryStore(0);
  add(store, 1);
  const std::string nowhere = directory + "/none/a.sto";
  fill(2);
  const Bytes before = ReadAll(path);
  const FileStream readOnly(std::fopen(path.c_str(), "rb"));
  const struct {
    const char* name;
    DWORD to;
    const void* target;
    DWORD code;
  } kCases[] = {
      {"no target",           CERT_STORE_SAVE_TO_FILENAME_A, nullptr,           ERROR_INVALID_PARAMETER},
      {"target 0",            0,                             path.c_str(),      ERROR_INVALID_PARAMETER},
      {"target 5",            5,                             path.c_str(),      ERROR_INVALID_PARAMETER},
      {"no directory",        CERT_STORE_SAVE_TO_FILENAME_A, nowhere.c_str(),   ERROR_FILE_NOT_FOUND   },
      {"a directory",         CERT_STORE_SAVE_TO_FILENAME_A, directory.c_str(), ERROR_OPEN_FAILED      },
      {"a stream to be read", CERT_STORE_SAVE_TO_FILE,       readOnly.get(),    ERROR_SEEK_ON_DEVICE   },
  };
  for (const auto& [name, to, target, code] : kCases) EXPECT_EQ(save(store, to, target), code) << name;
  EXPECT_FALSE(CertSaveStore(nullptr, 1, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_FILENAME_A,
                             const_cast<char*>(path.c_str()), 0));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(ReadAll(path), before);
  // the last byte that doesn't fit is told, not lost in a buffer
  if (const FileStream full(std::fopen("/dev/full", "r+b")); full) {
    EXPECT_NE(save(store, CERT_STORE_SAVE_TO_FILE, full.get()), 0u);
  }
}

// What is saved takes the place of the old file, or is written into it where that must stay the one that it is.
TEST_F(SaveToFile, ReplacesAnOrdinaryFileAtOnce) {
  const StoreHandle store = OpenMemoryStore(0);
  add(store, 1);
  fill(2);
  const Bytes before = ReadAll(path);
  const std::string link = directory + "/link.sto", twin = directory + "/twin.sto";
  const auto inode = [&] {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0604u);
    return status.st_ino;
  };
  ASSERT_EQ(::chmod(path.c_str(), 0604), 0);
  const ino_t old = inode();
  EXPECT_EQ(InChild([&] {
              std::signal(SIGXFSZ, SIG_IGN);
              const struct rlimit small = {before.size() / 4, before.size() / 4};
              return ::setrlimit(RLIMIT_FSIZE, &small) == 0
                  && save(store, CERT_STORE_SAVE_TO_FILENAME_A, path.c_str()) == ERROR_WRITE_FAULT;
            }),
            0);
  EXPECT_EQ(ReadAll(path), before) << "a save that fails leaves the old file";
  EXPECT_EQ(save(store, CERT_STORE_SAVE_TO_FILENAME_A, path.c_str()), 0u);
  EXPECT_EQ(ReadAll(path), image(store));
  const ino_t replaced = inode();
  EXPECT_NE(replaced, old);
  ASSERT_EQ(::symlink("a.sto", link.c_str()), 0);
  EXPECT_EQ(save(store, CERT_STORE_SAVE_TO_FILENAME_A, link.c_str()), 0u);
  EXPECT_EQ(inode(), replaced) << "through a link";
  ASSERT_EQ(::link(path.c_str(), twin.c_str()), 0);
  EXPECT_EQ(save(store, CERT_STORE_SAVE_TO_FILENAME_A, path.c_str()), 0u);
  EXPECT_EQ(inode(), replaced) << "one of two names";
  const auto files = std::filesystem::directory_iterator(directory);
  EXPECT_EQ(std::distance(begin(files), end(files)), 3) << "nothing is left beside it";
}

TEST_F(SaveToFile, AKilledSaveLeavesNothing) {
  fill(2);
  const StoreHandle store = OpenMemoryStore(0);
  add(store, 1);
  EXPECT_EQ(InChild([&] {
              const struct rlimit none = {0, 0}, small = {image(store).size() / 4, RLIM_INFINITY};
              std::signal(SIGXFSZ, SIG_DFL);
              ::setrlimit(RLIMIT_CORE, &none);
              ::setrlimit(RLIMIT_FSIZE, &small);
              return save(store, CERT_STORE_SAVE_TO_FILENAME_A, path.c_str()) == 0;
            }),
            -1);
  const auto files = std::filesystem::directory_iterator(directory);
  EXPECT_EQ(std::distance(begin(files), end(files)), 1);
  WriteAll(directory + "/.a.sto.journal-new-abcdef", {1});  // of one who was killed before he could rename it
  EXPECT_EQ(save(store, CERT_STORE_SAVE_TO_FILENAME_A, path.c_str()), 0u);
  EXPECT_FALSE(Exists(directory + "/.a.sto.journal-new-abcdef"));
}

TEST_F(SaveToFile, IntoAFileThatIsMounted) {
  const StoreHandle store = OpenMemoryStore(0);
  add(store, 3);
  fill(2);
  const std::string other = directory + "/other.sto";
  WriteAll(other, {1});
  const int answer = InChild([&] {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
        || ::mount(path.c_str(), other.c_str(), nullptr, MS_BIND, nullptr) != 0) {
      ::_exit(77);
    }
    return save(store, CERT_STORE_SAVE_TO_FILENAME_A, other.c_str()) == 0;
  });
  if (answer == 77) GTEST_SKIP() << "may not mount";
  EXPECT_EQ(answer, 0);
  EXPECT_EQ(content(), "3");
}

// A commit that was cut short has left a journal, a whole image or pieces of one. The save is the last writer.
TEST_F(SaveToFile, IsNotUndoneByAJournalThatStands) {
  const StoreHandle store = OpenMemoryStore(0);
  for (const DWORD serial : {8u, 9u}) add(store, serial);  // as large as what the commit would have made
  const std::string twin = directory + "/twin.sto";
  const auto toStream = [&] {
    const FileStream stream(std::fopen(path.c_str(), "r+b"));
    const StoreHandle own = open(0);  // finishes the commit
    leaveJournal(false);
    return save(own, CERT_STORE_SAVE_TO_FILE, stream.get());
  };
  const auto toPath = [&] { return save(store, CERT_STORE_SAVE_TO_FILENAME_A, path.c_str()); };
  const auto byAnother = [&] {  // who knows of no journals
    const Bytes saved = image(store);
    const FileStream stream(std::fopen(path.c_str(), "r+b"));
    return RewriteFile(stream.get(), saved) ? 0u : GetLastError();
  };
  const struct {
    const char* name;
    bool pieces, twoNames;
    std::function<DWORD()> save;
    const char* expected;
  } kCases[] = {
      {"a whole one, replaced",                       false, false, toPath,    "9 8"},
      {"a whole one, written in place",               false, true,  toPath,    "9 8"},
      {"a whole one, into the store's own stream",    false, false, toStream,  "4 1"},
      {"pieces, written in place",                    true,  true,  toPath,    "9 8"},
      {"pieces, written in place by another program", true,  false, byAnother, "9 8"},
  };
  for (const auto& [name, pieces, twoNames, saves, expected] : kCases) {
    SCOPED_TRACE(name);
    std::filesystem::remove(path);
    std::filesystem::remove(twin);
    fill(1);
    leaveJournal(pieces);
    ASSERT_EQ(twoNames ? ::link(path.c_str(), twin.c_str()) : 0, 0);
    EXPECT_EQ(saves(), 0u);
    EXPECT_EQ(content(), expected);
  }
}

// --- what has not changed for long is not read ---

timespec TimeOf(const std::string& file) {
  struct stat status {};
  EXPECT_EQ(::stat(file.c_str(), &status), 0);
  return status.st_mtim;
}
void SetTime(const std::string& file, const timespec& time) {
  const timespec both[] = {time, time};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), both, 0), 0);
}

struct ResyncPeriod : SystemStore {
  // In a process that has read no configuration yet.
  void run() const {
    configure();
    const StoreHandle mine = SystemStore::open(L"shared");
    add(mine, 1);
    ASSERT_TRUE(commit(mine));
    const timespec now = TimeOf(mine->path);
    const timespec longAgo{now.tv_sec - 60, 0}, justNow{now.tv_sec + 60, 0};
    const Bytes one = ReadAll(mine->path);
    add(mine, 2);
    ASSERT_TRUE(commit(mine));
    const Bytes two = ReadAll(mine->path);

    SetTime(mine->path, longAgo);
    ASSERT_TRUE(resync(mine));
    WriteAll(mine->path, one);
    SetTime(mine->path, longAgo);
    ASSERT_TRUE(resync(mine));
    EXPECT_EQ(Serials(*mine.get()), "2 1") << "the time has not changed, so nothing is read";
    mine->dirty = true;
    ASSERT_TRUE(resync(mine));
    EXPECT_EQ(Serials(*mine.get()), "1") << "but for a store that has";

    WriteAll(mine->path, two);
    SetTime(mine->path, justNow);
    ASSERT_TRUE(resync(mine));
    EXPECT_EQ(Serials(*mine.get()), "2 1");
    WriteAll(mine->path, one);
    SetTime(mine->path, justNow);
    ASSERT_TRUE(resync(mine));
    EXPECT_EQ(Serials(*mine.get()), "1") << "within the period a time says nothing";

    SetTime(mine->path, longAgo);
    ASSERT_TRUE(resync(mine));
    WriteAll(directory + "/new", two);
    SetTime(directory + "/new", longAgo);
    std::filesystem::rename(directory + "/new", mine->path);
    ASSERT_TRUE(resync(mine));
    EXPECT_EQ(Serials(*mine.get()), "2 1") << "another file with the same time";
  }
  void configure() const {
    const std::string file = directory + "/config.toml";
    std::ofstream(file) << "[config.Certkern]\nworst_store_resync_period = 5000000\n";
    ASSERT_EQ(::setenv("CERTKERN_CONFIG", file.c_str(), 1), 0);
  }
};

TEST_F(ResyncPeriod, SparesTheReading) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT((run(), std::exit(HasFailure())), testing::ExitedWithCode(0), "");
}

}  // namespace
