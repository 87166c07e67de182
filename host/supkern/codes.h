// The codes that the configuration, directory and message operations answer with. They share their numbers
// with the last error, so that a caller may pass one on; the thread slots, id brackets and mutexes answer
// with errno values.
#ifndef CERTKERN_SUPKERN_CODES_H
#define CERTKERN_SUPKERN_CODES_H

#include <certkern/errors.h>

#include <cerrno>

namespace certkern::support {

inline constexpr int kPathNotFound = 3;       // ERROR_PATH_NOT_FOUND
inline constexpr int kBadPathName = 161;      // ERROR_BAD_PATHNAME
inline constexpr int kMessageNotFound = 317;  // ERROR_MR_MID_NOT_FOUND
inline constexpr int kWrongKind = 1629;       // ERROR_DATATYPE_MISMATCH

// The code for a failed file operation.
inline int CodeOfErrno(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return kPathNotFound;
    case ENOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    case ENAMETOOLONG:
    case ELOOP:
      return kBadPathName;
    default:
      return ERROR_ACCESS_DENIED;
  }
}

}  // namespace certkern::support

#endif
