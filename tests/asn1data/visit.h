// All values inside a decoded value, by the tables that the schema compiler writes.
#ifndef CERTKERN_TESTS_ASN1DATA_VISIT_H
#define CERTKERN_TESTS_ASN1DATA_VISIT_H

#include <functional>

#include "asn1rt/type_table.h"

namespace certkern::test {

using Visitor = std::function<void(const TypeInfo& type, void* value)>;

// The value itself, then what is inside. An open value comes before what it was decoded to.
void VisitValues(const TypeInfo& type, void* value, const Visitor& visitor);

}  // namespace certkern::test

#endif
