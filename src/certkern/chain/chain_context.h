// The memory of a finished chain: what the caller of a build gets, independent of engine, stores and builder. One
// record with all its elements, counted; a CERT_CHAIN_CONTEXT that a caller holds is its beginning.
#ifndef CERTKERN_CERTKERN_CHAIN_CHAIN_CONTEXT_H
#define CERTKERN_CERTKERN_CHAIN_CHAIN_CONTEXT_H

#include <certkern/chain.h>

#include "certkern/chain/chain_builder.h"
#include "platform/owner.h"

namespace certkern {

void AddChainReference(PCCERT_CHAIN_CONTEXT chain);
void ReleaseChain(PCCERT_CHAIN_CONTEXT chain) noexcept;
using ChainContextOwner = Owner<PCCERT_CHAIN_CONTEXT, ReleaseChain>;

// Of a builder that has built, and whose chain is not empty. Throws CryptException when a context can't be duplicated,
// std::bad_alloc.
ChainContextOwner MakeChainContext(const ChainBuilder& builder);

// Puts a further chain into rgpLowerQualityChainContext. Throws std::bad_alloc.
void AddLowerQualityChain(PCCERT_CHAIN_CONTEXT chain, ChainContextOwner further);

// Null for a chain without any.
PCCERT_CONTEXT EndCertificateOf(PCCERT_CHAIN_CONTEXT chain);
PCCERT_CONTEXT RootCertificateOf(PCCERT_CHAIN_CONTEXT chain);

}  // namespace certkern

#endif
