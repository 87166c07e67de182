// One question to an engine: a builder equipped from it, its chain, and the memory of the answer.
#ifndef CERTKERN_CERTKERN_CHAIN_CHAIN_REQUEST_H
#define CERTKERN_CERTKERN_CHAIN_CHAIN_REQUEST_H

#include <certkern/chain.h>

#include "certkern/chain/chain_context.h"

namespace certkern {

struct ChainRequest {
  HCERTCHAINENGINE engine;  // null: the user's
  PCCERT_CONTEXT end;
  const FILETIME* time;   // null: now
  HCERTSTORE additional;  // may be null
  const CERT_CHAIN_PARA& para;
  DWORD flags;
};

// The best chain, and behind it, if the flags ask for them, good ones to other roots. Empty with a code; throws
// std::bad_alloc and CryptException.
ChainContextOwner GetChain(const ChainRequest& request);

}  // namespace certkern

#endif
