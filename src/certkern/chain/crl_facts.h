// The facts of a CRL: what a decision on revocation needs of it and what follows from its bytes alone. Kept with its
// store element, in memory of their own; the entries stay where they are (store/crl_entries.h).
#ifndef CERTKERN_CERTKERN_CHAIN_CRL_FACTS_H
#define CERTKERN_CERTKERN_CHAIN_CRL_FACTS_H

#include <certkern/cert.h>
#include <certkern/encode.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "certkern/chain/decoded_extension.h"
#include "certkern/chain/link_verdicts.h"
#include "certkern/chain/normal_name.h"

namespace certkern {

// Whether the key that signed a certificate must have signed the CRL too, or any key of the issuer's name may have.
enum class CrlKeyMatch { Needed, NotNeeded, AsConfigured };

// A set of reasons: bit 0 is keyCompromise, named bit 1 of ReasonFlags, and bit 6 privilegeWithdrawn, named bit 7. What
// stands beside these seven (unused, aACompromise) makes no difference to whether all reasons are covered.
using ReasonSet = uint8_t;
inline constexpr ReasonSet kAllReasons = 0x7F;
// Of a field that is absent: all. A field that is there and names none covers none.
ReasonSet ReasonsOf(const CRYPT_BIT_BLOB& flags);

// The URLs of a distribution point's full name, as bytes; what is no URL is passed over.
std::vector<std::string> UrlsOf(const CRL_DIST_POINT_NAME& name);
// Of all points together, at most kMaxChainCrlUrls of each; null: none.
std::vector<std::vector<std::string>> UrlsOfPoints(const CRL_DIST_POINTS_INFO* points);

// URLs to be compared without regard to the case of ASCII letters.
class UrlSet {
 public:
  explicit UrlSet(std::vector<std::string> urls);
  bool meets(const UrlSet& other) const;

 private:
  std::vector<std::string> folded_;  // sorted
};

struct CrlFacts {
  explicit CrlFacts(const CRL_INFO& info);

  const NormalName issuer;
  const std::vector<BYTE> rawIssuer;
  const DecodedRecord<CERT_AUTHORITY_KEY_ID2_INFO> authorityKeyId;
  const std::vector<BYTE> rawAuthorityKeyId;
  const DecodedRecord<CRL_ISSUING_DIST_POINT> issuingDistPoint;
  const std::vector<BYTE> rawIssuingDistPoint;
  // The CRL covers something, but nobody can tell that it is a public key certificate: the issuing distribution point
  // is there and can't be read, or it says attribute certificates. Such a CRL proves nothing.
  const bool unusable;
  const UrlSet issuingUrls;
  const DecodedRecord<CRL_DIST_POINTS_INFO> freshestCrl;
  const CrlKeyMatch keyMatch;
  const bool isDelta;
  const bool hasNumber;
  // CRL numbers; -1: none, negative, or more than 4 bytes.
  const int number;
  const int baseNumber;  // what a delta adds to
  // Whose key signed the list costs a verification; found when it is asked for (SignatureBy).
  mutable LinkVerdicts signatures;
};

// Throws std::bad_alloc.
std::shared_ptr<const CrlFacts> MakeCrlFacts(PCCRL_CONTEXT context);

// The key identifier of the authority key identifier; empty: none.
std::span<const BYTE> AuthorityKeyIdBytes(const CrlFacts& facts);

}  // namespace certkern

#endif
