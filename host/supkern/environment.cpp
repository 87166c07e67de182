#include "supkern/environment.h"

#include <dlfcn.h>
#include <pwd.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <vector>

namespace certkern::support {

namespace {

// Upper bound for one entry of the user database; real ones have some hundred bytes.
constexpr size_t kMaxUserEntry = size_t{1} << 20;

std::string HomeFromUserDatabase(uid_t user) {
  std::vector<char> buffer(1024);
  passwd entry{};
  passwd* found = nullptr;
  while (getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) == ERANGE
         && buffer.size() < kMaxUserEntry) {
    buffer.resize(buffer.size() * 2);
  }
  return found && found->pw_dir && found->pw_dir[0] == '/' ? found->pw_dir : std::string();
}

}  // namespace

bool IsSetId() { return getauxval(AT_SECURE) != 0; }

std::string Variable(const char* name) {
  const char* value = secure_getenv(name);
  return value ? value : std::string();
}

std::string HomeDirectory() {
  // the user who started a set-id program owns the files that it works on, and cannot lie about the home
  if (IsSetId()) return HomeFromUserDatabase(getuid());
  std::string home = Variable("HOME");
  if (home.empty() || home[0] != '/') home = HomeFromUserDatabase(geteuid());
  return home;
}

std::string UserDirectory(const char* variable, const char* fallback) {
  std::string directory = Variable(variable);
  if (!directory.empty() && directory[0] == '/') return directory;
  directory = HomeDirectory();
  return directory.empty() ? directory : directory + '/' + fallback;
}

std::string LibraryDirectory() {
  Dl_info info{};
  if (!dladdr(reinterpret_cast<const void*>(&LibraryDirectory), &info) || !info.dli_fname) return {};
  // the loader may have found it by a relative path
  const std::unique_ptr<char, decltype(&std::free)> file(realpath(info.dli_fname, nullptr), &std::free);
  if (!file) return {};
  const std::string path = file.get();
  return path.substr(0, path.rfind('/'));
}

}  // namespace certkern::support
