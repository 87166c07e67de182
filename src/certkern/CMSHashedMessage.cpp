#include "certkern/CMSHashedMessage.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/oids.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "asn1data/cms_contents.h"
#include "asn1data/oids_pkcs.h"
#include "asn1rt/decoder.h"
#include "certkern/ASN1Traits.h"
#include "certkern/ASN1Util.h"
#include "certkern/message_encoding.h"
#include "platform/exceptions.h"
#include "platform/limits.h"
#include "platform/sizes.h"

namespace certkern {
namespace {

using asn1data::ASN1T_DigestedData;

constexpr std::array<BYTE, 2> kNull = {0x05, 0x00};

ASN1OctetString AsOctets(std::span<const BYTE> bytes) { return {CheckedDword(bytes.size()), bytes.data()}; }

}  // namespace

// --- both directions ---

void HashedMessage::setAlgorithm(std::string oid, std::span<const BYTE> parameters) {
  hashAlgorithm_ = std::move(oid);
  hashParameters_.assign(parameters);
}

void HashedMessage::makeHash() {
  const PCCRYPT_OID_INFO info =
      CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, hashAlgorithm_.data(), CRYPT_HASH_ALG_OID_GROUP_ID);
  if (!info) throw CAException("CryptFindOIDInfo() failed.");
  if (!provider_) provider_ = HoldProvider(SVAPI_I_CryptGetDefaultCryptProv(info->Algid));
  if (!provider_) ThrowLastError();
  hash_ = CreateHash(provider_.get(), info->Algid);
}

void HashedMessage::hash(std::span<const BYTE> bytes) {
  if (!hash_) makeHash();
  HashBytes(hash_.get(), bytes);
}

void HashedMessage::finishHash() {
  digest_ = hash_ ? HashValue(hash_.get()) : std::vector<BYTE>();
  hash_.reset();
}

void HashedMessage::hashWhole(std::span<const BYTE> content) {
  hash(content);
  finishHash();
  hashed_ = true;
}

int HashedMessage::version() const { return innerContentType_ == szOID_RSA_data ? 0 : 2; }

ByteBuffer HashedMessage::encode(std::span<const BYTE> content, bool bare) {
  if (!detached_ && !hashed_) hashWhole(content);
  const ASN1ContextPtr context = ASN1ContextPtr::Create();
  if (!context) throw std::bad_alloc();
  ASN1T_DigestedData data;
  data.version = version();
  data.digestAlgorithm.algorithm = StrToOid(*context, hashAlgorithm_.c_str());
  data.digestAlgorithm.m.parametersPresent = hashParameters_.size() != 0;
  data.digestAlgorithm.parameters.encoded = AsOctets(hashParameters_.bytes());
  data.encapContentInfo.eContentType = StrToOid(*context, innerContentType_.c_str());
  data.encapContentInfo.m.eContentPresent = !content.empty();
  data.encapContentInfo.eContent = AsOctets(content);
  data.digest = AsOctets(digest_);
  const uint64_t size = uint64_t{content.size()} + hashParameters_.size();
  return bare ? EncodeBare(asn1data::kInfo_DigestedData, &data, size)
              : EncodeContentInfo(asn1data::ASN1V_id_digestedData, asn1data::kInfo_DigestedData, &data, size);
}

// Packed: the record, the text with its NUL, the parameters; nothing in between.
void HashedMessage::answerAlgorithm(const GetParamRequest& request) const {
  const bool null = std::ranges::equal(hashParameters_.bytes(), kNull);
  const std::span<const BYTE> parameters = null ? std::span<const BYTE>() : hashParameters_.bytes();
  const size_t textSize = hashAlgorithm_.size() + 1;
  RequireRoom(request, sizeof(CRYPT_ALGORITHM_IDENTIFIER) + textSize + parameters.size());
  if (!request.pvData) return;
  auto* const text = static_cast<char*>(request.pvData) + sizeof(CRYPT_ALGORITHM_IDENTIFIER);
  auto* const bytes = reinterpret_cast<BYTE*>(text) + textSize;
  std::memcpy(text, hashAlgorithm_.c_str(), textSize);
  std::ranges::copy(parameters, bytes);
  const CRYPT_ALGORITHM_IDENTIFIER record = {
      text, {CheckedDword(parameters.size()), parameters.empty() ? nullptr : bytes}
  };
  std::memcpy(request.pvData, &record, sizeof record);
}

bool HashedMessage::answer(const GetParamRequest& request, std::span<const BYTE> content) {
  switch (request.dwParamType) {
    case CMSG_TYPE_PARAM:
      AnswerDword(request, CMSG_HASHED);
      return true;
    case CMSG_BARE_CONTENT_PARAM:
      AnswerBytes(request, encode(content, true).bytes());
      return true;
    case CMSG_INNER_CONTENT_TYPE_PARAM:
      AnswerText(request, innerContentType_);
      return true;
    case CMSG_HASH_ALGORITHM_PARAM:
      answerAlgorithm(request);
      return true;
    case CMSG_HASH_DATA_PARAM:
    case CMSG_COMPUTED_HASH_PARAM:
      AnswerBytes(request, digest_);
      return true;
    case CMSG_VERSION_PARAM:
      AnswerDword(request, static_cast<DWORD>(version()));
      return true;
    default:
      return false;
  }
}

// --- encoding ---

