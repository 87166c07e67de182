// The tree of policies that a path leaves over (RFC 5280, 6.1), in the simplified shape that chains use: no mapping, no
// qualifiers, no set of initial policies. Levels are addressed by the index that a node got when it was made; pruning
// leaves gaps, and reading a gap gives a default node, anyPolicy without children below the top.
#ifndef CERTKERN_CERTKERN_CHAIN_POLICY_TREE_H
#define CERTKERN_CERTKERN_CHAIN_POLICY_TREE_H

#include <certkern/oids.h>

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "certkern/chain/chain_trace.h"

namespace certkern {

inline constexpr std::string_view kAnyPolicy = szOID_ANY_CERT_POLICY;

// Texts are those of the certificates' facts.
struct PolicyNode {
  std::string_view oid = kAnyPolicy;
  std::string_view expected_oid = kAnyPolicy;
  uint32_t num_child = 0;
  uint32_t parent_i = 0;  // level
  uint32_t parent_j = 0;  // index inside it
};

class PolicyLevel {
 public:
  // Of nodes, gaps not counted.
  uint32_t size() const { return size_; }
  bool has(uint32_t j) const { return j < slots_.size() && slots_[j].present; }
  // A gap reads as a default node.
  PolicyNode at(uint32_t j) const { return has(j) ? slots_[j].node : PolicyNode(); }
  // A gap becomes a default node.
  PolicyNode& operator[](uint32_t j);
  void erase(uint32_t j);

 private:
  struct Slot {
    PolicyNode node;
    bool present = false;
  };
  std::vector<Slot> slots_;
  uint32_t size_ = 0;
};

// What both trees of a pass may take: nodes that they hold, and looks at nodes, which all passes of a build share.
class PolicyBudget {
 public:
  explicit PolicyBudget(uint64_t& visits) : visits_(visits) {}
  [[nodiscard]] bool takeNodes(uint64_t count);
  [[nodiscard]] bool takeVisits(uint64_t count);

 private:
  uint64_t nodes_ = 0;
  uint64_t& visits_;
};

// Words of the trace, which differ between the trees.
struct PolicyTreeWords {
  const char* leaf;  // a policy that made leaves
  const char* size;  // of the level below which they stand
};
inline constexpr PolicyTreeWords kCertPolicyWords = {" cert policy in d.1. oid = ", " size of tree "};
inline constexpr PolicyTreeWords kApplPolicyWords = {"  appl/eku policy in d.1. oid = ",
                                                     "size of prev node "};

class PolicyTree {
 public:
  // One level with one default node.
  PolicyTree(const PolicyTreeWords& words, const ChainTrace& trace);

  // Each adds a level. False: the budget is spent, and the tree is of no more use.
  [[nodiscard]] bool addPolicies(std::span<const std::string_view> policies, PolicyBudget& budget);
  void addEmptyLevel() { levels_.emplace_back(); }
  // One anyPolicy under the first node of the level above, which comes to life if it is not there.
  [[nodiscard]] bool addAnyPolicy(PolicyBudget& budget);

  // Takes out what has no children, from the level above the newest upwards. False: the budget is spent.
  [[nodiscard]] bool prune(PolicyBudget& budget);

  size_t levels() const { return levels_.size(); }
  const PolicyLevel& level(size_t i) const { return levels_[i]; }
  const PolicyLevel& newest() const { return levels_.back(); }
  // The policies of the newest level, in order, anyPolicy left out.
  std::vector<std::string_view> policies() const;
  void traceLevels() const;

 private:
  PolicyNode& node(uint32_t i, uint32_t j) { return levels_[i][j]; }
  [[nodiscard]] bool addMatches(std::string_view policy, PolicyLevel& fresh, PolicyBudget& budget);
  [[nodiscard]] bool addAll(PolicyLevel& fresh, PolicyBudget& budget);
  void addChild(std::string_view policy, uint32_t parent, PolicyLevel& fresh);
  void pruneLevel(uint32_t i);

  const PolicyTreeWords& words_;
  const ChainTrace& trace_;
  std::vector<PolicyLevel> levels_;
};

}  // namespace certkern

#endif
