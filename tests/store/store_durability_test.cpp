// Store files under load: processes that are killed while they commit, and many that work on one file. The suite runs
// them for a few seconds; CERTKERN_STORE_KILLS (a number of kills) and CERTKERN_STORE_SECONDS let them run for long.
#include <certkern/errors.h>
#include <certkern/find.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <new>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "platform/supkern.h"
#include "platform/temporary_directory.h"
#include "store/journal.h"
#include "store/persistent_store.h"
#include "store/sample_objects.h"
#include "store/serialized_image.h"
#include "store/store_kind.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr DWORD kCommit = CERT_FILE_STORE_COMMIT_ENABLE_FLAG;

DWORD Wish(const char* name, DWORD otherwise) {
  const char* const text = std::getenv(name);
  return text ? static_cast<DWORD>(std::strtoul(text, nullptr, 10)) : otherwise;
}

StoreHandle OpenPath(const std::string& path, DWORD flags) {
  SetLastError(0);
  return StoreHandle(AsStore(CertOpenStore(CERT_STORE_PROV_FILENAME_A, 0, 0, flags, path.c_str())));
}

bool Add(const StoreHandle& store, DWORD serial, DWORD disposition = CERT_STORE_ADD_ALWAYS) {
  const Bytes encoded = MakeCertificate({.subject = std::string(1 + serial % 97, 's'), .serial = serial});
  return CertAddEncodedCertificateToStore(store.get(), 1, encoded.data(), static_cast<DWORD>(encoded.size()),
                                          disposition, nullptr);
}

bool Control(const StoreHandle& store, DWORD control) {
  return CertControlStore(store.get(), 0, control, nullptr);
}

void DeleteAll(const StoreHandle& store) {
  while (PCCERT_CONTEXT each = CertEnumCertificatesInStore(store.get(), nullptr))
    CertDeleteCertificateFromStore(each);
}

// In memory unless TMPDIR says otherwise: what a process leaves behind is the same there, and nobody waits for a disk.
class Place {
 public:
  std::string path(const std::string& name) const { return directory_.path(name); }

 private:
  struct Choice {
    Choice() {
      if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
    }
  } choice_;
  TemporaryDirectory directory_;
};

// What processes have in common.
template <class Record>
class Shared {
 public:
  Shared()
      : record_(new (mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                    Record()) {}
  ~Shared() { munmap(record_, sizeof(Record)); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;
  Record* operator->() const { return record_; }

 private:
  Record* const record_;
};

// --- one committer, killed ---

// Each generation's image has a size of its own, larger or smaller than the one before.
constexpr DWORD kMostOfOne = 16;
void Become(const StoreHandle& store, DWORD generation) {
  DeleteAll(store);
  for (DWORD i = 0; i <= generation * 7 % kMostOfOne; ++i) Add(store, generation * kMostOfOne + i);
}
std::string SerialsOf(DWORD generation) {
  std::string serials;
  for (DWORD i = generation * 7 % kMostOfOne + 1; i-- > 0;) {
    serials += std::to_string(generation * kMostOfOne + i);
    if (i) serials += ' ';
  }
  return serials;
}

[[noreturn]] void CommitForever(const std::string& path, std::atomic<DWORD>& done) {
  const StoreHandle store = OpenPath(path, kCommit);
  for (DWORD generation = done + 1;; ++generation) {
    Become(store, generation);
    if (!Control(store, CERT_STORE_CTRL_COMMIT)) _exit(1);
    done = generation;
  }
}

TEST(StoreDurability, AKilledCommitterLeavesTheOldOrTheNew) {
  const Place directory;
  const std::string path = directory.path("a.sto");
  const Shared<std::atomic<DWORD>> done;
  std::mt19937 random(std::random_device{}());
  {
    const StoreHandle store = OpenPath(path, kCommit);
    Become(store, 0);
    ASSERT_TRUE(Control(store, CERT_STORE_CTRL_COMMIT));
  }
  DWORD newer = 0;
  for (DWORD kills = Wish("CERTKERN_STORE_KILLS", 300); kills-- > 0;) {
    const pid_t child = fork();
    if (child == 0) CommitForever(path, *done.operator->());
    usleep(200 + random() % 4000);
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "a commit failed";
    const StoreHandle store = OpenPath(path, CERT_STORE_OPEN_EXISTING_FLAG);
    ASSERT_TRUE(store) << GetLastError();
    const std::string found = Serials(*store.get());
    if (found == SerialsOf(*done.operator->() + 1)) {
      ++*done.operator->();
      ++newer;
    }
    ASSERT_EQ(found, SerialsOf(*done.operator->()));
  }
  RecordProperty("generations", static_cast<int>(*done.operator->()));
  RecordProperty("newer", static_cast<int>(newer));
}

// --- many processes ---

constexpr DWORD kProcesses = 3;
constexpr DWORD kRange = 1'000'000;  // serial numbers of a process

struct Work {
  std::atomic<DWORD> added[kProcesses];
  std::atomic<bool> over;
};

// Who reads, changes and writes under a lock of the program's own loses nothing, whatever others do without it.
class ProgramLock {
 public:
  explicit ProgramLock(const std::string& path)
      : file_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    flock(file_, LOCK_EX);
  }
  ~ProgramLock() { close(file_); }
  ProgramLock(const ProgramLock&) = delete;
  ProgramLock& operator=(const ProgramLock&) = delete;

 private:
  const int file_;
};

StoreHandle OpenSystem() {
  return StoreHandle(AsStore(
      CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"shared")));
}

