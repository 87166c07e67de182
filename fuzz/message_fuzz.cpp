// Any bytes as a message: every parameter into exactly the room that it asked for, every control, then every parameter again.
// What is encoded anew reads as the same message; of what was refused nothing verifies.
#include <certkern/cert.h>
#include <certkern/keykern.h>
#include <certkern/msg.h>
#include <certkern/store.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/owner.h"

namespace {

using certkern::Owner;
using Message = Owner<HCRYPTMSG, CryptMsgClose>;
using Certificate = Owner<PCCERT_CONTEXT, CertFreeCertificateContext>;
using Store = Owner<HCERTSTORE, CertCloseStore>;

constexpr DWORD kParameters = 40;
constexpr DWORD kIndexes = 3;
constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

void Require(bool condition) {
  if (!condition) std::abort();
}

// Aligned for any record, and not a byte longer than asked for.
struct Value {
  std::unique_ptr<BYTE[]> bytes;
  DWORD size = 0;
  std::span<const BYTE> span() const { return {bytes.get(), size}; }
};

std::optional<Value> Parameter(const Message& message, DWORD parameter, DWORD index = 0) {
  DWORD size = 0;
  if (!CryptMsgGetParam(message.get(), parameter, index, nullptr, &size)) return {};
  Value value{std::make_unique<BYTE[]>(size), size};
  Require(CryptMsgGetParam(message.get(), parameter, index, value.bytes.get(), &value.size));
  Require(value.size == size);
  if (!size) return value;
  DWORD less = size - 1;
  Require(!CryptMsgGetParam(message.get(), parameter, index, value.bytes.get(), &less) && less == size);
  Require(GetLastError() == ERROR_MORE_DATA);
  return value;
}

DWORD Number(const Message& message, DWORD parameter) {
  DWORD number = 0, size = sizeof number;
  return CryptMsgGetParam(message.get(), parameter, 0, &number, &size) ? number : 0;
}

void ReadAll(const Message& message) {
  for (DWORD parameter = 0; parameter <= kParameters; ++parameter) {
    for (DWORD index = 0; index < kIndexes; ++index) static_cast<void>(Parameter(message, parameter, index));
  }
}

bool Update(const Message& message, std::span<const BYTE> bytes) {
  return CryptMsgUpdate(message.get(), bytes.data(), static_cast<DWORD>(bytes.size()), TRUE) != FALSE;
}

Message Open(DWORD type, DWORD flags) {
  return Message(CryptMsgOpenToDecode(0, flags, type, 0, nullptr, nullptr));
}

// A plain message gives its bare bytes, without the wrapper that would tell the type.
void RequireReencodesAlike(const Message& message, DWORD flags) {
  const std::optional<Value> encoded = Parameter(message, CMSG_ENCODED_MESSAGE);
  if (!encoded || Number(message, CMSG_TYPE_PARAM) == CMSG_DATA) return;
  const Message again = Open(0, flags);
  Require(Update(again, encoded->span()));
  for (const DWORD count : {CMSG_SIGNER_COUNT_PARAM, CMSG_CERT_COUNT_PARAM, CMSG_CRL_COUNT_PARAM}) {
    Require(Number(message, count) == Number(again, count));
  }
  const std::optional<Value> before = Parameter(message, CMSG_CONTENT_PARAM);
  const std::optional<Value> after = Parameter(again, CMSG_CONTENT_PARAM);
  Require(before && after && std::ranges::equal(before->span(), after->span()));
}

Certificate FirstCertificate(const Message& message) {
  const std::optional<Value> encoded = Parameter(message, CMSG_CERT_PARAM);
  if (!encoded) return {};
  return Certificate(CertCreateCertificateContext(kEncoding, encoded->bytes.get(), encoded->size));
}

// Whether anything held.
bool Verify(const Message& message) {
  bool held = CryptMsgControl(message.get(), 0, CMSG_CTRL_VERIFY_HASH, nullptr) != FALSE;
  PCCERT_CONTEXT signer = nullptr;
  held |= CryptMsgGetAndVerifySigner(message.get(), 0, nullptr, 0, &signer, nullptr) != FALSE;
  const Certificate found(signer);
  const Certificate certificate = FirstCertificate(message);
  if (!certificate) return held;
  held |= CryptMsgControl(message.get(), 0, CMSG_CTRL_VERIFY_SIGNATURE, certificate->pCertInfo) != FALSE;
  for (DWORD index = 0; index < kIndexes; ++index) {
    CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA para{};
    para.cbSize = sizeof para;
    para.dwSignerIndex = index;
    para.dwSignerType = CMSG_VERIFY_SIGNER_PUBKEY;
    para.pvSigner = &certificate->pCertInfo->SubjectPublicKeyInfo;
    held |= CryptMsgControl(message.get(), 0, CMSG_CTRL_VERIFY_SIGNATURE_EX, &para) != FALSE;
  }
  return held;
}

void Change(const Message& message, std::span<const BYTE> bytes) {
  CRYPT_DATA_BLOB blob = {static_cast<DWORD>(bytes.size()), const_cast<BYTE*>(bytes.data())};
  CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA add = {sizeof add, 0, blob};
  CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR_PARA remove = {sizeof remove, 0, 0};
  DWORD first = 0;
  CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_CERT, &blob);
  CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_CRL, &blob);
  CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, &add);
  if (const std::optional<Value> signer = Parameter(message, CMSG_CMS_SIGNER_INFO_PARAM)) {
    CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_CMS_SIGNER_INFO, signer->bytes.get());
  }
  ReadAll(message);
  CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR, &remove);
  CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_CERT, &first);
  CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_CRL, &first);
  CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_SIGNER, &first);
  ReadAll(message);
  static_cast<void>(Verify(message));
}

}  // namespace

// The first octet: the type in its low bits, then whether the content is apart.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const DWORD flags = data[0] & 8 ? CMSG_DETACHED_FLAG : 0;
  const std::vector<BYTE> input(data + 1, data + size);
  const Message message = Open(data[0] & 7, flags);
  if (!message) return 0;
  if (Update(message, input)) {
    if (flags) static_cast<void>(CryptMsgUpdate(message.get(), data, 1, TRUE));
    ReadAll(message);
    RequireReencodesAlike(message, flags);
    static_cast<void>(Verify(message));
  } else {  // what can be told of it may be asked, but nothing of it holds
    ReadAll(message);
    Require(!Verify(message));
    static_cast<void>(Update(message, input));
  }
  const Store store(CertOpenStore(CERT_STORE_PROV_MSG, kEncoding, 0, 0, message.get()));
  Change(message, input);
  return 0;
}
