// The index must never show: searches on changing stores against a model that knows nothing of it.
#include <certkern/errors.h>
#include <certkern/find.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "platform/limits.h"
#include "store/find.h"
#include "store/sample_objects.h"
#include "store/store_kind.h"

using namespace certkern;
using namespace certkern::test;

namespace {

CRYPT_DATA_BLOB Blob(const Bytes& bytes) {
  return {static_cast<DWORD>(bytes.size()), const_cast<BYTE*>(bytes.data())};
}

// What the model knows of an element; the context keeps its address from being given to another.
struct Known {
  CertificateHandle context;
  const StoreElement* element;
  Bytes sha1, keyIdentifier;
  bool archived;
  CERT_INFO& info() const { return *context->pCertInfo; }
};

bool Same(const CRYPT_DATA_BLOB& a, const CRYPT_DATA_BLOB& b) {
  return Bytes(a.pbData, a.pbData + a.cbData) == Bytes(b.pbData, b.pbData + b.cbData);
}

class Model {
 public:
  const StoreHandle store = OpenMemoryStore(0);
  std::vector<Known> all;  // oldest first
  std::mt19937 random{20260711};

  size_t below(size_t bound) { return random() % bound; }
  void add();
  void remove(size_t at) {
    ASSERT_TRUE(CertDeleteCertificateFromStore(CertDuplicateCertificateContext(all[at].context.get())));
    all.erase(all.begin() + static_cast<std::ptrdiff_t>(at));
  }
  void setHash(size_t at) {
    all[at].sha1 = {static_cast<BYTE>(below(3))};
    const CRYPT_DATA_BLOB blob = Blob(all[at].sha1);
    ASSERT_TRUE(CertSetCertificateContextProperty(all[at].context.get(), CERT_SHA1_HASH_PROP_ID, 0, &blob));
  }
  void compare();

 private:
  template <class Matches>
  void compareOne(const char* name, DWORD type, const void* parameter, bool seesArchived, Matches matches);
};

void Model::add() {
  const Bytes keyIdentifier{static_cast<BYTE>(below(5))};
  const Bytes encoded = MakeCertificate({.subject = std::to_string(below(6)),
                                         .serial = static_cast<DWORD>(below(4)),
                                         .issuer = std::to_string(below(3)),
                                         .extensions = MakeExtension(14, Der(0x04, keyIdentifier))});
  PCCERT_CONTEXT context = nullptr;
  ASSERT_TRUE(CertAddEncodedCertificateToStore(
      store.get(), 1, encoded.data(), static_cast<DWORD>(encoded.size()), CERT_STORE_ADD_ALWAYS, &context));
  Bytes sha1(20);
  DWORD size = 20;
  ASSERT_TRUE(CertGetCertificateContextProperty(context, CERT_SHA1_HASH_PROP_ID, sha1.data(), &size));
  const bool archived = below(6) == 0;
  const CRYPT_DATA_BLOB none{};
  if (archived) CertSetCertificateContextProperty(context, CERT_ARCHIVED_PROP_ID, 0, &none);
  all.push_back(
      {CertificateHandle(context), &FindLiveContext(context)->element(), sha1, keyIdentifier, archived});
}

// Runs the search to its end; now and then the element that it stands on leaves the list meanwhile.
template <class Matches>
void Model::compareOne(const char* name, DWORD type, const void* parameter, bool seesArchived,
                       Matches matches) {
  std::vector<const StoreElement*> expected, found;
  for (size_t i = all.size(); i--;) {
    if (matches(all[i]) && (seesArchived || !all[i].archived)) expected.push_back(all[i].element);
  }
  std::vector<CertificateHandle> held;  // so that what is deleted can still be told apart
  PCCERT_CONTEXT context = nullptr;
  while ((context = CertFindCertificateInStore(store.get(), 1, 0, type, parameter, context))) {
    found.push_back(&FindLiveContext(context)->element());
    if (below(8)) continue;
    held.emplace_back(CertDuplicateCertificateContext(context));
    for (size_t i = 0; i < all.size(); ++i) {
      if (all[i].element == found.back()) remove(i);
    }
  }
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_NOT_FOUND}) << name;
  EXPECT_EQ(found, expected) << name << " of " << all.size();
}