void HashedMessageEncodeContext::readEncodeInfo(const void* pvMsgEncodeInfo) {
  const auto* const info = static_cast<const CMSG_HASHED_ENCODE_INFO*>(pvMsgEncodeInfo);
  if (!info) throw CAException("invalid CMSG_HASHED_ENCODE_INFO* is NULL");
  if (info->cbSize != sizeof(*info)) throw CAException("invalid CMSG_HASHED_ENCODE_INFO cbSize");
  if (info->hCryptProv) message_.setProvider(info->hCryptProv);
  const char* const oid = info->HashAlgorithm.pszObjId;
  if (!oid) throw CryptException(ERROR_INVALID_PARAMETER);
  message_.setAlgorithm({oid, ::strnlen(oid, kMaxHashOidText)}, GivenBytes(info->HashAlgorithm.Parameters));
}

void HashedMessageEncodeContext::setInnerContentType(const char* pszObjId) {
  if (pszObjId) message_.setInnerContentType(pszObjId);
}

void HashedMessageEncodeContext::addData(std::span<const BYTE> data, bool /*final*/) {
  encoded_ = {};
  message_.contentChanged();
  if (message_.detached()) {
    message_.hash(data);
  } else {
    content_.append(data);
  }
}

void HashedMessageEncodeContext::finalize() {
  encoded_ = {};
  if (message_.detached()) {
    message_.finishHash();
  } else {
    message_.hashWhole(content_.bytes());
  }
}

const ByteBuffer& HashedMessageEncodeContext::getEncoded(bool fBare) {
  if (fBare) {
    bareEncoded_ = message_.encode(content_.bytes(), true);
    return bareEncoded_;
  }
  if (!encoded_.size()) encoded_ = message_.encode(content_.bytes(), false);
  return encoded_;
}

DWORD HashedMessageEncodeContext::getEncodedSize(DWORD /*cbContent*/, bool fBare, const void* /*info*/) {
  return getEncoded(fBare).size();
}

void HashedMessageEncodeContext::getParam(const GetParamRequest& request) {
  if (message_.answer(request, content_.bytes())) return;
  if (request.dwParamType != CMSG_CONTENT_PARAM) return MessageEncodeContext::getParam(request);
  AnswerBytes(request, getEncoded(false).bytes());
}

// --- decoding ---

HashedMessageDecodeContext::~HashedMessageDecodeContext() {
  if (releaseProv_) ProviderHandle(callersProvider_).reset();
}

void HashedMessageDecodeContext::setCryptProv(HCRYPTPROV hCryptProv) {
  message_.setProvider(hCryptProv);
  callersProvider_ = hCryptProv;
}

void HashedMessageDecodeContext::addMessage(std::span<const BYTE> message) {
  input_.assign(message);
  decoding_.emplace(input_.data(), input_.size());
  ASN1T_DigestedData data;
  ASN1Context& context = decoding_->context();
  if (DecodeValue(context, asn1data::kInfo_DigestedData, &data, Tagging::Explicit, 0) < 0) {
    throw Asn1Exception(context.errorText());
  }
  const auto& algorithm = data.digestAlgorithm;
  message_.setAlgorithm(oid2str(algorithm.algorithm), algorithm.parameters.encoded.bytes());
  message_.setInnerContentType(oid2str(data.encapContentInfo.eContentType));
  content_ = data.encapContentInfo.eContent.bytes();
  expectedDigest_ = data.digest.bytes();
  messageAdded_ = true;
}

void HashedMessageDecodeContext::addData(std::span<const BYTE> data, bool /*final*/) {
  if (!message_.detached()) throw CAException("Message is not detached. Data must be in the message.");
  if (inputFinished_) throw CAException("No more data: input is finished.");
  if (!messageAdded_) throw CAException("Message should be added first.");
  message_.hash(data);
}

void HashedMessageDecodeContext::finalize() {
  inputFinished_ = true;
  if (message_.detached()) {
    message_.finishHash();
  } else {
    message_.hashWhole(content_);
  }
}

void HashedMessageDecodeContext::hashContent() {
  if (!message_.detached()) message_.hashWhole(content_);
}

void HashedMessageDecodeContext::getParam(const GetParamRequest& request) {
  switch (request.dwParamType) {
    case CMSG_CONTENT_PARAM:
      return AnswerBytes(request, content_);
    case CMSG_ENCODED_MESSAGE:
      return AnswerBytes(request, message_.encode(content_, false).bytes());
    case CMSG_HASH_DATA_PARAM:
    case CMSG_COMPUTED_HASH_PARAM:
      hashContent();
      break;
    default:
      break;
  }
  if (!message_.answer(request, content_)) MessageDecodeContext::getParam(request);
}

void HashedMessageDecodeContext::verifyHash() {
  // without a message two empty digests would agree
  if (!messageAdded_) throw CAException("Message should be added first.");
  hashContent();
  if (std::ranges::equal(expectedDigest_, message_.digest())) return;
  SetLastError(CRYPT_E_HASH_VALUE);
  throw CryptException(CRYPT_E_HASH_VALUE);
}

void HashedMessageDecodeContext::control(const ControlRequest& request) {
  if (request.dwCtrlType != CMSG_CTRL_VERIFY_HASH) return MessageDecodeContext::control(request);
  verifyHash();
}

}  // namespace certkern
