// What stands behind a message handle: one context that a message is built in, or read with. What fails throws; the file
// bears the name under which its exceptions are traced.
//
// The order of the virtual operations is part of the interface: destructor, thirteen that both branches share by their
// place, then what a kind has beyond them.
#ifndef CERTKERN_CERTKERN_CMSMESSAGE_H
#define CERTKERN_CERTKERN_CMSMESSAGE_H

#include <certkern/msg.h>
#include <certkern/store.h>

#include <cstdint>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "ber/decode_arena.h"
#include "certkern/ASN1Blob.h"
#include "oid/provider_search.h"
#include "platform/owner.h"
#include "store/certificate_digest.h"

namespace certkern {

using ByteBuffer = ASN1Blob;

struct GetParamRequest {
  DWORD dwParamType;
  DWORD dwIndex;
  DWORD* pcbData;  // null: nobody wants the size
  void* pvData;    // null: only the size is wanted
  DWORD cbData;    // bytes at pvData
};

struct ControlRequest {
  DWORD dwCtrlType;
  const void* pvCtrlPara;
  DWORD dwFlags;
};

class MessageDecodeContext;

class MessageContext {
 public:
  MessageContext(const MessageContext&) = delete;
  MessageContext& operator=(const MessageContext&) = delete;
  virtual ~MessageContext();
  virtual MessageDecodeContext* asDecodeContext() { return nullptr; }
  // A code that nobody below knows: CRYPT_E_INVALID_MSG_TYPE, of controls, too.
  virtual void getParam(const GetParamRequest& request);
  virtual void control(const ControlRequest& request);
  virtual void update(std::span<const BYTE> data, bool final) = 0;
  virtual void addData(std::span<const BYTE> data, bool final) = 0;
  virtual void finalize() = 0;
  virtual void setDetached(bool detached) = 0;

  // Not atomic: a message belongs to one thread at a time.
  void addReference() { ++references_; }
  // The last one destroys the message. The last error stays what it was.
  void release();

 protected:
  MessageContext() = default;

 private:
  uint32_t references_ = 1;
};

inline void ReleaseMessage(MessageContext* message) {
  if (message) message->release();
}
using MessageOwner = Owner<MessageContext*, ReleaseMessage>;

class MessageEncodeContext : public MessageContext {
 public:
  void update(std::span<const BYTE> data, bool final) override;
  virtual void readEncodeInfo(const void* pvMsgEncodeInfo) = 0;
  virtual void setInnerContentType(const char* pszObjId) = 0;
  virtual DWORD getEncodedSize(DWORD cbContent, bool fBare, const void* pvMsgEncodeInfo) = 0;
  virtual const ByteBuffer& getEncoded(bool fBare) = 0;
};

class MessageDecodeContext : public MessageContext {
 public:
  MessageDecodeContext* asDecodeContext() override { return this; }
  // The first one is the whole message, those that follow are detached content.
  void update(std::span<const BYTE> data, bool final) override;
  virtual void setCryptProv(HCRYPTPROV hCryptProv) = 0;
  virtual void setReleaseProv(bool release) = 0;
  virtual void addMessage(std::span<const BYTE> message) = 0;
  virtual bool isMessageAdded() = 0;
  virtual void addCertificatesToStore(HCERTSTORE hStore) = 0;
  virtual void addCRLsToStore(HCERTSTORE hStore) = 0;

  // The message's certificates and lists, for searching: it stays with the message until they change, so that who asks for
  // signer after signer does not pay for all of them each time. Borrowed. CryptException.
  HCERTSTORE certificateStore();

 protected:
  void dropStore() { store_.reset(); }
  // The same if the control changes what is in there.
  void dropStoreFor(const ControlRequest& request);

 private:
  bool isStoreWhole() const;

  Owner<HCERTSTORE, CertCloseStore> store_;
  size_t storeSize_ = 0;
};

// --- factories: what they answer has one reference, the caller's ---

// `stream` may be null; bareStream is looked at only with one.
MessageOwner MakeEncodeContext(DWORD dwMsgType, const CMSG_STREAM_INFO* stream, bool bareStream);
// Type 0: the data tells. A type or a stream that is not served is ERROR_CALL_NOT_IMPLEMENTED.
MessageOwner MakeDecodeContext(DWORD dwMsgType, const CMSG_STREAM_INFO* stream);

// --- answers to a request: the size always, the value into a buffer that has the room, else ERROR_MORE_DATA ---

void AnswerBytes(const GetParamRequest& request, std::span<const BYTE> bytes);
void AnswerDword(const GetParamRequest& request, DWORD value);
// With its NUL.
void AnswerText(const GetParamRequest& request, const std::string& text);
// Tells the size, and refuses a buffer without the room.
void RequireRoom(const GetParamRequest& request, uint64_t size);
// A record and, in the same block, all that it points to: lay(record, arena) runs twice, to count and to fill.
template <class Record, class Lay>
void AnswerRecord(const GetParamRequest& request, Lay lay) {
  Record unkept{};
  BerDecodeArena counting(sizeof(Record));
  lay(unkept, counting);
  RequireRoom(request, counting.size());
  if (!request.pvData) return;
  auto* const buffer = static_cast<BYTE*>(request.pvData);
  BerDecodeArena filling(buffer, request.cbData, sizeof(Record));
  Record& record = *new (buffer) Record{};
  lay(record, filling);
}

// --- providers, hashes ---

// One count of its own on a caller's provider; empty for 0. CryptException.
ProviderHandle HoldProvider(HCRYPTPROV provider);
// The value of a hash, the hash itself staying as it is: what reads a value ends a hash, so a copy is read.
std::vector<BYTE> HashValue(HCRYPTHASH hash);
void HashBytes(HCRYPTHASH hash, std::span<const BYTE> bytes);
HashHandle CreateHash(HCRYPTPROV provider, ALG_ID algorithm);

}  // namespace certkern

#endif