void Model::compare() {
  const size_t at = below(all.size());
  const CertificateHandle subject(CertDuplicateCertificateContext(all[at].context.get()));
  const CERT_INFO& info = *subject->pCertInfo;
  const Bytes sha1 = all[at].sha1, keyIdentifier = all[at].keyIdentifier;
  const CRYPT_DATA_BLOB hash = Blob(sha1), key = Blob(keyIdentifier);
  compareOne("SHA-1", CERT_FIND_SHA1_HASH, &hash, true, [&](const Known& k) { return k.sha1 == sha1; });
  compareOne("key identifier", CERT_FIND_KEY_IDENTIFIER, &key, false,
             [&](const Known& k) { return k.keyIdentifier == keyIdentifier; });
  compareOne("subject", CERT_FIND_SUBJECT_NAME, &info.Subject, false,
             [&](const Known& k) { return Same(k.info().Subject, info.Subject); });
  compareOne("issuer and serial number", CERT_FIND_SUBJECT_CERT, &info, true, [&](const Known& k) {
    return Same(k.info().Issuer, info.Issuer) && Same(k.info().SerialNumber, info.SerialNumber);
  });
  Bytes bytes(subject->pbCertEncoded, subject->pbCertEncoded + subject->cbCertEncoded);
  // a caller's own, with another's fields, which are not compared
  const CERT_CONTEXT made{1, bytes.data(), subject->cbCertEncoded, all[0].context->pCertInfo, nullptr};
  compareOne("existing", CERT_FIND_EXISTING, below(2) ? subject.get() : &made, false, [&](const Known& k) {
    return bytes == Bytes(k.context->pbCertEncoded, k.context->pbCertEncoded + k.context->cbCertEncoded);
  });
}

// Duplicates of every key, archived ones, hashes set by hand, deletions between searches and in the middle of one; the
// size wanders across the smallest that is indexed.
TEST(StoreIndex, NeverShows) {
  Model model;
  size_t goal = 10;
  for (int round = 0; round < 400 && !::testing::Test::HasFailure(); ++round) {
    if (model.below(20) == 0) goal = 1 + model.below(150);
    for (size_t i = model.below(12); i--;) {
      const bool grow = model.all.size() < goal ? model.below(4) != 0 : model.below(4) == 0;
      if (grow || model.all.size() < 2) {
        model.add();
      } else {
        model.remove(model.below(model.all.size()));
      }
    }
    if (model.below(5) == 0) model.setHash(model.below(model.all.size()));
    model.compare();
  }
}

// Two stores live through the same additions; one looks for what is there in its index, the other has to walk.
TEST(StoreIndex, AdditionsNeverTellItApart) {
  const StoreHandle indexed = OpenMemoryStore(0), walked = OpenMemoryStore(0);
  std::mt19937 random{20260712};
  const auto add = [](const StoreHandle& store, PCCERT_CONTEXT source, DWORD disposition) -> std::string {
    PCCERT_CONTEXT out = nullptr;
    if (!CertAddCertificateContextToStore(store.get(), source, disposition, &out))
      return std::to_string(GetLastError());
    const CertificateHandle added(out);
    return std::to_string(FindLiveContext(out)->element().sequence);
  };
  for (DWORD round = 0; round < 1500 && !::testing::Test::HasFailure(); ++round) {
    // issuers and serial numbers meet in certificates with different bytes as well
    const CertificateHandle source =
        CreateCertificate(MakeCertificate({.subject = std::to_string(random() % 3),
                                           .serial = DWORD(random() % 90),
                                           .issuer = std::to_string(random() % 2)}));
    const CRYPT_DATA_BLOB none{};
    if (random() % 8 == 0) CertSetCertificateContextProperty(source.get(), CERT_ARCHIVED_PROP_ID, 0, &none);
    const DWORD disposition = 1 + random() % 6;
    indexed->certificates.walked = kWalksBeforeIndex * indexed->certificates.size;
    walked->certificates.walked = 0;
    EXPECT_EQ(add(indexed, source.get(), disposition), add(walked, source.get(), disposition)) << disposition;
  }
  EXPECT_EQ(Serials(*indexed.get()), Serials(*walked.get()));
  EXPECT_TRUE(indexed->certificates.index && !walked->certificates.index);
}

