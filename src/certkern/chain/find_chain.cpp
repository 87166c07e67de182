#include "certkern/chain/find_chain.h"

#include <certkern/errors.h>
#include <certkern/find.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

#include "ber/read_cursor.h"
#include "certkern/CertGetEnhancedKeyUsage.h"
#include "certkern/chain/chain_request.h"
#include "platform/exceptions.h"
#include "store/certificate_primitives.h"

namespace certkern {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// --- what is asked of a candidate; false is a no, whatever its reason ---

// A certificate without any restriction is good for everything, but it was not made for this.
bool HasUsage(PCCERT_CONTEXT candidate, std::string_view wanted) try {
  DWORD size = 0;
  if (!GetEnhancedKeyUsage(candidate, 0, nullptr, size)) return false;
  std::vector<BYTE> memory(size);
  const auto usage = reinterpret_cast<PCERT_ENHKEY_USAGE>(memory.data());
  if (!GetEnhancedKeyUsage(candidate, 0, usage, size)) return false;
  return std::ranges::any_of(AsSpan(usage->rgpszUsageIdentifier, usage->cUsageIdentifier),
                             [&](LPCSTR each) { return each == wanted; });
} catch (const CryptException& unreadable) {  // a property that somebody wrote
  return Fault(unreadable.code());
}

bool IsIssuedByOneOf(PCCERT_CONTEXT candidate, const CERT_CHAIN_FIND_BY_ISSUER_PARA& para) {
  if (!para.rgIssuer) return Fault(E_INVALIDARG);
  return std::ranges::any_of(AsSpan(para.rgIssuer, para.cIssuer), [&](CERT_NAME_BLOB& each) {
    return CertCompareCertificateName(kEncoding, &candidate->pCertInfo->Issuer, &each);
  });
}

bool IsWanted(PCCERT_CONTEXT candidate, const CERT_CHAIN_FIND_BY_ISSUER_PARA& para) {
  if (para.cbSize < sizeof para) return Fault(E_INVALIDARG);
  if (para.pszUsageIdentifier && !HasUsage(candidate, para.pszUsageIdentifier)) return false;
  if (para.dwKeySpec || para.dwAcquirePrivateKeyFlags) return Fault(ERROR_CALL_NOT_IMPLEMENTED);
  if (para.cIssuer && !IsIssuedByOneOf(candidate, para)) return false;
  return !para.pfnFindCallback || para.pfnFindCallback(candidate, para.pvFindArg);
}

// --- the walk ---

// Where the walk begins: empty is the beginning of the store. A certificate of another store leads to no further one.
bool StartBehind(PCCERT_CHAIN_CONTEXT previous, CertificateOwner& from) {
  const PCCERT_CONTEXT end = previous ? EndCertificateOf(previous) : nullptr;
  if (!end) return true;
  from.reset(CertDuplicateCertificateContext(end));
  return static_cast<bool>(from);
}

// A build interns its end certificate before all others, so that the chain has the store's own context, which the next
// call goes on from.
ChainContextOwner ChainOf(PCCERT_CONTEXT candidate, HCERTSTORE store, DWORD flags) {
  CERT_CHAIN_PARA para{};
  para.cbSize = offsetof(CERT_CHAIN_PARA, RequestedIssuancePolicy);
  return GetChain(
      {nullptr, candidate, nullptr, store, para, flags & CERT_CHAIN_FIND_BY_ISSUER_CACHE_ONLY_URL_FLAG});
}

}  // namespace

ChainContextOwner FindChain(HCERTSTORE store, DWORD flags, const CERT_CHAIN_FIND_BY_ISSUER_PARA& para,
                            ChainContextOwner previous) {
  const DWORD type =
      flags & CERT_CHAIN_FIND_BY_ISSUER_NO_KEY_FLAG ? CERT_FIND_ANY : CERT_FIND_HAS_PRIVATE_KEY;
  CertificateOwner candidate;
  if (!StartBehind(previous.get(), candidate)) return {};
  do {
    candidate.reset(CertFindCertificateInStore(store, kEncoding, 0, type, nullptr, candidate.release()));
    if (!candidate) return {};
  } while (!IsWanted(candidate.get(), para));
  return ChainOf(candidate.get(), store, flags);
}

}  // namespace certkern
