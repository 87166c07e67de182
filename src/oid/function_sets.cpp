#include "oid/function_sets.h"

#include <certkern/errors.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <string_view>

#include "ber/read_cursor.h"
#include "oid/built_in_functions.h"
#include "platform/never_destroyed.h"

namespace certkern {
namespace {

constexpr ULONG_PTR kHandleMark = 3;  // in the two low bits, which an address leaves free
constexpr ULONG_PTR kFirstText = 0x10000;

// Hooks that other functions of the platform serve, and that a set of functions must not seem to reach.
constexpr std::string_view kReservedPrefixes[] = {"CertDll", "CryptDll", "CryptCNG", "CryptSIP"};

constinit NeverDestroyed<FunctionSets> processSets;

ULONG_PTR Value(const void* pointer) { return reinterpret_cast<ULONG_PTR>(pointer); }

void* HandleOf(const void* address) {
  return reinterpret_cast<void*>(Value(address)
                                 ^ kHandleMark);  // NOLINT(performance-no-int-to-ptr): a handle
}

bool IsReserved(std::string_view name) {
  return name != CRYPT_OID_VERIFY_CERTIFICATE_CHAIN_POLICY_FUNC
      && std::ranges::any_of(kReservedPrefixes,
                             [&](std::string_view prefix) { return name.starts_with(prefix); });
}

std::optional<FoundFunction> NotFound(DWORD code) {
  SetLastError(code);
  return std::nullopt;
}

template <class Iterator>
std::optional<FoundFunction> FirstServing(Iterator first, Iterator last, DWORD encodingType, LPCSTR oid) {
  const auto found = std::find_if(first, last, [&](const FunctionEntry& entry) {
    return entry.serves(encodingType) && entry.key.is(oid);
  });
  if (found == last) return NotFound(ERROR_FILE_NOT_FOUND);
  return FoundFunction{found->function, HandleOf(found->key.address())};
}

}  // namespace

OidKey::OidKey(LPCSTR given) : oid_(Value(given)) {
  if (oid_ >= kFirstText) text_ = given;
}

bool OidKey::is(LPCSTR wanted) const {
  if (Value(wanted) < kFirstText) return oid_ == Value(wanted);
  return oid_ >= kFirstText && text_ == wanted;
}

bool IsOidHandle(const void* handle) {
  return (Value(handle) & kHandleMark) == kHandleMark && Value(handle) != kHandleMark;
}

FunctionSets::Set& FunctionSets::setOf(std::list<Set>& sets, LPCSTR name) {
  const auto found = std::ranges::find(sets, std::string_view(name), &Set::name);
  return found != sets.end() ? *found : sets.emplace_back(name);
}

// Whole or not at all: what was half made goes, and the next call tries again.
bool FunctionSets::registerBuiltIn() try {
  if (registered_) return true;
  std::list<Set> sets;
  for (const BuiltInFunction& row : builtIn_) {
    Set& set = setOf(sets, row.set);
    if (row.function) set.entries.emplace_back(row.oid, 0, row.function);
  }
  sets_.splice(sets_.end(), sets);
  registered_ = true;
  return true;
} catch (const std::bad_alloc&) {
  return Fault(ERROR_DLL_INIT_FAILED);
}

// Under the lock.
FunctionSets::Set* FunctionSets::openSet(LPCSTR name) {
  if (!name || IsReserved(name)) {
    SetLastError(name ? ERROR_CALL_NOT_IMPLEMENTED : ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  return registerBuiltIn() ? &setOf(sets_, name) : nullptr;
}

HCRYPTOIDFUNCSET FunctionSets::findOrMake(LPCSTR name) try {
  const std::unique_lock guard(lock_);
  const Set* set = openSet(name);
  return set ? HandleOf(&set->entries) : nullptr;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

bool FunctionSets::install(LPCSTR name, DWORD encodingType, std::span<const CRYPT_OID_FUNC_ENTRY> entries,
                           Place place) try {
  Entries made;
  for (const CRYPT_OID_FUNC_ENTRY& entry : entries) {
    made.emplace(place == Place::InFront ? made.begin() : made.end(), entry.pszOID, encodingType,
                 entry.pvFuncAddr);
  }
  const std::unique_lock guard(lock_);
  Set* set = openSet(name);
  if (!set) return false;
  set->entries.splice(place == Place::InFront ? set->entries.begin() : set->entries.end(), made);
  return true;
} catch (const std::bad_alloc&) {
  return Fault(ERROR_NOT_ENOUGH_MEMORY);
}

// A handle is good if one of the sets has it: the few that a process makes are walked faster than a wrong guess is
// explained.
const FunctionSets::Entries* FunctionSets::entriesOf(HCRYPTOIDFUNCSET handle) const {
  const auto found =
      std::ranges::find_if(sets_, [&](const Set& set) { return HandleOf(&set.entries) == handle; });
  return found != sets_.end() ? &found->entries : nullptr;
}

std::optional<FoundFunction> FunctionSets::find(HCRYPTOIDFUNCSET set, DWORD encodingType, LPCSTR oid) const {
  const std::shared_lock guard(lock_);
  const Entries* entries = entriesOf(set);
  if (!entries) return NotFound(ERROR_INVALID_PARAMETER);
  return FirstServing(entries->begin(), entries->end(), encodingType, oid);
}

std::optional<FoundFunction> FunctionSets::findDefault(HCRYPTOIDFUNCSET set, DWORD encodingType,
                                                       HCRYPTOIDFUNCADDR behind) const {
  const std::shared_lock guard(lock_);
  const Entries* entries = entriesOf(set);
  if (!entries) return NotFound(ERROR_INVALID_PARAMETER);
  auto first = entries->begin();
  if (behind) {
    first = std::ranges::find_if(
        *entries, [&](const FunctionEntry& entry) { return HandleOf(entry.key.address()) == behind; });
    if (first != entries->end()) ++first;
  }
  return FirstServing(first, entries->end(), encodingType, CRYPT_DEFAULT_OID);
}

void FunctionSets::clear() {
  const std::unique_lock guard(lock_);
  sets_.clear();
  registered_ = false;
}

FunctionSets* ProcessFunctionSets() { return processSets.get(); }
void OpenFunctionSets() { processSets.create(BuiltInFunctions()); }

// A thread that is still inside finds empty lists.
void CloseFunctionSets() {
  FunctionSets* const sets = processSets.get();
  processSets.retire();
  if (sets) sets->clear();
}

}  // namespace certkern
