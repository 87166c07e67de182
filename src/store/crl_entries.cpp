#include "store/crl_entries.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "store/certificate_primitives.h"
#include "store/context_record.h"

namespace certkern {
namespace {

// Up to here a walk is as fast.
constexpr DWORD kShortList = 16;

// How far the threading of chains looks ahead: heads are met in random order, and each comes from far away.
constexpr size_t kAhead = 24;

constexpr uint64_t kOddMultiplier = 0x9E3779B97F4A7C15u;

// Of the number, not its bytes: equal integers have equal hashes.
uint32_t HashOf(const CRYPT_INTEGER_BLOB& serialNumber) {
  std::span<const BYTE> rest = WithoutSignBytes({serialNumber.pbData, serialNumber.cbData});
  uint64_t hash = rest.size();
  const auto mix = [&](uint64_t word) {
    hash = (hash ^ word) * kOddMultiplier;
    hash ^= hash >> 32;
  };
  for (; rest.size() > sizeof(uint64_t); rest = rest.subspan(sizeof(uint64_t))) {
    uint64_t word;
    std::memcpy(&word, rest.data(), sizeof word);
    mix(word);
  }
  uint64_t last = 0;
  if (!rest.empty()) std::memcpy(&last, rest.data(), rest.size());
  mix(last);
  return static_cast<uint32_t>(hash * kOddMultiplier >> 32);
}

uint32_t* ZeroedHeads(size_t count) {
  void* const room = std::calloc(count, sizeof(uint32_t));
  if (!room) throw std::bad_alloc();
  return static_cast<uint32_t*>(room);
}

}  // namespace

CrlEntryIndex::CrlEntryIndex(std::span<CRL_ENTRY> entries)
    : entries_(entries),
      links_(std::make_unique_for_overwrite<Link[]>(entries.size())),
      heads_(ZeroedHeads(entries.size())) {
  Link* link = links_.get();
  for (const CRL_ENTRY& entry : entries_) *link++ = {HashOf(entry.SerialNumber), 0};
}

// From the last to the first, so that each chain is in the order of the list.
void CrlEntryIndex::threadChains() const {
  Link* const links = links_.get();
  for (size_t i = entries_.size(); i-- > 0;) {
    if (i >= kAhead) __builtin_prefetch(&headOf(links[i - kAhead].hash), 1);
    uint32_t& head = headOf(links[i].hash);
    links[i].next = head;
    head = static_cast<uint32_t>(i + 1);
  }
}

CRL_ENTRY* CrlEntryIndex::find(const CRYPT_INTEGER_BLOB& serialNumber) const {
  std::call_once(threaded_, [this] { threadChains(); });
  const uint32_t hash = HashOf(serialNumber);
  for (uint32_t at = headOf(hash); at; at = links_[at - 1].next) {
    CRL_ENTRY& entry = entries_[at - 1];
    if (links_[at - 1].hash == hash && AreSameIntegers(entry.SerialNumber, serialNumber)) return &entry;
  }
  return nullptr;
}

std::unique_ptr<const CrlEntryIndex> IndexOf(const CRL_INFO& crl) {
  const std::span<CRL_ENTRY> entries = AsSpan(crl.rgCRLEntry, crl.cCRLEntry);
  return entries.size() > kShortList ? std::make_unique<const CrlEntryIndex>(entries) : nullptr;
}

CRL_ENTRY* FindEntry(const ContextRecord& crl, const CRYPT_INTEGER_BLOB& serialNumber) {
  return crl.entryIndex ? crl.entryIndex->find(serialNumber) : FindEntry(*crl.crl.pCrlInfo, serialNumber);
}

CRL_ENTRY* FindEntry(const CRL_INFO& crl, const CRYPT_INTEGER_BLOB& serialNumber) {
  for (CRL_ENTRY& each : AsSpan(crl.rgCRLEntry, crl.cCRLEntry)) {
    if (AreSameIntegers(each.SerialNumber, serialNumber)) return &each;
  }
  return nullptr;
}

}  // namespace certkern
