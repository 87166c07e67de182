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

class EncodeRun {
 public:
  explicit EncodeRun(ASN1Context& context) : context_(context), output_(context.output()) {}

  int value(const TypeInfo& type, std::span<const Asn1Tag> tags, bool contained, const void* slot);

 private:
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
    std::memcpy(at, bytes.data(), bytes.size());
    return static_cast<int>(bytes.size());
  }

  int content(const TypeInfo& type, bool contained, const void* slot);
  int structured(const TypeInfo& type, bool contained, const void* slot);
  int sequence(const TypeInfo& type, const uint8_t* base);
  int set(const TypeInfo& type, const uint8_t* base);
  int list(const TypeInfo& type, const ASN1List& list);
  int setOf(const TypeInfo& type, const ASN1List& list);
  int choice(const TypeInfo& type, const uint8_t* base);
  int open(const ASN1OpenValue& value, bool contained);
  // 0 when the member is absent.
  int member(const MemberInfo& member, const uint8_t* base);
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
