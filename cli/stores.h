// Certificate stores by name and location, and walks over what is in them.
#ifndef CERTKERN_CLI_STORES_H
#define CERTKERN_CLI_STORES_H

#include "handles.h"

#include <certkern/find.h>
#include <certkern/store.h>
#include <CLI/App.hpp>

#include <functional>
#include <string>
#include <vector>

namespace certkern::cli {

inline void CloseStore(HCERTSTORE store) { CertCloseStore(store, 0); }
inline void FreeCertificate(PCCERT_CONTEXT context) { CertFreeCertificateContext(context); }
inline void FreeCrl(PCCRL_CONTEXT context) { CertFreeCRLContext(context); }
using StoreHandle = Owner<HCERTSTORE, CloseStore, nullptr>;
using CertificateHandle = Owner<PCCERT_CONTEXT, FreeCertificate, nullptr>;
using CrlHandle = Owner<PCCRL_CONTEXT, FreeCrl, nullptr>;

struct StorePlace {
  std::string name;
  bool machine = false;

  std::wstring wide() const;
  std::string shown() const;  // escaped, with the location
};
// NAME, and --machine.
void AddStoreOptions(CLI::App& command, StorePlace& place);
void AddStoreMachineOption(CLI::App& command, StorePlace& place);

// What programs see: a user's view has the machine's objects, too.
StoreHandle OpenStoreView(const StorePlace& place);
enum class Missing { Fails, IsMade };
// The store of this one location, for changes.
StoreHandle OpenStoreForChange(const StorePlace& place, Missing missing);
// Writes the changes; what can't be written is a failure.
void CommitStore(const StoreHandle& store, const StorePlace& place);
StoreHandle OpenMemoryStore();

// The names of the stores of a location, sorted.
std::vector<std::string> StoreNames(bool machine);

// Every one, the newest first. Whoever wants to keep or delete one duplicates it.
void ForEachCertificate(HCERTSTORE store, const std::function<void(PCCERT_CONTEXT)>& visit);
void ForEachCrl(HCERTSTORE store, const std::function<void(PCCRL_CONTEXT)>& visit);

// Every certificate, then every CRL.
template <typename Visit>
void ForEachObject(HCERTSTORE store, const Visit& visit) {
  ForEachCertificate(store, [&](PCCERT_CONTEXT each) { visit(*each); });
  ForEachCrl(store, [&](PCCRL_CONTEXT each) { visit(*each); });
}

}  // namespace certkern::cli

#endif
