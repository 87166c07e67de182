// The codes by which the plain layer, the key level and the classes say that memory was lacking. That says nothing about what
// was asked, so nobody may take it for an answer.
#ifndef CERTKERN_PLATFORM_LACK_OF_MEMORY_H
#define CERTKERN_PLATFORM_LACK_OF_MEMORY_H

#include <certkern/errors.h>
#include <certkern/types.h>

namespace certkern {

inline bool IsLackOfMemory(DWORD code) {
  return code == ERROR_NOT_ENOUGH_MEMORY || code == NTE_NO_MEMORY || code == E_OUTOFMEMORY;
}

}  // namespace certkern

#endif
