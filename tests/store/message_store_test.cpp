// Stores that are read from messages: open ones, encoded ones, and files of them.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/msg.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "store/sample_objects.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::test;

namespace {

using Message = Owner<HCRYPTMSG, CryptMsgClose>;

// SignedData that signs nothing: version 1, no digests, no content, the objects, no signers.
Bytes Bag(const Bytes& certificates, const Bytes& crls) {
  const Bytes data = Der(0x30,
                         Concat({FromHex("020101 3100 300b06092a864886f70d010701"), Der(0xA0, certificates),
                                 Der(0xA1, crls), FromHex("3100")}));
  return Der(0x30, Concat({FromHex("06092a864886f70d010702"), Der(0xA0, data)}));
}
Bytes SampleBag() {
  return Bag(Concat({MakeCertificate({.serial = 1}), MakeCertificate({.serial = 2})}), MakeCrl({}));
}

StoreHandle OpenFrom(LPCSTR provider, const void* parameter, DWORD flags = 0, HCRYPTPROV cryptProvider = 0) {
  SetLastError(0);
  return StoreHandle(AsStore(CertOpenStore(provider, X509_ASN_ENCODING, cryptProvider, flags, parameter)));
}
StoreHandle OpenBlob(const Bytes& encoded) {
  const CRYPT_DATA_BLOB blob = {static_cast<DWORD>(encoded.size()), const_cast<BYTE*>(encoded.data())};
  return OpenFrom(CERT_STORE_PROV_PKCS7, &blob);
}
Message OpenMessage(const Bytes& encoded) {
  Message message(CryptMsgOpenToDecode(0, 0, 0, 0, nullptr, nullptr));
  EXPECT_TRUE(CryptMsgUpdate(message.get(), encoded.data(), static_cast<DWORD>(encoded.size()), TRUE));
  return message;
}

// The message's order is the order of additions, and the newest comes first.
void ExpectSample(const StoreHandle& store) {
  ASSERT_TRUE(store) << std::hex << GetLastError();
  EXPECT_EQ(Serials(*store.get()), "2 1");
  EXPECT_EQ(CountOf(*store.get(), ElementType::Crl), 1u);
}

}  // namespace

TEST(MessageStore, HoldsWhatAnOpenMessageHolds) {
  Message message = OpenMessage(SampleBag());
  const StoreHandle store = OpenFrom(CERT_STORE_PROV_MSG, message.get(), CERT_STORE_READONLY_FLAG);
  message.reset();
  ExpectSample(store);
  const Bytes another = MakeCertificate({.serial = 3});
  EXPECT_TRUE(CertAddEncodedCertificateToStore(store.get(), X509_ASN_ENCODING, another.data(),
                                               static_cast<DWORD>(another.size()), CERT_STORE_ADD_ALWAYS,
                                               nullptr))
      << "the flag is cleared";

  const Message encoder(CryptMsgOpenToEncode(X509_ASN_ENCODING, 0, CMSG_DATA, nullptr, nullptr, nullptr));
  const StoreHandle empty = OpenFrom(CERT_STORE_PROV_MSG, encoder.get());
  ASSERT_TRUE(empty);
  EXPECT_EQ(Serials(*empty.get()), "");
}

TEST(MessageStore, AMessageThatCannotTellIsNoStore) {
  HCRYPTPROV provider = 0;
  ASSERT_TRUE(CryptAcquireContextA(&provider, nullptr, nullptr, PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT));
  const Message untold(CryptMsgOpenToDecode(0, 0, 0, 0, nullptr, nullptr));
  EXPECT_FALSE(OpenFrom(CERT_STORE_PROV_MSG, untold.get(), 0, provider));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(OpenFrom(CERT_STORE_PROV_MSG, nullptr, 0, provider));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  const Message data = OpenMessage(FromHex("301206092a864886f70d010701a0050403616263"));
  EXPECT_FALSE(OpenFrom(CERT_STORE_PROV_MSG, data.get(), 0, provider));
  EXPECT_EQ(GetLastError(), DWORD(E_INVALIDARG));
  EXPECT_TRUE(CryptReleaseContext(provider, 0)) << "the caller's, as nothing came of it";
}

// Anybody may add such things to a message.
TEST(MessageStore, WhatDoesNotDecodeIsLeftOut) {
  const Bytes broken = FromHex("3003020100"), attributes = FromHex("a203020100"), list = MakeCrl({});
  const Bytes bag = Bag(Concat({broken, MakeCertificate({}), attributes}), Concat({broken, list}));
  const Message message = OpenMessage(bag);
  for (const StoreHandle& store : {OpenFrom(CERT_STORE_PROV_MSG, message.get()), OpenBlob(bag)}) {
    ASSERT_TRUE(store) << std::hex << GetLastError();
    EXPECT_EQ(Serials(*store.get()), "1");
    EXPECT_EQ(store->crls.size, 1u);
  }
  BYTE bytes[8];
  DWORD size = sizeof bytes;
  EXPECT_TRUE(CryptMsgGetParam(message.get(), CMSG_CERT_PARAM, 0, bytes, &size)) << "but the message has it";
  EXPECT_EQ(Bytes(bytes, bytes + size), broken);
}

