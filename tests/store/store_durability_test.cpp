// Store files under load: processes that are killed while they commit, and many that work on one file. The suite runs
// them for a few seconds; CERTKERN_STORE_KILLS (a number of kills) and CERTKERN_STORE_SECONDS let them run for long.
#include <certkern/errors.h>
#include <certkern/find.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <random>
#include <string>
#include <thread>

#include "platform/supkern.h"
#include "platform/temporary_directory.h"
#include "store/file_witness.h"
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

Bytes Sample(DWORD serial) {
  return MakeCertificate({.subject = std::string(1 + serial % 97, 's'), .serial = serial});
}

bool Add(const StoreHandle& store, DWORD serial, DWORD disposition = CERT_STORE_ADD_ALWAYS) {
  const Bytes encoded = Sample(serial);
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

constexpr DWORD kProcesses = 4, kWriters = 2 * kProcesses;
constexpr DWORD kRange = 1'000'000;  // serial numbers of a writer

struct Work {
  std::atomic<DWORD> added[kWriters];
  std::atomic<bool> over;
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

CertificateHandle Find(const StoreHandle& store, DWORD serial) {
  const CertificateHandle wanted = CreateCertificate(Sample(serial));
  return CertificateHandle(
      CertFindCertificateInStore(store.get(), 1, 0, CERT_FIND_EXISTING, wanted.get(), nullptr));
}

// Changes a property of what was added before, and takes the one before that out again: of three one stays away. A number
// that is in the file already was committed by somebody who was killed before he could say so.
void Write(const StoreHandle& store, DWORD writer, std::atomic<DWORD>& added) {
  const DWORD next = added + 1;
  if (Add(store, writer * kRange + next, CERT_STORE_ADD_NEW)) {
    BYTE value[] = {static_cast<BYTE>(next), static_cast<BYTE>(next >> 8), 0, 0};
    const CRYPT_DATA_BLOB name{sizeof value, value};
    const CertificateHandle previous = Find(store, writer * kRange + next - 1);
    if (previous)
      REQUIRE(CertSetCertificateContextProperty(previous.get(), CERT_FRIENDLY_NAME_PROP_ID, 0, &name));
    CertificateHandle leaves = next % 3 == 0 ? Find(store, writer * kRange + next - 2) : CertificateHandle();
    if (leaves) REQUIRE(CertDeleteCertificateFromStore(leaves.release()));
    REQUIRE(Control(store, CERT_STORE_CTRL_COMMIT));
  }
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

// What every writer has said to be committed is in the file, once and with its property, and nothing that was taken out.
void ExpectAll(Work& work, DWORD writers) {
  const StoreHandle store = OpenSystem();
  ASSERT_TRUE(store);
  size_t count = 0;
  for (DWORD writer = 0; writer < writers; ++writer) {
    const DWORD last = work.added[writer];
    EXPECT_GT(last, 0u);
    for (DWORD number = 1; number <= last; ++number) {
      const bool left = number % 3 == 1 && number + 2 <= last;
      const CertificateHandle found = Find(store, writer * kRange + number);
      EXPECT_EQ(static_cast<bool>(found), !left) << writer << ' ' << number << " of " << last;
      count += !left;
      BYTE value[4] = {};
      DWORD size = sizeof value;
      if (left || number == last) continue;
      EXPECT_TRUE(CertGetCertificateContextProperty(found.get(), CERT_FRIENDLY_NAME_PROP_ID, value, &size));
      EXPECT_EQ(value[0] | value[1] << 8, static_cast<int>((number + 1) & 0xFFFF));
    }
  }
  EXPECT_EQ(CountOf(*store.get(), ElementType::Certificate), count);
  for (const auto& each :
       std::filesystem::directory_iterator(std::filesystem::path(store->path).parent_path())) {
    EXPECT_EQ(each.path().filename().string().find("journal"), std::string::npos) << each.path();
  }
}

// Two threads share a handle in each process, a third has its own, and nobody takes a lock or resynchronises first.
[[noreturn]] void RunProcess(DWORD process, Work& work) {
  const StoreHandle store = OpenSystem();
  REQUIRE(static_cast<bool>(store));
  const auto write = [&](DWORD writer) {
    while (!work.over) Write(store, writer, work.added[writer]);
  };
  std::thread reader([&] {
    const StoreHandle own = OpenSystem();
    while (!work.over) Reader(own);
  });
  std::thread second(write, 2 * process + 1);
  write(2 * process);
  reader.join();
  second.join();
  _exit(0);
}

TEST(StoreDurability, ThreadsAndProcessesLoseNothing) {
  const Place directory;
  ASSERT_EQ(setenv("XDG_DATA_HOME", directory.path("").c_str(), 1), 0);
  const Shared<Work> work;
  std::vector<pid_t> children;
  for (DWORD process = 0; process < kProcesses; ++process) {
    children.push_back(fork());
    if (!children.back()) RunProcess(process, *work.operator->());
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
  ExpectAll(*work.operator->(), kWriters);
}

// Writers who open the store anew for every few commits, and are killed in the midst of one at any time.
TEST(StoreDurability, TheKilledAmongManyLoseNothing) {
  const Place directory;
  ASSERT_EQ(setenv("XDG_DATA_HOME", directory.path("").c_str(), 1), 0);
  const Shared<Work> work;
  const auto start = [&](DWORD writer) {
    const pid_t child = fork();
    if (child) return child;
    for (;;) {
      const StoreHandle store = OpenSystem();
      REQUIRE(static_cast<bool>(store));
      for (DWORD i = 0; i < 5; ++i) {
        Write(store, writer, work->added[writer]);  // first, to learn what somebody killed had committed
        if (work->over) _exit(0);
      }
    }
  };
  std::vector<pid_t> children;
  for (DWORD writer = 0; writer < kProcesses; ++writer) children.push_back(start(writer));
  std::mt19937 random(std::random_device{}());
  for (DWORD kills = Wish("CERTKERN_STORE_KILLS", 300); kills-- > 0;) {
    usleep(random() % 8000);
    pid_t& victim = children[random() % kProcesses];
    kill(victim, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(victim, &status, 0), victim);
    ASSERT_TRUE(WIFSIGNALED(status)) << "a commit failed";
    victim = start(static_cast<DWORD>(&victim - children.data()));
  }
  while (std::any_of(work->added, work->added + kProcesses, [](const auto& each) { return each == 0; }))
    usleep(1000);
  work->over = true;
  for (const pid_t child : children) {
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  ExpectAll(*work.operator->(), kProcesses);
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
  EXPECT_TRUE(IsSurelyUnchanged(mine->path, mine->read)) << "what it has written itself bears its stamp";
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

// A store that is written time and again, as a cache is: its own writing is nothing to be read, others' is.
TEST(StoreResync, OwnWritingIsNotReadAgain) {
  const Place directory;
  ASSERT_EQ(setenv("XDG_DATA_HOME", directory.path("").c_str(), 1), 0);
  const StoreHandle mine = OpenSystem();
  const auto addAndCommit = [](const StoreHandle& store, DWORD serial) {
    return Control(store, CERT_STORE_CTRL_RESYNC) && Add(store, serial)
        && Control(store, CERT_STORE_CTRL_COMMIT);
  };
  ASSERT_TRUE(mine && addAndCommit(mine, 1) && addAndCommit(mine, 2) && addAndCommit(mine, 3));
  EXPECT_TRUE(IsSurelyUnchanged(mine->path, mine->read));
  const StoreHandle other = OpenSystem();
  ASSERT_TRUE(addAndCommit(other, 4));
  ASSERT_TRUE(Add(mine, 5) && Control(mine, CERT_STORE_CTRL_COMMIT));
  EXPECT_FALSE(IsSurelyUnchanged(mine->path, mine->read)) << "it has never seen what the other wrote";
  ASSERT_TRUE(Control(mine, CERT_STORE_CTRL_RESYNC));
  EXPECT_EQ(Serials(*mine.get()), "4 5 3 2 1");
  EXPECT_TRUE(IsSurelyUnchanged(mine->path, mine->read));
}

}  // namespace
