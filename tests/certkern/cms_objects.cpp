#include "certkern/cms_objects.h"

#include <certkern/encode.h>
#include <certkern/keykern.h>
#include <certkern/keys.h>
#include <certkern/name.h>
#include <gtest/gtest.h>

#include <fstream>

namespace fs = std::filesystem;

namespace certkern::test {

fs::path SignedObject(const std::string& name) {
  static const fs::path directory = [] {
    fs::path made = WorkDirectory() / "signed messages";
    RunShell("sh '" CERTKERN_SOURCE_DIR "/tests/data/make_signed_messages.sh' '" + made.string() + "'");
    return made;
  }();
  return directory / name;
}

Bytes SignedBytes(const std::string& name) { return ReadFile(SignedObject(name)); }

Certificate SignerCertificate(const std::string& kind) {
  const Bytes encoded = SignedBytes(kind + ".crt");
  return Certificate(
      CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(), static_cast<DWORD>(encoded.size())));
}

const Bytes& SignedContent() {
  static const Bytes content = SignedBytes("content");
  return content;
}

Message OpenMessage(const Bytes& encoded, const Bytes* detached) {
  Message message(CryptMsgOpenToDecode(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING,
                                       detached ? CMSG_DETACHED_FLAG : 0, 0, 0, nullptr, nullptr));
  if (!CryptMsgUpdate(message.get(), encoded.data(), static_cast<DWORD>(encoded.size()), TRUE)) return {};
  if (detached
      && !CryptMsgUpdate(message.get(), detached->data(), static_cast<DWORD>(detached->size()), TRUE)) {
    return {};
  }
  return message;
}

DWORD VerifyByCertificate(HCRYPTMSG message, PCCERT_CONTEXT certificate) {
  return CryptMsgControl(message, 0, CMSG_CTRL_VERIFY_SIGNATURE, certificate->pCertInfo) ? 0 : GetLastError();
}

DWORD VerifyByIndex(HCRYPTMSG message, DWORD index, PCCERT_CONTEXT certificate) {
  CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA para{};
  para.cbSize = sizeof para;
  para.dwSignerIndex = index;
  para.dwSignerType = CMSG_VERIFY_SIGNER_CERT;
  para.pvSigner = const_cast<CERT_CONTEXT*>(certificate);
  return CryptMsgControl(message, 0, CMSG_CTRL_VERIFY_SIGNATURE_EX, &para) ? 0 : GetLastError();
}

Bytes Parameter(HCRYPTMSG message, DWORD type, DWORD index) {
  DWORD size = 0;
  EXPECT_TRUE(CryptMsgGetParam(message, type, index, nullptr, &size))
      << type << ": " << std::hex << GetLastError();
  Bytes value(size);
  EXPECT_TRUE(CryptMsgGetParam(message, type, index, value.data(), &size)) << type;
  EXPECT_EQ(size, value.size());
  return value;
}

// --- keys that sign here ---

const OwnKey::Kind& OwnKey::KindOf(const std::string& name) {
  static constexpr Kind kKinds[] = {
      {"rsa",      PROV_RSA_AES,       CALG_RSA_SIGN,      2048u << 16, "1.2.840.113549.1.1.11", "2.16.840.1.101.3.4.2.1"},
      {"p256",     PROV_EC_ECDSA_FULL, CALG_ECDSA,         0,           "1.2.840.10045.4.3.2",   "2.16.840.1.101.3.4.2.1"},
      {"gost256",  PROV_GOST_2012_256, CALG_GR3410_12_256, 0,           "1.2.643.7.1.1.3.2",     "1.2.643.7.1.1.2.2"     },
      {"gost512",  PROV_GOST_2012_512, CALG_GR3410_12_512, 0,           "1.2.643.7.1.1.3.3",     "1.2.643.7.1.1.2.3"     },
      {"gost2001", PROV_GOST_2001_DH,  CALG_GR3410EL,      0,           "1.2.643.2.2.3",         "1.2.643.2.2.9"         },
  };
  for (const Kind& kind : kKinds) {
    if (kind.name == name) return kind;
  }
  ADD_FAILURE() << name;
  return kKinds[0];
}

std::vector<std::string> OwnKey::Names() { return {"rsa", "p256", "gost256", "gost512", "gost2001"}; }

