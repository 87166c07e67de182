// Text encodings: bytes to and from Base64, PEM and hexadecimal.
#include <certkern/encode.h>
#include <certkern/errors.h>

#include <string_view>

#include "api/frame.h"
#include "text/text_forms.h"

namespace certkern {
namespace {

// A count of 0 stands for a text that ends with a NUL.
template <class Character>
std::basic_string_view<Character> TextOf(const Character* text, DWORD count) {
  if (count == 0) return text;
  return {text, count};
}

}  // namespace
}  // namespace certkern

using namespace certkern;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

BOOL CryptBinaryToStringA(const BYTE* pbBinary, DWORD cbBinary, DWORD dwFlags, LPSTR pszString,
                          DWORD* pcchString) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(pbBinary = %p, cbBinary = %u, dwFlags = 0x%.8X, pszString = %p, pcchString = %p)", pbBinary,
                cbBinary, dwFlags, pszString, pcchString);
    if (!pbBinary || !pcchString || !cbBinary) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!BinaryToString({pbBinary, cbBinary}, dwFlags, pszString, pcchString)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CryptBinaryToStringW(const BYTE* pbBinary, DWORD cbBinary, DWORD dwFlags, LPWSTR pszString,
                          DWORD* pcchString) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(pbBinary = %p, cbBinary = %u, dwFlags = 0x%.8X, pszString = %p, pcchString = %p)", pbBinary,
                cbBinary, dwFlags, pszString, pcchString);
    if (!pbBinary || !pcchString || !cbBinary) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!BinaryToWideString({pbBinary, cbBinary}, dwFlags, pszString, pcchString)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CryptStringToBinaryA(LPCSTR pszString, DWORD cchString, DWORD dwFlags, BYTE* pbBinary, DWORD* pcbBinary,
                          DWORD* pdwSkip, DWORD* pdwFlags) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(pszString = %p, cchString = %u, dwFlags = 0x%.8X, pbBinary = %p, pcbBinary = %p, pdwSkip = %p, "
        "pdwFlags = %p)",
        pszString, cchString, dwFlags, pbBinary, pcbBinary, pdwSkip, pdwFlags);
    if (!pszString || !pcbBinary) return frame.failed(ERROR_INVALID_PARAMETER);
    const DecodedOutput out = {pbBinary, pcbBinary, pdwSkip, pdwFlags};
    if (!StringToBinary(TextOf(pszString, cchString), dwFlags, out)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CryptStringToBinaryW(LPCWSTR pszString, DWORD cchString, DWORD dwFlags, BYTE* pbBinary, DWORD* pcbBinary,
                          DWORD* pdwSkip, DWORD* pdwFlags) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry(
        "(pszString = %p, cchString = %u, dwFlags = 0x%.8X, pbBinary = %p, pcbBinary = %p, pdwSkip = %p, "
        "pdwFlags = %p)",
        pszString, cchString, dwFlags, pbBinary, pcbBinary, pdwSkip, pdwFlags);
    if (!pszString || !pcbBinary) return frame.failed(ERROR_INVALID_PARAMETER);
    const DecodedOutput out = {pbBinary, pcbBinary, pdwSkip, pdwFlags};
    // the memory as it is: the count is in bytes here, and stays as the caller gave it
    const bool done = dwFlags == CRYPT_STRING_BINARY
        ? StringToBinary(TextOf(reinterpret_cast<LPCSTR>(pszString), cchString), dwFlags, out)
        : WideStringToBinary(TextOf(pszString, cchString), dwFlags, out);
    return done ? frame.result(TRUE) : frame.failed();
  });
}

}  // extern "C"
