#include "asn1_typing.h"

#include "failure.h"
#include "text.h"

#include "asn1data/catalogue.h"
#include "asn1rt/context.h"
#include "asn1rt/decode_watcher.h"
#include "asn1rt/decoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <iterator>
#include <new>
#include <string_view>
#include <utility>

namespace certkern::cli {
namespace {

// --- names that are nearly right ---

constexpr size_t kMostSuggestions = 3;

bool SameLetter(char a, char b) {
  return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

// Letters to add, drop or change; neighbours that changed places are one change. Case does not count.
size_t Distance(std::string_view a, std::string_view b) {
  std::vector<size_t> beforeLast(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    beforeLast.swap(last);
    last.swap(row);
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + !SameLetter(a[i - 1], b[j - 1])});
      if (i > 1 && j > 1 && SameLetter(a[i - 1], b[j - 2]) && SameLetter(a[i - 2], b[j - 1]))
        row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
  }
  return row[b.size()];
}

std::string Suggestions(const std::string& name) {
  if (name.size() > kMaxAsn1TypeName) return {};
  std::vector<std::pair<size_t, const char*>> similar;
  for (const TypeInfo* type : asn1data::AllTypes()) {
    const size_t distance = Distance(name, type->name);
    if (distance <= std::max<size_t>(name.size() / 4, 1)) similar.emplace_back(distance, type->name);
  }
  std::stable_sort(similar.begin(), similar.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  if (similar.size() > kMostSuggestions) similar.resize(kMostSuggestions);
  std::string text;
  for (size_t i = 0; i < similar.size(); ++i)
    text += fmt::format("{}{}",
                        i == 0                        ? "; did you mean "
                            : i + 1 == similar.size() ? " or "
                                                      : ", ",
                        similar[i].second);
  return text.empty() ? text : text + "?";
}

// --- the decoder's steps ---

class Notes : public DecodeWatcher {
 public:
  struct Note {
    uint32_t offset;
    uint32_t end;
    const TypeInfo* type;
    const MemberInfo* member;                // that the element is; may be null
    const MemberInfo* lastInside = nullptr;  // of the type's members, the one that was met last
    bool open;                               // its end has not been seen yet
  };

  explicit Notes(std::span<const BYTE> block) : block_(block) {}

  void member(const MemberInfo& member) override {
    member_ = &member;
    if (!open_.empty()) notes_[open_.back()].lastInside = &member;
  }
  void element(const TypeInfo* type, const ElementHeader& header) override {
    const MemberInfo* const member = std::exchange(member_, nullptr);
    if (!isInside(header.start)) return;
    if (header.constructed) open_.push_back(notes_.size());
    notes_.push_back(
        {offsetOf(header.start), offsetOf(header.end), type, member, nullptr, header.constructed});
  }
  void leave(const ElementHeader& header, const uint8_t* end) override {
    if (!isInside(header.start)) return;
    for (; !open_.empty() && notes_[open_.back()].offset >= offsetOf(header.start); open_.pop_back()) {
      notes_[open_.back()].open = false;
      notes_[open_.back()].end = offsetOf(end);
    }
  }

  // Those around a place, outermost first.
  std::vector<const Note*> around(uint32_t place) const;
  const std::vector<Note>& all() const { return notes_; }

 private:
  // What was put together from segments lies elsewhere.
  bool isInside(const uint8_t* at) const {
    return std::less_equal<>()(block_.data(), at) && std::less<>()(at, block_.data() + block_.size());
  }
  uint32_t offsetOf(const uint8_t* at) const { return static_cast<uint32_t>(at - block_.data()); }

  std::span<const BYTE> block_;
  std::vector<Note> notes_;
  std::vector<size_t> open_;
  const MemberInfo* member_ = nullptr;
};

std::vector<const Notes::Note*> Notes::around(uint32_t place) const {
  std::vector<const Note*> found;
  for (const Note& note : notes_) {
    if (note.offset <= place && (place < note.end || (note.open && place == note.end)))
      found.push_back(&note);
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const Note* a, const Note* b) { return a->offset < b->offset; });
  return found;
}

// One for each offset: a choice and its alternative share one, and so do an open value and what it was found to be.
std::vector<Meaning> MeaningsOf(const std::vector<Notes::Note>& notes) {
  std::vector<Meaning> meanings;
  meanings.reserve(notes.size());
  for (const Notes::Note& note : notes)
    meanings.push_back({note.offset, note.member ? note.member->name : "", note.type});
  std::stable_sort(meanings.begin(), meanings.end(),
                   [](const Meaning& a, const Meaning& b) { return a.offset < b.offset; });
  std::vector<Meaning> merged;
  for (Meaning& each : meanings) {
    if (merged.empty() || merged.back().offset != each.offset) {
      merged.push_back(std::move(each));
      continue;
    }
    Meaning& same = merged.back();
    if (!same.member.empty() && !each.member.empty()) same.member += '.';
    same.member += each.member;
    same.type = each.type;
  }
  return merged;
}

// --- faults ---

struct StatusRow {
  int status;
  const char* expected;
  const char* found;  // null: what stands there
};
constexpr StatusRow kStatuses[] = {
    {ASN1_E_END_OF_INPUT, "an element within what holds it",      "one that runs past its end"},
    {ASN1_E_BAD_LENGTH,   "content of a length that is possible", "another length"            },
    {ASN1_E_BAD_VALUE,    "content that is possible",             "something else"            },
    {ASN1_E_TRAILING,     "the end",                              nullptr                     },
    {ASN1_E_TOO_DEEP,     "no more levels of elements",           "another"                   },
    {ASN1_E_TOO_MANY,     "no more elements or arcs",             "another"                   },
    {ASN1_E_NO_MEMORY,    "values that fit into memory",          "too many"                  },
    {ASN1_E_REPEATED,     "a member once",                        "it twice"                  },
};

// What a SEQUENCE would have to go on with; null when that is not said so easily.
const MemberInfo* NextRequired(const Notes::Note& note) {
  if (!note.type || note.type->kind != TypeKind::Sequence) return nullptr;
  auto next = note.type->members.begin();
  if (note.lastInside) {
    next = std::find_if(next, note.type->members.end(),
                        [&](const MemberInfo& each) { return &each == note.lastInside; });
    if (next == note.type->members.end()) return nullptr;
    ++next;
  }
  next = std::find_if(next, note.type->members.end(), [](const MemberInfo& each) { return !each.optional; });
  return next == note.type->members.end() ? nullptr : &*next;
}

std::string ExpectedTag(int status, const TypeInfo& type, const std::vector<const Notes::Note*>& around) {
  if (around.empty()) return type.name;
  const Notes::Note& innermost = *around.back();
  if (status == ASN1_E_UNKNOWN_CHOICE && innermost.type)
    return fmt::format("an alternative of {}", innermost.type->name);
  if (const MemberInfo* const next = NextRequired(innermost))
    return fmt::format("{} ({})", next->name, next->type->name);
  return fmt::format("what {} holds", innermost.type ? innermost.type->name : "the tag in front");
}

Fault FaultOf(const ASN1Context& context, const TypeInfo& type, std::span<const BYTE> block, size_t offset,
              const std::vector<const Notes::Note*>& around) {
  const auto* const row =
      std::find_if(std::begin(kStatuses), std::end(kStatuses),
                   [&](const StatusRow& each) { return each.status == context.status(); });
  if (row == std::end(kStatuses))
    return {offset, ExpectedTag(context.status(), type, around), FoundAt(block, offset)};
  const bool ends = context.status() == ASN1_E_TRAILING && !around.empty() && around.back()->type;
  return {offset, ends ? fmt::format("the end of {}", around.back()->type->name) : row->expected,
          row->found ? row->found : FoundAt(block, offset)};
}

std::string PlaceOf(const std::vector<const Notes::Note*>& around) {
  std::string place;
  for (const Notes::Note* note : around) {
    if (note->member && *note->member->name)
      place += fmt::format("{}{}", place.empty() ? "" : ".", note->member->name);
  }
  return place;
}

}  // namespace

