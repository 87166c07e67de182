// One transfer over libcurl: what goes in, what comes out, and the limits between them.
#ifndef CERTKERN_FETCHKERN_TRANSFER_H
#define CERTKERN_FETCHKERN_TRANSFER_H

#include <certkern/types.h>

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include "fetchkern/curl_library.h"

namespace certkern::fetch {

struct Request {
  std::string url;
  DWORD flags = 0;
  DWORD timeout = 0;          // milliseconds; 0: kDefaultTransferTime
  int64_t modifiedSince = 0;  // seconds since 1970; 0: in any case
  bool verifyServer = true;
  bool verifyHost = true;
  std::optional<std::string> proxy;
  std::optional<std::string> proxyCredentials;
  std::list<std::string> headers;
  std::optional<std::vector<BYTE>> post;
};

struct Answer {
  CURLcode code = CURLE_OK;
  bool modified = true;
  int64_t lastModified = 0;  // seconds since 1970; 0: not told
  std::vector<BYTE> body;
};

// Throws std::bad_alloc before the transfer begins; when memory runs out in it, that is the answer's code.
Answer Perform(const Request& request);

}  // namespace certkern::fetch

#endif
