// A step of a build that may fail by an exception: that ends the step, not the build. Only a lack of memory ends the build.
#ifndef CERTKERN_CERTKERN_CHAIN_ATTEMPT_H
#define CERTKERN_CERTKERN_CHAIN_ATTEMPT_H

#include <cxxabi.h>

#include <exception>
#include <new>
#include <string_view>

#include "certkern/chain/chain_trace.h"
#include "certkern/chain/memory_check.h"
#include "platform/exceptions.h"

namespace certkern {

// The body's answer; false if it threw, which is traced under the routine's name. Throws std::bad_alloc. A cancelled thread
// passes through; its reference, which the compiler makes, is null, so the function is not sanitized, and the body stays one
// of its own.
template <class Body>
__attribute__((no_sanitize("undefined"))) bool Attempt(const ChainTrace& trace, std::string_view routine,
                                                       Body body) {
  try {
    return body();
  } catch (abi::__forced_unwind&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const CryptException& failure) {
    if (IsLackOfMemory(failure.code())) throw std::bad_alloc();
    trace.line(routine, " exception:", failure.what());
  } catch (const std::exception& failure) {
    trace.line(routine, " exception:", failure.what());
  } catch (...) {
    trace.line(routine, " unknown exception.");
  }
  return false;
}

}  // namespace certkern

#endif
