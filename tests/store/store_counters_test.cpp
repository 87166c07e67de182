// What a store and its contents live for: handles, contexts, closing by each flag, deleting.
#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <string>

#include "store/element_addition.h"
#include "store/sample_objects.h"
#include "store/store_kind.h"

using namespace certkern;
using namespace certkern::test;

namespace {

HCERTSTORE Open(DWORD flags = 0) { return CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, flags, nullptr); }

// Adds a certificate; the context when it is wanted.
void Add(HCERTSTORE store, DWORD serial, PCCERT_CONTEXT* out = nullptr) {
  const Bytes encoded = MakeCertificate({.serial = serial});
  ASSERT_TRUE(CertAddEncodedCertificateToStore(store, 1, encoded.data(), static_cast<DWORD>(encoded.size()),
                                               CERT_STORE_ADD_ALWAYS, out));
}
PCCERT_CONTEXT Added(HCERTSTORE store, DWORD serial = 1) {
  PCCERT_CONTEXT context = nullptr;
  Add(store, serial, &context);
  return context;
}

std::string Counters(HCERTSTORE store) {
  return std::to_string(AsStore(store)->handles) + " " + std::to_string(AsStore(store)->records);
}

// A store whose provider is known, so that the freeing of the contents can be seen from outside.
struct Watched {
  HCRYPTPROV provider = SVAPI_I_GetDefaultProvider(PROV_GOST_2012_256);
  HCERTSTORE store;
  explicit Watched(DWORD flags = 0)
      : store(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, provider, flags, nullptr)) {}
  bool contentsAreThere() const {
    BYTE random;
    return CryptGenRandom(provider, 1, &random);
  }
};

TEST(StoreCounters, ContextOutlivesTheHandle) {
  const Watched watched;
  EXPECT_EQ(Counters(watched.store), "1 1");
  PCCERT_CONTEXT context = Added(watched.store);
  EXPECT_EQ(Counters(watched.store), "1 2");
  EXPECT_EQ(CertDuplicateCertificateContext(context), context);
  EXPECT_EQ(Counters(watched.store), "1 2") << "two references, one record";
  CertFreeCertificateContext(context);
  EXPECT_EQ(context->hCertStore, watched.store);
  EXPECT_FALSE(CertCloseStore(watched.store, CERT_CLOSE_STORE_CHECK_FLAG));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_PENDING_CLOSE});
  EXPECT_EQ(Counters(watched.store), "0 1");
  EXPECT_FALSE(watched.contentsAreThere());
  EXPECT_EQ(context->hCertStore, nullptr);
  DWORD size = 0;
  EXPECT_TRUE(CertGetCertificateContextProperty(context, CERT_MD5_HASH_PROP_ID, nullptr, &size));
  EXPECT_TRUE(CertDeleteCertificateFromStore(context)) << "no store: left alone";
  EXPECT_TRUE(CertFreeCertificateContext(context));
}

TEST(StoreCounters, DeferredUntilTheLastFree) {
  const Watched watched(CERT_STORE_DEFER_CLOSE_UNTIL_LAST_FREE_FLAG);
  PCCERT_CONTEXT context = Added(watched.store);
  Add(watched.store, 2);
  EXPECT_TRUE(CertCloseStore(watched.store, 0));
  EXPECT_EQ(Counters(watched.store), "0 1");
  EXPECT_TRUE(watched.contentsAreThere());
  EXPECT_EQ(context->hCertStore, watched.store);
  EXPECT_EQ(Serials(*AsStore(watched.store)), "2 1");
  EXPECT_TRUE(CertFreeCertificateContext(context));
  EXPECT_FALSE(watched.contentsAreThere());

  const Watched unused(CERT_STORE_DEFER_CLOSE_UNTIL_LAST_FREE_FLAG);
  Add(unused.store, 1);
  EXPECT_EQ(CertDuplicateStore(unused.store), unused.store);
  EXPECT_FALSE(CertCloseStore(unused.store, CERT_CLOSE_STORE_CHECK_FLAG));
  EXPECT_TRUE(CertCloseStore(unused.store, CERT_CLOSE_STORE_CHECK_FLAG));
  EXPECT_FALSE(unused.contentsAreThere());
}

