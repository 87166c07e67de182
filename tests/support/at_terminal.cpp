#include "support/at_terminal.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

namespace certkern::test {
namespace {

constexpr int kPatience = 10'000;  // milliseconds

}  // namespace

int StatusOf(pid_t child) {
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

AtTerminal::AtTerminal(const std::function<void()>& body) {
  child_ = forkpty(&master_, nullptr, nullptr, nullptr);
  if (child_ == 0) {
    body();
    _exit(2);
  }
}

AtTerminal::~AtTerminal() { hangUp(); }

void AtTerminal::type(const std::string& keys) const {
  EXPECT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

bool AtTerminal::sees(const std::string& text) {
  for (;;) {
    const size_t at = screen_.find(text, seen_);
    if (at != screen_.npos) return seen_ = at + text.size(), true;
    char chunk[512];
    pollfd ready = {master_, POLLIN, 0};
    if (poll(&ready, 1, kPatience) <= 0) return false;
    const ssize_t size = read(master_, chunk, sizeof chunk);
    if (size <= 0) return false;
    screen_.append(chunk, static_cast<size_t>(size));
  }
}

void AtTerminal::hangUp() {
  if (master_ >= 0) close(std::exchange(master_, -1));
}

int AtTerminal::status() {
  if (master_ >= 0) sees("nothing more");
  hangUp();  // one that still asks would be waited for without end
  return StatusOf(child_);
}

}  // namespace certkern::test
