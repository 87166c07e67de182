#include "url/retrieved_object.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

#include "platform/exceptions.h"
#include "platform/limits.h"
#include "platform/sizes.h"
#include "store/element_addition.h"
#include "store/store_kind.h"

namespace certkern {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

constexpr ObjectKind kKinds[] = {
    {0, std::nullopt,             false, false, 0                        },
    {1, ElementType::Certificate, true,  false, kMaxDownloadedCertificate},
    {2, ElementType::Crl,         true,  false, 0                        },
    {4, std::nullopt,             true,  true,  0                        },
};

DWORD LastErrorOrInternal() {
  const DWORD code = GetLastError();
  return code ? code : ERROR_INTERNAL_ERROR;
}

StoreHandle StoreOfMessage(std::span<const BYTE> bytes) {
  SetLastError(ERROR_SUCCESS);
  const CRYPT_DATA_BLOB blob{CheckedDword(bytes.size()), const_cast<BYTE*>(bytes.data())};
  StoreHandle store = OpenStore({StoreNumber(CERT_STORE_PROV_PKCS7), kEncoding, 0, 0, &blob});
  if (!store) throw RetrieveObjectException("can't create store from PKCS7 message", LastErrorOrInternal());
  return store;
}

// One block for LocalFree: the array, its one blob, the bytes.
MallocOwner<CRYPT_BLOB_ARRAY> RawBlock(std::span<const BYTE> bytes) {
  constexpr size_t kHeads = sizeof(CRYPT_BLOB_ARRAY) + sizeof(CRYPT_DATA_BLOB);
  void* const block = std::malloc(kHeads + bytes.size());
  if (!block) throw RetrieveObjectException("malloc error", ERROR_NOT_ENOUGH_MEMORY);
  auto* const array = ::new (block) CRYPT_BLOB_ARRAY{};
  MallocOwner<CRYPT_BLOB_ARRAY> owner(array);
  array->cBlob = 1;
  array->rgBlob = ::new (array + 1) CRYPT_DATA_BLOB{};
  array->rgBlob->cbData = CheckedDword(bytes.size());
  array->rgBlob->pbData = reinterpret_cast<BYTE*>(array->rgBlob + 1);
  std::memcpy(array->rgBlob->pbData, bytes.data(), bytes.size());
  return owner;
}

RetrievedObject ProcessContext(ElementType type, bool multiple, std::span<const BYTE> bytes) {
  SetLastError(ERROR_SUCCESS);
  RetrievedObject object;
  object.context.reset(CreateContext(type, kEncoding, bytes));
  const bool mayBeBundle = multiple && type == ElementType::Certificate;
  if (!object.context && mayBeBundle) {
    object.store = StoreOfMessage(bytes);
  } else if (!object.context) {
    throw RetrieveObjectException("error creating context", LastErrorOrInternal());
  } else if (multiple) {
    object.store = StoreOfOne(*object.context.get());
    object.context.reset();
  }
  return object;
}

}  // namespace

const ObjectKind* FindObjectKind(LPCSTR objectType) {
  const auto number = reinterpret_cast<uintptr_t>(objectType);
  const auto* const row = std::ranges::find(kKinds, number, &ObjectKind::number);
  return row != std::end(kKinds) ? row : nullptr;
}

void* RetrievedObject::release() {
  if (context) return const_cast<void*>(context.release()->published());
  if (store) return store.release();
  return raw.release();
}

StoreHandle StoreOfOne(ContextRecord& context) {
  SetLastError(ERROR_SUCCESS);
  StoreHandle store = OpenMemoryStore(0);
  if (!store || !AddContext(store.get(), context, CERT_STORE_ADD_ALWAYS, nullptr)) {
    throw RetrieveObjectException("can't create memory store", LastErrorOrInternal());
  }
  return store;
}

RetrievedObject ProcessNetworkData(const ObjectKind& kind, bool multiple, std::span<const BYTE> bytes) {
  if (bytes.empty()) throw RetrieveObjectException("invalid args in ProcessNetworkData", E_INVALIDARG);
  if (kind.context) return ProcessContext(*kind.context, multiple, bytes);
  RetrievedObject object;
  if (kind.isMessage) {
    object.store = StoreOfMessage(bytes);
  } else {
    object.raw = RawBlock(bytes);
  }
  return object;
}

}  // namespace certkern
