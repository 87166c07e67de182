// The one way from a size of this machine to a size of the interface, which has 32 bits. Sums are made in 64 bits
// first, where nothing that fits into memory overflows, and narrowed here.
#ifndef CERTKERN_PLATFORM_SIZES_H
#define CERTKERN_PLATFORM_SIZES_H

#include <certkern/errors.h>
#include <certkern/types.h>

#include <cstdint>
#include <string_view>

#include "platform/exceptions.h"
#include "platform/limits.h"

namespace certkern {

// For the plain layer, which answers with a code.
[[nodiscard]] constexpr bool FitsDword(uint64_t size) { return size <= kMaxInterfaceSize; }

// For the class layer; a size that does not fit is a CryptException of ERROR_INVALID_PARAMETER at the caller's place.
[[nodiscard]] inline DWORD CheckedDword(uint64_t size, std::string_view file = SourceName(__builtin_FILE()),
                                        int32_t line = __builtin_LINE()) {
  if (!FitsDword(size)) throw CryptException(ERROR_INVALID_PARAMETER, file, line);
  return static_cast<DWORD>(size);
}

}  // namespace certkern

#endif
