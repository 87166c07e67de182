// A server without manners: what it does with each connection is the test's.
#ifndef CERTKERN_TESTS_SUPPORT_RAW_SERVER_H
#define CERTKERN_TESTS_SUPPORT_RAW_SERVER_H

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace certkern::test {

class RawConnection {
 public:
  RawConnection(int file, const std::atomic<bool>& stop) : file_(file), stop_(stop) {}
  // What has arrived, at least one byte; empty when the peer has gone.
  std::string read();
  // Up to the blank line behind the headers.
  std::string readHead();
  // False when the peer has gone, or the test wants to end.
  bool send(std::string_view bytes);
  bool sleep(int milliseconds);

 private:
  const int file_;
  const std::atomic<bool>& stop_;
};

class RawServer {
 public:
  using Script = std::function<void(RawConnection&)>;
  explicit RawServer(Script script);
  ~RawServer();
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;

  int port() const { return port_; }
  std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }
  int connections() const { return connections_; }

 private:
  void serve();

  const Script script_;
  int listener_;
  int port_ = 0;
  std::atomic<bool> stop_{false};
  std::atomic<int> connections_{0};
  std::thread thread_;
};

}  // namespace certkern::test

#endif
