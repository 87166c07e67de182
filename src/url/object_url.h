// The URLs that a certificate names.
#ifndef CERTKERN_URL_OBJECT_URL_H
#define CERTKERN_URL_OBJECT_URL_H

#include <certkern/url.h>

namespace certkern {

// The wide texts in the distribution points of CRLs, in their order, as one block. A null array asks for the size. False
// with a code.
[[nodiscard]] bool GetCrlUrls(const CERT_CONTEXT& certificate, CRYPT_URL_ARRAY* array, DWORD* size);

}  // namespace certkern

#endif
