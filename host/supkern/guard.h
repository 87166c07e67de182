// Keeps exceptions inside the library: the operations are C functions, and only memory can run out in them.
#ifndef CERTKERN_SUPKERN_GUARD_H
#define CERTKERN_SUPKERN_GUARD_H

namespace certkern::support {

// What the body answers, or `otherwise` when it throws.
template <class Result, class Body>
Result Guarded(Result otherwise, Body&& body) noexcept {
  try {
    return body();
  } catch (...) {
    return otherwise;
  }
}

}  // namespace certkern::support

#endif
