// One transfer over libcurl: what goes in, what comes out, and the limits between them.
#ifndef CERTKERN_FETCHKERN_TRANSFER_H
#define CERTKERN_FETCHKERN_TRANSFER_H

#include <certkern/types.h>

#include <cstdint>
#include <cstdlib>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "fetchkern/curl_library.h"

namespace certkern::fetch {

// What arrives. It grows by an eighth at a time and in place: doubling would hold the bytes three times.
class Body {
 public:
  Body() = default;
  Body(Body&& other) noexcept { *this = std::move(other); }
  Body& operator=(Body&& other) noexcept {
    bytes_ = std::move(other.bytes_);
    size_ = std::exchange(other.size_, 0);
    room_ = std::exchange(other.room_, 0);
    return *this;
  }

  size_t size() const { return size_; }
  const BYTE* data() const { return bytes_.get(); }
  // False without memory.
  [[nodiscard]] bool append(std::span<const char> data);

 private:
  struct Free {
    void operator()(BYTE* bytes) const { std::free(bytes); }
  };
  std::unique_ptr<BYTE, Free> bytes_;
  size_t size_ = 0;
  size_t room_ = 0;
};

struct Request {
  std::string url;
  DWORD flags = 0;
  DWORD timeout = 0;          // milliseconds; 0: kDefaultTransferTime
  size_t sizeLimit = 0;       // bytes; 0: the configured limit alone
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
  Body body;
};

// Throws std::bad_alloc before the transfer begins; when memory runs out in it, that is the answer's code.
Answer Perform(const Request& request);

}  // namespace certkern::fetch

#endif
