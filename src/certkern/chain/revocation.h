// What is known of one certificate's revocation, and who is asked.
#ifndef CERTKERN_CERTKERN_CHAIN_REVOCATION_H
#define CERTKERN_CERTKERN_CHAIN_REVOCATION_H

#include <certkern/types.h>

#include <optional>

namespace certkern {

class ChainBuilder;
struct CertRecord;

// The kind and the reason are two things: a reason comes from outside, and must not be taken for a kind.
struct RevocationResult {
  enum class Kind { NotRevoked, Undetermined, Revoked };
  Kind kind = Kind::NotRevoked;
  DWORD reason = 0;  // CRL_REASON_..., of a revoked one

  bool operator==(const RevocationResult&) const = default;
};
inline constexpr RevocationResult kNotRevoked{RevocationResult::Kind::NotRevoked, 0};
inline constexpr RevocationResult kUndetermined{RevocationResult::Kind::Undetermined, 0};

// Whether a node's revocation is looked at, or why it is not.
enum class RevocationStep { Check, TestedCert, MiddleCert, RootCert };
// By the builder's flags and the place of the node: front is the root, back the end certificate.
RevocationStep SelectRevocationStep(DWORD flags, bool isFront, bool isBack);

// The built-in engine (crl_judgement.cpp). The builder is a clone made for this certificate.
RevocationResult JudgeByCrls(ChainBuilder& clone, CertRecord& cert);

// The library that a site has named; nothing when there is none to ask (revocation_library.cpp).
std::optional<RevocationResult> AskRevocationLibrary(const ChainBuilder& builder, const CertRecord& cert,
                                                     const CertRecord& issuer);

}  // namespace certkern

#endif
