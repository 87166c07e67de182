// Who may have issued a certificate or a CRL: where to look, and in which order to try what was found.
#ifndef CERTKERN_CERTKERN_CHAIN_ISSUER_SEARCH_H
#define CERTKERN_CERTKERN_CHAIN_ISSUER_SEARCH_H

#include <string>
#include <unordered_set>
#include <vector>

#include "certkern/chain/chain_builder.h"

namespace certkern {

// Borrows from the record.
IssuerKey IssuerKeyOf(const CertRecord& subject);

// Whether the certificate is the one that the key speaks of: by key identifier, or by name where there is none.
bool IsIssuerByKey(const IssuerKey& key, const CertRecord& issuer);
// Whether it bears the issuer's name. A key identifier is what anybody writes into a certificate; who does not bear the
// name has not issued, and nothing is verified with his key.
bool BearsIssuerName(const IssuerKey& key, const CertRecord& issuer);

// The URLs of issuers that the certificate itself names, at most kMaxChainIssuerUrls; what is no URL is passed over.
std::vector<std::string> IssuerUrls(const CertRecord& subject);

struct IssuerCandidate {
  CertRecord* record = nullptr;
  int score = 0;
  bool named = false;  // BearsIssuerName
  bool vain = false;   // its key was tried for others, and has never held
  // Found before, or in the path already. To be tried only if it is self-signed, which nobody has looked at yet, for it
  // costs a signature verification; whoever only wants a key may pass it over.
  bool repeated = false;
};

// What a search has found so far. Trusted roots are tried first, then certificates whose revocation is decided, then
// the rest; of equals, those come last whose key was tried in vain by other builds; then those with the serial number that
// is asked for go first, then the first found. Those without the name come last.
class IssuerCandidates {
 public:
  // The path is that from the subject to the end certificate; what is in it is no issuer.
  IssuerCandidates(const IssuerKey& key, const Chain& path, BuildBudget& budget);

  const IssuerKey& key() const { return key_; }
  void offer(CertRecord& record);
  // In the order of trying, at most kMaxChainCandidates. Leaves nothing behind.
  std::vector<IssuerCandidate> take();

 private:
  bool hasAskedSerial(const CertRecord& record) const;

  IssuerKey key_;
  BuildBudget& budget_;
  std::unordered_set<const CertRecord*> known_;  // in the path or offered
  std::vector<IssuerCandidate> found_;
};

}  // namespace certkern

#endif
