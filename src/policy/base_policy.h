// The base policy: what each error bit of a chain is called, and which flags overlook it.
#ifndef CERTKERN_POLICY_BASE_POLICY_H
#define CERTKERN_POLICY_BASE_POLICY_H

#include <certkern/policy.h>

namespace certkern {

// The code of a chain's error bits under these CERT_CHAIN_POLICY_... flags; 0: nothing that counts.
DWORD JudgeTrustStatus(DWORD errorStatus, DWORD flags);

}  // namespace certkern

#endif
