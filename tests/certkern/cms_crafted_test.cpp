// Messages put together byte by byte, as no program of ours writes them, and signers asked for in every way.
#include <certkern/chain.h>
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "certkern/cms_objects.h"
#include "certkern/cms_signers.h"
#include "store/sample_objects.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr char kContentType[] = "06092a864886f70d010903", kMessageDigest[] = "06092a864886f70d010904";
constexpr char kData[] = "06092a864886f70d010701", kSha256[] = "300b0609608648016503040201";

Bytes Attribute(const char* oid, std::initializer_list<Bytes> values) {
  return Der(0x30, Concat({FromHex(oid), Der(0x31, Concat(values))}));
}

// With a key on P-256 and SHA-256, in stream order.
Bytes SignatureOf(const OwnKey& key, const Bytes& bytes) {
  Owner<HCRYPTHASH, CryptDestroyHash> hash;
  Bytes signature(80);
  DWORD size = 80;
  EXPECT_TRUE(CryptCreateHash(key.provider(), CALG_SHA_256, 0, 0, hash.out())
              && CryptHashData(hash.get(), bytes.data(), static_cast<DWORD>(bytes.size()), 0)
              && CryptSignHashA(hash.get(), AT_SIGNATURE, nullptr, 0, signature.data(), &size));
  signature.resize(size);
  return {signature.rbegin(), signature.rend()};
}

Bytes DigestOf(const OwnKey& key, const Bytes& bytes) {
  Bytes digest(32);
  DWORD size = 32;
  EXPECT_TRUE(CryptHashCertificate(key.provider(), CALG_SHA_256, 0, bytes.data(),
                                   static_cast<DWORD>(bytes.size()), digest.data(), &size));
  return digest;
}

// The content of SignedContent(), signed over attributes in one order and sent with them in another.
Bytes Craft(const OwnKey& key, const std::vector<Bytes>& asSigned, const std::vector<Bytes>& asSent,
            const Bytes& unsignedAttributes = {}) {
  const auto joined = [](const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& each : parts) all.insert(all.end(), each.begin(), each.end());
    return all;
  };
  const CERT_INFO& info = *key.certificate()->pCertInfo;
  const Bytes issuer(info.Issuer.pbData, info.Issuer.pbData + info.Issuer.cbData);
  const Bytes serial(std::reverse_iterator(info.SerialNumber.pbData + info.SerialNumber.cbData),
                     std::reverse_iterator(info.SerialNumber.pbData));
  const Bytes signer =
      Der(0x30,
          Concat({FromHex("020101"), Der(0x30, Concat({issuer, Der(0x02, serial)})), FromHex(kSha256),
                  Der(0xA0, joined(asSent)), FromHex("300906072a8648ce3d0201"),
                  Der(0x04, SignatureOf(key, Der(0x31, joined(asSigned)))), unsignedAttributes}));
  const Bytes data = Der(0x30,
                         Concat({FromHex("020101"), Der(0x31, FromHex(kSha256)),
                                 Der(0x30, Concat({FromHex(kData), Der(0xA0, Der(0x04, SignedContent()))})),
                                 Der(0x31, signer)}));
  return Der(0x30, Concat({FromHex("06092a864886f70d010702"), Der(0xA0, data)}));
}

void ExpectAnswers() {
  const OwnKey key("p256");
  const Bytes digest = Der(0x04, DigestOf(key, SignedContent()));
  const Bytes type = Attribute(kContentType, {FromHex(kData)}), value = Attribute(kMessageDigest, {digest}),
              other = Attribute("06022a03", {FromHex("020105")});
  const Bytes twice = Attribute(kMessageDigest, {digest, digest}), nothing = Attribute(kMessageDigest, {}),
              wrong = Attribute(kMessageDigest, {Der(0x04, DigestOf(key, {}))});
  const struct {
    const char* name;
    std::vector<Bytes> asSigned, asSent;
    DWORD code;
  } kCases[] = {
      {"in DER's order",      {other, type, value}, {other, type, value}, 0                      },
      {"in another order",    {value, other, type}, {value, other, type}, 0                      },
      {"sent in another one", {other, type, value}, {value, other, type}, NTE_BAD_SIGNATURE      },
      {"without a type",      {value},              {value},              0                      },
      {"two digests in one",  {type, twice},        {type, twice},        ERROR_INVALID_PARAMETER},
      {"no digest in one",    {type, nothing},      {type, nothing},      ERROR_INVALID_PARAMETER},
      {"no digest",           {type, other},        {type, other},        ERROR_INVALID_PARAMETER},
      {"another digest",      {type, wrong},        {type, wrong},        NTE_BAD_SIGNATURE      },
  };
  for (const auto& each : kCases) {
    const Message message = OpenMessage(Craft(key, each.asSigned, each.asSent));
    ASSERT_TRUE(message) << each.name << std::hex << GetLastError();
    EXPECT_EQ(VerifyByIndex(message.get(), 0, key.certificate()), each.code) << each.name;
    const Message again = OpenMessage(Parameter(message.get(), CMSG_ENCODED_MESSAGE));
    EXPECT_EQ(VerifyByIndex(again.get(), 0, key.certificate()), each.code) << each.name << ", written again";
  }
}

}  // namespace

