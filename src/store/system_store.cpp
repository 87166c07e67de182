#include "store/system_store.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include "ber/read_cursor.h"
#include "oid/provider_search.h"
#include "platform/text_conversion.h"
#include "store/element_addition.h"
#include "store/location.h"

namespace certkern {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// The same open with a wide name.
StoreHandle WithWideName(const OpenRequest& request, LPCSTR provider,
                         StoreHandle (*open)(const OpenRequest& request)) {
  if (!request.parameter) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  const WideText name = WideFromBytes(static_cast<LPCSTR>(request.parameter), CP_UTF8);
  if (!name) return {};
  OpenRequest wide = request;
  wide.provider = StoreNumber(provider);
  wide.parameter = name.get();
  return open(wide);
}

// The arguments of an open are right, and its settings are known; false with a code.
bool SettingsFor(const OpenRequest& request, DWORD& settings) {
  if (!request.parameter) return Fault(ERROR_INVALID_PARAMETER);
  return ReadStoreSettings(static_cast<LPCWSTR>(request.parameter), settings);
}

// The file of one location.
StoreHandle OpenFile(const OpenRequest& request, const StorePlacement& placement, DWORD settings) {
  OpenRequest file = request;
  file.provider = StoreNumber(CERT_STORE_PROV_SYSTEM_REGISTRY_W);
  file.flags = (request.flags & ~CERT_SYSTEM_STORE_LOCATION_MASK) | placement.location;
  if (settings & kStoreMayBeCreated) file.flags &= ~CERT_STORE_OPEN_EXISTING_FLAG;
  return OpenPlainStore(file);
}

// The machine's store behind the user's, to be read; none is no failure. Where there is no file it stays empty for as long as
// it is open. It has a reference of its own on a provider that the caller gave away.
StoreHandle OpenMachineStore(const OpenRequest& request, DWORD settings) {
  const LastErrorKeeper keeper;
  OpenRequest machine = request;
  machine.flags |= CERT_STORE_READONLY_FLAG;
  ProviderHandle reference;
  if (request.cryptProvider && !(request.flags & CERT_STORE_NO_CRYPT_RELEASE_FLAG)) {
    if (!CryptContextAddRef(request.cryptProvider, nullptr, 0)) return {};
    reference.reset(request.cryptProvider);
  }
  StoreHandle store = OpenFile(machine, {CERT_SYSTEM_STORE_LOCAL_MACHINE, false}, settings);
  if (store) static_cast<void>(reference.release());
  return store;
}

// A store that the caller has just made must show nothing else, and where one is removed nothing is opened.
bool WantsMachineStore(const OpenRequest& request, const StorePlacement& placement) {
  return placement.machineBehind && !(request.flags & (CERT_STORE_CREATE_NEW_FLAG | CERT_STORE_DELETE_FLAG));
}

}  // namespace

// The user's store takes over the caller's provider, so it is opened last: nothing can fail behind it.
StoreHandle OpenSystemStoreW(const OpenRequest& request) {
  DWORD settings = 0;
  if (!SettingsFor(request, settings)) return {};
  const StorePlacement placement = PlaceStore(request.flags, settings);
  StoreHandle collection =
      NewStore(*FindStoreKind(StoreNumber(CERT_STORE_PROV_COLLECTION)), request.encoding, request.flags);
  const auto members = std::make_shared<MemberList>();
  members->push_back(std::make_shared<CollectionMember>());
  if (WantsMachineStore(request, placement)) {
    auto machine = std::make_shared<CollectionMember>();
    machine->store = OpenMachineStore(request, settings);
    if (machine->store) members->push_back(std::move(machine));
  }
  CollectionMember& own = *members->front();
  own.store = OpenFile(request, placement, settings);
  if (!own.store) return {};
  own.updateFlags = own.store->has(CERT_STORE_READONLY_FLAG) ? 0 : CERT_PHYSICAL_STORE_ADD_ENABLE_FLAG;
  collection->members = members;
  return collection;
}

StoreHandle OpenSystemStoreA(const OpenRequest& request) {
  return WithWideName(request, CERT_STORE_PROV_SYSTEM_W, OpenSystemStoreW);
}

StoreHandle OpenRegistryStoreW(const OpenRequest& request) {
  DWORD settings = 0;
  if (!SettingsFor(request, settings)) return {};
  StorePlacement placement;
  placement.location = PlaceStore(request.flags, settings).location;
  return OpenFile(request, placement, settings);
}

StoreHandle OpenRegistryStoreA(const OpenRequest& request) {
  return WithWideName(request, CERT_STORE_PROV_SYSTEM_REGISTRY_W, OpenRegistryStoreW);
}

StoreHandle OpenUserStore(LPCSTR provider, HCRYPTPROV cryptProvider, const void* name) {
  return OpenStore({StoreNumber(provider), kEncoding, cryptProvider, CERT_SYSTEM_STORE_CURRENT_USER, name});
}

bool AddToUserStore(LPCSTR provider, const void* name, std::span<const BYTE> encoded) {
  StoreHandle store = OpenUserStore(provider, 0, name);
  if (!store) return false;
  if (encoded.empty()) return Fault(E_INVALIDARG);
  {
    const ContextOwner context(CreateContext(ElementType::Certificate, X509_ASN_ENCODING, encoded));
    if (!context || !AddContext(store.get(), *context.get(), CERT_STORE_ADD_USE_EXISTING, nullptr))
      return false;
  }
  return CloseStore(store.release(), 0);
}

}  // namespace certkern
