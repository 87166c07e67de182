#include "terminal.h"

#include "failure.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace certkern::cli {
namespace {

constexpr size_t kLongestLine = 4096;  // the most that a terminal keeps of a line
constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP};

// While it lives the terminal shows nothing that is typed, and signals that would leave it so wait.
class Silence {
 public:
  explicit Silence(int tty) : tty_(tty) {
    sigset_t waiting;
    sigemptyset(&waiting);
    for (const int signal : kEndingSignals) sigaddset(&waiting, signal);
    pthread_sigmask(SIG_BLOCK, &waiting, &mask_);
    *signals_.out() = signalfd(-1, &waiting, SFD_CLOEXEC);
    silent_ = signals_ && tcgetattr(tty_, &before_) == 0;
    if (!silent_) return;
    termios quiet = before_;
    quiet.c_lflag &= ~tcflag_t{ECHO};
    silent_ = tcsetattr(tty_, TCSAFLUSH, &quiet) == 0;
  }
  ~Silence() {
    if (silent_) tcsetattr(tty_, TCSAFLUSH, &before_);
    pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

  bool holds() const { return silent_; }

  // 0 once there is a line to read, otherwise the signal that came.
  int await() const {
    std::array<pollfd, 2> places = {
        pollfd{tty_,           POLLIN, 0},
        pollfd{signals_.get(), POLLIN, 0}
    };
    while (poll(places.data(), places.size(), -1) < 0) {
      if (errno != EINTR) return 0;  // the read will tell
    }
    signalfd_siginfo info{};
    if (!places[1].revents || read(signals_.get(), &info, sizeof(info)) != ssize_t{sizeof(info)}) return 0;
    return static_cast<int>(info.ssi_signo);
  }

 private:
  int tty_;
  FileDescriptor signals_;
  sigset_t mask_{};
  termios before_{};
  bool silent_ = false;
};

}  // namespace

Terminal::Terminal(std::string_view advice) : tty_(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
  if (!tty_) throw Failure(fmt::format("there is no terminal to ask on; {}", advice));
}

SecretBytes Terminal::askSecret(std::string_view prompt) const {
  while (true) {
    int signal = 0;
    {
      const Silence silence(tty_.get());
      if (!silence.holds()) ThrowErrno("the terminal cannot be kept from showing what is typed");
      say(prompt);
      signal = silence.await();
      if (!signal) {
        SecretBytes line = readLine();
        say("\n");
        return line;
      }
      say("\n");
    }
    // as if nobody had held it back; whoever survives it, or comes back from a stop, is asked again
    kill(getpid(), signal);
  }
}

std::string Terminal::askLine(std::string_view prompt) const {
  say(prompt);
  const SecretBytes line = readLine();
  return {line.begin(), line.end()};
}

void Terminal::say(std::string_view text) const {
  // a prompt that does not arrive is no reason to fail
  const ssize_t written = write(tty_.get(), text.data(), text.size());
  static_cast<void>(written);
}

SecretBytes Terminal::readLine() const {
  SecretBytes line(kLongestLine);
  ssize_t count;
  do {
    count = read(tty_.get(), line.data(), line.size());
  } while (count < 0 && errno == EINTR);
  if (count < 0) ThrowErrno("the terminal");
  line.resize(static_cast<size_t>(count));
  if (line.empty()) throw Failure("nothing was entered");
  if (line.back() == '\n') line.pop_back();
  return line;
}

}  // namespace certkern::cli
