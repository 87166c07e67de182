// A file's new content at once or not at all, for a file that nobody holds open by what it is: written beside the old one,
// which it then replaces.
#ifndef CERTKERN_STORE_FILE_REPLACEMENT_H
#define CERTKERN_STORE_FILE_REPLACEMENT_H

#include <certkern/types.h>

#include <span>

namespace certkern {

// Replaces the content of an ordinary file that this user may write; mode and owner stay. NotPossible, without a code and
// without a change: there is no file, or it must stay the one that it is (a link or one of several names, a special file,
// one with access rights beyond its mode, a directory or an owner that isn't ours). No, with ERROR_WRITE_FAULT: the old content is whole.
enum class Replaced { Yes, No, NotPossible };
[[nodiscard]] Replaced ReplaceFile(const char* path, std::span<const BYTE> content);

}  // namespace certkern

#endif
