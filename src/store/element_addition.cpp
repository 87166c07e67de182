#include "store/element_addition.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <array>
#include <cwctype>
#include <iterator>
#include <string_view>
#include <vector>

#include "ber/read_cursor.h"
#include "store/context_property.h"
#include "store/existing_element.h"
#include "store/root_confirmation.h"
#include "store/store_kind.h"

namespace certkern {

constinit std::atomic<RootConfirmation> confirmRootAdd{ConfirmRootAdd};

namespace {

struct Addition {
  ContextRecord& source;
  ElementForm form;
  ContextRecord** out;                   // null: no context is wanted
  const CertStore* confirmed = nullptr;  // the store for which the user has said yes already
  bool inherits = false;                 // the object is there, and only gets properties
};

enum class Outcome { Done, Existing, NotThere, Failed };

// --- whether a store takes an object ---

bool IsUserRoot(const CertStore& store) {
  constexpr std::wstring_view kRoot = L"root";
  if ((store.flags & CERT_SYSTEM_STORE_LOCATION_MASK) == CERT_SYSTEM_STORE_LOCAL_MACHINE) return false;
  return std::ranges::equal(store.name, kRoot, [](wchar_t a, wchar_t b) {
    return static_cast<wchar_t>(std::towlower(static_cast<wint_t>(a))) == b;
  });
}

bool NeedsConfirmation(const CertStore& store, const Addition& addition) {
  return addition.form == ElementForm::Copy && addition.source.element().type == ElementType::Certificate
      && addition.confirmed != &store && IsUserRoot(store);
}

// The user is asked without a lock, and before anything is changed: a refusal loses nothing.
bool Confirm(const CertStore& store, const Addition& addition) {
  if (!NeedsConfirmation(store, addition)) return true;
  const RootConfirmation ask = confirmRootAdd.load();
  return (ask && ask(addition.source.asCertificate())) || Fault(ERROR_CANCELLED);
}

bool IsWritable(const CertStore& store) {
  return !store.has(CERT_STORE_READONLY_FLAG) || Fault(E_ACCESSDENIED);
}

// --- one element into one list ---

// All that can fail is done before a list is touched.
class Newcomer {
 public:
  [[nodiscard]] bool make(CertStore& store, const Addition& addition) {
    element_ = NewElementLike(addition.source.element(), &store, addition.form);
    if (!element_) return false;
    if (addition.out) context_.reset(AcquireContext(*element_.get()));
    return !addition.out || context_;
  }
  // Where an old one is in the file, whoever takes that out there takes this one out: it is the same object. The caller holds
  // the store's lock, also for the next.
  void inherit(const StoreElement& old) { element_->isHeir |= old.isFiled || old.isHeir; }
  void enter(CertStore& store, const Addition& addition) {
    LinkElement(store, std::move(element_));
    store.dirty = true;
    if (addition.out) *addition.out = context_.release();
  }

