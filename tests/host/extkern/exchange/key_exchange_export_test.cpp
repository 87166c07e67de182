// What is exported here, opened by the openssl program, and here where it opens nothing.
#include <gtest/gtest.h>

#include "common/der.h"
#include "host/extkern/exchange/key_exchange_messages.h"
#include "interop/openssl_tool.h"

namespace der = certkern::der;

namespace {

constexpr char k28147[] = "1.2.643.2.2.21";
constexpr char kMagma[] = "1.2.643.7.1.1.5.1.1";
constexpr char kMagmaOmac[] = "1.2.643.7.1.1.5.1.2";
constexpr char kKuznyechik[] = "1.2.643.7.1.1.5.2.1";
constexpr char kKuznyechikOmac[] = "1.2.643.7.1.1.5.2.2";
constexpr char kAes128[] = "2.16.840.1.101.3.4.1.2";
constexpr char kAes192[] = "2.16.840.1.101.3.4.1.22";
constexpr char kAes256[] = "2.16.840.1.101.3.4.1.42";
constexpr char k3Des[] = "1.2.840.113549.3.7";
constexpr char kOaep[] = "1.2.840.113549.1.1.7";
// What openssl opens: sections of GOST R 34.12 are shorter there when it decrypts.
constexpr size_t kMagmaLimit = 1016;
constexpr size_t kKuznyechikLimit = 4080;

constexpr char kRsa[] = "-algorithm RSA -pkeyopt rsa_keygen_bits:2048";
constexpr char kP256[] = "-algorithm EC -pkeyopt ec_paramgen_curve:P-256";
constexpr char kP384[] = "-algorithm EC -pkeyopt ec_paramgen_curve:P-384";
constexpr char kP521[] = "-algorithm EC -pkeyopt ec_paramgen_curve:P-521";
constexpr char k2001[] = "-algorithm gost2001 -pkeyopt paramset:XA";
constexpr char k256[] = "-algorithm gost2012_256 -pkeyopt paramset:A";
constexpr char k256Twisted[] = "-algorithm gost2012_256 -pkeyopt paramset:TCA";
constexpr char k512[] = "-algorithm gost2012_512 -pkeyopt paramset:A";
constexpr char k512Twisted[] = "-algorithm gost2012_512 -pkeyopt paramset:C";

ByteVector Bytes(const certkern::SecretBytes& bytes) { return {bytes.begin(), bytes.end()}; }

// RSAES-OAEP-params with SHA-256 and a label.
ByteVector OaepSha256() {
  const auto hash = der::AlgorithmIdentifier("2.16.840.1.101.3.4.2.1", der::Null());
  const auto generator = der::AlgorithmIdentifier("1.2.840.113549.1.1.8", hash);
  const BYTE label[] = {1, 2, 3};
  const auto source = der::AlgorithmIdentifier("1.2.840.113549.1.1.9", der::OctetString(label));
  return Bytes(der::Sequence({der::Element(der::ContextConstructed(0), {hash}),
                              der::Element(der::ContextConstructed(1), {generator}),
                              der::Element(der::ContextConstructed(2), {source})}));
}

ByteVector OpenedByOpenSsl(const ByteVector& message, const Party& recipient) {
  const auto out = WorkDirectory() / "opened";
  OpenSsl("cms -decrypt -binary -inform DER -in " + WriteScratch(message).string() + " -inkey "
          + recipient.privateKey.string() + " -keyform DER -out " + out.string());
  return Load(out);
}

struct OwnCase {
  const char* key;
  const char* content;
  SealOptions options;
  size_t size;
};
TEST(KeyExchangeExport, OpenedByOpenSsl) {
  const OwnCase cases[] = {
      {kRsa,        kAes256,         {},                                                                1000            },
      {kRsa,        k3Des,           {.keyEncryption = kOaep},                                          1000            },
      {kRsa,        kAes128,         {.keyEncryption = kOaep, .keyEncryptionParameters = OaepSha256()}, 16              },
      {kP256,       kAes128,         {.agreement = true},                                               1000            },
      {kP384,       kAes192,         {.agreement = true},                                               1000            },
      {kP521,       kAes256,         {.agreement = true},                                               1000            },
      {kP256,       kAes256,         {.keyEncryption = "1.3.133.16.840.63.0.2", .agreement = true},     1000            },
      {kP256,       k3Des,           {.agreement = true, .keyWrap = "1.2.840.113549.1.9.16.3.6"},       1000            },
      {k2001,       k28147,          {},                                                                5000            },
      {k256,        k28147,          {},                                                                5000            },
      {k512Twisted, k28147,          {},                                                                5000            },
      {k256,        kMagma,          {},                                                                kMagmaLimit     },
      {k512,        kMagmaOmac,      {},                                                                kMagmaLimit     },
      {k512,        kKuznyechik,     {},                                                                kKuznyechikLimit},
      {k256Twisted, kKuznyechikOmac, {},                                                                kKuznyechikLimit},
      {k256,        kMagmaOmac,      {.agreement = true},                                               kMagmaLimit     },
      {k512,        kKuznyechik,     {.agreement = true, .ukm = ByteVector(32, 7)},                     kKuznyechikLimit},
      {k256,        kKuznyechik,     {.keyEncryption = "1.2.643.7.1.1.7.1.1", .agreement = true},       kKuznyechikLimit},
  };
  for (const auto& [key, content, options, size] : cases) {
    SCOPED_TRACE(std::string(key) + " " + content + (options.agreement ? " agreed" : ""));
    const Party& recipient = MadeParty(key);
    const ByteVector plain = SomeContent(size);
    Envelope envelope;
    ASSERT_EQ(Seal(recipient, content, plain, options, envelope), 0u);
    EXPECT_EQ(OutstandingPieces(), 0u);
    EXPECT_EQ(OpenedByOpenSsl(envelope.message(recipient), recipient), plain);
    ByteVector opened;
    EXPECT_EQ(Open(envelope, recipient, opened), 0u);
    EXPECT_EQ(opened, plain);
  }
}

// openssl neither makes nor opens agreement under GOST 28147-89. But with the diversified wrap it is transport in another
// form, which it does open.
TEST(KeyExchangeExport, AgreementUnder28147) {
  for (const char* key : {k2001, k256, k512Twisted}) {
    SCOPED_TRACE(key);
    const Party& recipient = MadeParty(key);
    const ByteVector plain = SomeContent(100);
    Envelope agreed;
    ASSERT_EQ(Seal(recipient, k28147, plain, {.agreement = true, .keyWrap = "1.2.643.2.2.13.1"}, agreed), 0u);
    const auto info = der::AlgorithmIdentifier(agreed.originator.oid, agreed.originator.parameters);
    const auto ephemeral =
        der::Element(der::ContextConstructed(0), {info, der::BitString(agreed.originatorKey)});
    der::Reader in(agreed.content.parameters), body;
    std::span<const BYTE> iv, box;
    ASSERT_TRUE(in.take(der::kSequence, body) && body.takeWhole(iv) && body.takeWhole(box));
    const auto parameters =
        der::Element(der::ContextConstructed(0), {box, ephemeral, der::OctetString(agreed.ukm)});
    Envelope transported = agreed;
    transported.agreement = false;
    transported.keyEncryption = recipient.algorithm;
    transported.encryptedKey = Bytes(der::Sequence({agreed.encryptedKey, parameters}));
    EXPECT_EQ(OpenedByOpenSsl(transported.message(recipient), recipient), plain);

    Envelope usual;
    ByteVector opened;
    ASSERT_EQ(Seal(recipient, k28147, plain, {.agreement = true}, usual), 0u);
    EXPECT_EQ(usual.ukm.size(), 8u);
    EXPECT_EQ(Open(usual, recipient, opened), 0u);
    EXPECT_EQ(opened, plain);
    // the originator's key from a certificate, not from the message: only its bits are handed over
    usual.originatorChoice = CMSG_KEY_AGREE_ORIGINATOR_CERT;
    EXPECT_EQ(Open(usual, recipient, opened), 0u);
    EXPECT_EQ(opened, plain);
  }
}

// openssl does not look at them, but others may.
TEST(KeyExchangeExport, ParametersOfKexp) {
  for (const bool agreement : {false, true}) {
    Envelope with256, with512;
    EXPECT_EQ(Seal(MadeParty(k256), kMagma, {}, {.agreement = agreement}, with256), 0u);
    EXPECT_EQ(Seal(MadeParty(k512), kKuznyechik, {}, {.agreement = agreement}, with512), 0u);
    EXPECT_EQ(with256.keyEncryption.oid, "1.2.643.7.1.1.7.1.1");
    EXPECT_EQ(with512.keyEncryption.oid, "1.2.643.7.1.1.7.2.1");
    EXPECT_EQ(with256.keyEncryption.parameters, Bytes(der::Sequence({der::Oid("1.2.643.7.1.1.6.1")})));
    EXPECT_EQ(with512.keyEncryption.parameters, Bytes(der::Sequence({der::Oid("1.2.643.7.1.1.6.2")})));
  }
}

// A substitution box and an initial value of the caller's choice, and the boxes that are chosen otherwise.
TEST(KeyExchangeExport, ContentParameters) {
  const ByteVector plain = SomeContent(20);
  const auto parametersOf = [&](const char* key, const char* content, const ByteVector& given) {
    Envelope envelope;
    EXPECT_EQ(Seal(MadeParty(key), content, plain, {.contentParameters = given}, envelope), 0u);
    ByteVector opened;
    EXPECT_EQ(Open(envelope, MadeParty(key), opened), 0u);
    EXPECT_EQ(opened, plain);
    return envelope.content.parameters;
  };
  const ByteVector iv(8, 9);
  const ByteVector chosen = Bytes(der::Sequence({der::OctetString(iv), der::Oid("1.2.643.2.2.31.3")}));
  EXPECT_EQ(parametersOf(k256, k28147, chosen), chosen);
  const auto endsWith = [](const ByteVector& bytes, const certkern::SecretBytes& end) {
    return bytes.size() > end.size() && std::equal(end.rbegin(), end.rend(), bytes.rbegin());
  };
  EXPECT_TRUE(endsWith(parametersOf(k2001, k28147, {5, 0}), der::Oid("1.2.643.2.2.31.1")));
  EXPECT_TRUE(endsWith(parametersOf(k256, k28147, {}), der::Oid("1.2.643.7.1.2.5.1.1")));
  EXPECT_NE(parametersOf(k256, kMagma, {}), parametersOf(k256, kMagma, {}));
  const ByteVector rc2 = parametersOf(kRsa, "1.2.840.113549.3.2", {});
  ASSERT_EQ(rc2.size(), 15u);
  EXPECT_EQ(rc2[4], 58);  // 128 bits
  EXPECT_EQ(parametersOf(kRsa, "1.2.840.113549.3.4", {}), ByteVector{});
}

}  // namespace