TEST(StoreCounters, EveryHandleCounts) {
  const Watched watched;
  Add(watched.store, 1);
  EXPECT_EQ(CertDuplicateStore(watched.store), watched.store);
  EXPECT_EQ(Counters(watched.store), "2 2");
  EXPECT_FALSE(CertCloseStore(watched.store, CERT_CLOSE_STORE_CHECK_FLAG));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_PENDING_CLOSE});
  EXPECT_TRUE(watched.contentsAreThere());
  EXPECT_TRUE(CertCloseStore(watched.store, CERT_CLOSE_STORE_CHECK_FLAG));
  EXPECT_FALSE(watched.contentsAreThere());
  EXPECT_TRUE(CertCloseStore(nullptr, 0));
  EXPECT_EQ(CertDuplicateStore(nullptr), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(StoreCounters, ForceTakesContextsBack) {
  for (const DWORD flags : {DWORD{0}, DWORD{CERT_STORE_DEFER_CLOSE_UNTIL_LAST_FREE_FLAG}}) {
    const size_t before = contextRegistry.get()->size();
    const Watched watched(flags);
    PCCERT_CONTEXT held = Added(watched.store, 1);
    CertDuplicateCertificateContext(held);
    PCCERT_CONTEXT deleted = Added(watched.store, 2);
    CertDuplicateCertificateContext(deleted);
    EXPECT_TRUE(CertDeleteCertificateFromStore(deleted));
    CertDuplicateStore(watched.store);
    EXPECT_EQ(Counters(watched.store), "2 4");
    EXPECT_TRUE(CertCloseStore(watched.store, CERT_CLOSE_STORE_FORCE_FLAG));
    EXPECT_FALSE(watched.contentsAreThere());
    EXPECT_FALSE(CertFreeCertificateContext(held)) << "dead under its holder, and found out";
    // what still leads to the record keeps it: the other handle, and the context of the deleted element
    EXPECT_EQ(Counters(watched.store), "1 2");
    EXPECT_TRUE(CertCloseStore(watched.store, 0));
    EXPECT_EQ(deleted->pCertInfo->SerialNumber.cbData, 5u);
    EXPECT_TRUE(CertFreeCertificateContext(deleted));
    EXPECT_EQ(contextRegistry.get()->size(), before);
  }
  const Watched both;
  PCCERT_CONTEXT held = Added(both.store);
  EXPECT_FALSE(CertCloseStore(both.store, CERT_CLOSE_STORE_FORCE_FLAG | CERT_CLOSE_STORE_CHECK_FLAG));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_PENDING_CLOSE});
  EXPECT_FALSE(CertFreeCertificateContext(held));
}

TEST(StoreCounters, DeletingInAnyOrder) {
  HCERTSTORE store = Open();
  PCCERT_CONTEXT contexts[5];
  for (DWORD i = 0; i < 5; ++i) contexts[i] = Added(store, i + 1);
  CertStore& record = *AsStore(store);
  EXPECT_EQ(Serials(record), "5 4 3 2 1");
  for (const size_t at : {size_t{2}, size_t{4}, size_t{0}}) {  // middle, newest, oldest
    CertDuplicateCertificateContext(contexts[at]);
    EXPECT_TRUE(CertDeleteCertificateFromStore(contexts[at]));
    EXPECT_EQ(contexts[at]->hCertStore, store) << "a count is left";
  }
  EXPECT_EQ(Serials(record), "4 2");
  EXPECT_EQ(CountOf(record, ElementType::Certificate), 2u);
  // once more: it is out already, so that nothing happens but the freeing
  EXPECT_TRUE(CertDeleteCertificateFromStore(contexts[2]));
  EXPECT_FALSE(CertFreeCertificateContext(contexts[2]));
  EXPECT_EQ(Serials(record), "4 2");
  for (const size_t at : {0, 1, 3, 4}) EXPECT_TRUE(CertFreeCertificateContext(contexts[at]));
  EXPECT_EQ(Counters(store), "1 1");
  EXPECT_TRUE(CertCloseStore(store, CERT_CLOSE_STORE_CHECK_FLAG));
}

