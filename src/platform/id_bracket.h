// The effective ids of the caller, for the length of an open.
#ifndef CERTKERN_PLATFORM_ID_BRACKET_H
#define CERTKERN_PLATFORM_ID_BRACKET_H

#include <cerrno>

#include "platform/supkern.h"

namespace certkern {

// Every way out of an open gives the ids back, also that of a cancelled thread: an open may wait, and a waiting
// thread may be cancelled.
class IdBracket {
 public:
  IdBracket() : enterResult_(support_thread_actualize_uids()), inside_(enterResult_ == 0) {}
  ~IdBracket() { leave(); }
  IdBracket(const IdBracket&) = delete;
  IdBracket& operator=(const IdBracket&) = delete;

  // What taking the ids on answered; 0 is success.
  int enterResult() const { return enterResult_; }

  // Gives the ids back, once; 0 is success. On success errno is that of what was done inside.
  int leave() {
    if (!inside_) return 0;
    inside_ = false;
    const int kept = errno;
    const int result = support_thread_deactualize_uids();
    if (result == 0) errno = kept;
    return result;
  }

 private:
  const int enterResult_;
  bool inside_;
};

}  // namespace certkern

#endif
