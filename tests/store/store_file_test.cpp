// Stores in files: opening, committing, resynchronising, and what a crash leaves behind.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/text.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/limits.h"
#include "store/element_addition.h"
#include "store/fault_plan.h"
#include "store/journal.h"
#include "store/persistent_content.h"
#include "store/persistent_store.h"
#include "store/sample_objects.h"
#include "store/store_file.h"
#include "store/store_file_fixture.h"
#include "store/store_kind.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::test;

namespace {

// --- opening ---

TEST_F(StoreFile, CommitsOnlyWhereAsked) {
  fill(2);
  { add(open(0), 3); }
  EXPECT_EQ(content(), "2 1");
  { add(open(kCommit), 3); }
  EXPECT_EQ(content(), "3 2 1");
  const StoreHandle quiet = open(0);
  EXPECT_FALSE(commit(quiet));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_CALL_NOT_IMPLEMENTED});
  EXPECT_FALSE(commit(OpenMemoryStore(0)));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_CALL_NOT_IMPLEMENTED});
  EXPECT_FALSE(CertControlStore(quiet.get(), 1, CERT_STORE_CTRL_COMMIT, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(Exists(directory + "/.a.sto.journal"));
}

TEST_F(StoreFile, CreationAndRemoval) {
  EXPECT_FALSE(open(CERT_STORE_OPEN_EXISTING_FLAG));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_FALSE(Exists(path));
  EXPECT_TRUE(open(CERT_STORE_CREATE_NEW_FLAG));
  EXPECT_EQ(content(), "") << "an empty file";
  EXPECT_FALSE(open(CERT_STORE_CREATE_NEW_FLAG));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_EXISTS});
  EXPECT_FALSE(open(CERT_STORE_READONLY_FLAG | kCommit));
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  EXPECT_FALSE(open(CERT_STORE_DELETE_FLAG));
  EXPECT_EQ(GetLastError(), 0u);
  EXPECT_FALSE(Exists(path));
  EXPECT_FALSE(open(CERT_STORE_DELETE_FLAG));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  path = directory + "/" + std::string(kMaxStorePath, 'a');
  EXPECT_FALSE(open(0));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_BAD_PATHNAME});
}

TEST_F(StoreFile, WhatIsNoStore) {
  const struct {
    const char* name;
    Bytes content;
    DWORD code;
  } kCases[] = {
      {"noise", Bytes(100,     0x5A),                                                       CRYPT_E_FILE_ERROR},
      {"the magic alone",       FromHex("0000000043455254"),    ERROR_END_OF_MEDIA                             },
      {"a length that lies",       FromHex("00000000434552542000000001000000FFFFFF7F00"), CRYPT_E_FILE_ERROR},
  };
  for (const auto& [name, bytes, code] : kCases) {
    WriteAll(path, bytes);
    EXPECT_FALSE(open(kCommit)) << name;
    EXPECT_EQ(GetLastError(), code) << name;
    EXPECT_EQ(ReadAll(path), bytes) << name;
  }
  ASSERT_EQ(::truncate(path.c_str(), off_t{1} << 31), 0);
  EXPECT_FALSE(open(0));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_FILE_ERROR});
  path = directory + "/pipe";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_FALSE(open(0)) << "and does not wait";
  EXPECT_EQ(GetLastError(), DWORD{ERROR_OPEN_FAILED});
  path = directory;
  EXPECT_FALSE(open(0));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_OPEN_FAILED});
}

TEST_F(StoreFile, OneCertificate) {
  const Bytes& der = OpensslCertificate();
  DWORD size = 0;
  ASSERT_TRUE(CryptBinaryToStringA(der.data(), static_cast<DWORD>(der.size()), CRYPT_STRING_BASE64HEADER,
                                   nullptr, &size));
  Bytes pem(size);
  ASSERT_TRUE(CryptBinaryToStringA(der.data(), static_cast<DWORD>(der.size()), CRYPT_STRING_BASE64HEADER,
                                   reinterpret_cast<LPSTR>(pem.data()), &size));
  pem.resize(size);
  for (const Bytes& form : {der, pem}) {
    WriteAll(path, form);
    const StoreHandle store = open(0);
    ASSERT_TRUE(store) << GetLastError();
    const std::span<const BYTE> read = store->certificates.newest->encoded();
    EXPECT_EQ(Bytes(read.begin(), read.end()), der);
  }
}

