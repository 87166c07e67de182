#include "supkern/directories.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

int Unmade(const std::string& path, int error) {
  return Refuse(path, std::string("cannot be made: ") + strerrordesc_np(error), CodeOfErrno(error));
}

bool IsStickyWhereShared(const struct stat& status, mode_t writers) {
  return !(status.st_mode & writers) || (status.st_mode & S_ISVTX);
}

bool IsOursOrRoots(const struct stat& status) {
  return status.st_uid == 0 || status.st_uid == static_cast<uid_t>(setfsuid(static_cast<uid_t>(-1)));
}

const char* DistrustDirectory(const struct stat& status, Sharing sharing) {
  if (!IsOursOrRoots(status)) return "belongs to somebody else";
  // an access list shows its widest right in the group bits
  if (sharing == Sharing::Private ? (status.st_mode & (S_IWGRP | S_IWOTH)) != 0
                                  : !IsStickyWhereShared(status, S_IWGRP | S_IWOTH)) {
    return "can be written to by somebody else";
  }
  return nullptr;
}

// Whoever owns a directory can put another in the place of what is in it, a sticky bit or not. A group that may write
// is common where each user has a group of their own, so it is let pass.
const char* DistrustParent(const struct stat& status) {
  if (!IsOursOrRoots(status)) return "lies in a directory of somebody else";
  return IsStickyWhereShared(status, S_IWOTH) ? nullptr : "lies in a directory that everybody can write to";
}

// Walks up the real directories, whatever links the path went through.
const char* DistrustParents(Descriptor directory) {
  struct stat below {};
  if (fstat(directory.get(), &below) != 0) return "cannot be examined";
  for (;;) {
    Descriptor parent(openat(directory.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat above {};
    if (!parent || fstat(parent.get(), &above) != 0) return "has a parent that cannot be examined";
    if (above.st_dev == below.st_dev && above.st_ino == below.st_ino) return nullptr;  // the root
    if (const char* reason = DistrustParent(above)) return reason;
    directory = std::move(parent);
    below = above;
  }
}

// Opens one directory below another, made where it is not there. Never through a link, so that nobody who may write
// the parent can lead the mode elsewhere.
Descriptor OpenOrMake(const Descriptor& parent, const std::string& name, mode_t mode) {
  const bool made = mkdirat(parent.get(), name.c_str(), mode) == 0;
  if (!made && errno != EEXIST) return Descriptor();
  Descriptor child(openat(parent.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (made && child && fchmod(child.get(), mode) != 0) return Descriptor();  // what the umask took
  return child;
}

// Of an absolute path, without a separator behind it; the root is empty.
std::string ParentOf(std::string path) {
  while (!path.empty() && path.back() == '/') path.pop_back();
  path.resize(path.empty() ? 0 : path.rfind('/'));
  return path;
}

// Makes the directories of a path that are not there, below one that is trusted: nothing is made in another's.
int MakeDirectories(const std::string& path, mode_t mode) {
  std::string existing = path;
  Descriptor directory;
  while (!directory) {
    existing = ParentOf(existing);
    directory = Descriptor(open(existing.empty() ? "/" : existing.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!directory && (errno != ENOENT || existing.empty())) return Unmade(path, errno);
  }
  struct stat status {};
  if (fstat(directory.get(), &status) != 0) return Unmade(path, errno);
  const char* reason = DistrustParent(status);
  if (!reason) {
    reason = DistrustParents(Descriptor(openat(directory.get(), ".", O_PATH | O_DIRECTORY | O_CLOEXEC)));
  }
  if (reason) return Refuse(path, reason, ERROR_ACCESS_DENIED);
  for (size_t begin = existing.size(); begin < path.size();) {
    const size_t first = path.find_first_not_of('/', begin);
    if (first == std::string::npos) break;
    begin = std::min(path.find('/', first), path.size());
    directory = OpenOrMake(directory, path.substr(first, begin - first), mode);
    if (!directory) return Unmade(path, errno);
  }
  return 0;
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
    if (const int code = MakeDirectories(path, mode)) return code;
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
