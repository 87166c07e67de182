// Hashed messages: those that others made, those made here in others' hands, and every way to tell a wrong one.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/msg.h>
#include <certkern/oids.h>
#include <gtest/gtest.h>

#include <cstring>

#include "certkern/cms_objects.h"
#include "support/hex.h"

using namespace certkern::test;

namespace {

Bytes Published(const std::string& name) {
  return ReadFile(CERTKERN_SOURCE_DIR "/tests/data/published/" + name);
}

Bytes AsBytes(const std::string& text) { return {text.begin(), text.end()}; }

DWORD VerifyHash(const Message& message) {
  return CryptMsgControl(message.get(), 0, CMSG_CTRL_VERIFY_HASH, nullptr) ? 0 : GetLastError();
}

DWORD UpdateCode(const Message& message, const Bytes& data, BOOL final) {
  const BYTE none = 0;
  const BYTE* const bytes = data.empty() ? &none : data.data();
  return CryptMsgUpdate(message.get(), bytes, static_cast<DWORD>(data.size()), final) ? 0 : GetLastError();
}

CMSG_HASHED_ENCODE_INFO EncodeInfo(const char* oid, Bytes& parameters) {
  CMSG_HASHED_ENCODE_INFO info{};
  info.cbSize = sizeof info;
  info.HashAlgorithm = {
      const_cast<LPSTR>(oid), {static_cast<DWORD>(parameters.size()), parameters.data()}
  };
  return info;
}

Message OpenEncoder(const CMSG_HASHED_ENCODE_INFO& info, DWORD flags, const char* inner = nullptr) {
  return Message(
      CryptMsgOpenToEncode(X509_ASN_ENCODING, flags, CMSG_HASHED, &info, const_cast<LPSTR>(inner), nullptr));
}

Bytes Encode(const CMSG_HASHED_ENCODE_INFO& info, const Bytes& content, DWORD flags = 0,
             const char* inner = nullptr) {
  const Message message = OpenEncoder(info, flags, inner);
  EXPECT_EQ(UpdateCode(message, content, TRUE), 0u);
  return Parameter(message.get(), CMSG_CONTENT_PARAM);
}

// The rest of an encoded message behind its ContentInfo header.
Bytes Bare(const Message& message) { return Parameter(message.get(), CMSG_BARE_CONTENT_PARAM); }

std::string OpensslCms(const std::string& command) {
  return RunShell("OPENSSL_CONF='" + SignedObject("config").string() + "' openssl cms " + command + " 2>&1");
}

}  // namespace

// Taken apart, verified, and put together again from the parts: the same bytes.
TEST(HashedMessages, Published) {
  struct Case {
    const char* file;
    const char* oid;
    DWORD digestSize;
    const char* contentBegins;
  };
  const Case cases[] = {
      {"tc26/digested256.der",           szOID_GOST_R3411_2012_256, 32, "D1E520E2"},
      {"tc26/digested512.der",           szOID_GOST_R3411_2012_512, 64, ""        },
      {"r1323565.1.025/hashed_a311.der", szOID_GOST_R3411_2012_256, 32, "CAEEEDF2"},
      {"rfc4134/6.0.bin",                szOID_OIWSEC_sha1,         20, "54686973"},
  };
  for (const auto& [file, oid, digestSize, contentBegins] : cases) {
    SCOPED_TRACE(file);
    const Bytes encoded = Published(file);
    const Message message = OpenMessage(encoded);
    ASSERT_TRUE(message) << std::hex << GetLastError();
    EXPECT_EQ(VerifyHash(message), 0u);
    EXPECT_EQ(VerifyHash(message), 0u) << "twice";
    const Bytes content = Parameter(message.get(), CMSG_CONTENT_PARAM);
    EXPECT_TRUE(ToHex(content).starts_with(contentBegins));
    EXPECT_EQ(Parameter(message.get(), CMSG_COMPUTED_HASH_PARAM).size(), digestSize);
    EXPECT_EQ(Parameter(message.get(), CMSG_HASH_DATA_PARAM),
              Parameter(message.get(), CMSG_COMPUTED_HASH_PARAM));
    EXPECT_EQ(Parameter(message.get(), CMSG_ENCODED_MESSAGE), encoded);
    EXPECT_EQ(Bare(message),
              Bytes(encoded.end() - static_cast<ptrdiff_t>(Bare(message).size()), encoded.end()));
    EXPECT_EQ(Parameter(message.get(), CMSG_INNER_CONTENT_TYPE_PARAM),
              AsBytes(std::string(szOID_RSA_data, sizeof szOID_RSA_data)));

    Bytes record = Parameter(message.get(), CMSG_HASH_ALGORITHM_PARAM);
    EXPECT_EQ(record.size(), sizeof(CRYPT_ALGORITHM_IDENTIFIER) + std::strlen(oid) + 1);
    const auto& algorithm = *reinterpret_cast<const CRYPT_ALGORITHM_IDENTIFIER*>(record.data());
    EXPECT_STREQ(algorithm.pszObjId, oid);
    EXPECT_EQ(algorithm.Parameters.cbData, 0u) << "NULL is no parameter";
  }
}

