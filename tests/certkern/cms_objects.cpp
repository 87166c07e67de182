#include "certkern/cms_objects.h"

#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <fstream>

namespace fs = std::filesystem;

namespace certkern::test {

fs::path SignedObject(const std::string& name) {
  static const fs::path directory = [] {
    fs::path made = WorkDirectory() / "signed";
    RunShell("sh '" CERTKERN_SOURCE_DIR "/tests/data/make_signed.sh' '" + made.string() + "'");
    return made;
  }();
  return directory / name;
}

Bytes SignedBytes(const std::string& name) { return ReadFile(SignedObject(name)); }

Certificate SignerCertificate(const std::string& kind) {
  const Bytes encoded = SignedBytes(kind + ".crt");
  return Certificate(CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(),
                                                  static_cast<DWORD>(encoded.size())));
}

const Bytes& SignedContent() {
  static const Bytes content = SignedBytes("content");
  return content;
}

Message OpenMessage(const Bytes& encoded, const Bytes* detached) {
  Message message(CryptMsgOpenToDecode(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, detached ? CMSG_DETACHED_FLAG : 0, 0,
                                       0, nullptr, nullptr));
  if (!CryptMsgUpdate(message.get(), encoded.data(), static_cast<DWORD>(encoded.size()), TRUE)) return {};
  if (detached &&
      !CryptMsgUpdate(message.get(), detached->data(), static_cast<DWORD>(detached->size()), TRUE)) {
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
  EXPECT_TRUE(CryptMsgGetParam(message, type, index, nullptr, &size)) << type << ": " << std::hex << GetLastError();
  Bytes value(size);
  EXPECT_TRUE(CryptMsgGetParam(message, type, index, value.data(), &size)) << type;
  EXPECT_EQ(size, value.size());
  return value;
}

std::string OpensslRefusal(const Bytes& message, const std::string& certificate, bool detached) {
  const fs::path file = WorkDirectory() / "ours.cms";
  std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(message.data()),
                                              static_cast<std::streamsize>(message.size()));
  const std::string command = "OPENSSL_CONF='" + SignedObject("config").string() +
                              "' openssl cms -verify -binary -noverify -inform DER -in '" + file.string() +
                              "' -certfile '" + SignedObject(certificate + ".pem").string() + "' -out /dev/null" +
                              (detached ? " -content '" + SignedObject("content").string() + "'" : "") +
                              " 2>&1 || echo refused";
  const std::string said = RunShell(command);
  return said.find("refused") == said.npos ? "" : said;
}

}  // namespace certkern::test
