#include "store/store_merge.h"

#include <certkern/errors.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "ber/read_cursor.h"
#include "platform/limits.h"

namespace certkern {
namespace {

constexpr ElementType kTypes[] = {ElementType::Certificate, ElementType::Crl};

bool FitsFile(const ImageBytes& image) {
  return image.size <= kMaxStoreFile || Fault(ERROR_NOT_ENOUGH_MEMORY);  // nobody could read it
}

// --- which object of the file is which of the store ---

// What an object is told by. Bytes behind the object itself are lost once a context was made of it.
std::string_view KeyOf(std::span<const BYTE> encoded) {
  BerReadCursor in(encoded), content;
  BYTE tag = 0;
  if (in.readElement(tag, content)) encoded = encoded.first(encoded.size() - in.rest().size());
  return {reinterpret_cast<const char*>(encoded.data()), encoded.size()};
}

size_t HashOf(std::span<const BYTE> encoded) { return std::hash<std::string_view>()(KeyOf(encoded)); }

enum class Fate { Keep, Replace, Drop };
struct Verdict {
  Fate fate = Fate::Keep;
  StoreElement* mine = nullptr;
};

// Objects of the same bytes, oldest first in each.
struct Equals {
  std::vector<size_t> inFile;
  std::vector<StoreElement*> mine;  // those that were filed, with those that have left since
  std::vector<StoreElement*> added;
};
using ElementSet = std::unordered_set<StoreElement*>;
using EqualsByBytes = std::unordered_map<std::string_view, Equals>;

class Matching {
 public:
  Matching(CertStore& store, const ImageContent& file, const StoreChanges& changes)
      : store_(store), file_(file), changes_(changes), verdicts_(file.elements.size()) {
    for (const ElementOwner& each : changes.changed()) changed_.insert(each.get());
    for (StoreElement* each = changes.removed().first(); each; each = each->nextRemoved)
      removed_.insert(each);
  }

  void match() {
    const std::lock_guard guard(store_.lock);
    for (const ElementType type : kTypes) matchType(type);
  }
  const Verdict& of(size_t inFile) const { return verdicts_[inFile]; }
  // Additions that don't come behind what the file holds: they take the place of an object there, or stay away because the
  // one that they inherited from was taken out.
  const ElementSet& placed() const { return placed_; }

 private:
  void matchType(ElementType type) {
    EqualsByBytes all;
    for (size_t i = 0; i < file_.elements.size(); ++i) {
      if (file_.elements[i].type == type) all[KeyOf(file_.elements[i].encoded)].inFile.push_back(i);
    }
    const auto enter = [&](StoreElement* each) {
      const auto found = all.find(KeyOf(each->encoded()));  // what others have taken out stays away
      if (found != all.end()) found->second.mine.push_back(each);
    };
    for (StoreElement* each = store_.list(type).oldest; each; each = each->prev) {
      if (each->isFiled) enter(each);
    }
    for (StoreElement* each : removed_) {
      if (each->type == type) enter(each);
    }
    for (const ElementOwner& each : changes_.added()) {
      if (each->type != type) continue;
      const auto found = all.find(KeyOf(each->encoded()));
      if (found != all.end()) {
        found->second.added.push_back(each.get());
      } else if (each->isHeir) {
        placed_.insert(each.get());
      }
    }
    for (auto& [bytes, equals] : all) matchEquals(equals);
  }

  // Where others have taken some of several equal objects out, those that have left here count as the same ones. Where
  // others have added more of them, what was added here is the same object: a second copy would outlive its deletion.
  void matchEquals(Equals& equals) {
    std::vector<StoreElement*>& mine = equals.mine;
    std::ranges::sort(mine, {}, &StoreElement::sequence);
    size_t gone = mine.size() - std::min(mine.size(), equals.inFile.size());
    for (const bool onlyRemoved : {true, false}) {
      for (size_t i = mine.size(); i-- && gone;) {
        if (onlyRemoved && !removed_.contains(mine[i])) continue;
        mine.erase(mine.begin() + static_cast<std::ptrdiff_t>(i));
        --gone;
        if (!onlyRemoved) continue;
        const auto heir = std::ranges::find_if(equals.added, &StoreElement::isHeir);
        if (heir == equals.added.end()) continue;
        placed_.insert(*heir);
        equals.added.erase(heir);
      }
    }
    size_t next = 0;
    for (StoreElement* each : mine) verdicts_[equals.inFile[next++]] = verdictOn(each);
    for (StoreElement* each : equals.added) {
      if (next == equals.inFile.size()) break;
      verdicts_[equals.inFile[next++]] = {Fate::Replace, each};
      placed_.insert(each);
    }
  }

