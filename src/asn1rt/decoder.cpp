#include "asn1rt/decoder.h"

#include <cstring>

#include "asn1rt/decode_run.h"
#include "platform/limits.h"

namespace certkern {
namespace {

// An OCTET STRING around an open type as a type of its own has no member that says so.
constexpr Asn1Tag kOctetStringTag = MakeTag(TagClass::Universal, 4);
bool IsContained(const TypeInfo& type) {
  return type.kind == TypeKind::Open && !type.tags.empty() && type.tags.back() == kOctetStringTag;
}

// What a member that is absent reads as.
void StoreDefault(const MemberInfo& member, uint8_t* base) {
  if (!member.hasDefault) return;
  uint8_t* const slot = base + member.offset;
  if (member.type->kind == TypeKind::Boolean) {
    *reinterpret_cast<bool*>(slot) = member.defaultValue != 0;
  } else {
    *reinterpret_cast<int32_t*>(slot) = member.defaultValue;
  }
}

void MarkPresent(const MemberInfo& member, uint8_t* base) {
  if (member.presentBit < 0) return;
  uint32_t present;
  std::memcpy(&present, base, sizeof present);
  present |= 1u << member.presentBit;
  std::memcpy(base, &present, sizeof present);
}

void Link(ASN1List& list, ASN1ListNode& node) {
  node.prev = list.tail;
  (list.tail ? list.tail->next : list.head) = &node;
  list.tail = &node;
  ++list.count;
}

// Many a writer puts NULL where the type of absent parameters would stand.
bool IsNull(const ASN1OpenType& value) {
  return value.numocts == 2 && value.data[0] == 0x05 && value.data[1] == 0x00;
}

bool IsList(TypeKind kind) { return kind == TypeKind::SequenceOf || kind == TypeKind::SetOf; }

}  // namespace

// --- headers and places ---

int DecodeRun::readHeader(const uint8_t* limit, ElementHeader& header) {
  if (budget_.elements == 0) return fail(ASN1_E_TOO_MANY);
  --budget_.elements;
  const int status = ReadElementHeader(at_, limit, header);
  return status < 0 ? fail(status) : status;
}

void* DecodeRun::allocate(uint64_t size, bool zeroed) {
  void* const piece = size > budget_.heap ? nullptr
      : zeroed                            ? context_.heap().allocate(size)
                                          : context_.heap().allocateRaw(size);
  if (!piece) {
    fail(ASN1_E_NO_MEMORY);
    return nullptr;
  }
  budget_.heap -= size;
  return piece;
}

int DecodeRun::enter(const ElementHeader& header) {
  if (!header.constructed) return fail(ASN1_E_WRONG_TAG);
  at_ = header.content;
  return ASN1_OK;
}

int DecodeRun::leave(const ElementHeader& header) {
  if (!atEnd(header)) return fail(ASN1_E_TRAILING);
  if (header.indefinite) at_ += 2;
  if (watcher_) [[unlikely]]
    watcher_->leave(header, at_);
  return ASN1_OK;
}

// To behind the element. Only one of indefinite length has to be walked.
int DecodeRun::skip(const ElementHeader& header) {
  if (!header.indefinite) {
    at_ = header.end;
    return ASN1_OK;
  }
  at_ = header.content;
  for (unsigned nesting = 1; nesting > 0;) {
    if (IsEndOfContents(at_, header.end)) {
      at_ += 2;
      --nesting;
      continue;
    }
    ElementHeader inner;
    if (const int status = readHeader(header.end, inner); status < 0) return status;
    if (inner.indefinite && ++nesting > kMaxAsn1Depth) return fail(ASN1_E_TOO_DEEP);
    at_ = inner.indefinite ? inner.content : inner.end;
  }
  return ASN1_OK;
}

bool DecodeRun::Matches(const TypeInfo& type, Tags tags, Asn1Tag tag) {
  if (!tags.empty()) return tags.front() == tag;
  if (type.kind != TypeKind::Choice) return type.kind == TypeKind::Open;
  for (const MemberInfo& alternative : type.members) {
    if (Matches(*alternative.type, alternative.tags, tag)) return true;
  }
  return false;
}

// --- one value ---

int DecodeRun::whole(const TypeInfo& type, void* slot, const uint8_t* limit) {
  ElementHeader header{};
  if (const int status = readHeader(limit, header); status < 0) return status;
  // an untagged choice says itself what it misses
  if (!type.tags.empty() && type.tags.front() != header.tag) return fail(ASN1_E_WRONG_TAG);
  return element(type, type.tags, IsContained(type), slot, header);
}

int DecodeRun::inside(const TypeInfo& type, void* slot, const ElementHeader& header) {
  // What the caller took off was a wrapper, and the value stands in it.
  if (type.tags.empty()) return wrapped(type, {&header.tag, 1}, IsContained(type), slot, header);
  return element(type, type.tags, IsContained(type), slot, header);
}

int DecodeRun::element(const TypeInfo& type, Tags tags, bool contained, void* slot,
                       const ElementHeader& header) {
  const bool isWrapped = tags.size() > OwnTags(type.kind, contained);
  if (watcher_) [[unlikely]]
    watcher_->element(isWrapped ? nullptr : &type, header);
  if (isWrapped) return wrapped(type, tags, contained, slot, header);
  return content(type, contained, slot, header);
}

int DecodeRun::wrapped(const TypeInfo& type, Tags tags, bool contained, void* slot,
                       const ElementHeader& header) {
  if (const int status = enter(header); status < 0) return status;
  ElementHeader inner;
  if (const int status = readHeader(header.end, inner); status < 0) return status;
  const Tags rest = tags.subspan(1);
  if (!rest.empty() && rest.front() != inner.tag) return fail(ASN1_E_WRONG_TAG);
  if (const int status = element(type, rest, contained, slot, inner); status < 0) return status;
  return leave(header);
}

int DecodeRun::content(const TypeInfo& type, bool contained, void* slot, const ElementHeader& header) {
  switch (type.kind) {
    case TypeKind::Boolean:
      return boolean(*static_cast<bool*>(slot), header);
    case TypeKind::Int32:
    case TypeKind::Enumerated:
      return int32(*static_cast<int32_t*>(slot), header);
    case TypeKind::BigInteger:
      return integer(*static_cast<ASN1BigInteger*>(slot), header);
    case TypeKind::BitString:
      return bits(*static_cast<ASN1BitString*>(slot), header);
    case TypeKind::OctetString:
      return octets(*static_cast<ASN1OctetString*>(slot), header);
    case TypeKind::Null:
      return null(header);
    case TypeKind::ObjectId:
      return objectId(*static_cast<ASN1ObjectId*>(slot), header);
    case TypeKind::Text:
      return text(*static_cast<ASN1Text*>(slot), header);
    default:
      return structured(type, contained, slot, header);
  }
}

// What has values inside, and so a depth.
int DecodeRun::structured(const TypeInfo& type, bool contained, void* slot, const ElementHeader& header) {
  if (++depth_ > kMaxAsn1Depth) return fail(ASN1_E_TOO_DEEP);
  int status;
  switch (type.kind) {
    case TypeKind::Sequence:
      status = sequence(type, static_cast<uint8_t*>(slot), header);
      break;
    case TypeKind::Set:
      status = set(type, static_cast<uint8_t*>(slot), header);
      break;
    case TypeKind::Choice:
      status = choice(type, static_cast<uint8_t*>(slot), header);
      break;
    case TypeKind::Open:
      status = open(contained, *static_cast<ASN1OpenValue*>(slot), header);
      break;
    default:
      status = list(type, *static_cast<ASN1List*>(slot), header);
  }
  --depth_;
  return status;
}

// --- structures ---

namespace {

// The default parameters of RSASSA-PSS are about as 30 00 00: an empty SEQUENCE, and an octet too many behind it, at the end
// of the identifier of the algorithm.
bool HasStrayOctet(const TypeInfo& type, const uint8_t* at, const ElementHeader& header) {
  const auto members = type.members;
  return members.size() == 2 && members[0].type->kind == TypeKind::ObjectId
      && members[1].type->kind == TypeKind::Open && !header.indefinite && header.end - at == 1 && at[0] == 0
      && at - header.content >= 2 && at[-1] == 0 && at[-2] == 0x30;
}

}  // namespace

int DecodeRun::sequence(const TypeInfo& type, uint8_t* base, const ElementHeader& header) {
  if (const int status = enter(header); status < 0) return status;
  ElementHeader next;
  bool waiting = false;  // a header was read that no member has taken yet
  for (const MemberInfo& expected : type.members) {
    if (!waiting && !atEnd(header)) {
      if (const int status = readHeader(header.end, next); status < 0) return status;
      waiting = true;
    }
    if (waiting && Matches(*expected.type, expected.tags, next.tag)) {
      if (const int status = member(expected, base, next); status < 0) return status;
      waiting = false;
    } else if (expected.optional) {
      StoreDefault(expected, base);
    } else {
      return fail(waiting ? ASN1_E_WRONG_TAG : ASN1_E_MISSING);
    }
  }
  if (!waiting && HasStrayOctet(type, at_, header)) ++at_;
  while (waiting || !atEnd(header)) {
    if (!type.extensible) return fail(ASN1_E_TRAILING);
    const int status = waiting ? ASN1_OK : readHeader(header.end, next);
    if (status < 0) return status;
    if (const int skipped = skip(next); skipped < 0) return skipped;
    waiting = false;
  }
  if (const int status = resolveMembers(type, base); status < 0) return status;
  return leave(header);
}

int DecodeRun::set(const TypeInfo& type, uint8_t* base, const ElementHeader& header) {
  if (const int status = enter(header); status < 0) return status;
  if (type.members.size() > 64) return fail(ASN1_E_NOT_SUPPORTED);
  uint64_t seen = 0;
  while (!atEnd(header)) {
    ElementHeader next;
    if (const int status = readHeader(header.end, next); status < 0) return status;
    if (const int status = setMember(type, base, next, seen); status < 0) return status;
  }
  for (size_t i = 0; i < type.members.size(); ++i) {
    if (seen >> i & 1) continue;
    if (!type.members[i].optional) return fail(ASN1_E_MISSING);
    StoreDefault(type.members[i], base);
  }
  if (const int status = resolveMembers(type, base); status < 0) return status;
  return leave(header);
}

int DecodeRun::setMember(const TypeInfo& type, uint8_t* base, const ElementHeader& header, uint64_t& seen) {
  bool repeated = false;
  for (size_t i = 0; i < type.members.size(); ++i) {
    const MemberInfo& candidate = type.members[i];
    if (!Matches(*candidate.type, candidate.tags, header.tag)) continue;
    repeated = true;
    if (seen >> i & 1) continue;
    seen |= uint64_t{1} << i;
    return member(candidate, base, header);
  }
  if (repeated) return fail(ASN1_E_REPEATED);
  return type.extensible ? skip(header) : fail(ASN1_E_TRAILING);
}

int DecodeRun::member(const MemberInfo& member, uint8_t* base, const ElementHeader& header) {
  void* slot = base + member.offset;
  if (member.pointer) {
    void* const value = allocate(member.type->size);
    if (!value) return ASN1_E_NO_MEMORY;
    std::memcpy(slot, &value, sizeof value);
    slot = value;
  }
  MarkPresent(member, base);
  if (watcher_) [[unlikely]]
    watcher_->member(member);
  return element(*member.type, member.tags, member.contained, slot, header);
}

int DecodeRun::choice(const TypeInfo& type, uint8_t* base, const ElementHeader& header) {
  for (size_t i = 0; i < type.members.size(); ++i) {
    const MemberInfo& alternative = type.members[i];
    if (!Matches(*alternative.type, alternative.tags, header.tag)) continue;
    *reinterpret_cast<int32_t*>(base) = static_cast<int32_t>(i + 1);
    return member(alternative, base, header);
  }
  return fail(ASN1_E_UNKNOWN_CHOICE);
}

int DecodeRun::list(const TypeInfo& type, ASN1List& list, const ElementHeader& header) {
  if (const int status = enter(header); status < 0) return status;
  const MemberInfo& each = type.members.front();
  while (!atEnd(header)) {
    ElementHeader next;
    if (const int status = readHeader(header.end, next); status < 0) return status;
    if (!Matches(*each.type, each.tags, next.tag)) return fail(ASN1_E_WRONG_TAG);
    auto* const node = static_cast<ASN1ListNode*>(allocate(sizeof(ASN1ListNode) + uint64_t{each.type->size}));
    if (!node) return ASN1_E_NO_MEMORY;
    node->data = node + 1;
    Link(list, *node);
    if (const int status = element(*each.type, each.tags, each.contained, node->data, next); status < 0)
      return status;
  }
  return leave(header);
}

// --- open types ---

int DecodeRun::open(bool contained, ASN1OpenValue& value, const ElementHeader& header) {
  if (contained) return octets(value.encoded, header);
  if (const int status = skip(header); status < 0) return status;
  if (watcher_ && header.constructed) [[unlikely]]
    watcher_->leave(header, at_);
  value.encoded = {static_cast<uint32_t>(at_ - header.start), header.start};
  return ASN1_OK;
}

// Behind all members, because in a SET the one that selects may stand behind the one that is selected.
int DecodeRun::resolveMembers(const TypeInfo& type, uint8_t* base) {
  for (const MemberInfo& member : type.members) {
    if (!member.objects || member.selector < 0) continue;
    void* slot = base + member.offset;
    if (member.pointer) std::memcpy(&slot, slot, sizeof slot);
    if (!slot) continue;
    const MemberInfo& selector = type.members[static_cast<size_t>(member.selector)];
    const auto& id = *reinterpret_cast<const ASN1ObjectId*>(base + selector.offset);
    const ObjectInfo* const object = FindObject(*member.objects, id);
    if (!object || !object->type) continue;
    if (!IsList(member.type->kind)) {
      if (const int status = resolveMember(object, *static_cast<ASN1OpenValue*>(slot), member.contained);
          status < 0)
        return status;
      continue;
    }
    const bool contained = member.type->members.front().contained;
    for (ASN1ListNode* node = static_cast<ASN1List*>(slot)->head; node; node = node->next) {
      if (const int status = resolveMember(object, *static_cast<ASN1OpenValue*>(node->data), contained);
          status < 0)
        return status;
    }
  }
  return ASN1_OK;
}

// What says nothing about the value, only about what its decoding may take. A value that is nested too deeply is not meant:
// it stays as its bytes like any other that does not decode.
bool DecodeRun::isSpent(int status) const { return status == ASN1_E_NO_MEMORY || budget_.elements == 0; }

int DecodeRun::resolveMember(const ObjectInfo* object, ASN1OpenValue& value, bool contained) {
  const uint8_t* const place = at_;
  const unsigned depth = depth_;
  const int status = resolveOpen(object, value, contained);
  if (status >= 0 || context_.openValues() == OpenValues::Checked || isSpent(status)) return status;
  context_.clearStatus();
  at_ = place;
  depth_ = depth;
  return ASN1_OK;
}

int DecodeRun::resolveOpen(const ObjectInfo* object, ASN1OpenValue& value, bool contained) {
  if (!object || !object->type || !value.encoded.data) return ASN1_OK;
  const TypeInfo& type = *object->type;
  if (!contained && IsNull(value.encoded) && type.kind != TypeKind::Null) return ASN1_OK;
  if (++depth_ > kMaxAsn1Depth) return fail(ASN1_E_TOO_DEEP);
  void* const decoded = allocate(type.size);
  if (!decoded) return ASN1_E_NO_MEMORY;
  const uint8_t* const place = at_;
  const uint8_t* const end = value.encoded.data + value.encoded.numocts;
  at_ = value.encoded.data;
  if (const int status = whole(type, decoded, end); status < 0) return status;
  if (at_ != end) return fail(ASN1_E_TRAILING);
  at_ = place;
  --depth_;
  value.type = &type;
  value.decoded = decoded;
  return ASN1_OK;
}

// --- entries ---

int DecodeValue(ASN1Context& context, const TypeInfo& info, void* value, Tagging tagging, int length) {
  const std::span<const uint8_t> input = context.input();
  if (!value) return context.fail(ASN1_E_BAD_VALUE);
  if (input.size() > kMaxAsn1Message) return context.fail(ASN1_E_BAD_LENGTH);
  if (context.position() > input.size()) return context.fail(ASN1_E_END_OF_INPUT);
  std::memset(value, 0, info.size);
  const uint8_t* const at = input.data() + context.position();
  const uint8_t* const end = input.data() + input.size();
  DecodeRun run(context, context.budget(), at);
  int status;
  if (tagging == Tagging::Explicit) {
    status = run.whole(info, value, end);
  } else {
    const bool indefinite = length == ASN1_INDEFINITE_LENGTH;
    if (!indefinite && (length < 0 || length > end - at)) return context.fail(ASN1_E_BAD_LENGTH, at);
    // The header is gone, and with it whether the value was constructed: strings of stated length are taken as not.
    const bool primitive = info.kind < TypeKind::Open || IsContained(info);
    const bool constructed = indefinite || !primitive || info.tags.size() > 1;
    const Asn1Tag tag = info.tags.empty() ? Asn1Tag{0} : info.tags.front();
    status = run.inside(info, value, {at, at, indefinite ? end : at + length, tag, constructed, indefinite});
  }
  if (status >= 0) context.setPosition(static_cast<size_t>(run.at() - input.data()));
  return status;
}

int DecodeOpenValue(ASN1Context& context, const ObjectSetInfo& objects, const ASN1ObjectId& id,
                    ASN1OpenValue& value) {
  if (value.encoded.numocts && !value.encoded.data) return context.fail(ASN1_E_BAD_VALUE);
  ASN1Context::Budget budget{value.encoded.numocts * kAsn1HeapPerInput + kAsn1HeapBase, kMaxAsn1Elements};
  DecodeRun run(context, budget, value.encoded.data);
  return run.resolveOpen(FindObject(objects, id), value, false);
}

}  // namespace certkern
