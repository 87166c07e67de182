// Any certificates and lists as a world of their own: a path is built for each of them, judged by the policies, and found
// again through the store. Nothing is fetched.
//
// Four bytes of settings, then parts: a byte whose lowest bit says whether it is trusted, a length of two bytes, and an
// encoding, which goes to a store as what it decodes as. With one setting every key can be imported and most signatures
// are good, so that what comes behind a verification is reached by certificates that nobody could sign.
#include <certkern/cert.h>
#include <certkern/chain.h>
#include <certkern/find.h>
#include <certkern/keykern.h>
#include <certkern/policy.h>
#include <certkern/store.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <span>
#include <vector>

#include "platform/owner.h"
#include "platform/temporary_directory.h"

namespace {

bool g_anyKeySigns = false;

template <class Function>
Function* TheRealOne(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" BOOL CryptImportKey(HCRYPTPROV provider, const BYTE* data, DWORD size, HCRYPTKEY with, DWORD flags,
                               HCRYPTKEY* key) {
  static auto* const real = TheRealOne(&CryptImportKey, __func__);
  if (real(provider, data, size, with, flags, key)) return TRUE;
  if (!g_anyKeySigns) return FALSE;
  *key = 1;  // stands for no key, so that giving it back does nothing
  return TRUE;
}

extern "C" BOOL CryptVerifySignatureA(HCRYPTHASH hash, const BYTE* signature, DWORD size, HCRYPTKEY key,
                                      LPCSTR description, DWORD flags) {
  static auto* const real = TheRealOne(&CryptVerifySignatureA, __func__);
  if (!g_anyKeySigns) return real(hash, signature, size, key, description, flags);
  if (size && signature[0] != 0xFF) return TRUE;
  SetLastError(NTE_BAD_SIGNATURE);
  return FALSE;
}

namespace {

using Bytes = std::span<const uint8_t>;
using Store = certkern::Owner<HCERTSTORE, CertCloseStore>;
using Certificate = certkern::Owner<PCCERT_CONTEXT, CertFreeCertificateContext>;
using Engine = certkern::Owner<HCERTCHAINENGINE, CertFreeCertificateChainEngine>;
using Chain = certkern::Owner<PCCERT_CHAIN_CONTEXT, CertFreeCertificateChain>;

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
constexpr DWORD kNoWire = CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL | CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY;
constexpr size_t kMostPaths = 4;  // of one input
constexpr double kMostSecondsForPath =
    8;  // under sanitizers; the budgets of a build are what keeps it far below
constexpr FILETIME kThen = {0x1E1A8000, 0x01DBD288};  // in the middle of 2025

void Require(bool condition) {
  if (!condition) std::abort();
}

// The machine's own stores are none of this program's business.
void KeepToSandbox() {
  static const certkern::test::TemporaryDirectory directory;
  static const int done = [] {
    const std::string stores = std::string(1, '\'').append(directory.path("")).append("'\n");
    const std::string settings =
        directory.write("config.toml", "[paths]\nlocal_stores = " + stores + "global_stores = " + stores);
    return setenv("CERTKERN_CONFIG", settings.c_str(), 1);
  }();
  Require(done == 0);
}

double ProcessorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

struct World {
  Store roots{CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr)};
  Store others{CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr)};
  Engine engine;
  DWORD flags = kNoWire;
  bool atPresent = false;
  bool withUsage = false;

  explicit World(Bytes input);
  ~World() {
    engine.reset();
    // a context that somebody kept makes this fail
    for (Store* each : {&roots, &others})
      Require(CertCloseStore(each->release(), CERT_CLOSE_STORE_CHECK_FLAG));
  }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  void add(Bytes encoded, bool trusted) const {
    const auto exact = std::make_unique<BYTE[]>(encoded.size());
    std::ranges::copy(encoded, exact.get());
    const auto size = static_cast<DWORD>(encoded.size());
    const HCERTSTORE store = trusted ? roots.get() : others.get();
    if (!CertAddEncodedCertificateToStore(store, kEncoding, exact.get(), size, CERT_STORE_ADD_ALWAYS,
                                          nullptr))
      static_cast<void>(
          CertAddEncodedCRLToStore(store, kEncoding, exact.get(), size, CERT_STORE_ADD_ALWAYS, nullptr));
  }
};

World::World(Bytes input) {
  constexpr DWORD kChoices[] = {
      CERT_CHAIN_REVOCATION_CHECK_END_CERT,           CERT_CHAIN_REVOCATION_CHECK_CHAIN,
      CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT, CERT_CHAIN_DISABLE_PASS1_QUALITY_FILTERING,
      CERT_CHAIN_RETURN_LOWER_QUALITY_CONTEXTS,       CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT};
  for (size_t i = 0; i < std::size(kChoices); ++i) flags |= input[0] >> i & 1 ? kChoices[i] : 0;
  g_anyKeySigns = input[1] & 1;
  atPresent = input[1] & 2;
  withUsage = input[1] & 4;
  for (Bytes rest = input.subspan(4); rest.size() > 3;) {
    const size_t size = std::min<size_t>(size_t{rest[1]} << 8 | rest[2], rest.size() - 3);
    add(rest.subspan(3, size), rest[0] & 1);
    rest = rest.subspan(3 + size);
  }
  CERT_CHAIN_ENGINE_CONFIG config{};
  config.cbSize = sizeof config;
  config.hExclusiveRoot = roots.get();
  config.hRestrictedOther = others.get();
  Require(CertCreateCertificateChainEngine(&config, engine.out()));
}