 private:
  ElementOwner element_;
  ContextOwner context_;  // behind the element, so that it goes first
};

Outcome AddAlways(CertStore& store, const Addition& addition) {
  if (!Confirm(store, addition)) return Outcome::Failed;
  if (addition.form == ElementForm::Copy && !IsWritable(store)) return Outcome::Failed;
  Newcomer newcomer;
  if (!newcomer.make(store, addition)) return Outcome::Failed;
  const std::lock_guard guard(store.lock);
  newcomer.enter(store, addition);
  return Outcome::Done;
}

// An element that can't be decoded ends the search in its store as if it were the last: else one damaged list would keep
// every other from being added. Lack of memory says nothing about what is there.
Found FindExistingOrEnd(CertStore& store, const ContextRecord& wanted, const StoreElement* previous,
                        StoreElement*& existing) {
  const Found found = FindExisting(store, wanted, previous, existing);
  return found == Found::Failed && GetLastError() != ERROR_NOT_ENOUGH_MEMORY ? Found::No : found;
}

Outcome LookWithLock(CertStore& store, const ContextRecord& wanted, ContextOwner& existing) {
  StoreElement* element = nullptr;
  const Found found = FindExistingOrEnd(store, wanted, nullptr, element);
  if (found == Found::No) return Outcome::NotThere;
  if (found == Found::Failed) return Outcome::Failed;
  existing.reset(AcquireContext(*element));
  return existing ? Outcome::Existing : Outcome::Failed;
}

Outcome Look(CertStore& store, const ContextRecord& wanted, ContextOwner& existing) {
  const std::lock_guard guard(store.lock);
  return LookWithLock(store, wanted, existing);
}

// Look and entry under one lock: of two threads that add the same object one finds the other's.
Outcome AddUnlessThere(CertStore& store, const Addition& addition, ContextOwner& existing) {
  if (NeedsConfirmation(store, addition)) {
    const Outcome there = Look(store, addition.source, existing);
    if (there != Outcome::NotThere) return there;
    if (!Confirm(store, addition)) return Outcome::Failed;
  }
  Newcomer newcomer;
  if (!newcomer.make(store, addition)) return Outcome::Failed;
  const std::lock_guard guard(store.lock);
  const Outcome there = LookWithLock(store, addition.source, existing);
  if (there != Outcome::NotThere) return there;
  if (addition.form == ElementForm::Copy && !IsWritable(store)) return Outcome::Failed;
  newcomer.enter(store, addition);
  return Outcome::Done;
}

// The object itself counts as well where it stands in this very store, archived or not.
bool FindAllExisting(CertStore& store, ContextRecord& wanted, std::vector<StoreElement*>& all) {
  StoreElement* element = nullptr;
  Found found;
  while ((found = FindExistingOrEnd(store, wanted, element, element)) == Found::Yes) all.push_back(element);
  StoreElement& own = wanted.element();
  if (own.store == &store && own.linked && std::find(all.begin(), all.end(), &own) == all.end()) {
    all.push_back(&own);
  }
  return found == Found::No;
}

Outcome ReplaceIn(CertStore& store, const Addition& addition) {
  std::vector<StoreElement*> old;
  {
    const std::lock_guard guard(store.lock);
    if (!FindAllExisting(store, addition.source, old)) return Outcome::Failed;
  }
  if (old.empty()) return Outcome::NotThere;
  if (!Confirm(store, addition) || !IsWritable(store)) return Outcome::Failed;
  Newcomer newcomer;
  if (!newcomer.make(store, addition)) return Outcome::Failed;
  std::vector<ElementOwner> leaving;  // freed without the lock
  const std::lock_guard guard(store.lock);
  old.clear();  // others may have come and gone meanwhile
  if (!FindAllExisting(store, addition.source, old)) return Outcome::Failed;
  leaving.reserve(old.size());
  for (StoreElement* each : old) {
    if (addition.inherits) newcomer.inherit(*each);
    leaving.push_back(UnlinkElement(store, *each));
  }
  newcomer.enter(store, addition);
  return Outcome::Done;
}

// --- a handle may be a collection ---

// The first member that takes additions and succeeds is enough; the last one's failure is everybody's.
template <class Add>
Outcome AddToFirst(const StoreMembers& members, Add add) {
  bool any = false;
  for (size_t i = 0; i < members.size(); ++i) {
    if (members.updateFlags(i) != CERT_PHYSICAL_STORE_ADD_ENABLE_FLAG) continue;
    any = true;
    const Outcome outcome = add(members[i]);
    if (outcome != Outcome::Failed) return outcome;
  }
  if (!any) SetLastError(E_ACCESSDENIED);
  return Outcome::Failed;
}

Outcome AddAlwaysAnywhere(const StoreMembers& members, const Addition& addition) {
  return AddToFirst(members, [&](CertStore& member) { return AddAlways(member, addition); });
}

Outcome AddUnlessAnywhere(const StoreMembers& members, const Addition& addition, ContextOwner& existing) {
  for (size_t i = 0; members.size() > 1 && i < members.size(); ++i) {
    const Outcome there = Look(members[i], addition.source, existing);
    if (there == Outcome::Existing) return there;  // a member that can't be searched is passed over
  }
  return AddToFirst(members, [&](CertStore& member) { return AddUnlessThere(member, addition, existing); });
}

Outcome ReplaceAnywhere(const StoreMembers& members, const Addition& addition) {
  for (size_t i = 0; i < members.size(); ++i) {
    const Outcome outcome = ReplaceIn(members[i], addition);
    if (outcome != Outcome::NotThere) return outcome;
  }
  return AddAlwaysAnywhere(members, addition);
}

// --- dispositions ---

const FILETIME& IssuedAt(const ContextRecord& context) {
  return context.element().type == ElementType::Certificate ? context.certificate.pCertInfo->NotBefore
                                                            : context.crl.pCrlInfo->ThisUpdate;
}

// What to do when the object is there already, by disposition. `existing` is a context of it.
using OnExisting = Outcome (*)(const StoreMembers& members, const Addition& addition, ContextOwner& existing);

Outcome Refuse(const StoreMembers&, const Addition&, ContextOwner&) {
  SetLastError(CRYPT_E_EXISTS);
  return Outcome::Failed;
}

Outcome Answer(const StoreMembers&, const Addition& addition, ContextOwner& existing) {
  if (addition.out) *addition.out = existing.release();
  return Outcome::Done;
}

// Properties that an object got, until what they came for has failed: then it has what it had.
class AddedProperties {
 public:
  explicit AddedProperties(PropertyBlock& target) : target_(target) {}
  ~AddedProperties() {
    if (!added_) return;
    const PropertyLock guard(target_.lock);
    target_.items = std::move(before_);
    NoteIndexedPropertyChange(CERT_SHA1_HASH_PROP_ID);
  }
  AddedProperties(const AddedProperties&) = delete;
  AddedProperties& operator=(const AddedProperties&) = delete;

