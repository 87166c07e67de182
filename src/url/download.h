// Over the wire: what the fetcher library brings, decoded where it is text.
#ifndef CERTKERN_URL_DOWNLOAD_H
#define CERTKERN_URL_DOWNLOAD_H

#include <certkern/types.h>

#include <span>
#include <string>
#include <vector>

namespace certkern {

struct DownloadRequest {
  const std::string& url;
  DWORD flags;            // CRYPT_..._RETRIEVAL
  DWORD timeout;          // milliseconds
  FILETIME lastModified;  // of what the caller has already; zero: nothing
};

struct Download {
  std::vector<BYTE> bytes;  // empty: not modified, or there was nothing
  FILETIME lastModified{};  // zero: not told
};

// Throws RetrieveObjectException: CRYPT_E_NOT_FOUND: the transfer failed; ERROR_INTERNAL_ERROR: text that does not decode.
Download DownloadFromNetwork(const DownloadRequest& request);

// What begins like DER is taken as it is; anything else is PEM or Base64.
std::vector<BYTE> DecodeBody(std::span<const BYTE> body);

}  // namespace certkern

#endif
