// The serialized form, against bytes that were put together by hand.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/limits.h"
#include "store/sample_objects.h"
#include "store/serialized_image.h"
#include "store/store_kind.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr char kMagic[] = "0000000043455254";
constexpr char kEnd[] = "000000000000000000000000";

Bytes Word(size_t value) {
  Bytes word;
  for (int i = 0; i < 4; ++i) word.push_back(static_cast<BYTE>(value >> (8 * i)));
  return word;
}

Bytes Record(DWORD id, const Bytes& body) { return Concat({Word(id), Word(1), Word(body.size()), body}); }

Bytes Image(const Bytes& elements) { return Concat({FromHex(kMagic), elements, FromHex(kEnd)}); }

StoreHandle OpenBlob(const Bytes& image, DWORD flags = 0) {
  const CRYPT_DATA_BLOB blob{static_cast<DWORD>(image.size()), const_cast<BYTE*>(image.data())};
  SetLastError(0);
  return StoreHandle(AsStore(CertOpenStore(CERT_STORE_PROV_SERIALIZED, 0, 0, flags, &blob)));
}

Bytes Saved(CertStore& store) {
  CRYPT_DATA_BLOB blob{};
  EXPECT_TRUE(CertSaveStore(&store, 1, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_MEMORY, &blob, 0));
  Bytes image(blob.cbData);
  blob.pbData = image.data();
  EXPECT_TRUE(CertSaveStore(&store, 1, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_MEMORY, &blob, 0));
  EXPECT_EQ(blob.cbData, image.size());
  return image;
}

const Bytes& Hash() {
  static const Bytes kHash(20, 0xAB);
  return kHash;
}

TEST(SerializedImage, BytesByHand) {
  const Bytes element = FromHex(
      "0300000001000000 14000000 ABABABABABABABABABABABABABABABABABABABAB"
      "2000000001000000 05000000 3003020105");
  ASSERT_EQ(element.size(), 49u);
  const Bytes image = Image(element);
  const StoreHandle store = OpenBlob(image);
  ASSERT_TRUE(store);
  EXPECT_EQ(Saved(*store.get()), image) << "the object need not be one that can be decoded";
  EXPECT_EQ(Saved(*OpenMemoryStore(0).get()), Image({}));
  EXPECT_EQ(CountOf(*OpenBlob(Image({})).get(), ElementType::Certificate), 0u);
}

TEST(SerializedImage, OrderAndArchived) {
  const StoreHandle first = OpenMemoryStore(0), second = OpenMemoryStore(CERT_STORE_ENUM_ARCHIVED_FLAG);
  for (DWORD serial = 1; serial <= 3; ++serial) {
    const Bytes encoded = MakeCertificate({.serial = serial});
    for (CertStore* store : {first.get(), second.get()}) {
      PCCERT_CONTEXT context = nullptr;
      ASSERT_TRUE(CertAddEncodedCertificateToStore(
          store, 1, encoded.data(), static_cast<DWORD>(encoded.size()), CERT_STORE_ADD_ALWAYS, &context));
      const CRYPT_DATA_BLOB nothing{};
      if (serial == 2) CertSetCertificateContextProperty(context, CERT_ARCHIVED_PROP_ID, 0, &nothing);
      CertFreeCertificateContext(context);
    }
  }
  const Bytes crl = MakeCrl({});
  ASSERT_TRUE(CertAddEncodedCRLToStore(first.get(), 1, crl.data(), static_cast<DWORD>(crl.size()),
                                       CERT_STORE_ADD_ALWAYS, nullptr));
  const StoreHandle again = OpenBlob(Saved(*first.get()));
  EXPECT_EQ(Serials(*again.get()), "3 1");
  EXPECT_EQ(CountOf(*again.get(), ElementType::Crl), 1u);
  EXPECT_EQ(Serials(*OpenBlob(Saved(*second.get())).get()), "3 2 1");
}

struct ReadCase {
  const char* name;
  Bytes image;
  DWORD code;    // 0: it opens
  Bytes stored;  // the elements that are written again
};

