// What stands behind the four entry points: the choice of a codec by structure type, its codes, and the caller's
// allocator. A failure has set the last error.
#ifndef CERTKERN_BER_OBJECT_CODEC_H
#define CERTKERN_BER_OBJECT_CODEC_H

#include <certkern/encode.h>

namespace certkern {

[[nodiscard]] bool EncodeObject(DWORD encodingType, LPCSTR type, const void* record, BYTE* encoded,
                                DWORD* size);
[[nodiscard]] bool EncodeObjectEx(DWORD encodingType, LPCSTR type, const void* record, DWORD flags,
                                  const CRYPT_ENCODE_PARA* parameters, void* encoded, DWORD* size);
[[nodiscard]] bool DecodeObject(DWORD encodingType, LPCSTR type, const BYTE* encoded, DWORD encodedSize,
                                DWORD flags, void* record, DWORD* size);
[[nodiscard]] bool DecodeObjectEx(DWORD encodingType, LPCSTR type, const BYTE* encoded, DWORD encodedSize,
                                  DWORD flags, const CRYPT_DECODE_PARA* parameters, void* record,
                                  DWORD* size);

}  // namespace certkern

#endif
