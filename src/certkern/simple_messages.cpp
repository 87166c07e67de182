#include "certkern/simple_messages.h"

#include <certkern/cert.h>
#include <certkern/errors.h>
#include <certkern/keys.h>
#include <certkern/store.h>

#include <cstddef>
#include <utility>
#include <vector>

#include "certkern/CMSSignedMessage.h"
#include "certkern/chain/chain_records.h"
#include "certkern/cms_attributes.h"
#include "certkern/gost_repair.h"
#include "certkern/message_signer.h"
#include "keys/signing_display.h"
#include "oid/provider_search.h"
#include "platform/owner.h"
#include "platform/sizes.h"
#include "store/context_record.h"

namespace certkern {
namespace {

using MessageHandle = Owner<HCRYPTMSG, CryptMsgClose>;
using StoreOwner = Owner<HCERTSTORE, CertCloseStore>;

// Of the flags of CryptSignMessage; SVCMSG_CADES_NO_KEY_SEARCH is none there: the certificate is given.
constexpr DWORD kExtensionFlags = SVCMSG_EXTENSION_FLAGS & ~SVCMSG_CADES_NO_KEY_SEARCH;

// --- signing ---

// The encodings of contexts; their bytes stay theirs. False: an array is missing, or one of them is not live.
template <class Context, class Blob>
bool CollectEncoded(Context* const* contexts, DWORD count, ElementType type, std::vector<Blob>& blobs) {
  if (!contexts && count != 0) return false;
  for (Context* each : std::span(contexts, contexts ? count : 0)) {
    const ContextRecord* const record = FindLiveContext(each, type);
    if (!record) return false;
    blobs.push_back({record->certificate.cbCertEncoded, record->certificate.pbCertEncoded});
  }
  return true;
}

// All that a message is made from; what it points to lives as long as this.
class SigningRequest {
 public:
  explicit SigningRequest(const CRYPT_SIGN_MESSAGE_PARA& para) : para_(para) {}

  // False with a code.
  [[nodiscard]] bool prepare();
  DWORD encoding() const { return para_.dwMsgEncodingType; }
  const CMSG_SIGNED_ENCODE_INFO& info() const { return info_; }

 private:
  bool acquireSigner();

