// What the schema leaves as octets, because its signature or its readers count on them as they stand, and what these octets
// are by the tables of objects.
#ifndef CERTKERN_TESTS_ASN1DATA_CONTAINED_H
#define CERTKERN_TESTS_ASN1DATA_CONTAINED_H

#include <certkern/types.h>

#include <set>
#include <span>
#include <string>

#include "asn1rt/context.h"
#include "asn1rt/type_table.h"

namespace certkern::test {

using Names = std::set<std::string>;

// Decodes one whole value and each value inside octets, to any depth, and fails the test unless their bytes come back. Adds
// the names of all types and objects that came up.
void ExpectAllComesBack(const TypeInfo& type, std::span<const BYTE> bytes, SetOrder order, Names& seen);

}  // namespace certkern::test

#endif
