// The built-in engine: is a certificate on the CRLs that speak of it? RFC 5280, 6.3.
#ifndef CERTKERN_CERTKERN_CHAIN_CRL_JUDGEMENT_H
#define CERTKERN_CERTKERN_CHAIN_CRL_JUDGEMENT_H

#include "certkern/chain/chain_builder.h"
#include "certkern/chain/crl_collection.h"
#include "certkern/chain/revocation.h"

namespace certkern {

// One decision, on a clone of its own.
class CrlJudgement {
 public:
  CrlJudgement(ChainBuilder& clone, CertRecord& cert) : builder_(clone), cert_(cert) {}
  RevocationResult decide();

 private:
  // Whether a distribution point of the certificate leads to the CRLs, or they are those that are known anyway.
  enum class Stage { OfPoints, Known };

  const CertRecord* findIssuer();
  RevocationResult judgeAll(CrlCollection& crls, CrlSource source);
  void traceResult(const RevocationResult& result) const;
  RevocationResult runStage(Stage stage, CrlCollection& crls, CrlSource source);
  RevocationResult judgeCrl(Stage stage, CrlRecord& crl, CrlCollection& crls, CrlSource source);
  bool isSignedAsNeeded(CrlRecord& crl);
  // Whether it is a yes; what is neither yes nor no is remembered.
  bool holds(SignatureVerdict verdict);
  RevocationResult judgeInAllPoints(CrlRecord& crl, const NewestCrls& deltas);
  RevocationResult judgeInCrl(CrlRecord& crl, const NewestCrls& deltas, const CRL_DIST_POINT* point);
  bool isInScope(const CrlRecord& crl, const CRL_DIST_POINT* point) const;
  bool needsDelta(const CrlRecord& crl) const;
  // The first that the CRL's signer has signed; null: none.
  const CrlRecord* chooseDelta(const CrlRecord& crl, const NewestCrls& deltas);
  bool verifySigner(CrlRecord& crl);
  CertRecord* findSigner(CrlRecord& crl);
  // The verdict stays as it is where the signature is not looked at.
  bool isSigner(const CrlRecord& crl, CertRecord& candidate, SignatureVerdict& verdict);
  const CRL_ENTRY* findEntry(const CrlRecord& crl) const;
  template <class... Parts>
  void trace(const Parts&... parts) const {
    builder_.trace.line("  (", uint64_t{counter_}, "). ", parts...);
  }

  ChainBuilder& builder_;
  CertRecord& cert_;
  const CertRecord* issuer_ = nullptr;  // whose key signed the certificate
  ReasonSet reasons_ = 0;               // covered so far
  unsigned counter_ = 0;                // of the CRLs, for the trace
  // Nobody can tell now whether a list counts. No older one may speak in its place.
  bool isUnknown_ = false;
};

}  // namespace certkern

#endif