TEST(SerializedImage, Reading) {
  const Bytes magic = FromHex(kMagic), object = Record(32, {5}), first = Record(3, {1}),
              last = Record(3, {3});
  const Bytes other = Record(4, {2}), odd = Record(35, {1}), trust = Record(34, {7});
  const Bytes liar = FromHex("2000000001000000FFFFFFFF"), marker = FromHex("00000000FFFFFFFFFFFFFFFF");
  const Bytes none, context = Record(5, {1});
  const ReadCase kCases[] = {
      {"shorter than the header",                   Bytes(7),                                    ERROR_END_OF_MEDIA, none                         },
      {"another magic",                             FromHex("0000000143455254"),                 CRYPT_E_FILE_ERROR, none                         },
      {"the magic and no more",                     magic,                                       ERROR_END_OF_MEDIA, none                         },
      {"without end marker",                        Concat({magic, object}),                     ERROR_END_OF_MEDIA, none                         },
      {"a marker with a length",                    Concat({magic, marker}),                     0,                  none                         },
      {"bytes behind the marker",                   Concat({Image(none), object}),               0,                  none                         },
      {"properties without an object",              Image(first),                                CRYPT_E_FILE_ERROR, none                         },
      {"a body beyond the data",                    Concat({magic, liar}),                       CRYPT_E_FILE_ERROR, none                         },
      {"35 is a property",                          Image(Concat({odd, object})),                0,                  Concat({odd, object})        },
      {"other objects take their properties along", Image(Concat({first, trust, object})),       0,                  object                       },
      {"another object at the end",                 Image(trust),                                0,                  none                         },
      {"the later of two",                          Image(Concat({first, other, last, object})), 0,                  Concat({other, last, object})},
      {"a key context is never written",            Image(Concat({context, object})),            0,                  object                       },
  };
  for (const auto& [name, image, code, stored] : kCases) {
    SCOPED_TRACE(name);
    const StoreHandle store = OpenBlob(image);
    EXPECT_EQ(!store, code != 0);
    EXPECT_EQ(GetLastError(), code);
    if (!store) continue;
    EXPECT_EQ(ToHex(Saved(*store.get())), ToHex(Image(stored)));
  }
}

TEST(SerializedImage, AKeyContextIsNeverRead) {
  const Bytes element = Concat(
      {Record(CERT_KEY_CONTEXT_PROP_ID, Bytes(24, 1)), Record(9, {2}), Record(32, OpensslCertificate())});
  const StoreHandle store = OpenBlob(Image(element));
  ASSERT_TRUE(store);
  const CertificateHandle context(AcquireContext(*store->certificates.newest)->asCertificate());
  EXPECT_EQ(CertEnumCertificateContextProperties(context.get(), 0), 9u);
  EXPECT_EQ(CertEnumCertificateContextProperties(context.get(), 9), 0u);
  DWORD size = 0;
  EXPECT_FALSE(CertGetCertificateContextProperty(context.get(), CERT_KEY_CONTEXT_PROP_ID, nullptr, &size));
}

TEST(SerializedImage, PropertiesAreBounded) {
  Bytes properties;
  for (size_t i = 0; i < kMaxElementProperties; ++i) {
    const Bytes record = Record(static_cast<DWORD>(100 + i % 20000), {});
    properties.insert(properties.end(), record.begin(), record.end());
  }
  const Bytes object = Record(32, {5});
  EXPECT_TRUE(OpenBlob(Image(Concat({properties, object}))));
  EXPECT_FALSE(OpenBlob(Image(Concat({properties, Record(3, {}), object}))));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_FILE_ERROR});
}

// Every cut fails with one of two codes; every changed byte is either refused or something that is written again as
// something that can be read.
TEST(SerializedImage, DamagedEverywhere) {
  const Bytes image = Image(
      Concat({Record(3, Hash()), Record(32, {0x30, 3, 2, 1, 5}), Record(19, {}), Record(33, {0x30, 0})}));
  for (size_t length = 0; length < image.size(); ++length) {
    const Bytes cut(image.begin(), image.begin() + static_cast<ptrdiff_t>(length));
    EXPECT_FALSE(OpenBlob(cut)) << length;
    EXPECT_TRUE(GetLastError() == ERROR_END_OF_MEDIA || GetLastError() == CRYPT_E_FILE_ERROR) << length;
  }
  for (size_t at = 0; at < image.size(); ++at) {
    for (const int change : {1, 0x20, 0x80, 0xFF}) {
      Bytes damaged = image;
      damaged[at] = static_cast<BYTE>(damaged[at] ^ change);
      const StoreHandle store = OpenBlob(damaged, CERT_STORE_ENUM_ARCHIVED_FLAG);
      if (!store) continue;
      const Bytes written = Saved(*store.get());
      const StoreHandle again = OpenBlob(written, CERT_STORE_ENUM_ARCHIVED_FLAG);
      ASSERT_TRUE(again) << at;
      EXPECT_EQ(Saved(*again.get()), written) << at;
    }
  }
}

