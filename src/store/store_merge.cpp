#include "store/store_merge.h"

#include <certkern/errors.h>

#include <algorithm>
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

enum class Fate { Keep, Replace, Drop };
struct Verdict {
  Fate fate = Fate::Keep;
  StoreElement* mine = nullptr;
};

// Objects of the same bytes, oldest first in both.
struct Equals {
  std::vector<size_t> inFile;
  std::vector<StoreElement*> mine;  // those that were filed, with those that have left since
};
using EqualsByBytes = std::unordered_map<std::string_view, Equals>;

class Matching {
 public:
  Matching(CertStore& store, const ImageContent& file, const StoreChanges& changes)
      : store_(store), file_(file), changes_(changes), verdicts_(file.elements.size()) {
    for (const ElementOwner& each : changes.changed()) changed_.insert(each.get());
    for (StoreElement* each = changes.removed().first(); each; each = each->nextRemoved)
      removed_.insert(each);
  }

  std::vector<Verdict> match() {
    const std::lock_guard guard(store_.lock);
    for (const ElementType type : kTypes) matchType(type);
    return std::move(verdicts_);
  }

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
    for (auto& [bytes, equals] : all) matchEquals(equals);
  }

  // Where others have taken some of several equal objects out, those that have left here count as the same ones.
  void matchEquals(Equals& equals) {
    std::vector<StoreElement*>& mine = equals.mine;
    std::ranges::sort(mine, {}, &StoreElement::sequence);
    size_t gone = mine.size() - std::min(mine.size(), equals.inFile.size());
    for (const bool onlyRemoved : {true, false}) {
      for (size_t i = mine.size(); i-- && gone;) {
        if (onlyRemoved && !removed_.contains(mine[i])) continue;
        mine.erase(mine.begin() + static_cast<std::ptrdiff_t>(i));
        --gone;
      }
    }
    for (size_t i = 0; i < mine.size(); ++i) verdicts_[equals.inFile[i]] = verdictOn(mine[i]);
  }

  Verdict verdictOn(StoreElement* mine) const {
    if (removed_.contains(mine)) return {Fate::Drop, nullptr};
    return {changed_.contains(mine) ? Fate::Replace : Fate::Keep, mine};
  }

  CertStore& store_;
  const ImageContent& file_;
  const StoreChanges& changes_;
  std::unordered_set<StoreElement*> changed_, removed_;
  std::vector<Verdict> verdicts_;
};

// --- the image ---

bool PutAdditions(const StoreChanges& changes, ElementType type, PlannedChange& plan) {
  for (const ElementOwner& each : changes.added()) {
    if (each->type != type) continue;
    FilePlace place;
    if (!SerializeElement(*each.get(), plan.bytes, &place)) return false;
    plan.places.emplace_back(each.get(), place);
  }
  return true;
}

bool PutKept(const ImageContent& file, ElementType type, const std::vector<Verdict>& verdicts,
             PlannedChange& plan) {
  for (size_t i = 0; i < file.elements.size(); ++i) {
    const auto& [fate, mine] = verdicts[i];
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

void NumberPlaces(PlannedChange& plan) {
  for (auto& [element, place] : plan.places) place.layout = plan.layout.number;
}

// --- pieces ---

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
    if (isMoreDeadThanAlive()) return Patched::NotPossible;
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
    return Patched::Yes;
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
    const DWORD end = store_.layout.end;
    for (const ElementType type : kTypes) {
      if (!PutAdditions(changes_, type, plan_)) return false;
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
  const std::vector<Verdict> verdicts = Matching(store, file.image(), changes).match();
  if (!PutImageBytes(plan.bytes, kImageMagic)) return false;
  for (const ElementType type : kTypes) {
    if (!PutKept(file.image(), type, verdicts, plan) || !PutAdditions(changes, type, plan)) return false;
  }
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
