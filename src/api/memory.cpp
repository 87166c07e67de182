// LocalAlloc and LocalFree: the memory that changes hands with a caller. They have no frame: the library itself calls
// them on every allocating path, and there is nothing in them that could throw.
#include <certkern/encode.h>
#include <certkern/keykern.h>

#include <cstdlib>

extern "C" {

HLOCAL LocalAlloc(UINT uFlags, SIZE_T uBytes) {
  if (uFlags & LMEM_MOVEABLE) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  // malloc(0) may answer null, which callers would take for "no memory"
  const SIZE_T size = uBytes ? uBytes : 1;
  void* memory = (uFlags & LMEM_ZEROINIT) ? std::calloc(1, size) : std::malloc(size);
  if (!memory) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return memory;
}

HLOCAL LocalFree(HLOCAL hMem) {
  std::free(hMem);
  return nullptr;
}

}  // extern "C"