TEST(HashedMessages, OpensslReadsWhatIsWritten) {
  const Bytes content = AsBytes("content that is hashed\n");
  const std::pair<const char*, const char*> algorithms[] = {
      {szOID_NIST_sha256,         "05 00"},
      {szOID_OIWSEC_sha1,         "05 00"},
      {szOID_GOST_R3411_2012_256, ""     },
      {szOID_GOST_R3411_2012_512, ""     },
  };
  for (const auto& [oid, parametersHex] : algorithms) {
    SCOPED_TRACE(oid);
    Bytes parameters = FromHex(parametersHex);
    const CMSG_HASHED_ENCODE_INFO info = EncodeInfo(oid, parameters);
    const auto path = WriteScratch(Encode(info, content));
    EXPECT_EQ(OpensslCms("-digest_verify -inform DER -in '" + path.string() + "'"),
              "Verification successful\ncontent that is hashed\n");
    // one that comes apart is the same without the content
    const Bytes detached = Encode(info, content, CMSG_DETACHED_FLAG);
    EXPECT_LT(detached.size(), Encode(info, content).size());
    const Message message = OpenMessage(detached, &content);
    ASSERT_TRUE(message);
    EXPECT_EQ(VerifyHash(message), 0u);
  }
}

TEST(HashedMessages, OpensslsMessagesVerify) {
  const Bytes content = AsBytes("content that is hashed");
  for (const char* const digest : {"sha256", "sha512", "md_gost94", "md_gost12_256"}) {
    SCOPED_TRACE(digest);
    const std::string in = WriteScratch(content).string();
    const std::string out = (WorkDirectory() / "digested.der").string();
    OpensslCms("-digest_create -binary -md " + std::string(digest) + " -in '" + in + "' -outform DER -out '"
               + out + "'");
    Bytes encoded = ReadFile(out);
    const Message message = OpenMessage(encoded);
    ASSERT_TRUE(message);
    EXPECT_EQ(VerifyHash(message), 0u);
    EXPECT_EQ(Parameter(message.get(), CMSG_CONTENT_PARAM), content);
    encoded.back() ^= 1;  // in the digest
    EXPECT_EQ(VerifyHash(OpenMessage(encoded)), DWORD{CRYPT_E_HASH_VALUE});
  }
}

// Whatever byte is changed: the message is refused, or not taken for good, or says the same in another way.
TEST(HashedMessages, NoAlteredByteVerifies) {
  const Bytes encoded = Published("r1323565.1.025/hashed_a311.der");
  const Bytes content = Parameter(OpenMessage(encoded).get(), CMSG_CONTENT_PARAM);
  for (size_t at = 0; at < encoded.size(); ++at) {
    for (const BYTE bit : {BYTE{1}, BYTE{0x80}}) {
      Bytes altered = encoded;
      altered[at] ^= bit;
      const Message message = OpenMessage(altered);
      if (!message || VerifyHash(message) != 0) continue;
      EXPECT_EQ(Parameter(message.get(), CMSG_CONTENT_PARAM), content) << at;
    }
    const Message cut = OpenMessage(Bytes(encoded.begin(), encoded.begin() + static_cast<ptrdiff_t>(at)));
    EXPECT_EQ(static_cast<bool>(cut), at == 0) << at;  // no data is no failure
  }
}

