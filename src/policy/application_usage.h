// Whether a certificate is good for one purpose, by its chain and by its own extensions.
#ifndef CERTKERN_POLICY_APPLICATION_USAGE_H
#define CERTKERN_POLICY_APPLICATION_USAGE_H

#include <certkern/sv.h>

namespace certkern {

struct UsageRequirement {
  LPCSTR usage = nullptr;
  bool ownExtension = false;       // the certificate must have an extension of its own, and critical
  bool single = false;             // with one purpose at most
  bool mustBeEffective = false;    // the chain must let the purpose through
  bool requiresEffective = false;  // the chain must say something
};

// SV_USAGE_...; `effective` null: the chain lets all through.
DWORD JudgeApplicationUsage(PCCERT_CONTEXT certificate, const CERT_ENHKEY_USAGE* effective,
                            const UsageRequirement& requirement);

}  // namespace certkern

#endif
