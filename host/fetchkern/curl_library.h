// libcurl, loaded by the first transfer: most programs never fetch anything, and should not wait for it and the thirty
// libraries behind it when they start.
#ifndef CERTKERN_FETCHKERN_CURL_LIBRARY_H
#define CERTKERN_FETCHKERN_CURL_LIBRARY_H

#include <curl/curl.h>

namespace certkern::fetch {

struct CurlLibrary {
  decltype(&curl_global_init) globalInit = nullptr;
  decltype(&curl_easy_init) easyInit = nullptr;
  decltype(&curl_easy_setopt) easySetopt = nullptr;
  decltype(&curl_easy_perform) easyPerform = nullptr;
  decltype(&curl_easy_getinfo) easyGetinfo = nullptr;
  decltype(&curl_easy_cleanup) easyCleanup = nullptr;
  decltype(&curl_slist_append) slistAppend = nullptr;
  decltype(&curl_slist_free_all) slistFreeAll = nullptr;
};

// Null when it cannot be had; it is then looked for again next time. It stays loaded.
const CurlLibrary* LoadCurl();

}  // namespace certkern::fetch

#endif
