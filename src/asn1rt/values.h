// The values inside generated structures. All are plain: bytes of zero are the empty value, nothing has a destructor,
// and whatever is pointed to lies in the message that was decoded, in the context's heap, or in constants.
#ifndef CERTKERN_ASN1RT_VALUES_H
#define CERTKERN_ASN1RT_VALUES_H

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <string_view>

namespace certkern {

inline constexpr uint32_t kMaxOidArcs = 128;

// An object identifier with room for its arcs: the shape of the schema's constants.
struct ASN1OBJID {
  uint32_t numids;
  uint32_t subid[kMaxOidArcs];
};

// An object identifier as a field: arcs that lie elsewhere.
struct ASN1ObjectId {
  uint32_t numids;
  const uint32_t* subid;

  std::span<const uint32_t> arcs() const { return {subid, numids}; }
};
inline ASN1ObjectId AsField(const ASN1OBJID& id) { return {id.numids, id.subid}; }
bool operator==(const ASN1ObjectId& a, const ASN1ObjectId& b);
inline bool operator==(const ASN1ObjectId& a, const ASN1OBJID& b) { return a == AsField(b); }

// Content octets, as they stand in the message.
struct ASN1OctetString {
  uint32_t numocts;
  const uint8_t* data;

  std::span<const uint8_t> bytes() const { return {data, numocts}; }
};

// An INTEGER without bounds that fit 32 bits: two's complement, most significant octet first, never empty in a message.
using ASN1BigInteger = ASN1OctetString;

// One whole encoded value, header included.
using ASN1OpenType = ASN1OctetString;

struct ASN1BitString {
  uint32_t numbits;
  const uint8_t* data;  // (numbits + 7) / 8 octets, the first bit is the top one
};

// Any character string or time: its octets as encoded, which may hold NULs and have no end mark.
struct ASN1Text {
  uint32_t numocts;
  const char* data;

  std::string_view text() const { return {data, numocts}; }
};

struct TypeInfo;

// An open type that an information object set may know. `encoded` is empty in a value that is still to be encoded from
// `decoded`; a decoded one keeps both.
struct ASN1OpenValue {
  ASN1OpenType encoded;
  const TypeInfo* type;  // of what `decoded` points to; null: unknown, only the bytes are there
  void* decoded;
};

// SEQUENCE OF and SET OF: a chain of nodes in the context's heap.
struct ASN1ListNode {
  void* data;  // the element
  ASN1ListNode* next;
  ASN1ListNode* prev;
};

struct ASN1List {
  uint32_t count;
  ASN1ListNode* head;
  ASN1ListNode* tail;
};

// The same, knowing what its elements are. Has no members of its own.
template <class Element>
struct ASN1ListOf : ASN1List {
  class Iterator {
   public:
    using value_type = Element;
    using difference_type = std::ptrdiff_t;
    using iterator_category = std::forward_iterator_tag;
    using pointer = Element*;
    using reference = Element&;

    Iterator() = default;
    explicit Iterator(const ASN1ListNode* node) : node_(node) {}
    Element& operator*() const { return *static_cast<Element*>(node_->data); }
    Element* operator->() const { return static_cast<Element*>(node_->data); }
    Iterator& operator++() {
      node_ = node_->next;
      return *this;
    }
    Iterator operator++(int) {
      const Iterator old = *this;
      ++*this;
      return old;
    }
    bool operator==(const Iterator&) const = default;

   private:
    const ASN1ListNode* node_ = nullptr;
  };
  Iterator begin() const { return Iterator(head); }
  Iterator end() const { return Iterator(); }
};

}  // namespace certkern

#endif
