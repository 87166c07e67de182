// Running out of memory at every allocation in turn: a code, nothing half-added, nothing lost, nothing leaked.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include "store/context_property.h"
#include "store/element_addition.h"
#include "store/fault_plan.h"
#include "store/sample_objects.h"
#include "store/store_kind.h"

using namespace certkern;
using namespace certkern::test;

namespace {

TEST(StoreFaults, EveryDisposition) {
  const Bytes encoded = MakeCertificate({.serial = 1});
  for (DWORD disposition = 1; disposition <= 6; ++disposition) {
    SCOPED_TRACE(disposition);
    int faults = 0;
    for (FaultPlan plan; plan.next(); faults = plan.faults()) {
      const StoreHandle store = OpenMemoryStore(0);
      const Bytes other = MakeCertificate({.serial = 2});
      const CertificateHandle there = CreateCertificate(disposition == CERT_STORE_ADD_NEW ? other : encoded);
      ASSERT_TRUE(CertAddCertificateContextToStore(store.get(), there.get(), CERT_STORE_ADD_NEW, nullptr));
      const std::string before = Serials(*store.get());
      const CertificateHandle added = CreateCertificate(encoded);
      EXPECT_TRUE(CanHaveProperty(FindLiveContext(added.get())->element(), CERT_SHA1_HASH_PROP_ID));
      EXPECT_TRUE(CanHaveProperty(FindLiveContext(added.get())->element(), CERT_KEY_IDENTIFIER_PROP_ID));
      PCCERT_CONTEXT out = nullptr;
      SetLastError(0);
      if (plan.run([&] {
            return CertAddCertificateContextToStore(store.get(), added.get(), disposition, &out);
          })) {
        EXPECT_NE(out, nullptr);
      } else {
        const bool refused = disposition == CERT_STORE_ADD_NEWER && GetLastError() == CRYPT_E_EXISTS;
        EXPECT_TRUE(refused || GetLastError() == ERROR_NOT_ENOUGH_MEMORY) << GetLastError();
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(Serials(*store.get()), before);
      }
      CertFreeCertificateContext(out);
      EXPECT_EQ(store->records, 1u);
    }
    EXPECT_GT(faults, disposition == CERT_STORE_ADD_USE_EXISTING ? 0 : 5) << "the plan sees no allocations";
  }
}

// Whether a list is there can't be told without the memory to decode those that are: then it is not added either.
TEST(StoreFaults, ListsAreNotDoubled) {
  const StoreHandle store = OpenMemoryStore(0);
  const CrlHandle crl = CreateCrl(MakeCrl({}));
  ASSERT_TRUE(CertAddCRLContextToStore(store.get(), crl.get(), CERT_STORE_ADD_NEW, nullptr));
  for (const DWORD disposition : {CERT_STORE_ADD_NEW, CERT_STORE_ADD_REPLACE_EXISTING}) {
    for (FaultPlan plan; plan.next();) {
      const bool added =
          plan.run([&] { return CertAddCRLContextToStore(store.get(), crl.get(), disposition, nullptr); });
      EXPECT_TRUE(added || GetLastError() == CRYPT_E_EXISTS || GetLastError() == ERROR_NOT_ENOUGH_MEMORY);
      EXPECT_EQ(CountOf(*store.get(), ElementType::Crl), 1u);
    }
  }
}

TEST(StoreFaults, ContextsAndProperties) {
  const size_t before = contextRegistry.get()->size();
  const Bytes encoded = OpensslCertificate();
  for (FaultPlan plan; plan.next();) {
    CertificateHandle context;
    if (!plan.run([&] { return (context = CreateCertificate(encoded)).get() != nullptr; })) {
      EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_ENOUGH_MEMORY});
    }
  }
  EXPECT_EQ(contextRegistry.get()->size(), before);
  for (FaultPlan plan; plan.next();) {
    const CertificateHandle context = CreateCertificate(encoded);
    BYTE name[] = "12345";
    CRYPT_KEY_PROV_PARAM parameter{33, name, 5, 0};
    CRYPT_KEY_PROV_INFO info{};
    info.cProvParam = 1;
    info.rgProvParam = &parameter;
    DWORD size = 0;
    const bool set = plan.run([&] {
      return CertSetCertificateContextProperty(context.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &info)
          && CertGetCertificateContextProperty(context.get(), CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size);
    });
    EXPECT_TRUE(set || GetLastError() == ERROR_NOT_ENOUGH_MEMORY);
  }
}

TEST(StoreFaults, Opening) {
  for (FaultPlan plan; plan.next();) {
    const HCRYPTPROV provider = SVAPI_I_GetDefaultProvider(PROV_GOST_2012_256);
    HCERTSTORE store = nullptr;
    const bool opened = plan.run([&] {
      store = CertOpenStore(CERT_STORE_PROV_MEMORY, 0, provider, 0, nullptr);
      return store != nullptr;
    });
    if (opened) {
      EXPECT_TRUE(CertCloseStore(store, CERT_CLOSE_STORE_CHECK_FLAG));
    } else {
      EXPECT_TRUE(CryptReleaseContext(provider, 0)) << "a failed open leaves it with the caller";
    }
  }
}

}  // namespace
