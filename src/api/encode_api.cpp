// The exported functions between records and their encoding.
#include "api/frame.h"
#include "ber/object_codec.h"

#include <certkern/encode.h>

using certkern::Frame;
using certkern::Guarded;
using certkern::Parenthesised;

extern "C" {

BOOL CryptEncodeObject(DWORD dwCertEncodingType, LPCSTR lpszStructType, const void* pvStructInfo,
                       BYTE* pbEncoded, DWORD* pcbEncoded) {
  return Guarded<Parenthesised>([&](Frame& frame) -> BOOL {
    frame.entry("(dwCertEncodingType = %u, lpszStructType = %p, pvStructInfo = %p, pcbEncoded = %p)",
                dwCertEncodingType, lpszStructType, pvStructInfo, pcbEncoded);
    if (!certkern::EncodeObject(dwCertEncodingType, lpszStructType, pvStructInfo, pbEncoded, pcbEncoded)) {
      return frame.failed();
    }
    return frame.result(TRUE, "(returned: pbEncoded = %p)", pbEncoded);
  });
}

BOOL CryptEncodeObjectEx(DWORD dwCertEncodingType, LPCSTR lpszStructType, const void* pvStructInfo,
                         DWORD dwFlags, PCRYPT_ENCODE_PARA pEncodePara, void* pvEncoded, DWORD* pcbEncoded) {
  return Guarded<Parenthesised>([&](Frame& frame) -> BOOL {
    frame.entry(
        "(dwCertEncodingType = %u, lpszStructType = %p, pvStructInfo = %p, dwFlags = 0x%x, pEncodePara = %p, "
        "pcbEncoded = %p)",
        dwCertEncodingType, lpszStructType, pvStructInfo, dwFlags, pEncodePara, pcbEncoded);
    if (!certkern::EncodeObjectEx(dwCertEncodingType, lpszStructType, pvStructInfo, dwFlags, pEncodePara,
                                  pvEncoded, pcbEncoded)) {
      return frame.failed();
    }
    return frame.result(TRUE, "(returned: pvEncoded = %p)", pvEncoded);
  });
}

BOOL CryptDecodeObject(DWORD dwCertEncodingType, LPCSTR lpszStructType, const BYTE* pbEncoded,
                       DWORD cbEncoded, DWORD dwFlags, void* pvStructInfo, DWORD* pcbStructInfo) {
  return Guarded<Parenthesised>([&](Frame& frame) -> BOOL {
    frame.entry(
        "(dwCertEncodingType = %u, lpszStructType = %p, pbEncoded = %p, cbEncoded = %u, dwFlags = 0x%x, "
        "pcbStructInfo = %p)",
        dwCertEncodingType, lpszStructType, pbEncoded, cbEncoded, dwFlags, pcbStructInfo);
    if (!certkern::DecodeObject(dwCertEncodingType, lpszStructType, pbEncoded, cbEncoded, dwFlags,
                                pvStructInfo, pcbStructInfo)) {
      return frame.failed();
    }
    return frame.result(TRUE, "(returned: pvStructInfo = %p, pcbStructInfo = %u)", pvStructInfo,
                        *pcbStructInfo);
  });
}

BOOL CryptDecodeObjectEx(DWORD dwCertEncodingType, LPCSTR lpszStructType, const BYTE* pbEncoded,
                         DWORD cbEncoded, DWORD dwFlags, PCRYPT_DECODE_PARA pDecodePara, void* pvStructInfo,
                         DWORD* pcbStructInfo) {
  return Guarded<Parenthesised>([&](Frame& frame) -> BOOL {
    frame.entry(
        "(dwCertEncodingType = %u, lpszStructType = %p, pbEncoded = %p, cbEncoded = %u, dwFlags = 0x%x, "
        "pDecodePara = %p, pcbStructInfo = %p)",
        dwCertEncodingType, lpszStructType, pbEncoded, cbEncoded, dwFlags, pDecodePara, pcbStructInfo);
    if (!certkern::DecodeObjectEx(dwCertEncodingType, lpszStructType, pbEncoded, cbEncoded, dwFlags,
                                  pDecodePara, pvStructInfo, pcbStructInfo)) {
      return frame.failed();
    }
    return frame.result(TRUE, "(returned: pvStructInfo = %p)", pvStructInfo);
  });
}

}  // extern "C"
