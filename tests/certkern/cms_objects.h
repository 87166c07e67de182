// Keys, certificates and signed messages of the openssl program, and messages opened for reading.
#ifndef CERTKERN_TESTS_CERTKERN_CMS_OBJECTS_H
#define CERTKERN_TESTS_CERTKERN_CMS_OBJECTS_H

#include <certkern/cert.h>
#include <certkern/msg.h>
#include <certkern/msg_simple.h>

#include <filesystem>
#include <string>
#include <vector>

#include "interop/openssl_tool.h"
#include "platform/owner.h"

namespace certkern::test {

using Message = Owner<HCRYPTMSG, CryptMsgClose>;
using Certificate = Owner<PCCERT_CONTEXT, CertFreeCertificateContext>;

// Made once for the test program by tests/data/make_signed_messages.sh, whose head tells the names.
std::filesystem::path SignedObject(const std::string& name);
Bytes SignedBytes(const std::string& name);
Certificate SignerCertificate(const std::string& kind);
// What every message there is about.
const Bytes& SignedContent();

// Empty, and the last error tells why, when an update is refused. With content, the message is opened as detached.
Message OpenMessage(const Bytes& encoded, const Bytes* detached = nullptr);
// 0, or the last error.
DWORD VerifyByCertificate(HCRYPTMSG message, PCCERT_CONTEXT certificate);
DWORD VerifyByIndex(HCRYPTMSG message, DWORD index, PCCERT_CONTEXT certificate);
Bytes Parameter(HCRYPTMSG message, DWORD type, DWORD index = 0);
// A key of its own provider, and a certificate over it that it signed itself.
class OwnKey {
 public:
  struct Kind {
    const char* name;
    DWORD providerType;
    ALG_ID key;
    DWORD flags;
    const char* signature;  // of the certificate
    const char* hash;       // that messages are signed with
  };
  static const Kind& KindOf(const std::string& name);
  static std::vector<std::string> Names();

  explicit OwnKey(const std::string& kind);

  HCRYPTPROV provider() const { return provider_.get(); }
  PCCERT_CONTEXT certificate() const { return certificate_.get(); }
  const Kind& kind() const { return kind_; }
  // Ready to be signed with, without attributes.
  CMSG_SIGNER_ENCODE_INFO signer(const char* hash = nullptr) const;
  // Where openssl finds the certificate, as PEM.
  std::filesystem::path pem() const;

 private:
  const Kind& kind_;
  Owner<HCRYPTPROV, CryptReleaseContext> provider_;
  Owner<HCRYPTKEY, CryptDestroyKey> key_;
  Certificate certificate_;
};

// What of a signed message is to be made besides its signers.
struct SignedShape {
  DWORD flags = 0;
  const char* innerType = nullptr;
  std::vector<Bytes> certificates{};
  std::vector<Bytes> crls{};
};
Message OpenToSign(std::vector<CMSG_SIGNER_ENCODE_INFO> signers, const SignedShape& shape = {});
// The whole message; empty, and the last error tells why.
Bytes SignMessage(std::vector<CMSG_SIGNER_ENCODE_INFO> signers, const Bytes& content,
                  const SignedShape& shape = {});

// "" when openssl verifies the message, otherwise what it says.
std::string OpensslRefusal(const Bytes& message, const std::filesystem::path& certificate,
                           bool detached = false);

}  // namespace certkern::test

#endif
