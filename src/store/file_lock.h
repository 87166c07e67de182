// A lock that lies on a store file itself. The named lock goes by the path as it was given, so that it keeps those out who
// spell the path alike; this one meets all who open the file, by whichever name.
//
// It is of the open file, not of the process, and on a byte that no store file has: locks that a program keeps on the file
// for itself are not in its way. Who may write the file shares the lock with nobody, who may only read it with his like.
#ifndef CERTKERN_STORE_FILE_LOCK_H
#define CERTKERN_STORE_FILE_LOCK_H

#include <cstdio>
#include <string>

namespace certkern {

class FileLock {
 public:
  FileLock() = default;
  ~FileLock() { release(); }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  // Locks the file that the path leads to, and gives up what was locked before. A file that is missing, or can't be
  // opened, or lies where there are no locks, is left without: the named lock must do then.
  void take(const std::string& path);
  // The same where the stream is of another file than the one that is locked: it has come to be meanwhile.
  void follow(const std::string& path, std::FILE* stream);
  // Nobody else has the file: the lock is there, and of the kind that is not shared.
  bool isExclusive() const { return exclusive_; }

 private:
  void release() noexcept;

  int descriptor_ = -1;
  bool exclusive_ = false;
};

}  // namespace certkern

#endif