std::string Pem(const std::string& label, const Bytes& der) {
  DWORD size = 0;
  const auto length = static_cast<DWORD>(der.size());
  EXPECT_TRUE(CryptBinaryToStringA(der.data(), length, CRYPT_STRING_BASE64, nullptr, &size));
  std::string text(size, 0);
  EXPECT_TRUE(CryptBinaryToStringA(der.data(), length, CRYPT_STRING_BASE64, text.data(), &size));
  text.resize(size);
  return "-----BEGIN " + label + "-----\n" + text + "-----END " + label + "-----\n";
}

TEST_F(StoreFile, SeveralPemBlocks) {
  const Bytes one = MakeCertificate({.serial = 1}), two = MakeCertificate({.serial = 2}), list = MakeCrl({});
  const std::string key = Pem("PRIVATE KEY", Bytes(40, 0x5A));
  const struct {
    const char* name;
    std::string text;
    const char* certificates;  // or the failure
    size_t lists;
  } kCases[] = {
      {"two certificates",            Pem("CERTIFICATE",           one) + Pem("CERTIFICATE",                           two),"2 1", 0},
      {"a list, remarks and a key",
       "subject=a\n" + Pem("CERTIFICATE",                                                       one) + "-- \n" + key + Pem("X509 CRL",                                                                               list),"1", 1},
      {"an older name",                        key + Pem("X509 CERTIFICATE",                                                two),                   "2",0},
      {"one that is none",Pem("CERTIFICATE",one) + Pem("CERTIFICATE",list),"error 2148081667", 0},
      {"keys only",            key + key,                                             "error 2148081667",                                                                                                                      0},
  };
  for (const auto& [name, text, certificates, lists] : kCases) {
    SCOPED_TRACE(name);
    WriteAll(path, Bytes(text.begin(), text.end()));
    EXPECT_EQ(content(), certificates);
    const StoreHandle store = open(kCommit);
    if (!store) continue;
    EXPECT_EQ(CountOf(*store.get(), ElementType::Crl), lists);
    add(store, 3);
    EXPECT_TRUE(commit(store));
    EXPECT_EQ(content(), std::string("3 ").append(certificates)) << "in the form of a store";
  }
}

TEST(StoreFileContent, WantOfMemoryIsNoDamage) {
  const std::string one = Pem("CERTIFICATE", MakeCertificate({.serial = 1})), two = one + one;
  const Bytes der = MakeCertificate({.serial = 1});
  for (const Bytes& form : {Bytes(one.begin(), one.end()), Bytes(two.begin(), two.end()), der}) {
    for (FaultPlan plan; plan.next();) {
      const bool taken = plan.run([&] {
        StoreContent content;
        SetLastError(0);
        return content.take(form);
      });
      EXPECT_TRUE(taken || GetLastError() != CRYPT_E_FILE_ERROR) << plan.faults();
    }
  }
}

