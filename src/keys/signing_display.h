// The key level's display of what is to be signed. A key level without one goes without.
#ifndef CERTKERN_KEYS_SIGNING_DISPLAY_H
#define CERTKERN_KEYS_SIGNING_DISPLAY_H

#include <certkern/types.h>

#include "platform/owner.h"

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

// --- messages, which are registered by their handle ---

// The flags of a message with SVCMSG_DTBS_DISPLAY added when the configuration wants everything to be shown and they say
// nothing about it.
DWORD WithForcedDisplay(DWORD flags);

enum class DisplayFor { Message, AddedSigner };
// Registers and activates. True, doing nothing, without a display, without display flags, and without a provider; false when
// the key level refused, and then nothing is registered.
[[nodiscard]] bool RegisterMessageDisplay(void* message, HCRYPTPROV provider, DWORD flags, DisplayFor use);
// Drops whatever is registered for the message.
void ReleaseMessageDisplay(void* message) noexcept;
using MessageDisplay = Owner<void*, ReleaseMessageDisplay>;

}  // namespace certkern

#endif
