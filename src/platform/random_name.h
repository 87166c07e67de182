// Names for fresh key containers. They are no secrets and need only differ from each other, so the C library's weak
// generator, seeded with the time, is enough.
#ifndef CERTKERN_PLATFORM_RANDOM_NAME_H
#define CERTKERN_PLATFORM_RANDOM_NAME_H

#include <certkern/types.h>

#include "platform/text_conversion.h"

namespace certkern {

// The prefix and then count characters out of 0-9 and a-z. Null with ERROR_NOT_ENOUGH_MEMORY, or with
// ERROR_INVALID_PARAMETER for a null prefix.
[[nodiscard]] WideText RandomSuffixName(LPCWSTR prefix, size_t count);
// The prefix, the infix, and 32 hexadecimal digits in the grouping of a GUID. The same failures.
[[nodiscard]] WideText RandomGuidName(LPCWSTR prefix, LPCWSTR infix);

}  // namespace certkern

#endif
