// One run of the decoder over one stretch of input: the place, the depth, and what may still be spent. Internal to the decoder.
// Every function answers a status; the one that sees a fault records it, those above only pass it on.
#ifndef CERTKERN_ASN1RT_DECODE_RUN_H
#define CERTKERN_ASN1RT_DECODE_RUN_H

#include <cstdint>
#include <span>

#include "asn1rt/context.h"
#include "asn1rt/decode_watcher.h"
#include "asn1rt/element_header.h"
#include "asn1rt/type_table.h"
#include "asn1rt/values.h"

namespace certkern {

class DecodeRun {
 public:
  DecodeRun(ASN1Context& context, ASN1Context::Budget& budget, const uint8_t* at)
      : context_(context), budget_(budget), watcher_(context.watcher()), at_(at) {}

  // A value whose header stands at the place.
  int whole(const TypeInfo& type, void* slot, const uint8_t* limit);
  // A value whose outermost header was read.
  int inside(const TypeInfo& type, void* slot, const ElementHeader& header);
  // Looks into an open value; one that is unknown stays as it is.
  int resolveOpen(const ObjectInfo* object, ASN1OpenValue& value, bool contained);

  const uint8_t* at() const { return at_; }

 private:
  using Tags = std::span<const Asn1Tag>;
  struct Join;

  [[gnu::cold]] int fail(int status) { return context_.fail(status, at_); }
  int readHeader(const uint8_t* limit, ElementHeader& header);
  void* allocate(uint64_t size, bool zeroed = true);

  // A constructed element's end, in both forms of length.
  bool atEnd(const ElementHeader& header) const {
    return header.indefinite ? IsEndOfContents(at_, header.end) : at_ == header.end;
  }
  int enter(const ElementHeader& header);
  int leave(const ElementHeader& header);
  int skip(const ElementHeader& header);

  // How many of the tags in front of a value are part of its own header rather than wrapped around it.
  static size_t OwnTags(TypeKind kind, bool contained) {
    if (kind == TypeKind::Choice) return 0;
    return kind != TypeKind::Open || contained ? 1 : 0;
  }
  static bool Matches(const TypeInfo& type, Tags tags, Asn1Tag tag);

  // The header has matched the first of the tags.
  int element(const TypeInfo& type, Tags tags, bool contained, void* slot, const ElementHeader& header);
  int wrapped(const TypeInfo& type, Tags tags, bool contained, void* slot, const ElementHeader& header);
  int content(const TypeInfo& type, bool contained, void* slot, const ElementHeader& header);
  int structured(const TypeInfo& type, bool contained, void* slot, const ElementHeader& header);

  int sequence(const TypeInfo& type, uint8_t* base, const ElementHeader& header);
  int set(const TypeInfo& type, uint8_t* base, const ElementHeader& header);
  int list(const TypeInfo& type, ASN1List& list, const ElementHeader& header);
  int choice(const TypeInfo& type, uint8_t* base, const ElementHeader& header);
  int open(bool contained, ASN1OpenValue& value, const ElementHeader& header);
  int member(const MemberInfo& member, uint8_t* base, const ElementHeader& header);
  int setMember(const TypeInfo& type, uint8_t* base, const ElementHeader& header, uint64_t& seen);
  int resolveMembers(const TypeInfo& type, uint8_t* base);
  int resolveMember(const ObjectInfo* object, ASN1OpenValue& value, bool contained);
  bool isSpent(int status) const;

  int boolean(bool& value, const ElementHeader& header);
  int int32(int32_t& value, const ElementHeader& header);
  int integer(ASN1BigInteger& value, const ElementHeader& header);
  int objectId(ASN1ObjectId& value, const ElementHeader& header);
  int null(const ElementHeader& header);
  int octets(ASN1OctetString& value, const ElementHeader& header);
  int bits(ASN1BitString& value, const ElementHeader& header);
  int text(ASN1Text& value, const ElementHeader& header);

  // The segments of a constructed string, put together; `alsoTag` is another tag that a segment may have.
  int joined(Asn1Tag segmentTag, Asn1Tag alsoTag, const ElementHeader& header, Join& join);
  int segments(const ElementHeader& header, Join& join);
  int segment(const ElementHeader& header, Join& join);

  ASN1Context& context_;
  ASN1Context::Budget& budget_;
  DecodeWatcher* const watcher_;
  const uint8_t* at_;
  unsigned depth_ = 0;
};

}  // namespace certkern

#endif
