#include "certkern/CMSMessageProxy.h"

#include <certkern/errors.h>

#include <algorithm>
#include <array>

#include "platform/exceptions.h"
#include "platform/limits.h"

namespace certkern {
namespace {

constexpr BYTE kSequence = 0x30;
constexpr BYTE kContent = 0xA0;
constexpr BYTE kLongLength = 0x80;
// 1.2.840.113549.1.7, whose last arc follows.
constexpr std::array<BYTE, 10> kContentTypes = {0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07};
constexpr DWORD kServedTypes[] = {CMSG_DATA, CMSG_SIGNED, CMSG_ENVELOPED, CMSG_HASHED};

// Octets of the length that begins with this one.
size_t LengthSize(BYTE first) { return first & kLongLength ? 1 + (first & ~kLongLength) : 1; }

[[noreturn]] void RefuseType() { throw CryptException(CRYPT_E_INVALID_MSG_TYPE); }

}  // namespace

std::optional<DetectedContent> DetectContent(std::span<const BYTE> bytes) {
  if (bytes.empty()) return {};
  if (bytes[0] != kSequence) RefuseType();
  if (bytes.size() < 3) return {};
  size_t at = 1 + LengthSize(bytes[1]);
  if (bytes.size() <= at) return {};

  const std::span<const BYTE> oid = bytes.subspan(at, std::min(kContentTypes.size(), bytes.size() - at));
  if (!std::equal(oid.begin(), oid.end(), kContentTypes.begin())) RefuseType();
  at += kContentTypes.size();
  if (bytes.size() <= at) return {};
  const DWORD type = bytes[at++];
  if (std::ranges::find(kServedTypes, type) == std::end(kServedTypes)) RefuseType();
  if (bytes.size() <= at) return {};
  if (bytes[at++] != kContent) RefuseType();
  if (bytes.size() <= at) return {};
  at += LengthSize(bytes[at]);
  if (bytes.size() < at) return {};
  return DetectedContent{type, at};
}

MessageDecodeProxyContext::MessageDecodeProxyContext(const CMSG_STREAM_INFO* stream) {
  if (stream) stream_ = *stream;
}

MessageDecodeProxyContext::~MessageDecodeProxyContext() {
  if (releaseProv_) ProviderHandle(provider_).reset();
}

// Only the head is kept: a message that comes at once, as it should, is not copied here.
void MessageDecodeProxyContext::update(std::span<const BYTE> data, bool final) {
  if (inner_) return inner().update(data, final);
  const size_t before = head_.size();
  head_.append(data.first(std::min(data.size(), kMaxMessagePrefix - before)));
  const std::optional<DetectedContent> content = DetectContent(head_.bytes());
  if (!content) {
    if (final) throw CryptException(E_INVALIDARG);
    return;
  }
  head_.resize(before);  // should there be no context, all is as it was
  makeInner(content->type);
  // what came before did not suffice, so the content begins in what came now
  inner().update(data.subspan(content->offset - before), final);
  head_ = {};
}

void MessageDecodeProxyContext::makeInner(DWORD type) {
  inner_ = MakeDecodeContext(type, stream_ ? &*stream_ : nullptr);
  inner().setCryptProv(provider_);
  inner().setReleaseProv(releaseProv_);
  releaseProv_ = false;
  inner().setDetached(detached_);
}

MessageDecodeContext& MessageDecodeProxyContext::inner() {
  if (!inner_) throw CAException("Data wasn't passed to decode context.");
  return *inner_->asDecodeContext();
}

void MessageDecodeProxyContext::getParam(const GetParamRequest& request) {
  if (!inner_) throw CryptException(CRYPT_E_STREAM_MSG_NOT_READY);
  inner().getParam(request);
}

void MessageDecodeProxyContext::control(const ControlRequest& request) {
  dropStoreFor(request);
  inner().control(request);
}
bool MessageDecodeProxyContext::isMessageAdded() { return inner().isMessageAdded(); }
void MessageDecodeProxyContext::addCertificatesToStore(HCERTSTORE hStore) {
  inner().addCertificatesToStore(hStore);
}
void MessageDecodeProxyContext::addCRLsToStore(HCERTSTORE hStore) { inner().addCRLsToStore(hStore); }

// Only `update` leads to the context of the type.
void MessageDecodeProxyContext::addData(std::span<const BYTE> /*data*/, bool /*final*/) {
  throw CAException("Should not be called.");
}
void MessageDecodeProxyContext::finalize() { throw CAException("Should not be called."); }
void MessageDecodeProxyContext::addMessage(std::span<const BYTE> /*message*/) {
  throw CAException("Should not be called.");
}

}  // namespace certkern
