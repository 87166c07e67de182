// Generated structures into DER, by their tables, from the end to the front.
#ifndef CERTKERN_ASN1RT_ENCODER_H
#define CERTKERN_ASN1RT_ENCODER_H

#include "asn1rt/context.h"
#include "asn1rt/status.h"
#include "asn1rt/type_table.h"

namespace certkern {

// Writes one value in front of what the context's output holds, and answers the octets written, or a status and then
// nothing is written. Implicit: without the type's outermost header.
int EncodeValue(ASN1Context& context, const TypeInfo& info, const void* value, Tagging tagging);

}  // namespace certkern

#endif
