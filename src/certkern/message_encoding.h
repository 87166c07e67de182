// Values of the generated types as finished bytes.
#ifndef CERTKERN_CERTKERN_MESSAGE_ENCODING_H
#define CERTKERN_CERTKERN_MESSAGE_ENCODING_H

#include "asn1rt/context.h"
#include "asn1rt/type_table.h"
#include "asn1rt/values.h"
#include "certkern/ASN1Blob.h"

namespace certkern {

// Written at once where they stay, because contents may be large: contentSize is the sum of the bytes that the value points
// to, but for what a few hundred bytes have room for. An Asn1Exception when the value can't be encoded.
ASN1Blob EncodeBare(const TypeInfo& type, const void* value, uint64_t contentSize);
// The same inside a ContentInfo. RFC 5652, clause 3.
ASN1Blob EncodeContentInfo(const ASN1OBJID& contentType, const TypeInfo& type, void* value,
                           uint64_t contentSize);

// The same in a context that is there: into its output, in its order of sets.
void WriteContentInfo(ASN1Context& context, const ASN1OBJID& contentType, const TypeInfo& type, void* value);

}  // namespace certkern

#endif
