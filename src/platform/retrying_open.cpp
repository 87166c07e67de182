#include "platform/retrying_open.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/time.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <string_view>

#include "platform/exceptions.h"
#include "platform/id_bracket.h"
#include "platform/supkern.h"

namespace certkern {
namespace {

constexpr char kName[] = "support_an_fopen";
constexpr int kPriorityFault = LOG_AUTH | LOG_ERR;
constexpr int kPriorityAnswer = LOG_AUTH | LOG_DEBUG;
static_assert(kPriorityFault == 35 && kPriorityAnswer == 39);

// Signals stay blocked from the first sleep on: an open that is interrupted by a timer would be so for ever.
class SignalBlock {
 public:
  SignalBlock() = default;
  ~SignalBlock() {
    if (!blocked_) return;
    const int kept = errno;
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    errno = kept;
  }
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;
  void block() {
    if (blocked_) return;
    sigset_t all;
    sigfillset(&all);
    blocked_ = pthread_sigmask(SIG_SETMASK, &all, &before_) == 0;
  }

 private:
  sigset_t before_{};
  bool blocked_ = false;
};

// One line to the system log: who, when and where, then the text.
template <class... Args>
void Log(const RetryingOpenSystem& system, int priority, int line, const char* format, Args... args) {
  constexpr std::string_view kSource = SourceName(__FILE__);
  timeval now{};
  support_gettimeofday(&now);
  tm parts{};
  char clock[32] = "";
  if (localtime_r(&now.tv_sec, &parts)) strftime(clock, sizeof clock, "%Y-%m-%d %H:%M:%S", &parts);
  char text[1024];
  const int used = snprintf(text, sizeof text, "%s%s%s.%06ld %.*s:%d p:%d t:0x%p ", "libcertkern", " ", clock,
                            static_cast<long>(now.tv_usec), static_cast<int>(kSource.size()), kSource.data(),
                            line, static_cast<int>(getpid()), reinterpret_cast<void*>(pthread_self()));
  if (used < 0 || static_cast<size_t>(used) >= sizeof text) return;
  snprintf(text + used, sizeof text - static_cast<size_t>(used), format, args...);
  system.log(priority, text);
}

void LogBracketFailure(const RetryingOpenSystem& system, int line, const char* operation, int result,
                       int error) {
  Log(system, kPriorityFault, line, "%s() %s() rc=%d errno = %s(%d)%s", kName, operation, result,
      support_strerror(error), error, "");
}

// One open under the caller's ids, errno telling a failure. False when the ids themselves could not be had: trying
// again would not help, and opening with other ids would be wrong.
bool OpenUnderIds(const RetryingOpenSystem& system, const char* path, const char* mode, FileStream& stream) {
  IdBracket ids;
  if (ids.enterResult() != 0) {
    const int error = errno;
    LogBracketFailure(system, __LINE__, "support_thread_actualize_uids", ids.enterResult(), error);
    errno = error ? error : EPERM;
    return false;
  }
  stream.reset(system.open(path, mode));
  if (const int result = ids.leave(); result != 0) {
    const int error = errno;
    stream.reset();
    LogBracketFailure(system, __LINE__, "support_thread_deactualize_uids", result, error);
    errno = error ? error : EPERM;
    return false;
  }
  return true;
}

bool IsPassing(int error) { return error == EINTR || error == EAGAIN || error == EINPROGRESS; }

void SleepMilliseconds(uint32_t milliseconds) {
  timespec left{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

constexpr RetryingOpenSystem kSystem = {
    [](const char* path, const char* mode) { return std::fopen(path, mode); },
    [] { sched_yield(); },
    SleepMilliseconds,
    [](int priority, const char* text) { syslog(priority, "%s", text); },
};

}  // namespace

std::FILE* RetryingOpen(const RetryingOpenSystem& system, const char* path, const char* mode) {
  if (!path || !mode) {
    errno = EINVAL;
    return nullptr;
  }
  SignalBlock signals;
  FileStream stream;
  for (uint32_t retry = 1;; ++retry) {
    if (!OpenUnderIds(system, path, mode, stream)) return nullptr;
    if (stream) return stream.release();
    const int error = errno;
    if (!IsPassing(error)) {
      Log(system, kPriorityAnswer, __LINE__, "%s(\"%s\", \"%s\") = 0x%p fail %s(%d)%s", kName, path, mode,
          static_cast<void*>(nullptr), support_strerror(error), error, "");
      errno = error;
      return nullptr;
    }
    const unsigned step = static_cast<unsigned>(std::bit_width(retry)) >> 3;
    if (step == 0) {
      system.yield();
      continue;
    }
    signals.block();
    system.sleepMilliseconds((step + 1) * 3 - 2);
    if (step + 1 != 2) {
      Log(system, kPriorityFault, __LINE__, "EINTR/EAGAIN storm detect by %s(), retry=%d errno = %s(%d)%s",
          kName, static_cast<int>(retry), support_strerror(error), error, "");
      errno = error;
      return nullptr;
    }
  }
}

std::FILE* support_an_fopen(const char* path, const char* mode) { return RetryingOpen(kSystem, path, mode); }

FileStream OpenBlobForReading(const char* path) { return FileStream(support_an_fopen(path, "rb")); }
FileStream OpenBlobForWriting(const char* path) { return FileStream(support_an_fopen(path, "wb")); }

}  // namespace certkern
