#include "store/context_record.h"

#include <certkern/encode.h>
#include <certkern/errors.h>

#include <cassert>
#include <cstdlib>
#include <memory>
#include <utility>

#include "ber/struct_types.h"
#include "platform/limits.h"
#include "store/crl_entries.h"
#include "store/store_record.h"

namespace certkern {
namespace {

using InfoOwner = MallocOwner<void>;

constexpr BYTE kSequence = 0x30;
constexpr BYTE kLongForm = 0x80;
constexpr size_t kMaxLengthOctets = 4;

// The size of the DER object at the start of the bytes, by its header alone; what follows it is not counted. Only the
// definite forms are taken. A header that is cut short is told like one that is wrong: both are no length field.
bool DerSize(std::span<const BYTE> bytes, DWORD& size) {
  if (bytes[0] != kSequence) return Fault(ERROR_INTERNAL_ERROR);
  if (bytes.size() < 2) return Fault(ERROR_INTERNAL_ERROR);
  uint64_t length = bytes[1];
  size_t header = 2;
  if (length & kLongForm) {
    const size_t octets = length & 0x7F;
    if (!octets || octets > kMaxLengthOctets || octets > bytes.size() - header) {
      return Fault(ERROR_INTERNAL_ERROR);
    }
    length = 0;
    for (size_t i = 0; i < octets; ++i) length = length << 8 | bytes[header + i];
    header += octets;
  }
  if (length > bytes.size() - header) return Fault(CRYPT_E_ASN1_EOD);
  size = static_cast<DWORD>(header + length);
  return true;
}

// The decoded record, in a block of its own. `size` is that of the record, which the first decoding finds out (0) and
// the later ones need not: the bytes are the same.
InfoOwner DecodeInfo(ElementType type, std::span<const BYTE> encoded, DWORD& size) {
  static const StructType* const kCertificate = FindStructType(StructNumber(X509_CERT_TO_BE_SIGNED));
  static const StructType* const kCrl = FindStructType(StructNumber(X509_CERT_CRL_TO_BE_SIGNED));
  const StructType& row = type == ElementType::Certificate ? *kCertificate : *kCrl;
  if (!size && !BerDecodeEntry(SizeKnown::No, row, encoded, 0, nullptr, &size)) {
    SetLastError(CRYPT_E_OSS_ERROR);
    return {};
  }
  InfoOwner info(std::calloc(1, size));
  if (!info) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  } else if (!BerDecodeEntry(SizeKnown::Yes, row, encoded, 0, info.get(), &size)) {
    SetLastError(CRYPT_E_OSS_ERROR);
    info.reset();
  }
  return info;
}

void FreeRecord(ContextRecord* record) noexcept {
  if (ContextRegistry* registry = contextRegistry.get()) registry->leave(record);
  const std::unique_ptr<ContextRecord> last(record);
  const InfoOwner info(last->certificate.pCertInfo);
}

// What a search found is likely to be found again, and to decode it takes longer than all else. The caller holds the
// element's lock.
void KeepInfo(StoreElement& element, ContextRecord& context) {
  const bool kept = element.keepsInfo.load(std::memory_order_relaxed) && element.store && !element.detached
      && element.type == ElementType::Certificate && element.infoSize <= kMaxKeptInfo;
  if (kept) element.info = std::exchange(context.certificate.pCertInfo, nullptr);
}

// A record that is in the registry and filled; the caller makes it visible.
ContextRecord* MakeRecord(StoreElement& element) {
  const std::span<const BYTE> given = element.encoded();
  DWORD size;
  if (given.empty() || !(element.encoding & X509_ASN_ENCODING)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  if (!DerSize(given, size)) return nullptr;
  InfoOwner info(std::exchange(element.info, nullptr));
  if (!info) info = DecodeInfo(element.type, given.first(size), element.infoSize);
  if (!info) return nullptr;
  auto record = std::make_unique<ContextRecord>();
  record->refs = 1;
  record->certificate = {element.encoding, element.bytes(), size, static_cast<CERT_INFO*>(info.get()),
                         element.store};
  if (element.type == ElementType::Crl) record->entryIndex = IndexOf(*record->crl.pCrlInfo);
  ContextRegistry* const registry = contextRegistry.get();
  if (!registry) {  // the process is going down: the pointer could not be told from a made-up one
    SetLastError(ERROR_INTERNAL_ERROR);
    return nullptr;
  }
  registry->enter(record.get());
  static_cast<void>(info.release());
  if (element.encodedLength.load(std::memory_order_relaxed) != size) {
    element.encodedLength.store(size, std::memory_order_relaxed);
  }
  return record.release();
}

}  // namespace

ContextRecord::~ContextRecord() = default;

constinit NeverDestroyed<ContextRegistry> contextRegistry;

ContextRegistry::Shard& ContextRegistry::shardOf(const ContextRecord* record) {
  // records are 64 bytes apart as the allocator places them
  return shards_[(reinterpret_cast<uintptr_t>(record) >> 6) % kShards];
}
const ContextRegistry::Shard& ContextRegistry::shardOf(const ContextRecord* record) const {
  return const_cast<ContextRegistry*>(this)->shardOf(record);
}

void ContextRegistry::enter(const ContextRecord* record) {
  Shard& shard = shardOf(record);
  const std::lock_guard guard(shard.lock);
  shard.records.insert(record);
}

void ContextRegistry::leave(const ContextRecord* record) noexcept {
  Shard& shard = shardOf(record);
  const std::lock_guard guard(shard.lock);
  shard.records.erase(record);
}

bool ContextRegistry::has(const ContextRecord* record) const {
  const Shard& shard = shardOf(record);
  const std::lock_guard guard(shard.lock);
  return shard.records.contains(record);
}

size_t ContextRegistry::size() const {
  size_t sum = 0;
  for (const Shard& shard : shards_) {
    const std::lock_guard guard(shard.lock);
    sum += shard.records.size();
  }
  return sum;
}

ContextRecord* FindLiveContext(const void* context) {
  ContextRegistry* const registry = contextRegistry.get();
  if (!context || !registry) return nullptr;
  // by its number: nothing may be computed on a pointer that points to nothing
  auto* const record =
      reinterpret_cast<ContextRecord*>(reinterpret_cast<uintptr_t>(context) - kContextOffset);
  return registry->has(record) ? record : nullptr;
}

ContextRecord* FindLiveContext(const void* context, ElementType type) {
  ContextRecord* const record = FindLiveContext(context);
  return record && record->element().type == type ? record : nullptr;
}

ContextRecord* AcquireContext(StoreElement& element) {
  const std::lock_guard guard(element.lock);
  if (element.context) {
    ++element.context->refs;
  } else {
    element.context = MakeRecord(element);
    if (!element.context) return nullptr;
    if (element.store) AddStoreRecord(*element.store);
  }
  ++element.refs;
  return element.context;
}

ContextRecord* AcquireLiveContext(StoreElement& element) {
  const std::lock_guard guard(element.lock);
  if (!element.context) return nullptr;
  ++element.context->refs;
  ++element.refs;
  return element.context;
}

void AddContextReference(ContextRecord& context) {
  StoreElement& element = context.element();
  const std::lock_guard guard(element.lock);
  ++context.refs;
  ++element.refs;
}

void ReleaseContext(ContextRecord* context) noexcept {
  StoreElement& element = context->element();
  {
    const std::lock_guard guard(element.lock);
    if (--context->refs) {
      --element.refs;
      return;
    }
    element.context = nullptr;
    KeepInfo(element, *context);
  }
  FreeRecord(context);
  // in this order: a deferred close finds the element still held by us
  if (element.store) DropStoreRecord(*element.store);
  ReleaseElement(&element);
}

void DestroyContext(ContextRecord* context) noexcept {
  StoreElement& element = context->element();
  {
    const std::lock_guard guard(element.lock);
    element.context = nullptr;
  }
  FreeRecord(context);
}

ContextRecord* CreateContext(ElementType type, DWORD encoding, std::span<const BYTE> encoded) {
  const ElementOwner element = NewElement(type, encoding, encoded, nullptr, {});
  return element ? AcquireContext(*element.get()) : nullptr;
}

ContextRecord* CopyContext(const ContextRecord& source) {
  const ElementOwner element = NewElementLike(source.element(), nullptr, ElementForm::Copy);
  return element ? AcquireContext(*element.get()) : nullptr;
}

}  // namespace certkern
