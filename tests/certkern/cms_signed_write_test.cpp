// Signed messages made here: openssl verifies them, we read them, and the rules of the parameters hold.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "certkern/cms_objects.h"
#include "certkern/cms_signers.h"
#include "store/fault_plan.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::test;

namespace {

// An attribute 1.2.3 with the value INTEGER 5.
struct Extra {
  BYTE five[3] = {0x02, 0x01, 0x05};
  CRYPT_ATTR_BLOB value = {sizeof five, five};
  CRYPT_ATTRIBUTE attribute = {const_cast<char*>("1.2.3"), 1, &value};

  CMSG_SIGNER_ENCODE_INFO with(CMSG_SIGNER_ENCODE_INFO signer) {
    signer.cAuthAttr = 1;
    signer.rgAuthAttr = &attribute;
    return signer;
  }
};

// Attributes that DER has in another order than the list, one of them with values in another order.
struct Unsorted {
  BYTE text[40] = {0x0C, 38};
  BYTE nine[3] = {0x02, 0x01, 0x09};
  BYTE five[3] = {0x02, 0x01, 0x05};
  CRYPT_ATTR_BLOB texts[1] = {
      {sizeof text, text}
  };
  CRYPT_ATTR_BLOB numbers[2] = {
      {sizeof nine, nine},
      {sizeof five, five}
  };
  CRYPT_ATTRIBUTE attributes[2] = {
      {const_cast<char*>("1.2.4"), 1, texts  },
      {const_cast<char*>("1.2.3"), 2, numbers}
  };

  CMSG_SIGNER_ENCODE_INFO with(CMSG_SIGNER_ENCODE_INFO signer) {
    signer.cAuthAttr = 2;
    signer.rgAuthAttr = attributes;
    return signer;
  }
};

bool Contains(const Bytes& whole, const Bytes& part) {
  return std::search(whole.begin(), whole.end(), part.begin(), part.end()) != whole.end();
}

const SignedShape kNoMore = {.flags = SVCMSG_CADES_DISABLE};

std::vector<std::string> AttributeNames(HCRYPTMSG message) {
  const Bytes block = Parameter(message, CMSG_SIGNER_AUTH_ATTR_PARAM);
  const auto& attributes = *reinterpret_cast<const CRYPT_ATTRIBUTES*>(block.data());
  std::vector<std::string> names;
  for (DWORD i = 0; i < attributes.cAttr; ++i) names.emplace_back(attributes.rgAttr[i].pszObjId);
  return names;
}

DWORD EncodedLength(std::vector<CMSG_SIGNER_ENCODE_INFO> signers, DWORD flags, DWORD size,
                    const char* innerType = nullptr) {
  CMSG_SIGNED_ENCODE_INFO info{};
  info.cbSize = sizeof info;
  info.cSigners = static_cast<DWORD>(signers.size());
  info.rgSigners = signers.data();
  return CryptMsgCalculateEncodedLength(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, flags | SVCMSG_CADES_DISABLE,
                                        CMSG_SIGNED, &info, const_cast<char*>(innerType), size);
}

}  // namespace

TEST(SignedWrite, OthersVerifyWhatIsSignedHere) {
  Extra extra;
  for (const std::string& kind : OwnKey::Names()) {
    const OwnKey key(kind);
    for (const bool attributes : {false, true}) {
      for (const bool detached : {false, true}) {
        SCOPED_TRACE(kind + (attributes ? " attributes" : "") + (detached ? " detached" : ""));
        const auto signer = attributes ? extra.with(key.signer()) : key.signer();
        const DWORD flags = SVCMSG_CADES_DISABLE | (detached ? CMSG_DETACHED_FLAG : 0);
        const Bytes encoded = SignMessage({signer}, SignedContent(), {.flags = flags});
        ASSERT_FALSE(encoded.empty()) << std::hex << GetLastError();
        EXPECT_EQ(OpensslRefusal(encoded, key.pem(), detached), "");
        const Message message = OpenMessage(encoded, detached ? &SignedContent() : nullptr);
        ASSERT_TRUE(message);
        EXPECT_EQ(VerifyByCertificate(message.get(), key.certificate()), 0u);
        const std::vector<std::string> standard = {"1.2.3", "1.2.840.113549.1.9.3", "1.2.840.113549.1.9.4"};
        EXPECT_EQ(AttributeNames(message.get()), attributes ? standard : std::vector<std::string>());
      }
    }
  }
}

