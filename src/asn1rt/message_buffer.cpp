#include "asn1rt/message_buffer.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/limits.h"

namespace certkern {

ASN1RTLException::ASN1RTLException(int32_t status)
    : status_(status), text_("ASN.1 ERROR: Status " + std::to_string(status) + "\n") {}
ASN1RTLException::~ASN1RTLException() = default;
ASN1MessageBuffer::RTLError::~RTLError() = default;
ASN1MessageBufferIF::~ASN1MessageBufferIF() = default;
ASN1BERMessageBuffer::~ASN1BERMessageBuffer() = default;

// --- the base ---

ASN1MessageBuffer::ASN1MessageBuffer() : ASN1MessageBuffer(ASN1ContextPtr::Create()) {}
ASN1MessageBuffer::ASN1MessageBuffer(ASN1ContextPtr context) : context_(std::move(context)) {
  if (!context_) throw RTLError(ASN1_E_NO_MEMORY);
}
ASN1MessageBuffer::~ASN1MessageBuffer() = default;

BYTE* ASN1MessageBuffer::GetMsgCopy() {
  const std::span<const BYTE> bytes = message();
  if (bytes.empty()) return nullptr;
  auto* const copy = new (std::nothrow) BYTE[bytes.size()];  // the caller's, to delete[]
  if (!copy) throw RTLError(context_->fail(ASN1_E_NO_MEMORY));
  std::ranges::copy(bytes, copy);
  return copy;
}

const BYTE* ASN1MessageBuffer::GetMsgPtr() {
  const std::span<const BYTE> bytes = message();
  return bytes.empty() ? nullptr : bytes.data();
}

std::span<const BYTE> ASN1MessageBuffer::message() const {
  return IsA(kEncodeMode) ? context_->output().bytes() : context_->input();
}

size_t ASN1MessageBuffer::GetMsgLen() { return message().size(); }

int ASN1MessageBuffer::Init(int) {
  context_->clearStatus();
  return ASN1_OK;
}

// Bytes that stand where a value would: what is encoded next goes in front of them.
int ASN1MessageBuffer::StoreMessage(const ASN1OctetString& object) {
  if (object.numocts && !object.data) return context_->fail(ASN1_E_BAD_VALUE);
  BackwardBuffer& output = context_->output();
  output.restart();
  BYTE* const at = output.prepend(object.numocts);
  if (!at && object.numocts) return context_->fail(output.status());
  std::ranges::copy(object.bytes(), at);
  return ASN1_OK;
}

int ASN1MessageBuffer::StoreText(const char*) { return ASN1_E_NOT_SUPPORTED; }
int ASN1MessageBuffer::GetStatus() const { return context_->status(); }

// --- to encode into ---

ASN1BEREncodeBuffer::ASN1BEREncodeBuffer() = default;
ASN1BEREncodeBuffer::ASN1BEREncodeBuffer(std::span<BYTE> room) {
  // an empty room would be taken for a wish to grow
  if (room.empty()) throw RTLError(context().fail(ASN1_E_BUFFER_FULL));
  context().output().useFixed(room);
}

// Another holder of the context may write on, and the room is not ours any more.
ASN1BEREncodeBuffer::~ASN1BEREncodeBuffer() {
  if (!context().output().isDynamic()) context().output().useFixed({});
}

BYTE* ASN1BEREncodeBuffer::GetMsgCopy() {
  BYTE* const copy = ASN1MessageBuffer::GetMsgCopy();
  if (copy) Init(kRestartMode);
  return copy;
}

const BYTE* ASN1BEREncodeBuffer::GetMsgPtr() { return ASN1MessageBuffer::GetMsgPtr(); }

int ASN1BEREncodeBuffer::Init(int mode) {
  context().output().restart();
  return ASN1MessageBuffer::Init(mode);
}

// --- to decode from ---

ASN1BERDecodeBuffer::ASN1BERDecodeBuffer(const BYTE* data, size_t length) : data_(data), length_(length) {
  if (const int status = attach(); status < 0) throw RTLError(status);
}
ASN1BERDecodeBuffer::ASN1BERDecodeBuffer(ASN1ContextPtr context, const BYTE* data, size_t length)
    : ASN1BERMessageBuffer(std::move(context)), data_(data), length_(length) {
  if (const int status = attach(); status < 0) throw RTLError(status);
}
ASN1BERDecodeBuffer::~ASN1BERDecodeBuffer() = default;

// Back to the start of the input; reports an input that cannot be one.
int ASN1BERDecodeBuffer::Init(int mode) {
  const int status = ASN1MessageBuffer::Init(mode);
  return status < 0 ? status : attach();
}

int ASN1BERDecodeBuffer::attach() {
  if (length_ && !data_) return context().fail(ASN1_E_BAD_VALUE);
  if (length_ > kMaxAsn1Message) return context().fail(ASN1_E_BAD_LENGTH);
  context().setInput({data_, length_});
  return ASN1_OK;
}

// Borrowed, as the constructor's input is.
int ASN1BERDecodeBuffer::StoreMessage(const ASN1OctetString& object) {
  data_ = object.data;
  length_ = object.numocts;
  return Init(kDecodeMode);
}

}  // namespace certkern