// The same for lists, which are told apart by issuer, authority key identifier and whether they are deltas.
TEST(StoreIndex, AdditionsOfListsNeverTellItApart) {
  const StoreHandle indexed = OpenMemoryStore(0), walked = OpenMemoryStore(0);
  std::mt19937 random{20261122};
  const auto add = [](const StoreHandle& store, PCCRL_CONTEXT source, DWORD disposition) -> std::string {
    PCCRL_CONTEXT out = nullptr;
    if (!CertAddCRLContextToStore(store.get(), source, disposition, &out))
      return std::to_string(GetLastError());
    const CrlHandle added(out);
    return std::to_string(FindLiveContext(out)->element().sequence);
  };
  const auto sequencesOf = [](const StoreHandle& store, PCCRL_CONTEXT wanted) {
    std::vector<uint64_t> found;
    PCCRL_CONTEXT at = nullptr;
    while ((at = CertFindCRLInStore(store.get(), 1, 0, CRL_FIND_EXISTING, wanted, at)))
      found.push_back(FindLiveContext(at)->element().sequence);
    return found;
  };
  for (DWORD round = 0; round < 1500 && !::testing::Test::HasFailure(); ++round) {
    Bytes extensions =
        random() % 3 ? MakeExtension(35, Der(0x04, {static_cast<BYTE>(random() % 40)})) : Bytes();
    if (random() % 2) extensions = Concat({extensions, MakeExtension(27, {0x02, 0x01, 0x01})});
    const CrlHandle source =
        CreateCrl(MakeCrl({.issuer = std::to_string(random() % 2),
                           .thisUpdate = std::to_string(260101000000 + random() % 3) + "Z",
                           .extensions = extensions}));
    const CRYPT_DATA_BLOB none{};
    if (random() % 8 == 0) CertSetCRLContextProperty(source.get(), CERT_ARCHIVED_PROP_ID, 0, &none);
    const DWORD disposition = 1 + random() % 6;
    indexed->crls.walked = kWalksBeforeIndex * indexed->crls.size;
    walked->crls.walked = 0;
    EXPECT_EQ(add(indexed, source.get(), disposition), add(walked, source.get(), disposition)) << disposition;
    EXPECT_FALSE(walked->crls.index);
    EXPECT_EQ(sequencesOf(indexed, source.get()), sequencesOf(walked, source.get()));
    walked->crls.index.reset();
  }
  EXPECT_TRUE(indexed->crls.index);
}

