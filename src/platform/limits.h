// Every bound that foreign bytes or callers meet stands here, by name.
#ifndef CERTKERN_PLATFORM_LIMITS_H
#define CERTKERN_PLATFORM_LIMITS_H

#include <cstddef>
#include <cstdint>

namespace certkern {

// Sizes cross the interface as 32-bit words; arithmetic is done in 64 bits and refused above this.
inline constexpr uint64_t kMaxInterfaceSize = 0xFFFFFFFFu;

// Narrow form of a general name's text, NUL included.
inline constexpr size_t kMaxAltNameText = 512;

// Content octets of one arc of an object identifier that the decoder takes.
inline constexpr size_t kMaxOidArcOctets = 8;

// A configuration file larger than this is refused, not read.
inline constexpr size_t kMaxConfigurationFile = size_t{1} << 20;

// Conversions between code pages count in int; one wide character is four bytes of a record.
inline constexpr size_t kMaxConvertedText = 0x7FFFFFFF / sizeof(wchar_t);

}  // namespace certkern

#endif
