// What a store has changed since its file was last read or written through it. A commit applies just that to what the file
// holds by then, so processes that change one file don't undo each other.
//
// Additions are the newest elements of the lists, those that are not filed. Elements that were filed and have left stand in
// a chain that keeps them alive: what is to leave the file is told by its bytes. Changed properties are marked at the
// element, and at the store so that nobody walks its lists without need.
#ifndef CERTKERN_STORE_STORE_CHANGES_H
#define CERTKERN_STORE_STORE_CHANGES_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "store/file_witness.h"
#include "store/store_element.h"

namespace certkern {

// Changed or not, as a bool would tell; but a commit can say up to which change it has written, and a change that comes
// meanwhile is not forgotten.
class ChangeCount {
 public:
  ChangeCount& operator=(bool changed) noexcept {
    if (changed) {
      changes_.fetch_add(1);
    } else {
      written_ = changes_.load();
    }
    return *this;
  }
  operator bool() const noexcept {  // NOLINT(google-explicit-constructor): as an atomic
    return changes_.load() != written_.load();
  }
  uint64_t now() const noexcept { return changes_.load(); }
  void writtenUpTo(uint64_t change) noexcept { written_ = change; }

 private:
  std::atomic<uint64_t> changes_{0}, written_{0};
};

// A chain through the elements themselves, with a reference on each: to take an element out never needs memory.
class RemovedElements {
 public:
  RemovedElements() = default;
  RemovedElements(RemovedElements&& other) noexcept : first_(std::exchange(other.first_, nullptr)) {}
  RemovedElements& operator=(RemovedElements&& other) noexcept {
    std::swap(first_, other.first_);
    return *this;
  }
  ~RemovedElements();

  void push(StoreElement& element) noexcept;
  void takeOver(RemovedElements&& others) noexcept;
  StoreElement* first() const { return first_; }  // the others by nextRemoved

 private:
  StoreElement* first_ = nullptr;
};

// How a file in the serialized form is laid out, and which file that is.
struct FileLayout {
  uint32_t number = 0;  // of all layouts that this store has known
  FileWitness file;
  bool certain = false;  // a file of the same marks holds the same
  DWORD end = 0;         // where its end marker stands; 0: it is in no such form, or unknown
  DWORD dead = 0;        // bytes in front of that which no element takes up
  // Hashes of objects that others have added and this store has not read, in their order; null: there are none.
  std::shared_ptr<const std::vector<size_t>> unseen;
};

// The changes of one commit. What was not written in the end is the store's again, to be written by the next.
class StoreChanges {
 public:
  explicit StoreChanges(CertStore& store) : store_(store) {}
  ~StoreChanges();
  StoreChanges(const StoreChanges&) = delete;
  StoreChanges& operator=(const StoreChanges&) = delete;

  void take();  // takes the store's lock. May throw std::bad_alloc
  bool none() const { return added_.empty() && changed_.empty() && !removed_.first(); }
  const std::vector<ElementOwner>& added() const { return added_; }  // certificates, then CRLs; oldest first
  const std::vector<ElementOwner>& changed() const { return changed_; }
  const RemovedElements& removed() const { return removed_; }

  // They are in the file, which has this layout now, and these places for elements of the store. Takes the store's lock.
  using Places = std::vector<std::pair<StoreElement*, FilePlace>>;
  void written(const FileLayout& layout, const Places& places) noexcept;

 private:
  void takeAdditions();
  void takePropertyChanges();

  CertStore& store_;
  uint64_t upTo_ = 0;
  bool tookMarks_ = false;
  std::vector<ElementOwner> added_, changed_;
  RemovedElements removed_;
};

}  // namespace certkern

#endif
