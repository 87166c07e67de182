// Chain policies: finding the function of a policy, and the two that are built in beside the base policy. What can't be
// judged is a CryptException; a judgement stands in the status.
#ifndef CERTKERN_POLICY_CHAIN_POLICY_H
#define CERTKERN_POLICY_CHAIN_POLICY_H

#include <certkern/policy.h>

namespace certkern {

// What a policy looks at.
struct PolicyCall {
  LPCSTR oid;
  PCCERT_CHAIN_CONTEXT chain;
  PCERT_CHAIN_POLICY_PARA para;
  PCERT_CHAIN_POLICY_STATUS status;
};

// By number, by name, or by what the configuration has under the name.
void VerifyChainPolicy(const PolicyCall& call);

// The base policy as the process has it: a function that a program installed in front is asked instead. `otherwise` is
// the code where it fails without one.
void VerifyInstalledBasePolicy(const PolicyCall& call, DWORD otherwise);

// Server and client chains of TLS (RFC 6125, 6.4).
void VerifySslPolicy(const PolicyCall& call);

// Whether all was signed within its signer's key period.
void VerifyKeyPeriodPolicy(const PolicyCall& call);

// Parts of a chain, which may come from anywhere: one that is not there is a CryptException.
const CERT_SIMPLE_CHAIN& PathAt(const CERT_CHAIN_CONTEXT& chain, DWORD index);
const CERT_CHAIN_ELEMENT& ElementAt(const CERT_SIMPLE_CHAIN& path, DWORD index);

// The end certificate; a chain without one is a CryptException.
PCCERT_CONTEXT EndCertificate(const CERT_CHAIN_CONTEXT& chain);
const CERT_CHAIN_ELEMENT& EndElement(const CERT_CHAIN_CONTEXT& chain);

// Writes a finding of a policy that has no status of its own for it.
void ReportPolicyError(CERT_CHAIN_POLICY_STATUS& status, DWORD code);

}  // namespace certkern

#endif
