#include "platform/thread_slot.h"

namespace certkern {

void ThreadSlot::create() {
  support_tskey* key = nullptr;
  if (support_load_library(&key) == 0 && support_tskey_create(&key) == 0) key_.store(key);
}

void ThreadSlot::destroy() {
  // out of sight first: other threads may still be running while the process exits
  if (support_tskey* key = key_.exchange(nullptr)) support_tskey_delete(&key);
}

void* ThreadSlot::get() const {
  support_tskey* key = key_.load();
  return key ? support_get_thread_specific(key) : nullptr;
}

BOOL ThreadSlot::set(const void* value) {
  support_tskey* key = key_.load();
  return key && support_set_thread_specific(key, value) == 0 ? TRUE : FALSE;
}

}  // namespace certkern
