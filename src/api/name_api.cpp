// The exported functions between names and text. A failure leaves an empty text.
#include <certkern/errors.h>
#include <certkern/name.h>

#include "api/frame.h"
#include "names/name_text.h"
#include "names/text_output.h"
#include "names/value_text.h"

namespace certkern {
namespace {

// What goes wrong inside, memory included, has one code here.
using AnyFaultIsInternal = Maps<std::exception, ERROR_INTERNAL_ERROR>;

// What was written, for a record; a buffer without room holds nothing that may be read.
template <class Char>
const Char* Written(const Char* out, DWORD room) {
  return room ? out : nullptr;
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

}  // extern "C"
