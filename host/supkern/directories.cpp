#include "supkern/directories.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstring>

#include "platform/supkern.h"
#include "supkern/descriptor.h"
#include "supkern/environment.h"
#include "supkern/guard.h"
#include "supkern/settings.h"
#include "supkern/text_result.h"
#include "supkern/trace.h"

namespace certkern::support {

namespace {

// A place that callers ask for by a path of their own, and where it is.
struct Place {
  const char* path;     // as callers name it
  const char* setting;  // under [paths]
  const char* leaf;     // the last directory
  bool isLocal;
};
constexpr Place kPlaces[] = {
    {"\\local\\stores",  "local_stores",  "stores", true },
    {"\\global\\stores", "global_stores", "stores", false},
    {"\\local\\keys",    "local_keys",    "keys",   true },
    {"\\global\\keys",   "global_keys",   "keys",   false},
};
constexpr char kGlobalBase[] = "/var/lib/certkern";

const Place* FindPlace(std::string path) {
  if (!path.empty() && path.back() == '\\') path.pop_back();
  for (const Place& place : kPlaces) {
    if (strcasecmp(path.c_str(), place.path) == 0) return &place;
  }
  return nullptr;
}

int Refuse(const std::string& path, const std::string& reason, int code) {
  TraceError("EnsureDirectory", path + ": " + reason);
  return code;
}

// Makes one directory; an existing one is left as it is. An errno value, or 0.
int MakeDirectory(const std::string& path, mode_t mode) {
  if (mkdir(path.c_str(), mode) != 0) return errno == EEXIST ? 0 : errno;
  return chmod(path.c_str(), mode) == 0 ? 0 : errno;  // what the umask took
}

// Makes the directory and those above it. An errno value, or 0.
int MakeDirectories(const std::string& path, mode_t mode) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    const int error = MakeDirectory(path.substr(0, slash), mode);
    // one that is there need not be writable, or even on a writable file system
    if (error && access(path.substr(0, slash).c_str(), F_OK) != 0) return error;
  }
  return MakeDirectory(path, mode);
}

bool IsStickyWhereShared(const struct stat& status, mode_t writers) {
  return !(status.st_mode & writers) || (status.st_mode & S_ISVTX);
}

const char* DistrustDirectory(const struct stat& status, Sharing sharing) {
  if (status.st_uid != 0 && status.st_uid != static_cast<uid_t>(setfsuid(static_cast<uid_t>(-1)))) {
    return "belongs to somebody else";
  }
  // an access list shows its widest right in the group bits
  if (sharing == Sharing::Private ? (status.st_mode & (S_IWGRP | S_IWOTH)) != 0
                                  : !IsStickyWhereShared(status, S_IWGRP | S_IWOTH)) {
    return "can be written to by somebody else";
  }
  return nullptr;
}

