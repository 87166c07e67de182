#include "stores.h"

#include "subject.h"
#include "text.h"

#include <certkern/errors.h>
#include <fmt/format.h>

#include <algorithm>

namespace certkern::cli {
namespace {

DWORD Location(const StorePlace& place) {
  return place.machine ? CERT_SYSTEM_STORE_LOCAL_MACHINE : CERT_SYSTEM_STORE_CURRENT_USER;
}

[[noreturn]] void ThrowMissing(const StorePlace& place) {
  throw Failure(
      fmt::format("{}: there is no such store; \"certkern store list\" names those that exist, \"certkern "
                  "store add {} FILE\" "
                  "makes it",
                  place.shown(), Escaped(Utf8Of(std::string_view(place.name)))));
}

StoreHandle Open(const StorePlace& place, LPCSTR provider, DWORD flags) {
  const std::wstring name = place.wide();
  StoreHandle store(CertOpenStore(provider, 0, 0, Location(place) | flags, name.c_str()));
  if (store) return store;
  if (GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND) ThrowMissing(place);
  ThrowLastError(place.shown());
}

}  // namespace

std::wstring StorePlace::wide() const { return Wide(name, Escaped(Utf8Of(std::string_view(name)))); }

std::string StorePlace::shown() const {
  return fmt::format("store \"{}\" of the {}", Escaped(Utf8Of(std::string_view(name))),
                     machine ? "machine" : "user");
}

void AddStoreMachineOption(CLI::App& command, StorePlace& place) {
  command.add_flag("--machine", place.machine, "The store that all users of this machine share");
}

void AddStoreOptions(CLI::App& command, StorePlace& place) {
  command.add_option("NAME", place.name, "The store, as MY, CA or Root")->required()->type_name("");
  AddStoreMachineOption(command, place);
}

StoreHandle OpenStoreView(const StorePlace& place) {
  return Open(place, CERT_STORE_PROV_SYSTEM_W, CERT_STORE_OPEN_EXISTING_FLAG | CERT_STORE_READONLY_FLAG);
}

StoreHandle OpenStoreForChange(const StorePlace& place, Missing missing) {
  const DWORD flags = missing == Missing::Fails ? CERT_STORE_OPEN_EXISTING_FLAG : 0;
  return Open(place, CERT_STORE_PROV_SYSTEM_REGISTRY_W, flags);
}

void CommitStore(const StoreHandle& store, const StorePlace& place) {
  if (!CertControlStore(store.get(), 0, CERT_STORE_CTRL_COMMIT, nullptr)) ThrowLastError(place.shown());
}

StoreHandle OpenMemoryStore() {
  StoreHandle store(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
  if (!store) ThrowLastError("memory");
  return store;
}

std::vector<std::string> StoreNames(bool machine) {
  std::vector<std::string> names;
  const auto take = [](const void* name, DWORD, PCERT_SYSTEM_STORE_INFO, void*, void* list) -> BOOL {
    static_cast<std::vector<std::string>*>(list)->push_back(
        Utf8Of(std::wstring_view(static_cast<const WCHAR*>(name))));
    return TRUE;
  };
  const DWORD location = machine ? CERT_SYSTEM_STORE_LOCAL_MACHINE : CERT_SYSTEM_STORE_CURRENT_USER;
  if (!CertEnumSystemStore(location, nullptr, &names, take) && GetLastError() != ERROR_PATH_NOT_FOUND)
    ThrowLastError(machine ? "stores of the machine" : "stores of the user");
  std::sort(names.begin(), names.end());
  return names;
}

void ForEachCertificate(HCERTSTORE store, const std::function<void(PCCERT_CONTEXT)>& visit) {
  for (PCCERT_CONTEXT each = nullptr; (each = CertEnumCertificatesInStore(store, each));) visit(each);
}

void ForEachCrl(HCERTSTORE store, const std::function<void(PCCRL_CONTEXT)>& visit) {
  for (PCCRL_CONTEXT each = nullptr; (each = CertEnumCRLsInStore(store, each));) visit(each);
}

}  // namespace certkern::cli
