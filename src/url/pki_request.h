// Requests that are posted: to an OCSP responder or a registration service.
#ifndef CERTKERN_URL_PKI_REQUEST_H
#define CERTKERN_URL_PKI_REQUEST_H

#include <certkern/url.h>

namespace certkern {

struct PkiRequest {
  LPCWSTR url;
  LPCWSTR userAgent;
  LPCWSTR contentType;
  LPCWSTR proxy;      // may be null
  LPCWSTR proxyAuth;  // may be null
};

// What SendPKIRequest answers. Throws std::bad_alloc.
DWORD PostPkiRequest(const PkiRequest& request, const SV_BYTE_BUFFER& body, SV_BYTE_BUFFER& response);

}  // namespace certkern

#endif