bool IsIn(const Store& store, PCCERT_CONTEXT certificate) {
  return static_cast<bool>(Certificate(
      CertFindCertificateInStore(store.get(), kEncoding, 0, CERT_FIND_EXISTING, certificate, nullptr)));
}

bool IsStatus(DWORD status) {
  constexpr DWORD kAll = CERT_TRUST_IS_NOT_TIME_VALID | CERT_TRUST_IS_REVOKED
      | CERT_TRUST_IS_NOT_SIGNATURE_VALID | CERT_TRUST_IS_NOT_VALID_FOR_USAGE | CERT_TRUST_IS_UNTRUSTED_ROOT
      | CERT_TRUST_REVOCATION_STATUS_UNKNOWN | CERT_TRUST_INVALID_BASIC_CONSTRAINTS
      | CERT_TRUST_IS_PARTIAL_CHAIN;
  return !(status & ~kAll);
}

// A status is one that is published; a good path has no fault anywhere, ends at a trusted root, and is valid then.
void CheckChain(const CERT_CHAIN_CONTEXT& chain, const World& world, PCCERT_CONTEXT end) {
  Require(chain.cChain == 1 && chain.rgpChain[0]->cElement >= 1);
  const CERT_SIMPLE_CHAIN& simple = *chain.rgpChain[0];
  const std::span elements(simple.rgpElement, simple.cElement);
  const DWORD status = chain.TrustStatus.dwErrorStatus;
  Require(IsStatus(status) && status == simple.TrustStatus.dwErrorStatus);
  Require(elements.front()->pCertContext->cbCertEncoded == end->cbCertEncoded);
  FILETIME then = kThen;
  for (const CERT_CHAIN_ELEMENT* each : elements) {
    Require(IsStatus(each->TrustStatus.dwErrorStatus) && (status || !each->TrustStatus.dwErrorStatus));
    Require(status
            || !CertVerifyTimeValidity(world.atPresent ? nullptr : &then, each->pCertContext->pCertInfo));
  }
  Require(status || IsIn(world.roots, elements.back()->pCertContext));
}

void Judge(PCCERT_CHAIN_CONTEXT chain) {
  wchar_t server[] = L"www.host.example";
  SSL_EXTRA_CERT_CHAIN_POLICY_PARA ssl{};
  ssl.cbSize = sizeof ssl;
  ssl.dwAuthType = AUTHTYPE_SERVER;
  ssl.pwszServerName = server;
  for (const LPCSTR policy :
       {CERT_CHAIN_POLICY_BASE, CERT_CHAIN_POLICY_SSL, SVCERT_CHAIN_POLICY_PRIVATEKEY_USAGE_PERIOD}) {
    CERT_CHAIN_POLICY_PARA para{};
    para.cbSize = sizeof para;
    para.pvExtraPolicyPara = policy == CERT_CHAIN_POLICY_SSL ? &ssl : nullptr;
    CERT_CHAIN_POLICY_STATUS status{};
    status.cbSize = sizeof status;
    if (!CertVerifyCertificateChainPolicy(policy, chain, &para, &status)) continue;
    const auto elements = static_cast<LONG>(chain->rgpChain[0]->cElement);
    Require(status.lElementIndex < elements);
    Require(status.dwError || policy != CERT_CHAIN_POLICY_BASE || !chain->TrustStatus.dwErrorStatus);
  }
}

void Build(const World& world, PCCERT_CONTEXT end) {
  LPSTR purpose = const_cast<LPSTR>("1.3.6.1.5.5.7.3.1");
  CERT_CHAIN_PARA para{};
  para.cbSize = sizeof para;
  if (world.withUsage) para.RequestedUsage.Usage = {1, &purpose};
  FILETIME then = kThen;
  Chain chain;
  const double start = ProcessorSeconds();
  const BOOL built = CertGetCertificateChain(world.engine.get(), end, world.atPresent ? nullptr : &then,
                                             world.others.get(), &para, world.flags, nullptr, chain.out());
  Require(ProcessorSeconds() - start < kMostSecondsForPath);
  Require(!built == !chain);
  if (!built) return;
  CheckChain(*chain.get(), world, end);
  for (DWORD i = 0; i < chain->cLowerQualityChainContext; ++i)
    CheckChain(*chain->rgpLowerQualityChainContext[i], world, end);
  Judge(chain.get());
}

// Under the user's own roots, of which there are none.
void FindAgain(const World& world) {
  CERT_CHAIN_FIND_BY_ISSUER_PARA para{};
  para.cbSize = sizeof para;
  para.pszUsageIdentifier = world.withUsage ? "1.3.6.1.5.5.7.3.1" : nullptr;
  Chain chain;
  for (size_t i = 0; i < kMostPaths; ++i) {
    chain.reset(CertFindChainInStore(
        world.others.get(), kEncoding,
        CERT_CHAIN_FIND_BY_ISSUER_NO_KEY_FLAG | CERT_CHAIN_FIND_BY_ISSUER_CACHE_ONLY_URL_FLAG,
        CERT_CHAIN_FIND_BY_ISSUER, &para, chain.release()));
    if (!chain) return;
    Require(chain->TrustStatus.dwErrorStatus && IsStatus(chain->TrustStatus.dwErrorStatus));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  KeepToSandbox();
  const World world(Bytes(data, size));
  std::vector<Certificate> ends;
  for (const HCERTSTORE store : {world.others.get(), world.roots.get()}) {
    Certificate each;
    while (ends.size() < kMostPaths) {
      each.reset(CertEnumCertificatesInStore(store, each.release()));
      if (!each) break;
      ends.emplace_back(CertDuplicateCertificateContext(each.get()));
    }
  }
  for (const Certificate& end : ends) Build(world, end.get());
  FindAgain(world);
  return 0;
}
