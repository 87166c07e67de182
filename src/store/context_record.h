// The hidden side of the published contexts. A CERT_CONTEXT or CRL_CONTEXT that a caller holds is the middle of a
// ContextRecord, which is counted; the same element has one record at a time, so that duplicates are one pointer.
//
// Every record is in the process-wide registry from the moment when it can be seen until its last reference is given
// back. A pointer from outside is looked up there before anything is read through it.
#ifndef CERTKERN_STORE_CONTEXT_RECORD_H
#define CERTKERN_STORE_CONTEXT_RECORD_H

#include <certkern/properties.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_set>

#include "platform/never_destroyed.h"
#include "platform/owner.h"
#include "store/store_element.h"

namespace certkern {

class CrlEntryIndex;

struct ContextRecord {
  uint32_t refs;  // under StoreElement.lock; each is also one of the element's refs
  uint32_t unused;
  union {
    CERT_CONTEXT certificate;
    CRL_CONTEXT crl;
  };
  std::unique_ptr<const CrlEntryIndex>
      entryIndex;  // of a long CRL; over its decoded entries, and goes with them

  ~ContextRecord();  // the index is known to its own file

  PCCERT_CONTEXT asCertificate() const { return &certificate; }
  PCCRL_CONTEXT asCrl() const { return &crl; }
  const void* published() const { return &certificate; }
  StoreElement& element() const { return ElementOfBytes(certificate.pbCertEncoded); }
};
// Of the published context in its record.
inline constexpr size_t kContextOffset = 8;
static_assert(sizeof(ContextRecord) == 56 && offsetof(ContextRecord, certificate) == kContextOffset);
static_assert(sizeof(CERT_CONTEXT) == sizeof(CRL_CONTEXT)
                  && offsetof(CERT_CONTEXT, pbCertEncoded) == offsetof(CRL_CONTEXT, pbCrlEncoded)
                  && offsetof(CERT_CONTEXT, hCertStore) == offsetof(CRL_CONTEXT, hCertStore),
              "one code serves both");

// The addresses of all live records. A leaf among the locks. Spread over several sets, so that threads that make and
// free contexts all the time seldom meet.
class ContextRegistry {
 public:
  void enter(const ContextRecord* record);  // throws std::bad_alloc
  void leave(const ContextRecord* record) noexcept;
  bool has(const ContextRecord* record) const;
  size_t size() const;

 private:
  struct alignas(64) Shard {
    mutable std::mutex lock;
    std::unordered_set<const ContextRecord*> records;
  };
  static constexpr size_t kShards = 16;
  Shard& shardOf(const ContextRecord* record);
  const Shard& shardOf(const ContextRecord* record) const;

  std::array<Shard, kShards> shards_;
};
extern constinit NeverDestroyed<ContextRegistry> contextRegistry;

// The record behind a published context; null unless it is live. No code is set.
ContextRecord* FindLiveContext(const void* context);
// The same for a function that can't do with a context of the other kind.
ContextRecord* FindLiveContext(const void* context, ElementType type);

// The context of an element, made if nobody holds one, with one reference for the caller. The caller keeps the element
// alive meanwhile (a reference, or the lock of the store whose list it is in). Null with a code, or std::bad_alloc:
// ERROR_INVALID_PARAMETER (no bytes, encoding), ERROR_INTERNAL_ERROR and CRYPT_E_ASN1_EOD (header), CRYPT_E_OSS_ERROR
// (body), ERROR_NOT_ENOUGH_MEMORY.
ContextRecord* AcquireContext(StoreElement& element);
// The same if somebody holds one already; null without a code if not.
ContextRecord* AcquireLiveContext(StoreElement& element);

// One more reference on what the caller holds.
void AddContextReference(ContextRecord& context);

// Gives one reference back. The last frees the record, and its count on the store: that may run the store's deferred
// close and free the store record, so nothing of the store may be touched afterwards unless a handle is held. Must not
// be called under the element's lock; under the store's only by whoever holds a handle.
void ReleaseContext(ContextRecord* context) noexcept;
using ContextOwner = Owner<ContextRecord*, ReleaseContext>;

// A context that stands for itself; null with a code.
ContextRecord* CreateContext(ElementType type, DWORD encoding, std::span<const BYTE> encoded);
// A free-standing copy with copies of the properties.
ContextRecord* CopyContext(const ContextRecord& source);

// For a store that is closed by force: frees the record under its holders, who find it dead from then on. Leaves the
// element's refs and the store's counters alone; the caller holds no element lock.
void DestroyContext(ContextRecord* context) noexcept;

}  // namespace certkern

#endif
