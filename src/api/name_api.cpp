// The exported functions between names and text. A failure leaves an empty text.
#include <certkern/errors.h>
#include <certkern/name.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "api/frame.h"
#include "ber/read_cursor.h"
#include "names/attribute_search.h"
#include "names/display_name.h"
#include "names/name_parser.h"
#include "names/name_text.h"
#include "names/text_output.h"
#include "names/value_text.h"
#include "platform/owner.h"
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

// The answer of CertGetNameString; false with a code. What it is called is a record of its own when there is none.
bool FindNameString(const NameQuestion& question, std::wstring& text) {
  const bool found = FindDisplayName(question, text);
  if (text.empty()) {
    TraceAs("CertGetNameStringWInternal", TRACE_EXPECTED, "(dwType = %u): returning empty string",
            question.type);
  }
  return found;
}

// The record of a failure that leaves an empty text.
Failure FailedEmpty(const Frame& frame) {
  return frame.failed(std::nullopt, "(failed: LastError = 0x%X, retval = %u)", GetLastError(), 1u);
}

Failure FailedQuestion(const Frame& frame) {
  if (GetLastError() == ERROR_INVALID_PARAMETER) frame.record(TRACE_ERROR, "() invalid argument(s)!");
  return frame.failed(std::nullopt, "(failed: LastError = 0x%x, retval = %u)", GetLastError(), 1u);
}

using DecodedRecord = MallocOwner<CERT_NAME_INFO>;

// Null with a code.
DecodedRecord DecodeNameRecord(const Frame& frame, DWORD encoding, LPCSTR type, const CERT_NAME_BLOB& name) {
  DWORD size = 0;
  if (!CryptDecodeObject(encoding, type, name.pbData, name.cbData, 0, nullptr, &size)) return {};
  DecodedRecord record(static_cast<CERT_NAME_INFO*>(std::malloc(size)));
  if (!record) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    frame.record(TRACE_ERROR, "not enough memory!");
    return {};
  }
  if (!CryptDecodeObject(encoding, type, name.pbData, name.cbData, 0, record.get(), &size)) return {};
  return record;
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
          return FailedEmpty(frame);
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
          return FailedEmpty(frame);
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
          return FailedEmpty(frame);
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

DWORD CertGetNameStringW(PCCERT_CONTEXT pCertContext, DWORD dwType, DWORD dwFlags, void* pvTypePara,
                         LPWSTR pszNameString, DWORD cchNameString) {
  return Guarded<Returns<1>>(
      [&](Frame& frame) -> DWORD {
        frame.entry("(pCertContext = %p, dwType = %u, dwFlags = 0x%x, pvTypePara = %p, cchNameString = %u)",
                    pCertContext, dwType, dwFlags, pvTypePara, cchNameString);
        std::wstring text;
        if (!FindNameString({pCertContext, dwType, dwFlags, pvTypePara, pszNameString && !cchNameString},
                            text)) {
          ClearText(pszNameString, cchNameString);
          return FailedQuestion(frame);
        }
        const DWORD count = CopyText<wchar_t>(text, pszNameString, cchNameString);
        return frame.result(count, "(returned: pszNameString = %S, retval = %u)",
                            Written(pszNameString, cchNameString), count);
      },
      [&] { ClearText(pszNameString, cchNameString); });
}

DWORD CertGetNameStringA(PCCERT_CONTEXT pCertContext, DWORD dwType, DWORD dwFlags, void* pvTypePara,
                         LPSTR pszNameString, DWORD cchNameString) {
  return Guarded<Returns<1>>(
      [&](Frame& frame) -> DWORD {
        frame.entry("(pCertContext = %p, dwType = %u, dwFlags = 0x%x, pvTypePara = %p, cchNameString = %u)",
                    pCertContext, dwType, dwFlags, pvTypePara, cchNameString);
        std::wstring text;
        DWORD count = 0;
        if (FindNameString({pCertContext, dwType, dwFlags, pvTypePara, pszNameString && !cchNameString},
                           text))
          count = CopyNarrowed(text, CP_ACP, pszNameString, cchNameString);
        if (!count) {
          ClearText(pszNameString, cchNameString);
          return FailedQuestion(frame);
        }
        return frame.result(count, "(returned: pszNameString = %s, retval = %u)",
                            Written(pszNameString, cchNameString), count);
      },
      [&] { ClearText(pszNameString, cchNameString); });
}

PCERT_RDN_ATTR CertFindRDNAttr(LPCSTR pszObjId, PCERT_NAME_INFO pName) {
  return Guarded([&](Frame& frame) -> PCERT_RDN_ATTR {
    frame.entry("(pszObjId = %p, pName = %p)", pszObjId, pName);
    if (!pszObjId || !pName) return frame.invalidArguments();
    return frame.result(FindAttribute(pszObjId, *pName));
  });
}

BOOL CertIsRDNAttrsInCertificateName(DWORD dwCertEncodingType, DWORD dwFlags, PCERT_NAME_BLOB pCertName,
                                     PCERT_RDN pRDN) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(dwCertEncodingType = %u, dwFlags = 0x%x, pCertName = %p, pRDN = %p)", dwCertEncodingType,
                dwFlags, pCertName, pRDN);
    if (!pCertName || !pRDN) return frame.invalidArguments(std::nullopt);
    const LPCSTR type = dwFlags & CERT_UNICODE_IS_RDN_ATTRS_FLAG ? X509_UNICODE_NAME : X509_NAME;
    const DecodedRecord name = DecodeNameRecord(frame, dwCertEncodingType, type, *pCertName);
    if (!name) return frame.failed();
    return frame.result(HasAttributes(*name.get(), *pRDN) ? TRUE : FALSE);
  });
}

}  // extern "C"
