#include "certkern/chain/policy_tree.h"

#include "platform/limits.h"

namespace certkern {

PolicyNode& PolicyLevel::operator[](uint32_t j) {
  if (j >= slots_.size()) slots_.resize(size_t{j} + 1);
  Slot& slot = slots_[j];
  if (!slot.present) {
    slot = {PolicyNode(), true};
    ++size_;
  }
  return slot.node;
}

void PolicyLevel::erase(uint32_t j) {
  if (!has(j)) return;
  slots_[j].present = false;
  --size_;
}

bool PolicyBudget::takeNodes(uint64_t count) {
  nodes_ += count;
  return nodes_ <= kMaxPolicyNodes;
}

bool PolicyBudget::takeVisits(uint64_t count) {
  visits_ += count;
  return visits_ <= kMaxPolicyVisits;
}

PolicyTree::PolicyTree(const PolicyTreeWords& words, const ChainTrace& trace)
    : words_(words), trace_(trace), levels_(1) {
  node(0, 0) = {};
}

void PolicyTree::addChild(std::string_view policy, uint32_t parent, PolicyLevel& fresh) {
  const auto above = static_cast<uint32_t>(levels_.size() - 1);
  fresh[fresh.size()] = {policy, policy, 0, above, parent};
  ++node(above, parent).num_child;
}

// Step d.1: under each node that expects the policy, or any.
bool PolicyTree::addMatches(std::string_view policy, PolicyLevel& fresh, PolicyBudget& budget) {
  const PolicyLevel& above = newest();
  const uint32_t size = above.size();
  if (!size) return true;
  if (!budget.takeVisits(size)) return false;
  trace_.line(words_.leaf, policy, words_.size, uint64_t{size}, " depth ", levels_.size());
  for (uint32_t j = 0; j < size; ++j) {
    const std::string_view expected = above.at(j).expected_oid;
    if (expected != policy && expected != kAnyPolicy) continue;
    if (!budget.takeNodes(1)) return false;
    addChild(policy, j, fresh);
    trace_.line(" Create new leaf in d.1. oid = ", policy, " expected oid prev ", expected, " parent i j ",
                levels_.size() - 1, " ", uint64_t{j});
  }
  return true;
}

// Step d.2: under each node once more what it says itself, whether or not it has such a child.
bool PolicyTree::addAll(PolicyLevel& fresh, PolicyBudget& budget) {
  const PolicyLevel& above = newest();
  const uint32_t size = above.size();
  if (!budget.takeVisits(size) || !budget.takeNodes(size)) return false;
  for (uint32_t j = 0; j < size; ++j) {
    const std::string_view policy = above.at(j).oid;
    addChild(policy, j, fresh);
    trace_.line(" Create new leaf in d.2. oid = ", policy);
  }
  return true;
}

// All of d.1 comes before all of d.2, so the leaves do.
bool PolicyTree::addPolicies(std::span<const std::string_view> policies, PolicyBudget& budget) {
  trace_.line(" Certificate have certificate policy. Num = ", policies.size());
  if (!budget.takeVisits(policies.size())) return false;
  PolicyLevel fresh;
  for (const std::string_view policy : policies) {
    if (policy != kAnyPolicy && !addMatches(policy, fresh, budget)) return false;
  }
  for (const std::string_view policy : policies) {
    if (policy == kAnyPolicy && !addAll(fresh, budget)) return false;
  }
  levels_.push_back(std::move(fresh));
  return true;
}

bool PolicyTree::addAnyPolicy(PolicyBudget& budget) {
  if (!budget.takeNodes(2)) return false;
  PolicyLevel fresh;
  addChild(kAnyPolicy, 0, fresh);
  levels_.push_back(std::move(fresh));
  return true;
}

bool PolicyTree::prune(PolicyBudget& budget) {
  constexpr size_t kFewestLevels = 3;
  trace_.line("start clear tree");
  trace_.line("size of Tree ", levels_.size());
  if (levels_.size() < kFewestLevels) return true;
  for (auto i = static_cast<uint32_t>(levels_.size() - 2); i >= 1; --i) {
    if (!budget.takeVisits(levels_[i].size() + uint64_t{1})) return false;
    pruneLevel(i);
  }
  return true;
}

// Indexes run to the number of nodes at the start, so that behind a gap the last ones are not seen, and what stands at a
// gap reads as a childless node that there is nothing to erase of. Its parent's count goes down all the same.
void PolicyTree::pruneLevel(uint32_t i) {
  PolicyLevel& level = levels_[i];
  const uint32_t size = level.size();
  trace_.line("Node num=", uint64_t{i}, " size ", uint64_t{size});
  for (uint32_t j = 0; j < size; ++j) {
    const PolicyNode each = level.at(j);
    uint32_t& siblings = node(each.parent_i, each.parent_j).num_child;
    trace_.line(" check leaf ", each.oid, "num_child ", uint64_t{each.num_child},
                " parent num_child = ", uint64_t{siblings}, " i j ", uint64_t{i}, " ", uint64_t{j});
    if (each.num_child) continue;
    if (siblings) --siblings;
    level.erase(j);
  }
}

std::vector<std::string_view> PolicyTree::policies() const {
  std::vector<std::string_view> policies;
  for (uint32_t j = 0; j < newest().size(); ++j) {
    if (const std::string_view oid = newest().at(j).oid; oid != kAnyPolicy) policies.push_back(oid);
  }
  return policies;
}

void PolicyTree::traceLevels() const {
  if (!trace_.on()) return;
  for (size_t i = levels_.size() - 1; i >= 1; --i) {
    const PolicyNode first = levels_[i].at(0);
    trace_.line("level = ", i, " Node size = ", uint64_t{levels_[i].size()},
                " num_child = ", uint64_t{first.num_child}, " parent_i = ", uint64_t{first.parent_i},
                " parent_j = ", uint64_t{first.parent_j});
  }
}

}  // namespace certkern
