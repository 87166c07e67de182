// What an object in the URL cache carries: property SV_URL_CACHE_PROP_ID.
//
//   FILETIME  when the server changed the object; zero when it did not tell
//   FILETIME  when the object was last used
//   the URL and a NUL
#ifndef CERTKERN_URL_CACHED_URL_H
#define CERTKERN_URL_CACHED_URL_H

#include <certkern/types.h>

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace certkern {

struct CachedUrl {
  FILETIME lastModified{};
  FILETIME lastUsed{};
  std::string url;
};

std::vector<BYTE> EncodeCachedUrl(const CachedUrl& value);
// Nothing for bytes that are no such property; what stands behind the NUL is not looked at.
std::optional<CachedUrl> DecodeCachedUrl(std::span<const BYTE> bytes);

}  // namespace certkern

#endif
