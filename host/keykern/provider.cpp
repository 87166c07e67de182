#include "keykern/provider.h"

#include "keykern/call.h"
#include "keykern/crypto_library.h"
#include "keykern/provider_params.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <string>

namespace keykern {
namespace {

// What the way of opening may be combined with.
constexpr DWORD kMannerFlags = CRYPT_SILENT | CRYPT_MACHINE_KEYSET;
constexpr size_t kMaxUserEntry = 16384;

DWORD FindProvider(const std::string* name, DWORD type, const ProviderRow*& row) {
  row = FindProviderType(type);
  if (!row) return NTE_BAD_PROV_TYPE;
  if (!name) return ERROR_SUCCESS;
  const ProviderRow* named = FindProviderName(*name);
  if (!named) return NTE_KEYSET_NOT_DEF;
  return named == row ? ERROR_SUCCESS : NTE_PROV_TYPE_NO_MATCH;
}

// The container that a caller means who names none.
std::string UserName() {
  std::string buffer(kMaxUserEntry, '\0');
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found)
    return found->pw_name;
  return std::to_string(geteuid());
}

DWORD OpenKeySet(const std::string& container, Scope scope, DWORD way, std::unique_ptr<KeySet>& keys) {
  const std::string name = container.empty() ? UserName() : container;
  return way == CRYPT_NEWKEYSET ? CreateContainer(name, scope, keys) : OpenContainer(name, scope, keys);
}

DWORD Acquire(HCRYPTPROV* handle, const std::string& container, const std::string* name, DWORD type,
              DWORD flags) {
  const DWORD way = flags & ~kMannerFlags;
  if (!handle && way != CRYPT_DELETEKEYSET) return ERROR_INVALID_PARAMETER;
  const ProviderRow* row;
  if (const DWORD code = FindProvider(name, type, row)) return code;
  const ProviderManner manner{flags & CRYPT_MACHINE_KEYSET ? Scope::Machine : Scope::User,
                              (flags & CRYPT_SILENT) != 0};
  std::unique_ptr<KeySet> keys;
  switch (way) {
    case CRYPT_VERIFYCONTEXT:
      if (!container.empty()) return NTE_BAD_KEYSET_PARAM;
      keys = NewMemoryKeySet();
      break;
    case CRYPT_DELETEKEYSET:
      return DeleteContainer(container.empty() ? UserName() : container, manner.scope);
    case CRYPT_NEWKEYSET:
    case 0:
      if (const DWORD code = OpenKeySet(container, manner.scope, way, keys)) return code;
      break;
    default:
      return NTE_BAD_FLAGS;
  }
  *handle = OpenHandle(std::make_unique<Provider>(*row, std::move(keys), manner));
  return ERROR_SUCCESS;
}

std::string Narrow(LPCWSTR text) {
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<size_t>(std::max(size, 1)), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, narrow.data(), size, nullptr, nullptr);
  narrow.pop_back();
  return narrow;
}

}  // namespace

DWORD Provider::loadKey(DWORD spec, KeyRecord& key) const {
  const DWORD code = keys_->load(spec, key);
  return code == SCARD_W_CARD_NOT_AUTHENTICATED && manner_.silent ? NTE_SILENT_CONTEXT : code;
}

DWORD Provider::storeKey(DWORD spec, const KeyRecord& key) const {
  return manner_.shared ? NTE_PERM : keys_->store(spec, key);
}

}  // namespace keykern

using namespace keykern;  // NOLINT(google-build-using-namespace): the rest of this file is the exported surface

extern "C" {

BOOL CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer, LPCSTR szProvider, DWORD dwProvType,
                          DWORD dwFlags) {
  return Call([&] {
    const std::string name = szProvider ? szProvider : "";
    return Acquire(phProv, szContainer ? szContainer : "", szProvider ? &name : nullptr, dwProvType, dwFlags);
  });
}

BOOL CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer, LPCWSTR szProvider, DWORD dwProvType,
                          DWORD dwFlags) {
  return Call([&] {
    const std::string name = szProvider ? Narrow(szProvider) : "";
    return Acquire(phProv, szContainer ? Narrow(szContainer) : "", szProvider ? &name : nullptr, dwProvType,
                   dwFlags);
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
    return GetProviderParam(*provider, dwParam, pbData, pdwDataLen, dwFlags);
  });
}

BOOL CryptSetProvParam(HCRYPTPROV hProv, DWORD dwParam, const BYTE* pbData, DWORD dwFlags) {
  return Call([&]() -> DWORD {
    const Pinned<Provider> provider(hProv);
    if (!provider) return ERROR_INVALID_HANDLE;
    if (dwFlags) return NTE_BAD_FLAGS;
    return SetProviderParam(*provider, dwParam, pbData);
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

}  // extern "C"
