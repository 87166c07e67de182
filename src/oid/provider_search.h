// The search for a provider that has what is wanted: first the default of each type, then each by its name.
#ifndef CERTKERN_OID_PROVIDER_SEARCH_H
#define CERTKERN_OID_PROVIDER_SEARCH_H

#include <certkern/keykern.h>

#include <span>

#include "platform/owner.h"

namespace certkern {

using ProviderHandle = Owner<HCRYPTPROV, CryptReleaseContext>;

// What a search that breaks off ends with, because that is not the same as finding nothing: a CryptException of
// E_OUTOFMEMORY, or of the last error as an HRESULT.
[[noreturn]] void ThrowSearchFailed();

// The first provider whose own list has all of the algorithms; empty when there is none. `flags` go beside
// CRYPT_VERIFYCONTEXT. May throw as above.
ProviderHandle SearchProviders(std::span<const ALG_ID> algorithms, DWORD flags = 0);

}  // namespace certkern

namespace Solvane {

// The test of one provider, and the handle that it was made with.
class CFindAlgIdIn {
 public:
  CFindAlgIdIn(const CFindAlgIdIn&) = delete;
  CFindAlgIdIn& operator=(const CFindAlgIdIn&) = delete;
  // True for a provider that lists all of the algorithms, in the order in which they were given; its handle is then
  // kept.
  virtual bool check(DWORD type, LPCSTR name) = 0;
  virtual ~CFindAlgIdIn() = default;

  // The handle kept, for the caller to own.
  certkern::ProviderHandle take() { return std::move(provider_); }

 protected:
  // The algorithms stay the caller's, and must outlive the finder.
  CFindAlgIdIn(std::span<const ALG_ID> algorithms, DWORD flags) : algorithms_(algorithms), flags_(flags) {}
  bool checkNamed(DWORD type, LPCSTR name);

 private:
  const std::span<const ALG_ID> algorithms_;
  const DWORD flags_;
  certkern::ProviderHandle provider_;
};

// The provider that bears the name.
class CFindAlgIdInProviders final : public CFindAlgIdIn {
 public:
  explicit CFindAlgIdInProviders(std::span<const ALG_ID> algorithms, DWORD flags = 0)
      : CFindAlgIdIn(algorithms, flags) {}
  bool check(DWORD type, LPCSTR name) override { return checkNamed(type, name); }
};

// The default provider of the type; the name is the type's.
class CFindAlgIdInDefaultProviders final : public CFindAlgIdIn {
 public:
  explicit CFindAlgIdInDefaultProviders(std::span<const ALG_ID> algorithms, DWORD flags = 0)
      : CFindAlgIdIn(algorithms, flags) {}
  bool check(DWORD type, LPCSTR /*name*/) override { return checkNamed(type, nullptr); }
};

}  // namespace Solvane

#endif
