#include "url/retrieval.h"

#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/keykern.h>

#include <memory>
#include <string>

#include "platform/exceptions.h"
#include "platform/trace.h"
#include "store/find.h"
#include "url/download.h"
#include "url/retrieved_object.h"
#include "url/url_cache.h"

namespace certkern {
namespace {

constexpr DWORD kAllFlags = CRYPT_RETRIEVE_MULTIPLE_OBJECTS | CRYPT_CACHE_ONLY_RETRIEVAL
    | CRYPT_WIRE_ONLY_RETRIEVAL | CRYPT_DONT_CACHE_RESULT;

constexpr char kFunction[] = "CryptRetrieveObjectByUrlAInternal";
constexpr uintptr_t kLargestNumber = 0xFFFF;  // above it is a text

// What the arguments come to.
struct Plan {
  Plan(const RetrievalRequest& request, const ObjectKind& itsKind)
      : kind(itsKind),
        url(request.url),
        flags(request.flags),
        timeout(request.timeout),
        useNetwork(!(flags & CRYPT_CACHE_ONLY_RETRIEVAL)),
        readCache(kind.context && !(flags & CRYPT_WIRE_ONLY_RETRIEVAL)),
        writeCache(kind.cacheable && !(flags & CRYPT_DONT_CACHE_RESULT)),
        multiple((flags & CRYPT_RETRIEVE_MULTIPLE_OBJECTS) || kind.isMessage) {}

  const ObjectKind& kind;
  const std::string url;
  const DWORD flags;
  const DWORD timeout;
  const bool useNetwork;
  const bool readCache;
  const bool writeCache;
  const bool multiple;

  ElementType cacheType() const { return kind.context.value_or(ElementType::Certificate); }
};

// What the cache has that is valid now; else only when it was last modified. A fault of the cache is nothing found.
struct CacheAnswer {
  ContextOwner valid;
  FILETIME lastModified{};
};

CacheAnswer LookUp(const Plan& plan, UrlCache& cache) {
  std::optional<CachedObject> found = cache.find(plan.url);
  if (!found) return {};
  if (IsValidNow(*found->context.get())) return {std::move(found->context), {}};
  return {{}, found->lastModified};
}

RetrievedObject HandOut(const Plan& plan, ContextOwner context) {
  RetrievedObject object;
  if (plan.multiple) {
    object.store = StoreOfOne(*context.get());
  } else {
    object.context = std::move(context);
  }
  return object;
}

// Each takes the place of the one before it under the URL; the first that cannot be kept ends it.
void CacheStore(const Plan& plan, UrlCache& cache, CertStore& store, const FILETIME& lastModified) {
  const bool crls = plan.cacheType() == ElementType::Crl;
  const CertificateRequest any{X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0, CERT_FIND_ANY, nullptr};
  ContextOwner context;
  do {
    context = crls ? FindCrl(store, CRL_FIND_ANY, nullptr, context.get())
                   : FindCertificate(store, any, context.get());
  } while (context && cache.add(plan.url, lastModified, *context.get()) == ERROR_SUCCESS);
}

// A single object is then the cache's own.
void CacheResult(const Plan& plan, UrlCache& cache, RetrievedObject& object, const FILETIME& lastModified) {
  const LastErrorKeeper keeper;  // the object is there, whatever comes of this
  if (object.store) {
    CacheStore(plan, cache, *object.store.get(), lastModified);
  } else if (object.context) {
    ContextOwner kept;
    if (cache.add(plan.url, lastModified, *object.context.get(), &kept) == ERROR_SUCCESS)
      object.context = std::move(kept);
  }
}

void* Retrieve(const Plan& plan, UrlCache* cache) {
  CacheAnswer cached;
  if (plan.readCache && cache) cached = LookUp(plan, *cache);
  if (cached.valid) return HandOut(plan, std::move(cached.valid)).release();
  if (!plan.useNetwork) {
    SetLastError(CRYPT_E_NOT_FOUND);
    return nullptr;
  }
  auto download = std::make_unique<const Download>(
      DownloadRequest{plan.url, plan.flags, plan.timeout, cached.lastModified, plan.kind.sizeLimit});
  RetrievedObject object = ProcessNetworkData(plan.kind, plan.multiple, download->bytes());
  const FILETIME lastModified = download->lastModified();
  download.reset();  // what is kept needs the memory
  if (plan.writeCache && cache) CacheResult(plan, *cache, object, lastModified);
  return object.release();
}

void TraceArguments(const RetrievalRequest& request) {
  const auto number = reinterpret_cast<uintptr_t>(request.objectType);
  const char* const url = request.url ? request.url : "(null)";
  if (number <= kLargestNumber) {
    TraceAs(kFunction, TRACE_CALL, "(url: %s, flags: %x, obj_id: #%u)", url, request.flags,
            static_cast<unsigned>(number));
  } else {
    TraceAs(kFunction, TRACE_CALL, "(url: %s, flags: %x, obj_id: %s)", url, request.flags,
            request.objectType);
  }
}

}  // namespace

void CheckRetrievalArguments(const RetrievalRequest& request, const void* result) {
  TraceArguments(request);
  const bool rawMultiple = !request.objectType && (request.flags & CRYPT_RETRIEVE_MULTIPLE_OBJECTS);
  if (request.url && result && request.flags <= kAllFlags && FindObjectKind(request.objectType)
      && !rawMultiple) {
    return;
  }
  throw RetrieveObjectException("Invalid args in CryptRetrieveObjectByUrlA", E_INVALIDARG);
}

void* RetrieveObject(const RetrievalRequest& request) {
  const Plan plan(request, *FindObjectKind(request.objectType));
  UrlCacheHandle cache;
  if (plan.readCache || plan.writeCache) cache = UrlCacheSingleton(plan.cacheType());
  return Retrieve(plan, cache.get());
}

}  // namespace certkern
