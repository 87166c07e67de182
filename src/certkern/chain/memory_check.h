// A lack of memory is never an answer: not "not found", not "does not decode", not "not signed by this key". It ends the
// call with ERROR_NOT_ENOUGH_MEMORY, for whatever verdict went on without what is missing might be the wrong one.
#ifndef CERTKERN_CERTKERN_CHAIN_MEMORY_CHECK_H
#define CERTKERN_CERTKERN_CHAIN_MEMORY_CHECK_H

#include <certkern/keykern.h>

#include <new>

#include "platform/lack_of_memory.h"

namespace certkern {

// What a function answers that reports failures by the last error alone. Calls it with none, as a stale code must not pass
// for its own, and throws std::bad_alloc when it leaves behind that memory was lacking.
template <class Function>
auto CheckingMemory(Function function) {
  SetLastError(ERROR_SUCCESS);
  auto answer = function();
  if (!answer && IsLackOfMemory(GetLastError())) throw std::bad_alloc();
  return answer;
}

}  // namespace certkern

#endif