TEST(HashedMessages, DetachedContentHasItsPlace) {
  Bytes parameters;
  const Bytes content = AsBytes("detached");
  const CMSG_HASHED_ENCODE_INFO info = EncodeInfo(szOID_NIST_sha256, parameters);
  const Bytes detached = Encode(info, content, CMSG_DETACHED_FLAG);

  const Message attached = OpenMessage(Encode(info, content));
  EXPECT_EQ(UpdateCode(attached, content, TRUE), DWORD{ERROR_INVALID_PARAMETER}) << "not detached";

  const auto open = [] {
    return Message(CryptMsgOpenToDecode(0, CMSG_DETACHED_FLAG, 0, 0, nullptr, nullptr));
  };
  const Message message = open();
  EXPECT_EQ(VerifyHash(message), DWORD{ERROR_INVALID_PARAMETER}) << "no type";
  const Message none(CryptMsgOpenToDecode(0, CMSG_DETACHED_FLAG, CMSG_HASHED, 0, nullptr, nullptr));
  EXPECT_EQ(VerifyHash(none), DWORD{ERROR_INVALID_PARAMETER}) << "no message";
  ASSERT_EQ(UpdateCode(message, detached, FALSE), 0u);
  EXPECT_EQ(VerifyHash(message), DWORD{CRYPT_E_HASH_VALUE}) << "no content";
  for (size_t i = 0; i < content.size(); ++i) ASSERT_EQ(UpdateCode(message, {content[i]}, FALSE), 0u);
  EXPECT_EQ(VerifyHash(message), DWORD{CRYPT_E_HASH_VALUE}) << "not ended";
  ASSERT_EQ(UpdateCode(message, {}, TRUE), 0u);
  EXPECT_EQ(VerifyHash(message), 0u);
  EXPECT_EQ(VerifyHash(message), 0u);
  EXPECT_EQ(UpdateCode(message, content, TRUE), DWORD{ERROR_INVALID_PARAMETER}) << "after the end";

  const Message other = open();
  ASSERT_EQ(UpdateCode(other, detached, TRUE), 0u);
  ASSERT_EQ(UpdateCode(other, AsBytes("detacheD"), TRUE), 0u);
  EXPECT_EQ(VerifyHash(other), DWORD{CRYPT_E_HASH_VALUE});
}

TEST(HashedMessages, EmptyContentAndInnerTypes) {
  Bytes none;
  const CMSG_HASHED_ENCODE_INFO info = EncodeInfo(szOID_NIST_sha256, none);
  const Bytes empty = Encode(info, {});
  // version 0, the algorithm without parameters, the type without content, the hash of nothing
  EXPECT_TRUE(
      ToHex(empty).ends_with("020100300B0609608648016503040201300B06092A864886F70D010701"
                             "0420E3B0C44298FC1C149AFBF4C8996FB92427AE41E4649B934CA495991B7852B855"));
  EXPECT_EQ(VerifyHash(OpenMessage(empty)), 0u);

  const Bytes typed = Encode(info, AsBytes("x"), 0, "1.2.3.4");
  const Message message = OpenMessage(typed);
  ASSERT_TRUE(message);
  EXPECT_EQ(Parameter(message.get(), CMSG_VERSION_PARAM), FromHex("02000000"));
  EXPECT_EQ(Parameter(message.get(), CMSG_INNER_CONTENT_TYPE_PARAM), FromHex("312e322e332e3400"));
  EXPECT_NE(ToHex(typed).find("020102"), std::string::npos);
  EXPECT_EQ(Parameter(OpenMessage(empty).get(), CMSG_VERSION_PARAM), FromHex("00000000"));
}

// What was asked for in between is not what is answered in the end.
TEST(HashedMessages, AskingEarlyChangesNothing) {
  Bytes none;
  const CMSG_HASHED_ENCODE_INFO info = EncodeInfo(szOID_NIST_sha256, none);
  for (const DWORD flags : {DWORD{0}, DWORD{CMSG_DETACHED_FLAG}}) {
    const Message message = OpenEncoder(info, flags);
    ASSERT_EQ(UpdateCode(message, AsBytes("ab"), FALSE), 0u);
    Parameter(message.get(), CMSG_CONTENT_PARAM);
    Parameter(message.get(), CMSG_COMPUTED_HASH_PARAM);
    ASSERT_EQ(UpdateCode(message, AsBytes("c"), FALSE), 0u);
    if (!flags) {
      EXPECT_EQ(Parameter(message.get(), CMSG_CONTENT_PARAM), Encode(info, AsBytes("abc")));
    }
    ASSERT_EQ(UpdateCode(message, AsBytes("d"), TRUE), 0u);
    EXPECT_EQ(Parameter(message.get(), CMSG_CONTENT_PARAM), Encode(info, AsBytes("abcd"), flags));
  }
}

