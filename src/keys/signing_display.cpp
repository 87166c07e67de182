#include "keys/signing_display.h"

#include <certkern/keykern.h>
#include <certkern/msg.h>

#include "platform/supkern.h"

// Weak, so that a key level that lacks them still loads; their addresses are then null.
extern "C" {
// NOLINTBEGIN(readability-redundant-declaration): the header's are not weak
[[gnu::weak]] BOOL isDTBSEnabled(void);
[[gnu::weak]] BOOL TlsInitHashMsgIndex(void* key, DWORD reserved, const HASH_MSG_RECORD* record);
[[gnu::weak]] BOOL TlsSetHashMsgIndex(void* key, DWORD active);
[[gnu::weak]] BOOL TlsReleaseHashMsgIndex(void* key);
// NOLINTEND(readability-redundant-declaration)
}

namespace certkern {
namespace {

constexpr DWORD kDisplayFlags = SVCMSG_DTBS_DISPLAY | SVCMSG_DTBS_DISPLAY_SIGNER;

bool IsDisplayed() {
  return isDTBSEnabled && TlsInitHashMsgIndex && TlsReleaseHashMsgIndex && isDTBSEnabled();
}

bool ForcesDisplay() {
  static const bool kForces = [] {
    int64_t value = 0;
    return support_registry_get_long("\\config\\Parameters\\ForceDTBSDisplay", &value) == 0 && value != 0;
  }();
  return kForces;
}

}  // namespace

SigningDisplay::~SigningDisplay() {
  if (!key_) return;
  const LastErrorKeeper keeper;
  static_cast<void>(TlsReleaseHashMsgIndex(key_));
}

bool SigningDisplay::registerBytes(HCRYPTPROV provider, const BYTE* bytes) {
  if (!bytes || !IsDisplayed()) return true;
  const HASH_MSG_RECORD record = {.hCryptProv = provider, .dwReserved = {}, .dwFlags = 0, .fForced = 0};
  void* const key = const_cast<BYTE*>(bytes);  // an address to tell it by; nobody writes there
  if (!TlsInitHashMsgIndex(key, 0, &record)) return false;
  key_ = key;
  return true;
}

DWORD WithForcedDisplay(DWORD flags) {
  return flags & kDisplayFlags || !ForcesDisplay() ? flags : flags | SVCMSG_DTBS_DISPLAY;
}

bool RegisterMessageDisplay(void* message, HCRYPTPROV provider, DWORD flags, DisplayFor use) {
  const bool nobody = !provider && use != DisplayFor::AddedSigner;
  if (!(flags & kDisplayFlags) || nobody || !IsDisplayed()) return true;
  const bool forced = use == DisplayFor::AddedSigner && (flags & SVCMSG_DTBS_DISPLAY_SIGNER);
  const HASH_MSG_RECORD record = {
      .hCryptProv = provider, .dwReserved = {}, .dwFlags = flags & kDisplayFlags, .fForced = forced};
  if (!TlsSetHashMsgIndex || !TlsInitHashMsgIndex(message, 0, &record)) return false;
  if (TlsSetHashMsgIndex(message, 1)) return true;
  ReleaseMessageDisplay(message);
  return false;
}

void ReleaseMessageDisplay(void* message) noexcept {
  if (!IsDisplayed()) return;
  const LastErrorKeeper keeper;
  static_cast<void>(TlsReleaseHashMsgIndex(message));
}

}  // namespace certkern
