#include "oid/provider_search.h"

#include <certkern/errors.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "platform/exceptions.h"
#include "platform/lack_of_memory.h"

namespace certkern {
namespace {

// Small enough for most names, and grown for the rest.
constexpr size_t kNameRoom = 128;

// One step of a walk: `step` is called with a buffer and its size until the buffer is large enough. False at the end.
template <class Step>
bool Next(std::vector<char>& buffer, const Step& step) {
  for (;;) {
    DWORD size = static_cast<DWORD>(buffer.size());
    if (step(buffer.data(), &size)) return true;
    if (GetLastError() == ERROR_NO_MORE_ITEMS) return false;
    if (GetLastError() != ERROR_MORE_DATA || size <= buffer.size()) ThrowSearchFailed();
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

// Walks the types, or the names, that `enumerate` tells, until the finder takes one.
template <class Enumerate>
bool Walk(const Enumerate& enumerate, Solvane::CFindAlgIdIn& finder) {
  std::vector<char> name(kNameRoom);
  for (DWORD index = 0;; ++index) {
    DWORD type = 0;
    const bool more =
        Next(name, [&](char* out, DWORD* size) { return enumerate(index, nullptr, 0, &type, out, size); });
    if (!more) return false;
    if (finder.check(type, name.data())) return true;
  }
}

}  // namespace

void ThrowSearchFailed() {
  const DWORD code = GetLastError();
  if (IsLackOfMemory(code)) throw CryptException(E_OUTOFMEMORY);
  throw CryptException(static_cast<DWORD>(HRESULT_FROM_WIN32(code)));
}

ProviderHandle SearchProviders(std::span<const ALG_ID> algorithms, DWORD flags) try {
  Solvane::CFindAlgIdInDefaultProviders defaults(algorithms, flags);
  if (Walk(CryptEnumProviderTypesA, defaults)) return defaults.take();
  Solvane::CFindAlgIdInProviders named(algorithms, flags);
  static_cast<void>(Walk(CryptEnumProvidersA, named));
  return named.take();
} catch (const std::bad_alloc&) {
  throw CryptException(E_OUTOFMEMORY);
}

}  // namespace certkern

namespace Solvane {

bool CFindAlgIdIn::checkNamed(DWORD type, LPCSTR name) {
  // one that can't be opened, perhaps a token that is not there, must not hide those behind it; but want of memory must not
  // pass for an algorithm that nobody has
  if (!CryptAcquireContextA(provider_.out(), nullptr, name, type, CRYPT_VERIFYCONTEXT | flags_)) {
    if (certkern::IsLackOfMemory(GetLastError())) certkern::ThrowSearchFailed();
    return false;
  }
  const bool hasAll = std::all_of(algorithms_.begin(), algorithms_.end(), [this](ALG_ID algorithm) {
    return certkern::HasAlgorithm(provider_.get(), algorithm);
  });
  if (!hasAll) provider_.reset();
  return hasAll;
}

}  // namespace Solvane
