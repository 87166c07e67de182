// One store file in several hands: of other users, under other spellings of its path, replaced under whoever has it open.
#include <certkern/keykern.h>
#include <certkern/text.h>

#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <cstdio>

#include "store/journal.h"
#include "store/store_file.h"
#include "store/store_file_fixture.h"

using namespace certkern;
using namespace certkern::test;

namespace {

// --- other users ---

constexpr uid_t kOwner = 65001, kWriter = 65002, kOther = 65003;
constexpr gid_t kGroup = 65010;

// A crash in the midst of a commit, and who comes next. Only root can be so many.
class Users : public StoreFile {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "takes root";
    StoreFile::SetUp();
    ASSERT_EQ(::chmod(directory.c_str(), 0755), 0);
    fill(2);
  }
  // The store, and the directory that it is in.
  void belongs(uid_t user, mode_t mode, mode_t directoryMode = 0775) const {
    for (const std::string& each : {path, directory}) ASSERT_EQ(::chown(each.c_str(), user, kGroup), 0);
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
    ASSERT_EQ(::chmod(directory.c_str(), directoryMode), 0);
  }
  // What somebody does, who is in the group or in his own only.
  static int as(uid_t user, gid_t group, const std::function<bool()>& work) {
    return InChild([&] {
      return ::setgroups(0, nullptr) == 0 && ::setgid(group) == 0 && ::setuid(user) == 0 && work();
    });
  }
  void crash(uid_t user, gid_t group) const {
    ASSERT_EQ(as(user, group,
                 [&] {
                   const Bytes image = ReadAll(path);
                   if (StoreJournal(path).write(image) != StoreJournal::Written::Safe) return false;
                   WriteAll(path,
                            Bytes(image.begin(), image.begin() + static_cast<ptrdiff_t>(image.size() / 2)));
                   return true;
                 }),
              0);
    ASSERT_TRUE(Exists(journal()));
  }
  std::string journal() const { return directory + "/.a.sto.journal"; }
  int reads(uid_t user, gid_t group) const {
    return as(user, group, [&] { return content() == "2 1"; });
  }
  std::string permissions(const std::string& file) const {
    struct stat status {};
    if (::lstat(file.c_str(), &status) != 0) return "missing";
    char text[64];
    std::snprintf(text, sizeof text, "%u:%u %03o", status.st_uid, status.st_gid, status.st_mode & 0777);
    return text;
  }
};

TEST_F(Users, WhoMayReadTheStoreReadsItsJournal) {
  const struct {
    const char* name;
    mode_t mode;
    uid_t committer;
    gid_t group;
    const char* journal;
    bool othersRead;
  } kCases[] = {
      {"root for all",                   0644, 0,       0,      "65001:65010 644", true },
      {"root for a group",               0660, 0,       0,      "65001:65010 640", false},
      {"the owner for all",              0644, kOwner,  kGroup, "65001:65010 644", true },
      {"a member of the group",          0664, kWriter, kGroup, "65002:65010 644", true },
      {"a member, for the group",        0660, kWriter, kGroup, "65002:65010 640", false},
      {"one of the owner's other group", 0640, kOwner,  kOther, "65001:65003 600", false},
  };
  const Bytes whole = ReadAll(path);
  for (const auto& [name, mode, committer, group, expected, othersRead] : kCases) {
    SCOPED_TRACE(name);
    WriteAll(path, whole);
    belongs(kOwner, mode);
    crash(committer, group);
    EXPECT_EQ(permissions(journal()), expected);
    EXPECT_EQ(reads(kOther, kOther), othersRead ? 0 : 1);
    EXPECT_EQ(content(), "2 1") << "root finishes it";
    EXPECT_EQ(ReadAll(path), whole);
    EXPECT_FALSE(Exists(journal()));
  }
}

