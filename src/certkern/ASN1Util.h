// Conversions between the published records' values and those of the generated types. What fails throws; the file bears
// the name under which its exceptions are traced.
#ifndef CERTKERN_CERTKERN_ASN1UTIL_H
#define CERTKERN_CERTKERN_ASN1UTIL_H

#include <certkern/types.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "asn1data/certificate.h"
#include "asn1rt/context.h"
#include "asn1rt/values.h"

namespace certkern {

// --- object identifiers ---

// 0, or another value for a text that is null, is none, or has more arcs than an identifier has room for. Arcs are read as C
// reads numbers: a leading 0 is octal, 0x hexadecimal, nothing at all is 0; they are cut to 32 bits.
int str2oid(const char* text, ASN1OBJID& oid);
// The same; an Asn1Exception instead of a value. The second form puts the arcs into the context's heap.
void StrToOid(const char* text, ASN1OBJID& oid);
ASN1ObjectId StrToOid(ASN1Context& context, const char* text);
// Dotted decimal; an identifier without arcs is an Asn1Exception.
std::string oid2str(const ASN1ObjectId& oid);

// --- algorithms ---

// Into the context's heap, parameters included, which are decoded when the schema knows the algorithm's type. None, or
// null for a null text: Asn1Exception; parameters that are not what the algorithm has: Asn1DecodeException.
asn1data::ASN1T_AlgorithmIdentifier* AlgorithmToGenerated(ASN1Context& context, const char* oid,
                                                          std::span<const BYTE> parameters);
// What the key of a provider signs with unless somebody says otherwise; without parameters.
asn1data::ASN1T_AlgorithmIdentifier* DefaultSignatureAlgorithm(ASN1Context& context, HCRYPTPROV provider,
                                                               DWORD keySpec);
// Parameters where a record has none: NULL for hashes but those of the Russian arc, and for those signatures and keys that
// want one; otherwise the schema's objects tell.
enum class EmptyParameters { Absent, Null };
EmptyParameters EmptyParametersOf(const char* oid);

// --- numbers, digits, times ---

// An encoded INTEGER of up to 32 bits, at the start of the bytes.
int32_t DecodeInteger(std::span<const BYTE> encoded);
std::string LowerHex(std::span<const BYTE> bytes);

// YYYYMMDDHHMMSS[.digits]Z and nothing else; digits behind the third are cut.
FILETIME GeneralizedTimeToFileTime(std::string_view text);
// To the millisecond; a time that is a whole second has no fraction.
std::string FileTimeToGeneralizedTime(const FILETIME& time);
// YYMMDDHHMM[SS] with a zone, of 1950 to 2049.
FILETIME UtcTimeToFileTime(std::string_view text);

// --- the context's heap ---

// A copy that lives as long as the context; "out of memory" otherwise, and for a null pointer with a length.
ASN1OctetString CopyOctets(ASN1Context& context, std::span<const BYTE> bytes);
// What the heap answered, if it did.
void* CheckedMemory(void* memory);
template <class T>
T* AllocateValue(ASN1Context& context) {
  return static_cast<T*>(CheckedMemory(context.allocate<T>()));
}

}  // namespace certkern

#endif
