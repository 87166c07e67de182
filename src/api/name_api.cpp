// The exported functions between names and text. A failure leaves an empty text.
#include <certkern/errors.h>
#include <certkern/name.h>

#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "api/frame.h"
#include "ber/read_cursor.h"
#include "names/name_parser.h"
#include "names/name_text.h"
#include "names/text_output.h"
#include "names/value_text.h"
#include "platform/sizes.h"
#include "platform/text_conversion.h"

namespace certkern {
namespace {

// What goes wrong inside, memory included, has one code here.
using AnyFaultIsInternal = Maps<std::exception, ERROR_INTERNAL_ERROR>;

// What was written, for a record; a buffer without room holds nothing that may be read.
template <class Char>
const Char* Written(const Char* out, DWORD room) {
  return room ? out : nullptr;
}

// Without a buffer the size is the answer; with one that is too small it is told as well.
bool StoreEncoded(std::span<const BYTE> encoded, BYTE* out, DWORD* size) {
  const DWORD room = *size;
  *size = CheckedDword(encoded.size());
  if (out && room < encoded.size()) return Fault(ERROR_MORE_DATA);
  if (out) std::copy(encoded.begin(), encoded.end(), out);
  return true;
}

// Whether a text can be parsed under a dwStrType; a text that is empty fails with the parser's code.
bool IsParsedForm(std::wstring_view text, DWORD stringType) {
  const DWORD form = stringType & kNameFormMask;
  return form <= CERT_X500_NAME_STR && (form != CERT_SIMPLE_NAME_STR || text.empty());
}

// faultAt: characters from the start of the text when it is the text that is wrong.
bool StringToName(std::wstring_view text, DWORD stringType, BYTE* out, DWORD* size,
                  std::optional<size_t>& faultAt) {
  if (!IsParsedForm(text, stringType)) return Fault(E_INVALIDARG);
  ParsedName name;
  if (!ParseName(text, stringType, name)) {
    if (IsTextFault(GetLastError())) faultAt = name.position;
    return false;
  }
  SetLastError(ERROR_SUCCESS);
  return StoreEncoded(name.encoded, out, size);
}

}  // namespace
}  // namespace certkern

using namespace certkern;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

DWORD CertNameToStrW(DWORD dwCertEncodingType, PCERT_NAME_BLOB pName, DWORD dwStrType, LPWSTR psz,
                     DWORD csz) {
  return MessageGuarded<AnyFaultIsInternal, Returns<1>>(
      [&](Frame& frame) -> DWORD {
        frame.entry("(dwCertEncodingType = %u, pName = %p, dwStrType = %u, csz = %u)", dwCertEncodingType,
                    pName, dwStrType, csz);
        const std::wstring text = NameText(pName, dwStrType);
        SetLastError(ERROR_SUCCESS);
        const DWORD count = CopyFilled(text, psz, csz);
        return frame.result(count, "(returned: psz = %S, dwResult = %u)", Written(psz, csz), count);
      },
      [&] { ClearText(psz, csz); });
}

DWORD CertNameToStrA(DWORD dwCertEncodingType, PCERT_NAME_BLOB pName, DWORD dwStrType, LPSTR psz, DWORD csz) {
  return MessageGuarded<AnyFaultIsInternal, Returns<1>>(
      [&](Frame& frame) -> DWORD {
        frame.entry("(dwCertEncodingType = %u, pName = %p, dwStrType = %u, csz = %u)", dwCertEncodingType,
                    pName, dwStrType, csz);
        const std::wstring text = NameText(pName, dwStrType);
        SetLastError(ERROR_SUCCESS);
        const DWORD count = psz && csz ? CopyUtf8(text, psz, csz) : Utf8Bound(text.size());
        if (!count) {
          ClearText(psz, csz);
          return frame.failed(std::nullopt, "(failed: LastError = 0x%X, retval = %u)", GetLastError(), 1u);
        }
        return frame.result(count, "(returned: psz = %s, dwResult = %u)", Written(psz, csz), count);
      },
      [&] { ClearText(psz, csz); });
}