// A key that says nothing about its signatures: the signer's hash decides, and the identifier tells.
TEST(SignedWrite, PssWithoutParametersInTheKey) {
  const OwnKey key("rsa");
  CERT_INFO info = *key.certificate()->pCertInfo;
  info.SubjectPublicKeyInfo.Algorithm = {const_cast<char*>("1.2.840.113549.1.1.10"), {}};
  const struct {
    const char* hash;
    const char* parameters;
  } kCases[] = {
      {"1.3.14.3.2.26",          "3000"},
      {"2.16.840.1.101.3.4.2.1",
       "3034a00f300d06096086480165030402010500a11c301a06092a864886f70d010108300d0609608648016503040201"
       "0500a203020120"                },
      {"2.16.840.1.101.3.4.2.3",
       "3034a00f300d06096086480165030402030500a11c301a06092a864886f70d010108300d0609608648016503040203"
       "0500a203020140"                },
  };
  for (const auto& [hash, parameters] : kCases) {
    CMSG_SIGNER_ENCODE_INFO signer = key.signer(hash);
    signer.pCertInfo = &info;
    const Bytes encoded = SignMessage({signer}, SignedContent(), kNoMore);
    ASSERT_FALSE(encoded.empty()) << hash << std::hex << GetLastError();
    EXPECT_EQ(OpensslRefusal(encoded, key.pem()), "") << hash;
    const Message message = OpenMessage(encoded);
    EXPECT_EQ(VerifyByIndex(message.get(), 0, key.certificate()), 0u) << hash;
    const Bytes block = Parameter(message.get(), CMSG_CMS_SIGNER_INFO_PARAM);
    const auto& stated = reinterpret_cast<const CMSG_CMS_SIGNER_INFO*>(block.data())->HashEncryptionAlgorithm;
    EXPECT_EQ(Bytes(stated.Parameters.pbData, stated.Parameters.pbData + stated.Parameters.cbData),
              FromHex(parameters))
        << hash;
  }
  Bytes bound = FromHex(kCases[1].parameters);
  info.SubjectPublicKeyInfo.Algorithm.Parameters = {static_cast<DWORD>(bound.size()), bound.data()};
  CMSG_SIGNER_ENCODE_INFO other = key.signer(kCases[2].hash);
  other.pCertInfo = &info;
  EXPECT_TRUE(SignMessage({other}, SignedContent(), kNoMore).empty()) << "nobody could verify that";
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_ALGID});
}