TEST_F(StoreFile, ReadOnlyWhereItCannotBeWritten) {
  fill(1);
  becomeOrdinary();
  ::chmod(path.c_str(), 0400);
  const StoreHandle store = open(kCommit);
  ASSERT_TRUE(store);
  const Bytes encoded = MakeCertificate({.serial = 2});
  EXPECT_FALSE(CertAddEncodedCertificateToStore(
      store.get(), 1, encoded.data(), static_cast<DWORD>(encoded.size()), CERT_STORE_ADD_ALWAYS, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{E_ACCESSDENIED});
}

TEST_F(StoreFile, StreamOfTheCaller) {
  fill(2);
  FileStream stream = OpenStoreFile(path.c_str(), kReadAccess | kWriteAccess, Creation::Existing);
  {
    const StoreHandle store(AsStore(CertOpenStore(CERT_STORE_PROV_FILE, 0, 0, kCommit, stream.get())));
    ASSERT_TRUE(store);
    static_cast<void>(stream.release());
    add(store, 3);
  }
  EXPECT_EQ(content(), "3 2 1");
  WriteAll(path, Bytes(100, 0x5A));
  stream = OpenStoreFile(path.c_str(), kReadAccess, Creation::Existing);
  EXPECT_FALSE(CertOpenStore(CERT_STORE_PROV_FILE, 0, 0, 0, stream.get()));
  EXPECT_EQ(std::fgetc(stream.get()), EOF) << "still open, at its end";
}

TEST(StoreFileNames, Locks) {
  EXPECT_EQ(StoreLockName("/var//lib/x.sto"), "_var_lib_x.sto_store_lock_file_");
  EXPECT_EQ(StoreLockName("//a\\/b"), "_a_b_store_lock_file_");
  EXPECT_EQ(StoreLockName("x"), "x_store_lock_file_");
}

// --- failing commits ---

TEST_F(StoreFile, FailedCommitKeepsWhatIsStored) {
  fill(2);
  const Bytes before = ReadAll(path);
  const pid_t child = ::fork();
  if (child == 0) {
    const StoreHandle store = open(kCommit);
    add(store, 3);
    std::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit small = {before.size() + 10, before.size() + 10};
    ::setrlimit(RLIMIT_FSIZE, &small);
    const bool failed = !commit(store) && GetLastError() == ERROR_WRITE_FAULT;
    ::_exit(failed ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ReadAll(path), before);
  EXPECT_EQ(content(), "2 1");

  const StoreHandle store = open(kCommit);
  add(store, 3);
  std::filesystem::rename(directory, directory + "_away");
  EXPECT_FALSE(commit(store));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  std::filesystem::rename(directory + "_away", directory);
  EXPECT_EQ(content(), "2 1");
  EXPECT_TRUE(commit(store));
  EXPECT_EQ(content(), "3 2 1");
}

// --- crashes ---

// Every state between the old and the new image, with the journal as it is by then.
TEST_F(StoreFile, CrashLeavesOldOrNew) {
  fill(1);
  const Bytes before = ReadAll(path);
  fill(2);  // adds 1 and 2 to the 1 that is there
  const Bytes after = ReadAll(path);
  StoreJournal journal(path);
  EXPECT_EQ(journal.path(), directory + "/.a.sto.journal");
  for (size_t written = 0; written <= after.size(); written += 61) {
    Bytes torn = before;
    torn.resize(std::max(before.size(), written));
    std::copy(after.begin(), after.begin() + static_cast<ptrdiff_t>(written), torn.begin());
    WriteAll(path, torn);
    ASSERT_EQ(journal.write(after), StoreJournal::Written::Safe);
    EXPECT_EQ(content(), "2 1 1") << written;
    ASSERT_EQ(ReadAll(path), after) << written;
    ASSERT_FALSE(Exists(journal.path()));
  }
}

TEST_F(StoreFile, JournalsThatDoNotCount) {
  fill(1);
  const Bytes before = ReadAll(path);
  fill(1);
  const Bytes after = ReadAll(path);
  StoreJournal journal(path);
  ASSERT_EQ(journal.write(after), StoreJournal::Written::Safe);
  const Bytes whole = ReadAll(journal.path());
  WriteAll(path, before);
  for (size_t at = 0; at < whole.size(); at += 29) {
    Bytes damaged = whole;
    damaged[at] ^= 1;
    WriteAll(journal.path(), damaged);
    EXPECT_EQ(content(), "1") << at;
    EXPECT_FALSE(Exists(journal.path())) << at;
    WriteAll(journal.path(), Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(at)));
    EXPECT_EQ(content(), "1") << at;
  }
  WriteAll(journal.path(), whole);
  ::chmod(journal.path().c_str(), 0666);
  EXPECT_EQ(content(), "1") << "anybody could have written it";
  EXPECT_TRUE(Exists(journal.path()));
  std::filesystem::remove(journal.path());
  WriteAll(directory + "/elsewhere", whole);
  std::filesystem::create_symlink(directory + "/elsewhere", journal.path());
  EXPECT_EQ(content(), "1");
  std::filesystem::remove(journal.path());

  ASSERT_EQ(journal.write(after), StoreJournal::Written::Safe);
  std::filesystem::remove(path);
  EXPECT_TRUE(open(CERT_STORE_CREATE_NEW_FLAG));
  EXPECT_EQ(content(), "") << "a store that was removed does not come back";
}

TEST_F(StoreFile, ReaderOfATornFileReadsTheJournal) {
  fill(2);
  const Bytes image = ReadAll(path);
  StoreJournal journal(path);
  ASSERT_EQ(journal.write(image), StoreJournal::Written::Safe);
  WriteAll(path, Bytes(image.begin(), image.begin() + 20));
  becomeOrdinary();
  ::chmod(path.c_str(), 0400);
  EXPECT_EQ(content(), "2 1");
  EXPECT_TRUE(Exists(journal.path()));
  ::chmod(path.c_str(), 0600);
  EXPECT_EQ(content(), "2 1");
  EXPECT_EQ(ReadAll(path), image);
}

// --- system stores ---

TEST_F(SystemStore, NamesAndCommitAtClose) {
  { add(open(L"Own Store"), 1); }
  const StoreHandle again(AsStore(
      CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_A, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, "OWN sTORE")));
  ASSERT_TRUE(again) << GetLastError();
  EXPECT_EQ(Serials(*again.get()), "1");
  EXPECT_TRUE(again->path.ends_with("/own store.sto")) << again->path;
  EXPECT_TRUE(again->path.starts_with(directory)) << again->path;
  EXPECT_FALSE(open(L"../outside"));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_BAD_PATHNAME});
  EXPECT_FALSE(open(std::wstring(kMaxSystemStoreName + 1, L'a').c_str()));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_TRUE(commit(again)) << "nothing to write";
  EXPECT_FALSE(resync(StoreFile::open(0)));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_CALL_NOT_IMPLEMENTED});
}

