// The providers that there are, and the process's default ones.
#include "keykern/algorithms.h"
#include "keykern/call.h"
#include "keykern/provider.h"
#include "keykern/results.h"

#include <algorithm>

namespace keykern {
namespace {

constexpr ProviderRow kProviders[] = {
    {PROV_GOST_2012_256, "certkern GOST R 34.10-2012 Provider",        "GOST R 34.10-2012, 256 bits" },
    {PROV_GOST_2012_512, "certkern GOST R 34.10-2012 Strong Provider", "GOST R 34.10-2012, 512 bits" },
    {PROV_GOST_2001_DH,  "certkern GOST R 34.10-2001 Provider",        "GOST R 34.10-2001"           },
    {PROV_RSA_AES,       "certkern RSA and AES Provider",              "RSA Full and AES"            },
    {PROV_RSA_FULL,      "certkern RSA Provider",                      "RSA Full"                    },
    {PROV_EC_ECDSA_FULL, "certkern ECDSA and ECDH Provider",           "EC Full: signatures by ECDSA"},
    {PROV_EDDSA,         "certkern EdDSA Provider",                    "EdDSA"                       },
};

// --- enumeration ---

template <class Character>
DWORD EnumProviders(DWORD index, const DWORD* reserved, DWORD flags, DWORD* type, Character* name,
                    DWORD* size, std::string_view ProviderRow::*text) {
  if (reserved || !type) return ERROR_INVALID_PARAMETER;
  if (flags) return NTE_BAD_FLAGS;
  if (index >= std::size(kProviders)) return ERROR_NO_MORE_ITEMS;
  const DWORD code = GiveText(kProviders[index].*text, name, size);
  if (code != ERROR_INVALID_PARAMETER) *type = kProviders[index].type;
  return code;
}

template <class Character>
DWORD GetDefaultProvider(DWORD type, const DWORD* reserved, DWORD flags, Character* name, DWORD* size) {
  if (reserved) return ERROR_INVALID_PARAMETER;
  if (flags != CRYPT_MACHINE_DEFAULT && flags != CRYPT_USER_DEFAULT) return NTE_BAD_FLAGS;
  const ProviderRow* row = FindProviderType(type);
  return row ? GiveText(row->name, name, size) : NTE_BAD_PROV_TYPE;
}

// --- defaults of the process ---

constinit std::atomic<HCRYPTPROV> defaultProviders[std::size(kProviders)] = {};

// One provider a type, opened when it is first wanted and kept. Callers borrow it; one who releases it all the same
// harms nobody but himself: the next question finds it dead and opens another.
DWORD BorrowDefault(const ProviderRow& row, HCRYPTPROV& handle) {
  std::atomic<HCRYPTPROV>& place = defaultProviders[&row - kProviders];
  handle = place.load(std::memory_order_acquire);
  if (handle && Pinned<Provider>(handle)) return ERROR_SUCCESS;
  const HCRYPTPROV fresh = OpenHandle(
      std::make_unique<Provider>(row, NewMemoryKeySet(), ProviderManner{.silent = true, .shared = true}));
  if (place.compare_exchange_strong(handle, fresh, std::memory_order_acq_rel)) {
    handle = fresh;
  } else {
    static_cast<void>(CloseHandle<Provider>(fresh));  // another thread was first: handle is its
  }
  return ERROR_SUCCESS;
}

}  // namespace

std::span<const ProviderRow> ProviderRows() { return kProviders; }

const ProviderRow* FindProviderType(DWORD type) {
  const auto* row = std::find_if(std::begin(kProviders), std::end(kProviders),
                                 [type](const ProviderRow& candidate) { return candidate.type == type; });
  return row == std::end(kProviders) ? nullptr : row;
}

const ProviderRow* FindProviderName(std::string_view name) {
  const auto* row = std::find_if(std::begin(kProviders), std::end(kProviders),
                                 [name](const ProviderRow& candidate) { return candidate.name == name; });
  return row == std::end(kProviders) ? nullptr : row;
}

}  // namespace keykern

using namespace keykern;  // NOLINT(google-build-using-namespace): the rest of this file is the exported surface

extern "C" {

BOOL CryptEnumProvidersA(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags, DWORD* pdwProvType,
                         LPSTR szProvName, DWORD* pcbProvName) {
  return Call([&] {
    return EnumProviders(dwIndex, pdwReserved, dwFlags, pdwProvType, szProvName, pcbProvName,
                         &ProviderRow::name);
  });
}

BOOL CryptEnumProvidersW(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags, DWORD* pdwProvType,
                         LPWSTR szProvName, DWORD* pcbProvName) {
  return Call([&] {
    return EnumProviders(dwIndex, pdwReserved, dwFlags, pdwProvType, szProvName, pcbProvName,
                         &ProviderRow::name);
  });
}

BOOL CryptEnumProviderTypesA(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags, DWORD* pdwProvType,
                             LPSTR szTypeName, DWORD* pcbTypeName) {
  return Call([&] {
    return EnumProviders(dwIndex, pdwReserved, dwFlags, pdwProvType, szTypeName, pcbTypeName,
                         &ProviderRow::typeName);
  });
}

BOOL CryptEnumProviderTypesW(DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags, DWORD* pdwProvType,
                             LPWSTR szTypeName, DWORD* pcbTypeName) {
  return Call([&] {
    return EnumProviders(dwIndex, pdwReserved, dwFlags, pdwProvType, szTypeName, pcbTypeName,
                         &ProviderRow::typeName);
  });
}

BOOL CryptGetDefaultProviderA(DWORD dwProvType, DWORD* pdwReserved, DWORD dwFlags, LPSTR pszProvName,
                              DWORD* pcbProvName) {
  return Call([&] { return GetDefaultProvider(dwProvType, pdwReserved, dwFlags, pszProvName, pcbProvName); });
}

BOOL CryptGetDefaultProviderW(DWORD dwProvType, DWORD* pdwReserved, DWORD dwFlags, LPWSTR pszProvName,
                              DWORD* pcbProvName) {
  return Call([&] { return GetDefaultProvider(dwProvType, pdwReserved, dwFlags, pszProvName, pcbProvName); });
}

HCRYPTPROV SVAPI_I_GetDefaultProvider(DWORD dwProvType) {
  HCRYPTPROV provider = 0;
  return CryptAcquireContextA(&provider, nullptr, nullptr, dwProvType, CRYPT_VERIFYCONTEXT) ? provider : 0;
}

HCRYPTPROV SVAPI_I_CryptGetDefaultCryptProv(ALG_ID aiAlgid) {
  HCRYPTPROV provider = 0;
  const BOOL found = Call([&]() -> DWORD {
    const Algorithm* algorithm = FindAlgorithm(aiAlgid);
    if (!algorithm || !IsAvailable(*algorithm)) return NTE_BAD_ALGID;
    return BorrowDefault(*FindProviderType(algorithm->providerType), provider);
  });
  return found ? provider : 0;
}

}  // extern "C"
