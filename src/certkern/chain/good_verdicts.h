// What one core call has found good, so that it is not decided again: the signer of a list stands on the same path as
// the certificate that the list speaks of, and without a memory each level of a path doubles the work of the one above.
//
// A verdict is used only where deciding again would go the very same way: the build knows neither more certificates and
// lists nor more that is trusted or checked for good, no certificate that the decision met is under decision now, and as many
// clones as it needed still fit.
#ifndef CERTKERN_CERTKERN_CHAIN_GOOD_VERDICTS_H
#define CERTKERN_CERTKERN_CHAIN_GOOD_VERDICTS_H

#include <functional>
#include <map>

#include "certkern/chain/chain_records.h"
#include "certkern/chain/revocation.h"

namespace certkern {

class GoodVerdicts {
 public:
  explicit GoodVerdicts(const InternedRecords& records) : records_(records) {}

  // A certificate was looked for among those under decision. All that a decision meets belongs to it.
  void met(CertRecord& cert, bool underDecision);
  void metTheBound();
  // Of `guard`: those under decision, at this depth of clones.
  bool has(const CertRecord& cert, const CertSet& guard, unsigned depth);
  // What `judge` answers, kept if it is good. Decisions may stand in each other.
  RevocationResult decide(CertRecord& cert, const std::function<RevocationResult()>& judge);
  void checkedForGood() { ++checked_; }

 private:
  struct Verdict {
    CertSet met;
    unsigned clones = 1;  // within each other, its own included
  };
  struct Decision;

  uint64_t state() const { return records_.version() + checked_; }
  static void include(Decision& outer, const Verdict& inner);

  const InternedRecords& records_;
  uint64_t checked_ = 0;
  uint64_t keptAt_ = 0;  // the state that all of good_ belong to
  std::map<const CertRecord*, Verdict> good_;
  Decision* open_ = nullptr;  // the innermost
};

}  // namespace certkern

#endif
