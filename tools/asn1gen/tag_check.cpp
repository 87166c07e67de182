#include <fmt/format.h>

#include <map>
#include <set>

#include "bounds.h"
#include "checks.h"

namespace certkern::asn1gen {
namespace {

// What a value may begin with.
struct FirstTags {
  std::set<Tag> tags;
  bool any = false;
};

class TagChecker {
 public:
  explicit TagChecker(Diagnostics& diagnostics) : diagnostics_(diagnostics) {}

  void check(const Type& type) {
    if (type.alias || type.broken || IsList(type.kind)) return;
    if (type.kind == Kind::Sequence)
      checkSequence(type);
    else if (type.kind == Kind::Set || type.kind == Kind::Choice)
      checkUnordered(type);
  }

 private:
  // Each run of optional members, with the one behind them that must be there.
  void checkSequence(const Type& type) {
    Taken taken;
    for (const Member& member : type.members) {
      if (!take(taken, member, "optional")) return;
      if (!member.optional) taken = Taken();
    }
  }

  void checkUnordered(const Type& type) {
    Taken taken;
    for (const Member& member : type.members) {
      if (!take(taken, member, type.kind == Kind::Choice ? "alternative" : "component")) return;
    }
  }

  struct Taken {
    std::map<Tag, const Member*> tags;
    const Member* any = nullptr;
  };

  // Notes the first clash, and answers whether there was none.
  bool take(Taken& taken, const Member& member, std::string_view what) {
    if (member.type->broken) return true;
    const FirstTags first = firstTags(member, 0);
    if (taken.any) return clash(member, *taken.any, "any tag", what);
    const bool ordered = what == "optional";
    if (first.any && ordered && !taken.tags.empty())
      return clash(member, *taken.tags.begin()->second, "any tag", what);
    for (const Tag& tag : first.tags) {
      const auto [place, isNew] = taken.tags.emplace(tag, &member);
      if (!isNew && place->second != &member) return clash(member, *place->second, ToText(tag), what);
    }
    if (first.any) taken.any = &member;
    return true;
  }

  bool clash(const Member& member, const Member& earlier, const std::string& tag, std::string_view what) {
    diagnostics_.add(
        member.place,
        fmt::format(
            "found '{}' that begins with {}, expected another tag: the {} '{}' at {} may begin so, too",
            member.name, tag, what, earlier.name, ToText(earlier.place)));
    return false;
  }

  FirstTags firstTags(const Member& member, size_t depth) {
    if (!member.tags.empty()) return {{member.tags.front()}, false};
    return member.type->kind == Kind::Choice ? firstTags(member.type->root(), depth) : FirstTags{{}, true};
  }

  // Of an untagged choice: those of all alternatives. A choice that is its own alternative adds nothing to itself.
  FirstTags firstTags(const Type& choice, size_t depth) {
    const auto known = known_.find(&choice);
    if (known != known_.end()) return known->second;
    if (depth > kMaxReferences) return {};
    known_[&choice] = {};
    FirstTags all;
    for (const Member& member : choice.members) {
      const FirstTags one = firstTags(member, depth + 1);
      all.tags.insert(one.tags.begin(), one.tags.end());
      all.any = all.any || one.any;
      if (all.tags.size() > kMaxFirstTags) break;
    }
    return known_[&choice] = all;
  }

  Diagnostics& diagnostics_;
  std::map<const Type*, FirstTags> known_;
};

}  // namespace

void CheckTags(const Schema& schema, Diagnostics& diagnostics) {
  TagChecker checker(diagnostics);
  for (const Type& type : schema.types) checker.check(type);
}

}  // namespace certkern::asn1gen
