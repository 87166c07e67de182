// Optional libraries: the dialog, a site's revocation library, chain policies.
#include <dlfcn.h>
#include <unistd.h>

#include <string>

#include "platform/supkern.h"
#include "supkern/environment.h"
#include "supkern/guard.h"
#include "supkern/settings.h"
#include "supkern/trace.h"

namespace certkern::support {

namespace {

// What to give to the dynamic loader; empty when the name is none. A plain name that lies beside this library
// means that one, wherever the system is installed; other plain names are searched for in the system's way. A
// relative path is refused: what it names depends on where the program happens to stand.
std::string LibraryFile(const std::string& name) {
  if (name.empty() || name[0] == '/') return name;
  if (name.find('/') != std::string::npos) return {};
  const std::string beside = LibraryDirectory() + '/' + name;
  return beside[0] == '/' && beside.size() > name.size() + 1 && access(beside.c_str(), F_OK) == 0 ? beside
                                                                                                  : name;
}

void* LoadLibrary(const char* given) {
  constexpr char kFunction[] = "support_load_library_registry";
  std::string name = given;
  if (name[0] == '\\') {
    ReportConfigurationFaults();
    name = TextSetting(name).value_or("");
  }
  const std::string file = LibraryFile(name);
  if (file.empty()) {
    TraceError(kFunction, std::string(given) + ": names no library");
    return nullptr;
  }
  void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    const char* reason = dlerror();
    TraceError(kFunction, reason ? reason : file);
  }
  return library;
}

}  // namespace

}  // namespace certkern::support

using namespace certkern::support;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

void* support_load_library_registry(const char* name, int /*flags*/) {
  if (!name) return nullptr;
  return Guarded<void*>(nullptr, [&] { return LoadLibrary(name); });
}

void* support_load_library_getaddr(void* library, const char* symbol) {
  // a null handle would search the whole program
  return library && symbol ? dlsym(library, symbol) : nullptr;
}

void support_unload_library_registry(void* library) {
  if (library) dlclose(library);
}

}  // extern "C"
