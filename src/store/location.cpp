#include "store/location.h"

#include <certkern/errors.h>

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cwctype>
#include <iterator>
#include <string>
#include <string_view>

#include "ber/read_cursor.h"
#include "platform/id_bracket.h"
#include "platform/owner.h"
#include "platform/sizes.h"
#include "platform/supkern.h"
#include "platform/text_conversion.h"

namespace certkern {
namespace {

constexpr std::string_view kExtension = ".sto";

struct Location {
  const wchar_t* name;
  DWORD flag;
  const char* path;  // as the support library knows its directory
};
// The user's first: a walk that asks for both gets that one.
constexpr Location kLocations[] = {
    {L"CurrentUser",  CERT_SYSTEM_STORE_CURRENT_USER,  "\\local\\stores\\" },
    {L"LocalMachine", CERT_SYSTEM_STORE_LOCAL_MACHINE, "\\global\\stores\\"},
};

const Location* FindLocation(DWORD flags) {
  for (const Location& each : kLocations) {
    if (flags & each.flag) return &each;
  }
  return nullptr;
}

// --- the stores of a location ---

using Directory = Owner<DIR*, closedir>;

bool OpenDirectory(const char* path, Directory& directory) {
  size_t size = 0;
  if (support_path2dir(path, &size, nullptr) != 0) return Fault(ERROR_PATH_NOT_FOUND);
  std::string name(size, '\0');
  if (support_path2dir(path, &size, name.data()) != 0) return Fault(ERROR_PATH_NOT_FOUND);
  const IdBracket ids;
  if (ids.enterResult() != 0) return Fault(ERROR_PATH_NOT_FOUND);
  directory.reset(opendir(name.c_str()));
  return directory || Fault(ERROR_PATH_NOT_FOUND);
}

bool IsStoreFile(DIR* directory, const char* name) {
  struct stat status {};
  return name[0] != '.' && std::string_view(name).find(kExtension) != std::string_view::npos
      && fstatat(dirfd(directory), name, &status, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISDIR(status.st_mode);
}

// --- the stores behind a store ---

bool IsPersonal(std::wstring_view name) {
  return name.size() == 2 && std::towlower(static_cast<wint_t>(name[0])) == L'm'
      && std::towlower(static_cast<wint_t>(name[1])) == L'y';
}

// What the callback is told, with texts that it may write to without harm.
class PhysicalStore {
 public:
  PhysicalStore(std::wstring_view name, const char* provider, DWORD openFlags, DWORD updateFlags)
      : name_(name), provider_(provider) {
    info_.cbSize = sizeof info_;
    info_.pszOpenStoreProvider = provider_.data();
    info_.dwOpenFlags = openFlags;
    info_.OpenParameters = {static_cast<DWORD>((name_.size() + 1) * sizeof(wchar_t)),
                            reinterpret_cast<BYTE*>(name_.data())};
    info_.dwFlags = updateFlags;
  }
  CERT_PHYSICAL_STORE_INFO* info() { return &info_; }

 private:
  std::wstring name_;
  std::string provider_;
  CERT_PHYSICAL_STORE_INFO info_{};
};

// Chains are built for users who never had a root or an authority of their own: no file is an empty store.
constexpr const char* kMadeByOpening[] = {"Root", "CA"};

DWORD StandardSettings(const char* name) {
  const auto isMeant = [&](const char* each) { return strcasecmp(each, name) == 0; };
  return std::ranges::any_of(kMadeByOpening, isMeant) ? kStoreMayBeCreated : 0;
}

}  // namespace

bool ReadStoreSettings(LPCWSTR name, DWORD& settings) {
  const ByteText narrow = BytesFromWide(name, CP_UTF8);
  if (!narrow) return false;
  const std::string path = std::string("\\config\\Certkern\\Stores\\") + narrow.get() + "\\settings";
  int64_t value = 0;
  settings = support_registry_get_long(path.c_str(), &value) == 0 ? static_cast<DWORD>(value)
                                                                  : StandardSettings(narrow.get());
  return true;
}

StorePlacement PlaceStore(DWORD flags, DWORD settings) {
  const DWORD location = flags & CERT_SYSTEM_STORE_LOCATION_MASK;
  if ((settings & kStoreMachineOnly) || location == CERT_SYSTEM_STORE_LOCAL_MACHINE) {
    return {CERT_SYSTEM_STORE_LOCAL_MACHINE, false};
  }
  const bool usersOwn = (location & ~CERT_SYSTEM_STORE_CURRENT_USER) == 0;
  return {location, usersOwn && !(settings & kStoreNoMachineStore)};
}

bool EnumerateLocations(void* argument, PFN_CERT_ENUM_SYSTEM_STORE_LOCATION callback) {
  for (const Location& each : kLocations) {
    if (!callback(each.name, each.flag, nullptr, argument)) return Fault(SV_E_ENUMERATION_STOPPED);
  }
  SetLastError(ERROR_SUCCESS);
  return true;
}

bool EnumerateSystemStores(DWORD flags, void* argument, PFN_CERT_ENUM_SYSTEM_STORE callback) {
  const Location* const location = FindLocation(flags);
  if (!location) return Fault(ERROR_INVALID_PARAMETER);
  Directory directory;
  if (!OpenDirectory(location->path, directory)) return false;
  while (const dirent* entry = readdir(directory.get())) {
    if (!IsStoreFile(directory.get(), entry->d_name)) continue;
    std::string name = entry->d_name;
    name.resize(name.size() - kExtension.size());
    const WideText wide = WideFromBytes(name.c_str(), CP_UTF8);
    if (!wide) return false;
    CERT_SYSTEM_STORE_INFO info{sizeof info};
    if (!callback(wide.get(), flags, &info, nullptr, argument)) return Fault(ERROR_SUCCESS);
  }
  SetLastError(ERROR_SUCCESS);
  return true;
}

bool EnumeratePhysicalStores(LPCWSTR name, DWORD flags, void* argument,
                             PFN_CERT_ENUM_PHYSICAL_STORE callback) {
  const DWORD given = flags & CERT_SYSTEM_STORE_LOCATION_MASK;
  if (given != CERT_SYSTEM_STORE_CURRENT_USER && given != CERT_SYSTEM_STORE_LOCAL_MACHINE) {
    return Fault(ERROR_FILE_NOT_FOUND);
  }
  if (!callback || !name || !*name) return Fault(E_INVALIDARG);
  const std::wstring_view text = name;
  if (!FitsDword((text.size() + 1) * sizeof(wchar_t))) return Fault(E_INVALIDARG);
  DWORD settings = 0;
  if (!ReadStoreSettings(name, settings)) return false;
  const StorePlacement placement = PlaceStore(flags, settings);
  const DWORD tellFlags = flags | CERT_PHYSICAL_STORE_PREDEFINED_ENUM_FLAG;
  const DWORD openFlags = placement.location | (IsPersonal(text) ? CERT_STORE_UPDATE_KEYID_FLAG : 0);
  PhysicalStore own(text, sz_CERT_STORE_PROV_SYSTEM_REGISTRY, openFlags, CERT_PHYSICAL_STORE_ADD_ENABLE_FLAG);
  if (!callback(name, tellFlags, L".Default", own.info(), nullptr, argument)) {
    return Fault(ERROR_FILE_NOT_FOUND);
  }
  if (!placement.machineBehind) return true;
  PhysicalStore machine(text, sz_CERT_STORE_PROV_SYSTEM,
                        CERT_SYSTEM_STORE_LOCAL_MACHINE | CERT_STORE_READONLY_FLAG, 0);
  return callback(name, tellFlags, L".LocalMachine", machine.info(), nullptr, argument)
      || Fault(ERROR_FILE_NOT_FOUND);
}

}  // namespace certkern
