// Named sets of functions, by which a program plugs its own chain policies and URL schemes into the library. Handles are
// addresses of sets and entries, which therefore never move and are not taken out before the process ends. A handle of
// a set is looked up before it is followed, so that a made-up one is told apart.
#ifndef CERTKERN_OID_FUNCTION_SETS_H
#define CERTKERN_OID_FUNCTION_SETS_H

#include <certkern/oid.h>

#include <list>
#include <optional>
#include <shared_mutex>
#include <span>
#include <string>

namespace certkern {

// Text or number as callers give it: a pointer, or a value below 0x10000.
class OidKey {
 public:
  explicit OidKey(LPCSTR given);
  bool is(LPCSTR wanted) const;
  const void* address() const { return &oid_; }

 private:
  std::string text_;
  ULONG_PTR oid_;  // the number; of a text only that it is none
};

struct FunctionEntry {
  FunctionEntry(LPCSTR oid, DWORD type, void* address) : key(oid), encodingType(type), function(address) {}
  // An entry without a type serves those who name none; any other serves whoever names one of its bits.
  bool serves(DWORD wanted) const { return wanted ? (encodingType & wanted) != 0 : encodingType == 0; }

  OidKey key;
  DWORD encodingType;
  void* function;
};

// A row of what the library brings along. Without a function it makes the set alone.
struct BuiltInFunction {
  LPCSTR set;
  LPCSTR oid;
  void* function;
};

struct FoundFunction {
  void* function;
  HCRYPTOIDFUNCADDR handle;
};

// Failures have set the last error. Any thread may call anything at any time.
class FunctionSets {
 public:
  enum class Place { AtEnd, InFront };

  // The rows come in with the first set that somebody asks for: a program that never does pays nothing.
  explicit FunctionSets(std::span<const BuiltInFunction> builtIn) : builtIn_(builtIn) {}

  [[nodiscard]] HCRYPTOIDFUNCSET findOrMake(LPCSTR name);
  // All entries or none. In front, each goes before the one ahead of it in the array: the last is found first.
  [[nodiscard]] bool install(LPCSTR name, DWORD encodingType, std::span<const CRYPT_OID_FUNC_ENTRY> entries,
                             Place place);
  [[nodiscard]] std::optional<FoundFunction> find(HCRYPTOIDFUNCSET set, DWORD encodingType, LPCSTR oid) const;
  // Null begins a walk; the handle of an entry continues behind it.
  [[nodiscard]] std::optional<FoundFunction> findDefault(HCRYPTOIDFUNCSET set, DWORD encodingType,
                                                         HCRYPTOIDFUNCADDR behind) const;
  // At exit: handles that are still out there become bad ones.
  void clear();

 private:
  using Entries = std::list<FunctionEntry>;
  struct Set {
    explicit Set(LPCSTR given) : name(given) {}
    std::string name;
    Entries entries;
  };

  Set* openSet(LPCSTR name);
  bool registerBuiltIn();
  static Set& setOf(std::list<Set>& sets, LPCSTR name);
  const Entries* entriesOf(HCRYPTOIDFUNCSET handle) const;

  mutable std::shared_mutex lock_;
  std::list<Set> sets_;
  const std::span<const BuiltInFunction> builtIn_;
  bool registered_ = false;
};

// What the form of a handle tells, without following it.
bool IsOidHandle(const void* handle);

// The sets of the process. They come and go with the library; null outside its life.
FunctionSets* ProcessFunctionSets();
void OpenFunctionSets();
void CloseFunctionSets();

}  // namespace certkern

#endif
