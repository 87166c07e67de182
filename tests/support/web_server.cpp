#include "support/web_server.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

namespace certkern::test {
namespace {

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// Whether somebody answers; the answer comes behind the log records of all requests before it.
bool Answers(int port) {
  const int file = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(port);
  constexpr std::string_view kRequest = "GET /answers HTTP/1.0\r\n\r\n";
  char answer[256];
  const bool answered = connect(file, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
      && send(file, kRequest.data(), kRequest.size(), MSG_NOSIGNAL) > 0
      && recv(file, answer, sizeof answer, 0) > 0;
  close(file);
  return answered;
}

std::string Configuration(const TemporaryDirectory& home, int port, const std::string& locations) {
  const std::string root = home.path("");
  std::string text = "daemon off; master_process off; pid " + root + "pid; error_log " + root + "error;\n"
      + "events { worker_connections 64; }\nhttp {\n";
  text +=
      "log_format short '$request_method $request_uri $status $content_type \"$http_user_agent\" "
      "$request_body';\naccess_log "
      + root + "access short;\n";
  for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
    text += std::string(kind) + "_temp_path " + root + kind + ";\n";
  }
  return text + "server { listen 127.0.0.1:" + std::to_string(port) + "; root " + root
      + "root;\nlocation = /answers { access_log off; return 204; }\n" + locations + "\n} }\n";
}

}  // namespace

int FreePort() {
  const int file = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof address;
  EXPECT_EQ(bind(file, reinterpret_cast<const sockaddr*>(&address), size), 0);
  EXPECT_EQ(getsockname(file, reinterpret_cast<sockaddr*>(&address), &size), 0);
  close(file);
  return ntohs(address.sin_port);
}

WebServer::WebServer(const std::string& locations) : port_(FreePort()) {
  std::filesystem::create_directory(directory_.path("root"));
  const std::string file = directory_.write("conf", Configuration(directory_, port_, locations));
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that crashes leaves no server behind
    const std::string log = directory_.path("start");
    execl("/usr/sbin/nginx", "nginx", "-e", log.c_str(), "-c", file.c_str(), nullptr);
    _exit(127);
  }
  for (int i = 0; i < 500 && !Answers(port_); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_TRUE(Answers(port_)) << directory_.read("start") << directory_.read("error");
}

WebServer::~WebServer() {
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

void WebServer::write(const std::string& name, std::string_view content) const {
  directory_.write("root/" + name, std::string(content));
}

std::string WebServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::string WebServer::log() const {
  EXPECT_TRUE(Answers(port_));
  return directory_.read("access");
}

size_t WebServer::requests() const {
  const std::string text = log();
  return static_cast<size_t>(std::ranges::count(text, '\n'));
}

}  // namespace certkern::test
