// The parameters of RSASSA-PSS. RFC 4055, 3.1.
#ifndef CERTKERN_KEYS_PSS_PARAMETERS_H
#define CERTKERN_KEYS_PSS_PARAMETERS_H

#include <certkern/keykern.h>

#include <span>

namespace certkern {

struct PssParameters {
  ALG_ID hash = CALG_SHA1;  // of the message and of the mask generation, which must be the same
  DWORD saltLength = 20;
};

// No bytes are the defaults. CRYPT_E_ASN1_ERROR: malformed; NTE_BAD_ALGID: a hash that the OID table does not have,
// another mask generation than MGF1 over the message's hash, or another trailer than 1.
[[nodiscard]] bool ParsePssParams(std::span<const BYTE> encoded, PssParameters& parameters);

}  // namespace certkern

#endif
