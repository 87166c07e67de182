#include "fetchkern/curl_library.h"

#include <mutex>

#include "platform/supkern.h"

namespace certkern::fetch {
namespace {

constexpr char kLibrary[] = "libcurl.so.4";

template <typename Function>
bool Bind(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(support_load_library_getaddr(library, name));
  return function != nullptr;
}

bool BindAll(void* library, CurlLibrary& curl) {
  return Bind(library, "curl_global_init", curl.globalInit) && Bind(library, "curl_easy_init", curl.easyInit)
      && Bind(library, "curl_easy_setopt", curl.easySetopt)
      && Bind(library, "curl_easy_perform", curl.easyPerform)
      && Bind(library, "curl_easy_getinfo", curl.easyGetinfo)
      && Bind(library, "curl_easy_cleanup", curl.easyCleanup)
      && Bind(library, "curl_slist_append", curl.slistAppend)
      && Bind(library, "curl_slist_free_all", curl.slistFreeAll);
}

bool Load(CurlLibrary& curl) {
  void* const library = support_load_library_registry(kLibrary, 0);
  if (!library) return false;
  if (BindAll(library, curl) && curl.globalInit(CURL_GLOBAL_DEFAULT) == CURLE_OK) return true;
  support_unload_library_registry(library);
  return false;
}

}  // namespace

const CurlLibrary* LoadCurl() {
  static constinit std::mutex lock;
  static constinit CurlLibrary curl;
  static constinit bool loaded = false;
  const std::lock_guard guard(lock);
  if (!loaded) loaded = Load(curl);
  return loaded ? &curl : nullptr;
}

}  // namespace certkern::fetch
