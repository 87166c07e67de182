// Bytes from a server as the object that a caller asked for.
#ifndef CERTKERN_URL_RETRIEVED_OBJECT_H
#define CERTKERN_URL_RETRIEVED_OBJECT_H

#include <certkern/url.h>

#include <cstdint>
#include <optional>
#include <span>

#include "store/context_record.h"
#include "store/store_record.h"

namespace certkern {

// What is asked for, by the number in the place of the type.
struct ObjectKind {
  uintptr_t number;                    // CONTEXT_OID_...
  std::optional<ElementType> context;  // a single certificate or CRL; nothing: raw bytes or a signed message
  bool cacheable;
  bool isMessage;
  size_t sizeLimit;  // bytes of a download; 0: the configured limit alone
};
// Null for what is not served.
const ObjectKind* FindObjectKind(LPCSTR objectType);

// One of three things, and an owner of it.
struct RetrievedObject {
  ContextOwner context;
  StoreHandle store;
  MallocOwner<CRYPT_BLOB_ARRAY> raw;

  [[nodiscard]] void* release();
};

// A memory store with the context in it.
StoreHandle StoreOfOne(ContextRecord& context);

// Throws RetrieveObjectException: E_INVALIDARG for no bytes; the code of what could not be made.
RetrievedObject ProcessNetworkData(const ObjectKind& kind, bool multiple, std::span<const BYTE> bytes);

}  // namespace certkern

#endif
