#include "url/url_cache.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <exception>
#include <vector>

#include "ber/read_cursor.h"
#include "platform/limits.h"
#include "platform/never_destroyed.h"
#include "platform/supkern.h"
#include "platform/trace.h"
#include "store/context_property.h"
#include "store/element_addition.h"
#include "store/property_block.h"
#include "store/store_kind.h"
#include "url/cached_url.h"
#include "url/unreadable_store.h"

namespace certkern {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
constexpr wchar_t kStoreName[] = L"cache";
constexpr int64_t kDefaultElements = 100;

FILETIME Now() {
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  return now;
}

bool Before(const FILETIME& a, const FILETIME& b) { return CompareFileTime(&a, &b) < 0; }

DWORD LastErrorOr(DWORD otherwise) {
  const DWORD code = GetLastError();
  return code ? code : otherwise;
}

char Lower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

ContextOwner Duplicate(ContextRecord& context) {
  AddContextReference(context);
  return ContextOwner(&context);
}

std::optional<CachedUrl> ReadUrl(const StoreElement& element) {
  const PropertyLock guard(element.properties->lock);
  const PropertyItem* const item = element.properties->items.find(SV_URL_CACHE_PROP_ID);
  return item ? DecodeCachedUrl(item->bytes()) : std::nullopt;
}

bool WriteUrl(ContextRecord& context, const CachedUrl& value) {
  std::vector<BYTE> bytes = EncodeCachedUrl(value);
  const CRYPT_DATA_BLOB blob{static_cast<DWORD>(bytes.size()), bytes.data()};
  return SetContextProperty(context, SV_URL_CACHE_PROP_ID, &blob);
}

// 0 or a code. One that does not decode can't be deleted as others are, but must not stay for ever.
DWORD DeleteFromStore(CertStore& store, StoreElement& element) {
  SetLastError(ERROR_SUCCESS);
  ContextOwner passed(AcquireContext(element));
  if (!passed && GetLastError() != ERROR_NOT_ENOUGH_MEMORY && !store.has(CERT_STORE_READONLY_FLAG)) {
    ElementOwner gone;
    const std::lock_guard guard(store.lock);
    if (element.linked) gone = UnlinkElement(store, element);
    store.dirty = true;
    return ERROR_SUCCESS;
  }
  if (passed && DeleteContext(passed.release())) return ERROR_SUCCESS;
  const DWORD code = LastErrorOr(NTE_FAIL);
  TraceCache("(): can't remove certificate from cache store, error %x", code);
  return code;
}

int64_t ConfiguredElements() {
  int64_t value = 0;
  const bool given =
      support_registry_get_long("\\config\\Certkern\\cache_settings\\max_elements", &value) == 0;
  return given ? value : kDefaultElements;
}

}  // namespace

bool UrlOrder::operator()(const std::string& a, const std::string& b) const {
  // not by the locale, which the program may change while the order has to stay
  return std::ranges::lexicographical_compare(a, b, [](char left, char right) {
    return static_cast<unsigned char>(Lower(left)) < static_cast<unsigned char>(Lower(right));
  });
}

bool IsValidNow(const ContextRecord& context) {
  const FILETIME now = Now();
  if (context.element().type == ElementType::Crl) {
    const CRL_INFO& info = *context.crl.pCrlInfo;
    return Before(info.ThisUpdate, now) && Before(now, info.NextUpdate);
  }
  const CERT_INFO& info = *context.certificate.pCertInfo;
  return Before(info.NotBefore, now) && Before(now, info.NotAfter);
}

UrlCache::UrlCache(std::mutex& lock, StoreHandle store, ElementType type, int64_t maxElements)
    : lock_(lock),
      store_(maxElements > 0 ? std::move(store) : StoreHandle()),
      type_(type),
      maxElements_(maxElements) {
  if (!store_) return;
  try {
    load();
  } catch (const std::exception&) {
    TraceCache("(): error creating cache %x", ERROR_NOT_ENOUGH_MEMORY);
    throw;
  }
}

ContextRecord* UrlCache::Item::decoded() {
  if (!context) context.reset(AcquireContext(*element.get()));
  return context.get();
}

UrlCache::ListState UrlCache::listState() const {
  const std::lock_guard guard(store_->lock);
  const ElementList& list = store_->list(type_);
  return {list.newest ? list.newest->sequence : 0, list.size};
}

// Newest first.
std::vector<ElementOwner> UrlCache::elements() const {
  const std::lock_guard guard(store_->lock);
  std::vector<ElementOwner> all;
  all.reserve(store_->list(type_).size);
  for (StoreElement* each = store_->list(type_).newest; each; each = each->next)
    all.push_back(ShareElement(*each));
  return all;
}