TEST(SerializedElement, WrittenAndAdded) {
  const CertificateHandle certificate = CreateCertificate(OpensslCertificate());
  DWORD size = 0;
  ASSERT_TRUE(CertSerializeCertificateStoreElement(certificate.get(), 0, nullptr, &size));
  EXPECT_EQ(size, 12 + OpensslCertificate().size()) << "a hash that nobody asked for is not written";
  const CRYPT_DATA_BLOB name{2, const_cast<BYTE*>(Hash().data())};
  ASSERT_TRUE(CertSetCertificateContextProperty(certificate.get(), CERT_FRIENDLY_NAME_PROP_ID, 0, &name));
  ASSERT_TRUE(CertSetCertificateContextProperty(certificate.get(), 40, 0, &name)) << "never written";
  const Bytes expected =
      Concat({Record(CERT_FRIENDLY_NAME_PROP_ID, {0xAB, 0xAB}), Record(32, OpensslCertificate())});
  Bytes element(expected.size());
  size = static_cast<DWORD>(element.size() - 1);
  EXPECT_FALSE(CertSerializeCertificateStoreElement(certificate.get(), 0, element.data(), &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  ASSERT_TRUE(CertSerializeCertificateStoreElement(certificate.get(), 0, element.data(), &size));
  EXPECT_EQ(element, expected);
  EXPECT_FALSE(CertSerializeCertificateStoreElement(certificate.get(), 1, nullptr, &size));
  EXPECT_FALSE(
      CertSerializeCRLStoreElement(reinterpret_cast<PCCRL_CONTEXT>(certificate.get()), 0, nullptr, &size));

  const StoreHandle store = OpenMemoryStore(0);
  DWORD type = 0;
  const void* added = nullptr;
  ASSERT_TRUE(CertAddSerializedElementToStore(store.get(), element.data(), static_cast<DWORD>(element.size()),
                                              CERT_STORE_ADD_NEW, 0, CERT_STORE_CERTIFICATE_CONTEXT_FLAG,
                                              &type, &added));
  EXPECT_EQ(type, DWORD{CERT_STORE_CERTIFICATE_CONTEXT});
  const CertificateHandle context(static_cast<PCCERT_CONTEXT>(added));
  EXPECT_EQ(context->hCertStore, store.get());
  DWORD length = 0;
  EXPECT_TRUE(CertGetCertificateContextProperty(context.get(), CERT_FRIENDLY_NAME_PROP_ID, nullptr, &length));
  EXPECT_EQ(length, 2u);
}

TEST(SerializedElement, Refusals) {
  const Bytes crl = Record(33, MakeCrl({}));
  const Bytes none, trust = Record(34, {1}), broken = Record(32, {0x30, 2, 1});
  const struct {
    const char* name;
    Bytes element;
    DWORD flags, allowed, code;
  } kCases[] = {
      {"no bytes",        none,          0, 0xFFFFFFFF, ERROR_INVALID_PARAMETER},
      {"flags",           crl,           1, 0xFFFFFFFF, ERROR_INVALID_PARAMETER},
      {"the other kind",  crl,           0, 2,          E_INVALIDARG           },
      {"two kinds",       crl,           0, 6,          E_INVALIDARG           },
      {"an end marker",   FromHex(kEnd), 0, 0xFFFFFFFF, CRYPT_E_FILE_ERROR     },
      {"half a header",   Bytes(11),     0, 0xFFFFFFFF, ERROR_END_OF_MEDIA     },
      {"a list of trust", trust,         0, 0xFFFFFFFF, ERROR_END_OF_MEDIA     },
      {"no certificate",  broken,        0, 0xFFFFFFFF, CRYPT_E_ASN1_EOD       },
  };
  const StoreHandle store = OpenMemoryStore(0);
  for (const auto& [name, element, flags, allowed, code] : kCases) {
    SCOPED_TRACE(name);
    DWORD type = 77;
    SetLastError(0);
    EXPECT_FALSE(CertAddSerializedElementToStore(store.get(), element.data(),
                                                 static_cast<DWORD>(element.size()), CERT_STORE_ADD_NEW,
                                                 flags, allowed, &type, nullptr));
    EXPECT_EQ(GetLastError(), code);
    EXPECT_EQ(type, 77u);
  }
  EXPECT_EQ(CountOf(*store.get(), ElementType::Crl), 0u);
}

}  // namespace
