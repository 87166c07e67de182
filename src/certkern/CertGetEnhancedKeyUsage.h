// What a certificate may be used for: its extension, narrowed by a property that the user set. The file bears the name
// under which its exceptions are traced.
#ifndef CERTKERN_CERTKERN_CERTGETENHANCEDKEYUSAGE_H
#define CERTKERN_CERTKERN_CERTGETENHANCEDKEYUSAGE_H

#include <certkern/cert.h>

namespace certkern {

// flags is 0 or one of the two published ones; a null usage asks for the size. A failure has set the last error; a
// property that can't be read or decoded is a CryptException.
[[nodiscard]] bool GetEnhancedKeyUsage(PCCERT_CONTEXT context, DWORD flags, PCERT_ENHKEY_USAGE usage,
                                       DWORD& size);

}  // namespace certkern

#endif
