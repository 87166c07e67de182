#include "certkern/CMSMessage.h"

#include <certkern/errors.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/sizes.h"

namespace certkern {

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

// --- answers ---

void RequireRoom(const GetParamRequest& request, uint64_t size) {
  if (request.pcbData) *request.pcbData = CheckedDword(size);
  if (request.pvData && request.cbData < size) throw CryptException(ERROR_MORE_DATA);
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

ByteBuffer HashValue(HCRYPTHASH hash) {
  HashHandle copy;
  DWORD size = 0;
  if (!CryptDuplicateHash(hash, nullptr, 0, copy.out())
      || !CryptGetHashParam(copy.get(), HP_HASHVAL, nullptr, &size, 0)) {
    ThrowLastError();
  }
  ByteBuffer value;
  value.resize(size);
  if (!CryptGetHashParam(copy.get(), HP_HASHVAL, value.data(), &size, 0)) ThrowLastError();
  value.resize(size);
  return value;
}

}  // namespace certkern
