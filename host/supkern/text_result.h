// Hands a text to a caller by the two-call rule: a null buffer asks for the size, NUL included.
#ifndef CERTKERN_SUPKERN_TEXT_RESULT_H
#define CERTKERN_SUPKERN_TEXT_RESULT_H

#include <cstddef>
#include <cstring>
#include <string_view>

#include "supkern/codes.h"

namespace certkern::support {

// size: in, bytes at buffer; out, bytes needed. 234 with the size set, and the buffer left alone, when it is
// too small.
inline int CopyText(std::string_view text, size_t* size, char* buffer) {
  const size_t available = *size;
  *size = text.size() + 1;
  if (!buffer) return 0;
  if (available < *size) return ERROR_MORE_DATA;
  std::memcpy(buffer, text.data(), text.size());
  buffer[text.size()] = '\0';
  return 0;
}

}  // namespace certkern::support

#endif
