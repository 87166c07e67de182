// Statuses of the runtime: 0 is success, negative values are errors, and encoders answer a length above 0.
#ifndef CERTKERN_ASN1RT_STATUS_H
#define CERTKERN_ASN1RT_STATUS_H

namespace certkern {

enum Asn1Status : int {
  ASN1_OK = 0,
  ASN1_E_END_OF_INPUT = -1,    // a value runs past the end of what holds it
  ASN1_E_WRONG_TAG = -2,       // another identifier was expected
  ASN1_E_BAD_LENGTH = -3,      // a length that its type can't have, or that is malformed
  ASN1_E_BAD_VALUE = -4,       // content that its type can't have
  ASN1_E_MISSING = -5,         // a required member is absent
  ASN1_E_UNKNOWN_CHOICE = -6,  // no alternative has the identifier; on encoding: t is out of range
  ASN1_E_TRAILING = -7,        // more content than the type has members
  ASN1_E_TOO_DEEP = -8,        // nesting over the bound
  ASN1_E_TOO_MANY = -9,        // more elements than the bound
  ASN1_E_NO_MEMORY = -10,      // the heap refused
  ASN1_E_BUFFER_FULL = -11,    // a caller's buffer is too small
  ASN1_E_REPEATED = -12,       // a member of a SET stands twice
  ASN1_E_NOT_SUPPORTED = -99,  // the base class has no such operation
};

// A length that is not stated: end-of-contents octets end the value.
inline constexpr int ASN1_INDEFINITE_LENGTH = -9999;

// Whether an encode or decode function handles the type's own outermost tag, or the caller did.
enum class Tagging { Implicit = 0, Explicit = 1 };

}  // namespace certkern

#endif
