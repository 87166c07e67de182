// LocalAlloc and LocalFree: the memory that changes hands with a caller.
#include <certkern/encode.h>
#include <certkern/keykern.h>

#include <cstdlib>

#include "api/frame.h"

using certkern::Frame;
using certkern::Guarded;

extern "C" {

HLOCAL LocalAlloc(UINT uFlags, SIZE_T uBytes) {
  return Guarded([&](Frame& frame) -> HLOCAL {
    frame.entry("(uFlags = 0x%.8X, uBytes = %lu)", uFlags, uBytes);
    if (uFlags & LMEM_MOVEABLE) return frame.failed(ERROR_INVALID_PARAMETER);
    // malloc(0) may answer null, which callers would take for "no memory"
    const SIZE_T size = uBytes ? uBytes : 1;
    void* memory = (uFlags & LMEM_ZEROINIT) ? std::calloc(1, size) : std::malloc(size);
    if (!memory) return frame.failed(ERROR_NOT_ENOUGH_MEMORY);
    return frame.result(memory);
  });
}

HLOCAL LocalFree(HLOCAL hMem) {
  return Guarded([&](Frame& frame) -> HLOCAL {
    frame.entry("(hMem = %p)", hMem);
    std::free(hMem);
    return frame.result(static_cast<HLOCAL>(nullptr));
  });
}

}  // extern "C"
