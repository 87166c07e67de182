// Names of object identifiers: those of the key library's table, and of what that table has no use for.
#ifndef CERTKERN_CLI_OID_NAMES_H
#define CERTKERN_CLI_OID_NAMES_H

#include "field.h"

#include <certkern/keykern.h>

#include <string_view>

namespace certkern::cli {

// Looks in one group first (0: none), then everywhere. The name is empty when nobody knows one; dotted may be
// null.
Oid NamedOid(const char* dotted, DWORD group = 0);

// Whether a text is an identifier in dotted form, such as 2.5.4.3.
bool IsDottedOid(std::string_view text);

// Bits of the keys over a named curve or GOST parameter set; 0 for any other identifier.
int CurveBits(const char* dotted);

}  // namespace certkern::cli

#endif
