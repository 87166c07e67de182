#include "platform/dialog_library.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <atomic>

#include "platform/supkern.h"

namespace certkern {
namespace {

using DialogFunction = decltype(SVDisplayMessageEx);

constexpr int kLoadFlags = 17;

// Two threads may both load it: the handles are one library's, and a count too many keeps nothing longer than it stays.
DialogFunction* FindDialog() {
  static constinit std::atomic<DialogFunction*> found{nullptr};
  if (DialogFunction* const known = found.load(std::memory_order_acquire)) return known;
  void* const library = support_load_library_registry(kDialogLibrary, kLoadFlags);
  if (!library) return nullptr;
  auto* const function =
      reinterpret_cast<DialogFunction*>(support_load_library_getaddr(library, kDialogFunction));
  if (!function) {
    support_unload_library_registry(library);
    return nullptr;
  }
  found.store(function, std::memory_order_release);
  return function;
}

}  // namespace

bool AskYesOrNo(LPCSTR text) {
  DialogFunction* const ask = FindDialog();
  if (!ask) {
    SetLastError(NTE_SILENT_CONTEXT);
    return false;
  }
  static_cast<void>(support_wnd_language_update());  // without news the language stays
  const SV_DIALOG_REQUEST request = {sizeof request, SV_DIALOG_YES_NO, support_wnd_language_get(), text};
  const DWORD code = ask(&request);
  if (code) SetLastError(code);
  return code == 0;
}

}  // namespace certkern
