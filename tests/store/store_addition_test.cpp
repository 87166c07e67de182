// Adding: dispositions, links, collections, read-only stores, and who is asked.
#include <certkern/errors.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "store/context_property.h"
#include "store/element_addition.h"
#include "store/fault_plan.h"
#include "store/sample_objects.h"
#include "store/store_kind.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr DWORD kFriendlyName = CERT_FRIENDLY_NAME_PROP_ID;

// A certificate with a mark that tells its copies apart.
CertificateHandle Marked(DWORD serial, BYTE mark) {
  CertificateHandle context = CreateCertificate(MakeCertificate({.serial = serial}));
  CRYPT_DATA_BLOB blob{1, &mark};
  EXPECT_TRUE(CertSetCertificateContextProperty(context.get(), kFriendlyName, 0, &blob));
  return context;
}

std::string Properties(StoreElement& element) {
  std::string all;
  for (const PropertyItem* item = element.properties->items.first(); item; item = item->next) {
    all += std::to_string(item->id);
    if (item->length == 1) all.append("=").append(std::to_string(item->bytes()[0]));
    all += ' ';
  }
  return all;
}

StoreElement& Newest(CertStore& store, ElementType type = ElementType::Certificate) {
  return *store.list(type).newest;
}

// A collection of stores that stay the caller's too.
StoreHandle Collect(std::initializer_list<std::pair<CertStore*, DWORD>> stores) {
  StoreHandle collection = OpenStore({StoreNumber(CERT_STORE_PROV_COLLECTION), 0, 0, 0, nullptr});
  auto members = std::make_shared<MemberList>();
  for (const auto& [store, updateFlags] : stores) {
    AddStoreHandle(*store);
    members->push_back(std::make_shared<CollectionMember>());
    members->back()->store.reset(store);
    members->back()->updateFlags = updateFlags;
  }
  collection->members = members;
  return collection;
}

// Added to a store that has certificate 1 with mark 1 and, newer, certificate 2: a 1 with mark 2, or a 3.
TEST(StoreAddition, Dispositions) {
  const struct {
    const char* name;
    DWORD disposition;
    DWORD serial;
    DWORD code;
    const char* serials;
    const char* newest;  // its properties
  } kCases[] = {
      {"new, absent",             CERT_STORE_ADD_NEW,                                 3, 0,              "3 2 1", "11=2 3 20 "    },
      {"new, there",              CERT_STORE_ADD_NEW,                                 1, CRYPT_E_EXISTS, "2 1",   "11=2 3 20 "    },
      {"use existing, absent",    CERT_STORE_ADD_USE_EXISTING,                        3, 0,              "3 2 1", "11=2 3 20 "    },
      {"use existing, there",     CERT_STORE_ADD_USE_EXISTING,                        1, 0,              "2 1",   "11=2 3 20 "    },
      {"replace, absent",         CERT_STORE_ADD_REPLACE_EXISTING,                    3, 0,              "3 2 1", "11=2 3 20 "    },
      {"replace, there",          CERT_STORE_ADD_REPLACE_EXISTING,                    1, 0,              "1 2",   "11=2 3 20 "    },
      {"always",                  CERT_STORE_ADD_ALWAYS,                              1, 0,              "1 2 1", "11=2 3 20 "    },
      {"inherit, absent",         CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES, 3, 0,              "3 2 1", "11=2 3 20 "    },
      {"inherit, there",          CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES, 1, 0,              "1 2",   "9=9 11=2 3 20 "},
      {"newer, absent",           CERT_STORE_ADD_NEWER,                               3, 0,              "3 2 1", "11=2 3 20 "    },
      {"the same is never newer", CERT_STORE_ADD_NEWER,                               1, CRYPT_E_EXISTS, "2 1",   "11=2 3 20 "    },
      {"below the first",         0,                                                  3, E_INVALIDARG,   "2 1",   "11=2 3 20 "    },
      {"behind the last",         7,                                                  3, E_INVALIDARG,   "2 1",   "11=2 3 20 "    },
  };
  for (const auto& [name, disposition, serial, code, serials, newest] : kCases) {
    SCOPED_TRACE(name);
    const StoreHandle store = OpenMemoryStore(0);
    const CertificateHandle first = Marked(1, 1);
    BYTE nine = 9;
    CRYPT_DATA_BLOB blob{1, &nine};
    CertSetCertificateContextProperty(first.get(), 9, 0, &blob);
    ASSERT_TRUE(CertAddCertificateContextToStore(store.get(), first.get(), CERT_STORE_ADD_NEW, nullptr));
    ASSERT_TRUE(
        CertAddCertificateContextToStore(store.get(), Marked(2, 2).get(), CERT_STORE_ADD_NEW, nullptr));
    store->dirty = false;
    const CertificateHandle added = Marked(serial, 2);
    PCCERT_CONTEXT out = added.get();
    SetLastError(0);
    EXPECT_EQ(CertAddCertificateContextToStore(store.get(), added.get(), disposition, &out), code == 0);
    const DWORD lastError = GetLastError();
    EXPECT_TRUE(!code || lastError == code) << lastError;
    EXPECT_EQ(Serials(*store.get()), serials);
    EXPECT_EQ(CountOf(*store.get(), ElementType::Certificate), (std::string(serials).size() + 1) / 2);
    EXPECT_EQ(Properties(Newest(*store.get())), newest);
    EXPECT_EQ(store->dirty, Serials(*store.get()) != "2 1");
    EXPECT_EQ(out != nullptr, code == 0);
    if (out) {
      EXPECT_EQ(out->hCertStore, store.get());
      EXPECT_EQ(out->pCertInfo->SerialNumber.pbData[0], serial);
    }
    CertFreeCertificateContext(out);
    EXPECT_EQ(store->records, 1u);
  }
}

