#include "store/store_index.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <bit>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "store/certificate_primitives.h"
#include "store/context_property.h"
#include "store/existing_element.h"

namespace certkern {
namespace {

// Entries without an element, to those with one: what the sweep costs is spread over as many removals.
constexpr size_t kDeadShare = 16;

uint32_t Folded(uint64_t hash) { return static_cast<uint32_t>(hash ^ hash >> 32); }

// Who fills a bucket on purpose gets the walk that there was without an index.
uint32_t HashOf(std::span<const BYTE> value) {
  const std::string_view text(reinterpret_cast<const char*>(value.data()), value.size());
  return Folded(std::hash<std::string_view>{}(text));
}

// A name that does not decode is found by its bytes only.
uint32_t SubjectHash(std::span<const BYTE> encoded) {
  const NormalName name(encoded);
  return name.decoded() ? Folded(name.hash()) : HashOf(encoded);
}

uint32_t HashOf(const CERT_NAME_BLOB& issuer, const CRYPT_INTEGER_BLOB& serialNumber) {
  constexpr uint32_t kSpread = 0x9E3779B1;  // 2^32 by the golden ratio
  return HashOf({issuer.pbData, issuer.cbData}) * kSpread
      ^ HashOf(WithoutSignBytes({serialNumber.pbData, serialNumber.cbData}));
}

uint32_t HashOf(const CRL_INFO& crl) {
  constexpr uint32_t kBase = 0x85EBCA6B, kDelta = 0xC2B2AE35;
  const CrlPurpose purpose = PurposeOf(crl);
  const uint32_t line = HashOf({crl.Issuer.pbData, crl.Issuer.cbData}) * (purpose.delta ? kDelta : kBase);
  if (!purpose.authorityKey) return line;
  return line ^ HashOf({purpose.authorityKey->Value.pbData, purpose.authorityKey->Value.cbData});
}

bool IsPropertyKey(IndexKey key) { return key == IndexKey::Sha1 || key == IndexKey::KeyIdentifier; }

// A context that can't be made now but could later must not be taken for an object that can't be decoded.
ContextOwner ContextOf(StoreElement& element) {
  ContextOwner context(AcquireContext(element));
  if (!context && GetLastError() == ERROR_NOT_ENOUGH_MEMORY) throw std::bad_alloc();
  return context;
}

std::optional<uint32_t> PropertyHash(StoreElement& element, DWORD id) {
  ContextOwner context;
  const PropertyLock guard(element.properties->lock);
  const PropertyItem* item = element.properties->items.find(id);
  if (!item) {
    context = ContextOf(element);
    item = context ? FindOrComputeProperty(element, id) : nullptr;
  }
  return item ? std::optional(HashOf(item->bytes())) : std::nullopt;
}

std::optional<uint32_t> KeyHash(StoreElement& element, IndexKey key) {
  if (key == IndexKey::Sha1) return PropertyHash(element, CERT_SHA1_HASH_PROP_ID);
  if (key == IndexKey::KeyIdentifier) return PropertyHash(element, CERT_KEY_IDENTIFIER_PROP_ID);
  const ContextOwner context = ContextOf(element);
  if (!context) return std::nullopt;
  if (element.type == ElementType::Crl) return HashOf(*context->crl.pCrlInfo);
  const CERT_INFO& info = *context->certificate.pCertInfo;
  if (key == IndexKey::Subject) return SubjectHash({info.Subject.pbData, info.Subject.cbData});
  return HashOf(info.Issuer, info.SerialNumber);
}

// Where the elements begin that came after this one.
StoreElement* OldestNewerThan(const ElementList& list, uint64_t sequence) {
  if (!sequence) return list.oldest;
  StoreElement* found = nullptr;
  for (StoreElement* each = list.newest; each && each->sequence > sequence; each = each->next) found = each;
  return found;
}

}  // namespace

IndexQuestion AskBytes(IndexKey key, std::span<const BYTE> value) {
  return {key, key == IndexKey::Subject ? SubjectHash(value) : HashOf(value)};
}

IndexQuestion AskSubject(const NormalName& subject) { return {IndexKey::Subject, Folded(subject.hash())}; }

IndexQuestion AskIssuerSerial(const CERT_NAME_BLOB& issuer, const CRYPT_INTEGER_BLOB& serialNumber) {
  return {IndexKey::IssuerSerial, HashOf(issuer, serialNumber)};
}

IndexQuestion AskCrlLine(const CRL_INFO& crl) { return {IndexKey::CrlLine, HashOf(crl)}; }

// An element may carry the number that an index before this one gave it.
bool StoreIndex::has(const StoreElement& element) const {
  return element.indexSlot < entries_.size() && entries_[element.indexSlot].element == &element;
}

// kNone: it stands in no chain any more.
uint32_t StoreIndex::placeOf(const StoreElement& element, size_t key) const {
  if (has(element)) return element.indexSlot;
  return left_.sequence == element.sequence && left_.chained[key] ? left_.slot : kNone;
}

uint32_t StoreIndex::slotFor(StoreElement& element) {
  if (has(element)) return element.indexSlot;
  uint32_t slot = free_;
  if (slot != kNone) {
    free_ = entries_[slot].next[0];
  } else {
    const size_t size = entries_.size();
    if (size >= kNone) throw std::bad_alloc();
    // by an eighth at a time, for the room that is not used counts as well
    if (size == entries_.capacity()) entries_.reserve(size + size / 8 + 1);
    entries_.emplace_back();
    slot = static_cast<uint32_t>(size);
  }
  entries_[slot] = {&element, {}, {}};
  element.indexSlot = slot;
  return slot;
}

void StoreIndex::chain(Chains& chains, size_t key, uint32_t slot) {
  uint32_t& head = chains.heads[entries_[slot].hash[key] & (chains.heads.size() - 1)];
  entries_[slot].next[key] = std::exchange(head, slot);
}

// From the hashes that are known, in the order of the list.
void StoreIndex::rechain(const ElementList& list, size_t key, size_t buckets) {
  Chains& chains = chains_[key];
  left_ = {};
  if (chains.heads.size() != buckets) chains.heads = std::vector<uint32_t>(buckets);
  std::ranges::fill(chains.heads, kNone);
  for (const StoreElement* each = list.oldest; each && each->sequence <= chains.upTo; each = each->prev) {
    if (has(*each)) chain(chains, key, each->indexSlot);
  }
}

void StoreIndex::sweep(const ElementList& list) {
  for (size_t key = 0; key < kIndexKeys; ++key) {
    if (!chains_[key].heads.empty()) rechain(list, key, chains_[key].heads.size());
  }
  left_ = {};
  free_ = kNone;
  for (size_t slot = entries_.size(); slot--;) {
    if (!entries_[slot].element) entries_[slot].next[0] = std::exchange(free_, static_cast<uint32_t>(slot));
  }
  dead_ = 0;
}

void StoreIndex::forgetChanged(IndexKey key) {
  if (!IsPropertyKey(key)) return;
  Chains& chains = chains_[static_cast<size_t>(key)];
  const uint64_t now = IndexedPropertyGeneration();
  if (chains.generation != now) chains.clear();
  chains.generation = now;
}

bool StoreIndex::prepare(const ElementList& list, IndexKey which) {
  const auto key = static_cast<size_t>(which);
  Chains& chains = chains_[key];
  forgetChanged(which);
  if (chains.incomplete) return false;
  if (dead_ > list.size / kDeadShare) sweep(list);
  if (entries_.empty()) entries_.reserve(list.size);
  if (list.size > 2 * chains.heads.size()) rechain(list, key, std::bit_floor(list.size));
  for (StoreElement* each = OldestNewerThan(list, chains.upTo); each; each = each->prev) {
    const std::optional<uint32_t> hash = KeyHash(*each, which);
    if (!hash) {
      chains.clear();
      chains.incomplete = true;
      chains.generation = IndexedPropertyGeneration();
      return false;
    }
    const uint32_t slot = slotFor(*each);
    entries_[slot].hash[key] = *hash;
    chain(chains, key, slot);
    chains.upTo = each->sequence;
  }
  return true;
}

void StoreIndex::unlinked(StoreElement& element) noexcept {
  for (Chains& each : chains_) {
    if (each.incomplete) each.clear();  // it may have been the element that was in the way
  }
  if (!has(element)) return;
  entries_[element.indexSlot].element = nullptr;
  left_ = {element.sequence, element.indexSlot, {}};
  for (size_t key = 0; key < kIndexKeys; ++key) {
    left_.chained[key] = !chains_[key].heads.empty() && element.sequence <= chains_[key].upTo;
  }
  if (++dead_ <= entries_.size() / 2) return;
  // nobody has searched while half the store went: its memory goes, too
  entries_ = {};
  for (Chains& each : chains_) each.clear();
  left_ = {};
  free_ = kNone;
  dead_ = 0;
}

StoreElement* StoreIndex::next(const IndexQuestion& question, const StoreElement* previous) const {
  const auto key = static_cast<size_t>(question.key);
  const std::vector<uint32_t>& heads = chains_[key].heads;
  uint32_t slot = previous ? placeOf(*previous, key) : kNone;
  if (slot != kNone && entries_[slot].hash[key] == question.hash) {
    slot = entries_[slot].next[key];
  } else {
    slot = heads[question.hash & (heads.size() - 1)];
  }
  for (; slot != kNone; slot = entries_[slot].next[key]) {
    const Entry& entry = entries_[slot];
    if (!entry.element || entry.hash[key] != question.hash) continue;
    if (!previous || entry.element->sequence < previous->sequence) return entry.element;
  }
  return nullptr;
}

size_t StoreIndex::bytes() const {
  size_t sum = sizeof *this + entries_.capacity() * sizeof(Entry);
  for (const Chains& each : chains_) sum += each.heads.capacity() * sizeof(uint32_t);
  return sum;
}

const StoreIndex* SearchableIndex(ElementList& list, IndexKey key) {
  if (list.size < kSmallestIndexedList) return nullptr;
  try {
    if (!list.index) list.index = std::make_unique<StoreIndex>();
    auto& index = static_cast<StoreIndex&>(*list.index);
    return index.prepare(list, key) ? &index : nullptr;
  } catch (const std::bad_alloc&) {
    list.index.reset();  // a walk needs no memory of its own
    return nullptr;
  }
}

}  // namespace certkern
