#include "platform/file.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/id_bracket.h"

namespace certkern {
namespace {

DWORD CodeOfErrno(int error, DWORD other) {
  switch (error) {
    case ENOENT:
      return ERROR_FILE_NOT_FOUND;
    case EACCES:
      return ERROR_ACCESS_DENIED;
    default:
      return other;
  }
}

// The failure that errno tells.
bool Fail(DWORD other) {
  SetLastError(CodeOfErrno(errno, other));
  return false;
}

FileStream FailOpen(DWORD code) {
  SetLastError(code);
  return {};
}

// One fopen under the caller's ids. The mode's "e" keeps the file from programs that this process starts.
FileStream OpenBracketed(const char* path, const char* mode) {
  IdBracket ids;
  if (ids.enterResult() != 0) return FailOpen(ERROR_INTERNAL_ERROR);
  errno = 0;
  FileStream stream(std::fopen(path, mode));
  const int error = errno;
  if (ids.leave() != 0) return FailOpen(ERROR_CANNOT_MAKE);
  if (!stream) return FailOpen(error == EEXIST ? ERROR_FILE_EXISTS : CodeOfErrno(error, ERROR_OPEN_FAILED));
  return stream;
}

// A file that comes to be here is closed again: the final mode opens it like one that was there before.
bool CreateEmpty(const char* path, const char* mode) {
  FileStream stream = OpenBracketed(path, mode);
  return stream && CloseFile(std::move(stream));
}

enum class Existence { Exists, Missing, Unknown };

Existence Probe(const char* path) {
  if (OpenBracketed(path, "rbe")) return Existence::Exists;
  // any other failure leaves open what is there, and must not lead to a mode that truncates
  return GetLastError() == ERROR_FILE_NOT_FOUND ? Existence::Missing : Existence::Unknown;
}

// Does what the creation asks for before the file is opened in its final mode.
bool Prepare(const char* path, Creation creation) {
  switch (creation) {
    case Creation::New:  // "x": of two processes that both saw no file, one finds it there
      return CreateEmpty(path, "wbxe");
    case Creation::Always:
      return CreateEmpty(path, "wbe");
    case Creation::Existing:
      return Probe(path) == Existence::Exists;
    case Creation::OpenAlways:
      switch (Probe(path)) {
        case Existence::Exists:
          return true;
        case Existence::
            Missing:  // a file that another process has just made is as good, and must not be emptied
          return CreateEmpty(path, "wbxe") || GetLastError() == ERROR_FILE_EXISTS;
        case Existence::Unknown:
          return false;
      }
  }
  SetLastError(ERROR_OPEN_FAILED);
  return false;
}

FileStream OpenInFinalMode(const char* path, DWORD access, Creation creation) {
  if (access == (kReadAccess | kWriteAccess)) {
    if (creation == Creation::New) return OpenBracketed(path, "w+bxe");
    if (creation == Creation::Always) return OpenBracketed(path, "w+be");
    return OpenBracketed(path, "r+be");
  }
  return OpenBracketed(path, access == kWriteAccess ? "abe" : "rbe");
}

}  // namespace

FileStream OpenStoreFile(const char* path, DWORD access, Creation creation) {
  constexpr DWORD kBoth = kReadAccess | kWriteAccess;
  if (!path || (access & kBoth) == 0 || (access & ~kBoth) != 0) return FailOpen(ERROR_INVALID_PARAMETER);
  const DWORD lastError = GetLastError();
  if (creation == Creation::New) {
    const Existence existence = Probe(path);
    if (existence == Existence::Exists) return FailOpen(ERROR_FILE_EXISTS);
    if (existence == Existence::Unknown) return {};
  }
  const bool createdByFinalMode =
      access == kBoth && (creation == Creation::New || creation == Creation::Always);
  if (!createdByFinalMode && !Prepare(path, creation)) return {};
  FileStream stream = OpenInFinalMode(path, access, creation);
  if (stream) SetLastError(lastError);  // what the probe answered on the way is nobody's failure
  return stream;
}

bool ReadFile(std::FILE* stream, std::span<BYTE> buffer, size_t& count) {
  count = 0;
  if (buffer.empty()) return true;
  if (!buffer.data()) {
    SetLastError(ERROR_INTERNAL_ERROR);
    return false;
  }
  while (count < buffer.size()) {
    errno = 0;
    count += std::fread(buffer.data() + count, 1, buffer.size() - count, stream);
    if (count == buffer.size() || std::feof(stream)) return true;
    if (!std::ferror(stream)) {
      SetLastError(ERROR_NO_DATA);
      return false;
    }
    if (errno != EINTR) return Fail(ERROR_INTERNAL_ERROR);
    std::clearerr(stream);
  }
  return true;
}

bool WriteFile(std::FILE* stream, std::span<const BYTE> bytes) {
  if (bytes.empty()) return true;
  if (!bytes.data()) {
    SetLastError(ERROR_INTERNAL_ERROR);
    return false;
  }
  errno = 0;
  return std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size() || Fail(ERROR_WRITE_FAULT);
}

bool SeekFile(std::FILE* stream, int64_t offset, int origin) {
  errno = 0;
  if (offset == 0 && origin == SEEK_SET) {
    std::rewind(stream);  // forgets an earlier error of the stream as well; tells its own by errno only
    return errno == 0 || Fail(ERROR_SEEK_ON_DEVICE);
  }
  return fseeko(stream, offset, origin) == 0 || Fail(ERROR_SEEK_ON_DEVICE);
}

bool FileSize(std::FILE* stream, uint64_t& size) {
  errno = 0;
  const off_t position = ftello(stream);
  if (position < 0 || fseeko(stream, 0, SEEK_END) != 0) return Fail(ERROR_SEEK_ON_DEVICE);
  const off_t end = ftello(stream);
  if (end < 0 || fseeko(stream, position, SEEK_SET) != 0) return Fail(ERROR_SEEK_ON_DEVICE);
  size = static_cast<uint64_t>(end);
  return true;
}

bool TruncateFile(std::FILE* stream) {
  errno = 0;
  if (std::fflush(stream) != 0) return Fail(ERROR_SEEK_ON_DEVICE);
  const off_t position = ftello(stream);
  return (position >= 0 && ftruncate(fileno(stream), position) == 0) || Fail(ERROR_SEEK_ON_DEVICE);
}

bool FlushFile(std::FILE* stream) {
  errno = 0;
  return std::fflush(stream) == 0 || Fail(ERROR_WRITE_FAULT);
}

bool CloseFile(FileStream stream) {
  errno = 0;
  return std::fclose(stream.release()) == 0 || Fail(ERROR_INTERNAL_ERROR);
}

bool FileModificationTime(std::FILE* stream, timespec& modified) {
  struct stat status;
  errno = 0;
  if (fstat(fileno(stream), &status) != 0) return Fail(ERROR_FILE_NOT_FOUND);
  modified = status.st_mtim;
  return true;
}

}  // namespace certkern
