// What libcrypto complains about in our calls is not for the host's error queue.
#ifndef CERTKERN_KEYKERN_ERROR_MARK_H
#define CERTKERN_KEYKERN_ERROR_MARK_H

#include <openssl/err.h>

namespace keykern {

class ErrorMark {
 public:
  ErrorMark() { ERR_set_mark(); }
  ~ErrorMark() { ERR_pop_to_mark(); }
  ErrorMark(const ErrorMark&) = delete;
  ErrorMark& operator=(const ErrorMark&) = delete;
};

}  // namespace keykern

#endif
