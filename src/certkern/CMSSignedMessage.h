// Signed messages, to be built and to be read. RFC 5652, clause 5. The file bears the name under which its exceptions are
// traced.
#ifndef CERTKERN_CERTKERN_CMSSIGNEDMESSAGE_H
#define CERTKERN_CERTKERN_CMSSIGNEDMESSAGE_H

#include <map>
#include <utility>

#include "certkern/CMSMessage.h"
#include "certkern/signed_data.h"
#include "keys/held_keys.h"

namespace certkern {

class SignedMessageEncodeContext : public MessageEncodeContext {
 public:
  void getParam(const GetParamRequest& request) override;
  void control(const ControlRequest& request) override;
  void addData(std::span<const BYTE> data, bool final) override;
  void finalize() override;
  void setDetached(bool detached) override { detached_ = detached; }
  void readEncodeInfo(const void* pvMsgEncodeInfo) override;
  void setInnerContentType(const char* pszObjId) override;
  DWORD getEncodedSize(DWORD cbContent, bool fBare, const void* pvMsgEncodeInfo) override;
  const ByteBuffer& getEncoded(bool fBare) override;

  // The whole content, which outlives the message: it is not copied.
  void addBorrowed(std::span<const BYTE> content);

 protected:
  void answerWhole(const GetParamRequest& request);
  void takeContent(std::span<const BYTE> content);

  SignedDataCore core_;
  ByteBuffer content_;
  bool detached_ = false;
  bool finished_ = false;
};

class SignedMessageDecodeContext : public MessageDecodeContext {
 public:
  ~SignedMessageDecodeContext() override;
  void getParam(const GetParamRequest& request) override;
  void control(const ControlRequest& request) override;
  void addData(std::span<const BYTE> data, bool final) override;
  void finalize() override { inputFinished_ = true; }
  void setDetached(bool detached) override { detached_ = detached; }
  void setCryptProv(HCRYPTPROV hCryptProv) override;
  void setReleaseProv(bool release) override { releaseProv_ = release; }
  void addMessage(std::span<const BYTE> message) override { decodeMessage(message, false); }
  bool isMessageAdded() override { return messageAdded_; }
  void addCertificatesToStore(HCERTSTORE hStore) override;
  void addCRLsToStore(HCERTSTORE hStore) override;

  // With noContent the bytes may end before the signers do.
  virtual void decodeMessage(std::span<const BYTE> message, bool noContent);
  virtual void hashContent();
  virtual void addSigner(const CMSG_SIGNER_ENCODE_INFO& info);

 protected:
  struct ContentHash {
    ProviderHandle provider;
    HashHandle hash;
  };

  std::span<const BYTE> content() const;
  void startHashes();
  // Handles of 0 for an algorithm that nobody hashed with.
  std::pair<HCRYPTPROV, HCRYPTHASH> hashFor(const SignerInfo& signer, ALG_ID algorithm) const;
  const ByteBuffer& reencoded(bool bare);
  void answerCertificate(const GetParamRequest& request);
  void answerCrl(const GetParamRequest& request);
  void answerComputedHash(const GetParamRequest& request);
  void fillNewSigner(const SignerInfo& signer);

  void verifyByCertificate(const CERT_INFO& info);
  void verifyByIndex(const CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA& para);
  // Whose provider verifies: the caller's, or the default one of a type; 0: that of the key's algorithm.
  struct VerificationPlace {
    HCRYPTPROV provider;
    DWORD type;
  };
  VerificationPlace verificationPlace(HCRYPTPROV given, const CERT_PUBLIC_KEY_INFO& key,
                                      const SignerInfo& signer) const;
  SharedKey verificationKey(const VerificationPlace& place, const CERT_PUBLIC_KEY_INFO& key) const;
  // False with NTE_BAD_SIGNATURE.
  bool verifySigner(const SignerInfo& signer, const CERT_PUBLIC_KEY_INFO& key,
                    const VerificationPlace& place);
  void requireVerified(const SignerInfo& signer, const CERT_PUBLIC_KEY_INFO& key, HCRYPTPROV given);

  ByteBuffer input_;  // what the decoded values point into
  ProviderHandle provider_;
  std::map<ALG_ID, ContentHash> contentHash_;
  SignedDataCore core_;
  ListPlace certificatePlace_, crlPlace_;
  bool releaseProv_ = false;
  bool detached_ = false;
  bool messageAdded_ = false;
  bool inputFinished_ = false;
};

MessageOwner MakeSignedEncodeContext();
MessageOwner MakeSignedDecodeContext();

}  // namespace certkern

#endif
