// The MAC of GOST 28147-89, for keys.
#ifndef CERTKERN_KEYKERN_DERIVE_IMIT_H
#define CERTKERN_KEYKERN_DERIVE_IMIT_H

#include <certkern/types.h>

#include <span>
#include <string>

namespace keykern {

inline constexpr size_t kImitSize = 4;

// RFC 5830, 8, from a start value of 8 bytes. False for more data than goes without key meshing, or when the library
// below fails.
[[nodiscard]] bool Imit(std::span<const BYTE> key, const std::string& box, std::span<const BYTE> start,
                        std::span<const BYTE> data, std::span<BYTE, kImitSize> mac);

}  // namespace keykern

#endif
