// Many threads on the same stores; what is lost, doubled or torn shows in the counts, and in ThreadSanitizer.
#include <certkern/find.h>
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <functional>
#include <mutex>
#include <thread>

#include "store/context_property.h"
#include "store/element_addition.h"
#include "store/sample_objects.h"
#include "store/store_kind.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr DWORD kThreads = 4;
constexpr DWORD kRounds = 60;
constexpr DWORD kRaces = 500;

void InThreads(const std::function<void(DWORD)>& work, DWORD count = kThreads) {
  std::vector<std::thread> threads;
  for (DWORD i = 0; i < count; ++i) threads.emplace_back(work, i);
  for (std::thread& each : threads) each.join();
}

ContextOwner Next(CertStore& store, ContextOwner previous) {
  const std::lock_guard guard(store.lock);
  StoreElement* const next =
      NextElement(store, ElementType::Certificate, previous ? &previous->element() : nullptr);
  return ContextOwner(next ? AcquireContext(*next) : nullptr);
}

TEST(StoreThreads, AddDeleteWalkAndAsk) {
  const size_t before = contextRegistry.get()->size();
  const StoreHandle store = OpenMemoryStore(0);
  InThreads([&](DWORD thread) {
    for (DWORD round = 0; round < kRounds; ++round) {
      const Bytes own = MakeCertificate({.serial = 1000 * (thread + 1) + round});
      PCCERT_CONTEXT added = nullptr;
      EXPECT_TRUE(CertAddEncodedCertificateToStore(store.get(), 1, own.data(), static_cast<DWORD>(own.size()),
                                                   CERT_STORE_ADD_NEW, &added));
      if (round % 2) {
        EXPECT_TRUE(CertDeleteCertificateFromStore(added));
      } else {
        CertFreeCertificateContext(added);
      }
      DWORD steps = 0;
      for (ContextOwner at = Next(*store.get(), {}); at && ++steps < 20;
           at = Next(*store.get(), std::move(at))) {
        DWORD size = 0;
        EXPECT_TRUE(
            CertGetCertificateContextProperty(at->asCertificate(), CERT_MD5_HASH_PROP_ID, nullptr, &size));
        BYTE mark = static_cast<BYTE>(thread);
        const CRYPT_DATA_BLOB blob{1, &mark};
        EXPECT_TRUE(
            CertSetCertificateContextProperty(at->asCertificate(), CERT_FRIENDLY_NAME_PROP_ID, 0, &blob));
        CertEnumCertificateContextProperties(at->asCertificate(), CERT_SHA1_HASH_PROP_ID);
      }
    }
  });
  EXPECT_EQ(CountOf(*store.get(), ElementType::Certificate), kThreads * kRounds / 2);
  EXPECT_EQ(store->records, 1u);
  EXPECT_EQ(contextRegistry.get()->size(), before);
}

TEST(StoreThreads, OneObjectIsAddedOnce) {
  const StoreHandle store = OpenMemoryStore(0);
  std::atomic<DWORD> successes{0};
  std::barrier together(kThreads);
  InThreads([&](DWORD thread) {
    for (DWORD round = 0; round < kRaces; ++round) {
      const Bytes same = MakeCertificate({.serial = round});
      together.arrive_and_wait();
      const DWORD disposition =
          thread % 2 ? CERT_STORE_ADD_NEW : CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES;
      successes += CertAddEncodedCertificateToStore(store.get(), 1, same.data(),
                                                    static_cast<DWORD>(same.size()), disposition, nullptr)
          && thread % 2;
    }
  });
  EXPECT_EQ(CountOf(*store.get(), ElementType::Certificate), kRaces);
  EXPECT_LE(successes, kRaces);
}