TEST(StoreAddition, CrlsAreTheSameByWhatTheyAreFor) {
  const Bytes key1 = MakeExtension(35, FromHex("30038001AA"));
  const Bytes key2 = MakeExtension(35, FromHex("30038001BB"));
  const Bytes delta = MakeExtension(27, FromHex("020101"));
  const StoreHandle store = OpenMemoryStore(0);
  const auto add = [&](const CrlTraits& traits, DWORD disposition) -> DWORD {
    const Bytes encoded = MakeCrl(traits);
    SetLastError(0);
    const DWORD size = static_cast<DWORD>(encoded.size());
    return CertAddEncodedCRLToStore(store.get(), 1, encoded.data(), size, disposition, nullptr)
        ? 0
        : GetLastError();
  };
  const auto count = [&] { return CountOf(*store.get(), ElementType::Crl); };
  EXPECT_EQ(add({}, CERT_STORE_ADD_NEW), 0u);
  EXPECT_EQ(add({.thisUpdate = "260201000000Z"}, CERT_STORE_ADD_NEW), CRYPT_E_EXISTS)
      << "a newer list, the same line";
  EXPECT_EQ(add({.issuer = "other"}, CERT_STORE_ADD_NEW), 0u);
  EXPECT_EQ(add({.extensions = key1}, CERT_STORE_ADD_NEW), 0u);
  EXPECT_EQ(add({.extensions = key2}, CERT_STORE_ADD_NEW), 0u);
  EXPECT_EQ(add({.extensions = delta}, CERT_STORE_ADD_NEW), 0u);
  EXPECT_EQ(add({.extensions = Concat({delta, key1})}, CERT_STORE_ADD_NEW), 0u);
  EXPECT_EQ(add({.extensions = Concat({key1, delta})}, CERT_STORE_ADD_NEW), CRYPT_E_EXISTS);
  EXPECT_EQ(count(), 6u);

  EXPECT_EQ(add({}, CERT_STORE_ADD_NEWER), CRYPT_E_EXISTS);
  EXPECT_EQ(add({.thisUpdate = "251231235959Z"}, CERT_STORE_ADD_NEWER), CRYPT_E_EXISTS);
  EXPECT_EQ(add({.thisUpdate = "260101000001Z"}, CERT_STORE_ADD_NEWER), 0u);
  EXPECT_EQ(count(), 6u) << "the older one gave way";
  EXPECT_EQ(Properties(Newest(*store.get(), ElementType::Crl)), "3 ");
}

