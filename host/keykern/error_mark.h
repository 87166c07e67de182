// What libcrypto complains about in our calls is not for the host's error queue.
#ifndef CERTKERN_KEYKERN_ERROR_MARK_H
#define CERTKERN_KEYKERN_ERROR_MARK_H

#include <certkern/errors.h>
#include <certkern/types.h>

#include <openssl/err.h>

namespace keykern {

class ErrorMark {
 public:
  ErrorMark() : clean_(ERR_peek_error() == 0) { ERR_set_mark(); }
  ~ErrorMark() { ERR_pop_to_mark(); }
  ErrorMark(const ErrorMark&) = delete;
  ErrorMark& operator=(const ErrorMark&) = delete;

  // After libcrypto has failed at something that says nothing about the data: NTE_NO_MEMORY or NTE_FAIL.
  DWORD failure() const {
    return complaint([](unsigned long) { return false; }, NTE_FAIL);
  }

  // After libcrypto has refused data: `code` when one of its complaints is a verdict, otherwise as failure(). Some failed
  // allocations go unrecorded, so that a refusal alone proves nothing.
  template <class IsVerdict>
  DWORD refusal(DWORD code, const IsVerdict& isVerdict) const {
    return complaint(isVerdict, code);
  }

 private:
  // libcrypto wraps a failed allocation into the complaints of its upper floors, so the whole queue has to be read. It can
  // only be read from its old end: with entries of the host's before ours the last one has to do. Where nothing at all was
  // recorded there was no memory for the record either.
  template <class IsVerdict>
  DWORD complaint(const IsVerdict& isVerdict, DWORD code) const {
    unsigned long error = clean_ ? ERR_get_error() : ERR_peek_last_error();
    if (!error) return NTE_NO_MEMORY;
    DWORD outcome = NTE_FAIL;
    for (; error; error = clean_ ? ERR_get_error() : 0) {
      if (ERR_GET_REASON(error) == ERR_R_MALLOC_FAILURE) outcome = NTE_NO_MEMORY;
      if (outcome == NTE_FAIL && isVerdict(error)) outcome = code;
    }
    return outcome;
  }

  const bool clean_;  // the host's queue was empty
};

}  // namespace keykern

#endif
