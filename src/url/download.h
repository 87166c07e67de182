// Over the wire: what the fetcher library brings, decoded where it is text.
#ifndef CERTKERN_URL_DOWNLOAD_H
#define CERTKERN_URL_DOWNLOAD_H

#include <certkern/types.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

class UrlRetriever;

namespace certkern {

struct DownloadRequest {
  const std::string& url;
  DWORD flags;            // CRYPT_..._RETRIEVAL
  DWORD timeout;          // milliseconds
  FILETIME lastModified;  // of what the caller has already; zero: nothing
  size_t sizeLimit;       // bytes; 0: the configured limit alone
};

// What came, where it lies: a large list is not copied on its way.
class Download {
 public:
  // Throws RetrieveObjectException: CRYPT_E_NOT_FOUND: the transfer failed, or there was too much; ERROR_INTERNAL_ERROR: text
  // that does not decode.
  explicit Download(const DownloadRequest& request);
  ~Download();
  Download(const Download&) = delete;
  Download& operator=(const Download&) = delete;

  std::span<const BYTE> bytes() const { return bytes_; }          // empty: not modified, or there was nothing
  const FILETIME& lastModified() const { return lastModified_; }  // zero: not told

 private:
  std::unique_ptr<UrlRetriever> retriever_;  // while the bytes are its own
  std::vector<BYTE> decoded_;
  std::span<const BYTE> bytes_;
  FILETIME lastModified_{};
};

// What begins like DER is taken as it is; anything else is PEM or Base64, and becomes `decoded`. Throws like Download.
std::span<const BYTE> DecodeBody(std::span<const BYTE> body, std::vector<BYTE>& decoded);

}  // namespace certkern

#endif