// A decoded record that waits for the next search of the same certificate is the only one that waits.
TEST(StoreIndex, WhatIsFoundStaysDecoded) {
  const StoreHandle store = OpenMemoryStore(0);
  for (const size_t extension : {size_t{10}, size_t{5000}}) {
    const Bytes encoded = MakeCertificate({.extensions = MakeExtension(99, Bytes(extension))});
    PCCERT_CONTEXT context = nullptr;
    ASSERT_TRUE(CertAddEncodedCertificateToStore(
        store.get(), 1, encoded.data(), static_cast<DWORD>(encoded.size()), CERT_STORE_ADD_ALWAYS, &context));
    StoreElement& element = FindLiveContext(context)->element();
    CertFreeCertificateContext(context);
    CertificateHandle(CertFindCertificateInStore(store.get(), 1, 0, CERT_FIND_ANY, nullptr, nullptr)).reset();
    EXPECT_EQ(element.info, nullptr) << "nobody has searched for it";
    const CertificateHandle wanted = CreateCertificate(encoded);
    for (int round = 0; round < 3; ++round) {
      CERT_INFO* known = static_cast<CERT_INFO*>(element.info);
      const CertificateHandle found(
          CertFindCertificateInStore(store.get(), 1, 0, CERT_FIND_EXISTING, wanted.get(), nullptr));
      ASSERT_TRUE(found);
      EXPECT_EQ(element.info, nullptr) << "the context has it";
      EXPECT_TRUE(!known || found->pCertInfo == known);
      EXPECT_EQ(found->pCertInfo->SerialNumber.cbData, wanted->pCertInfo->SerialNumber.cbData);
    }
    EXPECT_EQ(element.info != nullptr, extension < kMaxKeptInfo);
  }
}

// Objects that differ in a number alone; false: it is there already.
bool AddNewCertificate(CertStore& store, DWORD number) {
  const CertificateHandle source = CreateCertificate(MakeCertificate({.serial = number}));
  return CertAddCertificateContextToStore(&store, source.get(), CERT_STORE_ADD_NEW, nullptr) != FALSE;
}
bool AddNewCrl(CertStore& store, DWORD number) {
  const Bytes key{static_cast<BYTE>(number >> 8), static_cast<BYTE>(number)};
  const CrlHandle source = CreateCrl(MakeCrl({.extensions = MakeExtension(35, Der(0x04, key))}));
  return CertAddCRLContextToStore(&store, source.get(), CERT_STORE_ADD_NEW, nullptr) != FALSE;
}

TEST(StoreIndex, ManyAdditionsAreNoWalks) {
  constexpr DWORD kCount = 10'000;
  const struct {
    bool (*add)(CertStore& store, DWORD number);
    ElementType type;
  } kKinds[] = {
      {AddNewCertificate, ElementType::Certificate},
      {AddNewCrl,         ElementType::Crl        },
  };
  for (const auto& [add, type] : kKinds) {
    const StoreHandle store = OpenMemoryStore(0);
    const ElementList& list = store->list(type);
    for (DWORD i = 0; i < kSmallestIndexedList; ++i) ASSERT_TRUE(add(*store.get(), i));
    EXPECT_FALSE(list.index) << "a few additions take no memory";
    for (DWORD i = kSmallestIndexedList; i < kCount; ++i) ASSERT_TRUE(add(*store.get(), i));
    for (DWORD i = 0; i < kCount; ++i) ASSERT_FALSE(add(*store.get(), i));
    EXPECT_LE(list.walked, kWalksBeforeIndex * kCount);
  }
}

// An element that can't be decoded ends a walk, and must end it where there is an index as well.
TEST(StoreIndex, WhatCanNotBeDecodedIsInTheWay) {
  for (const DWORD count : {8u, 80u}) {
    const StoreHandle store = OpenMemoryStore(0);
    StoreElement* damaged = nullptr;
    for (DWORD serial = 1; serial <= count; ++serial) {
      const std::lock_guard guard(store->lock);
      LinkElement(
          *store.get(),
          NewElement(ElementType::Certificate, 1, MakeCertificate({.serial = serial}), store.get(), {}));
      if (serial != 4) continue;
      LinkElement(*store.get(), NewElement(ElementType::Certificate, 1, Bytes{0x30, 0}, store.get(), {}));
      damaged = store->certificates.newest;
    }
    const auto finds = [&](DWORD serial) {
      const CertificateHandle wanted = CreateCertificate(MakeCertificate({.serial = serial}));
      return static_cast<bool>(CertificateHandle(
          CertFindCertificateInStore(store.get(), 1, 0, CERT_FIND_SUBJECT_CERT, wanted->pCertInfo, nullptr)));
    };
    EXPECT_TRUE(finds(5)) << count;
    EXPECT_FALSE(finds(4)) << count;
    {
      const std::lock_guard guard(store->lock);
      const ElementOwner gone = UnlinkElement(*store.get(), *damaged);
    }
    EXPECT_TRUE(finds(4)) << count;
  }
}

