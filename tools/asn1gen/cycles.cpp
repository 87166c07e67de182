#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "checks.h"

namespace certkern::asn1gen {
namespace {

// Tarjan's walk with a stack of its own, since schemas decide how deep it goes.
class GroupWalk {
 public:
  explicit GroupWalk(const std::vector<std::vector<size_t>>& edges)
      : edges_(edges), group_(edges.size(), kNone), index_(edges.size(), kNone), low_(edges.size()) {}

  std::vector<size_t> run() {
    for (size_t node = 0; node < edges_.size(); ++node) {
      if (index_[node] == kNone) walkFrom(node);
    }
    return std::move(group_);
  }

 private:
  static constexpr size_t kNone = static_cast<size_t>(-1);
  struct Step {
    size_t node;
    size_t next;  // edge
  };

  void enter(size_t node) {
    index_[node] = low_[node] = count_++;
    open_.push_back(node);
    path_.push_back({node, 0});
  }

  void walkFrom(size_t root) {
    enter(root);
    while (!path_.empty()) {
      Step& step = path_.back();
      const size_t node = step.node;
      if (step.next < edges_[node].size()) {
        const size_t target = edges_[node][step.next++];
        if (index_[target] == kNone)
          enter(target);
        else if (group_[target] == kNone)
          low_[node] = std::min(low_[node], index_[target]);
        continue;
      }
      path_.pop_back();
      if (!path_.empty()) low_[path_.back().node] = std::min(low_[path_.back().node], low_[node]);
      if (low_[node] == index_[node]) close(node);
    }
  }

  void close(size_t first) {
    size_t node = kNone;
    do {
      node = open_.back();
      open_.pop_back();
      group_[node] = groups_;
    } while (node != first);
    ++groups_;
  }

  const std::vector<std::vector<size_t>>& edges_;
  std::vector<size_t> group_, index_, low_, open_;
  std::vector<Step> path_;
  size_t count_ = 0;
  size_t groups_ = 0;
};

bool Holds(const Member& member) { return IsStructure(member.type->kind) && !member.type->root().broken; }

}  // namespace

std::vector<size_t> GroupsOf(const std::vector<std::vector<size_t>>& edges) { return GroupWalk(edges).run(); }

void BreakCycles(Schema& schema, Diagnostics& diagnostics) {
  std::map<const Type*, size_t> number;
  for (const Type& type : schema.types) {
    if (IsStructure(type.kind) && !type.alias) number.emplace(&type, number.size());
  }
  std::vector<std::vector<size_t>> held(number.size()), demanded(number.size());
  for (const auto& [type, from] : number) {
    for (const Member& member : type->members) {
      if (!Holds(member)) continue;
      held[from].push_back(number.at(&member.type->root()));
      if (!member.optional) demanded[from].push_back(held[from].back());
    }
  }
  const std::vector<size_t> group = GroupsOf(held), endless = GroupsOf(demanded);
  for (Type& type : schema.types) {
    if (!IsStructure(type.kind) || type.alias) continue;
    const size_t from = number.at(&type);
    for (Member& member : type.members) {
      if (!Holds(member)) continue;
      const size_t to = number.at(&member.type->root());
      member.pointer = group[from] == group[to];
      if (!member.optional && endless[from] == endless[to])
        diagnostics.add(
            member.place,
            fmt::format("found '{}' that always contains '{}' again, expected an end: make it OPTIONAL",
                        member.name, type.name));
    }
  }
}

}  // namespace certkern::asn1gen
