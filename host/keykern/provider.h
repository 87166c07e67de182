// Providers: what CryptAcquireContext opens.
#ifndef CERTKERN_KEYKERN_PROVIDER_H
#define CERTKERN_KEYKERN_PROVIDER_H

#include "keykern/handle_table.h"

#include <certkern/keykern.h>

#include <atomic>
#include <span>
#include <string_view>

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

class Provider final : public HandleObject {
 public:
  static constexpr Kind kKind = Kind::Provider;
  explicit Provider(const ProviderRow& row) : row_(row) {}

  const ProviderRow& row() const { return row_; }
  // How far an enumeration of the algorithms has come; one for the handle, as published.
  std::atomic<uint32_t>& enumeration() { return enumeration_; }

 private:
  const ProviderRow& row_;
  std::atomic<uint32_t> enumeration_{0};
};

}  // namespace keykern

#endif
