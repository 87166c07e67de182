// BER and DER into generated structures, by their tables. Strings point into the input; pointers, lists and what had to be
// put together lie in the context's heap. An error leaves a partly filled value, which is safe to look at and to drop.
#ifndef CERTKERN_ASN1RT_DECODER_H
#define CERTKERN_ASN1RT_DECODER_H

#include "asn1rt/context.h"
#include "asn1rt/status.h"
#include "asn1rt/type_table.h"

namespace certkern {

// Reads one value at the context's place and moves the place behind it. Explicit: the type's own tags are read, `length`
// is not looked at. Implicit: the outermost header was read, and `length` octets of content follow, or
// ASN1_INDEFINITE_LENGTH. `value` has info.size bytes; whatever is in there is overwritten.
int DecodeValue(ASN1Context& context, const TypeInfo& info, void* value, Tagging tagging, int length);

// Decodes the bytes of an open value as what the identifier selects, into the context's heap. Bytes that no object knows,
// and NULL in place of something else, stay bytes: no error.
int DecodeOpenValue(ASN1Context& context, const ObjectSetInfo& objects, const ASN1ObjectId& id,
                    ASN1OpenValue& value);

}  // namespace certkern

#endif