// What speaks of a signature, as a time stamp does, stays true while others come.
TEST(SignedWrite, ASignatureStaysWhileOthersCome) {
  const OwnKey key("p256");
  Bytes other = SignedBytes("rsa.crt");
  const CERT_BLOB certificate = {static_cast<DWORD>(other.size()), other.data()};
  const Message made = OpenToSign({key.signer()}, kNoMore);
  const Bytes& content = SignedContent();
  ASSERT_TRUE(CryptMsgUpdate(made.get(), content.data(), static_cast<DWORD>(content.size()), TRUE));
  const Message first = OpenMessage(Parameter(made.get(), CMSG_CONTENT_PARAM));
  const Bytes signature = Parameter(first.get(), CMSG_ENCRYPTED_DIGEST);
  ASSERT_TRUE(CryptMsgControl(made.get(), 0, CMSG_CTRL_ADD_CERT, &certificate));
  const Message more = OpenMessage(Parameter(made.get(), CMSG_CONTENT_PARAM));
  EXPECT_EQ(Parameter(more.get(), CMSG_CERT_PARAM), other);
  EXPECT_EQ(Parameter(more.get(), CMSG_ENCRYPTED_DIGEST), signature);

  const CMSG_SIGNER_ENCODE_INFO another = key.signer();
  const auto add = [&] {
    EXPECT_TRUE(CryptMsgControl(more.get(), SVCMSG_CADES_DISABLE, CMSG_CTRL_ADD_SIGNER, &another));
  };
  add();
  const Bytes second = Parameter(more.get(), CMSG_ENCRYPTED_DIGEST, 1);
  add();
  EXPECT_EQ(Parameter(more.get(), CMSG_ENCRYPTED_DIGEST, 1), second);
  EXPECT_NE(Parameter(more.get(), CMSG_ENCRYPTED_DIGEST, 2), second);
}

TEST(SignedWrite, SeveralSignersAndHashes) {
  const OwnKey rsa("rsa"), gost("gost256"), p256("p256");
  const Bytes encoded =
      SignMessage({rsa.signer(), p256.signer(), gost.signer(), rsa.signer("2.16.840.1.101.3.4.2.3")},
                  SignedContent(), kNoMore);
  ASSERT_FALSE(encoded.empty()) << std::hex << GetLastError();
  const Message message = OpenMessage(encoded);
  EXPECT_EQ(VerifyByIndex(message.get(), 0, rsa.certificate()), 0u);
  EXPECT_EQ(VerifyByIndex(message.get(), 1, p256.certificate()), 0u);
  EXPECT_EQ(VerifyByIndex(message.get(), 2, gost.certificate()), 0u);
  EXPECT_EQ(VerifyByIndex(message.get(), 3, rsa.certificate()), 0u);
  // SHA-256 twice, Streebog, SHA-512
  const Bytes version = Parameter(message.get(), CMSG_VERSION_PARAM);
  EXPECT_EQ(version[0], 1);
}

