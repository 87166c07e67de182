// What a commit does to the file: the changes of several handles side by side, files that were replaced or removed
// meanwhile, changes in pieces, and what is left of a commit that fails or dies.
#include <certkern/find.h>
#include <certkern/keykern.h>

#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <numeric>
#include <sstream>

#include "platform/file.h"
#include "store/journal.h"
#include "store/store_file_fixture.h"
#include "store/store_merge.h"

using namespace certkern;
using namespace certkern::test;

namespace {

// --- two handles ---

// Both handles open a file with 1 and 2. A step names the handle, what it does and a serial number: "a+3" adds, "a-3" takes
// out, "a=3" sets a property, "a~3" does so through a link, "a^3" adds it once more for its properties, "aC" commits, "aR" resynchronises, "aX" closes. Expected are the file's certificates, newest
// first, each with the name of who has set its property.
struct Script {
  const char* name;
  const char* steps;
  const char* expected;
};
constexpr Script kScripts[] = {
    {"both add",                                 "a+3 b+4 aC bC",               "4 3 2 1"    },
    {"one again and again",                      "a+3 aC a+4 aC b+5 bC a+6 aC", "6 5 4 3 2 1"},
    {"an idle handle writes nothing",            "b+3 bC a+4 aC bX",            "4 3 2 1"    },
    {"one takes out, the other adds",            "a-1 b+3 aC bC",               "3 2"        },
    {"taken out and left alone",                 "a-1 aC b+3 bC b+4 bC",        "4 3 2"      },
    {"taken out by both",                        "a-1 b-1 aC bC",               "2"          },
    {"what the other has added stays unseen",    "a+3 aC b+4 bC a-3 aC b-2 bC", "4 1"        },
    {"properties beside additions",              "a=1 b+3 aC bC a=2 aC",        "3 2a 1a"    },
    {"the last writer's property",               "a=1 b=1 aC bC",               "2 1b"       },
    {"a deletion beats a property",              "a-1 b=1 aC bC",               "2"          },
    {"also the earlier property",                "a=1 b-1 aC bC",               "2"          },
    {"a property set through a link",            "a~1 a+3 aC",                  "3 2 1a"     },
    {"inherited",                                "b+3 bC a^1 aC",               "1a 3 2"     },
    {"inherited by what was taken out",          "b-1 bC a^1 a^1 aC",           "2"          },
    {"also where the file is written anew",      "b+4 bC a~1 a+3 aC",           "3 4 2 1a"   },
    {"a property that was set before is kept",   "a=1 aC b+3 bC b=2 bC a+4 aC", "4 3 2b 1a"  },
    {"changed again in place",                   "a=1 aC a=1 aC a=2 aC",        "2a 1a"      },
    {"added and taken out at once",              "a+3 a-3 aC",                  "2 1"        },
    {"most of it is dead",                       "a+3 aC a-1 a-2 aC a+4 aC",    "4 3"        },
    {"all is taken out",                         "a-1 a-2 aC b+3 bC",           "3"          },
    {"one adds the same twice",                  "a+3 a+3 aC b+4 bC",           "4 3 3 2 1"  },
    {"both add the same: the last one's name",   "a+3 a=3 b+3 b=3 aC bC",       "3b 2 1"     },
    {"the same again, unseen in the file",       "b+3 bC a+4 aC a+3 aC",        "4 3 2 1"    },
    {"both add the same, one takes it out",      "a+3 b+3 aC bC aR a-3 aC",     "2 1"        },
    {"equal ones: one of two is taken out",      "a+1 aC aR a-1 b+3 bC aC",     "3 2 1"      },
    {"equal ones: the same one by both",         "a+1 aC aR bR a-1 b-1 aC bC",  "2 1"        },
    {"a resynchronisation drops what is not in", "a+3 aR a+4 aC",               "4 2 1"      },
    {"committed by the close",                   "a+3 b+4 aX bX",               "4 3 2 1"    },
};

class TwoHandles : public SystemStore {
 protected:
  void start(bool certain) {
    handles_[0].reset();
    handles_[1].reset();
    std::filesystem::remove_all(directory + "/certkern");
    const StoreHandle store = SystemStore::open(L"two");
    add(store, 1);
    add(store, 2);
    ASSERT_TRUE(commit(store));
    for (StoreHandle& each : handles_) {
      each = SystemStore::open(L"two");
      each->layout.certain = certain;  // as if the file had rested before
    }
  }
  void run(const std::string& steps) {
    std::istringstream words(steps);
    for (std::string word; words >> word;) {
      StoreHandle& store = handles_[word[0] - 'a'];
      const DWORD serial = word.size() > 2 ? static_cast<DWORD>(std::stoul(word.substr(2))) : 0;
      switch (word[1]) {
        case '+':
          add(store, serial);
          break;
        case '-':
          ASSERT_TRUE(CertDeleteCertificateFromStore(find(store, serial).release())) << word;
          break;
        case '=':
          setName(find(store, serial), word[0]);
          break;
        case '^':
          inherit(store, serial, word[0]);
          break;
        case '~':
          setName(linked(store, serial), word[0]);
          break;
        case 'C':
          ASSERT_TRUE(commit(store)) << word << ' ' << GetLastError();
          break;
        case 'R':
          ASSERT_TRUE(resync(store)) << word;
          break;
        default:
          ASSERT_TRUE(CertCloseStore(store.release(), 0)) << word;
      }
    }
  }
  static std::string named(const StoreHandle& store) {
    std::string all;
    for (StoreElement* each = store->certificates.newest; each; each = each->next) {
      const CertificateHandle context(AcquireContext(*each)->asCertificate());
      if (!all.empty()) all += ' ';
      all += std::to_string(*context->pCertInfo->SerialNumber.pbData);
      BYTE name = 0;
      DWORD size = 1;
      if (CertGetCertificateContextProperty(context.get(), CERT_FRIENDLY_NAME_PROP_ID, &name, &size))
        all += static_cast<char>(name);
    }
    return all;
  }
  static CertificateHandle find(const StoreHandle& store, DWORD serial) {
    const CertificateHandle wanted = CreateCertificate(MakeCertificate({.serial = serial}));
    return CertificateHandle(
        CertFindCertificateInStore(store.get(), 1, 0, CERT_FIND_EXISTING, wanted.get(), nullptr));
  }
  static void inherit(const StoreHandle& store, DWORD serial, char name) {
    const CertificateHandle bearer = CreateCertificate(MakeCertificate({.serial = serial}));
    setName(bearer, name);
    ASSERT_TRUE(CertAddCertificateContextToStore(
        store.get(), bearer.get(), CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES, nullptr));
  }
  static CertificateHandle linked(const StoreHandle& store, DWORD serial) {
    const StoreHandle links = OpenMemoryStore(0);
    PCCERT_CONTEXT link = nullptr;
    EXPECT_TRUE(
        CertAddCertificateLinkToStore(links.get(), find(store, serial).get(), CERT_STORE_ADD_ALWAYS, &link));
    return CertificateHandle(link);
  }
  static void setName(const CertificateHandle& certificate, char name) {
    const CRYPT_DATA_BLOB blob{1, reinterpret_cast<BYTE*>(&name)};
    ASSERT_TRUE(CertSetCertificateContextProperty(certificate.get(), CERT_FRIENDLY_NAME_PROP_ID, 0, &blob));
  }