const TypeInfo& TypeByName(const std::string& name) {
  if (const TypeInfo* const type = FindType(asn1data::AllTypes(), name.c_str())) return *type;
  const std::string shown = Escaped(Utf8Of(std::string_view(name).substr(0, kMaxAsn1TypeName)));
  throw WrongUsage(fmt::format("there is no type {}{} (--list names all)", shown, Suggestions(name)));
}

const Meaning* Typed::at(uint32_t offset) const {
  const auto found = std::partition_point(meanings.begin(), meanings.end(),
                                          [&](const Meaning& each) { return each.offset < offset; });
  return found != meanings.end() && found->offset == offset ? &*found : nullptr;
}

Typed ReadTyped(std::span<const BYTE> block, size_t offset, const TypeInfo& type, OpenValues values) {
  const ASN1ContextPtr context = ASN1ContextPtr::Create();
  if (!context) throw std::bad_alloc();
  Notes notes(block);
  context->setInput(block);
  context->setPosition(offset);
  context->setWatcher(&notes);
  context->setOpenValues(values);
  context->budget().heap = std::min(context->budget().heap, kMaxAsn1CheckedHeap);
  context->budget().elements = std::min<uint64_t>(context->budget().elements, kMaxAsn1ShownElements);
  void* const value = context->allocate(type.size);
  if (!value) throw std::bad_alloc();
  Typed result;
  if (DecodeValue(*context, type, value, Tagging::Explicit, 0) == ASN1_OK) {
    result.size = context->position() - offset;
    result.meanings = MeaningsOf(notes.all());
    return result;
  }
  const auto around = notes.around(static_cast<uint32_t>(context->errorOffset()));
  result.fault = FaultOf(*context, type, block, context->errorOffset(), around);
  result.place = PlaceOf(around);
  return result;
}

}  // namespace certkern::cli
