// What one message is decoded or encoded in: its heap, its bytes and the place in them, and the first error. Counted
// references: the message buffer has one, each control object and each copy of a handle another. One thread at a time.
#ifndef CERTKERN_ASN1RT_CONTEXT_H
#define CERTKERN_ASN1RT_CONTEXT_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include "asn1rt/backward_buffer.h"
#include "asn1rt/heap.h"
#include "asn1rt/status.h"

namespace certkern {

class DecodeWatcher;

// SET OF goes out sorted by encodings, as DER has it, or in the order of the list: what a caller needs who must bring back
// bytes that somebody else signed.
enum class SetOrder { Der, AsGiven };

// An open value whose type is known and that does not decode as it fails the whole, or stays as its bytes, without a type.
// Foreign messages want the latter: anybody on the way can put any value among the attributes that nobody signed.
enum class OpenValues { Checked, Kept };

class ASN1Context {
 public:
  // With one reference, which is the caller's; null without memory. ASN1ContextPtr::Create() is easier to hold.
  static ASN1Context* Create();
  ASN1Context(const ASN1Context&) = delete;
  ASN1Context& operator=(const ASN1Context&) = delete;

  void addReference() { ++references_; }
  void release();
  int32_t references() const { return references_; }

  // Zeroed; null with ASN1_E_NO_MEMORY recorded. Lives as long as the context.
  void* allocate(uint64_t size);
  template <class T>
  T* allocate() {
    return static_cast<T*>(allocate(sizeof(T)));
  }
  // A copy in the heap; null as above. An empty one is not null either.
  uint8_t* copy(std::span<const uint8_t> bytes);
  ASN1Heap& heap() { return heap_; }

  // Records a status unless one stands already, and answers it. `at` tells where in the input, if it is in there.
  int fail(int status, const uint8_t* at = nullptr);
  int status() const { return status_; }
  size_t errorOffset() const { return errorOffset_; }
  void clearStatus();
  // "ASN.1 ERROR: Status %d\n", of the first error.
  std::string errorText() const;

  // Not copied: it must outlive what is decoded from it. The place is its start.
  void setInput(std::span<const uint8_t> input);
  std::span<const uint8_t> input() const { return input_; }
  size_t position() const { return position_; }
  void setPosition(size_t position) { position_ = position; }

  BackwardBuffer& output() { return output_; }
  SetOrder setOrder() const { return setOrder_; }
  void setSetOrder(SetOrder order) { setOrder_ = order; }
  OpenValues openValues() const { return openValues_; }
  void setOpenValues(OpenValues values) { openValues_ = values; }

  // What decoding this input may still take: bytes of the heap, and elements.
  struct Budget {
    uint64_t heap;
    uint64_t elements;
  };
  Budget& budget() { return budget_; }

  // Borrowed: it must outlive the decoding that it watches. Null: nobody does.
  void setWatcher(DecodeWatcher* watcher) { watcher_ = watcher; }
  DecodeWatcher* watcher() const { return watcher_; }

 private:
  ASN1Context() = default;
  ~ASN1Context() = default;

  int32_t references_ = 1;
  int status_ = ASN1_OK;
  size_t errorOffset_ = 0;
  std::span<const uint8_t> input_;
  size_t position_ = 0;
  Budget budget_{};
  DecodeWatcher* watcher_ = nullptr;
  BackwardBuffer output_;
  SetOrder setOrder_ = SetOrder::Der;
  OpenValues openValues_ = OpenValues::Checked;
  ASN1Heap heap_;
};

// One reference to a context.
class ASN1ContextPtr {
 public:
  ASN1ContextPtr() = default;
  // A new context; empty without memory.
  static ASN1ContextPtr Create() { return ASN1ContextPtr(ASN1Context::Create()); }
  // Another reference to this one.
  static ASN1ContextPtr Share(ASN1Context* context) {
    if (context) context->addReference();
    return ASN1ContextPtr(context);
  }
  ASN1ContextPtr(const ASN1ContextPtr& other) : ASN1ContextPtr(Share(other.context_)) {}
  ASN1ContextPtr(ASN1ContextPtr&& other) noexcept : context_(std::exchange(other.context_, nullptr)) {}
  ASN1ContextPtr& operator=(ASN1ContextPtr other) noexcept {
    std::swap(context_, other.context_);
    return *this;
  }
  ~ASN1ContextPtr() {
    if (context_) context_->release();
  }

  ASN1Context* get() const { return context_; }
  ASN1Context& operator*() const { return *context_; }
  ASN1Context* operator->() const { return context_; }
  explicit operator bool() const { return context_ != nullptr; }

 private:
  explicit ASN1ContextPtr(ASN1Context* context) : context_(context) {}
  ASN1Context* context_ = nullptr;
};

}  // namespace certkern

#endif
