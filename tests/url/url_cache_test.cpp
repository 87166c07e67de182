// The cache from URL to object, over stores of the test's own.
#include "url/url_cache.h"

#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/keykern.h>
#include <certkern/store.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/limits.h"
#include "platform/temporary_directory.h"
#include "store/context_property.h"
#include "store/element_addition.h"
#include "store/persistent_store.h"
#include "store/property_block.h"
#include "store/sample_objects.h"
#include "store/store_kind.h"
#include "url/cached_url.h"
#include "url/unreadable_store.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr FILETIME kNever{};

ContextOwner Certificate(DWORD serial) {
  return ContextOwner(CreateContext(ElementType::Certificate, X509_ASN_ENCODING,
                                    MakeCertificate({.subject = "a", .serial = serial})));
}

// One more count on a store that the test goes on looking into.
StoreHandle Share(const StoreHandle& store) {
  AddStoreHandle(*store.get());
  return StoreHandle(store.get());
}

std::string SerialAt(UrlCache& cache, const std::string& url) {
  const auto found = cache.find(url);
  if (!found) return "none";
  return std::to_string(found->context->certificate.pCertInfo->SerialNumber.pbData[0]);
}

void Wait() { std::this_thread::sleep_for(std::chrono::milliseconds(2)); }  // so that times of use differ

class UrlCacheOverMemory : public testing::Test {
 protected:
  UrlCache make(int64_t maxElements) { return {lock, Share(store), ElementType::Certificate, maxElements}; }
  size_t stored() const { return CountOf(*store.get(), ElementType::Certificate); }

  std::mutex lock;
  const StoreHandle store = OpenMemoryStore(0);
};

TEST_F(UrlCacheOverMemory, FindsByUrlWithoutRegardToCase) {
  UrlCache cache = make(10);
  EXPECT_EQ(cache.add("http://a/X.cer", {7, 8}, *Certificate(1).get()), 0u);
  const auto found = cache.find("HTTP://A/x.CER");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->lastModified.dwLowDateTime, 7u);
  EXPECT_EQ(found->lastModified.dwHighDateTime, 8u);
  EXPECT_FALSE(cache.find("http://a/X.cer "));
  EXPECT_FALSE(cache.find(""));
  EXPECT_EQ(StoreOf(found->context->element()), store.get()) << "the store's own element is the item";
}

TEST_F(UrlCacheOverMemory, TheLeastRecentlyUsedGoes) {
  UrlCache cache = make(2);
  cache.add("u1", kNever, *Certificate(1).get());
  Wait();
  cache.add("u2", kNever, *Certificate(2).get());
  Wait();
  const auto kept = cache.find("u1");
  Wait();
  cache.add("u3", kNever, *Certificate(3).get());
  EXPECT_EQ(SerialAt(cache, "u1"), "1");
  EXPECT_EQ(SerialAt(cache, "u2"), "none");
  EXPECT_EQ(SerialAt(cache, "u3"), "3");
  EXPECT_EQ(stored(), 2u);
  Wait();
  cache.add("u4", kNever, *Certificate(4).get());
  EXPECT_EQ(SerialAt(cache, "u1"), "none");
  EXPECT_EQ(kept->context->certificate.pCertInfo->SerialNumber.pbData[0], 1) << "what was found stays good";
}

TEST_F(UrlCacheOverMemory, ANewObjectTakesThePlaceOfTheOld) {
  UrlCache cache = make(10);
  cache.add("u", {1, 1}, *Certificate(1).get());
  EXPECT_EQ(cache.add("U", {2, 2}, *Certificate(2).get()), 0u);
  EXPECT_EQ(SerialAt(cache, "u"), "2");
  EXPECT_EQ(cache.add("u", {3, 3}, *Certificate(2).get()), 0u) << "the same bytes again";
  EXPECT_EQ(SerialAt(cache, "u"), "2");
  EXPECT_EQ(cache.find("u")->lastModified.dwLowDateTime, 3u);
  EXPECT_EQ(cache.size(), 1u);
  EXPECT_EQ(stored(), 1u);
}

