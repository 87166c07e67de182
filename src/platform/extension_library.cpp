#include "platform/extension_library.h"

#include <certkern/errors.h>

#include "platform/supkern.h"

namespace certkern::extension {
namespace {

// A plain name: the one beside the support library is taken before any other, wherever the system is installed.
constexpr char kLibrary[] = "libextkern.so.4";

constinit std::atomic<void*> library{nullptr};

// Two threads may both load it; one handle is kept, and the other only took a count that it gives back.
void* Load() {
  if (void* const loaded = library.load(std::memory_order_acquire)) return loaded;
  void* const mine = support_load_library_registry(kLibrary, 0);
  void* kept = nullptr;
  if (!mine || library.compare_exchange_strong(kept, mine)) return mine;
  support_unload_library_registry(mine);
  return kept;
}

}  // namespace

void* Symbol::find() {
  if (void* const known = address_.load(std::memory_order_acquire)) return known;
  void* const loaded = Load();
  void* const found = loaded ? support_load_library_getaddr(loaded, name_) : nullptr;
  // the last word: what a failed search left behind is no code of ours
  if (!found) SetLastError(loaded ? ERROR_CALL_NOT_IMPLEMENTED : ERROR_MOD_NOT_FOUND);
  if (found) address_.store(found, std::memory_order_release);
  return found;
}

}  // namespace certkern::extension