OwnKey::OwnKey(const std::string& kind) : kind_(KindOf(kind)) {
  EXPECT_TRUE(
      CryptAcquireContextA(provider_.out(), nullptr, nullptr, kind_.providerType, CRYPT_VERIFYCONTEXT));
  EXPECT_TRUE(CryptGenKey(provider_.get(), kind_.key, kind_.flags, key_.out())) << std::hex << GetLastError();
  DWORD size = 0;
  EXPECT_TRUE(CryptExportPublicKeyInfo(provider_.get(), AT_SIGNATURE, X509_ASN_ENCODING, nullptr, &size));
  std::vector<uint64_t> room(size / 8 + 1);
  auto* const key = reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(room.data());
  EXPECT_TRUE(CryptExportPublicKeyInfo(provider_.get(), AT_SIGNATURE, X509_ASN_ENCODING, key, &size));
  Bytes name(256);
  DWORD nameSize = 256;
  EXPECT_TRUE(CertStrToNameA(X509_ASN_ENCODING, ("CN=own " + kind).c_str(), CERT_X500_NAME_STR, nullptr,
                             name.data(), &nameSize, nullptr));
  BYTE serial[] = {7, 1};
  CERT_INFO info{};
  info.dwVersion = CERT_V3;
  info.SerialNumber = {sizeof serial, serial};
  info.SignatureAlgorithm.pszObjId = const_cast<char*>(kind_.signature);
  info.Issuer = info.Subject = {nameSize, name.data()};
  GetSystemTimeAsFileTime(&info.NotBefore);
  info.NotAfter = info.NotBefore;
  info.NotAfter.dwHighDateTime += 0x10000;
  info.SubjectPublicKeyInfo = *key;
  Bytes encoded(4096);
  size = 4096;
  EXPECT_TRUE(CryptSignAndEncodeCertificate(provider_.get(), AT_SIGNATURE, X509_ASN_ENCODING,
                                            X509_CERT_TO_BE_SIGNED, &info, &info.SignatureAlgorithm, nullptr,
                                            encoded.data(), &size))
      << kind << std::hex << GetLastError();
  certificate_.reset(CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(), size));
}

CMSG_SIGNER_ENCODE_INFO OwnKey::signer(const char* hash) const {
  CMSG_SIGNER_ENCODE_INFO info{};
  info.cbSize = sizeof info;
  info.pCertInfo = certificate_->pCertInfo;
  info.hCryptProv = provider_.get();
  info.dwKeySpec = AT_SIGNATURE;
  info.HashAlgorithm.pszObjId = const_cast<char*>(hash ? hash : kind_.hash);
  return info;
}

fs::path OwnKey::pem() const {
  const fs::path file = WorkDirectory() / (std::string(kind_.name) + "-own.pem");
  const fs::path der = WriteScratch({certificate_->pbCertEncoded, certificate_->cbCertEncoded});
  RunShell("openssl x509 -inform DER -in '" + der.string() + "' -out '" + file.string() + "'");
  return file;
}

namespace {

std::vector<CRYPT_DATA_BLOB> BlobsOf(const std::vector<Bytes>& pieces) {
  std::vector<CRYPT_DATA_BLOB> blobs;
  for (const Bytes& piece : pieces) {
    blobs.push_back({static_cast<DWORD>(piece.size()), const_cast<BYTE*>(piece.data())});
  }
  return blobs;
}

}  // namespace

Message OpenToSign(std::vector<CMSG_SIGNER_ENCODE_INFO> signers, const SignedShape& shape) {
  std::vector<CRYPT_DATA_BLOB> certificates = BlobsOf(shape.certificates), crls = BlobsOf(shape.crls);
  CMSG_SIGNED_ENCODE_INFO info{};
  info.cbSize = sizeof info;
  info.cSigners = static_cast<DWORD>(signers.size());
  info.rgSigners = signers.data();
  info.cCertEncoded = static_cast<DWORD>(certificates.size());
  info.rgCertEncoded = certificates.data();
  info.cCrlEncoded = static_cast<DWORD>(crls.size());
  info.rgCrlEncoded = crls.data();
  return Message(CryptMsgOpenToEncode(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, shape.flags, CMSG_SIGNED,
                                      &info, const_cast<char*>(shape.innerType), nullptr));
}

Bytes SignMessage(std::vector<CMSG_SIGNER_ENCODE_INFO> signers, const Bytes& content,
                  const SignedShape& shape) {
  const Message message = OpenToSign(std::move(signers), shape);
  DWORD size = 0;
  if (!message || !CryptMsgUpdate(message.get(), content.data(), static_cast<DWORD>(content.size()), TRUE)
      || !CryptMsgGetParam(message.get(), CMSG_CONTENT_PARAM, 0, nullptr, &size)) {
    return {};
  }
  return Parameter(message.get(), CMSG_CONTENT_PARAM);
}

std::string OpensslRefusal(const Bytes& message, const fs::path& certificate, bool detached) {
  const fs::path file = WorkDirectory() / "ours.cms";
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(message.data()), static_cast<std::streamsize>(message.size()));
  const std::string command = "OPENSSL_CONF='" + SignedObject("config").string()
      + "' openssl cms -verify -binary -noverify -inform DER -in '" + file.string() + "' -certfile '"
      + certificate.string() + "' -out /dev/null"
      + (detached ? " -content '" + SignedObject("content").string() + "'" : "") + " 2>&1 || echo refused";
  const std::string said = RunShell(command);
  return said.find("refused") == said.npos ? "" : said;
}

}  // namespace certkern::test