TEST_F(UrlCacheOverMemory, RefusesWhatIsNotValidNow) {
  UrlCache cache = make(10);
  Bytes expired = MakeCertificate({});
  const std::string end = "350101000000Z";
  const auto at = std::search(expired.begin(), expired.end(), end.begin(), end.end());
  std::copy_n("250102000000Z", end.size(), at);
  const ContextOwner context(CreateContext(ElementType::Certificate, X509_ASN_ENCODING, expired));
  EXPECT_EQ(cache.add("u", kNever, *context.get()), SEC_E_CONTEXT_EXPIRED);
  for (const char* thisUpdate : {"490101000000Z", "260101000000Z"}) {
    const ContextOwner crl(
        CreateContext(ElementType::Crl, X509_ASN_ENCODING, MakeCrl({.thisUpdate = thisUpdate})));
    EXPECT_EQ(IsValidNow(*crl.get()), thisUpdate[0] == '2');
  }
  EXPECT_EQ(cache.add(std::string(kMaxUrl + 1, 'a'), kNever, *Certificate(1).get()), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(stored(), 0u);
}

TEST_F(UrlCacheOverMemory, WithoutRoomNothingIsKept) {
  for (const int64_t none : {int64_t{0}, int64_t{-1}, INT64_MIN}) {
    UrlCache cache = make(none);
    EXPECT_EQ(cache.add("u", kNever, *Certificate(1).get()), SEC_E_INTERNAL_ERROR);
    EXPECT_FALSE(cache.find("u"));
    cache.flush();
  }
  EXPECT_EQ(stored(), 0u);
}

TEST_F(UrlCacheOverMemory, LoadsWhatTheStoreHolds) {
  const auto put = [&](DWORD serial, const Bytes& property) {
    ContextRecord* added = nullptr;
    ASSERT_TRUE(AddContext(store.get(), *Certificate(serial).get(), CERT_STORE_ADD_ALWAYS, &added));
    const ContextOwner owner(added);
    const CRYPT_DATA_BLOB blob{static_cast<DWORD>(property.size()), const_cast<BYTE*>(property.data())};
    if (property.empty()) return;
    ASSERT_TRUE(SetContextProperty(*added, SV_URL_CACHE_PROP_ID, &blob));
  };
  const auto named = [](const char* url) { return EncodeCachedUrl({{}, {}, url}); };
  put(1, named("beyond"));
  put(2, named("old"));
  put(3, named("same"));
  put(4, named("SAME"));
  put(5, Bytes(17, 'x'));
  put(6, {});
  {
    UrlCache cache = make(2);  // newest first: 6 and 5 have no URL, 4 and 2 are taken, 3 is older than 4
    EXPECT_EQ(SerialAt(cache, "same"), "4");
    EXPECT_EQ(SerialAt(cache, "old"), "2");
    EXPECT_EQ(SerialAt(cache, "beyond"), "none");
  }
  EXPECT_EQ(Serials(*store.get()), "6 5 4 3 2") << "what is beyond the limit goes, what is foreign stays";
}

TEST_F(UrlCacheOverMemory, ConcurrentUse) {
  UrlCache cache = make(8);
  std::atomic<int> hits{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 100; ++i) {
        const std::string url(1, static_cast<char>('a' + (i * i + t) % 16));
        if (const auto found = cache.find(url)) hits += found->context->certificate.cbCertEncoded > 0;
        cache.add(url, kNever, *Certificate(1 + static_cast<DWORD>(i % 5)).get());
        if (i % 10 == 0) cache.flush();
      }
    });
  }
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(cache.size(), 8u);
  EXPECT_EQ(stored(), 8u);
  EXPECT_GT(hits, 0);
}

TEST(UrlCacheOverFile, SurvivesAndIsWrittenOnlyWhenSomethingChanged) {
  const TemporaryDirectory directory;
  const std::wstring path = [&] {
    const std::string narrow = directory.path("cache.sto");
    return std::wstring(narrow.begin(), narrow.end());
  }();
  const auto open = [&](DWORD flags) {
    return OpenStore({StoreNumber(CERT_STORE_PROV_FILENAME_W), X509_ASN_ENCODING, 0, flags, path.c_str()});
  };
  std::mutex lock;
  const StoreHandle held =
      open(CERT_FILE_STORE_COMMIT_ENABLE_FLAG);  // as a process holds it, so that only a flush writes
  ASSERT_TRUE(held);
  UrlCache first(lock, Share(held), ElementType::Certificate, 10);
  first.add("http://a/1", {5, 6}, *Certificate(1).get());
  first.flush();
  const std::string written = directory.read("cache.sto");
  ASSERT_FALSE(written.empty());
  {
    UrlCache second(lock, open(CERT_STORE_READONLY_FLAG), ElementType::Certificate, 10);
    const auto found = second.find("http://a/1");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->lastModified.dwLowDateTime, 5u);
  }
  Wait();
  EXPECT_TRUE(first.find("http://a/1"));
  first.flush();
  EXPECT_EQ(directory.read("cache.sto"), written) << "reading alone does not rewrite the file";
  first.add("http://a/2", kNever, *Certificate(2).get());
  first.flush();
  EXPECT_NE(directory.read("cache.sto"), written);
}

