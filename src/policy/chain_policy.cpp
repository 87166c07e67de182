#include "policy/chain_policy.h"

#include <certkern/errors.h>
#include <certkern/oid.h>

#include <cstring>
#include <optional>
#include <string>

#include "platform/exceptions.h"
#include "platform/limits.h"
#include "platform/owner.h"
#include "platform/supkern.h"
#include "platform/trace.h"

namespace certkern {
namespace {

constexpr char kConfiguredPolicies[] = "\\config\\policy\\OIDs\\";

using OidFunction = Owner<HCRYPTOIDFUNCADDR, CryptFreeOIDFunctionAddress>;

// What configuration has under a path; the text may change between the two questions.
std::optional<std::string> Setting(const std::string& path) {
  size_t size = 0;
  if (support_registry_get_string(path.c_str(), &size, nullptr) != 0 || size == 0) return std::nullopt;
  std::string text(size, '\0');
  if (support_registry_get_string(path.c_str(), &size, text.data()) != 0) return std::nullopt;
  text.resize(std::strlen(text.c_str()));
  return text;
}

// "<library> <function>". The library stays: the function may have left threads and handlers behind.
PFN_CERT_VERIFY_CHAIN_POLICY LoadConfigured(LPCSTR oid) {
  if (strnlen(oid, kMaxPolicyOidText + 1) > kMaxPolicyOidText) throw CryptException(ERROR_FILE_NOT_FOUND);
  const std::optional<std::string> line = Setting(kConfiguredPolicies + std::string(oid));
  if (!line) throw CryptException(ERROR_FILE_NOT_FOUND);
  const size_t blank = line->find(' ');
  const std::string library = line->substr(0, blank);
  const std::string function = blank == line->npos ? std::string() : line->substr(blank + 1);
  void* const loaded = support_load_library_registry(library.c_str(), 7);
  void* const address =
      loaded && !function.empty() ? support_load_library_getaddr(loaded, function.c_str()) : nullptr;
  if (address) return reinterpret_cast<PFN_CERT_VERIFY_CHAIN_POLICY>(address);
  if (loaded) support_unload_library_registry(loaded);
  throw CryptException(ERROR_DLL_INIT_FAILED);
}

// A function of somebody else's: what it leaves as the last error is the code, if it leaves one.
void CallForeign(PFN_CERT_VERIFY_CHAIN_POLICY function, const PolicyCall& call, DWORD otherwise) {
  if (function(call.oid, call.chain, call.para, call.status)) return;
  const DWORD code = GetLastError();
  throw CryptException(code ? code : otherwise);
}

bool IsNumber(LPCSTR oid) { return reinterpret_cast<uintptr_t>(oid) <= 0xFFFF; }

}  // namespace

void VerifyInstalledBasePolicy(const PolicyCall& call, DWORD otherwise) {
  const HCRYPTOIDFUNCSET set = CryptInitOIDFunctionSet(CRYPT_OID_VERIFY_CERTIFICATE_CHAIN_POLICY_FUNC, 0);
  if (!set) ThrowLastError();
  void* address = nullptr;
  HCRYPTOIDFUNCADDR handle = nullptr;
  if (!CryptGetOIDFunctionAddress(set, 0, CERT_CHAIN_POLICY_BASE, 0, &address, &handle)) ThrowLastError();
  const OidFunction held(handle);
  PolicyCall base = call;
  base.oid = CERT_CHAIN_POLICY_BASE;
  CallForeign(reinterpret_cast<PFN_CERT_VERIFY_CHAIN_POLICY>(address), base, otherwise);
}

void VerifyChainPolicy(const PolicyCall& call) {
  if (call.oid == CERT_CHAIN_POLICY_BASE) return VerifyInstalledBasePolicy(call, ERROR_INTERNAL_ERROR);
  if (call.oid == CERT_CHAIN_POLICY_SSL) return VerifySslPolicy(call);
  if (IsNumber(call.oid)) throw CryptException(ERROR_FILE_NOT_FOUND);
  if (std::strcmp(call.oid, SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD) == 0)
    return VerifyKeyPeriodPolicy(call);
  CallForeign(LoadConfigured(call.oid), call, ERROR_INTERNAL_ERROR);
}

const CERT_SIMPLE_CHAIN& PathAt(const CERT_CHAIN_CONTEXT& chain, DWORD index) {
  const bool isThere = index < chain.cChain && chain.rgpChain && chain.rgpChain[index];
  if (!isThere) throw CryptException(ERROR_INVALID_PARAMETER);
  return *chain.rgpChain[index];
}

const CERT_CHAIN_ELEMENT& ElementAt(const CERT_SIMPLE_CHAIN& path, DWORD index) {
  const bool isThere = index < path.cElement && path.rgpElement && path.rgpElement[index]
      && path.rgpElement[index]->pCertContext;
  if (!isThere) throw CryptException(ERROR_INVALID_PARAMETER);
  return *path.rgpElement[index];
}

const CERT_CHAIN_ELEMENT& EndElement(const CERT_CHAIN_CONTEXT& chain) {
  return ElementAt(PathAt(chain, 0), 0);
}

PCCERT_CONTEXT EndCertificate(const CERT_CHAIN_CONTEXT& chain) { return EndElement(chain).pCertContext; }

void ReportPolicyError(CERT_CHAIN_POLICY_STATUS& status, DWORD code) {
  TracePolicy(
      "No extra status supplied. Setting pPolicyStatus->dwError = 0x%08x, pPolicyStatus->lChainIndex = 0, "
      "pPolicyStatus->lElementIndex = 0.\n",
      code);
  status.dwError = code;
  status.lChainIndex = status.lElementIndex = 0;
  TracePolicy(
      "Error encountered and no extra status supplied. Other checks must not be performed - returning "
      "true.\n");
}

}  // namespace certkern