  const CRYPT_SIGN_MESSAGE_PARA& para_;
  ProviderHandle provider_;
  CMSG_SIGNER_ENCODE_INFO signer_{};
  std::vector<CERT_BLOB> certificates_;
  std::vector<CRL_BLOB> crls_;
  CMSG_SIGNED_ENCODE_INFO info_{};
};

bool SigningRequest::acquireSigner() {
  const DWORD silent =
      para_.dwFlags & CRYPT_MESSAGE_SILENT_KEYSET_FLAG ? DWORD{CRYPT_ACQUIRE_SILENT_FLAG} : 0;
  HCRYPTPROV provider = 0;
  BOOL isOurs = FALSE;
  if (!CryptAcquireCertificatePrivateKey(para_.pSigningCert, CRYPT_ACQUIRE_USE_PROV_INFO_FLAG | silent,
                                         nullptr, &provider, &signer_.dwKeySpec, &isOurs))
    return false;
  if (isOurs) provider_.reset(provider);
  signer_.cbSize = sizeof signer_;
  signer_.pCertInfo = para_.pSigningCert->pCertInfo;
  signer_.hCryptProv = provider;
  signer_.HashAlgorithm = para_.HashAlgorithm;
  signer_.pvHashAuxInfo = para_.pvHashAuxInfo;
  signer_.cAuthAttr = para_.cAuthAttr;
  signer_.rgAuthAttr = para_.rgAuthAttr;
  signer_.cUnauthAttr = para_.cUnauthAttr;
  signer_.rgUnauthAttr = para_.rgUnauthAttr;
  info_.cSigners = 1;
  info_.rgSigners = &signer_;
  return true;
}

bool SigningRequest::prepare() {
  if (para_.pSigningCert && !acquireSigner()) return false;
  if (!CollectEncoded(para_.rgpMsgCert, para_.cMsgCert, ElementType::Certificate, certificates_)
      || !CollectEncoded(para_.rgpMsgCrl, para_.cMsgCrl, ElementType::Crl, crls_)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  info_.cbSize = offsetof(CMSG_SIGNED_ENCODE_INFO, cAttrCertEncoded);
  info_.cCertEncoded = static_cast<DWORD>(certificates_.size());
  info_.rgCertEncoded = certificates_.data();
  info_.cCrlEncoded = static_cast<DWORD>(crls_.size());
  info_.rgCrlEncoded = crls_.data();
  return true;
}

bool MakeMessage(const SigningRequest& request, DWORD flags, const ContentPieces& content, BYTE* blob,
                 DWORD* blobSize) {
  const MessageHandle message(
      CryptMsgOpenToEncode(request.encoding(), flags, CMSG_SIGNED, &request.info(), nullptr, nullptr));
  if (!message) return false;
  if (content.count != 0 && !content.bytes[0] && content.sizes[0] != 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  if (content.count != 0 && content.bytes[0]) {
    auto* const context = static_cast<MessageContext*>(message.get());
    static_cast<SignedMessageEncodeContext*>(context)->addBorrowed({content.bytes[0], content.sizes[0]});
  }
  return CryptMsgGetParam(message.get(), CMSG_CONTENT_PARAM, 0, blob, blobSize) != FALSE;
}

bool EstimateMessage(const SigningRequest& request, DWORD flags, const ContentPieces& content,
                     DWORD* blobSize) {
  const DWORD contentSize = content.count != 0 ? content.sizes[0] : 0;
  const DWORD size = CryptMsgCalculateEncodedLength(request.encoding(), flags, CMSG_SIGNED, &request.info(),
                                                    nullptr, contentSize);
  if (size == 0) return false;
  *blobSize = size;
  return true;
}

// The copy as it is to be signed. False with a code.
bool AdaptParameters(CRYPT_SIGN_MESSAGE_PARA& para, DWORD extensions, MemoryChain& chain) {
  if (para.pSigningCert && !FindLiveContext(para.pSigningCert, ElementType::Certificate)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  if (RepairsAlgorithms()) PrepareHashCompatibleSignMessage(&para);
  return !para.pSigningCert
      || AddESAttributes(&para.rgAuthAttr, &para.cAuthAttr, &para.HashAlgorithm, nullptr, nullptr, extensions,
                         nullptr, para.pSigningCert, nullptr, &chain);
}

// --- verifying ---

bool GetDword(HCRYPTMSG message, DWORD parameter, DWORD& value) {
  DWORD size = sizeof value;
  return CryptMsgGetParam(message, parameter, 0, &value, &size) != FALSE;
}

bool GetBytes(HCRYPTMSG message, DWORD parameter, DWORD index, std::vector<BYTE>& value) {
  DWORD size = 0;
  if (!CryptMsgGetParam(message, parameter, index, nullptr, &size)) return false;
  value.resize(size);
  return CryptMsgGetParam(message, parameter, index, value.data(), &size) != FALSE;
}

// One that is no X.509 certificate, or that our decoders refuse, can't be the signer's, and must not keep the others
// from being found. Want of memory says nothing about it.
bool AddMessageCertificates(HCRYPTMSG message, HCERTSTORE store) {
  DWORD count = 0;
  if (!GetDword(message, CMSG_CERT_COUNT_PARAM, count)) return false;
  std::vector<BYTE> encoded;
  for (DWORD i = 0; i < count; ++i) {
    if (!GetBytes(message, CMSG_CERT_PARAM, i, encoded)) continue;
    const CertificateOwner certificate(
        CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(), static_cast<DWORD>(encoded.size())));
    if (!certificate && GetLastError() == ERROR_NOT_ENOUGH_MEMORY) return false;
    if (certificate
        && !CertAddCertificateContextToStore(store, certificate.get(), CERT_STORE_ADD_ALWAYS, nullptr))
      return false;
  }
  return true;
}

PCCERT_CONTEXT FindInStore(DWORD encoding, CERT_INFO* id, HCERTSTORE store) {
  PCCERT_CONTEXT each = nullptr;
  while ((each = CertEnumCertificatesInStore(store, each))) {
    if (CertCompareCertificate(encoding, each->pCertInfo, id)) return each;
  }
  return nullptr;
}

// Null with the code of whoever failed.
CertificateOwner GetSigner(HCRYPTMSG message, const CRYPT_VERIFY_MESSAGE_PARA& para, DWORD signerIndex) {
  std::vector<BYTE> id;
  DWORD size = 0;
  if (!CryptMsgGetParam(message, CMSG_SIGNER_CERT_INFO_PARAM, signerIndex, nullptr, &size)) {
    if (SaysThereIsNoSigner(GetLastError())) SetLastError(CRYPT_E_NO_SIGNER);
    return {};
  }
  if (!GetBytes(message, CMSG_SIGNER_CERT_INFO_PARAM, signerIndex, id)) return {};
  const DWORD encoding = para.dwMsgAndCertEncodingType;
  const StoreOwner store(CertOpenStore(CERT_STORE_PROV_MEMORY, encoding, 0, 0, nullptr));
  if (!store || !AddMessageCertificates(message, store.get())) return {};
  auto* const info = reinterpret_cast<CERT_INFO*>(id.data());
  if (para.pfnGetSignerCertificate)
    return CertificateOwner(para.pfnGetSignerCertificate(para.pvGetArg, encoding, info, store.get()));
  return CertificateOwner(FindInStore(encoding, info, store.get()));
}

bool VerifyBy(HCRYPTMSG message, PCCERT_CONTEXT signer, DWORD signerIndex) {
  CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA verification{};
  verification.cbSize = sizeof verification;
  verification.dwSignerIndex = signerIndex;
  verification.dwSignerType = CMSG_VERIFY_SIGNER_CERT;
  verification.pvSigner = const_cast<CERT_CONTEXT*>(signer);
  return CryptMsgControl(message, 0, CMSG_CTRL_VERIFY_SIGNATURE_EX, &verification) != FALSE;
}

bool VerifyWhole(MessageHandle message, const CRYPT_VERIFY_MESSAGE_PARA& para, DWORD signerIndex,
                 const VerifiedParts& parts) {
  CertificateOwner signer = GetSigner(message.get(), para, signerIndex);
  if (!signer || !VerifyBy(message.get(), signer.get(), signerIndex)) return false;
  if (parts.decodedSize
      && !CryptMsgGetParam(message.get(), CMSG_CONTENT_PARAM, 0, parts.decoded, parts.decodedSize))
    return false;
  if (!CryptMsgClose(message.release())) return false;
  if (parts.signer) *parts.signer = signer.release();
  return true;
}

MessageHandle OpenWhole(DWORD encoding, DWORD flags, std::span<const BYTE> encoded) {
  MessageHandle message(CryptMsgOpenToDecode(encoding, flags, 0, 0, nullptr, nullptr));
  if (message && !CryptMsgUpdate(message.get(), encoded.data(), CheckedDword(encoded.size()), TRUE))
    return {};
  return message;
}

bool IsSigned(HCRYPTMSG message) {
  DWORD type = 0;
  if (!GetDword(message, CMSG_TYPE_PARAM, type)) return false;
  if (type != CMSG_SIGNED) SetLastError(CRYPT_E_UNEXPECTED_MSG_TYPE);
  return type == CMSG_SIGNED;
}

}  // namespace

bool SignSimpleMessage(const CRYPT_SIGN_MESSAGE_PARA& given, bool detached, const ContentPieces& content,
                       BYTE* blob, DWORD* blobSize) {
  MemoryChain chain;
  const CRYPT_SIGN_MESSAGE_PARA full = FullSignMessagePara(given);
  const CRYPT_SIGN_MESSAGE_PARA* para = &full;
  DWORD extensions = 0;
  if (CRYPT_SIGN_MESSAGE_PARA* const copy = CopySignMessagePara(given, chain)) {
    extensions = WithForcedDisplay(copy->dwFlags) & kExtensionFlags;
    copy->dwFlags &= ~kExtensionFlags;
    if (!AdaptParameters(*copy, extensions, chain)) return false;
    para = copy;
  }
  SigningRequest request(*para);
  if (!request.prepare()) return false;
  const DWORD layout = detached ? CMSG_DETACHED_FLAG : 0;
  if (!blob) return EstimateMessage(request, (extensions & SVCMSG_CADES_DISABLE) | layout, content, blobSize);
  // strictness has done its work: the attributes are there
  return MakeMessage(request, (extensions & ~SVCMSG_CADES_STRICT) | layout, content, blob, blobSize);
}

bool VerifySimpleMessage(const CRYPT_VERIFY_MESSAGE_PARA& para, DWORD signerIndex,
                         std::span<const BYTE> message, const VerifiedParts& parts) {
  MessageHandle handle = OpenWhole(para.dwMsgAndCertEncodingType, 0, message);
  return handle && IsSigned(handle.get()) && VerifyWhole(std::move(handle), para, signerIndex, parts);
}

bool VerifySimpleDetachedMessage(const CRYPT_VERIFY_MESSAGE_PARA& para, DWORD signerIndex,
                                 std::span<const BYTE> message, const ContentPieces& content,
                                 PCCERT_CONTEXT* signer) {
  MessageHandle handle = OpenWhole(para.dwMsgAndCertEncodingType, CMSG_DETACHED_FLAG, message);
  if (!handle) return false;
  for (DWORD i = 0; i < content.count; ++i) {
    const BOOL last = i + 1 == content.count;
    if (!CryptMsgUpdate(handle.get(), content.bytes[i], content.sizes[i], last)) return false;
  }
  return VerifyWhole(std::move(handle), para, signerIndex, {.signer = signer});
}

bool CountSigners(DWORD encoding, std::span<const BYTE> message, DWORD& count) {
  const MessageHandle handle = OpenWhole(encoding, 0, message);
  return handle && IsSigned(handle.get()) && GetDword(handle.get(), CMSG_SIGNER_COUNT_PARAM, count);
}

}  // namespace certkern
