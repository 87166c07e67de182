// The exported functions of the sets by which a program plugs its own functions in.
#include <certkern/errors.h>
#include <certkern/oid.h>

#include <span>

#include "api/frame.h"
#include "oid/function_sets.h"

using certkern::FoundFunction;
using certkern::Frame;
using certkern::FunctionSets;
using certkern::Guarded;
using certkern::IsOidHandle;

namespace {

// Outside the library's life no set can be had, and no handle is good.
template <class Use>
auto InSets(DWORD otherwise, Use use) -> decltype(use(*certkern::ProcessFunctionSets())) {
  if (FunctionSets* const sets = certkern::ProcessFunctionSets()) return use(*sets);
  SetLastError(otherwise);
  return {};
}

}  // namespace

extern "C" {

HCRYPTOIDFUNCSET CryptInitOIDFunctionSet(LPCSTR pszFuncName, DWORD dwFlags) {
  return Guarded([&](Frame& frame) -> HCRYPTOIDFUNCSET {
    frame.entry("(pszFuncName = %p, dwFlags = 0x%.8X)", pszFuncName, dwFlags);
    if (!pszFuncName || dwFlags) return frame.failed(ERROR_INVALID_PARAMETER);
    const HCRYPTOIDFUNCSET set =
        InSets(ERROR_DLL_INIT_FAILED, [&](FunctionSets& sets) { return sets.findOrMake(pszFuncName); });
    if (!set) return frame.failed();
    return frame.result(set, "returned: hFuncSet = %p", set);
  });
}

BOOL CryptInstallOIDFunctionAddress(HMODULE hModule, DWORD dwEncodingType, LPCSTR pszFuncName,
                                    DWORD cFuncEntry, const CRYPT_OID_FUNC_ENTRY rgFuncEntry[],
                                    DWORD dwFlags) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hModule = %p, dwEncodingType = %u, pszFuncName = %p, cFuncEntry = %u, rgFuncEntry = %p, dwFlags = "
        "0x%.8X)",
        hModule, dwEncodingType, pszFuncName, cFuncEntry, rgFuncEntry, dwFlags);
    if (hModule || (cFuncEntry && !rgFuncEntry) || dwFlags > CRYPT_INSTALL_OID_FUNC_BEFORE_FLAG) {
      return frame.failed(ERROR_INVALID_PARAMETER);
    }
    const auto place = dwFlags ? FunctionSets::Place::InFront : FunctionSets::Place::AtEnd;
    if (!InSets(ERROR_DLL_INIT_FAILED, [&](FunctionSets& sets) {
          return sets.install(pszFuncName, dwEncodingType, std::span(rgFuncEntry, cFuncEntry), place);
        })) {
      return frame.failed();
    }
    return frame.result(TRUE);
  });
}

BOOL CryptGetOIDFunctionAddress(HCRYPTOIDFUNCSET hFuncSet, DWORD dwEncodingType, LPCSTR pszOID, DWORD dwFlags,
                                void** ppvFuncAddr, HCRYPTOIDFUNCADDR* phFuncAddr) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hFuncSet = %p, dwEncodingType = %u, pszOID = %p, dwFlags = 0x%.8X, ppvFuncAddr = %p, phFuncAddr = "
        "%p)",
        hFuncSet, dwEncodingType, pszOID, dwFlags, ppvFuncAddr, phFuncAddr);
    // a caller that does not look at the result must not call what the last look-up left here
    if (ppvFuncAddr) *ppvFuncAddr = nullptr;
    if (phFuncAddr) *phFuncAddr = nullptr;
    if (!IsOidHandle(hFuncSet) || dwFlags > CRYPT_GET_INSTALLED_OID_FUNC_FLAG || !ppvFuncAddr
        || !phFuncAddr) {
      return frame.failed(ERROR_INVALID_PARAMETER);
    }
    const auto found = InSets(ERROR_INVALID_PARAMETER, [&](const FunctionSets& sets) {
      return sets.find(hFuncSet, dwEncodingType, pszOID);
    });
    if (!found) return frame.failed();
    *ppvFuncAddr = found->function;
    *phFuncAddr = found->handle;
    return frame.result(TRUE);
  });
}

BOOL CryptGetDefaultOIDFunctionAddress(HCRYPTOIDFUNCSET hFuncSet, DWORD dwEncodingType, LPCWSTR pwszDll,
                                       DWORD dwFlags, void** ppvFuncAddr, HCRYPTOIDFUNCADDR* phFuncAddr) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hFuncSet = %p, dwEncodingType = %u, pwszDll = %p, dwFlags = 0x%.8X, ppvFuncAddr = %p, phFuncAddr = "
        "%p)",
        hFuncSet, dwEncodingType, pwszDll, dwFlags, ppvFuncAddr, phFuncAddr);
    if (!IsOidHandle(hFuncSet) || dwFlags || !ppvFuncAddr || !phFuncAddr
        || (*phFuncAddr && !IsOidHandle(*phFuncAddr))) {
      return frame.failed(ERROR_INVALID_PARAMETER);
    }
    if (pwszDll) return frame.failed(ERROR_MOD_NOT_FOUND);
    const auto found = InSets(ERROR_INVALID_PARAMETER, [&](const FunctionSets& sets) {
      return sets.findDefault(hFuncSet, dwEncodingType, *phFuncAddr);
    });
    *ppvFuncAddr = found ? found->function : nullptr;
    *phFuncAddr = found ? found->handle : nullptr;
    return found ? frame.result(TRUE) : frame.failed();
  });
}

BOOL CryptFreeOIDFunctionAddress(HCRYPTOIDFUNCADDR hFuncAddr, DWORD dwFlags) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(hFuncAddr = %p, dwFlags = 0x%.8X)", hFuncAddr, dwFlags);
    if (dwFlags || (hFuncAddr && !IsOidHandle(hFuncAddr))) return frame.failed(ERROR_INVALID_PARAMETER);
    return frame.result(TRUE);
  });
}

}  // extern "C"