TEST(HashedMessages, TheSizeIsKnownBefore) {
  Bytes none;
  CMSG_HASHED_ENCODE_INFO info = EncodeInfo(szOID_GOST_R3411_2012_256, none);
  for (const size_t size : {1u, 200u, 70000u}) {
    const Bytes content(size, 'x');
    for (const DWORD flags : {DWORD{0}, DWORD{CMSG_DETACHED_FLAG}}) {
      const auto length = [&](DWORD more) {
        return CryptMsgCalculateEncodedLength(X509_ASN_ENCODING, flags | more, CMSG_HASHED, &info, nullptr,
                                              static_cast<DWORD>(size));
      };
      const Message message = OpenEncoder(info, flags);
      ASSERT_EQ(UpdateCode(message, content, TRUE), 0u);
      EXPECT_EQ(length(0), Parameter(message.get(), CMSG_CONTENT_PARAM).size()) << size << ", " << flags;
      EXPECT_EQ(length(CMSG_BARE_CONTENT_FLAG), Bare(message).size()) << size << ", " << flags;
    }
  }
  EXPECT_EQ(CryptMsgCalculateEncodedLength(X509_ASN_ENCODING, 0, CMSG_HASHED, nullptr, nullptr, 1), 0u);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(HashedMessages, WhatIsRefused) {
  Bytes none;
  CMSG_HASHED_ENCODE_INFO info = EncodeInfo(szOID_NIST_sha256, none);
  const auto openCode = [&] {
    SetLastError(0);
    return OpenEncoder(info, 0) ? 0 : GetLastError();
  };
  ASSERT_EQ(openCode(), 0u);
  info.cbSize = 56;
  EXPECT_EQ(openCode(), DWORD{ERROR_INVALID_PARAMETER});
  info.cbSize = sizeof info;
  info.HashAlgorithm.Parameters = {2, nullptr};
  EXPECT_EQ(openCode(), DWORD{ERROR_INVALID_PARAMETER});
  info.HashAlgorithm = {};
  EXPECT_EQ(openCode(), DWORD{ERROR_INVALID_PARAMETER});

  info = EncodeInfo("1.2.3", none);
  const Message unknown = OpenEncoder(info, 0);
  EXPECT_EQ(UpdateCode(unknown, AsBytes("x"), TRUE), DWORD{ERROR_INVALID_PARAMETER}) << "an unknown hash";

  const Message message = OpenMessage(Published("tc26/digested256.der"));
  for (const DWORD control : {CMSG_CTRL_VERIFY_SIGNATURE, CMSG_CTRL_ADD_CERT, CMSG_CTRL_DECRYPT}) {
    EXPECT_FALSE(CryptMsgControl(message.get(), 0, control, &info));
    EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_INVALID_MSG_TYPE});
  }
  DWORD size = 0;
  EXPECT_FALSE(CryptMsgGetParam(message.get(), CMSG_SIGNER_COUNT_PARAM, 0, nullptr, &size));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_INVALID_MSG_TYPE});
}

// Each handle on the provider is given back: the caller's stays alive until he has released it.
TEST(HashedMessages, ProvidersAreCounted) {
  const Bytes encoded = Published("tc26/digested256.der");
  const Bytes bare = Bare(OpenMessage(encoded));
  for (const DWORD type : {DWORD{0}, DWORD{CMSG_HASHED}}) {
    for (const bool releases : {false, true}) {
      HCRYPTPROV provider = 0;
      ASSERT_TRUE(CryptAcquireContextA(&provider, nullptr, nullptr, PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT));
      ASSERT_TRUE(CryptContextAddRef(provider, nullptr, 0));
      Message message(CryptMsgOpenToDecode(0, releases ? CMSG_CRYPT_RELEASE_CONTEXT_FLAG : 0, type, provider,
                                           nullptr, nullptr));
      ASSERT_TRUE(message);
      ASSERT_EQ(UpdateCode(message, type ? bare : encoded, TRUE), 0u);
      EXPECT_EQ(VerifyHash(message), 0u);
      message.reset();
      EXPECT_TRUE(CryptReleaseContext(provider, 0));
      EXPECT_EQ(CryptReleaseContext(provider, 0) != FALSE, !releases);
    }
  }
}