TEST(SignedWrite, ABagOfCertificates) {
  const Bytes encoded = SignMessage(
      {
  },
      {}, {.certificates = {SignedBytes("rsa.crt"), SignedBytes("gost256.crt")}});
  ASSERT_FALSE(encoded.empty()) << std::hex << GetLastError();
  const Message message = OpenMessage(encoded);
  EXPECT_EQ(Parameter(message.get(), CMSG_CERT_PARAM, 0), SignedBytes("rsa.crt")) << "in their order";
  EXPECT_EQ(Parameter(message.get(), CMSG_CERT_PARAM, 1), SignedBytes("gost256.crt"));
  EXPECT_NE(VerifyByIndex(message.get(), 0, SignerCertificate("rsa").get()), 0u);
  const std::string listed =
      RunShell("openssl pkcs7 -inform DER -print_certs -noout -in '" + WriteScratch(encoded).string() + "'");
  EXPECT_NE(listed.find("gost256"), listed.npos);
  EXPECT_FALSE(OpenToSign({}, {.certificates = {{0x30, 0x03, 0x02, 0x01, 0x05}}}));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(SignedWrite, InnerTypeAndVersions) {
  const OwnKey key("p256");
  Extra extra;
  const Bytes encoded = SignMessage({extra.with(key.signer())}, SignedContent(),
                                    {.flags = SVCMSG_CADES_DISABLE, .innerType = "1.2.840.113549.1.7.2"});
  const Message message = OpenMessage(encoded);
  EXPECT_EQ(Parameter(message.get(), CMSG_VERSION_PARAM)[0], 3);
  EXPECT_EQ(VerifyByIndex(message.get(), 0, key.certificate()), 0u);
  EXPECT_FALSE(OpenToSign({key.signer()}, {.flags = SVCMSG_CADES_DISABLE, .innerType = "1.2.x"}));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(SignedWrite, SignersByKeyAndSignersRefused) {
  const OwnKey key("p256");
  BYTE id[] = {1, 2, 3};
  CMSG_SIGNER_ENCODE_INFO byKey = key.signer();
  byKey.SignerId.dwIdChoice = CERT_ID_KEY_IDENTIFIER;
  byKey.SignerId.KeyId = {sizeof id, id};
  const Message message = OpenMessage(SignMessage({byKey}, SignedContent(), kNoMore));
  EXPECT_EQ(VerifyByIndex(message.get(), 0, key.certificate()), 0u);
  const Bytes block = Parameter(message.get(), CMSG_CMS_SIGNER_INFO_PARAM);
  const auto& signer = *reinterpret_cast<const CMSG_CMS_SIGNER_INFO*>(block.data());
  EXPECT_EQ(signer.dwVersion, 1u);
  EXPECT_EQ(signer.SignerId.KeyId.cbData, sizeof id);

  const auto code = [&](auto change) {
    CMSG_SIGNER_ENCODE_INFO info = key.signer();
    change(info);
    SetLastError(0);
    return OpenToSign({info}, kNoMore) ? 0 : GetLastError();
  };
  EXPECT_EQ(code([](auto&) {}), 0u);
  EXPECT_EQ(code([](auto& info) { info.cbSize = 96; }), 0u) << "the older record";
  EXPECT_EQ(code([](auto& info) { info.cbSize = 95; }), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(code([](auto& info) { info.cbSize = 0; }), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(code([](auto& info) { info.pCertInfo = nullptr; }), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(code([](auto& info) { info.SignerId.dwIdChoice = CERT_ID_SHA1_HASH; }), DWORD{E_INVALIDARG});
  EXPECT_EQ(code([](auto& info) { info.HashAlgorithm.pszObjId = const_cast<char*>("1.2.3.4"); }),
            DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(code([](auto& info) { info.HashAlgorithm.pszObjId = nullptr; }), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(code([](auto& info) { info.cAuthAttr = 1; }), DWORD{ERROR_INVALID_PARAMETER});
}

// Issuer CN=A, serial number 1.
TEST(SignedWrite, TheSizeIsKnownBefore) {
  const OwnKey key("gost256");
  Extra extra;
  BYTE name[] = {0x30, 0x0C, 0x31, 0x0A, 0x30, 0x08, 0x06, 0x03, 0x55, 0x04, 0x03, 0x0C, 0x01, 'A'};
  BYTE serial = 1;
  CERT_INFO info = *key.certificate()->pCertInfo;
  info.Issuer = {sizeof name, name};
  info.SerialNumber = {1, &serial};
  CMSG_SIGNER_ENCODE_INFO plain = key.signer();
  plain.pCertInfo = &info;
  EXPECT_EQ(EncodedLength({plain}, CMSG_BARE_CONTENT_FLAG, 3), 313u);
  EXPECT_EQ(EncodedLength({plain}, 0, 3), 328u);
  EXPECT_EQ(EncodedLength({plain}, CMSG_DETACHED_FLAG, 3), 263u);
  EXPECT_EQ(EncodedLength({extra.with(plain)}, CMSG_BARE_CONTENT_FLAG, 3), 326u);
  EXPECT_EQ(EncodedLength({extra.with(plain)}, 0, 3), 341u);
  EXPECT_EQ(EncodedLength({extra.with(plain)}, CMSG_DETACHED_FLAG, 3), 276u);
  EXPECT_EQ(SignMessage({plain}, {1, 2, 3}, kNoMore).size(), 173u);
  EXPECT_EQ(SignMessage({extra.with(plain)}, {1, 2, 3}, kNoMore).size(), 264u);
}

TEST(SignedWrite, TheSizeIsNeverTooSmall) {
  Extra extra;
  const char longType[] =
      "1.2.840.113549.1.9.16.1.4294967295.4294967295.4294967295.4294967295.4294967295.4294967295";
  for (const std::string& kind : OwnKey::Names()) {
    const OwnKey key(kind);
    for (const size_t size : {size_t{0}, size_t{1}, size_t{127}, size_t{128}, size_t{70000}}) {
      for (const char* type : {static_cast<const char*>(nullptr), longType}) {
        const Bytes content(size, 'x');
        const auto signers = {extra.with(key.signer()), key.signer()};
        const DWORD bound = EncodedLength(signers, 0, static_cast<DWORD>(size), type);
        const Bytes real = SignMessage(signers, content, {.flags = SVCMSG_CADES_DISABLE, .innerType = type});
        ASSERT_FALSE(real.empty());
        EXPECT_GE(bound, real.size()) << kind << " " << size;
      }
    }
  }
  const OwnKey key("p256");
  // without content, or with an empty one, which takes four octets of its own
  for (std::string type = "1.2"; type.size() < 200; type += ".2") {
    const SignedShape shape = {.flags = SVCMSG_CADES_DISABLE, .innerType = type.c_str()};
    const Bytes real = SignMessage({extra.with(key.signer())}, {}, shape);
    EXPECT_GE(EncodedLength({extra.with(key.signer())}, 0, 0, type.c_str()), real.size()) << type;
  }
  CMSG_SIGNER_ENCODE_INFO nobody = key.signer();
  nobody.pCertInfo = nullptr;
  EXPECT_EQ(EncodedLength({nobody}, 0, 3), 0u);
}

TEST(SignedWrite, SignersAreAddedAndTakenAway) {
  const OwnKey gost("gost256"), p256("p256");
  Extra extra;
  for (const bool detached : {false, true}) {
    Message message = OpenMessage(SignedBytes(detached ? "gost256-detached.cms" : "gost256-attached.cms"),
                                  detached ? &SignedContent() : nullptr);
    const auto add = [&](const CMSG_SIGNER_ENCODE_INFO& info) {
      return CryptMsgControl(message.get(), SVCMSG_CADES_DISABLE, CMSG_CTRL_ADD_SIGNER, &info)
          ? 0
          : GetLastError();
    };
    EXPECT_EQ(add(extra.with(gost.signer())), 0u);
    EXPECT_EQ(VerifyByIndex(message.get(), 1, gost.certificate()), 0u);
    // another hash did not see detached content
    EXPECT_EQ(add(p256.signer()), detached ? DWORD{CRYPT_E_UNKNOWN_ALGO} : 0u);
    const DWORD signers = detached ? 2 : 3;
    EXPECT_EQ(Parameter(message.get(), CMSG_SIGNER_COUNT_PARAM)[0], signers);
    if (!detached) {
      EXPECT_EQ(VerifyByIndex(message.get(), 2, p256.certificate()), 0u);
    }
    const Bytes more = Parameter(message.get(), CMSG_ENCODED_MESSAGE);
    const Message reopened = OpenMessage(more, detached ? &SignedContent() : nullptr);
    EXPECT_EQ(VerifyByIndex(reopened.get(), 0, SignerCertificate("gost256").get()), 0u);
    EXPECT_EQ(VerifyByIndex(reopened.get(), 1, gost.certificate()), 0u);
    if (!detached) {
      EXPECT_EQ(VerifyByIndex(reopened.get(), 2, p256.certificate()), 0u);
    }

    DWORD index = signers;
    EXPECT_FALSE(CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_SIGNER, &index));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    for (index = signers; index-- > 0;) {
      EXPECT_TRUE(CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_SIGNER, &index));
    }
    EXPECT_EQ(Parameter(message.get(), CMSG_SIGNER_COUNT_PARAM)[0], 0);
    const Message nobody = OpenMessage(Parameter(message.get(), CMSG_ENCODED_MESSAGE));
    EXPECT_EQ(VerifyByCertificate(nobody.get(), gost.certificate()), DWORD{NTE_BAD_SIGNATURE});
  }
}

// What is signed, what is written and what is looked at in place are the same.
TEST(SignedWrite, AttributesOutOfOrder) {
  for (const char* kind : {"p256", "gost256"}) {
    const OwnKey key(kind);
    Unsorted unsorted;
    const Message made = OpenToSign({unsorted.with(key.signer())}, kNoMore);
    const Bytes& content = SignedContent();
    ASSERT_TRUE(CryptMsgUpdate(made.get(), content.data(), static_cast<DWORD>(content.size()), TRUE));
    const Bytes encoded = Parameter(made.get(), CMSG_CONTENT_PARAM);
    EXPECT_EQ(OpensslRefusal(encoded, key.pem()), "");
    EXPECT_EQ(VerifyByIndex(OpenMessage(encoded).get(), 0, key.certificate()), 0u);
    EXPECT_TRUE(Contains(encoded, Parameter(made.get(), CMSG_ENCODED_SIGNER)));

    const Message more = OpenMessage(encoded);
    const CMSG_SIGNER_ENCODE_INFO another = unsorted.with(key.signer());
    ASSERT_TRUE(CryptMsgControl(more.get(), SVCMSG_CADES_DISABLE, CMSG_CTRL_ADD_SIGNER, &another));
    EXPECT_EQ(VerifyByIndex(more.get(), 1, key.certificate()), 0u);
    const Bytes record = Parameter(made.get(), CMSG_CMS_SIGNER_INFO_PARAM);
    ASSERT_TRUE(CryptMsgControl(more.get(), 0, CMSG_CTRL_ADD_CMS_SIGNER_INFO, record.data()));
    EXPECT_EQ(VerifyByIndex(more.get(), 2, key.certificate()), 0u);
    const Bytes three = Parameter(more.get(), CMSG_ENCODED_MESSAGE);
    EXPECT_EQ(OpensslRefusal(three, key.pem()), "");
    EXPECT_TRUE(Contains(three, Parameter(more.get(), CMSG_ENCODED_SIGNER, 1)));
    EXPECT_EQ(VerifyByIndex(OpenMessage(three).get(), 2, key.certificate()), 0u);
  }
}

// Settings for verifiers of old messages stop nobody from signing.
TEST(SignedWrite, DISABLED_WithOldSettings) {
  for (const char* kind : {"p256", "gost256", "rsa"}) {
    const OwnKey key(kind);
    Unsorted unsorted;
    for (const CMSG_SIGNER_ENCODE_INFO& signer : {key.signer(), unsorted.with(key.signer())}) {
      const Bytes encoded = SignMessage({signer}, SignedContent(), kNoMore);
      EXPECT_EQ(OpensslRefusal(encoded, key.pem()), "") << kind;
      EXPECT_EQ(VerifyByIndex(OpenMessage(encoded).get(), 0, key.certificate()), 0u) << kind;
    }
  }
}
TEST(SignedWrite, OldSettings) {
  RunWithSettings("SignedWrite.DISABLED_WithOldSettings",
                  "[config.Parameters]\nLegacyEncodeSignedAttrsOnVerification = 1\n"
                  "[config.Certkern]\nlegacy_CMS_hashing = 1\n");
  RunWithSettings("SignedWrite.DISABLED_WithOldSettings",
                  "[config.Parameters]\nLegacyEncodeSignedAttrsOnVerification = 1\n");
}

TEST(SignedWrite, UnsignedAttributesCertificatesAndLists) {
  const Message message = OpenMessage(SignedBytes("rsa-attached.cms"));
  BYTE attribute[] = {0x30, 0x09, 0x06, 0x02, 0x2A, 0x03, 0x31, 0x03, 0x02, 0x01, 0x05};
  CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA add = {
      sizeof add, 0, {sizeof attribute, attribute}
  };
  const Bytes before = Parameter(message.get(), CMSG_ENCODED_MESSAGE);
  const Bytes bare = Parameter(message.get(), CMSG_BARE_CONTENT_PARAM);
  EXPECT_TRUE(CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, &add));
  EXPECT_EQ(Parameter(message.get(), CMSG_ENCODED_MESSAGE).size(), before.size() + 13);
  EXPECT_EQ(Parameter(message.get(), CMSG_BARE_CONTENT_PARAM), bare) << "kept as it was first asked for";
  EXPECT_EQ(VerifyByIndex(message.get(), 0, SignerCertificate("rsa").get()), 0u);
  EXPECT_EQ(OpensslRefusal(Parameter(message.get(), CMSG_ENCODED_MESSAGE), SignedObject("rsa.pem")), "");
  add.dwSignerIndex = 1;
  EXPECT_FALSE(CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, &add));
  add = {
      sizeof add, 0, {3, attribute}
  };
  EXPECT_FALSE(CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, &add));
  CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR_PARA remove = {sizeof remove, 0, 7};
  EXPECT_TRUE(CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR, &remove)) << "none";
  remove.dwUnauthAttrIndex = 0;
  EXPECT_TRUE(CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR, &remove));
  EXPECT_EQ(Parameter(message.get(), CMSG_ENCODED_MESSAGE), before);

  Bytes other = SignedBytes("p256.crt");
  CERT_BLOB blob = {static_cast<DWORD>(other.size()), other.data()};
  EXPECT_TRUE(CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_CERT, &blob));
  EXPECT_EQ(Parameter(message.get(), CMSG_CERT_PARAM, 1), other);
  Bytes longer = other;
  longer.push_back(0x05);
  CERT_BLOB tooLong = {static_cast<DWORD>(longer.size()), longer.data()};
  EXPECT_FALSE(CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_CERT, &tooLong)) << "nobody could read it";
  DWORD index = 2;
  EXPECT_FALSE(CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_CERT, &index));
  EXPECT_EQ(GetLastError(), DWORD{E_INVALIDARG});
  for (index = 2; index-- > 0;) EXPECT_TRUE(CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_CERT, &index));
  DWORD count = 7, size = sizeof count;
  EXPECT_TRUE(CryptMsgGetParam(message.get(), CMSG_CERT_COUNT_PARAM, 0, &count, &size));
  EXPECT_EQ(count, 0u);
}