  [[nodiscard]] bool add(PropertyBlock& source) {
    {
      const PropertyLock guard(target_.lock);
      if (!target_.items.copyTo(before_)) return false;
    }
    added_ = CopyProperties(source, target_);
    return added_;
  }
  void stay() { added_ = false; }

 private:
  PropertyBlock& target_;
  PropertyList before_;
  bool added_ = false;
};

// The new properties go onto the object that is there, and that one, with all it has now, takes its own place; or nothing
// changes. What may be refused is asked before the first of them.
Outcome Inherit(const StoreMembers& members, const Addition& addition, ContextOwner& existing) {
  StoreElement& element = existing->element();
  CertStore* const store = StoreOf(element);
  const Addition itself{*existing.get(), addition.form, addition.out, store, true};
  if (store && !(Confirm(*store, addition) && IsWritable(*store))) return Outcome::Failed;
  AddedProperties properties(*element.properties);
  if (!properties.add(*addition.source.element().properties)) return Outcome::Failed;
  const Outcome outcome = ReplaceAnywhere(members, itself);
  if (outcome == Outcome::Done) properties.stay();
  return outcome;
}

Outcome ReplaceOlder(const StoreMembers& members, const Addition& addition, ContextOwner& existing) {
  const bool older = CompareFileTime(&IssuedAt(*existing.get()), &IssuedAt(addition.source)) < 0;
  return older ? ReplaceAnywhere(members, addition) : Refuse(members, addition, existing);
}

struct Disposition {
  DWORD number;
  bool replaces;          // without a first look
  OnExisting onExisting;  // null: no look
};
constexpr Disposition kDispositions[] = {
    {CERT_STORE_ADD_NEW,                                 false, Refuse      },
    {CERT_STORE_ADD_USE_EXISTING,                        false, Answer      },
    {CERT_STORE_ADD_REPLACE_EXISTING,                    true,  nullptr     },
    {CERT_STORE_ADD_ALWAYS,                              false, nullptr     },
    {CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES, false, Inherit     },
    {CERT_STORE_ADD_NEWER,                               false, ReplaceOlder},
};
constexpr DWORD kLastLinkDisposition = CERT_STORE_ADD_ALWAYS;

const Disposition* FindDisposition(DWORD number, ElementForm form) {
  if (form == ElementForm::Link && number > kLastLinkDisposition) return nullptr;
  const auto* const row = std::find_if(std::begin(kDispositions), std::end(kDispositions),
                                       [number](const Disposition& each) { return each.number == number; });
  return row != std::end(kDispositions) ? row : nullptr;
}

bool Add(CertStore& store, const Disposition& disposition, const Addition& addition) {
  const StoreMembers members(store);
  if (disposition.replaces) return ReplaceAnywhere(members, addition) == Outcome::Done;
  if (!disposition.onExisting) return AddAlwaysAnywhere(members, addition) == Outcome::Done;
  ContextOwner existing;
  Outcome outcome = AddUnlessAnywhere(members, addition, existing);
  if (outcome == Outcome::Existing) outcome = disposition.onExisting(members, addition, existing);
  return outcome == Outcome::Done;
}

// What a search compares is computed once, at the source, and goes into the store with the copy.
bool ComputeIdentity(ContextRecord& source) {
  StoreElement& element = source.element();
  constexpr std::array kIdentity = {DWORD{CERT_SHA1_HASH_PROP_ID}, DWORD{CERT_KEY_IDENTIFIER_PROP_ID}};
  const size_t count = element.type == ElementType::Certificate ? 2 : 1;
  const PropertyLock guard = LockProperties(source);
  for (const DWORD id : std::span(kIdentity).first(count)) {
    const PropertyItem* const item = FindOrComputeProperty(element, id);
    if (!item || !item->length) return Fault(ERROR_INTERNAL_ERROR);
  }
  return true;
}

}  // namespace

bool AddContext(CertStore* store, ContextRecord& source, DWORD disposition, ContextRecord** out) {
  if (out) *out = nullptr;
  const Disposition* const row = FindDisposition(disposition, ElementForm::Copy);
  if (!row) return Fault(E_INVALIDARG);
  if (!store) {
    if (out) *out = CopyContext(source);
    return !out || *out;
  }
  return ComputeIdentity(source) && Add(*store, *row, {source, ElementForm::Copy, out});
}

bool AddLink(CertStore* store, ContextRecord& source, DWORD disposition, ContextRecord** out) {
  if (out) *out = nullptr;
  if (!store || IsCollection(*store)) return Fault(E_INVALIDARG);
  const Disposition* const row = FindDisposition(disposition, ElementForm::Link);
  return row ? Add(*store, *row, {source, ElementForm::Link, out}) : Fault(E_INVALIDARG);
}

bool DeleteContext(ContextRecord* context) {
  StoreElement& element = context->element();
  CertStore* const store = StoreOf(element);
  if (!store) return true;
  const ContextOwner passed(context);  // keeps the store's record until the end
  ElementOwner listed;
  const std::lock_guard guard(store->lock);
  if (!element.linked) return true;  // somebody else was faster
  if (!IsWritable(*store)) return false;
  store->dirty = true;
  listed = UnlinkElement(*store, element);
  return true;
}

bool AddElementInternally(CertStore& store, const StoreElement& source) {
  ElementOwner element = NewElementLike(source, &store, ElementForm::Copy);
  if (!element) return false;
  const std::lock_guard guard(store.lock);
  LinkElement(store, std::move(element));
  store.dirty = true;
  return true;
}

void DeleteElementInternally(CertStore& store, StoreElement& element) noexcept {
  ElementOwner listed;
  const std::lock_guard guard(store.lock);
  if (!element.linked) return;
  store.dirty = true;
  listed = UnlinkElement(store, element);
}

}  // namespace certkern
