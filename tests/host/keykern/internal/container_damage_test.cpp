// Containers that something happened to: every fault has a code, and nothing is lost by looking at it.
#include "host/keykern/internal/container_bench.h"
#include "platform/limits.h"

#include <sys/stat.h>
#include <unistd.h>

#include <functional>

namespace {

using namespace keykern;  // NOLINT(google-build-using-namespace): the names under test
namespace fs = std::filesystem;

TEST_F(ContainerTest, FilesThatAreNotOursAreRefusedAndKept) {
  const KeyRecord key = newKey();
  const auto mode = [&](const char* file, mode_t bits) { ASSERT_EQ(chmod(box(file).c_str(), bits), 0); };
  const auto link = [&](const std::string& path) {
    fs::rename(path, bench_.path("elsewhere"));
    fs::create_symlink(bench_.path("elsewhere"), path);
  };
  struct Row {
    const char* name;
    std::function<void()> damage;
    DWORD opened;
    DWORD loaded;
    DWORD removed;
  };
  std::vector<Row> rows = {
      {"key that others write",    [&] { mode("private-2.p8", 0622); },                                0,              NTE_PERM,       NTE_PERM      },
      {"half that a group writes", [&] { mode("public-2.der", 0660); },                                0,              NTE_PERM,       0             },
      {"info that others write",   [&] { mode("info", 0602); },                                        NTE_PERM,       0,              0             },
      {"directory for everybody",  [&] { mode("", 0777); },                                            NTE_PERM,       0,              NTE_PERM      },
      {"key by a link",            [&] { link(box("private-2.p8")); },                                 0,              NTE_BAD_KEYSET, NTE_BAD_KEYSET},
      {"directory by a link",      [&] { link(keys("box")); },                                         NTE_BAD_KEYSET, 0,              NTE_BAD_KEYSET},
      {"key that is a directory",
       [&] { fs::remove(box("private-2.p8")), fs::create_directory(box("private-2.p8")); },            0,              NTE_BAD_KEYSET,
       NTE_BAD_KEYSET                                                                                                                                },
      {"key that is a pipe",
       [&] { fs::remove(box("private-2.p8")), mkfifo(box("private-2.p8").c_str(), 0600); },            0,              NTE_BAD_KEYSET,
       NTE_BAD_KEYSET                                                                                                                                },
      {"key that is missing",      [&] { fs::remove(box("private-2.p8")); },                           0,              NTE_BAD_KEYSET, 0             },
      {"half that is missing",     [&] { fs::remove(box("public-2.der")); },                           0,              NTE_BAD_KEYSET, 0             },
      {"info that is missing",     [&] { fs::remove(box("info")); },                                   NTE_BAD_KEYSET, 0,              0             },
      {"a file for the directory", [&] { fs::remove_all(keys("box")), put(keys("box"), Bytes("x")); },
       NTE_BAD_KEYSET,                                                                                                 0,              NTE_BAD_KEYSET},
      {"a later version",          [&] { put(box("info"), Bytes("certkern-container 2\n")); },         NTE_BAD_KEYSET, 0,              0             },
      {"a commit by a link",       [&] { fs::create_symlink("/", box(".commit")); },                   NTE_BAD_KEYSET, 0,
       NTE_BAD_KEYSET                                                                                                                                },
  };
  if (geteuid() == 0) {
    rows.push_back({"key of another", [&] { ASSERT_EQ(chown(box("private-2.p8").c_str(), 65534, 65534), 0); },
                    0, NTE_PERM, NTE_PERM});
    rows.push_back({"directory of another", [&] { ASSERT_EQ(chown(keys("box").c_str(), 65534, 65534), 0); },
                    NTE_PERM, 0, NTE_PERM});
  }
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    fs::remove_all(keys());
    fs::remove_all(bench_.path("elsewhere"));
    const KeySetPtr whole = create();
    ASSERT_EQ(whole->store(AT_SIGNATURE, key), 0u);
    row.damage();
    const Files before = snapshot(keys());
    KeySetPtr opened;
    KeyRecord found;
    EXPECT_EQ(tryOpen(opened), row.opened);
    const DWORD expected = row.opened ? row.opened : row.loaded;
    EXPECT_EQ(whole->load(AT_SIGNATURE, found), expected);
    EXPECT_EQ(whole->store(AT_SIGNATURE, key), expected) << "replaced what could not be read";
    EXPECT_EQ(whole->changePin(Bytes("1")), expected);
    KeySetPtr again;
    EXPECT_EQ(CreateContainer("box", Scope::User, again), NTE_EXISTS);
    EXPECT_EQ(snapshot(keys()), before);
    if (row.removed) {
      EXPECT_EQ(DeleteContainer("box", Scope::User), row.removed);
      EXPECT_EQ(snapshot(keys()), before);
    }
    EXPECT_EQ(CreateContainer("another", Scope::User, again), 0u) << "one container in the way of others";
    EXPECT_EQ(DeleteContainer("another", Scope::User), 0u);
    EXPECT_EQ(snapshot(keys()), before);
  }
}

