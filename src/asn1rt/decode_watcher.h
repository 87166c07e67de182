// For those who want to know where in a message each value stands, which the values themselves don't tell.
#ifndef CERTKERN_ASN1RT_DECODE_WATCHER_H
#define CERTKERN_ASN1RT_DECODE_WATCHER_H

#include "asn1rt/element_header.h"
#include "asn1rt/type_table.h"

namespace certkern {

// Told as the decoder goes. Open values are looked into behind the structure's last member, so offsets may go back; strings in
// segments are put together in the heap, and what is inside of them has no place in the input.
class DecodeWatcher {
 public:
  virtual ~DecodeWatcher() = default;
  // The member, or the alternative, that the next element is.
  virtual void member(const MemberInfo& member) = 0;
  // An element was recognised as one of this type, or (null) as a tag in front of the next element. An untagged choice comes as
  // itself first, then as its alternative.
  virtual void element(const TypeInfo* type, const ElementHeader& header) = 0;
  // Behind a constructed element; end is where the next one may stand.
  virtual void leave(const ElementHeader& header, const uint8_t* end) = 0;
};

}  // namespace certkern

#endif
