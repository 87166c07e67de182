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

// Made once for the test program by tests/data/make_signed.sh, whose head tells the names.
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
// "" when openssl verifies the message, otherwise what it says.
std::string OpensslRefusal(const Bytes& message, const std::string& certificate, bool detached = false);

}  // namespace certkern::test

#endif
