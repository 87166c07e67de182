// LocalAlloc and LocalFree: the memory that changes hands with a caller.
#include <certkern/encode.h>

#include <cstdlib>

extern "C" {

HLOCAL LocalAlloc(UINT uFlags, SIZE_T uBytes) {
  if (uFlags & LMEM_MOVEABLE) return nullptr;
  // malloc(0) may answer null, which callers would take for "no memory"
  const SIZE_T size = uBytes ? uBytes : 1;
  return (uFlags & LMEM_ZEROINIT) ? std::calloc(1, size) : std::malloc(size);
}

HLOCAL LocalFree(HLOCAL hMem) {
  std::free(hMem);
  return nullptr;
}

}  // extern "C"
