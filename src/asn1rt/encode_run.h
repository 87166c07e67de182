// One run of the encoder: what it writes to, and the depth. Internal to the encoder. Every function answers the octets that
// it wrote in front, or a status; the one that sees a fault records it.
#ifndef CERTKERN_ASN1RT_ENCODE_RUN_H
#define CERTKERN_ASN1RT_ENCODE_RUN_H

#include <cstdint>
#include <cstring>
#include <span>

#include "asn1rt/context.h"
#include "asn1rt/type_table.h"
#include "asn1rt/values.h"

namespace certkern {

// As memcpy, which for the few octets of a common value would cost more to call than to do.
inline void CopyOctets(uint8_t* to, const uint8_t* from, size_t count) {
  if (count > 16) {
    std::memcpy(to, from, count);
  } else if (count >= 8) {  // two halves that may overlap, and so on below
    std::memcpy(to, from, 8);
    std::memcpy(to + count - 8, from + count - 8, 8);
  } else if (count >= 4) {
    std::memcpy(to, from, 4);
    std::memcpy(to + count - 4, from + count - 4, 4);
  } else {
    for (size_t i = 0; i < count; ++i) to[i] = from[i];
  }
}

class EncodeRun {
 public:
  explicit EncodeRun(ASN1Context& context) : context_(context), output_(context.output()) {}

  // A value with the tags in front of it.
  int tagged(const TypeInfo& type, std::span<const Asn1Tag> tags, bool contained, const void* slot);

 private:
  // The same where values are many: what is short and simple takes no call.
  [[gnu::always_inline]] int value(const TypeInfo& type, std::span<const Asn1Tag> tags, bool contained,
                                   const void* slot);
  [[gnu::cold]] int fail(int status) { return context_.fail(status); }
  int header(Asn1Tag tag, bool constructed, int length) {
    if (NumberOf(tag) >= 0x1F || length >= 0x80) return longHeader(tag, constructed, length);
    uint8_t* const at = output_.prepend(2);
    if (!at) [[unlikely]]
      return fail(output_.status());
    at[0] = static_cast<uint8_t>(tag >> 30 << 6 | (constructed ? 0x20u : 0u) | NumberOf(tag));
    at[1] = static_cast<uint8_t>(length);
    return 2;
  }
  int longHeader(Asn1Tag tag, bool constructed, int length);
  int bytes(std::span<const uint8_t> bytes) {
    if (bytes.empty()) return 0;
    uint8_t* const at = output_.prepend(bytes.size());
    if (!at) [[unlikely]]
      return fail(output_.status());
    CopyOctets(at, bytes.data(), bytes.size());
    return static_cast<int>(bytes.size());
  }
  // A short header and its content, which is most of what messages are made of, as one piece.
  int shortOctets(Asn1Tag tag, const ASN1OctetString& octets) {
    uint8_t* const at = output_.prepend(octets.numocts + 2);
    if (!at) [[unlikely]]
      return fail(output_.status());
    at[0] = static_cast<uint8_t>(tag >> 30 << 6 | NumberOf(tag));
    at[1] = static_cast<uint8_t>(octets.numocts);
    CopyOctets(at + 2, octets.data, octets.numocts);
    return static_cast<int>(octets.numocts) + 2;
  }

  [[gnu::always_inline]] int content(const TypeInfo& type, const void* slot);
  [[gnu::always_inline]] int structured(const TypeInfo& type, bool contained, const void* slot);
  [[gnu::always_inline]] int sequence(const TypeInfo& type, const uint8_t* base);
  int set(const TypeInfo& type, const uint8_t* base);
  int list(const TypeInfo& type, const ASN1List& list);
  int setOf(const TypeInfo& type, const ASN1List& list);
  int choice(const TypeInfo& type, const uint8_t* base);
  int open(const ASN1OpenValue& value, bool contained);
  // 0 when the member is absent.
  [[gnu::always_inline]] int member(const MemberInfo& member, const uint8_t* base);
  // The tag that a member of a SET goes out with; 0 when it says none.
  Asn1Tag outermostTag(const MemberInfo& member, const uint8_t* base);

  int integer(int32_t value);
  int counted(const void* data, uint32_t count);
  int bits(const ASN1BitString& value);
  int objectId(const ASN1ObjectId& value);

  ASN1Context& context_;
  BackwardBuffer& output_;
  unsigned depth_ = 0;
};

}  // namespace certkern

#endif
