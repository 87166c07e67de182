// What stores can be opened, and what kinds of stores differ in: two tables in store_kind.cpp, a row each.
//
// A new kind declares its functions in a header of its own and adds its rows; nothing else knows the kinds apart.
#ifndef CERTKERN_STORE_STORE_KIND_H
#define CERTKERN_STORE_STORE_KIND_H

#include <certkern/store.h>

#include <cstdint>
#include <span>

#include "store/store_record.h"

namespace certkern {

// A provider is named by a number in the place of a text.
inline uintptr_t StoreNumber(LPCSTR provider) { return reinterpret_cast<uintptr_t>(provider); }

// The arguments of CertOpenStore.
struct OpenRequest {
  uintptr_t provider;  // CERT_STORE_PROV_... as a number
  DWORD encoding;
  HCRYPTPROV cryptProvider;
  DWORD flags;
  const void* parameter;
};

// How CertOpenStore begins. An entry is found by its number; there are no others.
struct StoreProvider {
  uintptr_t number;
  const char* name;
  // Answers the new store's first handle, or an empty one with a code. Most are OpenPlainStore.
  StoreHandle (*open)(const OpenRequest& request);
};

// AtClose writes what there is to write, and has nothing to say where nothing is; OnRequest fails with
// ERROR_CALL_NOT_IMPLEMENTED for a store that is not written.
enum class CommitTime { AtClose, OnRequest };

// A kind of store with contents of its own, or the collection. Every function may be null: there is nothing to do, or,
// where somebody asks for it expressly, ERROR_CALL_NOT_IMPLEMENTED.
struct StoreKind {
  const char* name;
  DWORD number;         // the provider that the kind goes by
  bool needsParameter;  // pvPara must not be NULL
  bool mayAutoResync;
  // Fills a new store, which has its provider, flags and encoding and one handle; nobody else sees it yet. False with a
  // code; what it has put into `file` and `fileMutex` is then released by `release`. With CERT_STORE_DELETE_FLAG it
  // removes what it would have opened, leaves the store empty, and sets the last error that the caller is to find.
  bool (*load)(CertStore& store, const void* parameter);
  // Called without locks.
  bool (*commit)(CertStore& store, CommitTime time);
  bool (*resync)(CertStore& store);
  // Closes `file` and `fileMutex` as far as they are open. A failed open of a stream that is the caller's must have
  // taken it out of `file` before.
  void (*release)(CertStore& store) noexcept;
};

std::span<const StoreProvider> StoreProviders();
std::span<const StoreKind> StoreKinds();
// Null for a number that no row has.
const StoreKind* FindStoreKind(uintptr_t number);

// CertOpenStore.
StoreHandle OpenStore(const OpenRequest& request);
// A store of the kind that request.provider names. A provider that the caller gave is the store's only on success.
StoreHandle OpenPlainStore(const OpenRequest& request);
// An empty memory store, for work inside the library.
StoreHandle OpenMemoryStore(DWORD flags);

// What CERT_STORE_CTRL_RESYNC does: the store, or each member of a collection, takes over what its file holds by now. True
// when any could, or there is no member; else false with a code, ERROR_CALL_NOT_IMPLEMENTED for kinds without a file of
// their own. A file that is provably unchanged costs three system calls, and is neither locked nor read.
bool ResyncStore(CertStore& store);

// CertControlStore, on each member.
bool ControlStore(CertStore& store, DWORD flags, DWORD control, const void* parameter);

}  // namespace certkern

#endif
