// Where system stores live, what an administrator has said about each, and which there are.
#ifndef CERTKERN_STORE_LOCATION_H
#define CERTKERN_STORE_LOCATION_H

#include <certkern/store.h>

namespace certkern {

// Settings of one store, \config\Certkern\Stores\<name>\settings; the values are those of the configuration.
inline constexpr DWORD kStoreMachineOnly = 1;     // it lives in the machine's location only
inline constexpr DWORD kStoreNoMachineStore = 2;  // the user's stands alone
inline constexpr DWORD kStoreMayBeCreated = 4;    // also by an open of an existing one

// A store without settings has 0, "Root" and "CA" have kStoreMayBeCreated. False with the code of the conversion for a
// name that is no text.
[[nodiscard]] bool ReadStoreSettings(LPCWSTR name, DWORD& settings);

// How a name and a location become stores: the location that counts, and whether the machine's store stands behind it.
struct StorePlacement {
  DWORD location = 0;  // within CERT_SYSTEM_STORE_LOCATION_MASK; may be 0, which is the user's
  bool machineBehind = false;
};
StorePlacement PlaceStore(DWORD flags, DWORD settings);

// The enumerations. False with a code, which is 0 when the callback of EnumerateSystemStores stopped the walk.
[[nodiscard]] bool EnumerateLocations(void* argument, PFN_CERT_ENUM_SYSTEM_STORE_LOCATION callback);
[[nodiscard]] bool EnumerateSystemStores(DWORD flags, void* argument, PFN_CERT_ENUM_SYSTEM_STORE callback);
[[nodiscard]] bool EnumeratePhysicalStores(LPCWSTR name, DWORD flags, void* argument,
                                           PFN_CERT_ENUM_PHYSICAL_STORE callback);

}  // namespace certkern

#endif
