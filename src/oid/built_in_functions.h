// The functions that stand in the process's sets before anybody installs one.
#ifndef CERTKERN_OID_BUILT_IN_FUNCTIONS_H
#define CERTKERN_OID_BUILT_IN_FUNCTIONS_H

#include <span>

#include "oid/function_sets.h"

namespace certkern {

std::span<const BuiltInFunction> BuiltInFunctions();

}  // namespace certkern

#endif