DWORD CertRDNValueToStrW(DWORD dwValueType, PCERT_RDN_VALUE_BLOB pValue, LPWSTR psz, DWORD csz) {
  return Guarded<Returns<1>>(
      [&](Frame& frame) -> DWORD {
        frame.entry("(dwValueType = %u, pValue = %p, psz = %p, csz = %u)", dwValueType, pValue, psz, csz);
        std::wstring text;
        if (!pValue) SetLastError(ERROR_INVALID_PARAMETER);
        if (!pValue || !PlainValue(dwValueType, *pValue, text)) {
          ClearText(psz, csz);
          return frame.failed(std::nullopt, "(failed: LastError = 0x%X, retval = %u)", GetLastError(), 1u);
        }
        const DWORD count = CopyText<wchar_t>(text, psz, csz);
        return frame.result(count, "(returned: psz = %S, retval = %u)", Written(psz, csz), count);
      },
      [&] { ClearText(psz, csz); });
}

DWORD CertRDNValueToStrA(DWORD dwValueType, PCERT_RDN_VALUE_BLOB pValue, LPSTR psz, DWORD csz) {
  return Guarded<Returns<1>>(
      [&](Frame& frame) -> DWORD {
        frame.entry("(dwValueType = %u, pValue = %p, psz = %p, csz = %u)", dwValueType, pValue, psz, csz);
        std::wstring text;
        DWORD count = 0;
        if (!pValue) SetLastError(ERROR_INVALID_PARAMETER);
        if (pValue && PlainValue(dwValueType, *pValue, text))
          count = CopyNarrowValue(dwValueType, text, psz, csz);
        if (!count) {
          ClearText(psz, csz);
          return frame.failed(std::nullopt, "(failed: LastError = 0x%X, retval = %u)", GetLastError(), 1u);
        }
        return frame.result(count, "(returned: psz = %s, retval = %u)", Written(psz, csz), count);
      },
      [&] { ClearText(psz, csz); });
}

BOOL CertStrToNameW(DWORD dwCertEncodingType, LPCWSTR pszX500, DWORD dwStrType, void* pvReserved,
                    BYTE* pbEncoded, DWORD* pcbEncoded, LPCWSTR* ppszError) {
  return MessageGuarded<AnyFaultIsInternal, Parenthesised>([&](Frame& frame) -> BOOL {
    frame.entry("(dwCertEncodingType = %u, pszX500 = %S, dwStrType = %u, pvReserved = %p, pcbEncoded = %p)",
                dwCertEncodingType, pszX500, dwStrType, pvReserved, pcbEncoded);
    if (ppszError) *ppszError = nullptr;
    if (!pszX500 || !pcbEncoded) return frame.failed(E_INVALIDARG);
    std::optional<size_t> faultAt;
    if (!StringToName(pszX500, dwStrType, pbEncoded, pcbEncoded, faultAt)) {
      if (ppszError && faultAt) *ppszError = pszX500 + *faultAt;
      return frame.failed();
    }
    return frame.result(TRUE, "(returned: pbEncoded = %p, ppszError = %p)", pbEncoded, ppszError);
  });
}

BOOL CertStrToNameA(DWORD dwCertEncodingType, LPCSTR pszX500, DWORD dwStrType, void* pvReserved,
                    BYTE* pbEncoded, DWORD* pcbEncoded, LPCSTR* ppszError) {
  return MessageGuarded<AnyFaultIsInternal, Parenthesised>([&](Frame& frame) -> BOOL {
    frame.entry("(dwCertEncodingType = %u, pszX500 = %s, dwStrType = %u, pvReserved = %p, pcbEncoded = %p)",
                dwCertEncodingType, pszX500, dwStrType, pvReserved, pcbEncoded);
    if (ppszError) *ppszError = nullptr;
    if (!pszX500 || !pcbEncoded) return frame.failed(E_INVALIDARG);
    const WideText wide = WideFromBytes(pszX500, CP_UTF8);
    if (!wide) return frame.failed();
    std::optional<size_t> faultAt;
    if (!StringToName(wide.get(), dwStrType, pbEncoded, pcbEncoded, faultAt)) {
      // in characters, also where these are several bytes
      if (ppszError && faultAt) *ppszError = pszX500 + *faultAt;
      return frame.failed();
    }
    return frame.result(TRUE, "(returned: pbEncoded = %p, ppszError = %p)", pbEncoded, ppszError);
  });
}

}  // extern "C"