// The user's own store under this name, as each process has it.
class UrlCacheOverSystemStore : public testing::Test {
 protected:
  UrlCacheOverSystemStore() : file_(SystemStorePath(L"shared", CERT_SYSTEM_STORE_CURRENT_USER)) {
    std::filesystem::remove(file_);
  }
  StoreHandle open() const {
    return OpenStore({StoreNumber(CERT_STORE_PROV_SYSTEM_REGISTRY_W), X509_ASN_ENCODING, 0,
                      CERT_SYSTEM_STORE_CURRENT_USER, L"shared"});
  }
  static void clear(const StoreHandle& other) {
    while (PCCERT_CONTEXT each = CertEnumCertificatesInStore(other.get(), nullptr)) {
      ASSERT_TRUE(CertDeleteCertificateFromStore(each));
    }
    ASSERT_TRUE(ControlStore(*other.get(), 0, CERT_STORE_CTRL_COMMIT, nullptr));
  }

  const std::string file_;
  std::mutex lock_;
};

TEST_F(UrlCacheOverSystemStore, WhatAnotherProcessClearedStaysAway) {
  const StoreHandle held = open();
  ASSERT_TRUE(held);
  UrlCache cache(lock_, Share(held), ElementType::Certificate, 10);
  cache.add("u1", kNever, *Certificate(1).get());
  cache.add("u2", kNever, *Certificate(2).get());
  cache.flush();
  const StoreHandle other = open();
  clear(other);
  cache.refresh();
  EXPECT_EQ(SerialAt(cache, "u1"), "none");
  cache.add("u3", kNever, *Certificate(3).get());
  cache.flush();
  EXPECT_EQ(Serials(*open().get()), "3");

  ASSERT_TRUE(ControlStore(*other.get(), 0, CERT_STORE_CTRL_RESYNC, nullptr));
  clear(other);
  cache.add("u4", kNever,
            *Certificate(4).get());  // without a refresh of its own: the handle was taken before
  cache.flush();
  EXPECT_EQ(Serials(*open().get()), "4");
}

TEST_F(UrlCacheOverSystemStore, WhatAnotherProcessAddedIsFound) {
  UrlCache cache(lock_, open(), ElementType::Certificate, 10);
  UrlCache other(lock_, open(), ElementType::Certificate, 10);
  other.add("u1", kNever, *Certificate(1).get());
  other.flush();
  cache.refresh();
  EXPECT_EQ(SerialAt(cache, "u1"), "1");
}

TEST_F(UrlCacheOverSystemStore, AnUnreadableFileIsSetAside) {
  { UrlCache(lock_, open(), ElementType::Certificate, 10).add("u1", kNever, *Certificate(1).get()); }
  std::string whole;
  {
    std::ifstream in(file_, std::ios::binary);
    whole.assign(std::istreambuf_iterator<char>(in), {});
  }
  EXPECT_FALSE(SetUnreadableStoreAside(L"shared")) << "this one reads";
  ASSERT_EQ(Serials(*open().get()), "1");
  for (const std::string& bytes :
       {whole.substr(0, whole.size() / 2), std::string("no store"), whole + "more"}) {
    SCOPED_TRACE(bytes.size());
    std::ofstream(file_, std::ios::binary) << bytes;
    if (open()) continue;  // what follows the end marker is not looked at
    EXPECT_TRUE(SetUnreadableStoreAside(L"shared"));
    const StoreHandle anew = open();
    ASSERT_TRUE(anew);
    EXPECT_EQ(CountOf(*anew.get(), ElementType::Certificate), 0u);
    EXPECT_EQ(std::filesystem::file_size(file_ + ".damaged"), bytes.size());
  }
}

TEST_F(UrlCacheOverMemory, WhatDoesNotDecodeGivesWay) {
  const CRYPT_DATA_BLOB named = [] {
    static std::vector<BYTE> url = EncodeCachedUrl({{}, {}, "u"});
    return CRYPT_DATA_BLOB{static_cast<DWORD>(url.size()), url.data()};
  }();
  const Bytes junk = {0x30, 0x03, 0x02, 0x01, 0x05};
  PropertyList items;
  items.set(NewPropertyItem(SV_URL_CACHE_PROP_ID, {named.pbData, named.cbData}));
  {
    const std::lock_guard guard(store->lock);
    LinkElement(*store.get(),
                NewElement(ElementType::Certificate, X509_ASN_ENCODING, junk, store.get(),
                           NewPropertyBlock(std::move(items))));
  }
  UrlCache cache = make(10);
  EXPECT_EQ(SerialAt(cache, "u"), "none");
  EXPECT_EQ(cache.add("u", kNever, *Certificate(2).get()), 0u);
  EXPECT_EQ(SerialAt(cache, "u"), "2");
  EXPECT_EQ(stored(), 1u);
}

}  // namespace
