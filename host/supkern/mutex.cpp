// Named mutexes between processes: a lock on a file keeps other processes out, a word of this process its
// other threads. The file is open for the length of a lock only, so that an open handle costs no descriptor
// and a removed lock file heals by itself.
#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/supkern.h"
#include "supkern/guard.h"
#include "supkern/lock_file.h"

namespace certkern::support {

namespace {

// What all handles of one lock file in this process share. The threads meet on a word that names the owner,
// not on a mutex of the system's: the child of a fork can free the word, whoever held it.
class SharedLock {
 public:
  explicit SharedLock(std::string path) : path_(std::move(path)) {}

  // An errno value; EDEADLK when this thread holds it already, through whichever handle.
  int lock(const ubi_mutex* handle) {
    const pid_t self = gettid();
    for (pid_t owner = 0; !owner_.compare_exchange_strong(owner, self); owner = 0) {
      if (owner == self) return EDEADLK;
      owner_.wait(owner);
    }
    const int error = Guarded(ENOMEM, [this] { return LockFile(path_, file_); });
    if (error) {
      letNextIn();
    } else {
      holder_.store(handle);
    }
    return error;
  }

  // EPERM unless this thread locked it, and through this handle.
  int unlock(const ubi_mutex* handle) {
    if (!isHeldBy(handle) || owner_.load() != gettid()) return EPERM;
    holder_.store(nullptr);
    flock(file_.get(), LOCK_UN);  // at once, even where a child still has the descriptor
    file_ = Descriptor();
    letNextIn();
    return 0;
  }

  bool isHeldBy(const ubi_mutex* handle) const { return holder_.load() == handle; }

  // The child of a fork holds nothing: the threads that did are not in it. Closing its copy of the descriptor
  // leaves the lock with the parent.
  void forgetInChild() {
    if (holder_.exchange(nullptr)) file_ = Descriptor();
    owner_.store(0);
  }

 private:
  void letNextIn() {
    owner_.store(0);
    owner_.notify_one();
  }

  const std::string path_;
  std::atomic<pid_t> owner_{0};  // 0: nobody
  std::atomic<const ubi_mutex*> holder_{nullptr};
  Descriptor file_;  // the owner's
};

// The locks in use, by path. Never destroyed: exit handlers of others may still save stores.
class SharedLocks {
 public:
  static SharedLocks& instance() {
    static SharedLocks& locks = make();
    return locks;
  }

  std::shared_ptr<SharedLock> find(const std::string& path) {
    const std::lock_guard guard(mutex_);
    std::weak_ptr<SharedLock>& entry = locks_[path];
    std::shared_ptr<SharedLock> lock = entry.lock();
    if (!lock) entry = lock = std::make_shared<SharedLock>(path);
    return lock;
  }

  // Takes the last handle's lock away.
  void release(std::shared_ptr<SharedLock> lock) {
    const std::lock_guard guard(mutex_);
    lock.reset();
    std::erase_if(locks_, [](const auto& entry) { return entry.second.expired(); });
  }

 private:
  static SharedLocks& make() {
    SharedLocks& locks = *std::make_unique<SharedLocks>().release();
    pthread_atfork([] { instance().mutex_.lock(); }, [] { instance().mutex_.unlock(); },
                   [] { instance().afterForkInChild(); });
    return locks;
  }

  void afterForkInChild() {
    for (const auto& [path, entry] : locks_) {
      if (const auto lock = entry.lock()) lock->forgetInChild();
    }
    mutex_.unlock();
  }

  std::mutex mutex_;
  std::map<std::string, std::weak_ptr<SharedLock>> locks_;
};

}  // namespace

}  // namespace certkern::support

using namespace certkern::support;  // NOLINT(google-build-using-namespace): only exported C functions follow

struct ubi_mutex {
  std::shared_ptr<SharedLock> lock;
};

extern "C" {

int ubi_mutex_open(ubi_mutex** mutex, const char* name, int /*flags*/) {
  if (!mutex || !name) return EINVAL;
  return Guarded(ENOMEM, [&] {
    std::string path;
    if (const int error = LockFilePath(name, path)) return error;
    auto opened = std::make_unique<ubi_mutex>();
    opened->lock = SharedLocks::instance().find(path);
    *mutex = opened.release();
    return 0;
  });
}

int ubi_mutex_lock(ubi_mutex* mutex) { return mutex ? mutex->lock->lock(mutex) : EINVAL; }

int ubi_mutex_unlock(ubi_mutex* mutex) { return mutex ? mutex->lock->unlock(mutex) : EINVAL; }

int ubi_mutex_close(ubi_mutex* mutex) {
  if (!mutex) return EINVAL;
  if (mutex->lock->isHeldBy(mutex)) return EBUSY;
  const std::unique_ptr<ubi_mutex> owned(mutex);
  return Guarded(0, [&] {
    SharedLocks::instance().release(std::move(owned->lock));
    return 0;
  });
}

}  // extern "C"
