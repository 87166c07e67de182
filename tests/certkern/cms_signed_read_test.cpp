// Signed messages of the openssl program: what is in them, and that nothing forged is taken for good.
#include <certkern/errors.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "certkern/cms_objects.h"

using namespace certkern::test;

namespace {

const std::vector<std::string>& Kinds() {
  static const std::vector<std::string> kinds = {"rsa",  "pss",      "psskey",  "p256",
                                                 "p521", "gost2001", "gost256", "gost512"};
  return kinds;
}

std::vector<std::string> FormsOf(const std::string& kind) {
  if (kind.starts_with("pss")) return {"attached", "noattr", "detached", "keyid"};
  return {"attached", "noattr", "detached", "keyid", "stream"};
}

// Where one stretch of bytes stands in another.
size_t Find(const Bytes& where, std::span<const BYTE> what) {
  const auto found = std::search(where.begin(), where.end(), what.begin(), what.end());
  EXPECT_NE(found, where.end());
  return static_cast<size_t>(found - where.begin());
}

}  // namespace

TEST(SignedRead, OthersMessagesVerify) {
  for (const std::string& kind : Kinds()) {
    const Certificate certificate = SignerCertificate(kind);
    for (const std::string& form : FormsOf(kind)) {
      SCOPED_TRACE(kind + "-" + form);
      const Bytes encoded = SignedBytes(kind + "-" + form + ".cms");
      const bool detached = form == "detached";
      const Message message = OpenMessage(encoded, detached ? &SignedContent() : nullptr);
      ASSERT_TRUE(message) << std::hex << GetLastError();
      EXPECT_EQ(VerifyByIndex(message.get(), 0, certificate.get()), 0u);
      EXPECT_EQ(VerifyByIndex(message.get(), 0, certificate.get()), 0u) << "twice";
      // who is named by a key is found by index only
      EXPECT_EQ(VerifyByCertificate(message.get(), certificate.get()),
                form == "keyid" ? DWORD{CRYPT_E_SIGNER_NOT_FOUND} : 0u);
      const Certificate other = SignerCertificate(kind == "rsa" ? "p256" : "rsa");
      EXPECT_NE(VerifyByIndex(message.get(), 0, other.get()), 0u);
      EXPECT_EQ(Parameter(message.get(), CMSG_CONTENT_PARAM), detached ? Bytes() : SignedContent());
      EXPECT_EQ(VerifyByIndex(message.get(), 1, certificate.get()), DWORD{CRYPT_E_SIGNER_NOT_FOUND});
    }
  }
}

TEST(SignedRead, ContentOfADetachedMessageComesInPieces) {
  const Certificate certificate = SignerCertificate("gost256");
  const Bytes encoded = SignedBytes("gost256-detached.cms");
  Message message(CryptMsgOpenToDecode(X509_ASN_ENCODING, CMSG_DETACHED_FLAG, 0, 0, nullptr, nullptr));
  ASSERT_TRUE(CryptMsgUpdate(message.get(), encoded.data(), static_cast<DWORD>(encoded.size()), TRUE));
  EXPECT_EQ(VerifyByIndex(message.get(), 0, certificate.get()), DWORD{NTE_BAD_SIGNATURE}) << "no content yet";
  for (size_t i = 0; i < SignedContent().size(); ++i) {
    ASSERT_TRUE(CryptMsgUpdate(message.get(), &SignedContent()[i], 1, i + 1 == SignedContent().size()));
    if (i == 5) Parameter(message.get(), CMSG_COMPUTED_HASH_PARAM);  // which must not end the hash
  }
  EXPECT_EQ(VerifyByIndex(message.get(), 0, certificate.get()), 0u);
  const BYTE more = 0;
  EXPECT_FALSE(CryptMsgUpdate(message.get(), &more, 1, TRUE));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  Bytes wrong = SignedContent();
  wrong.back() ^= 1;
  const Message altered = OpenMessage(encoded, &wrong);
  EXPECT_EQ(VerifyByIndex(altered.get(), 0, certificate.get()), DWORD{NTE_BAD_SIGNATURE});
}

TEST(SignedRead, TwoSignersEachVerify) {
  const Message message = OpenMessage(SignedBytes("two.cms"));
  ASSERT_TRUE(message);
  DWORD count = 0, size = sizeof count;
  ASSERT_TRUE(CryptMsgGetParam(message.get(), CMSG_SIGNER_COUNT_PARAM, 0, &count, &size));
  ASSERT_EQ(count, 2u);
  int verified = 0;
  for (DWORD index = 0; index < 2; ++index) {
    for (const char* kind : {"rsa", "p256"}) {
      const Certificate certificate = SignerCertificate(kind);
      EXPECT_EQ(VerifyByCertificate(message.get(), certificate.get()), 0u) << kind;
      verified += VerifyByIndex(message.get(), index, certificate.get()) == 0;
    }
  }
  EXPECT_EQ(verified, 2);
}