void UrlCache::load() {
  const ListState now = listState();
  Items items;
  std::vector<ElementOwner> beyond;
  for (ElementOwner& element : elements()) {
    if (static_cast<int64_t>(items.size()) >= maxElements_) {
      beyond.push_back(std::move(element));
    } else if (const std::optional<CachedUrl> url = ReadUrl(*element.get())) {
      // the newest comes first; an older one of the same URL is left where it is
      Item item{false, url->lastModified, url->lastUsed, std::move(element), {}};
      const auto known = items_.find(url->url);
      if (known != items_.end() && known->second.element.get() == item.element.get()) {
        item.changed = known->second.changed;
        item.lastUsed = known->second.lastUsed;
        item.context = std::move(known->second.context);
      }
      items.try_emplace(url->url, std::move(item));
    }
  }
  items_ = std::move(items);
  loaded_ = now;
  for (const ElementOwner& each : beyond) {
    if (DeleteFromStore(*store_.get(), *each.get()) == ERROR_SUCCESS) dirty_ = true;
  }
  if (!beyond.empty()) loaded_ = listState();
}

// With changes of our own that could not be written yet the store stays as it is: to read it again would drop them.
void UrlCache::takeOverOthers() {
  const LastErrorKeeper keeper;
  if (!store_->dirty) static_cast<void>(ControlStore(*store_.get(), 0, CERT_STORE_CTRL_RESYNC, nullptr));
  if (listState() != loaded_) load();
}

void UrlCache::refresh() {
  if (!store_) return;
  const std::lock_guard guard(lock_);
  takeOverOthers();
}

std::optional<CachedObject> UrlCache::find(const std::string& url) {
  if (!store_) return std::nullopt;
  const std::lock_guard guard(lock_);
  const auto found = items_.find(url);
  if (found == items_.end()) return std::nullopt;
  Item& item = found->second;
  if (!item.decoded()) return std::nullopt;
  item.changed = true;
  item.lastUsed = Now();
  return CachedObject{Duplicate(*item.context.get()), item.lastModified};
}

DWORD UrlCache::add(const std::string& url, const FILETIME& lastModified, ContextRecord& context,
                    ContextOwner* kept) {
  const auto added = [&]() -> DWORD {
    if (!store_) return SEC_E_INTERNAL_ERROR;
    if (url.empty() || url.size() > kMaxUrl) return ERROR_INVALID_PARAMETER;
    if (!IsValidNow(context)) return SEC_E_CONTEXT_EXPIRED;
    const std::lock_guard guard(lock_);
    takeOverOthers();  // a download takes its time
    const DWORD code = addItem(url, lastModified, context);
    loaded_ = listState();
    if (code) return code;
    if (kept) *kept = Duplicate(*items_.find(url)->second.context.get());
    return ERROR_SUCCESS;
  };
  const DWORD code = added();
  if (code) TraceCache("(): can't add certificate to cache store, error %x", code);
  return code;
}

DWORD UrlCache::addItem(const std::string& url, const FILETIME& lastModified, ContextRecord& context) {
  if (const auto present = items_.find(url); present != items_.end()) {
    return replaceItem(present, lastModified, context);
  }
  if (static_cast<int64_t>(items_.size()) >= maxElements_) {
    if (const DWORD code = removeLeastRecentlyUsed()) return code;
  }
  Item item;
  if (const DWORD code = makeItem(url, lastModified, context, item)) return code;
  items_.emplace(url, std::move(item));
  return ERROR_SUCCESS;
}

DWORD UrlCache::makeItem(const std::string& url, const FILETIME& lastModified, ContextRecord& context,
                         Item& item) {
  SetLastError(ERROR_SUCCESS);
  ContextRecord* stored = nullptr;
  if (!AddContext(store_.get(), context, CERT_STORE_ADD_ALWAYS, &stored)) return LastErrorOr(NTE_FAIL);
  dirty_ = true;
  ContextOwner owned(stored);
  const FILETIME now = Now();
  if (!WriteUrl(*owned.get(), {lastModified, now, url})) {
    const DWORD code = LastErrorOr(NTE_FAIL);
    static_cast<void>(
        DeleteFromStore(*store_.get(), owned->element()));  // without its URL nobody would ever find it again
    return code;
  }
  ElementOwner element = ShareElement(owned->element());
  item = {false, lastModified, now, std::move(element), std::move(owned)};
  return ERROR_SUCCESS;
}

DWORD UrlCache::replaceItem(Items::iterator at, const FILETIME& lastModified, ContextRecord& context) {
  Item fresh;
  if (const DWORD code = makeItem(at->first, lastModified, context, fresh)) return code;
  if (const DWORD code = remove(at->second)) {
    static_cast<void>(remove(fresh));
    return code;
  }
  at->second = std::move(fresh);
  return ERROR_SUCCESS;
}