// Found out after the commit, it would stop every later writer.
TEST_F(ContainerTest, WhatCannotBeReplacedIsRefusedBeforeTheCommit) {
  const KeyRecord key = newKey();
  const KeySetPtr set = create();
  ASSERT_EQ(set->store(AT_SIGNATURE, key), 0u);
  fs::create_directory(box("certificate-2.der"));
  EXPECT_EQ(set->store(AT_SIGNATURE, newKey()), NTE_BAD_KEYSET);
  EXPECT_EQ(set->setCertificate(AT_SIGNATURE, Bytes("c")), NTE_BAD_KEYSET);
  EXPECT_EQ(load(AT_SIGNATURE, key), 0u) << "committed all the same";
  EXPECT_EQ(set->setExtension({"1.2.3", false, SecretBytes(1, 7)}), 0u) << "a writer of other files";
  fs::remove(box("certificate-2.der"));
  EXPECT_EQ(set->store(AT_SIGNATURE, key), 0u);
}

TEST_F(ContainerTest, ADamagedContainerIsListedAndCanBeDeleted) {
  ASSERT_EQ(create()->store(AT_SIGNATURE, newKey()), 0u);
  put(box("info"), Bytes("nonsense"));
  put(keys(".hidden/info"), Bytes("x"));
  put(keys("not%2fcanonical/info"), Bytes("x"));
  std::vector<std::string> names;
  EXPECT_EQ(ListContainers(Scope::User, names), 0u);
  EXPECT_EQ(names, std::vector<std::string>{"box"});
  put(box("subdirectory/of a user's"), Bytes("x"));
  EXPECT_EQ(DeleteContainer("box", Scope::User), NTE_BAD_KEYSET) << "deletes what no container has";
  fs::remove_all(box("subdirectory"));
  EXPECT_EQ(DeleteContainer("box", Scope::User), 0u);
  EXPECT_FALSE(fs::exists(keys("box")));
  EXPECT_EQ(snapshot(keys()).size(), 3u) << "the lock and what is no container";
}

// What a hand or another program wrote nearly alike may mean something else there.
TEST_F(ContainerTest, InfoIsReadToTheLetter) {
  create();
  const std::vector<BYTE> bytes = snapshot(box())["info"];
  const std::string good(bytes.begin(), bytes.end());
  const auto opened = [&](const std::string& text) {
    put(box("info"), Bytes(text));
    KeySetPtr set;
    return tryOpen(set);
  };
  EXPECT_EQ(opened(good + "key 1 0x2220 fixed\nkey 2 0x2220 exportable\n"), 0u);
  for (const std::string more :
       {"key 2 0x2220 fixed\nkey 1 0x2220 fixed\n", "key 1 0x2220 fixed\nkey 1 0x2220 fixed\n",
        "key 3 0x2220 fixed\n", "key 01 0x2220 fixed\n", "key 1 0x02220 fixed\n", "key 1 0x2221 fixed\n",
        "key 1 0x2220 fixed", "key 1 0x2220 free\n", "key 4294967297 0x2220 fixed\n", "\n"}) {
    EXPECT_EQ(opened(good + more), NTE_BAD_KEYSET) << more;
  }
  EXPECT_EQ(opened(good), 0u);
}

TEST_F(ContainerTest, FilesAreBounded) {
  const KeySetPtr set = create();
  ASSERT_EQ(set->store(AT_SIGNATURE, newKey()), 0u);
  std::vector<BYTE> largest(certkern::kMaxContainerFile, 1);
  SecretBytes read;
  EXPECT_EQ(set->setCertificate(AT_SIGNATURE, largest), 0u);
  ASSERT_EQ(set->certificate(AT_SIGNATURE, read), 0u);
  EXPECT_EQ(read.size(), largest.size());
  largest.push_back(1);
  EXPECT_EQ(set->setCertificate(AT_SIGNATURE, largest), NTE_BAD_LEN);
  put(box("certificate-2.der"), largest);
  EXPECT_EQ(set->certificate(AT_SIGNATURE, read), NTE_BAD_KEYSET) << "cut silently";
}