// Walks up the real directories, whatever links the path went through. A group that may write above is common
// where each user has a group of their own, so it is let pass.
const char* DistrustParents(Descriptor directory) {
  struct stat below {};
  if (fstat(directory.get(), &below) != 0) return "cannot be examined";
  for (;;) {
    Descriptor parent(openat(directory.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat above {};
    if (!parent || fstat(parent.get(), &above) != 0) return "has a parent that cannot be examined";
    if (above.st_dev == below.st_dev && above.st_ino == below.st_ino) return nullptr;  // the root
    if (!IsStickyWhereShared(above, S_IWOTH)) return "lies in a directory that everybody can write to";
    directory = std::move(parent);
    below = above;
  }
}

int PathToDirectory(const char* path, std::string& directory) {
  const Place* place = FindPlace(path);
  if (!place) return kPathNotFound;
  const std::string base = place->isLocal ? UserDirectory("XDG_DATA_HOME", ".local/share") : kGlobalBase;
  const std::string usual = base.empty() ? base : base + (place->isLocal ? "/certkern/" : "/") + place->leaf;
  directory = ConfiguredPath(place->setting, usual);
  if (directory.empty()) return kBadPathName;
  const mode_t mode = place->isLocal ? 0700 : 0755;
  // the directory has to be the one that files will be opened in, so it is made and judged with the same ids
  if (support_thread_actualize_uids() != 0) return ERROR_ACCESS_DENIED;
  const int code = Guarded<int>(ERROR_NOT_ENOUGH_MEMORY,
                                [&] { return EnsureDirectory(directory, mode, Sharing::Private); });
  support_thread_deactualize_uids();
  if (directory.back() != '/') directory += '/';
  return code;
}

// Beside a catalogue directory ../../<locale>/LC_MESSAGES must lead to the other languages, so it is that of
// the language that everybody gets whose own is missing.
// The language of the program's messages; English where it never set a locale or has one without a language.
std::string MessageLanguage() {
  const char* locale = std::setlocale(LC_MESSAGES, nullptr);
  std::string language;
  for (; locale && std::islower(static_cast<unsigned char>(*locale)); ++locale) language += *locale;
  return language.empty() ? "en" : language;
}

std::string CatalogueBelow(const std::string& prefix, const std::string& language) {
  return prefix + "/share/locale/" + language + "/LC_MESSAGES";
}

// Below the prefix that this library lies in: a library directory is one to three levels deep in it.
std::string InstalledCatalogueDirectory() {
  std::string prefix = LibraryDirectory();
  for (int level = 0; level < 3 && !prefix.empty(); ++level) {
    prefix.resize(prefix.rfind('/'));
    for (const std::string& language : {MessageLanguage(), std::string("en")}) {
      std::string directory = CatalogueBelow(prefix, language);
      if (access((directory + "/libcertkern.cat").c_str(), R_OK) == 0) return directory;
    }
  }
  return CatalogueBelow("/usr", "en");
}

// The table and the text that it points to, which live as long as the process.
struct PathTable {
  std::string catalogue;
  csp_paths paths;
};
constexpr size_t kCatalogueEntry = 10;

const csp_paths* MakePathTable() {
  auto table = std::make_unique<PathTable>();
  table->catalogue = ConfiguredPath("catalogue", InstalledCatalogueDirectory());
  for (const char*& entry : table->paths.entry) entry = "";
  table->paths.entry[kCatalogueEntry] = table->catalogue.c_str();
  return &table.release()->paths;
}

}  // namespace

int EnsureDirectory(const std::string& path, mode_t mode, Sharing sharing) {
  Descriptor directory(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!directory && errno == ENOENT) {
    if (const int error = MakeDirectories(path, mode)) {
      return Refuse(path, std::string("cannot be made: ") + strerrordesc_np(error), CodeOfErrno(error));
    }
    directory = Descriptor(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  struct stat status {};
  if (!directory || fstat(directory.get(), &status) != 0) {
    const int error = errno;
    return Refuse(path, strerrordesc_np(error), CodeOfErrno(error));
  }
  const char* reason = DistrustDirectory(status, sharing);
  if (!reason) reason = DistrustParents(std::move(directory));
  return reason ? Refuse(path, reason, ERROR_ACCESS_DENIED) : 0;
}

std::string ConfiguredPath(const char* name, const std::string& fallback) {
  const std::string setting = std::string("\\paths\\") + name;
  if (!Settings().find(setting)) return fallback;
  std::string path = TextSetting(setting).value_or("");
  if (!path.empty() && path[0] == '/') return path;
  TraceError("ConfiguredPath", std::string("paths.") + name + " is not an absolute path");
  return {};
}

}  // namespace certkern::support

using namespace certkern::support;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

int support_path2dir(const char* path, size_t* size, char* buffer) {
  if (!path || !size) return ERROR_INVALID_PARAMETER;
  return Guarded<int>(ERROR_NOT_ENOUGH_MEMORY, [&] {
    ReportConfigurationFaults();
    std::string directory;
    const int code = PathToDirectory(path, directory);
    return code ? code : CopyText(directory, size, buffer);
  });
}

const csp_paths* csp_get_paths(void) {
  return Guarded<const csp_paths*>(nullptr, [] {
    static const csp_paths* const paths = MakePathTable();
    return paths;
  });
}

}  // extern "C"
