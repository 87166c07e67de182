// Messages in one call: made here and verified by another program, and the other way round.
#include <certkern/errors.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <thread>
#include <vector>

#include "certkern/cms_objects.h"
#include "certkern/cms_signers.h"

namespace certkern::test {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
constexpr char kSha256[] = "2.16.840.1.101.3.4.2.1";

// The arguments of one signing.
struct Signing {
  explicit Signing(const Certificate& certificate, const char* hash = szOID_GOST_R3411_2012_256) {
    para.cbSize = sizeof para;
    para.dwMsgEncodingType = kEncoding;
    para.pSigningCert = certificate.get();
    para.HashAlgorithm.pszObjId = const_cast<LPSTR>(hash);
    carried = certificate.get();
    para.cMsgCert = carried ? 1 : 0;
    para.rgpMsgCert = &carried;
  }
  Signing(const Signing&) = delete;
  Signing& operator=(const Signing&) = delete;

  // Empty, and the last error tells why.
  Bytes sign(bool detached = false) {
    const BYTE* pieces[] = {content.data()};
    DWORD sizes[] = {static_cast<DWORD>(content.size())};
    DWORD size = 0;
    if (!CryptSignMessage(&para, detached, 1, pieces, sizes, nullptr, &size)) return {};
    estimate = size;
    Bytes message(size);
    if (!CryptSignMessage(&para, detached, 1, pieces, sizes, message.data(), &size)) return {};
    EXPECT_LE(size, estimate);
    message.resize(size);
    return message;
  }