// Who tries again must not find his time stamp there twice.
TEST(SignedWrite, AnUnsignedAttributeComesWholeOrNotAtAll) {
  BYTE attribute[] = {0x30, 0x09, 0x06, 0x02, 0x2A, 0x03, 0x31, 0x03, 0x02, 0x01, 0x05};
  const CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA add = {
      sizeof add, 0, {sizeof attribute, attribute}
  };
  for (FaultPlan plan; plan.next();) {
    const Message message = OpenMessage(SignedBytes("p256-attached.cms"));
    const Bytes before = Parameter(message.get(), CMSG_ENCODED_MESSAGE);
    const bool added = plan.run(
        [&] { return CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, &add) != FALSE; });
    EXPECT_EQ(Parameter(message.get(), CMSG_ENCODED_MESSAGE).size(), before.size() + (added ? 13 : 0))
        << plan.faults();
    EXPECT_TRUE(CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, &add));
  }
}

TEST(SignedWrite, ASignerAsSomebodyElseMadeIt) {
  const Message from = OpenMessage(SignedBytes("rsa-attached.cms"));
  const Bytes block = Parameter(from.get(), CMSG_CMS_SIGNER_INFO_PARAM);
  const Message into = OpenMessage(SignedBytes("p256-attached.cms"));
  EXPECT_TRUE(CryptMsgControl(into.get(), 0, CMSG_CTRL_ADD_CMS_SIGNER_INFO, block.data()));
  EXPECT_EQ(VerifyByIndex(into.get(), 1, SignerCertificate("rsa").get()), 0u);
  const Bytes encoded = Parameter(into.get(), CMSG_ENCODED_MESSAGE);
  EXPECT_EQ(VerifyByIndex(OpenMessage(encoded).get(), 1, SignerCertificate("rsa").get()), 0u);
  EXPECT_EQ(OpensslRefusal(encoded, SignedObject("rsa.pem")), "");
}

