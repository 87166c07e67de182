#include "store/collection.h"

#include <certkern/errors.h>

#include <algorithm>
#include <functional>

#include "ber/read_cursor.h"

namespace certkern {
namespace {

// The collection, and the sibling if it is one, too. By address: collections that are added to each other must not wait
// crosswise.
class PairLock {
 public:
  PairLock(CertStore& collection, CertStore& sibling) {
    CertStore* first = &collection;
    CertStore* second = IsCollection(sibling) ? &sibling : nullptr;
    if (second && std::less<>()(second, first)) std::swap(first, second);
    first_ = std::unique_lock(first->lock);
    if (second) second_ = std::unique_lock(second->lock);
  }

 private:
  std::unique_lock<std::mutex> first_, second_;
};

std::shared_ptr<MemberList> CopyOfMembers(const CertStore& collection) {
  return collection.members ? std::make_shared<MemberList>(*collection.members)
                            : std::make_shared<MemberList>();
}

auto FindMember(const MemberList& members, const CertStore& store) {
  return std::find_if(members.begin(), members.end(),
                      [&](const auto& each) { return each->store.get() == &store; });
}

bool AddMember(MemberList& members, CertStore& store, DWORD updateFlags, DWORD priority) {
  if (FindMember(members, store) != members.end()) return Fault(ERROR_CALL_NOT_IMPLEMENTED);
  const auto place = std::find_if(members.begin(), members.end(),
                                  [priority](const auto& each) { return each->priority < priority; });
  auto member = std::make_shared<CollectionMember>();
  member->updateFlags = updateFlags;
  member->priority = priority;
  const auto entered = members.insert(place, std::move(member));
  AddStoreHandle(store);
  (*entered)->store.reset(&store);
  return true;
}

// Those in front of one that is there already have been added all the same.
bool AddEach(MemberList& members, const CertStore& sibling, DWORD updateFlags, DWORD priority) {
  if (!sibling.members) return true;
  return std::ranges::all_of(*sibling.members, [&](const auto& each) {
    return AddMember(members, *each->store.get(), updateFlags, priority);
  });
}

void RemoveMember(MemberList& members, const CertStore& store) {
  const auto place = FindMember(members, store);
  if (place != members.end()) members.erase(place);
}

}  // namespace

bool AddStoreToCollection(CertStore& collection, CertStore& sibling, DWORD updateFlags, DWORD priority) {
  if (updateFlags > CERT_PHYSICAL_STORE_ADD_ENABLE_FLAG) return Fault(ERROR_INVALID_PARAMETER);
  if (!IsCollection(collection)) return Fault(E_INVALIDARG);
  if (&collection == &sibling) return true;
  // before the lock, so that what leaves is closed behind it
  std::shared_ptr<MemberList> members;
  std::shared_ptr<const MemberList> old;
  const PairLock guard(collection, sibling);
  members = CopyOfMembers(collection);
  const bool added = IsCollection(sibling) ? AddEach(*members, sibling, updateFlags, priority)
                                           : AddMember(*members, sibling, updateFlags, priority);
  old = std::exchange(collection.members, members);
  return added;
}

bool RemoveStoreFromCollection(CertStore& collection, CertStore& sibling) {
  if (!IsCollection(collection)) return Fault(E_INVALIDARG);
  if (&collection == &sibling) return true;
  std::shared_ptr<MemberList> members;
  std::shared_ptr<const MemberList> old;
  const PairLock guard(collection, sibling);
  members = CopyOfMembers(collection);
  if (!IsCollection(sibling)) {
    RemoveMember(*members, sibling);
  } else if (sibling.members) {
    for (const auto& each : *sibling.members) RemoveMember(*members, *each->store.get());
  }
  old = std::exchange(collection.members, members);
  return true;
}

}  // namespace certkern
