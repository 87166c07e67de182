// A message whose type its first bytes tell. The file bears the name under which its exceptions are traced.
#ifndef CERTKERN_CERTKERN_CMSMESSAGEPROXY_H
#define CERTKERN_CERTKERN_CMSMESSAGEPROXY_H

#include <optional>

#include "certkern/CMSMessage.h"

namespace certkern {

struct DetectedContent {
  DWORD type;     // CMSG_...
  size_t offset;  // of what the ContentInfo wraps, which is behind its header
};
// Looks at the start of a ContentInfo. Empty: more bytes are needed, kMaxMessagePrefix at most. The lengths are not
// checked. Another start, and a type that is not served, are a CryptException of CRYPT_E_INVALID_MSG_TYPE.
std::optional<DetectedContent> DetectContent(std::span<const BYTE> bytes);

// Becomes the context of the type as soon as that is known, and hands on all that comes without its wrapper.
class MessageDecodeProxyContext final : public MessageDecodeContext {
 public:
  explicit MessageDecodeProxyContext(const CMSG_STREAM_INFO* stream);
  ~MessageDecodeProxyContext() override;

  void getParam(const GetParamRequest& request) override;
  void control(const ControlRequest& request) override;
  void update(std::span<const BYTE> data, bool final) override;
  void addData(std::span<const BYTE> data, bool final) override;
  void finalize() override;
  void setDetached(bool detached) override { detached_ = detached; }
  void setCryptProv(HCRYPTPROV hCryptProv) override { provider_ = hCryptProv; }
  void setReleaseProv(bool release) override { releaseProv_ = release; }
  void addMessage(std::span<const BYTE> message) override;
  bool isMessageAdded() override;
  void addCertificatesToStore(HCERTSTORE hStore) override;
  void addCRLsToStore(HCERTSTORE hStore) override;

 private:
  MessageDecodeContext& inner();
  void makeInner(DWORD type);

  MessageOwner inner_;
  std::optional<CMSG_STREAM_INFO> stream_;
  ByteBuffer head_;  // what came before the type was known, no more than it takes to know it
  HCRYPTPROV provider_ = 0;
  bool releaseProv_ = false;  // nobody else does it
  bool detached_ = false;
};

}  // namespace certkern

#endif
