// Time helpers.
#include "platform/supkern.h"

extern "C" {

int support_gettimeofday(struct timeval* now) { return gettimeofday(now, nullptr); }

void support_time_sub(const struct timeval* a, const struct timeval* b, struct timeval* difference) {
  timersub(a, b, difference);
}

}  // extern "C"
