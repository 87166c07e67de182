// Time helpers.
#include <cerrno>

#include "platform/supkern.h"

extern "C" {

int support_gettimeofday(struct timeval* now) {
  if (!now) return EINVAL;
  return gettimeofday(now, nullptr) == 0 ? 0 : errno;
}

void support_time_sub(const struct timeval* a, const struct timeval* b, struct timeval* difference) {
  timersub(a, b, difference);
}

}  // extern "C"
