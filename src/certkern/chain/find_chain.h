// CertFindChainInStore: certificates of a store that a client could present, each with its chain.
#ifndef CERTKERN_CERTKERN_CHAIN_FIND_CHAIN_H
#define CERTKERN_CERTKERN_CHAIN_FIND_CHAIN_H

#include <certkern/chain.h>

#include "certkern/chain/chain_context.h"

namespace certkern {

// Goes on behind the end certificate of `previous`, if there is one. Empty with a code: CRYPT_E_NOT_FOUND when there is
// no more, and when the previous chain is none of this store. Throws what the build throws.
ChainContextOwner FindChain(HCERTSTORE store, DWORD flags, const CERT_CHAIN_FIND_BY_ISSUER_PARA& para,
                            ChainContextOwner previous);

}  // namespace certkern

#endif