// Large messages are written where the caller has room, whose size has to be right before: lengths of lengths change here.
TEST(SignedWrite, LargeContent) {
  const OwnKey key("p256");
  Extra extra;
  for (const size_t size :
       {0x10000 - 200, 0x10000, 0x10000 + 200, 0x1000000 - 300, 0x1000000 - 100, 0x1000000}) {
    const Bytes content(size, 'x');
    const Message message = OpenToSign({extra.with(key.signer())}, kNoMore);
    ASSERT_TRUE(CryptMsgUpdate(message.get(), content.data(), static_cast<DWORD>(size), TRUE));
    const Bytes encoded = Parameter(message.get(), CMSG_CONTENT_PARAM);
    EXPECT_EQ(Parameter(message.get(), CMSG_CONTENT_PARAM), encoded) << "signed once";
    const Message reopened = OpenMessage(encoded);
    EXPECT_EQ(VerifyByIndex(reopened.get(), 0, key.certificate()), 0u) << size;
    EXPECT_EQ(Parameter(reopened.get(), CMSG_CONTENT_PARAM), content) << size;
    EXPECT_EQ(Parameter(reopened.get(), CMSG_ENCODED_MESSAGE), encoded) << size;
    EXPECT_EQ(OpensslRefusal(encoded, key.pem()), "") << size;

    Bytes room(encoded.size() - 1);
    auto left = static_cast<DWORD>(room.size());
    EXPECT_FALSE(CryptMsgGetParam(message.get(), CMSG_CONTENT_PARAM, 0, room.data(), &left));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(left, encoded.size());
    const Bytes signature = Parameter(message.get(), CMSG_ENCRYPTED_DIGEST);
    BYTE attribute[] = {0x30, 0x09, 0x06, 0x02, 0x2A, 0x03, 0x31, 0x03, 0x02, 0x01, 0x05};
    const CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA more = {
        sizeof more, 0, {sizeof attribute, attribute}
    };
    ASSERT_TRUE(CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, &more));
    EXPECT_EQ(
        Parameter(OpenMessage(Parameter(message.get(), CMSG_CONTENT_PARAM)).get(), CMSG_ENCRYPTED_DIGEST),
        signature)
        << "what speaks of a signature leaves it";
  }
}

TEST(SignedWrite, ReadingInTheMiddle) {
  const OwnKey key("p256");
  Extra extra;
  const Message message = OpenToSign({extra.with(key.signer())}, kNoMore);
  const Bytes& content = SignedContent();
  ASSERT_TRUE(CryptMsgUpdate(message.get(), content.data(), 4, FALSE));
  const Bytes early = Parameter(message.get(), CMSG_COMPUTED_HASH_PARAM);
  ASSERT_TRUE(
      CryptMsgUpdate(message.get(), content.data() + 4, static_cast<DWORD>(content.size() - 4), TRUE));
  EXPECT_NE(Parameter(message.get(), CMSG_COMPUTED_HASH_PARAM), early);
  EXPECT_FALSE(CryptMsgUpdate(message.get(), content.data(), 1, TRUE)) << "after the end";
  const Bytes encoded = Parameter(message.get(), CMSG_CONTENT_PARAM);
  EXPECT_EQ(Parameter(message.get(), CMSG_CONTENT_PARAM), encoded) << "signed once";
  EXPECT_EQ(VerifyByIndex(OpenMessage(encoded).get(), 0, key.certificate()), 0u);
}
