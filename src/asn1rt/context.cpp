#include "asn1rt/context.h"

#include <functional>
#include <new>

#include "platform/limits.h"

namespace certkern {

ASN1Context* ASN1Context::Create() {
  return new (std::nothrow) ASN1Context;  // counted: ASN1ContextPtr is its owner
}

void ASN1Context::release() {
  if (--references_ == 0) delete this;
}

void* ASN1Context::allocate(uint64_t size) {
  void* const piece = heap_.allocate(size);
  if (!piece) fail(ASN1_E_NO_MEMORY);
  return piece;
}

uint8_t* ASN1Context::copy(std::span<const uint8_t> bytes) {
  auto* const piece = static_cast<uint8_t*>(heap_.allocateRaw(bytes.size()));
  if (!piece) {
    fail(ASN1_E_NO_MEMORY);
  } else if (!bytes.empty()) {
    std::memcpy(piece, bytes.data(), bytes.size());
  }
  return piece;
}

int ASN1Context::fail(int status, const uint8_t* at) {
  if (status_ != ASN1_OK || status >= 0) return status;
  status_ = status;
  // content that was put together in the heap has no place in the input
  const uint8_t* const begin = input_.data();
  const bool inside = at && std::less_equal<>()(begin, at) && std::less_equal<>()(at, begin + input_.size());
  errorOffset_ = inside ? static_cast<size_t>(at - begin) : position_;
  return status;
}

void ASN1Context::clearStatus() {
  status_ = ASN1_OK;
  errorOffset_ = 0;
}

std::string ASN1Context::errorText() const { return "ASN.1 ERROR: Status " + std::to_string(status_) + "\n"; }

void ASN1Context::setInput(std::span<const uint8_t> input) {
  input_ = input;
  position_ = 0;
  budget_ = {input.size() * kAsn1HeapPerInput + kAsn1HeapBase, kMaxAsn1Elements};
}

}  // namespace certkern
