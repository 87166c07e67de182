// The facts of a CRL: what follows from its bytes alone, kept with its store element.
#ifndef CERTKERN_CERTKERN_CHAIN_CRL_FACTS_H
#define CERTKERN_CERTKERN_CHAIN_CRL_FACTS_H

#include <certkern/cert.h>

#include <memory>

namespace certkern {

struct CrlFacts;

// Throws std::bad_alloc.
std::shared_ptr<const CrlFacts> MakeCrlFacts(PCCRL_CONTEXT context);

}  // namespace certkern

#endif
