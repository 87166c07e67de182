// Keys that signatures were verified with lately, as their providers hold them. The same few issuers sign most of what a
// process verifies, and a key that has been used before verifies faster than one that has just been imported.
#ifndef CERTKERN_KEYS_HELD_KEYS_H
#define CERTKERN_KEYS_HELD_KEYS_H

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "keys/public_key.h"
#include "oid/provider_search.h"
#include "oid/signature_row.h"

namespace certkern {

struct HeldKey {
  ProviderHandle provider;
  KeyHandle key;  // goes before its provider
};
using SharedKey = std::shared_ptr<const HeldKey>;

// Where a key belongs that no call has brought a provider for; empty with a code.
using ProviderFinder = std::function<ProviderHandle()>;
// The key in the provider that is found, held from before or imported now. providerType and algorithm have to decide what is
// found. Empty with the key level's code.
SharedKey HoldKey(DWORD providerType, const CERT_PUBLIC_KEY_INFO& info, ALG_ID algorithm,
                  const ProviderFinder& find);

// The same where the signature's row and the key's algorithm choose. May throw as SearchProviders does.
SharedKey KeyForSignature(const SignatureRow& row, const CERT_PUBLIC_KEY_INFO& info, ALG_ID algorithm);

// At start-up and at exit.
void BeginHoldingKeys();
void EndHoldingKeys();

}  // namespace certkern

#endif
