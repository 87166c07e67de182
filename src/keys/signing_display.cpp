#include "keys/signing_display.h"

#include <certkern/keykern.h>

#include "platform/owner.h"

// Weak, so that a key level that lacks them still loads; their addresses are then null.
extern "C" {
[[gnu::weak]] BOOL isDTBSEnabled(void);
[[gnu::weak]] BOOL TlsInitHashMsgIndex(void* key, DWORD reserved, const HASH_MSG_RECORD* record);
[[gnu::weak]] BOOL TlsReleaseHashMsgIndex(void* key);
}

namespace certkern {

SigningDisplay::~SigningDisplay() {
  if (!key_) return;
  const LastErrorKeeper keeper;
  static_cast<void>(TlsReleaseHashMsgIndex(key_));
}

bool SigningDisplay::registerBytes(HCRYPTPROV provider, const BYTE* bytes) {
  const bool complete = isDTBSEnabled && TlsInitHashMsgIndex && TlsReleaseHashMsgIndex;
  if (!bytes || !complete || !isDTBSEnabled()) return true;
  const HASH_MSG_RECORD record = {.hCryptProv = provider, .dwReserved = {}, .dwFlags = 0, .fForced = 0};
  void* const key = const_cast<BYTE*>(bytes);  // an address to tell it by; nobody writes there
  if (!TlsInitHashMsgIndex(key, 0, &record)) return false;
  key_ = key;
  return true;
}

}  // namespace certkern
