#include "certkern/CMSMessage.h"

#include <certkern/errors.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

#include "certkern/CMSDataMessage.h"
#include "certkern/CMSHashedMessage.h"
#include "certkern/CMSMessageProxy.h"
#include "certkern/CMSSignedMessage.h"
#include "platform/sizes.h"
#include "store/store_record.h"

namespace certkern {
namespace {

template <class Context>
MessageOwner Make() {
  return MessageOwner(std::make_unique<Context>().release());
}

struct MessageType {
  DWORD number;
  MessageOwner (*makeEncode)();
  MessageOwner (*makeDecode)();
};
// Null: not served yet.
constexpr MessageType kMessageTypes[] = {
    {CMSG_DATA,      Make<DataMessageEncodeContext>,   Make<DataMessageDecodeContext>  },
    {CMSG_SIGNED,    MakeSignedEncodeContext,          MakeSignedDecodeContext         },
    {CMSG_ENVELOPED, nullptr,                          nullptr                         },
    {CMSG_HASHED,    Make<HashedMessageEncodeContext>, Make<HashedMessageDecodeContext>},
};

const MessageType& FindMessageType(DWORD number) {
  const auto* const row = std::ranges::find(kMessageTypes, number, &MessageType::number);
  if (row != std::end(kMessageTypes)) return *row;
  SetLastError(ERROR_INVALID_PARAMETER);
  throw CAException("Unsupported dwMsgType");
}

// No type has its streamed form yet; hashed messages never will.
MessageOwner MakeServed(MessageOwner (*make)(), const CMSG_STREAM_INFO* stream) {
  if (make && !stream) return make();
  SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
  throw CryptException(ERROR_CALL_NOT_IMPLEMENTED);
}

}  // namespace

MessageContext::~MessageContext() = default;

void MessageContext::getParam(const GetParamRequest& /*request*/) {
  throw CryptException(CRYPT_E_INVALID_MSG_TYPE);
}

void MessageContext::control(const ControlRequest& /*request*/) {
  throw CryptException(CRYPT_E_INVALID_MSG_TYPE);
}

void MessageContext::release() {
  const LastErrorKeeper keeper;
  if (!--references_) delete this;
}

void MessageEncodeContext::update(std::span<const BYTE> data, bool final) {
  addData(data, final);
  if (final) finalize();
}

void MessageDecodeContext::update(std::span<const BYTE> data, bool final) {
  if (!isMessageAdded()) return addMessage(data);
  addData(data, final);
  if (final) finalize();
}

// --- the store of a message ---

namespace {

size_t CountElements(HCERTSTORE handle) {
  CertStore& store = *AsStore(handle);
  const std::lock_guard guard(store.lock);
  return store.certificates.size + store.crls.size;
}

}  // namespace

// Who was given a certificate of it may have taken it out.
bool MessageDecodeContext::isStoreWhole() const {
  return store_ && CountElements(store_.get()) == storeSize_;
}

HCERTSTORE MessageDecodeContext::certificateStore() {
  if (isStoreWhole()) return store_.get();
  Owner<HCERTSTORE, CertCloseStore> made(
      CertOpenStore(CERT_STORE_PROV_MEMORY, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0, 0, nullptr));
  if (!made) ThrowLastError();
  addCertificatesToStore(made.get());
  addCRLsToStore(made.get());
  store_ = std::move(made);
  storeSize_ = CountElements(store_.get());
  return store_.get();
}

void MessageDecodeContext::dropStoreFor(const ControlRequest& request) {
  constexpr DWORD kChanges[] = {CMSG_CTRL_ADD_CERT, CMSG_CTRL_DEL_CERT, CMSG_CTRL_ADD_CRL, CMSG_CTRL_DEL_CRL};
  if (std::ranges::find(kChanges, request.dwCtrlType) != std::end(kChanges)) dropStore();
}

// --- factories ---

MessageOwner MakeEncodeContext(DWORD dwMsgType, const CMSG_STREAM_INFO* stream, bool /*bareStream*/) {
  return MakeServed(FindMessageType(dwMsgType).makeEncode, stream);
}

MessageOwner MakeDecodeContext(DWORD dwMsgType, const CMSG_STREAM_INFO* stream) {
  if (!dwMsgType) return MessageOwner(std::make_unique<MessageDecodeProxyContext>(stream).release());
  return MakeServed(FindMessageType(dwMsgType).makeDecode, stream);
}

// --- answers ---

void RequireRoom(const GetParamRequest& request, uint64_t size) {
  if (request.pcbData) *request.pcbData = CheckedDword(size);
  if (request.pvData && (!request.pcbData || request.cbData < size)) throw CryptException(ERROR_MORE_DATA);
}

void AnswerBytes(const GetParamRequest& request, std::span<const BYTE> bytes) {
  RequireRoom(request, bytes.size());
  if (request.pvData) std::ranges::copy(bytes, static_cast<BYTE*>(request.pvData));
}

void AnswerDword(const GetParamRequest& request, DWORD value) {
  AnswerBytes(request, {reinterpret_cast<const BYTE*>(&value), sizeof value});
}

void AnswerText(const GetParamRequest& request, const std::string& text) {
  AnswerBytes(request, {reinterpret_cast<const BYTE*>(text.c_str()), text.size() + 1});
}

// --- providers, hashes ---

ProviderHandle HoldProvider(HCRYPTPROV provider) {
  if (provider && !CryptContextAddRef(provider, nullptr, 0)) ThrowLastError();
  return ProviderHandle(provider);
}

HashHandle CreateHash(HCRYPTPROV provider, ALG_ID algorithm) {
  HashHandle hash;
  if (!CryptCreateHash(provider, algorithm, 0, 0, hash.out())) ThrowLastError();
  return hash;
}

void HashBytes(HCRYPTHASH hash, std::span<const BYTE> bytes) {
  if (!CryptHashData(hash, bytes.data(), CheckedDword(bytes.size()), 0)) ThrowLastError();
}

std::vector<BYTE> HashValue(HCRYPTHASH hash) {
  HashHandle copy;
  DWORD size = 0;
  if (!CryptDuplicateHash(hash, nullptr, 0, copy.out())
      || !CryptGetHashParam(copy.get(), HP_HASHVAL, nullptr, &size, 0)) {
    ThrowLastError();
  }
  std::vector<BYTE> value(size);
  if (!CryptGetHashParam(copy.get(), HP_HASHVAL, value.data(), &size, 0)) ThrowLastError();
  value.resize(size);
  return value;
}

}  // namespace certkern