TEST(CraftedMessages, AttributesCountAsTheyWereSent) { ExpectAnswers(); }
// Encoded anew they are the same, as long as their order is kept.
TEST(CraftedMessages, DISABLED_AttributesEncodedAnew) { ExpectAnswers(); }
TEST(CraftedMessages, OldSettings) {
  RunWithSettings("CraftedMessages.DISABLED_AttributesEncodedAnew",
                  "[config.Parameters]\nLegacyEncodeSignedAttrsOnVerification = 1\n");
}

// Nobody vouches for what is unsigned, and anybody can put it there: no value makes a message unreadable.
TEST(CraftedMessages, ValuesThatAreNotOfTheirTypes) {
  const OwnKey key("p256");
  const Bytes digest = Attribute(kMessageDigest, {Der(0x04, DigestOf(key, SignedContent()))});
  const Bytes time = Attribute("06092a864886f70d010905", {FromHex("020105")}),          // an INTEGER
      stamp = Attribute("060b2a864886f70d010910020e", {FromHex("3003020105")});         // no ContentInfo
  const Bytes longHeader = Concat({FromHex("308109"), FromHex("06022a033103020105")});  // signed as it stands
  const std::vector<Bytes> sent = {time, digest, longHeader};
  const Bytes encoded = Craft(key, sent, sent, Der(0xA1, Concat({stamp, time})));
  const Message message = OpenMessage(encoded);
  ASSERT_TRUE(message) << std::hex << GetLastError();
  EXPECT_EQ(VerifyByIndex(message.get(), 0, key.certificate()), 0u);
  const Bytes again = Parameter(message.get(), CMSG_ENCODED_MESSAGE);
  EXPECT_FALSE(std::ranges::search(again, Der(0xA0, Concat({time, digest, longHeader}))).empty());
  EXPECT_EQ(VerifyByIndex(OpenMessage(again).get(), 0, key.certificate()), 0u) << "it goes out as it came";
  const Bytes block = Parameter(message.get(), CMSG_SIGNER_UNAUTH_ATTR_PARAM);
  const auto& attributes = *reinterpret_cast<const CRYPT_ATTRIBUTES*>(block.data());
  ASSERT_EQ(attributes.cAttr, 2u);
  EXPECT_EQ(attributes.rgAttr[0].rgValue[0].cbData, 5u);
  Bytes wrong = stamp;
  const CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA add = {
      sizeof add, 0, {static_cast<DWORD>(wrong.size()), wrong.data()}
  };
  EXPECT_FALSE(CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, &add)) << "ours are right";

  BYTE record[256];
  DWORD size = sizeof record;
  EXPECT_TRUE(CryptDecodeObject(X509_ASN_ENCODING, PKCS_ATTRIBUTE, time.data(),
                                static_cast<DWORD>(time.size()), 0, record, &size))
      << std::hex << GetLastError();
}

// A key of RSASSA-PSS makes no other signatures, and none with less salt than it says.
TEST(SignerKeys, OfPssAreBound) {
  EXPECT_EQ(
      VerifyByIndex(OpenMessage(SignedBytes("rsa-attached.cms")).get(), 0, SignerCertificate("psskey").get()),
      DWORD{NTE_BAD_DATA});
  EXPECT_EQ(
      VerifyByIndex(OpenMessage(SignedBytes("rsa-attached.cms")).get(), 0, SignerCertificate("pss").get()),
      DWORD{NTE_BAD_DATA});
  EXPECT_EQ(
      VerifyByIndex(OpenMessage(SignedBytes("pss-attached.cms")).get(), 0, SignerCertificate("psskey").get()),
      DWORD{NTE_BAD_SIGNATURE})
      << "the same parameters, another key";
}

