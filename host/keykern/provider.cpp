#include "keykern/provider.h"

#include "keykern/algorithms.h"
#include "keykern/call.h"
#include "keykern/crypto_library.h"
#include "keykern/results.h"

#include <algorithm>
#include <cstring>
#include <string>

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

// Flags that a verify context may have beside it: it opens no container and asks nobody.
constexpr DWORD kVerifyFlags = CRYPT_VERIFYCONTEXT | CRYPT_SILENT | CRYPT_MACHINE_KEYSET;

DWORD FindProvider(const std::string* name, DWORD type, const ProviderRow*& row) {
  row = FindProviderType(type);
  if (!row) return NTE_BAD_PROV_TYPE;
  if (!name) return ERROR_SUCCESS;
  const ProviderRow* named = FindProviderName(*name);
  if (!named) return NTE_KEYSET_NOT_DEF;
  return named == row ? ERROR_SUCCESS : NTE_PROV_TYPE_NO_MATCH;
}

DWORD Acquire(HCRYPTPROV* handle, bool container, const std::string* name, DWORD type, DWORD flags) {
  if (!handle) return ERROR_INVALID_PARAMETER;
  const ProviderRow* row;
  if (const DWORD code = FindProvider(name, type, row)) return code;
  if ((flags & CRYPT_VERIFYCONTEXT) != CRYPT_VERIFYCONTEXT || flags & ~kVerifyFlags) return NTE_BAD_FLAGS;
  if (container) return NTE_BAD_KEYSET_PARAM;
  *handle = OpenHandle(std::make_unique<Provider>(*row));
  return ERROR_SUCCESS;
}

std::string Narrow(LPCWSTR text) {
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<size_t>(std::max(size, 1)), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, narrow.data(), size, nullptr, nullptr);
  narrow.pop_back();
  return narrow;
}

// --- enumeration of the algorithms ---

template <class Record>
void PutNames(const Algorithm& row, Record& record) {
  record.dwNameLen = static_cast<DWORD>(row.name.size() + 1);
  std::copy(row.name.begin(), row.name.end(), record.szName);
}

void Put(const Algorithm& row, PROV_ENUMALGS& record) {
  record.dwBitLen = row.defaultBits;
  PutNames(row, record);
}

void Put(const Algorithm& row, PROV_ENUMALGS_EX& record) {
  record.dwDefaultLen = row.defaultBits;
  record.dwMinLen = row.minimumBits;
  record.dwMaxLen = row.maximumBits;
  PutNames(row, record);
  record.dwLongNameLen = static_cast<DWORD>(row.longName.size() + 1);
  std::copy(row.longName.begin(), row.longName.end(), record.szLongName);
}

// The row at a place of a type's enumeration, which begins with the algorithms that the type is the default for. Moves
// on over those that this host does not have. Null at the end.
const Algorithm* AlgorithmAt(DWORD type, uint32_t& place) {
  const std::span<const Algorithm> rows = Algorithms();
  for (; place < 2 * rows.size(); ++place) {
    const Algorithm& row = rows[place % rows.size()];
    const bool own = row.providerType == type;
    if (own == (place < rows.size()) && IsAvailable(row)) return &row;
  }
  return nullptr;
}

template <class Record>
DWORD NextAlgorithm(Provider& provider, DWORD flags, BYTE* out, DWORD* size) {
  if (flags & ~static_cast<DWORD>(CRYPT_FIRST)) return NTE_BAD_FLAGS;
  uint32_t place = flags & CRYPT_FIRST ? 0 : provider.enumeration().load(std::memory_order_relaxed);
  const Algorithm* row = AlgorithmAt(provider.row().type, place);
  if (!row) return ERROR_NO_MORE_ITEMS;
  Record record{};
  record.aiAlgid = row->id;
  Put(*row, record);
  const DWORD code = GiveRecord(record, out, size);
  // the question for the size, and a buffer that was too small, are asked again
  if (code == ERROR_SUCCESS && out) provider.enumeration().store(place + 1, std::memory_order_relaxed);
  return code;
}

DWORD GetParam(Provider& provider, DWORD param, BYTE* out, DWORD* size, DWORD flags) {
  if (!size) return ERROR_INVALID_PARAMETER;
  switch (param) {
    case PP_ENUMALGS:
      return NextAlgorithm<PROV_ENUMALGS>(provider, flags, out, size);
    case PP_ENUMALGS_EX:
      return NextAlgorithm<PROV_ENUMALGS_EX>(provider, flags, out, size);
    case PP_NAME:
      return GiveText(provider.row().name, reinterpret_cast<char*>(out), size);
    case PP_PROVTYPE:
      return GiveRecord(provider.row().type, out, size);
    default:
      return NTE_BAD_TYPE;
  }
}

// --- enumeration of the providers ---

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
  const HCRYPTPROV fresh = OpenHandle(std::make_unique<Provider>(row));
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

BOOL CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer, LPCSTR szProvider, DWORD dwProvType,
                          DWORD dwFlags) {
  return Call([&] {
    const std::string name = szProvider ? szProvider : "";
    return Acquire(phProv, szContainer && *szContainer, szProvider ? &name : nullptr, dwProvType, dwFlags);
  });
}

BOOL CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer, LPCWSTR szProvider, DWORD dwProvType,
                          DWORD dwFlags) {
  return Call([&] {
    const std::string name = szProvider ? Narrow(szProvider) : "";
    return Acquire(phProv, szContainer && *szContainer, szProvider ? &name : nullptr, dwProvType, dwFlags);
  });
}

BOOL CryptContextAddRef(HCRYPTPROV hProv, DWORD* pdwReserved, DWORD dwFlags) {
  return Call([&]() -> DWORD {
    if (pdwReserved) return ERROR_INVALID_PARAMETER;
    if (dwFlags) return NTE_BAD_FLAGS;
    return OpenHandleAgain<Provider>(hProv) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
  });
}

BOOL CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) {
  return Call([&]() -> DWORD {
    if (!CloseHandle<Provider>(hProv)) return ERROR_INVALID_HANDLE;
    return dwFlags ? NTE_BAD_FLAGS : ERROR_SUCCESS;  // as published, released all the same
  });
}

BOOL CryptGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
  return Call([&]() -> DWORD {
    const Pinned<Provider> provider(hProv);
    if (!provider) return ERROR_INVALID_HANDLE;
    return GetParam(*provider, dwParam, pbData, pdwDataLen, dwFlags);
  });
}

BOOL CryptGenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer) {
  return Call([&]() -> DWORD {
    const Pinned<Provider> provider(hProv);
    if (!provider) return ERROR_INVALID_HANDLE;
    if (!pbBuffer && dwLen) return ERROR_INVALID_PARAMETER;
    return RandomBytes({pbBuffer, dwLen}) ? ERROR_SUCCESS : NTE_FAIL;
  });
}

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
