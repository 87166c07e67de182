// The facts of a CRL: what follows from its bytes alone, kept with its store element.
#ifndef CERTKERN_CERTKERN_CHAIN_CRL_FACTS_H
#define CERTKERN_CERTKERN_CHAIN_CRL_FACTS_H

#include <certkern/cert.h>

#include <memory>
#include <span>

namespace certkern {

struct CrlFacts;

// Throws std::bad_alloc.
std::shared_ptr<const CrlFacts> MakeCrlFacts(PCCRL_CONTEXT context);

// The key identifier of the authority key identifier; empty: none.
std::span<const BYTE> AuthorityKeyIdBytes(const CrlFacts& facts);

}  // namespace certkern

#endif
