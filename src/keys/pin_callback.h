// Who answers a PIN in place of the user: a callback of the application's, which each thread has its own of.
#ifndef CERTKERN_KEYS_PIN_CALLBACK_H
#define CERTKERN_KEYS_PIN_CALLBACK_H

#include <certkern/sv.h>

namespace certkern {

struct PinCallback {
  PFN_SV_PIN_CALLBACK function = nullptr;
  void* argument = nullptr;  // borrowed
};

// At start-up and at exit; between them the calling thread has a callback, or none.
void CreatePinSlots();
void DestroyPinSlots();

// False with ERROR_NOT_ENOUGH_MEMORY, and the thread has no callback then.
[[nodiscard]] bool SetPinCallback(const PinCallback& callback);
PinCallback GetPinCallback();

// What the thread's callback answers; without one an empty PIN. A refusal has the code that the callback left.
[[nodiscard]] bool AskForPin(char* pin, DWORD size);

}  // namespace certkern

#endif
