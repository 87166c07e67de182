#include "asn1rt/control.h"

namespace certkern {

ASN1CType::ASN1CType(ASN1MessageBufferIF& buffer, void* value)
    : buffer_(&buffer), value_(value), context_(buffer.GetContextPtr()) {}
ASN1CType::~ASN1CType() = default;

int ASN1CType::encodeAs(const TypeInfo& info) {
  context().output().restart();
  return EncodeValue(context(), info, value_, Tagging::Explicit);
}

int ASN1CType::decodeAs(const TypeInfo& info) {
  return DecodeValue(context(), info, value_, Tagging::Explicit, 0);
}

ASN1CSeqOfList::~ASN1CSeqOfList() = default;

int ASN1CSeqOfList::AppendToList(ASN1Context& context, ASN1List& list, void* element) {
  if (!element) return context.fail(ASN1_E_BAD_VALUE);
  auto* const node = context.allocate<ASN1ListNode>();
  if (!node) return ASN1_E_NO_MEMORY;
  *node = {element, nullptr, list.tail};
  (list.tail ? list.tail->next : list.head) = node;
  list.tail = node;
  ++list.count;
  return ASN1_OK;
}

int ASN1CSeqOfList::insert(uint32_t index, void* element) {
  ASN1ListNode* const behind = node(index);
  if (!behind) return append(element);
  if (!element) return context().fail(ASN1_E_BAD_VALUE);
  auto* const inserted = context().allocate<ASN1ListNode>();
  if (!inserted) return ASN1_E_NO_MEMORY;
  *inserted = {element, behind, behind->prev};
  (behind->prev ? behind->prev->next : list().head) = inserted;
  behind->prev = inserted;
  ++list().count;
  return ASN1_OK;
}

void* ASN1CSeqOfList::at(uint32_t index) const {
  const ASN1ListNode* const found = node(index);
  return found ? found->data : nullptr;
}

bool ASN1CSeqOfList::remove(uint32_t index) {
  const ASN1ListNode* const gone = node(index);
  if (!gone) return false;
  (gone->prev ? gone->prev->next : list().head) = gone->next;
  (gone->next ? gone->next->prev : list().tail) = gone->prev;
  --list().count;
  return true;
}

ASN1ListNode* ASN1CSeqOfList::node(uint32_t index) const {
  ASN1ListNode* node = list().head;
  for (; node && index > 0; --index) node = node->next;
  return node;
}

}  // namespace certkern
