#include "policy/application_usage.h"

#include <certkern/errors.h>
#include <certkern/oids.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

#include "certkern/CertGetEnhancedKeyUsage.h"
#include "platform/exceptions.h"
#include "platform/trace.h"
#include "store/certificate_primitives.h"

namespace certkern {
namespace {

bool HasUsage(std::span<const LPSTR> usages, LPCSTR wanted) {
  return std::ranges::any_of(usages, [&](LPCSTR usage) { return usage && std::strcmp(usage, wanted) == 0; });
}

std::span<const LPSTR> UsagesOf(const CERT_ENHKEY_USAGE& record) {
  return AsSpan<const LPSTR>(record.rgpszUsageIdentifier, record.cUsageIdentifier);
}

// What the certificate says by itself; empty: it can't be read, or restricts nothing.
class OwnUsages {
 public:
  [[nodiscard]] bool read(PCCERT_CONTEXT certificate) {
    DWORD size = 0;
    if (!ask(certificate, nullptr, size)) return false;
    room_.resize(size / sizeof(std::max_align_t) + 1);
    return ask(certificate, record(), size);
  }
  std::span<const LPSTR> list() const {
    return UsagesOf(*reinterpret_cast<const CERT_ENHKEY_USAGE*>(room_.data()));
  }

 private:
  CERT_ENHKEY_USAGE* record() { return reinterpret_cast<CERT_ENHKEY_USAGE*>(room_.data()); }
  // A property that can't be decoded is thrown; here it is one more way of not being readable.
  static bool ask(PCCERT_CONTEXT certificate, CERT_ENHKEY_USAGE* out, DWORD& size) {
    try {
      return GetEnhancedKeyUsage(certificate, 0, out, size);
    } catch (const CryptException& exception) {
      SetLastError(exception.code());
      return false;
    }
  }

  std::vector<std::max_align_t> room_;
};

// 0, or why the extension that it must have does not do.
DWORD JudgeOwnExtension(const CERT_INFO& info) {
  const CERT_EXTENSION* extension = FindExtension(szOID_APPLICATION_CERT_POLICIES, info);
  if (!extension) extension = FindExtension(szOID_ENHANCED_KEY_USAGE, info);
  if (!extension) {
    TracePolicy("Neither AppPolicy nor EKU found in certificate, but at least one of them is required\n");
    return SV_USAGE_NOT_VALID;
  }
  if (extension->fCritical) return SV_USAGE_VALID;
  TracePolicy("AppPolicy or EKU is not a critical extension, but it should be\n");
  return SV_USAGE_EXTENSION_NOT_CRITICAL;
}

DWORD JudgeOwnUsages(PCCERT_CONTEXT certificate, const UsageRequirement& requirement, bool isEffective) {
  OwnUsages own;
  if (!own.read(certificate)) {
    TracePolicy(
        "CertGetEnhancedKeyUsage failed with last error of 0x%08x - considering certificate as not valid\n",
        GetLastError());
    return SV_USAGE_NOT_VALID;
  }
  if (requirement.single && own.list().size() > 1) {
    TracePolicy("There should be only one usage in AppPolicy or EKU extension, but there are some of them\n");
    return SV_USAGE_NOT_SINGLE;
  }
  if (isEffective || HasUsage(own.list(), requirement.usage)) {
    TracePolicy("Certificate is valid\n");
    return SV_USAGE_VALID;
  }
  TracePolicy("Certificate is not valid by pEffectiveUsage and by AppPolicy or EKU in itself\n");
  return SV_USAGE_NOT_VALID;
}

}  // namespace

DWORD JudgeApplicationUsage(PCCERT_CONTEXT certificate, const CERT_ENHKEY_USAGE* effective,
                            const UsageRequirement& requirement) {
  if (!certificate || !certificate->pCertInfo || !requirement.usage)
    throw CryptException(ERROR_INVALID_PARAMETER);
  if (!effective && requirement.requiresEffective) {
    TracePolicy("pEffectiveUsage is NULL and certificate must have AppPolicy\n");
    return SV_USAGE_NOT_VALID;
  }
  const bool isEffective = !effective || HasUsage(UsagesOf(*effective), requirement.usage);
  if (!isEffective && requirement.mustBeEffective) {
    TracePolicy(
        "Required usage (%s) not found in pEffectiveUsage and certificate cannot be valid by AppPolicy or "
        "EKU in "
        "itself\n",
        requirement.usage);
    return SV_USAGE_NOT_VALID;
  }
  if (requirement.ownExtension) {
    if (const DWORD fault = JudgeOwnExtension(*certificate->pCertInfo)) return fault;
  }
  if (!requirement.single && isEffective) {
    TracePolicy("Certificate is valid\n");
    return SV_USAGE_VALID;
  }
  return JudgeOwnUsages(certificate, requirement, isEffective);
}

}  // namespace certkern
