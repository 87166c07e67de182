#include "certkern/chain/good_verdicts.h"

#include <algorithm>

#include "platform/limits.h"

namespace certkern {

// One that is being made; leaves nothing behind when it ends by an exception.
struct GoodVerdicts::Decision {
  explicit Decision(GoodVerdicts& its) : all(its), outer(its.open_) { all.open_ = this; }
  Decision(const Decision&) = delete;
  Decision& operator=(const Decision&) = delete;
  ~Decision() {
    all.open_ = outer;
    if (outer && !(ended && final)) outer->final = false;
  }

  GoodVerdicts& all;
  Decision* const outer;
  Verdict verdict;
  CertSet circles;  // met while under decision
  bool ended = false;
  bool final = true;  // false: with more room it might have gone on
};

void GoodVerdicts::met(CertRecord& cert, bool underDecision) {
  if (!open_) return;
  (underDecision ? open_->circles : open_->verdict.met).insert(&cert);
}

void GoodVerdicts::metTheBound() {
  if (open_) open_->final = false;
}

void GoodVerdicts::include(Decision& outer, const Verdict& inner) {
  outer.verdict.met.insert(inner.met.begin(), inner.met.end());
  outer.verdict.clones = std::max(outer.verdict.clones, inner.clones + 1);
}

bool GoodVerdicts::has(const CertRecord& cert, const CertSet& guard, unsigned depth) {
  const auto found = good_.find(&cert);
  if (found == good_.end() || keptAt_ != state()) return false;
  const Verdict& verdict = found->second;
  if (depth + verdict.clones > kMaxRevocationClones) return false;
  if (std::ranges::any_of(guard, [&](CertRecord* each) { return verdict.met.contains(each); })) return false;
  if (open_) include(*open_, verdict);
  return true;
}

RevocationResult GoodVerdicts::decide(CertRecord& cert, const std::function<RevocationResult()>& judge) {
  Decision decision(*this);
  const uint64_t before = state();
  const RevocationResult result = judge();
  decision.ended = true;
  decision.circles.erase(&cert);  // would close in the same way again
  if (Decision* const outer = decision.outer) {
    include(*outer, decision.verdict);
    outer->circles.insert(decision.circles.begin(), decision.circles.end());
  }
  if (result != kNotRevoked || !decision.final || !decision.circles.empty()) return result;
  // what it has learned on the way makes it old at once
  if (keptAt_ != before) good_.clear();
  keptAt_ = before;
  good_[&cert] = std::move(decision.verdict);
  return result;
}

}  // namespace certkern