TEST(SignedRead, ParametersTellWhatIsInside) {
  const Message message = OpenMessage(SignedBytes("rsa-attached.cms"));
  const Certificate certificate = SignerCertificate("rsa");
  const auto number = [&](DWORD type) {
    const Bytes value = Parameter(message.get(), type);
    DWORD word = 0;
    EXPECT_EQ(value.size(), sizeof word);
    std::memcpy(&word, value.data(), sizeof word);
    return word;
  };
  EXPECT_EQ(number(CMSG_TYPE_PARAM), DWORD{CMSG_SIGNED});
  EXPECT_EQ(number(CMSG_VERSION_PARAM), 1u);
  EXPECT_EQ(number(CMSG_CERT_COUNT_PARAM), 1u);
  EXPECT_EQ(number(CMSG_CRL_COUNT_PARAM), 0u);
  const Bytes type = Parameter(message.get(), CMSG_INNER_CONTENT_TYPE_PARAM);
  EXPECT_STREQ(reinterpret_cast<const char*>(type.data()), "1.2.840.113549.1.7.1");
  EXPECT_EQ(Parameter(message.get(), CMSG_CERT_PARAM), SignedBytes("rsa.crt"));
  EXPECT_EQ(Parameter(message.get(), CMSG_CRL_PARAM), Bytes());

  const Bytes block = Parameter(message.get(), CMSG_SIGNER_INFO_PARAM);
  const auto& signer = *reinterpret_cast<const CMSG_SIGNER_INFO*>(block.data());
  const auto same = [](const CRYPT_DATA_BLOB& a, const CRYPT_DATA_BLOB& b) {
    return Bytes(a.pbData, a.pbData + a.cbData) == Bytes(b.pbData, b.pbData + b.cbData);
  };
  EXPECT_TRUE(same(signer.Issuer, certificate->pCertInfo->Issuer));
  EXPECT_TRUE(same(signer.SerialNumber, certificate->pCertInfo->SerialNumber));
  EXPECT_STREQ(signer.HashAlgorithm.pszObjId, "2.16.840.1.101.3.4.2.1");
  EXPECT_EQ(signer.HashEncryptionAlgorithm.Parameters.cbData, 0u) << "NULL";
  EXPECT_EQ(signer.EncryptedHash.cbData, 256u);
  EXPECT_GE(signer.AuthAttrs.cAttr, 3u);
  EXPECT_EQ(signer.UnauthAttrs.cAttr, 0u);

  const Bytes info = Parameter(message.get(), CMSG_SIGNER_CERT_INFO_PARAM);
  EXPECT_TRUE(same(reinterpret_cast<const CERT_INFO*>(info.data())->Issuer, certificate->pCertInfo->Issuer));
  const Message named = OpenMessage(SignedBytes("rsa-keyid.cms"));
  const Bytes id = Parameter(named.get(), CMSG_SIGNER_CERT_ID_PARAM);
  EXPECT_EQ(reinterpret_cast<const CERT_ID*>(id.data())->dwIdChoice, DWORD{CERT_ID_KEY_IDENTIFIER});
  EXPECT_EQ(reinterpret_cast<const CERT_ID*>(id.data())->KeyId.cbData, 20u);
  const Bytes nobody = Parameter(named.get(), CMSG_SIGNER_CERT_INFO_PARAM);
  EXPECT_EQ(reinterpret_cast<const CERT_INFO*>(nobody.data())->Issuer.cbData, 0u);
}

