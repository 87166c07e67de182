#include "certkern/CMSSignedMessage.h"

#include <certkern/errors.h>
#include <certkern/store.h>

#include <algorithm>
#include <utility>

#include "asn1rt/element_header.h"
#include "asn1rt/message_buffer.h"
#include "certkern/ASN1Traits.h"
#include "oid/algorithm_lookup.h"
#include "platform/sizes.h"
#include "store/context_record.h"

namespace certkern {
namespace {

using namespace asn1data;

// What controls point to: nothing is a caller's mistake.
template <class Parameter>
const Parameter& ParameterOf(const ControlRequest& request) {
  if (!request.pvCtrlPara) throw CryptException(E_INVALIDARG);
  return *static_cast<const Parameter*>(request.pvCtrlPara);
}

// --- the attributes of the signers as they were sent ---

// A walk over elements that a decoder has been over before: whatever does not fit is an error all the same.
class ElementWalk {
 public:
  ElementWalk(const uint8_t* at, const uint8_t* end, ASN1Context& context)
      : at_(at), end_(end), context_(&context) {}

  bool atEnd() const { return at_ == end_ || IsEndOfContents(at_, end_); }
  ElementHeader peek() const {
    ElementHeader header;
    if (ReadElementHeader(at_, end_, header) < 0) throw Asn1Exception(context_->errorText());
    return header;
  }
  // Behind the next element, whose bytes it answers.
  std::span<const BYTE> take() {
    const uint8_t* const start = at_;
    at_ = EndOf(peek());
    return {start, at_};
  }
  ElementWalk enter() {
    const ElementHeader header = peek();
    return {header.content, header.indefinite ? EndOf(header) - 2 : header.end, *context_};
  }

 private:
  const uint8_t* EndOf(const ElementHeader& header) const {
    if (!header.indefinite) return header.end;
    const uint8_t* at = header.content;
    for (size_t nesting = 1; nesting;) {
      if (IsEndOfContents(at, end_)) {
        at += 2;
        --nesting;
        continue;
      }
      ElementHeader inner;
      if (ReadElementHeader(at, end_, inner) < 0) throw Asn1Exception(context_->errorText());
      nesting += inner.indefinite;
      at = inner.indefinite ? inner.content : inner.end;
    }
    return at;
  }

