#include "certkern/CMSDataMessage.h"

#include <certkern/errors.h>

#include "asn1data/cms.h"
#include "asn1data/oids_pkcs.h"
#include "asn1rt/decoder.h"
#include "certkern/message_encoding.h"
#include "platform/exceptions.h"

namespace certkern {
namespace {

void Refuse(bool refused) {
  if (refused) throw CryptException(E_INVALIDARG);
}

}  // namespace

// --- encoding ---

void DataMessageEncodeContext::addData(std::span<const BYTE> data, bool final) {
  Refuse(finished_);
  content_.append(data);
  if (final) finished_ = true;
}

void DataMessageEncodeContext::setDetached(bool /*detached*/) { Refuse(true); }
void DataMessageEncodeContext::readEncodeInfo(const void* pvMsgEncodeInfo) { Refuse(pvMsgEncodeInfo); }

const ByteBuffer& DataMessageEncodeContext::getEncoded(bool fBare) {
  if (!finished_) throw CryptException(ERROR_MORE_DATA);
  ByteBuffer& encoded = fBare ? bareEncoded_ : encoded_;
  if (encoded.size()) return encoded;
  ASN1OctetString octets = {content_.size(), content_.data()};
  const TypeInfo& octetString = asn1data::kInfo_MessageDigest;
  encoded = fBare ? EncodeBare(octetString, &octets, content_.size())
                  : EncodeContentInfo(asn1data::ASN1V_id_data, octetString, &octets, content_.size());
  return encoded;
}

DWORD DataMessageEncodeContext::getEncodedSize(DWORD /*cbContent*/, bool fBare, const void* /*info*/) {
  return getEncoded(fBare).size();
}

void DataMessageEncodeContext::getParam(const GetParamRequest& request) {
  switch (request.dwParamType) {
    case CMSG_TYPE_PARAM:
      return AnswerDword(request, CMSG_DATA);
    case CMSG_CONTENT_PARAM:
      return AnswerBytes(request, getEncoded(false).bytes());
    case CMSG_BARE_CONTENT_PARAM:
      return AnswerBytes(request, getEncoded(true).bytes());
    default:
      return MessageEncodeContext::getParam(request);
  }
}

// --- decoding ---

void DataMessageDecodeContext::addMessage(std::span<const BYTE> message) {
  Refuse(finished_);
  encoded_.assign(message);
  decoding_.emplace(encoded_.data(), encoded_.size());
  ASN1OctetString octets{};
  if (DecodeValue(decoding_->context(), asn1data::kInfo_MessageDigest, &octets, Tagging::Explicit, 0) < 0) {
    throw CryptException(CRYPT_E_ASN1_INTERNAL);
  }
  content_ = octets.bytes();
  finished_ = true;
}

void DataMessageDecodeContext::addData(std::span<const BYTE> /*data*/, bool /*final*/) { Refuse(true); }
void DataMessageDecodeContext::setDetached(bool detached) { Refuse(detached); }
void DataMessageDecodeContext::setCryptProv(HCRYPTPROV hCryptProv) { Refuse(hCryptProv); }
void DataMessageDecodeContext::setReleaseProv(bool release) { Refuse(release); }
void DataMessageDecodeContext::addCertificatesToStore(HCERTSTORE hStore) { Refuse(hStore); }
void DataMessageDecodeContext::addCRLsToStore(HCERTSTORE hStore) { Refuse(hStore); }

const ByteBuffer& DataMessageDecodeContext::getEncoded(bool fBare) { return fBare ? bareEncoded_ : encoded_; }

DWORD DataMessageDecodeContext::getEncodedSize(bool fBare) { return getEncoded(fBare).size(); }

void DataMessageDecodeContext::getParam(const GetParamRequest& request) {
  switch (request.dwParamType) {
    case CMSG_TYPE_PARAM:
      return AnswerDword(request, CMSG_DATA);
    case CMSG_CONTENT_PARAM:
      if (!finished_) throw CryptException(ERROR_MORE_DATA);
      return AnswerBytes(request, content_);
    case CMSG_BARE_CONTENT_PARAM:
      return AnswerBytes(request, getEncoded(true).bytes());
    case CMSG_ENCODED_MESSAGE:
      return AnswerBytes(request, getEncoded(false).bytes());
    default:
      return MessageDecodeContext::getParam(request);
  }
}

}  // namespace certkern
