// Whether every certificate and CRL of a chain was made while its signer's private key was in use (RFC 3280, 4.2.1.4),
// and the end certificate's own key at a given time.
#include <certkern/attributes.h>
#include <certkern/encode.h>
#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/oids.h>
#include <certkern/store.h>

#include <array>
#include <ctime>
#include <optional>

#include "ber/object_codec.h"
#include "certkern/chain/chain_builder.h"
#include "platform/exceptions.h"
#include "platform/owner.h"
#include "platform/trace.h"
#include "policy/chain_policy.h"
#include "store/certificate_primitives.h"

namespace certkern {
namespace {

using Period = Owner<SV_PRIVATE_KEY_USAGE_PERIOD*, LocalFree>;
using StoreOwner = Owner<HCERTSTORE, CertCloseStore>;
using ExtraPara = SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_PARA;
using ExtraStatus = SV_KEY_PERIOD_EXTRA_CERT_CHAIN_POLICY_STATUS;

// What just failed has left a code, and a failure is never 0 here.
[[noreturn]] void ThrowAsHresult() {
  const DWORD code = GetLastError();
  throw CryptException(code ? static_cast<DWORD>(HRESULT_FROM_WIN32(code)) : E_FAIL);
}

Period DecodePeriod(const CERT_EXTENSION& extension) {
  SetLastError(ERROR_SUCCESS);
  void* record = nullptr;
  if (!DecodeObjectEx(X509_ASN_ENCODING, SV_PRIVATE_KEY_USAGE_PERIOD_STRUCT, extension.Value.pbData,
                      extension.Value.cbData, CRYPT_DECODE_ALLOC_FLAG, nullptr, &record, nullptr)) {
    TracePolicy("Extension PRIVATEKEY_USAGE_PERIOD could not be decoded: hr = 0x%08x.\n", GetLastError());
    throw CryptException(E_FAIL);
  }
  return Period(static_cast<SV_PRIVATE_KEY_USAGE_PERIOD*>(record));
}

void TraceInvalidTime(const FILETIME& time) {
  SYSTEMTIME parts{};
  if (!FileTimeToSystemTime(&time, &parts)) return;
  std::tm broken{};
  broken.tm_year = parts.wYear - 1900;
  broken.tm_mon = parts.wMonth - 1;
  broken.tm_mday = parts.wDay;
  broken.tm_hour = parts.wHour;
  broken.tm_min = parts.wMinute;
  broken.tm_sec = parts.wSecond;
  std::array<char, 64> text{};
  if (std::strftime(text.data(), text.size(), "%d.%m.%Y %H:%M:%S", &broken))
    TracePolicy("Certificate has not been valid on time (%s)...\n", static_cast<const char*>(text.data()));
}

bool IsInside(const FILETIME& time, const FILETIME* lower, const FILETIME* upper) {
  return !(lower && CompareFileTime(&time, lower) < 0) && !(upper && CompareFileTime(&time, upper) > 0);
}

// The private key usage period where the certificate tells one, else its validity.
bool IsCertContextValidOnTime(PCCERT_CONTEXT certificate, const FILETIME& time) {
  const CERT_INFO& info = *certificate->pCertInfo;
  Period period;
  if (const CERT_EXTENSION* extension = FindExtension(szOID_PRIVATEKEY_USAGE_PERIOD, info))
    period = DecodePeriod(*extension);
  const bool isInside = period ? IsInside(time, period->pNotBefore, period->pNotAfter)
                               : IsInside(time, &info.NotBefore, &info.NotAfter);
  if (!isInside) TraceInvalidTime(time);
  return isInside;
}

CrlOwner FindCrlOf(const StoreOwner& store, PCCERT_CONTEXT issuer, DWORD flag) {
  return CrlOwner(CertFindCRLInStore(store.get(), 0, flag, CRL_FIND_ISSUED_BY, issuer, nullptr));
}

bool HaveKeyIdentifiers(PCCRL_CONTEXT crl, PCCERT_CONTEXT issuer) {
  const CRL_INFO& list = *crl->pCrlInfo;
  return FindByOid(szOID_AUTHORITY_KEY_IDENTIFIER2,
                   AsSpan<const CERT_EXTENSION>(list.rgExtension, list.cExtension))
      && FindExtension(szOID_SUBJECT_KEY_IDENTIFIER, *issuer->pCertInfo);
}

bool IsValidCrlIssuer(PCCRL_CONTEXT crl, PCCERT_CONTEXT issuer) {
  const StoreOwner store(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
  if (!store || !CertAddCRLContextToStore(store.get(), crl, CERT_STORE_ADD_ALWAYS, nullptr)) ThrowAsHresult();
  if (FindCrlOf(store, issuer, CRL_FIND_ISSUED_BY_AKI_FLAG)) {
    TracePolicy("CRL matches issuer by CRL_FIND_ISSUED_BY_AKI_FLAG\n");
    if (HaveKeyIdentifiers(crl, issuer)) return true;
    TracePolicy("CRL or issuer does not contain AKI extension\n");
  }
  if (FindCrlOf(store, issuer, CRL_FIND_ISSUED_BY_SIGNATURE_FLAG)) {
    TracePolicy("CRL matches issuer by signature verification\n");
    return true;
  }
  if (GetLastError() != CRYPT_E_NOT_FOUND) ThrowAsHresult();
  TracePolicy("CRL does not match issuer by signature verification\n");
  return false;
}

// Where something was made outside the period of its signer.
struct Finding {
  DWORD bits;
  LONG chain;
  LONG element;
};

std::optional<Finding> JudgeCrls(const CERT_REVOCATION_CRL_INFO& crls, PCCERT_CONTEXT issuer, LONG chain,
                                 LONG element) {
  if (!crls.pBaseCrlContext || !IsValidCrlIssuer(crls.pBaseCrlContext, issuer)) return std::nullopt;
  if (!IsCertContextValidOnTime(issuer, crls.pBaseCrlContext->pCrlInfo->ThisUpdate)) {
    TracePolicy("IsCertContextValidOnTime returned false (lChainIndex=%d, lElementIndex=%d) for base CRL\n",
                chain, element);
    return Finding{SV_KEY_PERIOD_ERROR_CERT_OR_BASE_CRL, chain, element};
  }
  if (crls.pDeltaCrlContext
      && !IsCertContextValidOnTime(issuer, crls.pDeltaCrlContext->pCrlInfo->ThisUpdate)) {
    TracePolicy("IsCertContextValidOnTime returned false (lChainIndex=%d, lElementIndex=%d) for delta CRL\n",
                chain, element);
    return Finding{SV_KEY_PERIOD_ERROR_DELTA_CRL, chain, element};
  }
  return std::nullopt;
}

std::optional<Finding> JudgeElement(const CERT_SIMPLE_CHAIN& path, LONG chain, LONG at) {
  const auto certificate = [&](LONG index) {
    return ElementAt(path, static_cast<DWORD>(index)).pCertContext;
  };
  if (at > 0 && !IsCertContextValidOnTime(certificate(at), certificate(at - 1)->pCertInfo->NotBefore)) {
    TracePolicy("IsCertContextValidOnTime returned false (lChainIndex=%d, lElementIndex=%d)\n", chain, at);
    return Finding{SV_KEY_PERIOD_ERROR_CERT_OR_BASE_CRL, chain, at};
  }
  const CERT_REVOCATION_INFO* revocation = ElementAt(path, static_cast<DWORD>(at)).pRevocationInfo;
  if (!revocation || !revocation->pCrlInfo) return std::nullopt;
  const bool hasIssuer = static_cast<DWORD>(at) + 1 < path.cElement;
  return JudgeCrls(*revocation->pCrlInfo, certificate(hasIssuer ? at + 1 : at), chain, at);
}

// Nothing is looked at unless the configuration wants it.
std::optional<Finding> JudgeChainContext(const CERT_CHAIN_CONTEXT& context) {
  if (!IsKeyPeriodTested()) return std::nullopt;
  for (DWORD chain = 0; chain < context.cChain; ++chain) {
    const CERT_SIMPLE_CHAIN& path = PathAt(context, chain);
    for (DWORD element = 0; element < path.cElement; ++element) {
      if (auto finding = JudgeElement(path, static_cast<LONG>(chain), static_cast<LONG>(element)))
        return finding;
    }
  }
  return std::nullopt;
}

void InitStatus(CERT_CHAIN_POLICY_STATUS* status) {
  if (!status) throw CryptException(ERROR_INVALID_PARAMETER);
  if (status->cbSize < sizeof *status) {
    TracePolicy("Unknown pPolicyStatus structure (sizeof(*pPolicyStatus) != pPolicyStatus->cbSize)\n");
    throw CryptException(ERROR_INVALID_PARAMETER);
  }
  status->dwError = ERROR_SUCCESS;
  status->lChainIndex = status->lElementIndex = -1;
}

unsigned AsNumber(const void* pointer) { return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer)); }

ExtraStatus* InitExtraStatus(const CERT_CHAIN_POLICY_STATUS& status) {
  auto* extra = static_cast<ExtraStatus*>(status.pvExtraPolicyStatus);
  if (extra && extra->cbSize != sizeof *extra) {
    TracePolicy("Unknown pExtraStatus structure (sizeof(*pExtraStatus) != pExtraStatus->cbSize)\n");
    throw CryptException(ERROR_INVALID_PARAMETER);
  }
  if (extra) {
    extra->dwError = ERROR_SUCCESS;
    extra->lChainIndex = extra->lElementIndex = -1;
  }
  TracePolicy("pExtraStatus = 0x%08x\n", AsNumber(extra));
  return extra;
}

const ExtraPara* CheckPara(const CERT_CHAIN_POLICY_PARA* para) {
  if (!para) {
    TracePolicy("pPolicyPara is NULL\n");
    return nullptr;
  }
  if (para->cbSize != sizeof *para) {
    TracePolicy("Unknown pPolicyPara structure (sizeof(*pPolicyPara) != pPolicyPara->cbSize)\n");
    throw CryptException(ERROR_INVALID_PARAMETER);
  }
  const auto* extra = static_cast<const ExtraPara*>(para->pvExtraPolicyPara);
  if (extra && extra->cbSize > sizeof *extra) {
    TracePolicy("Unknown pExtraPara structure (sizeof(*pExtraPara) != pExtraPara->cbSize)\n");
    throw CryptException(ERROR_INVALID_PARAMETER);
  }
  TracePolicy("pExtraPara = 0x%08x\n", AsNumber(extra));
  return extra;
}

// A shorter record has no time.
FILETIME TimeToJudge(const ExtraPara* extra) {
  if (extra && extra->cbSize >= sizeof *extra && extra->pTime) return *extra->pTime;
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  return now;
}

// Whether the policy ends here.
bool EndsWith(const CERT_CHAIN_POLICY_STATUS& status, const ExtraStatus* extra) {
  if (extra) {
    TracePolicy("Extra status was supplied. Other checks can be performed - returning false.\n");
    return false;
  }
  if (status.dwError != ERROR_SUCCESS) {
    TracePolicy(
        "Error encountered and no extra status supplied. Other checks must not be performed - returning "
        "true.\n");
    return true;
  }
  TracePolicy("No error encountered. Other checks can be performed - returning false.\n");
  return false;
}

// The same, after writing down a finding.
bool Report(const Finding& finding, CERT_CHAIN_POLICY_STATUS& status, ExtraStatus* extra) {
  if (!extra) {
    ReportPolicyError(status, CERT_E_EXPIRED);
    return true;
  }
  TracePolicy("Extra status was supplied. Setting pExtraStatus->dwError |= 0x%08x\n", finding.bits);
  extra->dwError |= finding.bits;
  extra->lChainIndex = finding.chain;
  extra->lElementIndex = finding.element;
  return EndsWith(status, extra);
}

void JudgeBase(const PolicyCall& call, const ExtraStatus* extra) {
  CERT_CHAIN_POLICY_PARA para{.cbSize = sizeof para, .dwFlags = 0, .pvExtraPolicyPara = nullptr};
  if (call.para) para.dwFlags = call.para->dwFlags & ~SVCERT_CHAIN_POLICY_IGNORE_END_CERT_PERIOD_FLAG;
  CERT_CHAIN_POLICY_STATUS base{};
  base.cbSize = sizeof base;
  try {
    VerifyInstalledBasePolicy({call.oid, call.chain, &para, &base}, E_FAIL);
  } catch (const CryptException&) {
    TracePolicy("CERT_CHAIN_POLICY_BASE check returned FALSE. Exception will be thrown.\n");
    static_cast<void>(EndsWith(base, extra));  // for its records
    throw;
  }
  call.status->dwError = base.dwError;
  call.status->lChainIndex = base.lChainIndex;
  call.status->lElementIndex = base.lElementIndex;
  TracePolicy("pOtherPolicyStatus->dwError = 0x%08x\n", base.dwError);
  TracePolicy("pOtherPolicyStatus->lChainIndex = %i, pOtherPolicyStatus->lElementIndex = %i\n",
              base.lChainIndex, base.lElementIndex);
}

}  // namespace

void VerifyKeyPeriodPolicy(const PolicyCall& call) {
  InitStatus(call.status);
  ExtraStatus* const extra = InitExtraStatus(*call.status);
  const ExtraPara* const para = CheckPara(call.para);
  if (!call.chain) throw CryptException(ERROR_INVALID_PARAMETER);
  JudgeBase(call, extra);
  if (EndsWith(*call.status, extra)) return;

  const bool skipsEnd = call.para && (call.para->dwFlags & SVCERT_CHAIN_POLICY_IGNORE_END_CERT_PERIOD_FLAG);
  if (!skipsEnd && !IsCertContextValidOnTime(EndCertificate(*call.chain), TimeToJudge(para))) {
    if (Report({SV_KEY_PERIOD_ERROR_CERT_OR_BASE_CRL, 0, 0}, *call.status, extra)) return;
  }
  if (const std::optional<Finding> finding = JudgeChainContext(*call.chain))
    Report(*finding, *call.status, extra);
}

}  // namespace certkern