TEST(MessageStore, EncodedMessages) {
  ExpectSample(OpenBlob(SampleBag()));
  struct Case {
    const char* name;
    Bytes encoded;
    DWORD code;
  };
  Bytes cut = SampleBag();
  cut.pop_back();
  const Case cases[] = {
      {"cut short",       cut,                                                 CRYPT_E_ASN1_CORRUPT    },
      {"a certificate",   MakeCertificate({}),                                 CRYPT_E_INVALID_MSG_TYPE},
      {"a plain message", FromHex("301206092a864886f70d010701a0050403616263"), CRYPT_E_INVALID_MSG_TYPE},
  };
  for (const auto& [name, encoded, code] : cases) {
    EXPECT_FALSE(OpenBlob(encoded)) << name;
    EXPECT_EQ(GetLastError(), code) << name;
  }
  const CRYPT_DATA_BLOB nothing = {0, nullptr};
  EXPECT_FALSE(OpenFrom(CERT_STORE_PROV_PKCS7, &nothing));
  EXPECT_EQ(GetLastError(), DWORD(CRYPT_E_STREAM_MSG_NOT_READY));
  EXPECT_FALSE(OpenFrom(CERT_STORE_PROV_PKCS7, nullptr));
  const CRYPT_DATA_BLOB nowhere = {5, nullptr};
  EXPECT_FALSE(OpenFrom(CERT_STORE_PROV_PKCS7, &nowhere));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

// Newest last, as they were added, and what is archived stays at home. The bag is what openssl writes, too.
TEST(MessageStore, IsSavedAsAMessage) {
  const StoreHandle store = OpenBlob(SampleBag());
  ASSERT_TRUE(store);
  CRYPT_DATA_BLOB blob{};
  const auto save = [&] {
    SetLastError(0);
    return CertSaveStore(store.get(), X509_ASN_ENCODING, CERT_STORE_SAVE_AS_PKCS7, CERT_STORE_SAVE_TO_MEMORY,
                         &blob, 0);
  };
  ASSERT_TRUE(save()) << std::hex << GetLastError();
  const Bytes expected = SampleBag();
  Bytes saved(blob.cbData);
  blob.pbData = saved.data();
  ASSERT_TRUE(save());
  EXPECT_EQ(saved, expected);
  --blob.cbData;
  EXPECT_FALSE(save());
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(blob.cbData, expected.size());
  ExpectSample(OpenBlob(saved));
}

// Each of them looked up from the start, this would take minutes.
TEST(MessageStore, ManyObjectsTakeAStepEach) {
  constexpr size_t kMany = 300'000;
  Bytes objects;
  for (size_t i = 0; i < kMany; ++i) objects.insert(objects.end(), {0x30, 0x00});
  const Bytes last = MakeCertificate({});
  objects.insert(objects.end(), last.begin(), last.end());
  const StoreHandle store = OpenBlob(Bag(objects, MakeCrl({})));
  ASSERT_TRUE(store);
  EXPECT_EQ(store->certificates.size, 1u);
}

TEST(MessageStore, FilesBecomeStoreFilesWhenTheyAreWritten) {
  char name[] = "/tmp/certkern_p7b_XXXXXX";
  ASSERT_TRUE(::mkdtemp(name));
  const std::string path = std::string(name) + "/bag.p7b";
  const auto write = [&](const std::string& text) { std::ofstream(path, std::ios::binary) << text; };
  const auto open = [&](DWORD flags) { return OpenFrom(CERT_STORE_PROV_FILENAME_A, path.c_str(), flags); };
  const Bytes bag = SampleBag();
  std::string pem(4096, '\0');
  DWORD size = static_cast<DWORD>(pem.size());
  ASSERT_TRUE(CryptBinaryToStringA(bag.data(), static_cast<DWORD>(bag.size()), CRYPT_STRING_BASE64HEADER,
                                   pem.data(), &size));
  pem.resize(size);
  write(pem);
  ExpectSample(open(0));

  write(std::string(bag.begin(), bag.end()));
  {
    const StoreHandle store = open(CERT_FILE_STORE_COMMIT_ENABLE_FLAG);
    ExpectSample(store);
    const Bytes another = MakeCertificate({.serial = 3});
    EXPECT_TRUE(CertAddEncodedCertificateToStore(store.get(), X509_ASN_ENCODING, another.data(),
                                                 static_cast<DWORD>(another.size()), CERT_STORE_ADD_ALWAYS,
                                                 nullptr));
  }
  std::string begin(8, '\0');
  std::ifstream(path, std::ios::binary).read(begin.data(), 8);
  EXPECT_EQ(begin, std::string("\0\0\0\0CERT", 8));
  const StoreHandle again = open(0);
  ASSERT_TRUE(again);
  EXPECT_EQ(Serials(*again.get()), "3 2 1");

  write(std::string(bag.begin(), bag.end() - 1));
  EXPECT_FALSE(open(0));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_FILE_ERROR});
  std::filesystem::remove_all(name);
}
