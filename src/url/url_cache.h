// The cache of what was downloaded: from URL to certificate or CRL, the least recently used going first. It lives in the
// user's system store "cache", so that it survives the process; each object there carries its URL in a property.
//
// One cache for certificates, one for CRLs, over one store; one mutex guards both. What is found is a reference of the
// caller's own, so that nobody minds when the entry goes meanwhile.
//
// Other processes have the same store. Whoever takes a cache, or adds to it, first takes over what they have done: what was
// cleared elsewhere is neither found nor written back.
#ifndef CERTKERN_URL_URL_CACHE_H
#define CERTKERN_URL_URL_CACHE_H

#include <certkern/types.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/owner.h"
#include "store/context_record.h"
#include "store/store_record.h"

namespace certkern {

struct CachedObject {
  ContextOwner
      context;  // context->asCertificate() or context->asCrl(); not looked at whether it is valid now
  FILETIME lastModified{};  // as the server told it; zero when it did not
};

// URLs that differ in the case of ASCII letters only are one.
struct UrlOrder {
  bool operator()(const std::string& a, const std::string& b) const;
};

class UrlCache {
 public:
  // `store` may be empty, and maxElements may be zero or less: nothing is then found or kept. Loads what the store holds,
  // decoding none of it: a large list costs nothing until somebody asks for it.
  UrlCache(std::mutex& lock, StoreHandle store, ElementType type, int64_t maxElements);

  // Takes over what other processes have done with the store. Never disturbs the last error.
  void refresh();
  // A hit counts as a use. Throws std::bad_alloc only.
  std::optional<CachedObject> find(const std::string& url);
  // Adds or replaces; 0 or a code: SEC_E_INTERNAL_ERROR: no store; SEC_E_CONTEXT_EXPIRED: not valid now. `kept` is then
  // what a hit would give: whoever goes on with it need not hold a large list a second time.
  DWORD add(const std::string& url, const FILETIME& lastModified, ContextRecord& context,
            ContextOwner* kept = nullptr);
  // Takes out what is kept under the URL if it still has these bytes: somebody may have put a better object there.
  void drop(const std::string& url, std::span<const BYTE> encoded);
  // Writes the store if something was added or has gone.
  void flush();

  size_t size() const;

 private:
  struct Item {
    bool changed = false;
    FILETIME lastModified{};
    FILETIME lastUsed{};
    ElementOwner element;  // the store's own
    ContextOwner context;  // of the element, from the first use on

    // Null with a code when the element does not decode.
    ContextRecord* decoded();
  };
  using Items = std::map<std::string, Item, UrlOrder>;
  // What the store's list is like: every addition and every removal changes it.
  struct ListState {
    uint64_t newest = 0;
    size_t size = 0;
    bool operator==(const ListState&) const = default;
  };

  ListState listState() const;
  std::vector<ElementOwner> elements() const;
  void takeOverOthers();
  void load();
  DWORD remove(Item& item);
  DWORD addItem(const std::string& url, const FILETIME& lastModified, ContextRecord& context);
  DWORD makeItem(const std::string& url, const FILETIME& lastModified, ContextRecord& context, Item& item);
  DWORD replaceItem(Items::iterator at, const FILETIME& lastModified, ContextRecord& context);
  DWORD removeLeastRecentlyUsed();

  std::mutex& lock_;
  const StoreHandle store_;
  const ElementType type_;
  const int64_t maxElements_;
  Items items_;
  ListState loaded_;  // when items_ was last the same as the list
  bool dirty_ = false;
};

// Gives a cache back: what was changed meanwhile is written.
void FlushUrlCache(UrlCache* cache) noexcept;
using UrlCacheHandle = Owner<UrlCache*, FlushUrlCache>;

// The process's cache. Empty with a code when the store cannot be had; a later call tries again.
//
//   if (const UrlCacheHandle cache = UrlCacheSingleton(ElementType::Crl)) {
//     if (std::optional<CachedObject> found = cache->find(url)) ...
//   }
UrlCacheHandle UrlCacheSingleton(ElementType type);

// Takes an object that turned out to be bad, say a list with a wrong signature, out of the process's cache. The store is
// written before the function returns; a fault of the cache is traced only. Never disturbs the last error.
void DropFromUrlCache(ElementType type, const std::string& url, std::span<const BYTE> encoded) noexcept;

// The caches of the process come and go with the library.
void OpenUrlCaches();
void CloseUrlCaches();

// Strictly between the beginning and the end of its validity, or between its two updates.
bool IsValidNow(const ContextRecord& context);

}  // namespace certkern

#endif
