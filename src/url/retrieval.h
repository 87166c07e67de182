// Retrieval by URL: when the cache answers and when the network does, and what becomes of the bytes.
#ifndef CERTKERN_URL_RETRIEVAL_H
#define CERTKERN_URL_RETRIEVAL_H

#include <certkern/url.h>

namespace certkern {

struct RetrievalRequest {
  LPCSTR url;
  LPCSTR objectType;  // CONTEXT_OID_..., null for raw bytes
  DWORD flags;
  DWORD timeout;  // milliseconds; 0: the fetcher's own limit
};

// The arguments of a retrieval; E_INVALIDARG as a RetrieveObjectException for what is not served.
void CheckRetrievalArguments(const RetrievalRequest& request, const void* result);

// The object, for the function that frees its kind; null with a code. Throws RetrieveObjectException. Whatever fails in the
// cache never fails a retrieval.
void* RetrieveObject(const RetrievalRequest& request);

}  // namespace certkern

#endif
