// Files as C streams. Every function sets the last error when it fails: ERROR_FILE_NOT_FOUND for ENOENT,
// ERROR_ACCESS_DENIED for EACCES, and otherwise the code named beside it. None of them throws.
#ifndef CERTKERN_PLATFORM_FILE_H
#define CERTKERN_PLATFORM_FILE_H

#include <certkern/types.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <span>

#include "platform/owner.h"

namespace certkern {

// A stream that closes with its owner, unheard; where a failed close matters, CloseFile says so.
using FileStream = Owner<std::FILE*, std::fclose>;

// Values of OpenStoreFile's access, which may be combined, and of its creation.
inline constexpr DWORD kReadAccess = 0x80000000u;
inline constexpr DWORD kWriteAccess = 0x40000000u;
enum class Creation : DWORD { New = 1, Always = 2, Existing = 3, OpenAlways = 4 };

// Opens a file with the caller's effective ids.
//   New         the file must not exist, and of two racing processes one gets it
//   Always      an existing file loses its content
//   Existing    the file must exist
//   OpenAlways  a missing file is created empty
// Write access alone appends. An empty owner is a failure: ERROR_FILE_EXISTS; ERROR_OPEN_FAILED for any other errno and
// for an unknown creation; ERROR_INVALID_PARAMETER for no path or no access; ERROR_INTERNAL_ERROR when the ids cannot
// be taken on, ERROR_CANNOT_MAKE when they cannot be given back.
[[nodiscard]] FileStream OpenStoreFile(const char* path, DWORD access, Creation creation);

// Reads until the buffer is full or the file ends, and says in count how many bytes came. A file that ends early is no
// failure, so compare count with what was wanted. Else ERROR_INTERNAL_ERROR; ERROR_NO_DATA when the stream stopped for
// no reason that it tells.
[[nodiscard]] bool ReadFile(std::FILE* stream, std::span<BYTE> buffer, size_t& count);
// Else ERROR_WRITE_FAULT. No bytes are written well, from wherever; bytes from nowhere are ERROR_INTERNAL_ERROR.
[[nodiscard]] bool WriteFile(std::FILE* stream, std::span<const BYTE> bytes);
// The origin is SEEK_SET, SEEK_CUR or SEEK_END. Else ERROR_SEEK_ON_DEVICE.
[[nodiscard]] bool SeekFile(std::FILE* stream, int64_t offset, int origin);
// In bytes; the position stays. Else ERROR_SEEK_ON_DEVICE.
[[nodiscard]] bool FileSize(std::FILE* stream, uint64_t& size);
// Cuts the file at the current position. Else ERROR_SEEK_ON_DEVICE.
[[nodiscard]] bool TruncateFile(std::FILE* stream);
// Else ERROR_WRITE_FAULT.
[[nodiscard]] bool FlushFile(std::FILE* stream);
// The stream is gone either way. Else ERROR_INTERNAL_ERROR.
[[nodiscard]] bool CloseFile(FileStream stream);
// When the content last changed. Else ERROR_FILE_NOT_FOUND.
[[nodiscard]] bool FileModificationTime(std::FILE* stream, timespec& modified);

}  // namespace certkern

#endif
