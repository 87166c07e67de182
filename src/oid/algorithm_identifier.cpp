#include "oid/algorithm_identifier.h"

#include "ber/fields.h"
#include "ber/oid_text.h"

namespace certkern {

// AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER, parameters ANY OPTIONAL }
bool ReadAlgorithmIdentifier(BerReadCursor& in, AlgorithmIdentifier& algorithm) {
  BerReadCursor content, oid;
  BYTE tag;
  size_t textSize;
  if (!BerExpect(in, kTagSequence, content) || !content.readElement(tag, oid)) return false;
  if (!BerDecodeOid(oid.rest(), nullptr, textSize)) return false;
  algorithm.oid.resize(textSize);
  if (!BerDecodeOid(oid.rest(), algorithm.oid.data(), textSize)) return false;
  algorithm.oid.pop_back();  // the text's own NUL
  algorithm.parameters = content.rest();
  return true;
}

}  // namespace certkern
