// Providers: what CryptAcquireContext opens.
#ifndef CERTKERN_KEYKERN_PROVIDER_H
#define CERTKERN_KEYKERN_PROVIDER_H

#include "keykern/container/container.h"
#include "keykern/handle_table.h"

#include <certkern/keykern.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace keykern {

// A provider type and its one provider. Types differ in name and defaults only: one engine serves them all.
struct ProviderRow {
  DWORD type;
  std::string_view name;
  std::string_view typeName;
};

std::span<const ProviderRow> ProviderRows();
// Null when there is none.
const ProviderRow* FindProviderType(DWORD type);
const ProviderRow* FindProviderName(std::string_view name);

// How a provider was asked for.
struct ProviderManner {
  Scope scope = Scope::User;
  bool silent = false;
  bool shared = false;  // the process's own: it takes no keys, which all callers would then share
};

class Provider final : public HandleObject {
 public:
  static constexpr Kind kKind = Kind::Provider;
  Provider(const ProviderRow& row, std::unique_ptr<KeySet> keys, ProviderManner manner)
      : row_(row), keys_(std::move(keys)), manner_(manner) {}

  const ProviderRow& row() const { return row_; }
  Scope scope() const { return manner_.scope; }
  KeySet& keySet() const { return *keys_; }
  // As those of the key set; a PIN that is wanted and may not be asked for is NTE_SILENT_CONTEXT.
  DWORD loadKey(DWORD spec, KeyRecord& key) const;
  DWORD storeKey(DWORD spec, const KeyRecord& key) const;

  // How far an enumeration has come; one of each kind for the handle, as published.
  std::atomic<uint32_t>& algorithmPlace() { return algorithmPlace_; }
  // Lists taken when an enumeration begins, so that changes beside it move nothing.
  struct Listing {
    std::mutex mutex;
    std::vector<SecretBytes> items;
    size_t next = 0;
  };
  Listing& containers() { return containers_; }
  Listing& extensions() { return extensions_; }

 private:
  const ProviderRow& row_;
  const std::unique_ptr<KeySet> keys_;
  const ProviderManner manner_;
  std::atomic<uint32_t> algorithmPlace_{0};
  Listing containers_;
  Listing extensions_;
};

}  // namespace keykern

#endif
