// Texts for people, in their language: the message catalogue libcertkern.cat.
#ifndef CERTKERN_PLATFORM_CATALOGUE_H
#define CERTKERN_PLATFORM_CATALOGUE_H

#include "platform/supkern.h"
#include "platform/text_conversion.h"

namespace certkern {

// A printf format with two %s: the display name of a certificate, then its SHA-1 hash in hexadecimal. Asks whether the
// certificate may be added to the user's trusted roots.
inline constexpr unsigned kMessageConfirmRootAdd = 2164;

// Opens the catalogue of the current locale: where NLSPATH and the system's defaults say, then beside the directory of
// catalogues that the support library knows. 0 on success.
int InitMessageCatalogue(support_resource* resource);

// Reads one text through the library's own descriptor, whose catalogue is opened by the first reader. Null is a failure,
// with the code of the support library as the last error, or ERROR_NOT_ENOUGH_MEMORY.
[[nodiscard]] ByteText ReadMessage(unsigned id);
// The same through another descriptor.
[[nodiscard]] ByteText ReadMessage(support_resource& resource, unsigned id);

}  // namespace certkern

#endif