// An element that no context can be made of ends the search in its store, and the object counts as not found.
TEST(StoreAddition, AnUndecodableElementStopsNoAddition) {
  const Bytes crl = MakeCrl({});
  const auto damage = [](CertStore& store) {
    ElementOwner element = NewElement(ElementType::Crl, 1, FromHex("3000"), &store, NewPropertyBlock());
    const std::lock_guard guard(store.lock);
    LinkElement(store, std::move(element));
  };
  const auto add = [&](CertStore& store, DWORD disposition) -> DWORD {
    PCCRL_CONTEXT out = nullptr;
    const auto size = static_cast<DWORD>(crl.size());
    const BOOL added = CertAddEncodedCRLToStore(&store, 1, crl.data(), size, disposition, &out);
    EXPECT_EQ(out != nullptr, added);
    CertFreeCRLContext(out);
    return added ? 0 : GetLastError();
  };
  for (DWORD disposition = CERT_STORE_ADD_NEW; disposition <= CERT_STORE_ADD_NEWER; ++disposition) {
    SCOPED_TRACE(disposition);
    const bool refuses = disposition == CERT_STORE_ADD_NEW || disposition == CERT_STORE_ADD_NEWER;
    const StoreHandle store = OpenMemoryStore(0);
    damage(*store.get());
    EXPECT_EQ(add(*store.get(), disposition), 0u);
    EXPECT_EQ(CountOf(*store.get(), ElementType::Crl), 2u);
    EXPECT_EQ(add(*store.get(), disposition), refuses ? DWORD{CRYPT_E_EXISTS} : 0u) << "the newest is found";
    const size_t expected = disposition == CERT_STORE_ADD_ALWAYS ? 3 : 2;
    EXPECT_EQ(CountOf(*store.get(), ElementType::Crl), expected);

    const StoreHandle damaged = OpenMemoryStore(0), good = OpenMemoryStore(0);
    damage(*damaged.get());
    ASSERT_EQ(add(*good.get(), CERT_STORE_ADD_NEW), 0u);
    const StoreHandle both = Collect({
        {damaged.get(), 1},
        {good.get(),    1}
    });
    EXPECT_EQ(add(*both.get(), disposition), refuses ? DWORD{CRYPT_E_EXISTS} : 0u) << "in the next member";
    EXPECT_EQ(CountOf(*good.get(), ElementType::Crl), 1u);
  }
}