// The keys of two containers, and of two specs, change places.
TEST_F(ContainerTest, ForeignKeysAreNotTaken) {
  const KeyRecord key = newKey(), other = newKey();
  const KeySetPtr set = create();
  ASSERT_EQ(set->store(AT_KEYEXCHANGE, key), 0u);
  ASSERT_EQ(set->store(AT_SIGNATURE, other), 0u);
  fs::copy_file(box("private-1.p8"), box("private-2.p8"), fs::copy_options::overwrite_existing);
  EXPECT_EQ(load(AT_SIGNATURE, other), NTE_BAD_KEYSET);
  KeyRecord found;
  EXPECT_EQ(set->load(AT_SIGNATURE, found), NTE_BAD_KEYSET) << "by an earlier handle";
  EXPECT_EQ(load(AT_KEYEXCHANGE, key), 0u);
}

// Each file of a container cut at each length and changed at each byte: a code, or the right key; and the files stay.
TEST_F(ContainerTest, EveryDamageHasACodeOrTheRightKey) {
  const KeyRecord plain = newKey(), sealed = newKey(Family::Ec);
  {
    const KeySetPtr set = create();
    ASSERT_EQ(set->store(AT_KEYEXCHANGE, plain), 0u);
    ASSERT_EQ(set->store(AT_SIGNATURE, sealed), 0u);
    ASSERT_EQ(set->setCertificate(AT_SIGNATURE, Bytes("certificate")), 0u);
    ASSERT_EQ(set->setExtension({"1.2.3", true, SecretBytes(3, 7)}), 0u);
  }
  // sealed by another program, with few iterations: thousands of trials follow
  const std::string file = box("private-2.p8");
  bench_.run("pkcs8 -topk8 -inform DER -in " + file + " -outform DER -out few -iter 10 -passout pass:1");
  put(file, bench_.read("few"));
  ASSERT_EQ(load(AT_SIGNATURE, sealed, "1"), 0u);

  size_t survived = 0;
  const auto judge = [&](const std::string& name, size_t at, const std::vector<BYTE>& damaged) {
    put(box(name), damaged);
    const DWORD first = load(AT_KEYEXCHANGE, plain, "1"), second = load(AT_SIGNATURE, sealed, "1");
    survived += first == 0 && second == 0;
    for (const DWORD code : {first, second}) {
      EXPECT_TRUE(code == 0 || code == NTE_BAD_KEYSET || code == SCARD_W_WRONG_CHV || code == NTE_NO_KEY
                  || code == SCARD_W_CARD_NOT_AUTHENTICATED)
          << name << " " << at << " " << std::hex << code;
    }
    KeySetPtr set;
    std::vector<ContainerExtension> all;
    const DWORD opened = tryOpen(set);
    if (!opened) static_cast<void>(set->extensions(all));
    EXPECT_FALSE(name == "info" && damaged.empty() && !opened);
  };
  for (const auto& [name, bytes] : snapshot(box())) {
    for (size_t i = 0; i < bytes.size(); ++i) {
      judge(name, i, {bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(i)});
      std::vector<BYTE> changed = bytes;
      changed[i] ^= 0x01;
      judge(name, i, changed);
      EXPECT_EQ(snapshot(box())[name], changed);
    }
    put(box(name), bytes);
  }
  EXPECT_EQ(load(AT_SIGNATURE, sealed, "1"), 0u) << "all is as it was";
  EXPECT_GT(survived, 0u) << "damage that matters to no key";
}