  const uint8_t* at_;
  const uint8_t* end_;
  ASN1Context* context_;
};

constexpr Asn1Tag kSignedAttributesTag = 0x80000000u;

// In the order of the signers. Empty for one without attributes.
template <class Each>
void ForEachRawAttributes(std::span<const BYTE> message, ASN1Context& context, Each each) {
  ElementWalk fields = ElementWalk(message.data(), message.data() + message.size(), context).enter();
  // the signers are the last field, whatever optional ones stand in front
  ElementWalk last = fields;
  while (!fields.atEnd()) {
    last = fields;
    fields.take();
  }
  for (ElementWalk signers = last.enter(); !signers.atEnd(); signers.take()) {
    ElementWalk signer = signers.enter();
    for (int before = 0; before < 3; ++before) signer.take();  // version, sid, digestAlgorithm
    const bool present = signer.peek().tag == kSignedAttributesTag;
    each(present ? signer.take() : std::span<const BYTE>());
  }
}

// Anybody may put anything beside the signers' certificates, so what is none is left out: it must not keep the others from
// being found. Want of memory says nothing about what is there.
void AddIfReadable(HCERTSTORE store, ElementType type, std::span<const BYTE> encoded) {
  const ContextOwner context(CreateContext(type, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, encoded));
  if (!context && GetLastError() == ERROR_NOT_ENOUGH_MEMORY) ThrowLastError();
  if (!context) return;
  const BOOL added = type == ElementType::Certificate
      ? CertAddCertificateContextToStore(store, context->asCertificate(), CERT_STORE_ADD_ALWAYS, nullptr)
      : CertAddCRLContextToStore(store, context->asCrl(), CERT_STORE_ADD_ALWAYS, nullptr);
  if (!added) ThrowLastError();
}

std::span<const BYTE> RawCertificate(const ASN1T_CertificateChoicesRaw& choice) {
  if (choice.t != ASN1T_CertificateChoicesRaw::t_certRaw) {
    throw CAException("Only T_CertificateChoicesRaw_certRaw is supported.");
  }
  return choice.u.certRaw.encoded.bytes();
}

std::span<const BYTE> RawCrl(const ASN1T_RevocationChoiceRaw& choice) {
  if (choice.t != ASN1T_RevocationChoiceRaw::t_crlRaw) {
    throw CAException("Only T_RevocationChoiceRaw_crlRaw is supported.");
  }
  return choice.u.crlRaw.encoded.bytes();
}

template <class Element>
Element& ElementAt(const ASN1ListOf<Element>& list, DWORD index, ListPlace& place) {
  const ASN1ListNode* const node = NodeAt(list, index, place);
  if (!node) throw CryptException(E_INVALIDARG);
  return *static_cast<Element*>(node->data);
}

// What encoder and decoder answer alike.
bool AnswerSigner(const GetParamRequest& request, const SignedDataCore& core) {
  switch (request.dwParamType) {
    case CMSG_SIGNER_INFO_PARAM:
      AnswerSignerInfo(request, core.signerAt(request.dwIndex));
      return true;
    case CMSG_CMS_SIGNER_INFO_PARAM:
      AnswerCmsSignerInfo(request, core.signerAt(request.dwIndex));
      return true;
    case CMSG_ENCRYPTED_DIGEST:
      AnswerBytes(request, core.signerAt(request.dwIndex).signature.bytes());
      return true;
    case CMSG_ENCODED_SIGNER:
      AnswerBytes(request, core.encodedSigner(core.signerAt(request.dwIndex)));
      return true;
    default:
      return false;
  }
}

// And do alike.
bool ChangeSignedData(const ControlRequest& request, SignedDataCore& core) {
  switch (request.dwCtrlType) {
    case CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR:
      core.addUnsignedAttribute(ParameterOf<CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA>(request));
      return true;
    case CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR:
      core.removeUnsignedAttribute(ParameterOf<CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR_PARA>(request));
      return true;
    case CMSG_CTRL_ADD_CERT:
      core.addCertificate(ParameterOf<CERT_BLOB>(request));
      return true;
    case CMSG_CTRL_ADD_CRL:
      core.addCrl(ParameterOf<CRL_BLOB>(request));
      return true;
    default:
      return false;
  }
}

}  // namespace

// --- to be built ---

void SignedMessageEncodeContext::readEncodeInfo(const void* pvMsgEncodeInfo) {
  if (!pvMsgEncodeInfo) throw CryptException(ERROR_INVALID_PARAMETER);
  const auto& info = *static_cast<const CMSG_SIGNED_ENCODE_INFO*>(pvMsgEncodeInfo);
  if (info.cSigners && !info.rgSigners) throw CryptException(ERROR_INVALID_PARAMETER);
  ForEachSigner(info, [&](const CMSG_SIGNER_ENCODE_INFO& signer) { core_.addSigner(signer); });
  for (const CERT_BLOB& certificate : GivenArray(info.rgCertEncoded, info.cCertEncoded)) {
    core_.addCertificate(certificate);
  }
  for (const CRL_BLOB& crl : GivenArray(info.rgCrlEncoded, info.cCrlEncoded)) core_.addCrl(crl);
}

void SignedMessageEncodeContext::setInnerContentType(const char* pszObjId) {
  core_.setContentType(StrToOid(core_.context(), pszObjId));
}

void SignedMessageEncodeContext::addData(std::span<const BYTE> data, bool /*final*/) {
  if (finished_) throw CAException("No more data: input is finished.");
  if (!detached_) content_.append(data);
  if (core_.data().digestAlgorithms.count) core_.hashContent(data);
}

void SignedMessageEncodeContext::finalize() { takeContent(content_.bytes()); }

void SignedMessageEncodeContext::addBorrowed(std::span<const BYTE> content) {
  if (core_.data().digestAlgorithms.count) core_.hashContent(content);
  takeContent(content);
}

void SignedMessageEncodeContext::takeContent(std::span<const BYTE> content) {
  finished_ = true;
  if (detached_) return;
  core_.dropEncoded();
  core_.data().encapContentInfo.m.eContentPresent = 1;
  core_.data().encapContentInfo.eContent = {CheckedDword(content.size()), content.data()};
}

DWORD SignedMessageEncodeContext::getEncodedSize(DWORD cbContent, bool fBare, const void* pvMsgEncodeInfo) {
  if (core_.cached(fBare).size()) return core_.cached(fBare).size();
  if (!pvMsgEncodeInfo) throw CAException("Invalid argument: pEncodeInfo must be not NULL");
  const auto content = detached_ ? std::nullopt : std::optional(cbContent);
  return core_.encodedSizeBound(content, fBare,
                                *static_cast<const CMSG_SIGNED_ENCODE_INFO*>(pvMsgEncodeInfo));
}

const ByteBuffer& SignedMessageEncodeContext::getEncoded(bool fBare) {
  core_.signAll();
  return core_.encoded(fBare);
}

// A large content goes straight to the caller: a copy of the message would be one more copy of the content.
void SignedMessageEncodeContext::answerWhole(const GetParamRequest& request) {
  core_.signAll();
  if (core_.cached(false).size() || !core_.isLarge())
    return AnswerBytes(request, core_.encoded(false).bytes());
  const DWORD size = CheckedDword(core_.sizeOfLarge(false));
  RequireRoom(request, size);
  if (request.pvData) core_.encodeLarge(false, {static_cast<BYTE*>(request.pvData), size});
}

void SignedMessageEncodeContext::getParam(const GetParamRequest& request) {
  switch (request.dwParamType) {
    case CMSG_TYPE_PARAM:
      return AnswerDword(request, CMSG_SIGNED);
    case CMSG_CONTENT_PARAM:
      return answerWhole(request);
    case CMSG_BARE_CONTENT_PARAM:
      return AnswerBytes(request, getEncoded(true).bytes());
    case CMSG_COMPUTED_HASH_PARAM: {
      const HashHandle hash = core_.hashToSign(core_.signerAt(request.dwIndex));
      return AnswerBytes(request, HashValue(hash.get()));
    }
    default:
      if (!AnswerSigner(request, core_)) MessageEncodeContext::getParam(request);
  }
}

void SignedMessageEncodeContext::control(const ControlRequest& request) {
  if (!ChangeSignedData(request, core_)) MessageEncodeContext::control(request);
}

// --- to be read ---

SignedMessageDecodeContext::~SignedMessageDecodeContext() {
  // a second count, which the caller has handed over
  if (releaseProv_ && provider_) static_cast<void>(CryptReleaseContext(provider_.get(), 0));
}

void SignedMessageDecodeContext::setCryptProv(HCRYPTPROV hCryptProv) { provider_ = HoldProvider(hCryptProv); }

void SignedMessageDecodeContext::decodeMessage(std::span<const BYTE> message, bool noContent) {
  if (messageAdded_) throw CAException("Message was added already.");
  input_.assign(message);
  ASN1BERDecodeBuffer buffer(ASN1ContextPtr::Share(&core_.context()), input_.data(), input_.size());
  core_.context().setOpenValues(OpenValues::Kept);
  const bool decoded = ASN1C_SignedData(buffer, core_.data()).Decode() == ASN1_OK;
  const bool cutShort = !decoded && noContent && buffer.GetStatus() == ASN1_E_END_OF_INPUT;
  if (!decoded && !cutShort) throw Asn1Exception(core_.context().errorText());
  core_.context().clearStatus();
  if (decoded) {
    const ASN1ListNode* node = core_.data().signerInfos.head;
    ForEachRawAttributes(input_.bytes(), core_.context(), [&](std::span<const BYTE> raw) {
      if (!node) throw Asn1Exception(core_.context().errorText());
      if (!raw.empty()) core_.keepRawAttributes(*static_cast<const SignerInfo*>(node->data), raw);
      node = node->next;
    });
  }
  messageAdded_ = true;
  dropStore();
  try {
    startHashes();
    if (!detached_) hashContent();
  } catch (...) {
    contentHash_.clear();  // one that has not seen the content must not vouch for it
    throw;
  }
}

void SignedMessageDecodeContext::startHashes() {
  for (const ASN1T_AlgorithmIdentifier& algorithm : core_.data().digestAlgorithms) {
    const ALG_ID id = AlgIdOfOid(oid2str(algorithm.algorithm).c_str());
    if (contentHash_.contains(id)) continue;
    ContentHash content;
    content.provider = provider_ ? HoldProvider(provider_.get()) : FindProviderForAlgorithm(id);
    if (!content.provider) throw CryptException(NTE_BAD_ALGID);
    content.hash = CreateHash(content.provider.get(), id);
    contentHash_.emplace(id, std::move(content));
  }
}

std::span<const BYTE> SignedMessageDecodeContext::content() const {
  const ASN1T_EncapsulatedContentInfo& info = core_.data().encapContentInfo;
  return info.m.eContentPresent ? info.eContent.bytes() : std::span<const BYTE>();
}

void SignedMessageDecodeContext::hashContent() {
  if (detached_) return;
  for (const auto& [id, content] : contentHash_) HashBytes(content.hash.get(), this->content());
}

void SignedMessageDecodeContext::addData(std::span<const BYTE> data, bool /*final*/) {
  if (!detached_) throw CAException("Message is not detached. Data must be in the message.");
  if (inputFinished_) throw CAException("No more data: input is finished.");
  if (!messageAdded_) throw CAException("Message should be added first.");
  for (const auto& [id, content] : contentHash_) HashBytes(content.hash.get(), data);
  core_.hashContent(data);
}

void SignedMessageDecodeContext::addCertificatesToStore(HCERTSTORE hStore) {
  for (const auto& choice : core_.data().certificates) {
    if (choice.t == ASN1T_CertificateChoicesRaw::t_certRaw)
      AddIfReadable(hStore, ElementType::Certificate, RawCertificate(choice));
  }
}

void SignedMessageDecodeContext::addCRLsToStore(HCERTSTORE hStore) {
  for (const auto& choice : core_.data().crls) {
    if (choice.t == ASN1T_RevocationChoiceRaw::t_crlRaw)
      AddIfReadable(hStore, ElementType::Crl, RawCrl(choice));
  }
}

const ByteBuffer& SignedMessageDecodeContext::reencoded(bool bare) {
  if (!messageAdded_) throw CAException("Can't encode. No message was added.");
  return core_.encoded(bare);
}

void SignedMessageDecodeContext::answerCertificate(const GetParamRequest& request) {
  AnswerBytes(request,
              RawCertificate(ElementAt(core_.data().certificates, request.dwIndex, certificatePlace_)));
}

void SignedMessageDecodeContext::answerCrl(const GetParamRequest& request) {
  if (!core_.data().m.crlsPresent) return AnswerBytes(request, {});
  AnswerBytes(request, RawCrl(ElementAt(core_.data().crls, request.dwIndex, crlPlace_)));
}

std::pair<HCRYPTPROV, HCRYPTHASH> SignedMessageDecodeContext::hashFor(const SignerInfo& signer,
                                                                      ALG_ID algorithm) const {
  if (const auto found = contentHash_.find(algorithm); found != contentHash_.end()) {
    return {found->second.provider.get(), found->second.hash.get()};
  }
  // a signer added here may have brought an algorithm with it that the message did not have
  return core_.hashOf(signer);
}

void SignedMessageDecodeContext::answerComputedHash(const GetParamRequest& request) {
  const SignerInfo& signer = core_.signerAt(request.dwIndex);
  const auto [provider, hash] = hashFor(signer, SchemeOf(signer).hash);
  const HashHandle computed = core_.digest(signer, hash, provider, SignedDataCore::DigestUse::Tell);
  AnswerBytes(request, HashValue(computed.get()));
}

void SignedMessageDecodeContext::getParam(const GetParamRequest& request) {
  const ASN1T_SignedData& data = core_.data();
  const auto knownSigner = [&]() -> const SignerInfo& {
    const SignerInfo* const signer = core_.findSigner(request.dwIndex);
    if (!signer) throw CryptException(CRYPT_E_NO_SIGNER);
    return *signer;
  };
  switch (request.dwParamType) {
    case CMSG_TYPE_PARAM:
      return AnswerDword(request, CMSG_SIGNED);
    case CMSG_CONTENT_PARAM:
      return AnswerBytes(request, content());
    case CMSG_BARE_CONTENT_PARAM:
      return AnswerBytes(request, reencoded(true).bytes());
    case CMSG_ENCODED_MESSAGE:
      return AnswerBytes(request, reencoded(false).bytes());
    case CMSG_INNER_CONTENT_TYPE_PARAM:
      return AnswerText(request, oid2str(data.encapContentInfo.eContentType));
    case CMSG_SIGNER_COUNT_PARAM:
      return AnswerDword(request, data.signerInfos.count);
    case CMSG_SIGNER_CERT_INFO_PARAM:
      return AnswerSignerCertInfo(request, knownSigner());
    case CMSG_SIGNER_CERT_ID_PARAM:
      return AnswerSignerCertId(request, knownSigner());
    case CMSG_SIGNER_AUTH_ATTR_PARAM:
      return AnswerAttributes(request, core_.signerAt(request.dwIndex).signedAttrs);
    case CMSG_SIGNER_UNAUTH_ATTR_PARAM:
      return AnswerAttributes(request, core_.signerAt(request.dwIndex).unsignedAttrs);
    case CMSG_CERT_COUNT_PARAM:
      return AnswerDword(request, data.certificates.count);
    case CMSG_CERT_PARAM:
      return answerCertificate(request);
    case CMSG_CRL_COUNT_PARAM:
      return AnswerDword(request, data.crls.count);
    case CMSG_CRL_PARAM:
      return answerCrl(request);
    case CMSG_COMPUTED_HASH_PARAM:
      return answerComputedHash(request);
    case CMSG_VERSION_PARAM:
      return AnswerDword(request, static_cast<DWORD>(data.version));
    case CMSG_SIGNER_INFO_PARAM:
    case CMSG_CMS_SIGNER_INFO_PARAM:
      if (!request.pcbData) throw CryptException(ERROR_INVALID_PARAMETER);
      [[fallthrough]];
    default:
      if (!AnswerSigner(request, core_)) MessageDecodeContext::getParam(request);
  }
}

void SignedMessageDecodeContext::addSigner(const CMSG_SIGNER_ENCODE_INFO& info) {
  if (!messageAdded_) throw CAException("Can't add signer. No message was added.");
  const uint32_t digestAlgorithms = core_.data().digestAlgorithms.count;
  SignerInfo& signer = core_.addSigner(info);
  try {
    fillNewSigner(signer);
    core_.signAll();
  } catch (...) {
    const LastErrorKeeper keeper;
    core_.removeAddedSigner(signer, digestAlgorithms);
    throw;
  }
}

// The content of a detached message went by: its hash is taken over from those that saw it.
void SignedMessageDecodeContext::fillNewSigner(const SignerInfo& signer) {
  if (!detached_) return HashBytes(core_.contentHash(signer), content());
  const auto found = contentHash_.find(SchemeOf(signer).hash);
  if (found == contentHash_.end()) throw CryptException(CRYPT_E_UNKNOWN_ALGO);
  core_.setContentHash(signer, HashValue(found->second.hash.get()));
}

void SignedMessageDecodeContext::control(const ControlRequest& request) {
  dropStoreFor(request);
  switch (request.dwCtrlType) {
    case CMSG_CTRL_VERIFY_SIGNATURE:
      return verifyByCertificate(ParameterOf<CERT_INFO>(request));
    case CMSG_CTRL_VERIFY_SIGNATURE_EX:
      return verifyByIndex(ParameterOf<CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA>(request));
    case CMSG_CTRL_ADD_SIGNER:
      return addSigner(ParameterOf<CMSG_SIGNER_ENCODE_INFO>(request));
    case CMSG_CTRL_DEL_SIGNER:
      return core_.removeSigner(ParameterOf<DWORD>(request));
    case CMSG_CTRL_DEL_CERT:
      return core_.removeCertificate(ParameterOf<DWORD>(request));
    case CMSG_CTRL_DEL_CRL:
      return core_.removeCrl(ParameterOf<DWORD>(request));
    case CMSG_CTRL_ADD_CMS_SIGNER_INFO:
      return core_.addFinishedSigner(ParameterOf<CMSG_CMS_SIGNER_INFO>(request));
    default:
      if (!ChangeSignedData(request, core_)) MessageDecodeContext::control(request);
  }
}

MessageOwner MakeSignedEncodeContext() { return MessageOwner(new SignedMessageEncodeContext); }
MessageOwner MakeSignedDecodeContext() { return MessageOwner(new SignedMessageDecodeContext); }

}  // namespace certkern