DWORD UrlCache::removeLeastRecentlyUsed() {
  const auto oldest = std::min_element(items_.begin(), items_.end(), [](const auto& a, const auto& b) {
    return Before(a.second.lastUsed, b.second.lastUsed);
  });
  if (const DWORD code = remove(oldest->second)) return code;
  items_.erase(oldest);
  return ERROR_SUCCESS;
}

DWORD UrlCache::remove(Item& item) {
  const DWORD code = DeleteFromStore(*store_.get(), *item.element.get());
  if (code == ERROR_SUCCESS) dirty_ = true;
  return code;
}

void UrlCache::drop(const std::string& url, std::span<const BYTE> encoded) {
  if (!store_) return;
  const std::lock_guard guard(lock_);
  const auto found = items_.find(url);
  if (found == items_.end()) return;
  if (!std::ranges::equal(found->second.element->encoded(), encoded)) return;
  if (remove(found->second) != ERROR_SUCCESS) return;
  items_.erase(found);
  loaded_ = listState();
}

void UrlCache::flush() {
  const std::lock_guard guard(lock_);
  if (!store_ || !dirty_) return;
  for (auto& [url, item] : items_) {
    if (!item.changed || !item.context) continue;
    static_cast<void>(WriteUrl(*item.context.get(), {item.lastModified, item.lastUsed, url}));
    item.changed = false;
  }
  static_cast<void>(ControlStore(*store_.get(), 0, CERT_STORE_CTRL_COMMIT, nullptr));
  dirty_ = false;
}

size_t UrlCache::size() const {
  const std::lock_guard guard(lock_);
  return items_.size();
}

// --- the process's caches ---

namespace {

class UrlCaches {
 public:
  UrlCache* open(ElementType type) {
    const std::lock_guard guard(opening_);
    if (!store_) store_ = OpenCacheStore();
    if (!store_) {
      TraceCache("(): getCacheSingleton() error %x", GetLastError());
      return nullptr;
    }
    std::optional<UrlCache>& cache = type == ElementType::Crl ? crls_ : certificates_;
    if (cache) {
      cache->refresh();
    } else if (!make(cache, type)) {
      return nullptr;
    }
    return &*cache;
  }

 private:
  static StoreHandle OpenCacheStore() {
    const OpenRequest request{StoreNumber(CERT_STORE_PROV_SYSTEM_REGISTRY_W), kEncoding, 0,
                              CERT_SYSTEM_STORE_CURRENT_USER, kStoreName};
    StoreHandle store = OpenStore(request);
    if (!store && SetUnreadableStoreAside(kStoreName)) store = OpenStore(request);
    return store;
  }
  // What can't be had now is tried again by the next, and nobody goes without his object for it.
  bool make(std::optional<UrlCache>& cache, ElementType type) {
    try {
      AddStoreHandle(*store_.get());
      cache.emplace(lock_, StoreHandle(store_.get()), type, ConfiguredElements());
      return true;
    } catch (const std::bad_alloc&) {
      return Fault(ERROR_NOT_ENOUGH_MEMORY);
    }
  }

  std::mutex opening_;  // before lock_
  std::mutex lock_;     // of both caches
  StoreHandle store_;   // stays open
  std::optional<UrlCache> certificates_;
  std::optional<UrlCache> crls_;
};

constinit NeverDestroyed<UrlCaches> processCaches;

}  // namespace

void OpenUrlCaches() { processCaches.create(); }
void CloseUrlCaches() { processCaches.retire(); }

UrlCacheHandle UrlCacheSingleton(ElementType type) {
  UrlCaches* const caches = processCaches.get();
  if (!caches) SetLastError(ERROR_INTERNAL_ERROR);
  return UrlCacheHandle(caches ? caches->open(type) : nullptr);
}

void DropFromUrlCache(ElementType type, const std::string& url, std::span<const BYTE> encoded) noexcept {
  const LastErrorKeeper keeper;
  try {
    if (const UrlCacheHandle cache = UrlCacheSingleton(type)) cache->drop(url, encoded);
  } catch (const std::exception&) {
    TraceCache("(): can't remove certificate from cache store, error %x", ERROR_NOT_ENOUGH_MEMORY);
  }
}

void FlushUrlCache(UrlCache* cache) noexcept {
  try {  // runs when a handle goes, perhaps because memory ran out before
    cache->flush();
  } catch (const std::exception&) {
    TraceCache("(): can't write the cache store");
  }
}

}  // namespace certkern
