// What a store file was when it was read, and the proof, without a lock or a reading, that it still is.
//
// A file system marks every change with the time of its clock. Once that clock has moved on from the last mark by more
// than any file system's granularity, a later change can't leave the same mark: then equal marks are equal contents. Whoever
// makes a journal beside the file marks the file first, so the journal needs no look of its own.
#ifndef CERTKERN_STORE_FILE_WITNESS_H
#define CERTKERN_STORE_FILE_WITNESS_H

#include <sys/stat.h>

#include <cstdio>
#include <ctime>
#include <string>

namespace certkern {

struct FileWitness {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified{};
  timespec changed{};
  bool settled = false;  // it was looked at long enough after its last change

  bool isOf(const struct stat& status) const;
  bool isSameAs(const FileWitness& other) const;
};

// To be taken before the reading: a change that comes in between is then seen by the next look. Without a `stream` that can
// be looked at nothing is ever proven.
FileWitness WitnessOf(std::FILE* stream);
[[nodiscard]] bool WitnessOf(int descriptor, FileWitness& witness);

// Whether the path leads to the file that was witnessed, and nothing in it has changed since. Three system calls: to open
// the file makes a remote one tell its present state, and asks whether this user may still read it.
bool IsSurelyUnchanged(const std::string& path, const FileWitness& witness);

// Whether this machine's clock marks the changes, and inodes keep their numbers: on a local disk or in memory.
bool IsOnLocalFileSystem(int descriptor);

inline bool IsEarlier(const timespec& a, const timespec& b) {
  return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}
inline bool IsSameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace certkern

#endif
