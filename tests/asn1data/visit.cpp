#include "asn1data/visit.h"

#include <certkern/types.h>

namespace certkern::test {
namespace {

bool IsPresent(const MemberInfo& member, const void* base) {
  return member.presentBit < 0 || *static_cast<const uint32_t*>(base) >> member.presentBit & 1;
}

void VisitMember(const MemberInfo& member, void* base, const Visitor& visitor) {
  if (!IsPresent(member, base)) return;
  void* slot = static_cast<BYTE*>(base) + member.offset;
  if (member.pointer) slot = *static_cast<void**>(slot);
  if (slot) VisitValues(*member.type, slot, visitor);
}

}  // namespace

void VisitValues(const TypeInfo& type, void* value, const Visitor& visitor) {
  visitor(type, value);
  switch (type.kind) {
    case TypeKind::Open:
      if (const auto& open = *static_cast<ASN1OpenValue*>(value); open.type)
        VisitValues(*open.type, open.decoded, visitor);
      break;
    case TypeKind::Sequence:
    case TypeKind::Set:
      for (const MemberInfo& member : type.members) VisitMember(member, value, visitor);
      break;
    case TypeKind::SequenceOf:
    case TypeKind::SetOf:
      for (const ASN1ListNode* node = static_cast<ASN1List*>(value)->head; node; node = node->next)
        VisitValues(*type.members[0].type, node->data, visitor);
      break;
    case TypeKind::Choice:
      if (const int32_t chosen = *static_cast<int32_t*>(value))
        VisitMember(type.members[static_cast<size_t>(chosen) - 1], value, visitor);
      break;
    default:
      break;
  }
}

}  // namespace certkern::test
