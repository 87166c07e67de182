// Looking a certificate up in a revocation list of any size.
//
// A list can have a million entries, and a walk over them is bounded by memory: some 90 bytes for each. The index hashes
// the serial numbers while the decoded list is made, when they are at hand, and threads them into chains when the first
// question comes, so that a list that is never asked costs next to nothing more.
#ifndef CERTKERN_STORE_CRL_ENTRIES_H
#define CERTKERN_STORE_CRL_ENTRIES_H

#include <certkern/encode.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <span>

#include "platform/owner.h"

namespace certkern {

struct ContextRecord;

// Borrows the entries, which must neither change nor go away. Takes 12 bytes for each.
class CrlEntryIndex {
 public:
  // Throws std::bad_alloc; a question never does.
  explicit CrlEntryIndex(std::span<CRL_ENTRY> entries);

  // The first in the order of the list that has this number; null: none. Any number of threads may ask.
  CRL_ENTRY* find(const CRYPT_INTEGER_BLOB& serialNumber) const;

 private:
  struct Link {
    uint32_t hash;
    uint32_t next;  // number of an entry, counted from 1; 0: the end of the chain
  };
  // Chains are about as many as entries; hostile numbers that all fall into one make it the walk that it would be
  // without.
  uint32_t& headOf(uint32_t hash) const { return heads_.get()[uint64_t{hash} * entries_.size() >> 32]; }
  void threadChains() const;

  const std::span<CRL_ENTRY> entries_;
  const std::unique_ptr<Link[]> links_;
  const MallocOwner<uint32_t> heads_;  // zero pages until the first question
  mutable std::once_flag threaded_;
};

// CertFindCertificateInCRL; null: not listed.
CRL_ENTRY* FindEntry(const ContextRecord& crl, const CRYPT_INTEGER_BLOB& serialNumber);
// The same in a list that stands by itself: a walk.
CRL_ENTRY* FindEntry(const CRL_INFO& crl, const CRYPT_INTEGER_BLOB& serialNumber);

// An index for a list that is long enough to need one; null: it is not.
std::unique_ptr<const CrlEntryIndex> IndexOf(const CRL_INFO& crl);

}  // namespace certkern

#endif
