// The border of the key-level functions: the logic answers a code, 0 for success, and the caller sees TRUE or FALSE and
// the last error. Memory is all that can run out below.
#ifndef CERTKERN_KEYKERN_CALL_H
#define CERTKERN_KEYKERN_CALL_H

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <new>

namespace keykern {

template <class Body>
BOOL Call(Body&& body) {
  DWORD code;
  try {
    code = body();
  } catch (const std::bad_alloc&) {
    code = NTE_NO_MEMORY;
  }
  if (code == ERROR_SUCCESS) return TRUE;
  SetLastError(code);
  return FALSE;
}

}  // namespace keykern

#endif
