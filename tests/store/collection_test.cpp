// Collections: order, flattening, what a member counts, additions through them, threads.
#include <certkern/errors.h>
#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "store/sample_objects.h"
#include "store/store_kind.h"

using namespace certkern;
using namespace certkern::test;

namespace {

struct Stores {
  HCERTSTORE collection = CertOpenStore(CERT_STORE_PROV_COLLECTION, 0, 0, 0, nullptr);
  HCERTSTORE other = CertOpenStore(CERT_STORE_PROV_COLLECTION, 0, 0, 0, nullptr);
  HCERTSTORE a = CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr);
  HCERTSTORE b = CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr);
  HCERTSTORE c = CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr);
  HCERTSTORE readOnly = CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, CERT_STORE_READONLY_FLAG, nullptr);

  Stores() = default;
  Stores(const Stores&) = delete;
  Stores& operator=(const Stores&) = delete;
  ~Stores() {
    EXPECT_TRUE(CertCloseStore(collection, 0));
    EXPECT_TRUE(CertCloseStore(other, 0));
    for (HCERTSTORE each : {a, b, c, readOnly}) {
      EXPECT_TRUE(CertCloseStore(each, CERT_CLOSE_STORE_CHECK_FLAG)) << "a member was not given back";
    }
  }

  std::string members(HCERTSTORE handle) const {
    std::string all;
    const StoreMembers list(*AsStore(handle));
    for (size_t i = 0; i < list.size(); ++i) {
      all += &list[i] == a ? 'a' : &list[i] == b ? 'b' : &list[i] == c ? 'c' : 'r';
      if (list.updateFlags(i)) all += '+';
    }
    return all;
  }
  std::string members() const { return members(collection); }
};

// 0, or the code of the failure.
DWORD Join(HCERTSTORE collection, HCERTSTORE sibling, DWORD flags = 0, DWORD priority = 0) {
  SetLastError(0);
  return CertAddStoreToCollection(collection, sibling, flags, priority) ? 0 : GetLastError();
}
DWORD Leave(HCERTSTORE collection, HCERTSTORE sibling) {
  SetLastError(0);
  CertRemoveStoreFromCollection(collection, sibling);
  return GetLastError();
}
DWORD AddCertificate(HCERTSTORE store, DWORD serial, DWORD disposition = CERT_STORE_ADD_NEW) {
  const Bytes encoded = MakeCertificate({.serial = serial});
  SetLastError(0);
  return CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, encoded.data(),
                                          static_cast<DWORD>(encoded.size()), disposition, nullptr)
      ? 0
      : GetLastError();
}

TEST(Collection, Arguments) {
  const Stores stores;
  EXPECT_EQ(Join(nullptr, stores.a), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Join(stores.collection, nullptr, 2), 0u);
  EXPECT_EQ(Join(stores.collection, stores.collection), 0u);
  EXPECT_EQ(Join(stores.collection, stores.a, 2), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Join(stores.a, stores.b), DWORD{E_INVALIDARG});
  EXPECT_EQ(Leave(nullptr, stores.a), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Leave(stores.a, stores.b), DWORD{E_INVALIDARG});
  EXPECT_EQ(Leave(stores.collection, nullptr), 0u);
  EXPECT_EQ(Leave(stores.collection, stores.collection), 0u);
  EXPECT_EQ(Leave(stores.collection, stores.a), 0u) << "no member";
  EXPECT_EQ(stores.members(), "");
}

TEST(Collection, OrderAndCounts) {
  const Stores stores;
  ASSERT_EQ(Join(stores.collection, stores.a, 1, 5), 0u);
  ASSERT_EQ(Join(stores.collection, stores.b, 0, 5), 0u);
  ASSERT_EQ(Join(stores.collection, stores.c, 0, 0xFFFFFFFF), 0u);
  ASSERT_EQ(Join(stores.collection, stores.readOnly, 1, 4), 0u);
  EXPECT_EQ(stores.members(), "ca+br+");
  EXPECT_EQ(Join(stores.collection, stores.b, 0, 9), DWORD{ERROR_CALL_NOT_IMPLEMENTED});
  EXPECT_EQ(AsStore(stores.b)->handles, 2u);
  {
    const StoreMembers walk(*AsStore(stores.collection));
    EXPECT_EQ(Leave(stores.collection, stores.b), 0u);
    EXPECT_EQ(walk.size(), 4u) << "a walk keeps what it began with";
    EXPECT_EQ(AsStore(stores.b)->handles, 2u);
  }
  EXPECT_EQ(stores.members(), "ca+r+");
  EXPECT_EQ(AsStore(stores.b)->handles, 1u);
}

