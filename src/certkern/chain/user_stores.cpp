#include "certkern/chain/user_stores.h"

#include <certkern/errors.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>

#include "platform/never_destroyed.h"
#include "store/location.h"
#include "store/persistent_store.h"
#include "store/store_kind.h"

namespace certkern {
namespace {

constexpr DWORD kOpenFlags =
    CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_READONLY_FLAG | CERT_STORE_OPEN_EXISTING_FLAG;

struct OpenedStore {
  StoreOwner store;
  uid_t user;               // where the files lie, and who may read them, depends on him
  std::string missingFile;  // the machine's, when it was not there; a store looks for its files but once
};

// Empty: nothing is missing.
std::string MissingMachineFile(CertStore& store, LPCWSTR name) {
  DWORD settings = 0;
  if (!ReadStoreSettings(name, settings) || !PlaceStore(kOpenFlags, settings).machineBehind) return {};
  return StoreMembers(store).size() > 1 ? std::string()
                                        : SystemStorePath(name, CERT_SYSTEM_STORE_LOCAL_MACHINE);
}

std::shared_ptr<const OpenedStore> OpenAnew(LPCWSTR name) {
  OpenedStore opened{
      StoreOwner(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, kOpenFlags, name)), ::geteuid(), {}};
  if (!opened.store) return nullptr;
  opened.missingFile = MissingMachineFile(*AsStore(opened.store.get()), name);
  return std::make_shared<const OpenedStore>(std::move(opened));
}

// Each file of the store has been looked at, and read again if it has changed.
bool IsUpToDate(const OpenedStore& opened) {
  if (opened.user != ::geteuid()) return false;
  if (!opened.missingFile.empty() && ::access(opened.missingFile.c_str(), F_OK) == 0) return false;
  const StoreMembers members(*AsStore(opened.store.get()));
  for (size_t i = 0; i < members.size(); ++i) {
    if (!members[i].kind->resync(members[i])) return false;
  }
  return true;
}

// No file is looked at under the lock: builds of several threads don't wait for each other.
class SharedStore {
 public:
  StoreOwner get(LPCWSTR name) {
    std::shared_ptr<const OpenedStore> opened = exchange(nullptr, nullptr);
    if (!opened || !IsUpToDate(*opened)) {
      std::shared_ptr<const OpenedStore> fresh = OpenAnew(name);
      // what can't be had for now, say for want of descriptors, is still there
      if (!fresh && GetLastError() != ERROR_FILE_NOT_FOUND) return {};
      opened = exchange(opened, std::move(fresh));
    }
    if (opened) return StoreOwner(CertDuplicateStore(opened->store.get()));
    SetLastError(ERROR_FILE_NOT_FOUND);
    return {};
  }

 private:
  // Puts another in the place of `from` unless somebody else has done so; answers what stands there. Equal: just a look.
  std::shared_ptr<const OpenedStore> exchange(const std::shared_ptr<const OpenedStore>& from,
                                              std::shared_ptr<const OpenedStore> to) {
    const std::lock_guard guard(lock_);
    if (from != to && opened_ == from) std::swap(opened_, to);
    return opened_;
  }

  std::mutex lock_;
  std::shared_ptr<const OpenedStore> opened_;
};

struct SharedStores {
  SharedStore roots;
  SharedStore authorities;
};
constinit NeverDestroyed<SharedStores> sharedStores;  // threads may build chains while the process goes down
constinit std::once_flag made;

}  // namespace

StoreOwner UserStore(UserStoreName name) {
  std::call_once(made, [] { sharedStores.create(); });
  SharedStores& stores = *sharedStores.get();
  return name == UserStoreName::Root ? stores.roots.get(L"Root") : stores.authorities.get(L"CA");
}

}  // namespace certkern