TEST(SignerKeys, OfAChain) {
  const Message message = OpenMessage(SignedBytes("rsa-attached.cms"));
  const Certificate certificate = SignerCertificate("rsa");
  CERT_CHAIN_ELEMENT element{};
  element.cbSize = sizeof element;
  element.pCertContext = certificate.get();
  PCERT_CHAIN_ELEMENT elements[] = {&element};
  CERT_SIMPLE_CHAIN simple{};
  simple.cbSize = sizeof simple;
  simple.cElement = 1;
  simple.rgpElement = elements;
  PCERT_SIMPLE_CHAIN chains[] = {&simple};
  CERT_CHAIN_CONTEXT chain{};
  chain.cbSize = sizeof chain;
  chain.cChain = 1;
  chain.rgpChain = chains;
  CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA para{};
  para.cbSize = sizeof para;
  para.dwSignerType = CMSG_VERIFY_SIGNER_CHAIN;
  para.pvSigner = &chain;
  const auto verify = [&]() -> DWORD {
    return CryptMsgControl(message.get(), 0, CMSG_CTRL_VERIFY_SIGNATURE_EX, &para) ? 0 : GetLastError();
  };
  EXPECT_EQ(verify(), 0u);
  element.pCertContext = nullptr;
  EXPECT_EQ(verify(), DWORD{E_INVALIDARG});
  element.pCertContext = certificate.get();
  simple.cElement = 0;
  EXPECT_EQ(verify(), DWORD{E_INVALIDARG});
  simple.cElement = 1;
  chain.cChain = 0;
  EXPECT_EQ(verify(), DWORD{E_INVALIDARG});
  chain.cChain = 1;
  chains[0] = nullptr;
  EXPECT_EQ(verify(), DWORD{E_INVALIDARG});
}

TEST(CraftedMessages, ListsComeAndGo) {
  const Message message = OpenMessage(SignedBytes("p256-attached.cms"));
  Bytes lists[] = {MakeCrl({}), MakeCrl({.issuer = "another"})};
  EXPECT_TRUE(Parameter(message.get(), CMSG_CRL_PARAM).empty()) << "none at all";
  for (Bytes& each : lists) {
    CRL_BLOB blob = {static_cast<DWORD>(each.size()), each.data()};
    EXPECT_TRUE(CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_CRL, &blob));
  }
  EXPECT_EQ(Parameter(message.get(), CMSG_CRL_PARAM, 1), lists[1]);
  const Message reopened = OpenMessage(Parameter(message.get(), CMSG_ENCODED_MESSAGE));
  EXPECT_EQ(Parameter(reopened.get(), CMSG_CRL_PARAM, 0), lists[0]);
  DWORD index = 2;
  EXPECT_FALSE(CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_CRL, &index));
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  index = 0;
  EXPECT_TRUE(CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_CRL, &index));
  EXPECT_EQ(Parameter(message.get(), CMSG_CRL_PARAM), lists[1]);
  EXPECT_TRUE(CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_CRL, &index));
  EXPECT_EQ(Parameter(message.get(), CMSG_CRL_COUNT_PARAM)[0], 0);
  EXPECT_EQ(VerifyByIndex(OpenMessage(Parameter(message.get(), CMSG_ENCODED_MESSAGE)).get(), 0,
                          SignerCertificate("p256").get()),
            0u);
}

// A stamp may hold a stamp, deeper than anybody looks.
TEST(CraftedMessages, StampsInStamps) {
  const OwnKey key("p256");
  const std::vector<Bytes> sent = {Attribute(kMessageDigest, {Der(0x04, DigestOf(key, SignedContent()))})};
  Bytes encoded = Craft(key, sent, sent);
  for (int levels = 0; levels < 40; ++levels) {
    encoded = Craft(key, sent, sent, Der(0xA1, Attribute("060b2a864886f70d010910020e", {encoded})));
  }
  const Message message = OpenMessage(encoded);
  ASSERT_TRUE(message) << std::hex << GetLastError();
  EXPECT_EQ(VerifyByIndex(message.get(), 0, key.certificate()), 0u);
  EXPECT_EQ(Parameter(message.get(), CMSG_ENCODED_MESSAGE), encoded);
}
