// Message buffers: each owns a reference to the context that one message is decoded or encoded in.
#ifndef CERTKERN_ASN1RT_MESSAGE_BUFFER_H
#define CERTKERN_ASN1RT_MESSAGE_BUFFER_H

#include <certkern/types.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <span>
#include <string>

#include "asn1rt/context.h"
#include "asn1rt/values.h"

namespace certkern {

class ASN1RTLException : public std::exception {
 public:
  explicit ASN1RTLException(int32_t status);
  ~ASN1RTLException() override;
  const char* what() const noexcept override { return text_.c_str(); }
  int32_t status() const { return status_; }

 private:
  int32_t status_;
  std::string text_;
};

// What a buffer is made for, as IsA() is asked.
inline constexpr int kEncodeMode = 0;
inline constexpr int kDecodeMode = 1;
// A fresh start with the room that is there, after a message was taken.
inline constexpr int kRestartMode = 5;

// The order of the operations is part of the interface.
class ASN1MessageBufferIF {
 public:
  virtual ~ASN1MessageBufferIF();
  virtual ASN1ContextPtr GetContextPtr() = 0;
  virtual ASN1Context* GetCtxtPtr() = 0;
  // Made with new[], the caller's to delete[]. Null when there is no message.
  virtual BYTE* GetMsgCopy() = 0;
  virtual const BYTE* GetMsgPtr() = 0;
  virtual int Init(int mode) = 0;
  // Another object's bytes become the message.
  virtual int StoreMessage(const ASN1OctetString& object) = 0;
  // The same from a text notation, for encodings that have one.
  virtual int StoreText(const char* text) = 0;
  // The first error, or 0.
  virtual int GetStatus() const = 0;
  virtual bool IsA(int mode) const = 0;
};

class ASN1MessageBuffer : public ASN1MessageBufferIF {
 public:
  class RTLError : public ASN1RTLException {
   public:
    explicit RTLError(int32_t status) : ASN1RTLException(status) {}
    ~RTLError() override;
  };

  ~ASN1MessageBuffer() override;
  ASN1MessageBuffer(const ASN1MessageBuffer&) = delete;
  ASN1MessageBuffer& operator=(const ASN1MessageBuffer&) = delete;
  ASN1ContextPtr GetContextPtr() override { return context_; }
  ASN1Context* GetCtxtPtr() override { return context_.get(); }
  BYTE* GetMsgCopy() override;
  const BYTE* GetMsgPtr() override;
  int Init(int mode) override;
  int StoreMessage(const ASN1OctetString& object) override;
  int StoreText(const char* text) override;
  int GetStatus() const override;

  // For those who know the kind of buffer that they hold.
  ASN1Context& context() { return *context_; }
  size_t GetMsgLen();

 protected:
  ASN1MessageBuffer();  // throws RTLError without memory
  // Another buffer over a context that exists.
  explicit ASN1MessageBuffer(ASN1ContextPtr context);

 private:
  std::span<const BYTE> message() const;

  ASN1ContextPtr context_;
};

class ASN1BERMessageBuffer : public ASN1MessageBuffer {
 public:
  ~ASN1BERMessageBuffer() override;

 protected:
  using ASN1MessageBuffer::ASN1MessageBuffer;
};

class ASN1BEREncodeBuffer : public ASN1BERMessageBuffer {
 public:
  ASN1BEREncodeBuffer();                               // grows
  explicit ASN1BEREncodeBuffer(std::span<BYTE> room);  // the caller's, which must outlive this
  ~ASN1BEREncodeBuffer() override;

  BYTE* GetMsgCopy() override;  // and starts anew
  const BYTE* GetMsgPtr() override;
  int Init(int mode) override;
  bool IsA(int mode) const override { return mode == kEncodeMode; }
};

class ASN1BERDecodeBuffer : public ASN1BERMessageBuffer {
 public:
  // Borrowed: the input must outlive the buffer, and all that is decoded from it.
  ASN1BERDecodeBuffer(const BYTE* data, size_t length);
  // In the heap of a message that exists, whose own input is then no longer read.
  ASN1BERDecodeBuffer(ASN1ContextPtr context, const BYTE* data, size_t length);
  ~ASN1BERDecodeBuffer() override;

  const BYTE* GetMsgPtr() override { return data_; }
  int Init(int mode) override;
  int StoreMessage(const ASN1OctetString& object) override;
  bool IsA(int mode) const override { return mode != kEncodeMode; }

 private:
  int attach();

  const BYTE* data_;
  size_t length_;
};

}  // namespace certkern

#endif
