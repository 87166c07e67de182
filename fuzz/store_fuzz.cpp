// Any bytes as a serialized store: what is read is written in no more bytes than it was read from, into exactly the room
// that was asked for, and that reads as the same store again.
#include <certkern/keykern.h>
#include <certkern/store.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "platform/owner.h"

namespace {

using Store = certkern::Owner<HCERTSTORE, CertCloseStore>;

void Require(bool condition) {
  if (!condition) std::abort();
}

Store Open(const void* data, size_t size) {
  const CRYPT_DATA_BLOB blob{static_cast<DWORD>(size), static_cast<BYTE*>(const_cast<void*>(data))};
  return Store(CertOpenStore(CERT_STORE_PROV_SERIALIZED, 0, 0, CERT_STORE_ENUM_ARCHIVED_FLAG, &blob));
}

std::vector<BYTE> Save(const Store& store) {
  CRYPT_DATA_BLOB blob{};
  Require(CertSaveStore(store.get(), 0, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_MEMORY, &blob, 0));
  const auto room = std::make_unique<BYTE[]>(blob.cbData);
  blob.pbData = room.get();
  Require(CertSaveStore(store.get(), 0, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_MEMORY, &blob, 0));
  return {room.get(), room.get() + blob.cbData};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto exact = std::make_unique<BYTE[]>(size);  // so that the sanitizer sees the first byte too many
  std::copy(data, data + size, exact.get());
  static_cast<void>(CertAddSerializedElementToStore(nullptr, exact.get(), static_cast<DWORD>(size),
                                                    CERT_STORE_ADD_ALWAYS, 0, CERT_STORE_ALL_CONTEXT_FLAG,
                                                    nullptr, nullptr));
  const Store store = Open(exact.get(), size);
  if (!store) return 0;
  const std::vector<BYTE> written = Save(store);
  Require(written.size() <= size);
  const Store again = Open(written.data(), written.size());
  Require(again && Save(again) == written);
  return 0;
}
