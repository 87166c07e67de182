#include "store/find.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include "store/certificate_primitives.h"

namespace certkern {
namespace {

Found FindFirst(CertStore& store, const ElementQuery& query, const StoreElement* previous,
                ContextOwner& found) {
  const Candidates candidates(store, query.type(), query.question());
  const StoreElement* last = previous;
  while (StoreElement* const each = candidates.behind(last)) {
    last = each;
    ContextOwner context;
    const Found answer = query.matches(*each, context);
    if (answer == Found::Failed) return answer;
    if (answer == Found::No || (!query.seesArchived() && IsHidden(store, *each))) continue;
    if (!context) context.reset(AcquireContext(*each));
    if (!context) return Found::Failed;
    // one that was asked for by name; whoever walks over all of them pays with time, not with memory
    if (candidates.areAskedFor()) each->keepsInfo.store(true, std::memory_order_relaxed);
    found = std::move(context);
    return Found::Yes;
  }
  return Found::No;
}

}  // namespace

Found FindInStore(CertStore& store, const ElementQuery& query, const StoreElement* previous,
                  ContextOwner& found) {
  const std::lock_guard guard(store.lock);
  return FindFirst(store, query, previous, found);
}

ContextOwner FindInMembers(CertStore& store, const ElementQuery& query, const ContextRecord* previous) {
  const StoreMembers members(store);
  ContextOwner found;
  size_t at = 0;
  const StoreElement* from = previous ? &previous->element() : nullptr;
  if (previous) {
    const CertStore* const home = StoreOf(previous->element());
    while (at < members.size() && &members[at] != home) ++at;
  }
  for (; at < members.size(); ++at, from = nullptr) {
    const Found outcome = FindInStore(members[at], query, from, found);
    if (outcome == Found::Yes) return found;
    if (outcome == Found::Failed && GetLastError() == ERROR_NOT_ENOUGH_MEMORY)
      return {};  // which says nothing
  }
  SetLastError(CRYPT_E_NOT_FOUND);
  return {};
}

}  // namespace certkern
