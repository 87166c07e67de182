// The CRLs that a decision on one certificate may use: those that the build knows, those in stores, and those that the
// distribution points of the certificate and of the CRLs themselves lead to.
#ifndef CERTKERN_CERTKERN_CHAIN_CRL_COLLECTION_H
#define CERTKERN_CERTKERN_CHAIN_CRL_COLLECTION_H

#include <map>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "certkern/chain/chain_builder.h"
#include "certkern/chain/crl_facts.h"

namespace certkern {

// Newest first, and of equally old ones the one found first: an older list that is still valid must not hide what the
// newer one tells.
struct NewestFirst {
  bool operator()(const CrlRecord* a, const CrlRecord* b) const;
};
using NewestCrls = std::set<CrlRecord*, NewestFirst>;

// One of many lists is looked at. False: that was enough; what is not looked at proves nothing.
[[nodiscard]] bool TakeCrlStep(BuildBudget& budget);

enum class CrlSource { Cache, CacheOrWire };

class CrlCollection {
 public:
  // The builder is the clone that decides on `cert`.
  CrlCollection(ChainBuilder& builder, const CertRecord& cert) : builder_(builder), cert_(cert) {}

  // What the build has met before, and what is in the stores.
  void addKnown();
  // What the certificate's own points lead to, for complete and for delta CRLs.
  void addFromPoints(CrlSource source);

  const NewestCrls& bases() const { return bases_; }
  // The deltas that continue this base and are valid now; the base's own points are followed first.
  NewestCrls deltasOf(const CrlRecord& base, CrlSource source);

 private:
  void addFrom(const CRL_DIST_POINTS_INFO* points, CrlSource source);
  void file(CrlRecord& crl);

  ChainBuilder& builder_;
  const CertRecord& cert_;
  NewestCrls bases_;
  std::map<std::pair<std::string, std::string>, NewestCrls> deltas_;  // by key identifier and issuer
};

// Puts a list that came over the wire into the URL cache, once its signer was verified: what anybody may answer in the
// server's place must not throw a good list out. Never fails: what isn't kept is fetched again.
void KeepInCache(CrlRecord& crl, const InternedRecords& records);

// Between the two updates, bounds included; without a NextUpdate never.
bool IsCurrent(const CRL_INFO& crl, const FILETIME& moment);

}  // namespace certkern

#endif
