#include "certkern/chain/policy_tree.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/limits.h"

namespace certkern::test {
namespace {

using Policies = std::vector<std::string_view>;
constexpr std::string_view kA = "1.1", kB = "1.2", kC = "1.3", kD = "1.4", kX = "1.5", kY = "1.6";

std::string Short(std::string_view oid) {
  constexpr const char* kNames[] = {"A", "B", "C", "D", "X", "Y"};
  return oid == kAnyPolicy ? "any" : kNames[oid.back() - '1'];
}

// "0:A<-(0,0) 1": index, policy, parent, children; gaps are left out.
std::string Told(const PolicyLevel& level) {
  std::string told;
  for (uint32_t j = 0; j < 64; ++j) {
    if (!level.has(j)) continue;
    const PolicyNode node = level.at(j);
    const auto number = [](uint32_t value) { return std::to_string(value); };
    told += (told.empty() ? "" : ", ") + number(j) + ":" + Short(node.oid) + "<-(" + number(node.parent_i)
        + "," + number(node.parent_j) + ") " + number(node.num_child);
  }
  return told;
}

std::string List(const PolicyTree& tree) {
  std::string list;
  for (const std::string_view each : tree.policies()) list += Short(each);
  return list;
}

// A tree that grows as it does in a pass: each certificate with policies prunes.
class Grown {
 public:
  void add(const Policies& policies) {
    ASSERT_TRUE(tree.addPolicies(policies, budget));
    ASSERT_TRUE(tree.prune(budget));
  }
  void addAny() { ASSERT_TRUE(tree.addAnyPolicy(budget)); }
  std::string level(size_t i) const { return Told(tree.level(i)); }

  uint64_t visits = 0;
  PolicyBudget budget{visits};
  const ChainTrace trace{};
  PolicyTree tree{kCertPolicyWords, trace};
};

TEST(PolicyTree, GapsHideWhatStandsBehindThem) {
  Grown grown;
  grown.add({kA, kB, kC});
  EXPECT_EQ(grown.level(1), "0:A<-(0,0) 0, 1:B<-(0,0) 0, 2:C<-(0,0) 0");
  EXPECT_EQ(grown.level(0), "0:any<-(0,0) 3");
  grown.add({kC});
  EXPECT_EQ(grown.level(2), "0:C<-(1,2) 0");
  EXPECT_EQ(grown.level(1), "2:C<-(0,0) 1");
  EXPECT_EQ(grown.level(0), "0:any<-(0,0) 1");
  grown.add({kD});
  EXPECT_EQ(grown.level(3), "");
  EXPECT_EQ(grown.level(2), "");
  EXPECT_EQ(grown.level(1), "2:C<-(0,0) 0") << "behind the gap, so it stays";
  EXPECT_EQ(grown.level(0), "0:any<-(0,0) 0");
}

TEST(PolicyTree, AGapTakesItsChildFromTheTop) {
  Grown grown;
  grown.add({kA, kB, kC});
  grown.add({kC});
  grown.add({kC});
  EXPECT_EQ(grown.level(3), "0:C<-(2,0) 0");
  EXPECT_EQ(List(grown.tree), "C");
  EXPECT_EQ(grown.level(2), "0:C<-(1,2) 1");
  EXPECT_EQ(grown.level(1), "2:C<-(0,0) 1");
  EXPECT_EQ(grown.level(0), "0:any<-(0,0) 0");
  grown.add({kC});
  EXPECT_EQ(grown.level(0), "0:any<-(0,0) 0") << "never below zero";
}

TEST(PolicyTree, AnyPolicyRepeatsWhatIsThereAlready) {
  Grown grown;
  grown.add({kAnyPolicy});
  grown.add({kAnyPolicy, kA});
  EXPECT_EQ(grown.level(2), "0:A<-(1,0) 0, 1:any<-(1,0) 0") << "named ones first, whatever the order";
  grown.add({kA});
  EXPECT_EQ(grown.level(3), "0:A<-(2,0) 0, 1:A<-(2,1) 0");
  EXPECT_EQ(List(grown.tree), "AA");
  grown.add({kAnyPolicy});
  EXPECT_EQ(grown.level(4), "0:A<-(3,0) 0, 1:A<-(3,1) 0");
}

TEST(PolicyTree, ApplicationPolicies) {
  Grown grown;
  grown.addAny();
  EXPECT_EQ(grown.level(1), "0:any<-(0,0) 0");
  grown.add({kX, kY});
  EXPECT_EQ(grown.level(2), "0:X<-(1,0) 0, 1:Y<-(1,0) 0");
  grown.add({kY});
  EXPECT_EQ(grown.level(3), "0:Y<-(2,1) 0");
  EXPECT_EQ(grown.level(2), "1:Y<-(1,0) 1");
  EXPECT_EQ(List(grown.tree), "Y");

  Grown revived;
  revived.add({kX});
  revived.add({kY});
  EXPECT_EQ(revived.level(2), "");
  revived.addAny();
  EXPECT_EQ(revived.level(2), "0:any<-(0,0) 1") << "a level that had died";
  EXPECT_EQ(revived.level(3), "0:any<-(2,0) 0");
  EXPECT_EQ(List(revived.tree), "");
}

TEST(PolicyTree, NothingGrowsOutOfAnEmptyLevel) {
  Grown grown;
  grown.tree.addEmptyLevel();
  grown.add({kA, kAnyPolicy});
  EXPECT_EQ(grown.level(2), "");
}

TEST(PolicyTree, NodesAreBounded) {
  Grown grown;
  const Policies sixteen(16, kAnyPolicy);
  for (int level = 0; level < 3; ++level) grown.add(sixteen);
  EXPECT_EQ(grown.tree.newest().size(), 4096u);
  EXPECT_FALSE(grown.tree.addPolicies(sixteen, grown.budget)) << "4096 * 16 and those above";
}

// The work of all passes of a build is bounded, even where no node comes of it.
TEST(PolicyTree, VisitsAreBounded) {
  uint64_t visits = 0;
  const ChainTrace trace{};
  const Policies many(60000, kA), others(60000, kB);
  bool spent = false;
  for (int pass = 0; pass < 2; ++pass) {
    PolicyBudget budget(visits);
    PolicyTree tree(kCertPolicyWords, trace);
    spent = !tree.addPolicies(many, budget) || !tree.addPolicies(others, budget);
  }
  EXPECT_TRUE(spent);
  EXPECT_LE(visits, kMaxPolicyVisits + 2 * many.size());
}

}  // namespace
}  // namespace certkern::test
