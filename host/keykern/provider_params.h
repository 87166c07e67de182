// The properties of a provider, as CryptGetProvParam and CryptSetProvParam show them.
#ifndef CERTKERN_KEYKERN_PROVIDER_PARAMS_H
#define CERTKERN_KEYKERN_PROVIDER_PARAMS_H

#include "keykern/provider.h"

namespace keykern {

DWORD GetProviderParam(Provider& provider, DWORD param, BYTE* out, DWORD* size, DWORD flags);
DWORD SetProviderParam(Provider& provider, DWORD param, const BYTE* data);

}  // namespace keykern

#endif