void Require(bool condition, int line) {
  if (condition) return;
  fprintf(stderr, "line %d: %08X\n", line, GetLastError());
  _exit(1);
}
#define REQUIRE(condition) Require(condition, __LINE__)

// Adds one, or takes the one before the last out again: the even ones stay.
void Writer(const StoreHandle& store, const std::string& lock, DWORD process, std::atomic<DWORD>& added) {
  const ProgramLock guard(lock);
  const DWORD next = added + 1;
  REQUIRE(Control(store, CERT_STORE_CTRL_RESYNC));
  REQUIRE(Add(store, process * kRange + next, CERT_STORE_ADD_NEW));
  if (next % 2 == 0) {
    const CertificateHandle odd = CreateCertificate(
        MakeCertificate({.subject = std::string(1 + (process * kRange + next - 1) % 97, 's'),
                         .serial = process * kRange + next - 1}));
    PCCERT_CONTEXT found =
        CertFindCertificateInStore(store.get(), 1, 0, CERT_FIND_EXISTING, odd.get(), nullptr);
    REQUIRE(found && CertDeleteCertificateFromStore(found));
  }
  REQUIRE(Control(store, CERT_STORE_CTRL_COMMIT));
  added = next;
}

// Looks at everything and changes nothing that is kept.
void Reader(const StoreHandle& store) {
  CRYPT_DATA_BLOB blob{};
  REQUIRE(CertSaveStore(store.get(), 0, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_MEMORY, &blob, 0));
  const StoreHandle again = OpenSystem();
  REQUIRE(static_cast<bool>(again));
  for (PCCERT_CONTEXT each = nullptr; (each = CertEnumCertificatesInStore(again.get(), each));) {
    CertificateHandle(
        CertFindCertificateInStore(store.get(), 1, 0, CERT_FIND_SUBJECT_CERT, each->pCertInfo, nullptr))
        .reset();
  }
  REQUIRE(Add(again, 999'999'999));  // its own, and never written
  REQUIRE(Control(again, CERT_STORE_CTRL_RESYNC));
}

[[noreturn]] void RunProcess(const std::string& lock, DWORD process, Work& work) {
  const StoreHandle store = OpenSystem();
  REQUIRE(static_cast<bool>(store));
  std::thread reader([&] {
    while (!work.over) Reader(store);
  });
  std::thread second([&] {
    while (!work.over) Writer(store, lock, process, work.added[process]);
  });
  while (!work.over) Writer(store, lock, process, work.added[process]);
  reader.join();
  second.join();
  _exit(0);
}