  Verdict verdictOn(StoreElement* mine) const {
    if (removed_.contains(mine)) return {Fate::Drop, nullptr};
    return {changed_.contains(mine) ? Fate::Replace : Fate::Keep, mine};
  }

  CertStore& store_;
  const ImageContent& file_;
  const StoreChanges& changes_;
  ElementSet changed_, removed_, placed_;
  std::vector<Verdict> verdicts_;
};

// --- the image ---

bool PutAdditions(const StoreChanges& changes, const ElementSet& placed, ElementType type,
                  PlannedChange& plan) {
  for (const ElementOwner& each : changes.added()) {
    if (each->type != type || placed.contains(each.get())) continue;
    FilePlace place;
    if (!SerializeElement(*each.get(), plan.bytes, &place)) return false;
    plan.places.emplace_back(each.get(), place);
  }
  return true;
}

bool PutKept(const ImageContent& file, ElementType type, const Matching& matching, PlannedChange& plan) {
  for (size_t i = 0; i < file.elements.size(); ++i) {
    const auto& [fate, mine] = matching.of(i);
    if (file.elements[i].type != type || fate == Fate::Drop) continue;
    FilePlace place;
    if (fate == Fate::Replace ? !SerializeElement(*mine, plan.bytes, &place)
                              : !PutImageElement(file, file.elements[i], plan.bytes, place)) {
      return false;
    }
    if (mine) plan.places.emplace_back(mine, place);
  }
  return true;
}

// Hashes of the objects that only the file holds, in their order. What this store adds may be one of them.
std::shared_ptr<const std::vector<size_t>> UnseenOf(const ImageContent& file, const Matching& matching) {
  std::vector<size_t> hashes;
  for (size_t i = 0; i < file.elements.size(); ++i) {
    const auto& [fate, mine] = matching.of(i);
    if (fate != Fate::Drop && !mine) hashes.push_back(HashOf(file.elements[i].encoded));
  }
  if (hashes.empty()) return {};
  std::ranges::sort(hashes);
  return std::make_shared<const std::vector<size_t>>(std::move(hashes));
}

void NumberPlaces(PlannedChange& plan) {
  for (auto& [element, place] : plan.places) place.layout = plan.layout.number;
}

// --- pieces ---

// Bytes of an element beside its object: the heads of the records, its hashes, a URL.
constexpr size_t kUsualProperties = 1024;

bool IsKnown(const CertStore& store, const FilePlace& place) {
  return place.layout != 0 && place.layout == store.layout.number;
}

// Bytes of the plan that are to stand somewhere; they may still move.
struct Piece {
  uint64_t offset;
  size_t from, size;
};

// The changes of one patch, one kind after the other.
class Patch {
 public:
  Patch(CertStore& store, const StoreChanges& changes, PlannedChange& plan)
      : store_(store), changes_(changes), plan_(plan) {}

  Patched make(const struct stat& file) {
    plan_.layout = store_.layout;
    if (!removals() || !properties()) return possible_ ? Patched::Failed : Patched::NotPossible;
    if (isMoreDeadThanAlive() || addsUnseen()) return Patched::NotPossible;
    uint64_t size = static_cast<uint64_t>(file.st_size);
    if (!changes_.added().empty() && !additions(size)) return Patched::Failed;
    if (size > kMaxStoreFile) return Patched::NotPossible;  // without what is dead it may still fit
    for (const Piece& each : pieces_) {
      plan_.change.pieces.push_back(
          {each.offset, std::span(plan_.bytes.bytes).subspan(each.from, each.size)});
    }
    plan_.change.newSize = size;
    plan_.change.oldSize = static_cast<uint64_t>(file.st_size);
    plan_.change.inode = file.st_ino;
    const bool readable = ChecksumOfRest(fileno(store_.file), plan_.change, plan_.change.rest);
    return readable ? Patched::Yes : Patched::NotPossible;
  }

