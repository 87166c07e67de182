// Chain engines, chains, and the search for chains in a store.
#include <certkern/chain.h>
#include <certkern/errors.h>

#include <algorithm>
#include <memory>

#include "api/frame.h"
#include "certkern/chain/chain_context.h"
#include "certkern/chain/chain_request.h"
#include "certkern/chain/engine.h"
#include "certkern/chain/find_chain.h"
#include "store/certificate_primitives.h"
#include "store/context_record.h"

using certkern::ChainContextOwner;
using certkern::ChainEngine;
using certkern::ElementType;
using certkern::FindLiveContext;
using certkern::Frame;
using certkern::Plain;

namespace {

std::unique_ptr<ChainEngine> CreateEngine(const CERT_CHAIN_ENGINE_CONFIG& config) {
  std::unique_ptr<ChainEngine> engine = ChainEngine::create(config);
  const bool narrows = engine && engine->restrictedRoot();
  if (narrows && !certkern::AreUserRoots(engine->restrictedRoot())) return nullptr;
  return engine;
}

bool IsWholeUsage(const CERT_ENHKEY_USAGE& usage) {
  const auto identifiers = certkern::AsSpan(usage.rgpszUsageIdentifier, usage.cUsageIdentifier);
  return identifiers.size() == usage.cUsageIdentifier
      && std::ranges::all_of(identifiers, [](LPCSTR each) { return each != nullptr; });
}

}  // namespace

extern "C" {

BOOL CertCreateCertificateChainEngine(PCERT_CHAIN_ENGINE_CONFIG pConfig, HCERTCHAINENGINE* phChainEngine) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(pConfig = %p, phChainEngine = %p)", pConfig, phChainEngine);
    if (!pConfig || !phChainEngine) return frame.failed(ERROR_INVALID_PARAMETER);
    std::unique_ptr<ChainEngine> engine = CreateEngine(*pConfig);
    if (!engine) return frame.failed();
    *phChainEngine = engine.release();
    return frame.result(TRUE, "returned: hChainEngine = %p", *phChainEngine);
  });
}

void CertFreeCertificateChainEngine(HCERTCHAINENGINE hChainEngine) {
  Plain([&](Frame& frame) {
    frame.entry("(hChainEngine = %p)", hChainEngine);
    if (!certkern::IsPseudoHandle(hChainEngine)) delete static_cast<ChainEngine*>(hChainEngine);
    frame.done();
  });
}

BOOL CertResyncCertificateChainEngine(HCERTCHAINENGINE hChainEngine) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(hChainEngine = %p)", hChainEngine);
    return frame.result(TRUE);
  });
}

BOOL CertGetCertificateChain(HCERTCHAINENGINE hChainEngine, PCCERT_CONTEXT pCertContext, LPFILETIME pTime,
                             HCERTSTORE hAdditionalStore, PCERT_CHAIN_PARA pChainPara, DWORD dwFlags,
                             LPVOID pvReserved, PCCERT_CHAIN_CONTEXT* ppChainContext) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry(
        "(hChainEngine = %p, pCertContext = %p, pTime = %p, hAdditionalStore = %p, pChainPara = %p, dwFlags "
        "= "
        "0x%.8X, pvReserved = %p, ppChainContext = %p)",
        hChainEngine, pCertContext, pTime, hAdditionalStore, pChainPara, dwFlags, pvReserved, ppChainContext);
    if (!pCertContext || !pChainPara || !ppChainContext || certkern::IsPseudoHandle(hChainEngine)
        || !FindLiveContext(pCertContext, ElementType::Certificate)
        || !IsWholeUsage(pChainPara->RequestedUsage.Usage)) {
      return frame.failed(ERROR_INVALID_PARAMETER);
    }
    ChainContextOwner chain =
        certkern::GetChain({hChainEngine, pCertContext, pTime, hAdditionalStore, *pChainPara, dwFlags});
    if (!chain) return frame.failed();
    *ppChainContext = chain.release();
    return frame.result(TRUE, "returned: pChainContext = %p", *ppChainContext);
  });
}

PCCERT_CHAIN_CONTEXT CertDuplicateCertificateChain(PCCERT_CHAIN_CONTEXT pChainContext) {
  return Plain([&](Frame& frame) -> PCCERT_CHAIN_CONTEXT {
    frame.entry("(pChainContext = %p)", pChainContext);
    if (!pChainContext) return frame.failed(ERROR_INVALID_PARAMETER);
    certkern::AddChainReference(pChainContext);
    return frame.result(pChainContext);
  });
}

void CertFreeCertificateChain(PCCERT_CHAIN_CONTEXT pChainContext) {
  Plain([&](Frame& frame) {
    frame.entry("(pChainContext = %p)", pChainContext);
    ChainContextOwner(pChainContext).reset();
    frame.done();
  });
}

PCCERT_CHAIN_CONTEXT CertFindChainInStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType, DWORD dwFindFlags,
                                          DWORD dwFindType, const void* pvFindPara,
                                          PCCERT_CHAIN_CONTEXT pPrevChainContext) {
  return Plain([&](Frame& frame) -> PCCERT_CHAIN_CONTEXT {
    frame.entry(
        "(hCertStore = %p, dwCertEncodingType = %u, dwFindFlags = 0x%.8X, dwFindType = %u, pvFindPara = %p, "
        "pPrevChainContext = %p)",
        hCertStore, dwCertEncodingType, dwFindFlags, dwFindType, pvFindPara, pPrevChainContext);
    ChainContextOwner previous(pPrevChainContext);  // its count is taken whatever happens
    if (dwFindType != CERT_CHAIN_FIND_BY_ISSUER || !hCertStore || !pvFindPara) {
      return frame.failed(E_INVALIDARG);
    }
    const auto& para = *static_cast<const CERT_CHAIN_FIND_BY_ISSUER_PARA*>(pvFindPara);
    ChainContextOwner chain = certkern::FindChain(hCertStore, dwFindFlags, para, std::move(previous));
    if (!chain) return frame.failed();
    const PCCERT_CHAIN_CONTEXT found = chain.release();
    return frame.result(found, "returned: pChainContext = %p", found);
  });
}

}  // extern "C"
