#include "store/context_property.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/oids.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "ber/fields.h"
#include "store/certificate_digest.h"
#include "store/key_provider_info.h"
#include "store/store_record.h"

namespace certkern {
namespace {

// Room for the hash that an issuer signed: 256 bits and no more. A longer one has no place in this property.
constexpr size_t kSignatureHashRoom = 32;

// --- what changes ---

// The caller holds the block's lock, so a commit that sees the mark waits for the change itself. The element comes first: a
// commit that still misses it leaves the store marked as changed.
void NotePropertyChange(CertStore& store, StoreElement& element) {
  element.propertiesChanged = true;
  store.propertiesChanged = true;
  store.dirty = true;
}

// --- what can be computed ---

// The provider of the element's store, counted: the store may be closed, and let it go, while a hash is made. Empty
// (the digest looks for one itself) for an element without a store.
ProviderHandle ProviderFor(StoreElement& element) {
  const std::lock_guard guard(element.lock);
  if (!element.store || element.detached) return {};
  const HCRYPTPROV provider = element.store->provider;
  return ProviderHandle(provider && CryptContextAddRef(provider, nullptr, 0) ? provider : 0);
}

PropertyItemOwner HashItem(HCRYPTPROV provider, DWORD id, ALG_ID algorithm, size_t length,
                           std::span<const BYTE> bytes) {
  PropertyItemOwner item = NewPropertyItem(id, length);
  if (item && !HashEncoded(provider, algorithm, bytes, item->value(), &item->length)) return {};
  return item;
}

PropertyItemOwner Sha1Of(StoreElement& element) {
  return HashItem(ProviderFor(element).get(), CERT_SHA1_HASH_PROP_ID, CALG_SHA1, 20, element.encoded());
}

PropertyItemOwner Md5Of(StoreElement& element) {
  return HashItem(ProviderFor(element).get(), CERT_MD5_HASH_PROP_ID, CALG_MD5, 16, element.encoded());
}

PropertyItemOwner SignatureHashOf(StoreElement& element) {
  PropertyItemOwner item = NewPropertyItem(CERT_SIGNATURE_HASH_PROP_ID, kSignatureHashRoom);
  const ProviderHandle provider = ProviderFor(element);
  if (item && !HashToBeSigned(provider.get(), element.encoded(), item->value(), &item->length)) return {};
  return item;
}

// KeyIdentifier ::= OCTET STRING
PropertyItemOwner StatedKeyIdentifier(const CERT_EXTENSION& extension) {
  BerReadCursor in({extension.Value.pbData, extension.Value.cbData});
  BerReadCursor content;
  SetLastError(CRYPT_E_ASN1_EOD);  // for content that ends early, which has no code of its own
  if (!BerExpect(in, kTagOctetString, content)) return {};
  if (content.empty()) {
    SetLastError(CRYPT_E_NOT_FOUND);
    return {};
  }
  return NewPropertyItem(CERT_KEY_IDENTIFIER_PROP_ID, content.rest());
}

// RFC 5280, 4.2.1.2, method (1), where the issuer has not said otherwise.
PropertyItemOwner KeyIdentifierOf(StoreElement& element) {
  const ContextOwner context(element.type == ElementType::Certificate ? AcquireLiveContext(element)
                                                                      : nullptr);
  if (!context) {
    SetLastError(CRYPT_E_NOT_FOUND);
    return {};
  }
  const CERT_INFO& info = *context->certificate.pCertInfo;
  for (const CERT_EXTENSION& each : std::span(info.rgExtension, info.cExtension)) {
    if (!std::strcmp(each.pszObjId, szOID_SUBJECT_KEY_IDENTIFIER)) return StatedKeyIdentifier(each);
  }
  const CRYPT_BIT_BLOB& key = info.SubjectPublicKeyInfo.PublicKey;
  return HashItem(ProviderFor(element).get(), CERT_KEY_IDENTIFIER_PROP_ID, CALG_SHA1, 20,
                  {key.pbData, key.cbData});
}

PropertyItemOwner CrlIssuerOf(StoreElement& element) {
  const ContextOwner context(element.type == ElementType::Crl ? AcquireLiveContext(element) : nullptr);
  if (!context) {
    SetLastError(CRYPT_E_NOT_FOUND);
    return {};
  }
  const CERT_NAME_BLOB& issuer = context->crl.pCrlInfo->Issuer;
  return NewPropertyItem(SV_CRL_ISSUER_PROP_ID, {issuer.pbData, issuer.cbData});
}

struct Computation {
  DWORD id;
  PropertyItemOwner (*compute)(StoreElement& element);  // empty with a code
};
constexpr Computation kComputations[] = {
    {CERT_SHA1_HASH_PROP_ID,      Sha1Of         },
    {CERT_MD5_HASH_PROP_ID,       Md5Of          },
    {CERT_SIGNATURE_HASH_PROP_ID, SignatureHashOf},
    {CERT_KEY_IDENTIFIER_PROP_ID, KeyIdentifierOf},
    {SV_CRL_ISSUER_PROP_ID,       CrlIssuerOf    },
};

// --- reading ---

bool CopyOut(std::span<const BYTE> value, void* data, DWORD* size) {
  const DWORD given = std::exchange(*size, static_cast<DWORD>(value.size()));
  if (!data) return true;
  if (given < value.size()) return Fault(ERROR_MORE_DATA);
  if (!value.empty()) std::memcpy(data, value.data(), value.size());
  return true;
}

bool GetKeyContext(const PropertyBlock& block, void* data, DWORD* size) {
  if (!block.keyContext.hCryptProv) return Fault(CRYPT_E_NOT_FOUND);
  return CopyOut({reinterpret_cast<const BYTE*>(&block.keyContext), sizeof block.keyContext}, data, size);
}

// --- setting ---

bool SetKeyContextFrom(PropertyBlock& block, const void* data) {
  CERT_KEY_CONTEXT keyContext{};
  if (data) {
    DWORD size;  // the caller's record may be no longer than what it says
    std::memcpy(&size, data, sizeof size);
    if (size < sizeof keyContext) return Fault(ERROR_INVALID_PARAMETER);
    std::memcpy(&keyContext, data, sizeof keyContext);
  }
  SetKeyContext(block, keyContext);
  return true;
}

// The item for what the caller gave: a record for id 2, a blob for all others. Empty with a code.
PropertyItemOwner ItemFrom(DWORD id, const void* data) {
  if (id == CERT_KEY_PROV_INFO_PROP_ID) {
    return FlattenKeyProviderInfo(*static_cast<const CRYPT_KEY_PROV_INFO*>(data));
  }
  std::span<const BYTE> bytes;
  if (!BlobBytes(*static_cast<const CRYPT_DATA_BLOB*>(data), bytes)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  return NewPropertyItem(id, bytes);
}

// What stands for a handle, or for a part of another property, can't be set by itself.
constexpr DWORD kCertificateRefused[] = {0,
                                         CERT_KEY_PROV_HANDLE_PROP_ID,
                                         CERT_KEY_SPEC_PROP_ID,
                                         CERT_ACCESS_STATE_PROP_ID,
                                         CERT_DATE_STAMP_PROP_ID,
                                         CERT_NCRYPT_KEY_HANDLE_PROP_ID,
                                         CERT_HCRYPTPROV_OR_NCRYPT_KEY_HANDLE_PROP_ID,
                                         CERT_NCRYPT_KEY_HANDLE_TRANSFER_PROP_ID,
                                         CERT_HCRYPTPROV_TRANSFER_PROP_ID};
constexpr DWORD kCrlRefused[] = {0, CERT_KEY_PROV_HANDLE_PROP_ID, CERT_KEY_SPEC_PROP_ID,
                                 CERT_NEXT_UPDATE_LOCATION_PROP_ID, CERT_ACCESS_STATE_PROP_ID};

bool CanBeSet(ElementType type, DWORD id) {
  const std::span<const DWORD> refused =
      type == ElementType::Certificate ? std::span<const DWORD>(kCertificateRefused) : kCrlRefused;
  return std::find(refused.begin(), refused.end(), id) == refused.end();
}

// Properties are part of what a store keeps: it must be writable, and has changed.
bool MarkStoreChanged(StoreElement& element) {
  CertStore* const store = StoreOf(element);
  if (store && store->has(CERT_STORE_READONLY_FLAG)) return Fault(E_ACCESSDENIED);
  if (element.isLink) NoteChangeThroughLink(*element.properties);
  if (store) NotePropertyChange(*store, element);
  return true;
}

}  // namespace

PropertyLock LockProperties(const ContextRecord& context) {
  return PropertyLock(context.element().properties->lock);
}

const PropertyItem* FindProperty(StoreElement& element, DWORD id) {
  const PropertyItem* const item = element.properties->items.find(id);
  if (!item) SetLastError(CRYPT_E_NOT_FOUND);
  return item;
}

const PropertyItem* FindOrComputeProperty(StoreElement& element, DWORD id) {
  if (const PropertyItem* item = element.properties->items.find(id)) return item;
  const auto* const row = std::find_if(std::begin(kComputations), std::end(kComputations),
                                       [id](const Computation& each) { return each.id == id; });
  if (row == std::end(kComputations)) {
    SetLastError(CRYPT_E_NOT_FOUND);
    return nullptr;
  }
  PropertyItemOwner item = row->compute(element);
  if (!item) return nullptr;
  const PropertyItem* const kept = item.get();
  element.properties->items.append(std::move(item));
  return kept;
}

bool HasProperty(StoreElement& element, DWORD id) {
  const PropertyLock guard(element.properties->lock);
  return element.properties->items.find(id) != nullptr;
}

bool CanHaveProperty(StoreElement& element, DWORD id) {
  const PropertyLock guard(element.properties->lock);
  return FindOrComputeProperty(element, id) != nullptr;
}

bool CertGetCertificateContextPropertyWithLock(ContextRecord& context, DWORD id, void* data, DWORD* size) {
  if (!id || !size) return Fault(ERROR_INVALID_PARAMETER);
  StoreElement& element = context.element();
  if (id == CERT_KEY_CONTEXT_PROP_ID) return GetKeyContext(*element.properties, data, size);
  const bool flat = id == SV_KEY_PROV_INFO_FLAT_PROP_ID;
  const PropertyItem* const item = FindOrComputeProperty(element, flat ? CERT_KEY_PROV_INFO_PROP_ID : id);
  if (!item) return false;
  if (id == CERT_KEY_PROV_INFO_PROP_ID) return ExpandKeyProviderInfo(item->bytes(), data, size);
  return CopyOut(item->bytes(), data, size);
}

bool CertSetCertificateContextPropertyWithLock(ContextRecord& context, DWORD id, const void* data) {
  StoreElement& element = context.element();
  PropertyBlock& block = *element.properties;
  if (id == CERT_KEY_CONTEXT_PROP_ID) return SetKeyContextFrom(block, data);
  PropertyItemOwner item;
  if (data) {
    item = ItemFrom(id, data);
    if (!item) return false;
  }
  if (!MarkStoreChanged(element)) return false;
  const bool found = item ? block.items.set(std::move(item)) : block.items.remove(id);
  if (!found) SetLastError(ERROR_NOT_FOUND);  // told, though the call succeeds
  NoteIndexedPropertyChange(id);
  return true;
}

bool GetContextProperty(ContextRecord& context, DWORD id, void* data, DWORD* size) {
  const PropertyLock guard = LockProperties(context);
  return CertGetCertificateContextPropertyWithLock(context, id, data, size);
}

bool SetContextProperty(ContextRecord& context, DWORD id, const void* data) {
  if (!CanBeSet(context.element().type, id)) return Fault(ERROR_INVALID_PARAMETER);
  const PropertyLock guard = LockProperties(context);
  return CertSetCertificateContextPropertyWithLock(context, id, data);
}

DWORD NextProperty(ContextRecord& context, DWORD id) {
  const PropertyLock guard = LockProperties(context);
  const PropertyList& items = context.element().properties->items;
  if (!id) return items.first() ? items.first()->id : 0;
  const PropertyItem* const item = items.find(id);
  return item && item->next ? item->next->id : 0;
}

}  // namespace certkern