// A writer that died at any moment leaves the state before or the state after.
TEST_F(ContainerTest, AnInterruptedChangeIsDoneOrNot) {
  const KeyRecord one = newKey(), two = newKey();
  const KeySetPtr set = create();
  ASSERT_EQ(set->presentPin(Bytes("old")), 0u);
  ASSERT_EQ(set->store(AT_KEYEXCHANGE, one), 0u);
  ASSERT_EQ(set->store(AT_SIGNATURE, two), 0u);
  ASSERT_EQ(set->setCertificate(AT_SIGNATURE, Bytes("certificate")), 0u);
  const Files before = snapshot(box());
  ASSERT_EQ(set->changePin(Bytes("new")), 0u);
  ASSERT_EQ(set->setCertificate(AT_SIGNATURE, {}), 0u);
  const Files after = snapshot(box());

  const std::vector<std::string> changed = {"certificate-2.der", "private-1.p8", "private-2.p8"};
  const auto restore = [&](const Files& files) {
    for (const auto& entry : fs::directory_iterator(box())) fs::remove_all(entry.path());
    for (const auto& [name, bytes] : files) put(box(name), bytes);
  };
  const auto written = [&](const std::string& name) {
    return after.contains(name) ? after.at(name) : std::vector<BYTE>();
  };
  const auto check = [&](const char* pin, const Files& settled) {
    EXPECT_EQ(load(AT_KEYEXCHANGE, one, pin), 0u);
    EXPECT_EQ(load(AT_SIGNATURE, two, pin), 0u);
    SecretBytes encoded;
    EXPECT_EQ(open()->certificate(AT_SIGNATURE, encoded), settled.contains(changed[0]) ? 0 : NTE_NOT_FOUND);
    // the next writer brings everything to its place
    EXPECT_EQ(open()->setExtension({"1.2.3", false, {}}), 0u);
    EXPECT_EQ(snapshot(box()), settled);
  };
  for (size_t count = 0; count <= changed.size(); ++count) {
    SCOPED_TRACE("written " + std::to_string(count));
    restore(before);
    for (size_t i = 0; i < count; ++i) put(box(".next/" + changed[i]), written(changed[i]));
    if (count) put(box(".next/" + changed[count - 1]), std::span(before.at(changed[count - 1])).first(3));
    check("old", before);
  }
  for (size_t count = 0; count <= changed.size(); ++count) {
    SCOPED_TRACE("settled " + std::to_string(count));
    restore(before);
    fs::create_directory(box(".commit"));
    for (size_t i = 0; i < changed.size(); ++i) {
      const bool settled = i < count;
      if (!settled) put(box(".commit/" + changed[i]), written(changed[i]));
      if (settled && written(changed[i]).empty()) fs::remove(box(changed[i]));
      if (settled && !written(changed[i]).empty()) put(box(changed[i]), written(changed[i]));
      // erased already, not yet replaced
      if (i == count && i > 0) put(box(changed[i]), std::vector<BYTE>(before.at(changed[i]).size()));
    }
    fs::permissions(box(".commit"), fs::perms::owner_all);
    check("new", after);
  }
}

TEST_F(ContainerTest, WhatMakersAndDeletersLeftIsClearedAway) {
  put(keys(".new-1/info"), Bytes("certkern-con"));
  put(keys(".old-1/private-1.p8"), Bytes("secret"));
  put(keys(".old-1/.commit/private-1.p8"), Bytes("secret"));
  for (const char* name : {"", ".new-1", ".old-1", ".old-1/.commit"})
    fs::permissions(keys(name), fs::perms::owner_all);
  std::vector<std::string> names;
  EXPECT_EQ(ListContainers(Scope::User, names), 0u);
  EXPECT_TRUE(names.empty());
  fs::create_hard_link(keys(".old-1/private-1.p8"), bench_.path("linked"));
  // one that cannot be cleared away stops neither the others nor anybody's work
  put(keys(".old-0/private-1.p8"), Bytes("secret"));
  chmod(keys(".old-0").c_str(), 0700);
  chmod(keys(".old-0/private-1.p8").c_str(), 0660);
  create();
  EXPECT_FALSE(fs::exists(keys(".new-1")));
  EXPECT_FALSE(fs::exists(keys(".old-1")));
  EXPECT_TRUE(fs::exists(keys(".old-0")));
  EXPECT_EQ(bench_.read("linked").size(), 6u);
  EXPECT_EQ(bench_.read("linked")[0], 's') << "another's file was overwritten";
}

// The bytes of a deleted or replaced private key are gone from its file.
TEST_F(ContainerTest, OldPrivateKeysAreOverwritten) {
  const KeySetPtr set = create();
  ASSERT_EQ(set->store(AT_SIGNATURE, newKey()), 0u);
  const auto holdOpen = [&] { return std::ifstream(box("private-2.p8"), std::ios::binary); };
  const auto content = [](std::ifstream& file) {
    return std::vector<char>(std::istreambuf_iterator<char>(file), {});
  };
  std::ifstream replaced = holdOpen();
  ASSERT_EQ(set->store(AT_SIGNATURE, newKey()), 0u);
  std::ifstream removed = holdOpen();
  ASSERT_EQ(DeleteContainer("box", Scope::User), 0u);
  for (std::ifstream* file : {&replaced, &removed}) {
    const std::vector<char> bytes = content(*file);
    EXPECT_GT(bytes.size(), 40u);
    EXPECT_EQ(bytes, std::vector<char>(bytes.size()));
  }
}

}  // namespace