TEST_F(Users, AJournalThatCannotBeReadEndsTheOpen) {
  belongs(0, 0644, 0755);
  crash(0, 0);
  ASSERT_EQ(::chmod(journal().c_str(), 0600), 0);
  EXPECT_EQ(as(kOther, kOther,
               [&] { return !open(CERT_STORE_OPEN_EXISTING_FLAG) && GetLastError() == ERROR_ACCESS_DENIED; }),
            0)
      << "half a store is none";
  EXPECT_EQ(content(), "2 1");
}

TEST_F(Users, WhoMayNotWriteTheStoreWritesNoJournalOfIt) {
  const struct {
    const char* name;
    mode_t store, directory;
    gid_t group;
    bool counts;
  } kCases[] = {
      {"a group that may write",                  0660, 0775,  kGroup, true },
      {"a group that may only read",              0640, 0775,  kGroup, false},
      {"another group",                           0660, 0775,  kOther, false},
      {"a directory that gives its group to all", 0660, 03777, kGroup, false},
      {"anybody may write",                       0666, 0775,  kOther, true },
  };
  const Bytes whole = ReadAll(path);
  fill(1);
  const Bytes other = ReadAll(path);
  for (const auto& [name, store, mode, group, counts] : kCases) {
    SCOPED_TRACE(name);
    WriteAll(path, other);
    ASSERT_EQ(StoreJournal(path).write(other), StoreJournal::Written::Safe);
    belongs(kOwner, store, mode);
    ASSERT_EQ(::chown(journal().c_str(), kWriter, group), 0);
    WriteAll(path, whole);
    EXPECT_EQ(content(), counts ? "1 2 1" : "2 1");
    EXPECT_EQ(Exists(journal()), !counts) << "let lie";
    std::filesystem::remove(journal());
  }
}

// The journal can't be removed, and must not undo what is committed after it was replayed.
TEST_F(Users, AJournalInAnothersDirectoryIsSpentOnce) {
  belongs(kOwner, 0644);
  crash(0, 0);
  ASSERT_EQ(::chown(directory.c_str(), 0, 0), 0);
  ASSERT_EQ(::chmod(directory.c_str(), 0755), 0);
  EXPECT_EQ(as(kOwner, kGroup,
               [&] {
                 const StoreHandle store = open(kCommit);
                 add(store, 3);
                 return commit(store);
               }),
            0);
  EXPECT_EQ(content(), "3 2 1");

  crash(0, 0);
  ASSERT_EQ(::chown(journal().c_str(), 0, 0), 0);
  EXPECT_EQ(as(kOwner, kGroup,
               [&] {
                 const StoreHandle store = open(kCommit);
                 add(store, 4);
                 return !commit(store) && GetLastError() == ERROR_ACCESS_DENIED;
               }),
            0)
      << "it can't be emptied either";
  EXPECT_EQ(content(), "3 2 1");
}

// Without a journal the file is made large enough before anything in it is given up.
TEST_F(Users, AFullDiskDestroysNoFileWithoutAJournal) {
  belongs(kOwner, 0644);
  ASSERT_EQ(::chown(directory.c_str(), 0, 0), 0);
  ASSERT_EQ(::chmod(directory.c_str(), 0755), 0);
  EXPECT_EQ(as(kOwner, kGroup,
               [&] {
                 const StoreHandle store = open(kCommit);
                 for (const DWORD serial : {3u, 4u}) add(store, serial);
                 std::signal(SIGXFSZ, SIG_IGN);
                 const rlim_t room = ReadAll(path).size() + 10;
                 const struct rlimit small = {room, RLIM_INFINITY}, large = {RLIM_INFINITY, RLIM_INFINITY};
                 ::setrlimit(RLIMIT_FSIZE, &small);
                 const bool refused = !commit(store) && content() == "2 1";
                 ::setrlimit(RLIMIT_FSIZE, &large);
                 return refused && commit(store);
               }),
            0);
  EXPECT_EQ(content(), "4 3 2 1");
}

// --- one file, several names ---