TEST_F(SystemStore, ResyncTakesOverWhatIsInTheFile) {
  const StoreHandle mine = open(L"shared");
  for (const DWORD serial : {1u, 2u, 3u, 3u}) add(mine, serial);
  ASSERT_TRUE(commit(mine));
  EXPECT_FALSE(mine->dirty);
  const StoreElement* const kept = mine->certificates.newest;
  ASSERT_TRUE(resync(mine));
  EXPECT_FALSE(mine->dirty);
  EXPECT_EQ(mine->certificates.newest, kept);

  // another process deletes one of the two 3, adds 4 and 5
  const pid_t child = ::fork();
  if (child == 0) {
    const StoreHandle theirs = open(L"shared");
    DeleteElementInternally(*theirs.get(), *theirs->certificates.newest->next);
    add(theirs, 4);
    add(theirs, 5);
    ::_exit(commit(theirs) ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
  add(mine, 9);  // never committed
  const CertificateHandle held(AcquireContext(*mine->certificates.newest)->asCertificate());
  ASSERT_TRUE(resync(mine));
  EXPECT_EQ(Serials(*mine.get()), "5 4 3 2 1");
  EXPECT_EQ(mine->certificates.newest->next->next, kept) << "what stays is not made anew";
  EXPECT_EQ(held->pCertInfo->SerialNumber.cbData, 5u) << "deleted, and still good for its holder";

  WriteAll(mine->path, FromHex("0000000043455254FF"));
  EXPECT_FALSE(resync(mine));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_END_OF_MEDIA});
  EXPECT_EQ(Serials(*mine.get()), "5 4 3 2 1");
  std::filesystem::remove(mine->path);
}

}  // namespace
