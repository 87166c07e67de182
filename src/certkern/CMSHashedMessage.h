// Content beside its hash: DigestedData of RFC 5652, clause 7. The file bears the name under which its exceptions are traced.
#ifndef CERTKERN_CERTKERN_CMSHASHEDMESSAGE_H
#define CERTKERN_CERTKERN_CMSHASHEDMESSAGE_H

#include <certkern/oids.h>

#include <optional>
#include <utility>

#include "asn1rt/message_buffer.h"
#include "certkern/CMSMessage.h"

namespace certkern {

// What a hashed message is in either direction; the content lies with whoever has it.
class HashedMessage {
 public:
  void setAlgorithm(std::string oid, std::span<const BYTE> parameters);
  // One count of its own.
  void setProvider(HCRYPTPROV provider) { provider_ = HoldProvider(provider); }
  void setInnerContentType(std::string oid) { innerContentType_ = std::move(oid); }
  void setDetached(bool detached) { detached_ = detached; }
  bool detached() const { return detached_; }
  std::span<const BYTE> digest() const { return digest_; }

  void hash(std::span<const BYTE> bytes);
  // Without anything hashed the digest is empty.
  void finishHash();
  void hashWhole(std::span<const BYTE> content);
  // The digest is to be made anew.
  void contentChanged() { hashed_ = false; }

  // Hashes the content unless that was done, or it went by.
  ByteBuffer encode(std::span<const BYTE> content, bool bare);
  // Those parameters that both directions answer alike.
  bool answer(const GetParamRequest& request, std::span<const BYTE> content);

 private:
  void makeHash();
  int version() const;
  void answerAlgorithm(const GetParamRequest& request) const;

  std::string hashAlgorithm_;
  ByteBuffer hashParameters_;
  std::string innerContentType_ = szOID_RSA_data;
  std::vector<BYTE> digest_;
  ProviderHandle provider_;
  HashHandle hash_;
  bool detached_ = false;
  bool hashed_ = false;  // the digest is that of the content
};

class HashedMessageEncodeContext final : public MessageEncodeContext {
 public:
  void getParam(const GetParamRequest& request) override;
  void addData(std::span<const BYTE> data, bool final) override;
  void finalize() override;
  void setDetached(bool detached) override { message_.setDetached(detached); }
  void readEncodeInfo(const void* pvMsgEncodeInfo) override;
  void setInnerContentType(const char* pszObjId) override;
  DWORD getEncodedSize(DWORD cbContent, bool fBare, const void* pvMsgEncodeInfo) override;
  const ByteBuffer& getEncoded(bool fBare) override;

 private:
  HashedMessage message_;
  ByteBuffer content_;
  ByteBuffer encoded_;
  ByteBuffer bareEncoded_;
};

class HashedMessageDecodeContext final : public MessageDecodeContext {
 public:
  ~HashedMessageDecodeContext() override;
  void getParam(const GetParamRequest& request) override;
  void control(const ControlRequest& request) override;
  void addData(std::span<const BYTE> data, bool final) override;
  void finalize() override;
  void setDetached(bool detached) override { message_.setDetached(detached); }
  void setCryptProv(HCRYPTPROV hCryptProv) override;
  void setReleaseProv(bool release) override { releaseProv_ = release; }
  void addMessage(std::span<const BYTE> message) override;
  bool isMessageAdded() override { return messageAdded_; }
  void addCertificatesToStore(HCERTSTORE /*hStore*/) override {}
  void addCRLsToStore(HCERTSTORE /*hStore*/) override {}

 private:
  void hashContent();
  void verifyHash();

  HashedMessage message_;
  ByteBuffer input_;
  std::optional<ASN1BERDecodeBuffer> decoding_;
  std::span<const BYTE> content_;  // both within the input, or in the buffer's heap
  std::span<const BYTE> expectedDigest_;
  HCRYPTPROV callersProvider_ = 0;
  bool releaseProv_ = false;
  bool messageAdded_ = false;
  bool inputFinished_ = false;
};

}  // namespace certkern

#endif
