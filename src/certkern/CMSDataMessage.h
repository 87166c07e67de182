// Plain data: an OCTET STRING. RFC 5652, clause 4. Neither keys nor parameters, nor content that comes apart from the message.
// The file bears the name under which its exceptions are traced.
#ifndef CERTKERN_CERTKERN_CMSDATAMESSAGE_H
#define CERTKERN_CERTKERN_CMSDATAMESSAGE_H

#include <optional>

#include "asn1rt/message_buffer.h"
#include "certkern/CMSMessage.h"

namespace certkern {

class DataMessageEncodeContext : public MessageEncodeContext {
 public:
  void getParam(const GetParamRequest& request) override;
  void addData(std::span<const BYTE> data, bool final) override;
  void finalize() override { finished_ = true; }
  void setDetached(bool detached) override;
  void readEncodeInfo(const void* pvMsgEncodeInfo) override;
  void setInnerContentType(const char* /*pszObjId*/) override {}
  DWORD getEncodedSize(DWORD cbContent, bool fBare, const void* pvMsgEncodeInfo) override;
  const ByteBuffer& getEncoded(bool fBare) override;

 private:
  ByteBuffer content_;
  ByteBuffer encoded_;
  ByteBuffer bareEncoded_;
  bool finished_ = false;
};

class DataMessageDecodeContext : public MessageDecodeContext {
 public:
  void getParam(const GetParamRequest& request) override;
  void addData(std::span<const BYTE> data, bool final) override;
  void finalize() override {}
  void setDetached(bool detached) override;
  void setCryptProv(HCRYPTPROV hCryptProv) override;
  void setReleaseProv(bool release) override;
  void addMessage(std::span<const BYTE> message) override;
  bool isMessageAdded() override { return finished_; }
  void addCertificatesToStore(HCERTSTORE hStore) override;
  void addCRLsToStore(HCERTSTORE hStore) override;

  virtual DWORD getEncodedSize(bool fBare);
  virtual const ByteBuffer& getEncoded(bool fBare);

 private:
  ByteBuffer encoded_;
  ByteBuffer bareEncoded_;  // stays empty
  std::optional<ASN1BERDecodeBuffer> decoding_;
  std::span<const BYTE> content_;  // within encoded_, or put together from segments in the buffer's heap
  bool finished_ = false;
};

}  // namespace certkern

#endif