TEST(Collection, Flattening) {
  const Stores stores;
  ASSERT_EQ(Join(stores.other, stores.a, 1, 1), 0u);
  ASSERT_EQ(Join(stores.other, stores.b, 1), 0u);
  ASSERT_EQ(Join(stores.collection, stores.c, 0, 1), 0u);
  ASSERT_EQ(Join(stores.collection, stores.other, 0, 2), 0u);
  EXPECT_EQ(stores.members(), "abc") << "flags and priority are those of this addition";
  ASSERT_EQ(Leave(stores.other, stores.a), 0u);
  EXPECT_EQ(stores.members(), "abc") << "later changes are not seen";
  ASSERT_EQ(Leave(stores.collection, stores.other), 0u);
  EXPECT_EQ(stores.members(), "ac");
  EXPECT_EQ(stores.members(stores.other), "b+");
  ASSERT_EQ(Join(stores.other, stores.c), 0u);
  ASSERT_EQ(Join(stores.other, stores.readOnly), 0u);
  EXPECT_EQ(Join(stores.collection, stores.other), DWORD{ERROR_CALL_NOT_IMPLEMENTED});
  EXPECT_EQ(stores.members(), "acb") << "up to the one that is there";
}

TEST(Collection, AdditionsGoToTheFirstThatTakesThem) {
  const Stores stores;
  ASSERT_EQ(Join(stores.collection, stores.a), 0u);
  EXPECT_EQ(AddCertificate(stores.collection, 1), DWORD{E_ACCESSDENIED}) << "nobody takes any";
  ASSERT_EQ(Join(stores.collection, stores.readOnly, 1), 0u);
  EXPECT_EQ(AddCertificate(stores.collection, 1), DWORD{E_ACCESSDENIED});
  ASSERT_EQ(Join(stores.collection, stores.b, 1), 0u);
  ASSERT_EQ(Join(stores.collection, stores.c, 1), 0u);
  EXPECT_EQ(AddCertificate(stores.collection, 1), 0u);
  EXPECT_EQ(
      Serials(*AsStore(stores.a)) + "|" + Serials(*AsStore(stores.b)) + "|" + Serials(*AsStore(stores.c)),
      "|1|");
  ASSERT_EQ(AddCertificate(stores.a, 2), 0u);
  EXPECT_EQ(AddCertificate(stores.collection, 2), DWORD{CRYPT_E_EXISTS}) << "in a member that takes none";
  EXPECT_EQ(AddCertificate(stores.collection, 2, CERT_STORE_ADD_ALWAYS), 0u);
  EXPECT_EQ(Serials(*AsStore(stores.b)), "2 1");
}

// Somebody waits for the lock: the word of the system's C library says so before he sleeps.
bool HasWaiter(std::mutex& lock) {
  constexpr int kLockedWithWaiters = 2;
  return __atomic_load_n(&lock.native_handle()->__data.__lock, __ATOMIC_ACQUIRE) == kLockedWithWaiters;
}

// Whichever is added to which, the lower address is waited for with nothing in hand: crosswise additions cannot block.
TEST(Collection, TwoAreLockedByAddress) {
  const Stores stores;
  CertStore* lower = AsStore(stores.collection);
  CertStore* higher = AsStore(stores.other);
  if (std::less<>()(higher, lower)) std::swap(lower, higher);
  for (const auto& [target, sibling] : {std::pair(lower, higher), std::pair(higher, lower)}) {
    std::unique_lock held(lower->lock);
    std::thread waiting([into = target, from = sibling] { Join(into, from); });
    while (!HasWaiter(lower->lock)) std::this_thread::yield();
    EXPECT_TRUE(std::unique_lock(higher->lock, std::try_to_lock).owns_lock());
    held.unlock();
    waiting.join();
  }
}

// Walks must not meet a member that is gone.
TEST(Collection, Threads) {
  const Stores stores;
  ASSERT_EQ(AddCertificate(stores.a, 1), 0u);
  const auto churn = [&](HCERTSTORE mine, HCERTSTORE others, HCERTSTORE member) {
    for (int i = 0; i < 2000; ++i) {
      Join(mine, member, 1);
      Join(mine, others, 1);
      Leave(mine, others);
      Leave(mine, member);
    }
  };
  std::thread first(churn, stores.collection, stores.other, stores.a);
  std::thread second(churn, stores.other, stores.collection, stores.b);
  std::thread adder([&] {
    for (int i = 0; i < 500; ++i) AddCertificate(stores.collection, 1, CERT_STORE_ADD_USE_EXISTING);
  });
  first.join();
  second.join();
  adder.join();
  EXPECT_EQ(CountOf(*AsStore(stores.a), ElementType::Certificate), 1u);
}

}  // namespace
