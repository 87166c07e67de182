#include "store/find.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include "store/certificate_primitives.h"

namespace certkern {
namespace {

// The elements that a query can match, newest first: those that the index knows, or all.
class Candidates {
 public:
  Candidates(CertStore& store, const ElementQuery& query)
      : store_(store),
        type_(query.type()),
        question_(query.question()),
        index_(question_ ? SearchableIndex(store, question_->key) : nullptr) {}

  StoreElement* behind(const StoreElement* previous) const {
    return index_ ? index_->next(*question_, previous) : NextElement(store_, type_, previous);
  }

 private:
  CertStore& store_;
  const ElementType type_;
  const std::optional<IndexQuestion> question_;
  const StoreIndex* const index_;
};

Found FindFirst(CertStore& store, const ElementQuery& query, const StoreElement* previous,
                ContextOwner& found) {
  const Candidates candidates(store, query);
  const StoreElement* last = previous;
  while (StoreElement* const each = candidates.behind(last)) {
    last = each;
    ContextOwner context;
    const Found answer = query.matches(*each, context);
    if (answer == Found::Failed) return answer;
    if (answer == Found::No || (!query.seesArchived() && IsHidden(store, *each))) continue;
    if (!context) context.reset(AcquireContext(*each));
    if (!context) return Found::Failed;
    found = std::move(context);
    return Found::Yes;
  }
  return Found::No;
}

}  // namespace

Found FindInStore(CertStore& store, const ElementQuery& query, const StoreElement* previous,
                  ContextOwner& found) {
  const std::lock_guard guard(store.lock);
  Found answer = Found::No;
  for (const ElementQuery* each = &query; each && answer == Found::No; each = each->otherwise()) {
    answer = FindFirst(store, *each, previous, found);
  }
  return answer;
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
    if (FindInStore(members[at], query, from, found) == Found::Yes) return found;
  }
  SetLastError(CRYPT_E_NOT_FOUND);
  return {};
}

}  // namespace certkern
