// A count that runs on the terminal while a long command works, and nothing anywhere else.
#ifndef CERTKERN_CLI_PROGRESS_H
#define CERTKERN_CLI_PROGRESS_H

#include <unistd.h>

#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>

namespace certkern::cli {

class Progress {
 public:
  explicit Progress(const char* verb) : verb_(verb), shown_(isatty(STDERR_FILENO) != 0) {}
  ~Progress() { clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void show(int64_t count) {
    if (!shown_) return;
    const Clock::time_point now = Clock::now();
    if (now - last_ < kPause) return;
    last_ = now;
    static_cast<void>(std::fprintf(stderr, "\r%" PRId64 " %s", count, verb_));
    std::fflush(stderr);
    dirty_ = true;
  }
  // Before anything else is written.
  void clear() {
    if (dirty_) std::fputs("\r\x1b[K", stderr);
    dirty_ = false;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kPause{100};

  const char* const verb_;
  const bool shown_;
  bool dirty_ = false;
  Clock::time_point last_ = Clock::now();
};

}  // namespace certkern::cli

#endif
