// Text between code pages, as fresh memory that goes back to free().
#ifndef CERTKERN_PLATFORM_TEXT_CONVERSION_H
#define CERTKERN_PLATFORM_TEXT_CONVERSION_H

#include <certkern/types.h>

#include "platform/owner.h"

namespace certkern {

using WideText = MallocOwner<WCHAR>;
using ByteText = MallocOwner<CHAR>;

// The text is NUL-terminated, and so is the result. A null text gives null and is no failure: the last error stays.
// Otherwise null means failure, with ERROR_NOT_ENOUGH_MEMORY or the code of the conversion as the last error.
[[nodiscard]] WideText WideFromBytes(LPCSTR text, UINT codePage);
[[nodiscard]] ByteText BytesFromWide(LPCWSTR text, UINT codePage);
[[nodiscard]] ByteText RecodeBytes(LPCSTR text, UINT from, UINT to);

}  // namespace certkern

#endif
