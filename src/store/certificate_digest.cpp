#include "store/certificate_digest.h"

#include <certkern/errors.h>

#include <cstring>
#include <new>
#include <vector>

#include "platform/exceptions.h"
#include "platform/sizes.h"

namespace certkern {
namespace {

// Small enough for most names, and grown for the rest.
constexpr size_t kNameRoom = 128;

// A walk that breaks off is not the same as one that found nothing.
[[noreturn]] void ThrowWalkFailed() {
  const DWORD code = GetLastError();
  if (code == ERROR_NOT_ENOUGH_MEMORY || code == NTE_NO_MEMORY) throw CryptException(E_OUTOFMEMORY);
  throw CryptException(static_cast<DWORD>(HRESULT_FROM_WIN32(code)));
}

// One step of a walk: `step` is called with a buffer and its size until the buffer is large enough. False at the end.
template <class Step>
bool Next(std::vector<char>& buffer, const Step& step) {
  for (;;) {
    DWORD size = static_cast<DWORD>(buffer.size());
    if (step(buffer.data(), &size)) return true;
    if (GetLastError() == ERROR_NO_MORE_ITEMS) return false;
    if (GetLastError() != ERROR_MORE_DATA || size <= buffer.size()) ThrowWalkFailed();
    buffer.resize(size);
  }
}

bool HasAlgorithm(HCRYPTPROV provider, ALG_ID algorithm) {
  std::vector<char> buffer(kNameRoom);
  PROV_ENUMALGS_EX entry{};
  static_assert(sizeof(entry) <= kNameRoom);
  for (DWORD first = CRYPT_FIRST;; first = 0) {
    const bool more = Next(buffer, [&](char* out, DWORD* size) {
      return CryptGetProvParam(provider, PP_ENUMALGS_EX, reinterpret_cast<BYTE*>(out), size, first);
    });
    if (!more) return false;
    std::memcpy(&entry, buffer.data(), sizeof(entry));
    if (entry.aiAlgid == algorithm) return true;
  }
}

// Walks the types, or the names, that `enumerate` tells, and opens each.
template <class Enumerate, class Name>
ProviderHandle SearchProviders(ALG_ID algorithm, DWORD flags, const Enumerate& enumerate,
                               const Name& nameOf) {
  std::vector<char> buffer(kNameRoom);
  for (DWORD index = 0;; ++index) {
    DWORD type = 0;
    const bool more = Next(
        buffer, [&](char* name, DWORD* size) { return enumerate(index, nullptr, 0, &type, name, size); });
    if (!more) return {};
    ProviderHandle provider;
    // one that can't be opened, perhaps a token that is not there, must not hide those behind it
    if (!CryptAcquireContextA(provider.out(), nullptr, nameOf(buffer), type, CRYPT_VERIFYCONTEXT | flags))
      continue;
    if (HasAlgorithm(provider.get(), algorithm)) return provider;
  }
}

}  // namespace

ProviderHandle FindProviderForAlgorithm(ALG_ID algorithm, DWORD flags) try {
  if (!algorithm) return {};
  if (const HCRYPTPROV borrowed = SVAPI_I_CryptGetDefaultCryptProv(algorithm)) {
    if (!CryptContextAddRef(borrowed, nullptr, 0)) ThrowWalkFailed();
    return ProviderHandle(borrowed);
  }
  ProviderHandle provider = SearchProviders(algorithm, flags, CryptEnumProviderTypesA,
                                            [](const std::vector<char>&) -> LPCSTR { return nullptr; });
  if (provider) return provider;
  return SearchProviders(algorithm, flags, CryptEnumProvidersA,
                         [](const std::vector<char>& name) -> LPCSTR { return name.data(); });
} catch (const std::bad_alloc&) {
  throw CryptException(E_OUTOFMEMORY);
}

bool HashEncoded(HCRYPTPROV provider, ALG_ID algorithm, std::span<const BYTE> encoded, BYTE* out,
                 DWORD* size) {
  if (!algorithm) algorithm = CALG_SHA1;
  ProviderHandle found;
  if (!provider) {
    found = FindProviderForAlgorithm(algorithm);
    if (!found) {
      SetLastError(NTE_BAD_ALGID);
      return false;
    }
    provider = found.get();
  }
  HashHandle hash;
  return CryptCreateHash(provider, algorithm, 0, 0, hash.out())
      && CryptHashData(hash.get(), encoded.data(), CheckedDword(encoded.size()), 0)
      && CryptGetHashParam(hash.get(), HP_HASHVAL, out, size, 0);
}

}  // namespace certkern