// A query that counts how often it is asked.
class CountingQuery final : public ElementQuery {
 public:
  CountingQuery(const Bytes& bytes, IndexQuestion question) : bytes_(bytes), question_(question) {}
  ElementType type() const override { return ElementType::Certificate; }
  Found matches(StoreElement& element, ContextOwner&) const override {
    ++asked;
    const std::span<const BYTE> encoded = element.encoded();
    return Bytes(encoded.begin(), encoded.end()) == bytes_ ? Found::Yes : Found::No;
  }
  std::optional<IndexQuestion> question() const override { return question_; }
  mutable size_t asked = 0;

 private:
  const Bytes& bytes_;
  const IndexQuestion question_;
};

TEST(StoreIndex, AHundredThousandAreNoWalk) {
  constexpr DWORD kCount = 100'000;
  const StoreHandle store = OpenMemoryStore(0);
  const auto sample = [](DWORD i) {
    return MakeCertificate(
        {.subject = std::to_string(i),
         .serial = i,
         .extensions = MakeExtension(14, Der(0x04, {BYTE(i), BYTE(i >> 8), BYTE(i >> 16)}))});
  };
  {
    const std::lock_guard guard(store->lock);
    for (DWORD i = 0; i < kCount; ++i)
      LinkElement(*store.get(), NewElement(ElementType::Certificate, 1, sample(i), store.get(), {}));
  }
  EXPECT_FALSE(store->certificates.index) << "nobody has searched";
  size_t asked = 0, searches = 0;
  for (DWORD i = 0; i < kCount; i += kCount / 100, searches += kIndexKeys) {
    const Bytes encoded = sample(i);
    const CertificateHandle wanted = CreateCertificate(encoded);
    const CERT_INFO& info = *wanted->pCertInfo;
    Bytes sha1(20);
    DWORD size = 20;
    CertGetCertificateContextProperty(wanted.get(), CERT_SHA1_HASH_PROP_ID, sha1.data(), &size);
    const Bytes keyIdentifier{BYTE(i), BYTE(i >> 8), BYTE(i >> 16)};
    const IndexQuestion questions[] = {
        AskBytes(IndexKey::Sha1, sha1), AskBytes(IndexKey::KeyIdentifier, keyIdentifier),
        AskBytes(IndexKey::Subject, {info.Subject.pbData, info.Subject.cbData}),
        AskIssuerSerial(info.Issuer, info.SerialNumber)};
    for (const IndexQuestion& question : questions) {
      const CountingQuery query(encoded, question);
      ContextOwner found;
      EXPECT_EQ(FindInStore(*store.get(), query, nullptr, found), Found::Yes) << i;
      asked += query.asked;
    }
  }
  EXPECT_LE(asked, searches + 3) << "but for a few equal hashes each search compares once";
  const auto& index = static_cast<const StoreIndex&>(*store->certificates.index);
  EXPECT_LE(index.bytes(), size_t{64} * kCount);
  // what is added and removed afterwards costs no more
  {
    const std::lock_guard guard(store->lock);
    for (DWORD i = 0; i < 5'000; ++i) {
      LinkElement(*store.get(), NewElement(ElementType::Certificate, 1, sample(kCount + i), store.get(), {}));
      const ElementOwner gone = UnlinkElement(*store.get(), *store->certificates.oldest);
    }
    for (const IndexKey key : {IndexKey::Subject, IndexKey::Sha1})
      EXPECT_TRUE(SearchableIndex(store->certificates, key));
  }
  EXPECT_LE(index.bytes(), size_t{64} * kCount);
}

}  // namespace