  CRYPT_SIGN_MESSAGE_PARA para{};
  PCCERT_CONTEXT carried = nullptr;
  Bytes content = Bytes(1000, 'x');
  DWORD estimate = 0;
};

CRYPT_VERIFY_MESSAGE_PARA VerifyPara() {
  CRYPT_VERIFY_MESSAGE_PARA para{};
  para.cbSize = sizeof para;
  para.dwMsgAndCertEncodingType = kEncoding;
  return para;
}

struct Verification {
  DWORD code = 0;  // the last error of a failure
  Bytes content;
  Certificate signer;
};
Verification Verify(const Bytes& message, DWORD index = 0, CRYPT_VERIFY_MESSAGE_PARA para = VerifyPara()) {
  Verification result;
  result.content.resize(message.size());
  auto size = static_cast<DWORD>(message.size());
  if (!CryptVerifyMessageSignature(&para, index, message.data(), static_cast<DWORD>(message.size()),
                                   result.content.data(), &size, result.signer.out()))
    result.code = GetLastError();
  result.content.resize(result.code ? 0 : size);
  return result;
}

DWORD VerifyDetached(const Bytes& message, const std::vector<Bytes>& pieces) {
  CRYPT_VERIFY_MESSAGE_PARA para = VerifyPara();
  std::vector<const BYTE*> pointers;
  std::vector<DWORD> sizes;
  for (const Bytes& each : pieces) {
    pointers.push_back(each.data());
    sizes.push_back(static_cast<DWORD>(each.size()));
  }
  Certificate signer;
  const BOOL verified = CryptVerifyDetachedMessageSignature(
      &para, 0, message.data(), static_cast<DWORD>(message.size()), static_cast<DWORD>(pieces.size()),
      pointers.data(), sizes.data(), signer.out());
  EXPECT_EQ(static_cast<bool>(signer), verified != FALSE);
  return verified ? 0 : GetLastError();
}

// What openssl says of a message, or "" when it verifies. -cades: the signing certificate's attribute has to be there.
std::string OpensslSays(const Signing& signing, const Bytes& message, const std::string& options) {
  const auto write = [](const char* name, std::span<const BYTE> bytes) {
    std::ofstream(WorkDirectory() / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  };
  write("simple.cms", message);
  write("simple.txt", signing.content);
  write("simple.crt", {signing.carried->pbCertEncoded, signing.carried->cbCertEncoded});
  const std::string said =
      RunShell("cd '" + WorkDirectory().string() + "'; export OPENSSL_CONF='" + SignedObject("config").string()
               + "'; openssl x509 -inform DER -in simple.crt -out simple.pem; openssl cms -verify -inform DER -binary "
                 "-in simple.cms -CAfile simple.pem -purpose any -out simple.out "
               + options + " 2>&1 && cmp simple.out simple.txt || true");
  return said.find("Verification successful") != said.npos && said.find("differ") == said.npos ? "" : said;
}

TEST(SimpleMessages, OthersVerifyWhatIsSignedHere) {
  struct Case {
    DWORD provider;
    const char* hash;
    const char* options;
  };
  const Case kCases[] = {
      {PROV_GOST_2012_256, szOID_GOST_R3411_2012_256, "-cades"},
      {PROV_GOST_2012_512, szOID_GOST_R3411_2012_512, "-cades"},
      {PROV_GOST_2001_DH,  szOID_GOST_R3411_94,       "-cades"},
      {PROV_GOST_2012_256, "1.2.840.113549.2.5",      "-cades"}, // repaired
      {PROV_RSA_AES,       kSha256,                   ""      },
  };
  for (const auto& [provider, hash, options] : kCases) {
    SCOPED_TRACE(std::to_string(provider) + " " + hash);
    const Certificate certificate = MakeSigner(provider).certificate();
    Signing signing(certificate, hash);
    signing.para.dwFlags = CRYPT_MESSAGE_SILENT_KEYSET_FLAG | SVCMSG_CADES_STRICT;
    const Bytes attached = signing.sign();
    ASSERT_FALSE(attached.empty()) << std::hex << GetLastError();
    EXPECT_EQ(OpensslSays(signing, attached, options), "");
    const Verification result = Verify(attached);
    EXPECT_EQ(result.code, 0u);
    EXPECT_EQ(result.content, signing.content);
    ASSERT_TRUE(result.signer);
    EXPECT_TRUE(CertCompareCertificate(kEncoding, result.signer->pCertInfo, certificate->pCertInfo));
    EXPECT_STREQ(signing.para.HashAlgorithm.pszObjId, hash) << "the caller's record";
    EXPECT_EQ(signing.para.cAuthAttr, 0u);

    const Bytes detached = signing.sign(true);
    ASSERT_FALSE(detached.empty());
    EXPECT_EQ(OpensslSays(signing, detached, options + std::string(" -content simple.txt")), "");
    const Bytes front(signing.content.begin(), signing.content.begin() + 300);
    const Bytes back(signing.content.begin() + 300, signing.content.end());
    EXPECT_EQ(VerifyDetached(detached, {front, back}), 0u);
    EXPECT_EQ(VerifyDetached(detached, {back}), DWORD{NTE_BAD_SIGNATURE});
  }
}

TEST(SimpleMessages, WhatOthersSignedIsVerified) {
  for (const char* kind : {"rsa", "p256", "gost2001", "gost256", "gost512"}) {
    SCOPED_TRACE(kind);
    const Bytes attached = SignedBytes(std::string(kind) + "-attached.cms");
    const Verification result = Verify(attached);
    EXPECT_EQ(result.code, 0u);
    EXPECT_EQ(result.content, SignedContent());
    EXPECT_EQ(CryptGetMessageSignerCount(kEncoding, attached.data(), static_cast<DWORD>(attached.size())), 1);
    EXPECT_EQ(VerifyDetached(SignedBytes(std::string(kind) + "-detached.cms"), {SignedContent()}), 0u);
    Bytes changed = attached;
    *std::search(changed.begin(), changed.end(), SignedContent().begin(), SignedContent().end()) ^= 1;
    const Verification refused = Verify(changed);
    EXPECT_EQ(refused.code, DWORD{NTE_BAD_SIGNATURE});
    EXPECT_FALSE(refused.signer) << "a signer is told on success only";
  }
  const Bytes two = SignedBytes("two.cms");
  EXPECT_EQ(CryptGetMessageSignerCount(kEncoding, two.data(), static_cast<DWORD>(two.size())), 2);
  EXPECT_EQ(Verify(two, 0).code, 0u);
  EXPECT_EQ(Verify(two, 1).code, 0u);
  EXPECT_EQ(Verify(two, 2).code, DWORD{CRYPT_E_NO_SIGNER});
}

// Each has messages of its own; providers, certificates and the keys that stay imported belong to all.
TEST(SimpleMessages, ThreadsShareKeys) {
  const OwnKey keys[] = {OwnKey("p256"), OwnKey("gost256")};
  const Certificate theirs = SignerCertificate("rsa");
  const Bytes encoded = SignedBytes("rsa-attached.cms");
  const auto work = [&] {
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(VerifyByIndex(OpenMessage(encoded).get(), 0, theirs.get()), 0u);
      for (const OwnKey& key : keys) {
        const Bytes made = SignMessage({key.signer()}, SignedContent(), {.flags = SVCMSG_CADES_DISABLE});
        EXPECT_EQ(VerifyByIndex(OpenMessage(made).get(), 0, key.certificate()), 0u);
      }
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(work);
  for (std::thread& each : threads) each.join();
}

TEST(SimpleMessages, TheCallerMayFindTheSigner) {
  struct Finder {
    const Certificate certificate = SignerCertificate("gost256");
    DWORD inMessage = 0;
    bool finds = true;
  } finder;
  CRYPT_VERIFY_MESSAGE_PARA para = VerifyPara();
  para.pvGetArg = &finder;
  para.pfnGetSignerCertificate = [](void* arg, DWORD, PCERT_INFO id, HCERTSTORE store) -> PCCERT_CONTEXT {
    auto& self = *static_cast<Finder*>(arg);
    PCCERT_CONTEXT each = nullptr;
    for (self.inMessage = 0; (each = CertEnumCertificatesInStore(store, each));) ++self.inMessage;
    EXPECT_TRUE(CertCompareCertificate(kEncoding, id, self.certificate->pCertInfo));
    SetLastError(ERROR_INVALID_DATA);
    return self.finds ? CertDuplicateCertificateContext(self.certificate.get()) : nullptr;
  };
  const Bytes message = SignedBytes("gost256-attached.cms");
  const Verification result = Verify(message, 0, para);
  EXPECT_EQ(result.code, 0u);
  EXPECT_EQ(result.signer.get(), finder.certificate.get());
  EXPECT_EQ(finder.inMessage, 1u);
  finder.finds = false;
  EXPECT_EQ(Verify(message, 0, para).code, DWORD{ERROR_INVALID_DATA}) << "the finder's own code";
}

TEST(SimpleMessages, FlagsOfTheAttributes) {
  const Certificate certificate = GostSigner().certificate();
  const auto attributesOf = [](const Bytes& message) {
    std::vector<std::string> oids;
    const Message opened = OpenMessage(message);
    const Bytes record = Parameter(opened.get(), CMSG_SIGNER_AUTH_ATTR_PARAM);
    const auto& list = *reinterpret_cast<const CRYPT_ATTRIBUTES*>(record.data());
    for (DWORD i = 0; i < list.cAttr; ++i) oids.emplace_back(list.rgAttr[i].pszObjId);
    return oids;
  };
  Signing plain(certificate);
  EXPECT_THAT(attributesOf(plain.sign()),
              testing::UnorderedElementsAre(szOID_RSA_contentType, szOID_RSA_messageDigest,
                                            szOID_RSA_signingTime, szOID_SIGNING_CERTIFICATE_V2));
  Signing disabled(certificate);
  disabled.para.dwFlags = SVCMSG_CADES_DISABLE;
  const Bytes bare = disabled.sign();
  EXPECT_EQ(OpensslSays(disabled, bare, ""), "");
  EXPECT_THAT(attributesOf(bare), testing::IsEmpty());
  Signing both(certificate);
  both.para.dwFlags = SVCMSG_CADES_DISABLE | SVCMSG_CADES_STRICT;
  EXPECT_TRUE(both.sign().empty());
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  both.para.cbSize = offsetof(CRYPT_SIGN_MESSAGE_PARA, dwFlags);
  EXPECT_FALSE(both.sign().empty()) << "the flags are behind cbSize";
}

TEST(SimpleMessages, WithoutSigners) {
  Signing bag{Certificate()};
  const Certificate certificate = GostSigner().certificate();
  PCCERT_CONTEXT carried[] = {certificate.get(), certificate.get()};
  bag.para.cMsgCert = 2;
  bag.para.rgpMsgCert = carried;
  const Bytes message = bag.sign();
  ASSERT_FALSE(message.empty()) << GetLastError();
  EXPECT_EQ(CryptGetMessageSignerCount(kEncoding, message.data(), static_cast<DWORD>(message.size())), 0);
  EXPECT_EQ(Verify(message).code, DWORD{CRYPT_E_NO_SIGNER});
}

TEST(SimpleMessages, WhatIsRefused) {
  const Certificate certificate = GostSigner().certificate();
  Signing signing(certificate);
  const BYTE* piece = signing.content.data();
  DWORD pieceSize = 4, size = 0;
  const auto sign = [&](CRYPT_SIGN_MESSAGE_PARA* para, DWORD count, const BYTE** pieces, DWORD* sizes,
                        BYTE* out, DWORD* outSize, BOOL detached = FALSE) {
    SetLastError(0);
    return CryptSignMessage(para, detached, count, pieces, sizes, out, outSize) ? 0 : GetLastError();
  };
  EXPECT_EQ(sign(nullptr, 1, &piece, &pieceSize, nullptr, &size), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(sign(&signing.para, 2, &piece, &pieceSize, nullptr, &size), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(sign(&signing.para, 2, &piece, &pieceSize, nullptr, &size, TRUE), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(sign(&signing.para, 1, &piece, nullptr, nullptr, &size), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(sign(&signing.para, 1, &piece, &pieceSize, nullptr, nullptr), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(sign(&signing.para, 0, nullptr, nullptr, nullptr, &size), 0u) << "no content at all";
  EXPECT_EQ(sign(&signing.para, 1, nullptr, &pieceSize, nullptr, &size), 0u) << "its bytes aren't wanted yet";
  BYTE little[10];
  EXPECT_EQ(sign(&signing.para, 1, nullptr, &pieceSize, little, &size), DWORD{ERROR_INVALID_PARAMETER});
  size = sizeof little;
  EXPECT_EQ(sign(&signing.para, 1, &piece, &pieceSize, little, &size), DWORD{ERROR_MORE_DATA});
  EXPECT_GT(size, sizeof little);
  signing.para.rgpMsgCert = nullptr;
  EXPECT_EQ(sign(&signing.para, 1, &piece, &pieceSize, nullptr, &size), DWORD{ERROR_INVALID_PARAMETER});

  const Certificate keyless(CertCreateCertificateContext(X509_ASN_ENCODING, certificate->pbCertEncoded,
                                                         certificate->cbCertEncoded));
  Signing without(keyless);
  EXPECT_TRUE(without.sign().empty());
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_NO_KEY_PROPERTY});
  const CERT_CONTEXT freed = *certificate.get();
  without.para.pSigningCert = &freed;
  EXPECT_TRUE(without.sign().empty());
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(SimpleMessages, WhatIsNoSignedMessage) {
  const auto message = [](DWORD type) {
    CMSG_HASHED_ENCODE_INFO info{};
    info.cbSize = sizeof info;
    info.HashAlgorithm.pszObjId = const_cast<LPSTR>(kSha256);
    const Message building(
        CryptMsgOpenToEncode(kEncoding, 0, type, type == CMSG_DATA ? nullptr : &info, nullptr, nullptr));
    EXPECT_TRUE(CryptMsgUpdate(building.get(), SignedContent().data(),
                               static_cast<DWORD>(SignedContent().size()), TRUE));
    return Parameter(building.get(), CMSG_CONTENT_PARAM);
  };
  const auto count = [](const Bytes& bytes) {
    EXPECT_EQ(CryptGetMessageSignerCount(kEncoding, bytes.data(), static_cast<DWORD>(bytes.size())), -1);
    return GetLastError();
  };
  for (const DWORD type : {CMSG_DATA, CMSG_HASHED}) {
    const Bytes other = message(type);
    ASSERT_FALSE(other.empty());
    EXPECT_EQ(Verify(other).code, DWORD{CRYPT_E_UNEXPECTED_MSG_TYPE});
    EXPECT_EQ(count(other), DWORD{CRYPT_E_UNEXPECTED_MSG_TYPE});
  }
  EXPECT_EQ(count({0x04, 0x00}), DWORD{CRYPT_E_INVALID_MSG_TYPE});
  EXPECT_EQ(count({0x30}), DWORD{E_INVALIDARG}) << "its type never came";
  EXPECT_EQ(CryptGetMessageSignerCount(kEncoding, nullptr, 5), -1);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Verify({}).code, DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(VerifyDetached(SignedBytes("rsa-detached.cms"), {}), DWORD{ERROR_INVALID_PARAMETER});
  // what is given counts, not what is inside
  EXPECT_EQ(VerifyDetached(SignedBytes("rsa-attached.cms"), {{'?'}}), DWORD{NTE_BAD_SIGNATURE});
}

// Without the repair a foreign hash goes down to the provider of the key, which can't sign it.
TEST(SimpleMessages, DISABLED_Unrepaired) {
  const Certificate certificate = GostSigner().certificate();
  Signing signing(certificate, "1.2.840.113549.2.5");
  EXPECT_TRUE(signing.sign().empty());
  EXPECT_NE(GetLastError(), 0u);
}

TEST(SimpleMessages, RepairCanBeSwitchedOff) {
  RunWithSettings("SimpleMessages.DISABLED_Unrepaired", "[config.Certkern]\nrepair_bad_algs = 0\n");
}

}  // namespace
}  // namespace certkern::test
