// From a certificate to its private key.
#ifndef CERTKERN_KEYS_PRIVATE_KEY_H
#define CERTKERN_KEYS_PRIVATE_KEY_H

#include <certkern/keys.h>

#include "oid/provider_search.h"
#include "store/context_record.h"

namespace certkern {

struct PrivateKey {
  HCRYPTPROV provider = 0;
  DWORD keySpec = 0;
  ProviderHandle owned;  // the same provider, unless the certificate's key context owns it
};

// CryptAcquireCertificatePrivateKey on a live certificate, under the lock of its properties. False with a code.
[[nodiscard]] bool AcquirePrivateKey(ContextRecord& certificate, DWORD flags, PrivateKey& key);

}  // namespace certkern

#endif