TEST(StoreDurability, ManyProcessesLoseNothing) {
  const Place directory;
  ASSERT_EQ(setenv("XDG_DATA_HOME", directory.path("").c_str(), 1), 0);
  const Shared<Work> work;
  std::vector<pid_t> children;
  for (DWORD process = 0; process < kProcesses; ++process) {
    children.push_back(fork());
    if (!children.back()) RunProcess(directory.path("lock"), process, *work.operator->());
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(Wish("CERTKERN_STORE_SECONDS", 2));
  while (std::chrono::steady_clock::now() < end) {
    usleep(20'000);
    EXPECT_TRUE(OpenSystem()) << GetLastError();
  }
  work->over = true;
  for (const pid_t child : children) {
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  std::set<DWORD> expected, found;
  for (DWORD process = 0; process < kProcesses; ++process) {
    const DWORD last = work->added[process];
    EXPECT_GT(last, 0u);
    for (DWORD serial = 2; serial <= last; serial += 2) expected.insert(process * kRange + serial);
    if (last % 2) expected.insert(process * kRange + last);
  }
  const StoreHandle store = OpenSystem();
  ASSERT_TRUE(store);
  std::istringstream serials(Serials(*store.get()));
  for (DWORD serial; serials >> serial;) found.insert(serial);
  EXPECT_EQ(found, expected);
  EXPECT_EQ(CountOf(*store.get(), ElementType::Certificate), expected.size());
  RecordProperty("commits", static_cast<int>(expected.size()));
}

// Of two commits of one store at one instant the one that writes last has made its image last. Somebody else has the
// file; what is added while both wait for him must be in the file in the end.
TEST(StoreDurability, TheOlderImageIsNeverTheLast) {
  const Place directory;
  const std::string path = directory.path("a.sto");
  const StoreHandle store = OpenPath(path, kCommit);
  ASSERT_TRUE(store && Add(store, 1));
  const auto commit = [&] { EXPECT_TRUE(Control(store, CERT_STORE_CTRL_COMMIT)); };
  ubi_mutex* mutex = nullptr;
  ASSERT_EQ(ubi_mutex_open(&mutex, StoreLockName(path).c_str(), 8), 0);
  ASSERT_EQ(ubi_mutex_lock(mutex), 0);
  std::thread one(commit), other(commit);
  usleep(200'000);  // were it too short, nothing would be tested, and nothing fail
  EXPECT_TRUE(Add(store, 2));
  EXPECT_EQ(ubi_mutex_unlock(mutex), 0);
  one.join();
  other.join();
  ubi_mutex_close(mutex);
  const StoreHandle written = OpenPath(path, CERT_STORE_OPEN_EXISTING_FLAG);
  EXPECT_EQ(Serials(*written.get()), "2 1");
}

// --- what is provably the file that was read is not read again ---

// Two processes write the same file in turn, as fast as they can: many changes fall on one tick of the file system's clock,
// and leave the file as large as it was.
TEST(StoreResync, NoChangeOfAnotherProcessIsMissed) {
  const Place directory;
  ASSERT_EQ(setenv("XDG_DATA_HOME", directory.path("").c_str(), 1), 0);
  const StoreHandle mine = OpenSystem();
  ASSERT_TRUE(mine && Add(mine, 0) && Control(mine, CERT_STORE_CTRL_COMMIT));
  int there[2], back[2];
  ASSERT_EQ(pipe(there) | pipe(back), 0);
  const DWORD rounds = Wish("CERTKERN_STORE_ROUNDS", 2000);
  const pid_t child = fork();
  if (!child) {
    const int file = open(mine->path.c_str(), O_RDWR | O_CLOEXEC);
    std::vector<Bytes> images(2);
    for (DWORD i = 0; i < 2; ++i) {
      const StoreHandle store(OpenMemoryStore(0));
      REQUIRE(Add(store, 97 * i + 1));
      ImageBytes image(ImageBytes::Mode::Keep);
      REQUIRE(SerializeStore(*store.get(), ImageUse::Save, image));
      images[i] = image.bytes;
    }
    char turn = 0;
    for (DWORD i = 0; i < rounds; ++i) {
      REQUIRE(pwrite(file, images[i % 2].data(), images[i % 2].size(), 0) > 0);
      if (!i) REQUIRE(ftruncate(file, static_cast<off_t>(images[0].size())) == 0);
      REQUIRE(write(there[1], "", 1) == 1 && read(back[0], &turn, 1) == 1);
    }
    _exit(0);
  }
  char turn = 0;
  DWORD missed = 0;
  for (DWORD i = 0; i < rounds && read(there[0], &turn, 1) == 1; ++i) {
    EXPECT_TRUE(Control(mine, CERT_STORE_CTRL_RESYNC));
    missed += Serials(*mine.get()) != std::to_string(97 * (i % 2) + 1);
    ASSERT_EQ(write(back[1], "", 1), 1);
  }
  EXPECT_EQ(missed, 0u);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

// The proof needs a file that has rested; its own marks are put back by hand, so the test need not wait.
TEST(StoreResync, AProvenFileIsNotRead) {
  const Place directory;
  ASSERT_EQ(setenv("XDG_DATA_HOME", directory.path("").c_str(), 1), 0);
  const StoreHandle mine = OpenSystem();
  ASSERT_TRUE(mine && Add(mine, 1) && Control(mine, CERT_STORE_CTRL_COMMIT));
  ASSERT_TRUE(Control(mine, CERT_STORE_CTRL_RESYNC));
  EXPECT_FALSE(mine->read.settled) << "it has only just been written";
  mine->read.settled = true;
  // Whoever has the file's lock is not waited for, and what is in the file is not looked at.
  ubi_mutex* mutex = nullptr;
  ASSERT_EQ(ubi_mutex_open(&mutex, StoreLockName(mine->path).c_str(), 8), 0);
  ASSERT_EQ(ubi_mutex_lock(mutex), 0);
  EXPECT_TRUE(Control(mine, CERT_STORE_CTRL_RESYNC));
  EXPECT_TRUE(ResyncStore(*mine.get()));
  EXPECT_EQ(ubi_mutex_unlock(mutex), 0);
  ubi_mutex_close(mutex);
  // What was never committed is dropped all the same, and a journal that has come to stand is finished.
  ASSERT_TRUE(Add(mine, 2));
  ASSERT_TRUE(Control(mine, CERT_STORE_CTRL_RESYNC));
  EXPECT_EQ(Serials(*mine.get()), "1");
  mine->read.settled = true;
  const StoreHandle other = OpenMemoryStore(0);
  ImageBytes image(ImageBytes::Mode::Keep);
  ASSERT_TRUE(Add(other, 3) && SerializeStore(*other.get(), ImageUse::Commit, image));
  ASSERT_EQ(StoreJournal(mine->path).write(image.bytes), StoreJournal::Written::Safe);
  ASSERT_TRUE(Control(mine, CERT_STORE_CTRL_RESYNC));
  EXPECT_EQ(Serials(*mine.get()), "3") << "a committer died over it";
}

}  // namespace