TEST(StoreCounters, WalkGoesOnBehindWhatWasDeleted) {
  const StoreHandle store = OpenMemoryStore(0);
  for (DWORD serial = 1; serial <= 5; ++serial) Add(store.get(), serial);
  std::string seen;
  ContextOwner previous;
  for (;;) {
    ContextOwner context;
    {
      const std::lock_guard guard(store->lock);
      StoreElement* const next =
          NextElement(*store.get(), ElementType::Certificate, previous ? &previous->element() : nullptr);
      if (!next) break;
      context.reset(AcquireContext(*next));
    }
    const BYTE serial = context->certificate.pCertInfo->SerialNumber.pbData[0];
    seen += std::to_string(serial) + " ";
    if (serial % 2) {
      AddContextReference(*context.get());
      EXPECT_TRUE(DeleteContext(context.get()));
    }
    if (serial == 4) Add(store.get(), 9);  // newer than where the walk is
    previous = std::move(context);
  }
  EXPECT_EQ(seen, "5 4 3 2 1 ");
  previous.reset();
  EXPECT_EQ(Serials(*store.get()), "9 4 2");
}

TEST(StoreOpen, ArgumentRules) {
  const HCRYPTPROV provider = SVAPI_I_GetDefaultProvider(PROV_GOST_2012_256);
  BYTE something;
  const struct {
    const char* name;
    LPCSTR provider;
    HCRYPTPROV cryptProvider;
    DWORD flags;
    const void* parameter;
    DWORD code;  // 0: opens
  } kCases[] = {
      {"memory ignores its parameter",      CERT_STORE_PROV_MEMORY,     0,        0,                      &something, 0                      },
      {"registry wants one",                CERT_STORE_PROV_REG,        0,        0,                      nullptr,    ERROR_INVALID_PARAMETER},
      {"registry does not look at it",      CERT_STORE_PROV_REG,        0,        0,                      &something, 0                      },
      {"collection",                        CERT_STORE_PROV_COLLECTION, 0,        0,                      nullptr,    0                      },
      {"a name",                            "Memory",                   0,        0,                      nullptr,    ERROR_INVALID_PARAMETER},
      {"none",                              nullptr,                    0,        0,                      nullptr,    ERROR_INVALID_PARAMETER},
      {"behind the last",                   LPCSTR(14),                 0,        0,                      &something, ERROR_INVALID_PARAMETER},
      {"nobody's provider to be kept",      CERT_STORE_PROV_MEMORY,     0,        1,                      nullptr,    ERROR_INVALID_PARAMETER},
      {"the caller keeps the provider",     CERT_STORE_PROV_MEMORY,     provider, 1,                      nullptr,    0                      },
      {"a failed open leaves the provider", CERT_STORE_PROV_REG,        provider, 0,                      nullptr,
       ERROR_INVALID_PARAMETER                                                                                                               },
      {"removing is no store",              CERT_STORE_PROV_MEMORY,     0,        CERT_STORE_DELETE_FLAG, nullptr,    ERROR_SUCCESS          },
  };
  for (const auto& [name, number, cryptProvider, flags, parameter, code] : kCases) {
    SCOPED_TRACE(name);
    SetLastError(77);
    HCERTSTORE store = CertOpenStore(number, 0, cryptProvider, flags, parameter);
    if (code || (flags & CERT_STORE_DELETE_FLAG)) {
      EXPECT_EQ(store, nullptr);
      EXPECT_EQ(GetLastError(), code);
    } else {
      EXPECT_NE(store, nullptr);
    }
    EXPECT_TRUE(CertCloseStore(store, CERT_CLOSE_STORE_CHECK_FLAG));
  }
  BYTE random;
  EXPECT_TRUE(CryptGenRandom(provider, 1, &random)) << "still the caller's";
  CertCloseStore(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, provider, 0, nullptr), 0);
  EXPECT_FALSE(CryptGenRandom(provider, 1, &random)) << "the store's, and gone with it";
}