TEST(StoreAddition, FailuresHandNothingOut) {
  const StoreHandle store = OpenMemoryStore(0), collection = Collect({});
  const Bytes encoded = MakeCertificate({}), damaged = FromHex("3000");
  const CertificateHandle good = CreateCertificate(encoded);
  const CrlHandle crl = CreateCrl(MakeCrl({}));
  BYTE nobody[64] = {};
  const auto* const dead = reinterpret_cast<PCCERT_CONTEXT>(nobody + 8);
  const struct {
    const char* name;
    std::function<BOOL(PCCERT_CONTEXT*)> add;
  } kCases[] = {
      {"a dead context",
       [&](auto* out) { return CertAddCertificateContextToStore(store.get(), dead, 4, out); }         },
      {"no context",
       [&](auto* out) { return CertAddCertificateContextToStore(store.get(), nullptr, 4, out); }      },
      {"a wrong disposition",
       [&](auto* out) { return CertAddCertificateContextToStore(store.get(), good.get(), 7, out); }   },
      {"a link of a dead context",
       [&](auto* out) { return CertAddCertificateLinkToStore(store.get(), dead, 4, out); }            },
      {"a link in no store",
       [&](auto* out) { return CertAddCertificateLinkToStore(nullptr, good.get(), 4, out); }          },
      {"a link in a collection",
       [&](auto* out) { return CertAddCertificateLinkToStore(collection.get(), good.get(), 4, out); } },
      {"no bytes",
       [&](auto* out) { return CertAddEncodedCertificateToStore(store.get(), 1, nullptr, 5, 4, out); }},
      {"no size",
       [&](auto* out) {
         return CertAddEncodedCertificateToStore(store.get(), 1, encoded.data(), 0, 4, out);
       }                                                                                              },
      {"what is no certificate",
       [&](auto* out) {
         return CertAddEncodedCertificateToStore(store.get(), 1, damaged.data(), 2, 4, out);
       }                                                                                              },
  };
  for (const auto& [name, add] : kCases) {
    PCCERT_CONTEXT out = good.get();
    EXPECT_FALSE(add(&out)) << name;
    EXPECT_EQ(out, nullptr) << name;
  }
  PCCRL_CONTEXT out = crl.get();
  EXPECT_FALSE(CertAddEncodedCRLToStore(store.get(), 1, damaged.data(), 2, 4, &out));
  EXPECT_EQ(out, nullptr);
}

