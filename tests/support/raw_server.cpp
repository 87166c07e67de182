#include "support/raw_server.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

namespace certkern::test {

std::string RawConnection::read() {
  pollfd wait{file_, POLLIN, 0};
  while (poll(&wait, 1, 20) == 0) {
    if (stop_) return {};
  }
  char buffer[4096];
  const ssize_t size = recv(file_, buffer, sizeof buffer, 0);
  return size > 0 ? std::string(buffer, static_cast<size_t>(size)) : std::string();
}

std::string RawConnection::readHead() {
  std::string head;
  while (head.find("\r\n\r\n") == head.npos) {
    const std::string piece = read();
    if (piece.empty()) break;
    head += piece;
  }
  return head;
}

bool RawConnection::send(std::string_view bytes) {
  while (!bytes.empty() && !stop_) {
    const ssize_t done = ::send(file_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (done <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(done));
  }
  return !stop_;
}

bool RawConnection::sleep(int milliseconds) {
  for (int i = 0; i < milliseconds && !stop_; i += 10) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return !stop_;
}

RawServer::RawServer(Script script)
    : script_(std::move(script)), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), size) != 0 || listen(listener_, 16) != 0
      || getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    std::abort();
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { serve(); });
}

RawServer::~RawServer() {
  stop_ = true;
  thread_.join();
  close(listener_);
}

void RawServer::serve() {
  while (!stop_) {
    pollfd wait{listener_, POLLIN, 0};
    if (poll(&wait, 1, 20) <= 0) continue;
    const int file = accept(listener_, nullptr, nullptr);
    if (file < 0) continue;
    const timeval patience{1, 0};  // a peer that does not read must not hold the test up
    setsockopt(file, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    ++connections_;
    RawConnection connection(file, stop_);
    script_(connection);
    close(file);
  }
}

}  // namespace certkern::test
