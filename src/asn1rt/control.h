// Control objects: a generated value bound to the message buffer that it is read from or written to. For each type T the
// schema compiler writes, from the templates below,
//
//   class ASN1C_T : public ASN1Control<ASN1T_T, kInfo_T> { using ASN1Control::ASN1Control; };   // a list: ASN1ListControl
//   inline int asn1E_T(ASN1Context& c, const ASN1T_T* v, Tagging t) { return EncodeValue(c, kInfo_T, v, t); }
//   inline int asn1D_T(ASN1Context& c, ASN1T_T* v, Tagging t, int n) { return DecodeValue(c, kInfo_T, v, t, n); }
//   inline void asn1Init_T(ASN1T_T* v) { ClearValue(v); }
//   inline void asn1Free_T(ASN1Context&, ASN1T_T* v) { ClearValue(v); }
#ifndef CERTKERN_ASN1RT_CONTROL_H
#define CERTKERN_ASN1RT_CONTROL_H

#include <type_traits>

#include "asn1rt/context.h"
#include "asn1rt/decoder.h"
#include "asn1rt/encoder.h"
#include "asn1rt/message_buffer.h"
#include "asn1rt/type_table.h"
#include "asn1rt/values.h"

namespace certkern {

// The order of the operations is part of the interface. Neither the buffer nor the value is owned, the context is shared.
class ASN1CType {
 public:
  ASN1CType(ASN1MessageBufferIF& buffer, void* value);
  ASN1CType(const ASN1CType&) = delete;
  ASN1CType& operator=(const ASN1CType&) = delete;
  virtual ~ASN1CType();
  virtual ASN1MessageBufferIF* GetMsgBuffer() const { return buffer_; }
  virtual void* GetValue() const { return value_; }
  // A type without tables of its own has nothing to write or to read.
  virtual int Encode() { return ASN1_OK; }
  virtual int Decode() { return ASN1_OK; }

  ASN1Context& context() const { return *context_; }

 protected:
  // A message of its own: what the buffer held before is dropped. The length, or a status.
  int encodeAs(const TypeInfo& info);
  // At the buffer's place.
  int decodeAs(const TypeInfo& info);

 private:
  ASN1MessageBufferIF* buffer_;
  void* value_;
  ASN1ContextPtr context_;
};

// A list's nodes and elements, in the context's heap.
class ASN1CSeqOfList : public ASN1CType {
 public:
  ASN1CSeqOfList(ASN1MessageBufferIF& buffer, ASN1List& list) : ASN1CType(buffer, &list) {}
  ~ASN1CSeqOfList() override;

  ASN1List& list() const { return *static_cast<ASN1List*>(GetValue()); }
  uint32_t size() const { return list().count; }
  void clear() { list() = {}; }
  // The element is not copied and must live as long as the list is used. A status.
  int append(void* element) { return AppendToList(context(), list(), element); }
  int insert(uint32_t index, void* element);
  // The index-th element; null past the end.
  void* at(uint32_t index) const;
  bool remove(uint32_t index);

  static int AppendToList(ASN1Context& context, ASN1List& list, void* element);

 private:
  ASN1ListNode* node(uint32_t index) const;
};

template <class T, const TypeInfo& kInfo>
class ASN1Control : public ASN1CType {
 public:
  using ValueType = T;
  ASN1Control(ASN1MessageBufferIF& buffer, T& value) : ASN1CType(buffer, &value) {}
  T& value() const { return *static_cast<T*>(this->GetValue()); }
  int Encode() override { return this->encodeAs(kInfo); }
  int Decode() override { return this->decodeAs(kInfo); }
};

// Adds an element of zero bytes to a list, or a copy of one: its address in the heap, or null without memory.
template <class Element>
Element* AppendElement(ASN1Context& context, ASN1ListOf<Element>& list, const Element& value = {}) {
  auto* const element = context.allocate<Element>();
  if (!element) return nullptr;
  *element = value;
  return ASN1CSeqOfList::AppendToList(context, list, element) == ASN1_OK ? element : nullptr;
}

template <class Element, const TypeInfo& kInfo>
class ASN1ListControl : public ASN1CSeqOfList {
 public:
  using ValueType = ASN1ListOf<Element>;
  ASN1ListControl(ASN1MessageBufferIF& buffer, ValueType& value) : ASN1CSeqOfList(buffer, value) {}
  ValueType& value() const { return static_cast<ValueType&>(this->list()); }
  int Encode() override { return this->encodeAs(kInfo); }
  int Decode() override { return this->decodeAs(kInfo); }
  Element* Append(const Element& element = {}) { return AppendElement(this->context(), value(), element); }
  typename ValueType::Iterator begin() const { return value().begin(); }
  typename ValueType::Iterator end() const { return value().end(); }
};

// Initialises and releases alike: what a value points to goes with the context's heap.
template <class T>
void ClearValue(T* value) {
  static_assert(std::is_trivially_destructible_v<T>);
  *value = T{};
}

}  // namespace certkern

#endif
