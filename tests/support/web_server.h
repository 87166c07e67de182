// nginx on the loopback, for as long as the object lives; files and log lie in a directory that goes with it.
#ifndef CERTKERN_TESTS_SUPPORT_WEB_SERVER_H
#define CERTKERN_TESTS_SUPPORT_WEB_SERVER_H

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/temporary_directory.h"

namespace certkern::test {

class WebServer {
 public:
  // `locations` goes into the server block: "location /a { return 301 /b; }".
  explicit WebServer(const std::string& locations = {});
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  void write(const std::string& name, std::string_view content) const;
  std::string url(const std::string& path) const;
  // "METHOD path status content-type user-agent body", a line for each request so far.
  std::string log() const;
  size_t requests() const;

 private:
  TemporaryDirectory directory_;
  int port_;
  pid_t process_ = -1;
};

// A port that nobody listened on a moment ago.
int FreePort();

}  // namespace certkern::test

#endif
