// The index beside a store's certificates (by SHA-1, key identifier, subject, and issuer with serial number) or its CRLs
// (by what a newer list takes the place of). It gives the elements that a search would stop at, in the order of the list,
// and leaves the comparing to the search; so a search by index and a walk can't differ in anything but time.
//
// Each key is built by the first search that asks for it, and later searches add what has come since. Memory: at most 64
// bytes an element with all keys built. An element that has no such key (it can't be decoded) may end a walk, so a
// list with one is walked. Everything is guarded by the store's lock.
#ifndef CERTKERN_STORE_STORE_INDEX_H
#define CERTKERN_STORE_STORE_INDEX_H

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "certkern/chain/normal_name.h"
#include "store/store_record.h"

namespace certkern {

enum class IndexKey : uint8_t {
  Sha1,
  KeyIdentifier,
  Subject,
  IssuerSerial,
  CrlLine = IssuerSerial,  // a list has elements of one type: the place is free in that of the CRLs
};
inline constexpr size_t kIndexKeys = 4;

// Different values may share a hash.
struct IndexQuestion {
  IndexKey key;
  uint32_t hash;
};
IndexQuestion AskBytes(IndexKey key, std::span<const BYTE> value);
// Subjects have one key for both questions, the same bytes and the same normal name: equal bytes have equal names.
IndexQuestion AskSubject(const NormalName& subject);
// Serial numbers of one value are one, however they are written.
IndexQuestion AskIssuerSerial(const CERT_NAME_BLOB& issuer, const CRYPT_INTEGER_BLOB& serialNumber);

// The issuer's bytes, and what tells its lists apart.
IndexQuestion AskCrlLine(const CRL_INFO& crl);

// To walk so few is no slower.
inline constexpr size_t kSmallestIndexedList = 32;

// To build a key costs about as much as so many walks over the list. An addition looks for one object and has no need
// of a key that others don't use as well, so additions walk until they have spent what the key would have cost.
inline constexpr size_t kWalksBeforeIndex = 64;
inline bool IsWorthIndexing(const ElementList& list) {
  return list.index || list.walked / kWalksBeforeIndex >= list.size;
}

class StoreIndex final : public ElementIndex {
 public:
  bool linked(StoreElement&) override { return true; }  // the next search takes it in
  void unlinked(StoreElement& element) noexcept override;

  // Brings a key up to date with the list. False: the list has to be walked. May throw std::bad_alloc.
  [[nodiscard]] bool prepare(const ElementList& list, IndexKey key);
  // The newest element behind `previous` (null: of all) that may be the answer; the key is prepared.
  StoreElement* next(const IndexQuestion& question, const StoreElement* previous) const;

  size_t bytes() const;  // of memory

 private:
  static constexpr uint32_t kNone = ~uint32_t{0};

  // All but `element` by key. A certificate that has left stays in its chains, without its element, until the sweep.
  struct Entry {
    StoreElement* element = nullptr;
    std::array<uint32_t, kIndexKeys> hash{};
    std::array<uint32_t, kIndexKeys> next{};
  };
  static_assert(sizeof(Entry) == 40);

  // Entries of one bucket, newest first.
  struct Chains {
    std::vector<uint32_t> heads;  // a power of two
    uint64_t upTo = 0;            // sequence of the newest element that is in
    uint64_t generation = 0;      // of the properties, when they were read
    bool incomplete = false;      // an element without this key: walk

    void clear() { *this = {}; }
  };

  // The element that left last still stands in its chains: a walk that deletes what it meets goes on from there.
  struct Left {
    uint64_t sequence = 0;
    uint32_t slot = kNone;
    std::array<bool, kIndexKeys> chained{};
  };

  bool has(const StoreElement& element) const;
  uint32_t placeOf(const StoreElement& element, size_t key) const;
  uint32_t slotFor(StoreElement& element);
  void forgetChanged(IndexKey key);
  void chain(Chains& chains, size_t key, uint32_t slot);
  void rechain(const ElementList& list, size_t key, size_t buckets);
  void sweep(const ElementList& list);

  std::vector<Entry> entries_;
  std::array<Chains, kIndexKeys> chains_;
  Left left_;              // until a chain is made anew
  uint32_t free_ = kNone;  // entries in no chain, by their first `next`
  size_t dead_ = 0;        // entries without an element that are still in chains
};

// The index of a store's list, ready for this key; null: walk. The caller holds the store's lock.
const StoreIndex* SearchableIndex(ElementList& list, IndexKey key);

// The elements that a search can match, newest first: those that the index proposes, or all where there is no question
// or no index. The caller holds the store's lock.
class Candidates {
 public:
  Candidates(CertStore& store, ElementType type, const std::optional<IndexQuestion>& question)
      : store_(store),
        type_(type),
        question_(question),
        index_(question ? SearchableIndex(store.list(type), question->key) : nullptr) {}

  StoreElement* behind(const StoreElement* previous) const {
    return index_ ? index_->next(*question_, previous) : NextElement(store_, type_, previous);
  }
  bool areAll() const { return !index_; }
  bool areAskedFor() const { return question_.has_value(); }

 private:
  CertStore& store_;
  const ElementType type_;
  const std::optional<IndexQuestion> question_;
  const StoreIndex* const index_;
};

}  // namespace certkern

#endif
