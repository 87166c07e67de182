#include "supkern/trace_sink.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>

#include "supkern/descriptor.h"
#include "supkern/trace_record.h"

namespace certkern::support {

namespace {

class StandardErrorSink : public TraceSink {
 public:
  void write(unsigned /*level*/, std::string_view record) override { WriteAtOnce(STDERR_FILENO, record); }
};

class SyslogSink : public TraceSink {
 public:
  void write(unsigned level, std::string_view record) override {
    record.remove_prefix(kTraceTimeWidth);  // the log has its own clock
    record.remove_suffix(1);
    syslog(LOG_USER | (level == 1 ? LOG_ERR : LOG_DEBUG), "%.*s", static_cast<int>(record.size()),
           record.data());
  }
};

// No lock: a process may fork while another of its threads is writing, and the child goes on tracing.
class FileSink : public TraceSink {
 public:
  explicit FileSink(std::string path) : path_(std::move(path)) {}

  // 0, or an errno value.
  int open() {
    Descriptor file(::open(
        path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK, 0600));
    // a program that closed its standard streams must not find the trace in their place
    if (file && file.get() <= STDERR_FILENO) {
      file = Descriptor(fcntl(file.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    }
    if (!file) return errno;
    struct stat status {};
    if (fstat(file.get(), &status) != 0) return errno;
    if (!S_ISREG(status.st_mode)) return EINVAL;
    device_.store(status.st_dev);
    inode_.store(status.st_ino);
    descriptor_.store(file.release());
    return 0;
  }

  void write(unsigned /*level*/, std::string_view record) override {
    // A program that turns itself into a daemon closes all descriptors; the number may then be a file of its
    // own.
    if (!isOurs(descriptor_.load()) && open() != 0) return;
    WriteAtOnce(descriptor_.load(), record);
  }

 private:
  bool isOurs(int descriptor) const {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && status.st_dev == device_.load()
        && status.st_ino == inode_.load();
  }

  const std::string path_;
  std::atomic<int> descriptor_{-1};
  std::atomic<dev_t> device_{0};
  std::atomic<ino_t> inode_{0};
};

std::unique_ptr<TraceSink> MakeSink(const std::string& name) {
  if (name == "stderr") return std::make_unique<StandardErrorSink>();
  if (name == "syslog") return std::make_unique<SyslogSink>();
  if (name.empty() || name[0] != '/') {
    ComplainOnStandardError("trace sink \"" + name + "\" is neither stderr, syslog nor an absolute path");
    return nullptr;
  }
  auto file = std::make_unique<FileSink>(name);
  if (const int error = file->open()) {
    ComplainOnStandardError("trace file " + name + " cannot be opened: " + strerrordesc_np(error));
    return nullptr;
  }
  return file;
}

// Blocks SIGPIPE on this thread, and takes away one that a write has raised meanwhile.
class NoBrokenPipe {
 public:
  NoBrokenPipe() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe_, &previous_);
  }
  ~NoBrokenPipe() {
    const timespec atOnce{};
    if (broken && !wasPending_) {
      while (sigtimedwait(&pipe_, nullptr, &atOnce) < 0 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
  }
  NoBrokenPipe(const NoBrokenPipe&) = delete;
  NoBrokenPipe& operator=(const NoBrokenPipe&) = delete;

  bool broken = false;

 private:
  sigset_t pipe_{}, previous_{};
  bool wasPending_ = false;
};

}  // namespace

TraceSink* FindTraceSink(const std::string& name) {
  using Sinks = std::map<std::string, std::unique_ptr<TraceSink>>;
  static std::mutex mutex;
  static Sinks& sinks = *std::make_unique<Sinks>().release();  // exit handlers of others may still trace
  const std::lock_guard lock(mutex);
  const auto [sink, isNew] = sinks.try_emplace(name);
  if (isNew) sink->second = MakeSink(name);
  return sink->second.get();
}

bool WriteAtOnce(int descriptor, std::string_view bytes) {
  NoBrokenPipe guard;
  ssize_t count = 0;
  do {
    count = write(descriptor, bytes.data(), bytes.size());
  } while (count < 0 && errno == EINTR);
  guard.broken = count < 0 && errno == EPIPE;
  return count == static_cast<ssize_t>(bytes.size());
}

void ComplainOnStandardError(std::string_view text) {
  std::string line = "certkern: ";
  AppendEscaped(text, kMaxTraceRecord - 1, line);
  line += '\n';
  WriteAtOnce(STDERR_FILENO, line);
}

}  // namespace certkern::support
