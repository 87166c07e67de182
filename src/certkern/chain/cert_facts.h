// The facts of a certificate: what chains need of it and what follows from its bytes alone. Made by the first build that
// meets the certificate and kept with its store element, so that the next build finds them; all of it is memory of
// its own, for the context that it was read from may go before.
#ifndef CERTKERN_CERTKERN_CHAIN_CERT_FACTS_H
#define CERTKERN_CERTKERN_CHAIN_CERT_FACTS_H

#include <certkern/cert.h>
#include <certkern/encode.h>

#include <atomic>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "certkern/chain/chain_records.h"
#include "certkern/chain/decoded_extension.h"
#include "certkern/chain/link_verdicts.h"
#include "certkern/chain/normal_name.h"

namespace certkern {

// Either bound may be absent, not both.
struct KeyPeriod {
  std::optional<FILETIME> notBefore;
  std::optional<FILETIME> notAfter;
};

struct CertFacts {
  explicit CertFacts(const CERT_INFO& info);

  const NormalName issuer;
  const NormalName subject;
  const bool selfIssued;
  const std::optional<std::vector<BYTE>> subjectKeyId;  // may be there and empty
  const DecodedRecord<CERT_AUTHORITY_KEY_ID2_INFO> authorityKeyId;
  const DecodedRecord<CRYPT_BIT_BLOB> keyUsage;
  const DecodedRecord<CERT_BASIC_CONSTRAINTS2_INFO> basicConstraints;
  const DecodedRecord<CERT_POLICIES_INFO> certPolicies;
  const DecodedRecord<CERT_POLICIES_INFO> applPolicies;
  const DecodedRecord<CERT_ENHKEY_USAGE> extendedKeyUsage;
  const DecodedRecord<CERT_POLICY_CONSTRAINTS_INFO> policyConstraints;
  const DecodedRecord<CERT_POLICY_CONSTRAINTS_INFO> applPolicyConstraints;
  const DecodedRecord<CRL_DIST_POINTS_INFO> crlDistPoints;
  const DecodedRecord<CRL_DIST_POINTS_INFO> freshestCrl;
  const DecodedRecord<CERT_AUTHORITY_INFO_ACCESS> authorityInfoAccess;
  const std::optional<KeyPeriod> keyPeriod;
  // The one fact that costs a signature verification: found when it is asked for (IsSelfSigned).
  mutable std::atomic<TriState> selfSigned{TriState::Unknown};
  // The same for other certificates' keys (SignatureBy), and what they know this one's key by.
  mutable LinkVerdicts signatures;
  mutable KeyDigestOnce keyDigest;
  // Whether this one's key has made a signature that was verified with it, and whether it has not made one.
  mutable std::atomic<bool> hasSigned{false}, triedInVain{false};

  // Of the authority key identifier; empty: none.
  std::span<const BYTE> authorityKeyIdBytes() const;
  std::span<const BYTE> authoritySerial() const;
};

// The key identifier in the value of the extension: the content of an OCTET STRING, or, under any other first byte, the
// value itself. Empty with CRYPT_E_ASN1_EOD (a length that overruns) or CRYPT_E_ASN1_INTERNAL (nothing to read).
std::optional<std::vector<BYTE>> ReadSubjectKeyId(std::span<const BYTE> value);

// Kept with the context's element from the first call on. Throws std::bad_alloc.
std::shared_ptr<const CertFacts> CertFactsOf(PCCERT_CONTEXT context);

}  // namespace certkern

#endif
