// The policy of TLS: base policy, purpose, server name, key period, and the first fault ends it.
#include <certkern/errors.h>
#include <certkern/oids.h>
#include <certkern/sv.h>

#include <chrono>
#include <mutex>
#include <optional>

#include "platform/exceptions.h"
#include "platform/supkern.h"
#include "platform/trace.h"
#include "policy/application_usage.h"
#include "policy/chain_policy.h"
#include "policy/server_name.h"

namespace certkern {
namespace {

constexpr char kLenientNames[] = "\\config\\Parameters\\Rfc6125_NotStrict_ServerName_Check";

// The setting as it was at most nine seconds ago: a server that is asked all day follows a change.
class LenientNamesSetting {
 public:
  bool get() {
    const std::scoped_lock hold(lock_);
    const Clock::time_point now = Clock::now();
    if (!read_ || now - *read_ >= kLife) {
      int value = 0;
      value_ = support_registry_get_bool(kLenientNames, &value) == 0 && value != 0;
      read_ = now;
    }
    return value_;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds kLife{9};

  std::mutex lock_;
  std::optional<Clock::time_point> read_;
  bool value_ = false;
};
constinit LenientNamesSetting lenientNames;

// False: there is a finding, or it could not be judged.
void VerifyBaseOfSsl(const PolicyCall& call) {
  try {
    VerifyInstalledBasePolicy(call, E_FAIL);
  } catch (const CryptException&) {
    TracePolicy(
        "Original CERT_CHAIN_POLICY_BASE in CERT_CHAIN_POLICY_SSL check returned FALSE. Exception will be "
        "thrown.\n");
    if (call.status->dwError == ERROR_SUCCESS) throw;
  }
}

bool IsUsableFor(const PolicyCall& call, DWORD authType) {
  const CERT_CHAIN_ELEMENT& end = EndElement(*call.chain);
  UsageRequirement requirement;
  requirement.usage = authType == AUTHTYPE_CLIENT ? szOID_PKIX_KP_CLIENT_AUTH : szOID_PKIX_KP_SERVER_AUTH;
  requirement.mustBeEffective = true;
  return JudgeApplicationUsage(end.pCertContext, end.pApplicationUsage, requirement) == SV_USAGE_VALID;
}

bool IsNamed(const CERT_INFO& certificate, std::wstring_view serverName) {
  const std::wstring server = LowerCase(serverName);
  const AltNameVerdict names = CompareAltNames(certificate, server);
  if (names == AltNameVerdict::Matches) return true;
  const bool isLenient = lenientNames.get();
  if (names == AltNameVerdict::Seen && !isLenient) return false;
  const std::optional<std::wstring> commonName = CommonNameOf(certificate.Subject);
  return commonName && MatchesServerName(server, *commonName);
}

// 0, or bits of the extra status. The findings of its own base policy are no concern of this one.
DWORD KeyPeriodFindings(const PolicyCall& call) {
  constexpr DWORD kOverlookAll = 0x2F07;
  SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA extraPara{.cbSize = 16, .pTime = nullptr};
  CERT_CHAIN_POLICY_PARA para{.cbSize = 16, .dwFlags = kOverlookAll, .pvExtraPolicyPara = &extraPara};
  SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS extraStatus{};
  extraStatus.cbSize = 16;
  CERT_CHAIN_POLICY_STATUS status{};
  status.cbSize = sizeof status;
  status.pvExtraPolicyStatus = &extraStatus;
  if (!CertDllVerifyPrivateKeyUsagePeriodCertificateChainPolicy(SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD,
                                                                call.chain, &para, &status)) {
    TracePolicy(
        "SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD check returned FALSE. Exception will be thrown.\n");
    ThrowLastError();
  }
  return extraStatus.dwError;
}

void VerifyKeyPeriodOfSsl(const PolicyCall& call, DWORD checks) {
  if (checks & SECURITY_FLAG_IGNORE_CERT_DATE_INVALID) {
    TracePolicy(
        "SSL_EXTRA_CERT_CHAIN_POLICY_PARA contains SECURITY_FLAG_IGNORE_CERT_DATE_INVALID in fdwChecks - "
        "skipping "
        "PKUP check.\n");
    return;
  }
  if (call.para->dwFlags & CERT_CHAIN_POLICY_IGNORE_NOT_TIME_VALID_FLAG) {
    TracePolicy(
        "CERT_CHAIN_POLICY_PARA contains CERT_CHAIN_POLICY_IGNORE_NOT_TIME_VALID_FLAG in dwFlags - skipping "
        "PKUP "
        "check.\n");
    return;
  }
  constexpr DWORD kFindings = SV_KEY_PERIOD_ERROR_CERT_OR_BASE_CRL | SV_KEY_PERIOD_ERROR_DELTA_CRL;
  if (KeyPeriodFindings(call) & kFindings) ReportPolicyError(*call.status, CERT_E_EXPIRED);
}

}  // namespace

void VerifySslPolicy(const PolicyCall& call) {
  if (!call.chain || !call.para || !call.status || !call.para->pvExtraPolicyPara)
    throw CryptException(ERROR_INVALID_PARAMETER);
  const auto& extra = *static_cast<const SSL_EXTRA_CERT_CHAIN_POLICY_PARA*>(call.para->pvExtraPolicyPara);
  CERT_CHAIN_POLICY_STATUS& status = *call.status;
  status.dwError = ERROR_SUCCESS;  // what stood there is none of the base policy's findings
  VerifyBaseOfSsl(call);
  if (status.dwError != ERROR_SUCCESS) {
    TracePolicy(
        "Original CERT_CHAIN_POLICY_SSL check returned error: 0x%08x. Other checks must not be performed - "
        "returning.\n",
        status.dwError);
    return;
  }
  if (!IsUsableFor(call, extra.dwAuthType) && !(extra.fdwChecks & SECURITY_FLAG_IGNORE_WRONG_USAGE))
    return ReportPolicyError(status, CERT_E_WRONG_USAGE);
  const bool isNameWanted = extra.dwAuthType == AUTHTYPE_SERVER
      && !(extra.fdwChecks & SECURITY_FLAG_IGNORE_CERT_CN_INVALID) && extra.pwszServerName;
  if (isNameWanted && !IsNamed(*EndCertificate(*call.chain)->pCertInfo, extra.pwszServerName))
    return ReportPolicyError(status, CERT_E_CN_NO_MATCH);
  VerifyKeyPeriodOfSsl(call, extra.fdwChecks);
}

}  // namespace certkern
