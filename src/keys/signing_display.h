// The key level's display of what is to be signed. A key level without one goes without.
#ifndef CERTKERN_KEYS_SIGNING_DISPLAY_H
#define CERTKERN_KEYS_SIGNING_DISPLAY_H

#include <certkern/types.h>

namespace certkern {

// The registration of some bytes that are about to be signed; lives around the signing.
class SigningDisplay {
 public:
  SigningDisplay() = default;
  SigningDisplay(const SigningDisplay&) = delete;
  SigningDisplay& operator=(const SigningDisplay&) = delete;
  ~SigningDisplay();

  // True when nothing is displayed, too. False with the key level's code: what should have been shown must not be
  // signed unseen.
  [[nodiscard]] bool registerBytes(HCRYPTPROV provider, const BYTE* bytes);

 private:
  void* key_ = nullptr;
};

}  // namespace certkern

#endif