// Every thread adds, finds by each key of the index, deletes and hands contexts on, while the store crosses the size
// from which on it is indexed. What only one thread touches must be there when that thread looks.
TEST(StoreThreads, TheIndexUnderChange) {
  constexpr DWORD kMany = 8;
  const size_t before = contextRegistry.get()->size();
  const StoreHandle store = OpenMemoryStore(0);
  const auto find = [&](DWORD type, const void* parameter) {
    return CertificateHandle(CertFindCertificateInStore(store.get(), 1, 0, type, parameter, nullptr));
  };
  const CertificateHandle common =
      CreateCertificate(MakeCertificate({.subject = "everybody's", .serial = 7}));
  InThreads(
      [&](DWORD thread) {
        for (DWORD round = 0; round < kRounds; ++round) {
          const CertificateHandle own = CreateCertificate(
              MakeCertificate({.subject = std::to_string(thread), .serial = 1000 * (thread + 1) + round}));
          EXPECT_TRUE(CertAddCertificateContextToStore(store.get(), own.get(), CERT_STORE_ADD_NEW, nullptr));
          CertAddCertificateContextToStore(store.get(), common.get(), CERT_STORE_ADD_REPLACE_EXISTING,
                                           nullptr);
          BYTE sha1[20];
          CRYPT_DATA_BLOB hash{sizeof sha1, sha1};
          EXPECT_TRUE(
              CertGetCertificateContextProperty(own.get(), CERT_SHA1_HASH_PROP_ID, sha1, &hash.cbData));
          CertificateHandle found = find(CERT_FIND_SHA1_HASH, &hash);
          EXPECT_TRUE(found);
          EXPECT_TRUE(find(CERT_FIND_SUBJECT_NAME, &own->pCertInfo->Subject));
          EXPECT_TRUE(find(CERT_FIND_SUBJECT_CERT, own->pCertInfo));
          EXPECT_TRUE(find(CERT_FIND_EXISTING, own.get()));
          EXPECT_TRUE(find(CERT_FIND_SUBJECT_CERT, common->pCertInfo)) << "replaced, but never away";
          const CertificateHandle copy(CertDuplicateCertificateContext(found.get()));
          if (round % 2) {
            EXPECT_TRUE(CertDeleteCertificateFromStore(found.release()));
            EXPECT_FALSE(find(CERT_FIND_EXISTING, own.get()));
            EXPECT_EQ(copy->pCertInfo->SerialNumber.cbData, own->pCertInfo->SerialNumber.cbData);
          }
        }
      },
      kMany);
  EXPECT_EQ(CountOf(*store.get(), ElementType::Certificate), kMany * kRounds / 2 + 1);
  EXPECT_TRUE(store->certificates.index);
  EXPECT_EQ(contextRegistry.get()->size(), before + 1);
}

// The same element deleted by several holders, while its store is closed under them.
TEST(StoreThreads, CloseUnderHolders) {
  const size_t before = contextRegistry.get()->size();
  for (const DWORD flags : {DWORD{0}, DWORD{CERT_STORE_DEFER_CLOSE_UNTIL_LAST_FREE_FLAG}}) {
    for (DWORD round = 0; round < kRounds; ++round) {
      StoreHandle store = OpenMemoryStore(flags);
      const Bytes encoded = MakeCertificate({});
      PCCERT_CONTEXT context = nullptr;
      ASSERT_TRUE(CertAddEncodedCertificateToStore(
          store.get(), 1, encoded.data(), static_cast<DWORD>(encoded.size()), CERT_STORE_ADD_NEW, &context));
      for (DWORD i = 1; i < kThreads; ++i) CertDuplicateCertificateContext(context);
      CertStore* const closed = store.release();
      InThreads([&](DWORD thread) {
        DWORD size = 0;
        if (thread == 0) CertCloseStore(closed, 0);
        EXPECT_TRUE(CertGetCertificateContextProperty(context, CERT_MD5_HASH_PROP_ID, nullptr, &size));
        CRYPT_DATA_BLOB none{};
        EXPECT_TRUE(CertSetCertificateContextProperty(context, CERT_ARCHIVED_PROP_ID, 0, &none));
        if (thread == 1) {
          CertDuplicateCertificateContext(context);
          EXPECT_TRUE(CertDeleteCertificateFromStore(context));
          StoreElement& element = FindLiveContext(context)->element();
          const std::lock_guard lock(element.lock);
          EXPECT_LE(element.refs, 100u) << "counted below zero";
        }
      });
      // the delete gave the deleter's reference back, unless the store was closed before and nothing could be deleted
      DWORD freed = 0;
      while (CertFreeCertificateContext(context)) ++freed;
      EXPECT_TRUE(freed == kThreads || (!flags && freed == kThreads + 1)) << freed;
      EXPECT_EQ(contextRegistry.get()->size(), before);
    }
  }
}

// What was deleted no longer hears of the close, and still asks the store for its provider.
TEST(StoreThreads, HashesWhileTheProviderGoes) {
  for (DWORD round = 0; round < kRaces; ++round) {
    StoreHandle store = OpenMemoryStore(0);
    std::vector<CertificateHandle> deleted;
    for (DWORD i = 0; i < kThreads; ++i) {
      const Bytes encoded = MakeCertificate({.serial = i});
      PCCERT_CONTEXT added = nullptr;
      ASSERT_TRUE(CertAddEncodedCertificateToStore(
          store.get(), 1, encoded.data(), static_cast<DWORD>(encoded.size()), CERT_STORE_ADD_NEW, &added));
      deleted.emplace_back(CertDuplicateCertificateContext(added));
      ASSERT_TRUE(CertDeleteCertificateFromStore(added));
    }
    std::barrier together(kThreads);
    CertStore* const closed = store.release();
    InThreads([&](DWORD thread) {
      DWORD size = 0;
      together.arrive_and_wait();
      if (thread == 0) CertCloseStore(closed, 0);
      EXPECT_TRUE(
          CertGetCertificateContextProperty(deleted[thread].get(), CERT_MD5_HASH_PROP_ID, nullptr, &size))
          << GetLastError();
    });
  }
}

}  // namespace