  StoreHandle handles_[2];
};

TEST_F(TwoHandles, LoseNothingOfEachOther) {
  for (const bool certain : {false, true}) {
    for (const auto& [name, steps, expected] : kScripts) {
      SCOPED_TRACE(std::string(name) + (certain ? ", in pieces" : ""));
      start(certain);
      run(steps);
      EXPECT_EQ(named(SystemStore::open(L"two")), expected);
    }
  }
}

// --- changes in pieces ---

// A commit costs what has changed: the bytes of what stays in the file are not written again.
TEST_F(TwoHandles, WriteWhatHasChanged) {
  start(true);
  path = handles_[0]->path;
  const Bytes before = ReadAll(path);
  run("a+3 aC");
  const Bytes added = ReadAll(path);
  EXPECT_TRUE(std::equal(before.begin(), before.end() - 12, added.begin())) << "behind what was there";
  run("a-1 aC");
  const Bytes removed = ReadAll(path);
  EXPECT_EQ(removed.size(), added.size());
  EXPECT_EQ(std::inner_product(added.begin(), added.end(), removed.begin(), 0, std::plus<>(),
                               std::not_equal_to<>()),
            1)
      << "one identifier";
  run("a-2 aC");
  EXPECT_LT(ReadAll(path).size(), before.size()) << "more dead than alive";
  run("b+4 bC b+5 b+6 b+7 bC b-5 bC");
  ASSERT_TRUE(CertSaveStore(handles_[1].get(), 1, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_FILENAME_A,
                            path.data(), 0));
  Bytes saved = ReadAll(path);
  ImageContent content;
  ASSERT_TRUE(ReadImage(saved, content));
  size_t live = 20;
  for (const ImageElement& each : content.elements) live += each.place.end - each.place.start;
  EXPECT_EQ(live, saved.size()) << "nothing dead where a store is saved";
}

// Every state between the old and the new file, with the journal of pieces as it is by then.
TEST_F(TwoHandles, CrashInTheMidstOfPieces) {
  start(true);
  const StoreHandle& store = handles_[0];
  run("a=1 aC");
  const Bytes before = ReadAll(store->path);
  run("a=1 a-2 a+3");
  StoreChanges changes(*store.get());
  changes.take();
  struct stat file;
  ASSERT_EQ(::stat(store->path.c_str(), &file), 0);
  PlannedChange plan;
  ASSERT_EQ(PatchChanges(*store.get(), changes, file, plan), Patched::Yes);
  ASSERT_EQ(plan.change.pieces.size(), 4u);
  StoreJournal journal(store->path);
  for (size_t written = 0; written <= plan.change.bytes(); written += 7) {
    FileChange torn = plan.change;
    size_t rest = written;
    for (FilePiece& each : torn.pieces) {
      each.bytes = each.bytes.first(std::min(rest, each.bytes.size()));
      rest -= each.bytes.size();
    }
    Bytes content = before;
    MakeInMemory(content, torn);
    WriteAll(store->path, content);
    ASSERT_EQ(journal.write(plan.change), StoreJournal::Written::Safe);
    EXPECT_EQ(named(SystemStore::open(L"two")), "3 1a") << written;
    ASSERT_FALSE(Exists(journal.path()));
  }
  // a reader who may not write it sees the same; to another file the pieces mean nothing
  WriteAll(store->path, before);
  ASSERT_EQ(journal.write(plan.change), StoreJournal::Written::Safe);
  std::filesystem::rename(store->path, store->path + ".old");
  WriteAll(store->path, before);
  EXPECT_EQ(named(SystemStore::open(L"two")), "2 1a");
  EXPECT_FALSE(Exists(journal.path()));
}

// --- commits that fail ---

// The journal is safe, the file can't be written: the commit is done, and whoever comes next finishes it.
TEST_F(TwoHandles, ACommitWithItsJournalIsDone) {
  for (const char* const next : {"b+4 bC", "a+4 aC", "aR a+4 aC"}) {
    SCOPED_TRACE(next);
    start(true);
    run("a+3");
    FileStream readOnly(std::fopen(handles_[0]->path.c_str(), "rb"));
    const FileStream old(handles_[0]->file.exchange(readOnly.release()));
    EXPECT_TRUE(commit(handles_[0])) << GetLastError();
    EXPECT_FALSE(handles_[0]->dirty);
    EXPECT_TRUE(Exists(StoreJournal(handles_[0]->path).path()));
    handles_[0]->file.exchange(std::fopen(handles_[0]->path.c_str(), "r+b"));
    run(next);
    EXPECT_EQ(named(SystemStore::open(L"two")), "4 3 2 1");
  }
}

TEST_F(TwoHandles, ADirectoryThatIsAwayLosesNothing) {
  start(true);
  run("a+3");
  std::filesystem::rename(directory, directory + "_away");
  EXPECT_FALSE(resync(handles_[0]));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  std::filesystem::rename(directory + "_away", directory);
  run("aX");
  EXPECT_EQ(named(SystemStore::open(L"two")), "3 2 1");
}

// The file's room is made sure of, and the journal does not fit: both files are as large as before.
TEST_F(TwoHandles, ARefusedCommitGivesBackWhatItReserved) {
  start(false);
  const StoreHandle& store = handles_[0];
  for (DWORD serial = 100; serial < 200; ++serial) add(store, serial);
  struct stat before, after;
  ASSERT_EQ(::stat(store->path.c_str(), &before), 0);
  EXPECT_EQ(InChild([&] {
              ImageBytes image(ImageBytes::Mode::Keep);
              if (!SerializeStore(*store.get(), ImageUse::Commit, image)) return false;
              std::signal(SIGXFSZ, SIG_IGN);
              const struct rlimit limit = {image.size + 8, image.size + 8};
              return ::setrlimit(RLIMIT_FSIZE, &limit) == 0 && !commit(store)
                  && GetLastError() == ERROR_WRITE_FAULT;
            }),
            0);
  ASSERT_EQ(::stat(store->path.c_str(), &after), 0);
  EXPECT_EQ(after.st_blocks, before.st_blocks);
  EXPECT_EQ(named(SystemStore::open(L"two")), "2 1");
}

TEST_F(StoreFile, WhoOnlyReadsAPropertyWritesNothing) {
  const StoreHandle store = open(kCommit);
  const Bytes list = MakeCrl({});
  PCCRL_CONTEXT added = nullptr;
  ASSERT_TRUE(CertAddEncodedCRLToStore(store.get(), 1, list.data(), static_cast<DWORD>(list.size()),
                                       CERT_STORE_ADD_NEW, &added));
  ASSERT_TRUE(commit(store));
  for (const DWORD id : {DWORD{SV_CRL_ISSUER_PROP_ID}, DWORD{CERT_SHA1_HASH_PROP_ID}}) {
    DWORD size = 0;
    EXPECT_TRUE(CertGetCRLContextProperty(added, id, nullptr, &size));
    EXPECT_FALSE(store->dirty) << id;
  }
  EXPECT_TRUE(CertFreeCRLContext(added));
}

// --- what the name means by now ---

TEST_F(StoreFile, ACommitGoesWhereItsNameLeads) {
  const struct {
    const char* name;
    DWORD flags;
    bool replaced;
    const char* expected;
  } kCases[] = {
      {"removed",                     kCommit,                                 false, "3"      },
      {"removed, must exist",         kCommit | CERT_STORE_OPEN_EXISTING_FLAG, false, "error 2"},
      {"replaced",                    kCommit,                                 true,  "3 9"    },
      {"replaced, must have existed", kCommit | CERT_STORE_OPEN_EXISTING_FLAG, true,  "3 9"    },
  };
  for (const auto& [name, flags, replaced, expected] : kCases) {
    SCOPED_TRACE(name);
    std::filesystem::remove(path);
    fill(2);
    const StoreHandle store = open(flags);
    add(store, 3);
    std::filesystem::remove(path);
    if (replaced) {
      const StoreHandle other = open(kCommit);
      add(other, 9);
    }
    const bool committed = commit(store);
    EXPECT_EQ(committed ? 0u : GetLastError(),
              std::string(expected) == "error 2" ? DWORD{ERROR_FILE_NOT_FOUND} : 0u);
    EXPECT_EQ(content(), expected);
    if (!committed) continue;
    add(store, 4);
    EXPECT_TRUE(commit(store));
    EXPECT_EQ(content(), std::string("4 ").append(expected));
  }
}

TEST_F(StoreFile, WhoOnlyReadsMakesNoFile) {
  {
    const StoreHandle store = open(CERT_STORE_READONLY_FLAG);
    ASSERT_TRUE(store) << GetLastError();
    EXPECT_EQ(Serials(*store.get()), "");
    EXPECT_FALSE(Exists(path));
  }
  EXPECT_FALSE(Exists(path));
  EXPECT_FALSE(open(CERT_STORE_READONLY_FLAG | CERT_STORE_OPEN_EXISTING_FLAG));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  fill(1);
  EXPECT_FALSE(open(CERT_STORE_READONLY_FLAG | CERT_STORE_CREATE_NEW_FLAG));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_EXISTS});
}

}  // namespace