TEST(SignedRead, RefusalsOfParametersAndControls) {
  const Message message = OpenMessage(SignedBytes("rsa-attached.cms"));
  const Message unread(CryptMsgOpenToDecode(X509_ASN_ENCODING, 0, CMSG_SIGNED, 0, nullptr, nullptr));
  struct Row {
    const Message& message;
    DWORD type, index, code;
  };
  const Row rows[] = {
      {message, CMSG_SIGNER_INFO_PARAM,           1, ERROR_INVALID_PARAMETER },
      {message, CMSG_CMS_SIGNER_INFO_PARAM,       1, ERROR_INVALID_PARAMETER },
      {message, CMSG_ENCRYPTED_DIGEST,            1, ERROR_INVALID_PARAMETER },
      {message, CMSG_SIGNER_CERT_INFO_PARAM,      1, CRYPT_E_NO_SIGNER       },
      {message, CMSG_SIGNER_CERT_ID_PARAM,        1, CRYPT_E_NO_SIGNER       },
      {message, CMSG_CERT_PARAM,                  1, E_INVALIDARG            },
      {message, CMSG_SIGNER_HASH_ALGORITHM_PARAM, 0, CRYPT_E_INVALID_MSG_TYPE},
      {unread,  CMSG_CERT_PARAM,                  0, E_INVALIDARG            },
      {unread,  CMSG_ENCODED_MESSAGE,             0, ERROR_INVALID_PARAMETER },
      {unread,  CMSG_BARE_CONTENT_PARAM,          0, ERROR_INVALID_PARAMETER },
  };
  for (const Row& row : rows) {
    DWORD size = 0;
    EXPECT_FALSE(CryptMsgGetParam(row.message.get(), row.type, row.index, nullptr, &size)) << row.type;
    EXPECT_EQ(GetLastError(), row.code) << row.type;
  }
  BYTE room[8];
  DWORD size = sizeof room;
  EXPECT_FALSE(CryptMsgGetParam(message.get(), CMSG_CONTENT_PARAM, 0, room, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, SignedContent().size());

  const Certificate certificate = SignerCertificate("rsa");
  CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA para{};
  const auto verify = [&](DWORD cbSize, DWORD type, void* signer) {
    para.cbSize = cbSize;
    para.dwSignerType = type;
    para.pvSigner = signer;
    return CryptMsgControl(message.get(), 0, CMSG_CTRL_VERIFY_SIGNATURE_EX, &para) ? 0 : GetLastError();
  };
  void* const key = &certificate->pCertInfo->SubjectPublicKeyInfo;
  EXPECT_EQ(verify(sizeof para, CMSG_VERIFY_SIGNER_PUBKEY, key), 0u);
  EXPECT_EQ(verify(sizeof para - 1, CMSG_VERIFY_SIGNER_PUBKEY, key), DWORD{E_INVALIDARG});
  EXPECT_EQ(verify(sizeof para, CMSG_VERIFY_SIGNER_NULL, key), DWORD{E_INVALIDARG});
  EXPECT_EQ(verify(sizeof para, CMSG_VERIFY_SIGNER_PUBKEY, nullptr), DWORD{E_INVALIDARG});
  EXPECT_FALSE(CryptMsgControl(message.get(), 0, CMSG_CTRL_VERIFY_HASH, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_INVALID_MSG_TYPE});
}

// A byte of the message altered: what it is that was altered decides the code.
TEST(SignedRead, PlantedFaultsAreFound) {
  const Certificate certificate = SignerCertificate("gost256");
  const Bytes good = SignedBytes("gost256-attached.cms");
  const Message message = OpenMessage(good);
  const Bytes signature = Parameter(message.get(), CMSG_ENCRYPTED_DIGEST);
  const BYTE digestAttribute[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x04};
  const BYTE typeAttribute[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x03};
  const BYTE timeAttribute[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x05};
  const size_t digest = Find(good, digestAttribute);
  struct Row {
    const char* fault;
    size_t at;
    DWORD code;
  };
  const Row rows[] = {
      {"content",                            Find(good,                           SignedContent()),  NTE_BAD_SIGNATURE},
      {"signature",                          Find(good,                           signature) + 3,    NTE_BAD_SIGNATURE},
      {"value of digest",                    digest + sizeof digestAttribute + 5, NTE_BAD_SIGNATURE},
      {"name of digest", digest + sizeof digestAttribute - 2,             ERROR_INVALID_PARAMETER                 },
      {"time",                 Find(good,                                   timeAttribute) + 14,                  NTE_BAD_SIGNATURE                 },
      {"name of the type",                  Find(good,                                    typeAttribute) + 7,                  NTE_BAD_SIGNATURE            },
  };
  for (const Row& row : rows) {
    Bytes altered = good;
    altered[row.at] ^= 0x01;
    const Message opened = OpenMessage(altered);
    ASSERT_TRUE(opened) << row.fault;
    EXPECT_EQ(VerifyByIndex(opened.get(), 0, certificate.get()), row.code) << row.fault;
  }
}

// Whatever byte is changed or missing: nothing crashes, and what verifies has the same content, signer and attributes.
TEST(SignedRead, NothingForgedIsValid) {
  for (const char* name : {"p256-attached.cms", "gost256-stream.cms"}) {
    const Bytes good = SignedBytes(name);
    const Certificate certificate =
        SignerCertificate(std::string(name).substr(0, std::string(name).find('-')));
    const Message message = OpenMessage(good);
    const Bytes signature = Parameter(message.get(), CMSG_ENCRYPTED_DIGEST);
    const Bytes attributes = Parameter(message.get(), CMSG_ENCODED_SIGNER);
    // what closes the ContentInfo of indefinite length is not missed
    const size_t needed = good.size() - (std::string_view(name).ends_with("stream.cms") ? 4 : 0);
    for (size_t i = 0; i < needed; ++i) {
      const Message cut = OpenMessage({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(i)});
      EXPECT_FALSE(cut && VerifyByIndex(cut.get(), 0, certificate.get()) == 0) << name << " cut at " << i;
      for (const BYTE flip : {BYTE{0x01}, BYTE{0x80}}) {
        Bytes altered = good;
        altered[i] ^= flip;
        const Message opened = OpenMessage(altered);
        if (!opened || VerifyByIndex(opened.get(), 0, certificate.get()) != 0) continue;
        EXPECT_EQ(Parameter(opened.get(), CMSG_CONTENT_PARAM), SignedContent()) << name << " at " << i;
        EXPECT_EQ(Parameter(opened.get(), CMSG_ENCRYPTED_DIGEST), signature) << name << " at " << i;
        EXPECT_EQ(Parameter(opened.get(), CMSG_SIGNER_AUTH_ATTR_PARAM).size(),
                  Parameter(message.get(), CMSG_SIGNER_AUTH_ATTR_PARAM).size())
            << name << " at " << i;
      }
    }
  }
}

// Neither the signature of this content nor one of no content at all, which the hashes would be of, had they been kept.
TEST(SignedRead, WhatWasNotHashedIsNotVerified) {
  const OwnKey p256("p256"), gost("gost256");
  const Message nothing = OpenToSign({p256.signer()});
  ASSERT_FALSE(Parameter(nothing.get(), CMSG_CONTENT_PARAM).empty());  // signs
  const Bytes ofNothing = Parameter(nothing.get(), CMSG_CMS_SIGNER_INFO_PARAM);
  const Message both = OpenMessage(SignMessage({p256.signer(), gost.signer()}, SignedContent()));
  ASSERT_TRUE(CryptMsgControl(both.get(), 0, CMSG_CTRL_ADD_CMS_SIGNER_INFO, ofNothing.data()));
  Bytes encoded = Parameter(both.get(), CMSG_ENCODED_MESSAGE);
  const BYTE hash[] = {0x2A, 0x85, 0x03, 0x07, 0x01, 0x01, 0x02, 0x02};
  encoded[Find(encoded, hash) + sizeof hash - 1] = 0x7F;  // among the digest algorithms, known to nobody

  const Message message(CryptMsgOpenToDecode(X509_ASN_ENCODING, 0, 0, 0, nullptr, nullptr));
  EXPECT_FALSE(CryptMsgUpdate(message.get(), encoded.data(), static_cast<DWORD>(encoded.size()), TRUE));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_ALGID});
  EXPECT_EQ(Parameter(message.get(), CMSG_CONTENT_PARAM), SignedContent());
  EXPECT_EQ(Parameter(message.get(), CMSG_SIGNER_COUNT_PARAM)[0], 3);
  for (const DWORD index : {0u, 2u}) {
    EXPECT_EQ(VerifyByIndex(message.get(), index, p256.certificate()), DWORD{ERROR_INVALID_HANDLE}) << index;
  }
}

TEST(SignedRead, WhatIsReadIsEncodedAgain) {
  for (const char* name : {"gost512-attached.cms", "rsa-stream.cms", "pss-noattr.cms", "two.cms"}) {
    const Message message = OpenMessage(SignedBytes(name));
    const Bytes again = Parameter(message.get(), CMSG_ENCODED_MESSAGE);
    const Message reopened = OpenMessage(again);
    ASSERT_TRUE(reopened) << name;
    EXPECT_EQ(Parameter(reopened.get(), CMSG_ENCODED_MESSAGE), again) << name;
    EXPECT_EQ(Parameter(reopened.get(), CMSG_ENCODED_SIGNER), Parameter(message.get(), CMSG_ENCODED_SIGNER));
    const std::string kind =
        name[0] == 't' ? "rsa" : std::string(name).substr(0, std::string(name).find('-'));
    const std::string certificate = name[0] == 't' ? "p256" : kind;
    EXPECT_EQ(OpensslRefusal(again, SignedObject(certificate + ".pem")), "") << name;
    // that of another program is in DER already
    if (std::string(name) == "gost512-attached.cms") {
      EXPECT_EQ(again, SignedBytes(name));
    }
  }
}