TEST_F(StoreFile, AReaderUnderAnotherNameDisturbsNoCommit) {
  fill(1);
  ASSERT_EQ(::symlink("a.sto", (directory + "/link.sto").c_str()), 0);
  const std::string spellings[] = {directory + "/./a.sto", directory + "/link.sto"};
  std::vector<pid_t> readers;
  for (const std::string& spelling : spellings) {
    readers.push_back(::fork());
    if (readers.back()) continue;
    path = spelling;
    while (open(CERT_STORE_OPEN_EXISTING_FLAG)) {
    }
    ::_exit(1);  // half a store
  }
  const StoreHandle store = open(kCommit);
  for (DWORD serial = 2; serial < 60; ++serial) {
    add(store, serial);
    ASSERT_TRUE(commit(store)) << serial << ": " << GetLastError();
    ASSERT_EQ(content(), Serials(*store.get())) << "an older journal came after it";
  }
  for (const pid_t reader : readers) {
    EXPECT_EQ(::kill(reader, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(reader, &status, 0), reader);
    EXPECT_TRUE(WIFSIGNALED(status)) << "it read something else than a store";
  }
}

TEST_F(StoreFile, UnfinishedJournalsAreClearedAway) {
  fill(1);
  WriteAll(directory + "/.a.sto.journal-new-abcdef", {1});  // somebody died over it
  WriteAll(directory + "/.a.sto.journal-new-b.sto.journal", {1});
  ASSERT_EQ(::symlink("a.sto", (directory + "/.a.sto.journal-new-ghijkl").c_str()), 0);
  EXPECT_EQ(content(), "1");
  for (const char* const each : {"abcdef", "ghijkl"}) {
    EXPECT_FALSE(std::filesystem::is_symlink(directory + "/.a.sto.journal-new-" + each)
                 || Exists(directory + "/.a.sto.journal-new-" + each));
  }
  EXPECT_TRUE(Exists(directory + "/.a.sto.journal-new-b.sto.journal")) << "another store's";
}

// Opened by a path that means nothing any more once the commit comes. A commit that fails leaves the file as it was.
TEST_F(StoreFile, ARelativePathMeansWhereTheProcessWasThen) {
  fill(1);
  std::filesystem::create_directory(directory + "/sub");
  const auto commitFromElsewhere = [&](const std::string& name, rlim_t room) {
    return InChild([&] {
      if (::chdir(directory.c_str()) != 0) return false;
      path = name;
      const StoreHandle store = open(kCommit);
      add(store, 2);
      std::signal(SIGXFSZ, SIG_IGN);
      const struct rlimit limit = {room, RLIM_INFINITY};
      if (::chdir("/") != 0 || ::setrlimit(RLIMIT_FSIZE, &limit) != 0) return false;
      const bool committed = commit(store);
      store->dirty = false;  // no second try at the close
      return committed;
    });
  };
  for (const char* const name : {"a.sto", "sub/../a.sto"}) {
    SCOPED_TRACE(name);
    const std::string before = content();
    EXPECT_EQ(commitFromElsewhere(name, 0), 1);
    EXPECT_EQ(content(), before);
    EXPECT_EQ(commitFromElsewhere(name, RLIM_INFINITY), 0);
    EXPECT_EQ(content(), "2 " + before);
  }
}

// --- a file that is replaced ---

TEST_F(SystemStore, ResyncGoesOverToAFileThatCameInItsPlace) {
  const StoreHandle mine = open(L"shared");
  add(mine, 1);
  ASSERT_TRUE(commit(mine));
  const std::string other = directory + "/other.sto";
  std::filesystem::copy_file(mine->path, other);
  path = other;
  {
    const StoreHandle theirs = StoreFile::open(kCommit);
    add(theirs, 2);
  }
  std::filesystem::rename(other, mine->path);
  ASSERT_TRUE(resync(mine));
  EXPECT_EQ(Serials(*mine.get()), "2 1");
  add(mine, 3);
  ASSERT_TRUE(commit(mine));
  path = mine->path;
  EXPECT_EQ(content(), "3 2 1");
}

}  // namespace
