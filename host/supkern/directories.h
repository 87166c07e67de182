// Directories of stores, keys, locks and catalogues.
#ifndef CERTKERN_SUPKERN_DIRECTORIES_H
#define CERTKERN_SUPKERN_DIRECTORIES_H

#include <sys/types.h>

#include <string>

namespace certkern::support {

enum class Sharing {
  Private,  // nobody else can write to it
  Sticky,   // others may add files, but not remove or replace those of ours
};

// Makes sure that a directory is there and that it can be trusted: it belongs to us or to root, others write
// to it only as `sharing` allows, and none of the directories above it lets everybody replace it. Missing
// directories are made with `mode`, whatever the umask. Answers 0 or a code.
int EnsureDirectory(const std::string& path, mode_t mode, Sharing sharing);

// The directory that a setting under [paths] names, else `fallback`. The answer is empty, after a trace, when
// the setting is not an absolute path.
std::string ConfiguredPath(const char* name, const std::string& fallback);

}  // namespace certkern::support

#endif