TEST(StoreAddition, WithoutAStore) {
  const CertificateHandle source = Marked(1, 5);
  PCCERT_CONTEXT copy = nullptr;
  EXPECT_TRUE(CertAddCertificateContextToStore(nullptr, source.get(), CERT_STORE_ADD_NEW, nullptr));
  EXPECT_TRUE(CertAddCertificateContextToStore(nullptr, source.get(), CERT_STORE_ADD_NEW, &copy));
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy, source.get());
  EXPECT_EQ(copy->hCertStore, nullptr);
  EXPECT_EQ(Properties(FindLiveContext(copy)->element()), "11=5 ");
  CertFreeCertificateContext(copy);
  EXPECT_FALSE(CertAddCertificateContextToStore(nullptr, source.get(), 7, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
}

TEST(StoreAddition, WhatCannotBeIdentifiedIsRefused) {
  const StoreHandle store = OpenMemoryStore(0);
  const CertificateHandle empty =
      CreateCertificate(MakeCertificate({.extensions = MakeExtension(14, FromHex("0400"))}));
  EXPECT_FALSE(CertAddCertificateContextToStore(store.get(), empty.get(), CERT_STORE_ADD_ALWAYS, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INTERNAL_ERROR});
  const CrlHandle crl = CreateCrl(MakeCrl({}));
  EXPECT_FALSE(CertAddCertificateContextToStore(store.get(), reinterpret_cast<PCCERT_CONTEXT>(crl.get()),
                                                CERT_STORE_ADD_ALWAYS, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER}) << "a list is no certificate";
  EXPECT_EQ(CountOf(*store.get(), ElementType::Certificate), 0u);
}

TEST(StoreAddition, LinksShareTheirProperties) {
  const StoreHandle home = OpenMemoryStore(0);
  StoreHandle linked = OpenMemoryStore(0);
  PCCERT_CONTEXT source = nullptr;
  ASSERT_TRUE(CertAddCertificateContextToStore(home.get(), Marked(1, 1).get(), CERT_STORE_ADD_NEW, &source));
  const CertificateHandle owner(source);
  PCCERT_CONTEXT link = nullptr;
  const auto add = [&](CertStore* store, DWORD disposition) -> DWORD {
    CertFreeCertificateContext(std::exchange(link, nullptr));
    return CertAddCertificateLinkToStore(store, source, disposition, &link) ? 0 : GetLastError();
  };
  EXPECT_EQ(add(linked.get(), CERT_STORE_ADD_NEW), 0u);
  EXPECT_EQ(add(linked.get(), CERT_STORE_ADD_NEW), CRYPT_E_EXISTS);
  EXPECT_EQ(add(linked.get(), CERT_STORE_ADD_ALWAYS), 0u);
  EXPECT_EQ(CountOf(*linked.get(), ElementType::Certificate), 2u);
  EXPECT_EQ(add(linked.get(), CERT_STORE_ADD_REPLACE_EXISTING), 0u);
  EXPECT_EQ(CountOf(*linked.get(), ElementType::Certificate), 1u);
  EXPECT_EQ(add(linked.get(), CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES), E_INVALIDARG);
  EXPECT_EQ(add(Collect({}).get(), CERT_STORE_ADD_NEW), E_INVALIDARG);
  EXPECT_EQ(add(nullptr, CERT_STORE_ADD_NEW), E_INVALIDARG);
  EXPECT_EQ(add(linked.get(), CERT_STORE_ADD_USE_EXISTING), 0u);
  ASSERT_NE(link, nullptr);
  StoreElement& element = FindLiveContext(link)->element();
  EXPECT_TRUE(element.isLink);
  EXPECT_NE(link, source);
  BYTE mark = 7;
  CRYPT_DATA_BLOB blob{1, &mark};
  EXPECT_TRUE(CertSetCertificateContextProperty(link, kFriendlyName, 0, &blob));
  EXPECT_EQ(Properties(FindLiveContext(source)->element()), "3 20 11=7 ");
  // the properties outlive the link, and the link what it was made from
  CertFreeCertificateContext(link);
  EXPECT_TRUE(CertAddCertificateContextToStore(linked.get(), source,
                                               CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES, nullptr));
  linked.reset();
  EXPECT_EQ(Properties(FindLiveContext(source)->element()), "3 20 11=7 ");
}

TEST(StoreAddition, PropertiesComeWithTheReplacementOrNotAtAll) {
  for (FaultPlan plan; plan.next();) {
    const StoreHandle store = OpenMemoryStore(0);
    ASSERT_TRUE(
        CertAddCertificateContextToStore(store.get(), Marked(1, 1).get(), CERT_STORE_ADD_NEW, nullptr));
    const CertificateHandle again = Marked(1, 2);
    PCCERT_CONTEXT out = nullptr;  // a context of the new element, which costs memory as well
    const bool done = plan.run([&] {
      return CertAddCertificateContextToStore(store.get(), again.get(),
                                              CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES, &out);
    });
    const std::string properties = Properties(Newest(*store.get()));
    EXPECT_NE(properties.find(done ? "11=2 " : "11=1 "), properties.npos) << plan.faults() << properties;
    CertFreeCertificateContext(out);
  }
}

TEST(StoreAddition, ReadOnlyStoresStayAsTheyAre) {
  const StoreHandle store = OpenMemoryStore(0);
  PCCERT_CONTEXT first = nullptr;
  ASSERT_TRUE(CertAddCertificateContextToStore(store.get(), Marked(1, 1).get(), CERT_STORE_ADD_NEW, &first));
  store->flags |= CERT_STORE_READONLY_FLAG;
  store->dirty = false;
  for (DWORD disposition = 1; disposition <= 6; ++disposition) {
    SCOPED_TRACE(disposition);
    EXPECT_FALSE(CertAddCertificateContextToStore(store.get(), Marked(2, 1).get(), disposition, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{E_ACCESSDENIED});
  }
  EXPECT_FALSE(CertAddCertificateContextToStore(store.get(), Marked(1, 2).get(),
                                                CERT_STORE_ADD_REPLACE_EXISTING, nullptr));
  EXPECT_FALSE(CertAddCertificateContextToStore(store.get(), Marked(1, 2).get(),
                                                CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{E_ACCESSDENIED});
  EXPECT_FALSE(CertSetCertificateContextProperty(first, kFriendlyName, 0, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{E_ACCESSDENIED});
  EXPECT_EQ(Properties(Newest(*store.get())), "11=1 3 20 ");
  DWORD size = 0;
  EXPECT_TRUE(CertGetCertificateContextProperty(first, CERT_MD5_HASH_PROP_ID, nullptr, &size))
      << "kept, not set";
  EXPECT_FALSE(CertDeleteCertificateFromStore(first));
  EXPECT_EQ(GetLastError(), DWORD{E_ACCESSDENIED});
  EXPECT_FALSE(CertFreeCertificateContext(first)) << "freed all the same";
  EXPECT_EQ(Serials(*store.get()), "1");
  EXPECT_FALSE(store->dirty);
}

TEST(StoreAddition, ArchivedObjectsAreNotSeen) {
  const CertificateHandle archived = Marked(1, 1);
  CRYPT_DATA_BLOB none{};
  CertSetCertificateContextProperty(archived.get(), CERT_ARCHIVED_PROP_ID, 0, &none);
  for (const DWORD flags : {DWORD{0}, DWORD{CERT_STORE_ENUM_ARCHIVED_FLAG}}) {
    const StoreHandle store = OpenMemoryStore(flags);
    EXPECT_TRUE(CertAddCertificateContextToStore(store.get(), archived.get(), CERT_STORE_ADD_NEW, nullptr));
    EXPECT_EQ(CertAddCertificateContextToStore(store.get(), Marked(1, 2).get(), CERT_STORE_ADD_NEW, nullptr),
              !flags);
  }
  // archiving by inheritance replaces the object, it does not double it
  const StoreHandle store = OpenMemoryStore(0);
  EXPECT_TRUE(CertAddCertificateContextToStore(store.get(), Marked(1, 2).get(), CERT_STORE_ADD_NEW, nullptr));
  EXPECT_TRUE(CertAddCertificateContextToStore(store.get(), archived.get(),
                                               CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES, nullptr));
  EXPECT_EQ(Serials(*store.get()), "1");
}

TEST(StoreAddition, Collections) {
  const StoreHandle writable = OpenMemoryStore(0);
  const StoreHandle readOnly = OpenMemoryStore(0);
  const StoreHandle disabled = OpenMemoryStore(0);
  ASSERT_TRUE(
      CertAddCertificateContextToStore(disabled.get(), Marked(1, 1).get(), CERT_STORE_ADD_NEW, nullptr));
  readOnly->flags |= CERT_STORE_READONLY_FLAG;
  const auto add = [](const StoreHandle& store, DWORD serial, DWORD disposition) -> DWORD {
    PCCERT_CONTEXT out = nullptr;
    const BOOL added =
        CertAddCertificateContextToStore(store.get(), Marked(serial, 2).get(), disposition, &out);
    EXPECT_EQ(out != nullptr, added);
    CertFreeCertificateContext(out);
    return added ? 0 : GetLastError();
  };
  const StoreHandle all = Collect({
      {disabled.get(), 0},
      {readOnly.get(), 1},
      {writable.get(), 1}
  });
  EXPECT_EQ(add(all, 2, CERT_STORE_ADD_NEW), 0u);
  EXPECT_EQ(Serials(*writable.get()), "2") << "the first that takes it";
  EXPECT_EQ(add(all, 1, CERT_STORE_ADD_NEW), CRYPT_E_EXISTS) << "in a member that takes nothing";
  EXPECT_EQ(add(all, 1, CERT_STORE_ADD_USE_EXISTING), 0u);
  EXPECT_EQ(add(all, 1, CERT_STORE_ADD_REPLACE_EXISTING), 0u);
  EXPECT_EQ(Properties(Newest(*disabled.get())), "11=2 3 20 ") << "replaced where it stands";
  EXPECT_EQ(add(all, 3, CERT_STORE_ADD_REPLACE_EXISTING), 0u);
  EXPECT_EQ(Serials(*writable.get()), "3 2");
  EXPECT_EQ(add(Collect({
                    {readOnly.get(), 1},
                    {disabled.get(), 0}
  }),
                4, CERT_STORE_ADD_NEW),
            E_ACCESSDENIED);
  EXPECT_EQ(add(Collect({
                    {writable.get(), 0}
  }),
                4, CERT_STORE_ADD_ALWAYS),
            E_ACCESSDENIED);
  EXPECT_EQ(add(Collect({}), 4, CERT_STORE_ADD_ALWAYS), E_ACCESSDENIED);
  EXPECT_EQ(writable->handles, 2u) << "one is the collection's that is left";
}

// --- the user's own roots ---

int asked = 0;
bool answer = false;

TEST(StoreAddition, UserIsAskedAboutHisRoots) {
  const auto open = [](const wchar_t* name, DWORD flags = CERT_SYSTEM_STORE_CURRENT_USER) {
    StoreHandle store = OpenMemoryStore(flags);
    store->name = name;
    return store;
  };
  const auto add = [](const StoreHandle& store, DWORD serial, DWORD disposition) -> DWORD {
    return CertAddCertificateContextToStore(store.get(), Marked(serial, 2).get(), disposition, nullptr)
        ? 0
        : GetLastError();
  };
  const StoreHandle root = open(L"RoOt");
  const RootConfirmation before = confirmRootAdd.exchange(nullptr);
  EXPECT_EQ(add(root, 1, CERT_STORE_ADD_ALWAYS), DWORD{ERROR_CANCELLED}) << "nobody can be asked";
  confirmRootAdd = [](PCCERT_CONTEXT) {
    ++asked;
    return answer;
  };
  answer = true;
  EXPECT_EQ(add(root, 1, CERT_STORE_ADD_NEW), 0u);
  EXPECT_EQ(add(root, 1, CERT_STORE_ADD_NEW), DWORD{CRYPT_E_EXISTS});
  EXPECT_EQ(add(root, 1, CERT_STORE_ADD_REPLACE_EXISTING), 0u);
  EXPECT_EQ(asked, 2) << "once for each addition, and not for what is there";
  answer = false;
  EXPECT_EQ(add(root, 1, CERT_STORE_ADD_REPLACE_EXISTING), DWORD{ERROR_CANCELLED});
  EXPECT_EQ(add(root, 2, CERT_STORE_ADD_REPLACE_EXISTING), DWORD{ERROR_CANCELLED});
  EXPECT_EQ(Serials(*root.get()), "1") << "a refusal loses nothing";
  EXPECT_EQ(asked, 4);
  StoreElement& there = Newest(*root.get());
  const std::string unchanged = Properties(there);
  BYTE mark = 9;
  const CRYPT_DATA_BLOB blob{1, &mark};
  const CertificateHandle marked = Marked(1, 3);
  CertSetCertificateContextProperty(marked.get(), 9, 0, &blob);
  const auto inherit = [&] {
    return CertAddCertificateContextToStore(root.get(), marked.get(),
                                            CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES, nullptr);
  };
  EXPECT_FALSE(inherit());
  EXPECT_EQ(GetLastError(), DWORD{ERROR_CANCELLED});
  EXPECT_EQ(Properties(there), unchanged) << "nor does it change anything";
  EXPECT_EQ(asked, 5);
  answer = true;
  EXPECT_TRUE(inherit());
  EXPECT_EQ(asked, 6) << "once";
  EXPECT_TRUE(Properties(Newest(*root.get())).starts_with("11=3 ")) << Properties(Newest(*root.get()));
  EXPECT_EQ(add(open(L"root", CERT_SYSTEM_STORE_LOCAL_MACHINE), 1, CERT_STORE_ADD_NEW), 0u);
  EXPECT_EQ(add(open(L"roots"), 1, CERT_STORE_ADD_NEW), 0u);
  const Bytes crl = MakeCrl({});
  EXPECT_TRUE(
      CertAddEncodedCRLToStore(root.get(), 1, crl.data(), static_cast<DWORD>(crl.size()), 1, nullptr));
  EXPECT_TRUE(CertAddCertificateLinkToStore(root.get(), Marked(5, 1).get(), CERT_STORE_ADD_ALWAYS, nullptr));
  EXPECT_EQ(asked, 6);
  confirmRootAdd = before;
}

}  // namespace
