// A library of the site's that judges revocation in place of the built-in engine.
#include <certkern/errors.h>
#include <certkern/revocation.h>

#include <array>
#include <utility>

#include "certkern/chain/chain_builder.h"
#include "certkern/chain/revocation.h"
#include "platform/owner.h"
#include "platform/supkern.h"

namespace certkern {
namespace {

constexpr char kSetting[] = R"(\cryptography\OID\EncodingType 1\CertDllVerifyRevocation\DEFAULT\DLL)";
constexpr char kEntryPoint[] = "CertDllVerifyRevocation";
constexpr int kLoadFlags = 7;
constexpr size_t kMaxName = 4098;  // NUL included

using Library = Owner<void*, support_unload_library_registry>;

// Read once in a process; empty: none, or none that fits.
const char* LibraryName() {
  static const std::array<char, kMaxName> name = [] {
    std::array<char, kMaxName> text{};
    size_t size = text.size();
    if (support_registry_get_string(kSetting, &size, text.data()) != 0) text.front() = 0;
    return text;
  }();
  return name.data();
}

// While the library has the word on this thread: a chain that it builds to answer us must not ask it again.
thread_local bool isAsking = false;

class Asking {
 public:
  Asking() { isAsking = true; }
  ~Asking() { isAsking = false; }
  Asking(const Asking&) = delete;
  Asking& operator=(const Asking&) = delete;
};

DWORD FlagsFor(DWORD flags) {
  if (!(flags & CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY)) return flags;
  return (flags & ~CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY) | CERT_VERIFY_CACHE_ONLY_BASED_REVOCATION;
}

RevocationResult Ask(PFN_CERT_VERIFY_REVOCATION verify, const ChainBuilder& builder, const CertRecord& cert,
                     const CertRecord& issuer) {
  FILETIME checkTime = builder.checkTime;
  CERT_REVOCATION_PARA parameters{};
  parameters.cbSize = sizeof parameters;
  parameters.pIssuerCert = issuer.context.get();
  if (CompareFileTime(&builder.checkTime, &builder.now) != 0) parameters.pftTimeToUse = &checkTime;
  CERT_REVOCATION_STATUS status{};
  status.cbSize = sizeof status;
  void* contexts[] = {const_cast<CERT_CONTEXT*>(cert.context.get())};
  SetLastError(ERROR_SUCCESS);  // an older code must not pass for the library's
  if (verify(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, CERT_CONTEXT_REVOCATION_TYPE, 1, contexts,
             FlagsFor(builder.flags), &parameters, &status)) {
    return kNotRevoked;
  }
  if (GetLastError() != static_cast<DWORD>(CRYPT_E_REVOKED)) return kUndetermined;
  return {RevocationResult::Kind::Revoked, CRL_REASON_UNSPECIFIED};
}

}  // namespace

std::optional<RevocationResult> AskRevocationLibrary(const ChainBuilder& builder, const CertRecord& cert,
                                                     const CertRecord& issuer) {
  const char* const name = LibraryName();
  if (!*name || isAsking) return {};
  const Library library(support_load_library_registry(name, kLoadFlags));
  if (!library) return {};
  const auto verify =
      reinterpret_cast<PFN_CERT_VERIFY_REVOCATION>(support_load_library_getaddr(library.get(), kEntryPoint));
  if (!verify) return {};
  const Asking asking;
  return Ask(verify, builder, cert, issuer);
}

}  // namespace certkern
