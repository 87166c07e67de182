// A directory of one test with a store file in it, which is also where the user's system stores are.
#ifndef CERTKERN_TESTS_STORE_STORE_FILE_FIXTURE_H
#define CERTKERN_TESTS_STORE_STORE_FILE_FIXTURE_H

#include <certkern/errors.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "store/sample_objects.h"
#include "store/store_kind.h"

namespace certkern::test {

inline constexpr DWORD kCommit = CERT_FILE_STORE_COMMIT_ENABLE_FLAG;

class StoreFile : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/certkern_store_XXXXXX";
    ASSERT_TRUE(::mkdtemp(name));
    directory = name;
    path = directory + "/a.sto";
    ASSERT_EQ(::setenv("HOME", name, 1), 0);
    ASSERT_EQ(::setenv("XDG_DATA_HOME", name, 1), 0);
  }
  void TearDown() override {
    ASSERT_EQ(::seteuid(::getuid()), 0);
    std::filesystem::remove_all(directory);
  }

  StoreHandle open(DWORD flags) const {
    SetLastError(0);
    return StoreHandle(AsStore(CertOpenStore(CERT_STORE_PROV_FILENAME_A, 0, 0, flags, path.c_str())));
  }
  // A file with certificates 1 to `count`.
  void fill(DWORD count) const {
    const StoreHandle store = open(kCommit);
    ASSERT_TRUE(store);
    for (DWORD serial = 1; serial <= count; ++serial) add(store, serial);
    ASSERT_TRUE(commit(store));
  }
  std::string content() const {
    const StoreHandle store = open(CERT_STORE_OPEN_EXISTING_FLAG);
    return store ? Serials(*store.get()) : "error " + std::to_string(GetLastError());
  }
  static void add(const StoreHandle& store, DWORD serial) {
    const Bytes encoded = MakeCertificate({.serial = serial});
    ASSERT_TRUE(CertAddEncodedCertificateToStore(
        store.get(), 1, encoded.data(), static_cast<DWORD>(encoded.size()), CERT_STORE_ADD_ALWAYS, nullptr));
  }
  static bool commit(const StoreHandle& store) {
    return CertControlStore(store.get(), 0, CERT_STORE_CTRL_COMMIT, nullptr);
  }

  // Root may do everything: another user takes over, with the files that are there.
  void becomeOrdinary() const {
    constexpr uid_t kNobody = 65534;
    if (::geteuid() != 0) return;
    for (const auto& each : std::filesystem::directory_iterator(directory)) {
      ASSERT_EQ(::chown(each.path().c_str(), kNobody, kNobody), 0);
    }
    ASSERT_EQ(::chown(directory.c_str(), kNobody, kNobody), 0);
    ASSERT_EQ(::seteuid(kNobody), 0);
  }

  std::string directory, path;
};

inline Bytes ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
inline void WriteAll(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}
inline bool Exists(const std::string& path) { return std::filesystem::exists(path); }

class SystemStore : public StoreFile {
 protected:
  StoreHandle open(const wchar_t* name, DWORD flags = CERT_SYSTEM_STORE_CURRENT_USER) const {
    return StoreHandle(AsStore(CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, flags, name)));
  }
  static bool resync(const StoreHandle& store) {
    return CertControlStore(store.get(), 0, CERT_STORE_CTRL_RESYNC, nullptr);
  }
};

// What a child answers that does the work, and is gone with whatever it has changed about itself. A crash is -1.
inline int InChild(const std::function<bool()>& work) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(work() ? 0 : 1);
  int status = 0;
  if (::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

}  // namespace certkern::test

#endif
