#include "keys/pin_callback.h"

#include <certkern/errors.h>

#include "ber/read_cursor.h"
#include "platform/thread_slot.h"

namespace certkern {
namespace {

constinit ThreadSlot functionSlot;
constinit ThreadSlot argumentSlot;

}  // namespace

void CreatePinSlots() {
  functionSlot.create();
  argumentSlot.create();
}

void DestroyPinSlots() {
  functionSlot.destroy();
  argumentSlot.destroy();
}

bool SetPinCallback(const PinCallback& callback) {
  if (argumentSlot.set(callback.argument) && functionSlot.set(reinterpret_cast<void*>(callback.function))) {
    return true;
  }
  functionSlot.set(nullptr);  // never a function with the argument of another
  return Fault(ERROR_NOT_ENOUGH_MEMORY);
}

PinCallback GetPinCallback() {
  return {reinterpret_cast<PFN_SV_PIN_CALLBACK>(functionSlot.get()), argumentSlot.get()};
}

bool AskForPin(char* pin, DWORD size) {
  const PinCallback callback = GetPinCallback();
  if (callback.function) return callback.function(pin, size, callback.argument) != FALSE;
  if (size) *pin = '\0';
  return true;
}

}  // namespace certkern
