#include "store/store_kind.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <iterator>

#include "ber/read_cursor.h"
#include "store/message_store.h"
#include "store/persistent_store.h"
#include "store/serialized_image.h"
#include "store/system_store.h"

namespace certkern {
namespace {

StoreHandle OpenCollection(const OpenRequest& request) {
  StoreHandle store = NewStore(*FindStoreKind(request.provider), request.encoding, request.flags);
  store->members = std::make_shared<MemberList>();
  return store;
}

constexpr uintptr_t kMessage = 1, kMemory = 2, kStream = 3, kRegistry = 4, kMessageBlob = 5, kSerialized = 6,
                    kNarrowPath = 7, kPath = 8, kNarrowSystem = 9, kSystem = 10, kCollection = 11,
                    kNarrowSystemFile = 12, kSystemFile = 13;
static_assert(kNarrowPath + 1 == kPath, "OpenByNarrowText counts on it");

// By the numbers of CERT_STORE_PROV_....
constexpr StoreProvider kProviders[] = {
    {kMessage,          "message",                  OpenMessageStore  },
    {kMessageBlob,      "encoded message",          OpenPlainStore    },
    {kMemory,           "memory",                   OpenPlainStore    },
    {kStream,           "stream",                   OpenPlainStore    },
    {kRegistry,         "registry",                 OpenPlainStore    },
    {kSerialized,       "serialized",               OpenPlainStore    },
    {kNarrowPath,       "path (narrow)",            OpenByNarrowText  },
    {kPath,             "path",                     OpenPlainStore    },
    {kNarrowSystem,     "system store (narrow)",    OpenSystemStoreA  },
    {kSystem,           "system store",             OpenSystemStoreW  },
    {kCollection,       "collection",               OpenCollection    },
    {kNarrowSystemFile, "system registry (narrow)", OpenRegistryStoreA},
    {kSystemFile,       "system registry",          OpenRegistryStoreW},
};

constexpr StoreKind kKinds[] = {
    {"memory",          kMemory,      false, false, nullptr,            nullptr,           nullptr,           nullptr         },
    {"registry",        kRegistry,    true,  false, nullptr,            nullptr,           nullptr,           nullptr         },
    {"encoded message", kMessageBlob, true,  false, LoadMessageBlob,    nullptr,           nullptr,           nullptr         },
    {"serialized",      kSerialized,  true,  false, LoadSerializedBlob, nullptr,           nullptr,           nullptr         },
    {"stream",          kStream,      true,  false, LoadStreamStore,    CommitFileStore,   nullptr,           ReleaseStoreFile},
    {"path",            kPath,        true,  false, LoadPathStore,      CommitFileStore,   nullptr,           ReleaseStoreFile},
    {"system registry", kSystemFile,  true,  true,  LoadSystemStore,    CommitSystemStore, ResyncSystemStore,
     ReleaseStoreFile                                                                                                         },
    {"collection",      kCollection,  false, true,  nullptr,            nullptr,           nullptr,           nullptr         },
};

// A store that did not come to be: nothing of it is written, and a provider that the caller gave stays the caller's.
void AbandonStore(CertStore* store) noexcept {
  store->flags |= CERT_STORE_READONLY_FLAG;
  static_cast<void>(CloseStore(store, CERT_CLOSE_STORE_FORCE_FLAG));
}
using OpeningStore = Owner<CertStore*, AbandonStore>;

bool ProvideFor(CertStore& store, HCRYPTPROV given) {
  store.provider = given ? given : SVAPI_I_GetDefaultProvider(PROV_GOST_2012_256);
  store.ownsProvider = !given;
  return store.provider != 0;
}

// --- control ---

bool Resynchronise(CertStore& store) {
  return store.kind->resync ? store.kind->resync(store) : Fault(ERROR_CALL_NOT_IMPLEMENTED);
}

bool CommitAll(CertStore& store) {
  const StoreMembers members(store);
  bool all = true;
  for (size_t i = 0; i < members.size(); ++i) {
    const StoreKind& kind = *members[i].kind;
    if (!kind.commit) SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
    all = kind.commit && kind.commit(members[i], CommitTime::OnRequest) && all;
  }
  return all;
}

}  // namespace

std::span<const StoreProvider> StoreProviders() { return kProviders; }
std::span<const StoreKind> StoreKinds() { return kKinds; }

const StoreKind* FindStoreKind(uintptr_t number) {
  const auto* const row = std::find_if(std::begin(kKinds), std::end(kKinds),
                                       [number](const StoreKind& each) { return each.number == number; });
  return row != std::end(kKinds) ? row : nullptr;
}

StoreHandle OpenStore(const OpenRequest& request) {
  const auto* const row =
      std::find_if(std::begin(kProviders), std::end(kProviders),
                   [&](const StoreProvider& each) { return each.number == request.provider; });
  if (row != std::end(kProviders)) return row->open(request);
  SetLastError(ERROR_INVALID_PARAMETER);
  return {};
}

StoreHandle OpenPlainStore(const OpenRequest& request) {
  const StoreKind* const kind = FindStoreKind(request.provider);
  const bool keepsProvider = (request.flags & CERT_STORE_NO_CRYPT_RELEASE_FLAG) != 0;
  if (!kind || (kind->needsParameter && !request.parameter) || (keepsProvider && !request.cryptProvider)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  OpeningStore store(NewStore(*kind, request.encoding, request.flags).release());
  if (!ProvideFor(*store.get(), request.cryptProvider)) return {};
  const bool deletes = (request.flags & CERT_STORE_DELETE_FLAG) != 0;
  if (deletes) SetLastError(ERROR_SUCCESS);
  if (kind->load && !kind->load(*store.get(), request.parameter)) return {};
  if (deletes) return {};
  store->ownsProvider = !keepsProvider;
  return StoreHandle(store.release());
}

StoreHandle OpenMemoryStore(DWORD flags) { return OpenPlainStore({kMemory, 0, 0, flags, nullptr}); }

// One member that could be resynchronised is enough.
bool ResyncStore(CertStore& store) {
  const StoreMembers members(store);
  bool any = members.size() == 0;
  for (size_t i = 0; i < members.size(); ++i) any = Resynchronise(members[i]) || any;
  return any;
}

bool ControlStore(CertStore& store, DWORD flags, DWORD control, const void* parameter) {
  switch (control) {
    case CERT_STORE_CTRL_RESYNC:
      return ResyncStore(store);
    case CERT_STORE_CTRL_COMMIT:
      if (flags || parameter) return Fault(ERROR_INVALID_PARAMETER);
      return CommitAll(store);
    case CERT_STORE_CTRL_AUTO_RESYNC:
      if (!store.kind->mayAutoResync) return Fault(ERROR_CALL_NOT_IMPLEMENTED);
      store.autoResync = true;
      return true;
    default:
      return Fault(ERROR_CALL_NOT_IMPLEMENTED);
  }
}

}  // namespace certkern