 private:
  bool removals() {
    for (StoreElement* each = changes_.removed().first(); each; each = each->nextRemoved) {
      if (!IsKnown(store_, each->place)) return possible_ = false;
      constexpr BYTE kDead[] = {BYTE{kDeadObject}, 0, 0, 0};
      if (!put(each->place.object, [&] { return PutImageBytes(plan_.bytes, kDead); })) return false;
      plan_.layout.dead += each->place.end - each->place.start;
    }
    return true;
  }

  bool properties() {
    for (const ElementOwner& each : changes_.changed()) {
      if (!IsKnown(store_, each->place)) return possible_ = false;
      const FilePlace& place = each->place;
      if (!put(place.start, [&] { return SerializeProperties(*each.get(), plan_.bytes); })) return false;
      if (pieces_.back().size != place.object - place.start) return possible_ = false;
    }
    return true;
  }

  // In the place of the end marker; the marker itself comes last, so that a reader without a journal finds the old store
  // for as long as possible.
  bool additions(uint64_t& size) {
    const size_t from = plan_.bytes.bytes.size();
    size_t room = from;
    for (const ElementOwner& each : changes_.added()) room += each->encoded().size() + kUsualProperties;
    plan_.bytes.bytes.reserve(room);  // a large list must not be copied while it grows
    const DWORD end = store_.layout.end;
    for (const ElementType type : kTypes) {
      if (!PutAdditions(changes_, {}, type, plan_)) return false;
    }
    for (auto& [element, place] : plan_.places) {
      const auto moved = static_cast<DWORD>(end - from);
      place = {place.start + moved, place.object + moved, place.end + moved, plan_.layout.number};
    }
    plan_.layout.end = static_cast<DWORD>(end + (plan_.bytes.size - from));
    if (!PutImageBytes(plan_.bytes, kImageEnd)) return false;
    pieces_.push_back({end + kImageEnd.size(), from + kImageEnd.size(),
                       plan_.bytes.bytes.size() - from - kImageEnd.size()});
    pieces_.push_back({end, from, kImageEnd.size()});
    size = uint64_t{end} + (plan_.bytes.size - from);
    return true;
  }

  // Others may have added the same object, which only the file tells.
  bool addsUnseen() const {
    return store_.layout.unseen && std::ranges::any_of(changes_.added(), [&](const ElementOwner& each) {
             return std::ranges::binary_search(*store_.layout.unseen, HashOf(each->encoded()));
           });
  }

  bool isMoreDeadThanAlive() const {
    const FileLayout& layout = plan_.layout;
    return layout.dead > layout.end - kImageMagic.size() - layout.dead;
  }

  template <class Put>
  bool put(uint64_t offset, Put bytes) {
    const size_t from = plan_.bytes.bytes.size();
    if (!bytes()) return false;
    pieces_.push_back({offset, from, plan_.bytes.bytes.size() - from});
    return true;
  }

  CertStore& store_;
  const StoreChanges& changes_;
  PlannedChange& plan_;
  std::vector<Piece> pieces_;
  bool possible_ = true;
};

}  // namespace

bool MergeChanges(CertStore& store, const StoreContent& file, const StoreChanges& changes,
                  PlannedChange& plan) {
  Matching matching(store, file.image(), changes);
  matching.match();
  if (!PutImageBytes(plan.bytes, kImageMagic)) return false;
  for (const ElementType type : kTypes) {
    if (!PutKept(file.image(), type, matching, plan)
        || !PutAdditions(changes, matching.placed(), type, plan)) {
      return false;
    }
  }
  plan.layout.unseen = UnseenOf(file.image(), matching);
  plan.layout.number = store.layout.number + 1;
  plan.layout.end = static_cast<DWORD>(plan.bytes.size);
  NumberPlaces(plan);
  if (!PutImageBytes(plan.bytes, kImageEnd) || !FitsFile(plan.bytes)) return false;
  plan.change = FileChange::Whole(plan.bytes.bytes);
  return true;
}

Patched PatchChanges(CertStore& store, const StoreChanges& changes, const struct stat& file,
                     PlannedChange& plan) {
  return Patch(store, changes, plan).make(file);
}

}  // namespace certkern