TEST(StoreControl, ByKind) {
  HCERTSTORE memory = Open();
  HCERTSTORE collection = CertOpenStore(CERT_STORE_PROV_COLLECTION, 0, 0, 0, nullptr);
  const struct {
    const char* name;
    HCERTSTORE store;
    DWORD flags;
    DWORD control;
    DWORD code;
  } kCases[] = {
      {"commit of a memory store",     memory,     0, CERT_STORE_CTRL_COMMIT,        ERROR_CALL_NOT_IMPLEMENTED},
      {"commit with flags",            collection, 1, CERT_STORE_CTRL_COMMIT,        ERROR_INVALID_PARAMETER   },
      {"commit of no members",         collection, 0, CERT_STORE_CTRL_COMMIT,        0                         },
      {"resynchronise a memory store", memory,     0, CERT_STORE_CTRL_RESYNC,        ERROR_CALL_NOT_IMPLEMENTED},
      {"resynchronise no members",     collection, 0, CERT_STORE_CTRL_RESYNC,        0                         },
      {"a memory store never follows", memory,     0, CERT_STORE_CTRL_AUTO_RESYNC,   ERROR_CALL_NOT_IMPLEMENTED},
      {"a collection does",            collection, 0, CERT_STORE_CTRL_AUTO_RESYNC,   0                         },
      {"nobody is notified",           memory,     0, CERT_STORE_CTRL_NOTIFY_CHANGE, ERROR_CALL_NOT_IMPLEMENTED},
      {"no store",                     nullptr,    0, CERT_STORE_CTRL_COMMIT,        ERROR_INVALID_PARAMETER   },
  };
  for (const auto& [name, store, flags, control, code] : kCases) {
    SCOPED_TRACE(name);
    SetLastError(0);
    EXPECT_EQ(CertControlStore(store, flags, control, nullptr), code == 0);
    EXPECT_EQ(GetLastError(), code);
  }
  EXPECT_TRUE(AsStore(collection)->autoResync);
  CertCloseStore(memory, 0);
  CertCloseStore(collection, 0);
}

// Two walks that delete what they meet: each goes on where it was, wherever the other is.
TEST(StoreWalk, GoesOnFromWhatHasLeft) {
  constexpr DWORD kCount = 60;
  for (const DWORD step : {1u, 2u, 3u}) {
    SCOPED_TRACE(step);
    const StoreHandle store = OpenMemoryStore(0);
    for (DWORD serial = 1; serial <= kCount; ++serial) {
      const CertificateHandle each = CreateCertificate(MakeCertificate({.serial = serial}));
      ASSERT_TRUE(CertAddCertificateContextToStore(store.get(), each.get(), CERT_STORE_ADD_ALWAYS, nullptr));
    }
    // how far each is; they take turns, one three certificates at a time
    PCCERT_CONTEXT at[2] = {};
    DWORD left[2] = {kCount + 1, kCount + 1};
    bool gone[kCount + 1] = {};
    for (DWORD turn = 0; turn < kCount; ++turn) {
      const size_t who = turn % 4 == 0;
      at[who] = CertEnumCertificatesInStore(store.get(), at[who]);
      do --left[who];
      while (left[who] && gone[left[who]]);
      ASSERT_EQ(at[who] != nullptr, left[who] != 0);
      if (!at[who]) break;
      EXPECT_EQ(at[who]->pCertInfo->SerialNumber.pbData[0], left[who]);
      if (turn % step) continue;
      gone[left[who]] = true;
      ASSERT_TRUE(CertDeleteCertificateFromStore(CertDuplicateCertificateContext(at[who])));
    }
    for (const PCCERT_CONTEXT each : at) CertFreeCertificateContext(each);
  }
}

}  // namespace
