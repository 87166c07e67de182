#include "asn1rt/encoder.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "asn1rt/element_header.h"
#include "asn1rt/encode_run.h"
#include "platform/limits.h"

namespace certkern {
namespace {

constexpr Asn1Tag kOctetStringTag = MakeTag(TagClass::Universal, 4);
constexpr size_t kMaxSetMembers = 64;

bool IsContained(const TypeInfo& type) {
  return type.kind == TypeKind::Open && !type.tags.empty() && type.tags.back() == kOctetStringTag;
}

bool IsPresent(const MemberInfo& member, const uint8_t* base) {
  if (member.presentBit >= 0) {
    uint32_t present;
    std::memcpy(&present, base, sizeof present);
    return present >> member.presentBit & 1;
  }
  if (!member.hasDefault) return true;
  const uint8_t* const slot = base + member.offset;
  const int32_t value =
      member.type->kind == TypeKind::Boolean ? int32_t{*slot != 0} : *reinterpret_cast<const int32_t*>(slot);
  return value != member.defaultValue;
}

// Null when a pointer that must be there is not.
const void* SlotOf(const MemberInfo& member, const uint8_t* base) {
  const void* slot = base + member.offset;
  if (member.pointer) std::memcpy(&slot, slot, sizeof slot);
  return slot;
}

bool IsStructured(TypeKind kind) { return kind >= TypeKind::Open; }
// Of the innermost header.
bool IsConstructed(TypeKind kind, bool contained) { return IsStructured(kind) && !contained; }

// Kinds whose content goes out as it lies in memory.
bool IsPlainOctets(TypeKind kind) {
  return kind == TypeKind::OctetString || kind == TypeKind::Text || kind == TypeKind::BigInteger;
}
ASN1OctetString PlainOctets(TypeKind kind, const void* slot) {
  if (kind != TypeKind::Text) return *static_cast<const ASN1OctetString*>(slot);
  const auto& text = *static_cast<const ASN1Text*>(slot);
  return {text.numocts, reinterpret_cast<const uint8_t*>(text.data)};
}
// Empty ones have rules of their own.
bool IsShort(const ASN1OctetString& octets) { return octets.numocts - 1 < 0x7F && octets.data; }

// An element of a SET OF among those that were written, measured from the end because the start may move.
struct Piece {
  size_t fromEnd;
  size_t length;
};
struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Scratch = std::unique_ptr<T[], FreeMemory>;
template <class T>
Scratch<T> AllocateScratch(size_t count) {
  return Scratch<T>(static_cast<T*>(std::malloc(count * sizeof(T))));
}

bool SortsBefore(std::span<const uint8_t> a, std::span<const uint8_t> b) {
  const int order = std::memcmp(a.data(), b.data(), std::min(a.size(), b.size()));
  return order != 0 ? order < 0 : a.size() < b.size();
}

// Brings the finished elements at the output's start into the order of their encodings.
int SortPieces(BackwardBuffer& output, std::span<Piece> pieces, size_t total) {
  const uint8_t* const end = output.start() + output.length();
  const auto bytesOf = [&](const Piece& piece) { return std::span(end - piece.fromEnd, piece.length); };
  const auto before = [&](const Piece& a, const Piece& b) { return SortsBefore(bytesOf(a), bytesOf(b)); };
  std::ranges::reverse(pieces);  // they were written from the last to the first
  if (std::ranges::is_sorted(pieces, before)) return ASN1_OK;
  const auto copy = AllocateScratch<uint8_t>(total);
  if (!copy) return ASN1_E_NO_MEMORY;
  std::ranges::sort(pieces, before);
  uint8_t* at = copy.get();
  for (const Piece& piece : pieces) at = std::ranges::copy(bytesOf(piece), at).out;
  std::memcpy(output.start(), copy.get(), total);
  return ASN1_OK;
}

}  // namespace

inline int EncodeRun::content(const TypeInfo& type, const void* slot) {
  switch (type.kind) {
    case TypeKind::Boolean: {
      const uint8_t octet = *static_cast<const uint8_t*>(slot) ? 0xFF : 0x00;
      return bytes({&octet, 1});
    }
    case TypeKind::Int32:
    case TypeKind::Enumerated:
      return integer(*static_cast<const int32_t*>(slot));
    case TypeKind::BigInteger: {
      const auto& number = *static_cast<const ASN1BigInteger*>(slot);
      return number.numocts ? counted(number.data, number.numocts) : fail(ASN1_E_BAD_VALUE);
    }
    case TypeKind::BitString:
      return bits(*static_cast<const ASN1BitString*>(slot));
    case TypeKind::OctetString: {
      const auto& octets = *static_cast<const ASN1OctetString*>(slot);
      return counted(octets.data, octets.numocts);
    }
    case TypeKind::Null:
      return 0;
    case TypeKind::ObjectId:
      return objectId(*static_cast<const ASN1ObjectId*>(slot));
    default: {
      const auto& text = *static_cast<const ASN1Text*>(slot);
      return counted(text.data, text.numocts);
    }
  }
}

inline int EncodeRun::value(const TypeInfo& type, std::span<const Asn1Tag> tags, bool contained,
                            const void* slot) {
  if (tags.size() == 1 && IsPlainOctets(type.kind)) {
    const ASN1OctetString octets = PlainOctets(type.kind, slot);
    if (IsShort(octets) && NumberOf(tags[0]) < 0x1F) return shortOctets(tags[0], octets);
  }
  return tagged(type, tags, contained, slot);
}

inline int EncodeRun::member(const MemberInfo& member, const uint8_t* base) {
  if (!IsPresent(member, base)) return 0;
  const void* const slot = SlotOf(member, base);
  if (!slot) return fail(ASN1_E_MISSING);
  return value(*member.type, member.tags, member.contained, slot);
}

inline int EncodeRun::sequence(const TypeInfo& type, const uint8_t* base) {
  int length = 0;
  for (size_t i = type.members.size(); i-- > 0;) {
    const int written = member(type.members[i], base);
    if (written < 0) return written;
    length += written;
  }
  return length;
}

inline int EncodeRun::structured(const TypeInfo& type, bool contained, const void* slot) {
  if (++depth_ > kMaxAsn1Depth) return fail(ASN1_E_TOO_DEEP);
  int length;
  switch (type.kind) {
    case TypeKind::Sequence:
      length = sequence(type, static_cast<const uint8_t*>(slot));
      break;
    case TypeKind::Set:
      length = set(type, static_cast<const uint8_t*>(slot));
      break;
    case TypeKind::Choice:
      length = choice(type, static_cast<const uint8_t*>(slot));
      break;
    case TypeKind::Open:
      length = open(*static_cast<const ASN1OpenValue*>(slot), contained);
      break;
    case TypeKind::SetOf:
      length = setOf(type, *static_cast<const ASN1List*>(slot));
      break;
    default:
      length = list(type, *static_cast<const ASN1List*>(slot));
  }
  --depth_;
  return length;
}

int EncodeRun::tagged(const TypeInfo& type, std::span<const Asn1Tag> tags, bool contained, const void* slot) {
  int length = IsStructured(type.kind) ? structured(type, contained, slot) : content(type, slot);
  if (length < 0) return length;
  bool constructed = IsConstructed(type.kind, contained);
  for (size_t i = tags.size(); i-- > 0; constructed = true) {
    const int written = header(tags[i], constructed, length);
    if (written < 0) return written;
    length += written;
  }
  return length;
}

Asn1Tag EncodeRun::outermostTag(const MemberInfo& member, const uint8_t* base) {
  if (!member.tags.empty()) return member.tags.front();
  const void* const slot = SlotOf(member, base);
  if (!slot) return 0;
  if (member.type->kind == TypeKind::Open) {
    const ASN1OctetString& encoded = static_cast<const ASN1OpenValue*>(slot)->encoded;
    ElementHeader header;
    const bool readable = encoded.data && encoded.numocts
        && ReadElementHeader(encoded.data, encoded.data + encoded.numocts, header) == ASN1_OK;
    return readable ? header.tag : 0;
  }
  const auto* const chosen = static_cast<const uint8_t*>(slot);
  const int32_t t = *reinterpret_cast<const int32_t*>(chosen);
  if (t < 1 || static_cast<size_t>(t) > member.type->members.size()) return 0;
  return outermostTag(member.type->members[static_cast<size_t>(t - 1)], chosen);
}

int EncodeRun::set(const TypeInfo& type, const uint8_t* base) {
  struct Present {
    Asn1Tag tag;
    const MemberInfo* member;
  };
  std::array<Present, kMaxSetMembers> room;
  size_t count = 0;
  for (const MemberInfo& candidate : type.members) {
    if (!IsPresent(candidate, base)) continue;
    if (count == kMaxSetMembers) return fail(ASN1_E_NOT_SUPPORTED);
    room[count++] = {outermostTag(candidate, base), &candidate};
  }
  const std::span present(room.data(), count);
  std::ranges::sort(present, std::ranges::greater(), &Present::tag);
  int length = 0;
  for (const Present& each : present) {
    const int written = member(*each.member, base);
    if (written < 0) return written;
    length += written;
  }
  return length;
}

int EncodeRun::choice(const TypeInfo& type, const uint8_t* base) {
  const int32_t t = *reinterpret_cast<const int32_t*>(base);
  if (t < 1 || static_cast<size_t>(t) > type.members.size()) return fail(ASN1_E_UNKNOWN_CHOICE);
  return member(type.members[static_cast<size_t>(t - 1)], base);
}

int EncodeRun::list(const TypeInfo& type, const ASN1List& list) {
  const MemberInfo& each = type.members.front();
  const ASN1ListNode* node = list.tail;
  int length = 0;
  for (uint32_t i = list.count; i > 0; --i, node = node->prev) {
    if (!node || !node->data) return fail(ASN1_E_BAD_VALUE);
    const int written = value(*each.type, each.tags, each.contained, node->data);
    if (written < 0) return written;
    length += written;
  }
  return length;
}

int EncodeRun::setOf(const TypeInfo& type, const ASN1List& list) {
  if (list.count < 2 || context_.setOrder() == SetOrder::AsGiven) return this->list(type, list);
  const auto pieces = AllocateScratch<Piece>(list.count);
  if (!pieces) return fail(ASN1_E_NO_MEMORY);
  const MemberInfo& each = type.members.front();
  const ASN1ListNode* node = list.tail;
  int length = 0;
  for (uint32_t i = 0; i < list.count; ++i, node = node->prev) {
    if (!node || !node->data) return fail(ASN1_E_BAD_VALUE);
    const int written = value(*each.type, each.tags, each.contained, node->data);
    if (written < 0) return written;
    pieces[i] = {output_.length(), static_cast<size_t>(written)};
    length += written;
  }
  const int status = SortPieces(output_, {pieces.get(), list.count}, static_cast<size_t>(length));
  return status < 0 ? fail(status) : length;
}

int EncodeRun::open(const ASN1OpenValue& value, bool contained) {
  if (value.encoded.numocts) return counted(value.encoded.data, value.encoded.numocts);
  if (value.decoded && value.type)
    return this->value(*value.type, value.type->tags, IsContained(*value.type), value.decoded);
  return contained ? 0 : fail(ASN1_E_MISSING);
}

int EncodeValue(ASN1Context& context, const TypeInfo& info, const void* value, Tagging tagging) {
  if (!value) return context.fail(ASN1_E_BAD_VALUE);
  const bool bare = tagging == Tagging::Implicit && !info.tags.empty();
  const auto tags = bare ? info.tags.subspan(1) : info.tags;
  const size_t before = context.output().length();
  const int length = EncodeRun(context).tagged(info, tags, IsContained(info), value);
  if (length < 0) context.output().dropTo(before);
  return length;
}

}  // namespace certkern
