// The small questions about one certificate, one name or one list.
#include <certkern/cert.h>
#include <certkern/errors.h>

#include <new>
#include <span>

#include "api/frame.h"
#include "certkern/CertGetEnhancedKeyUsage.h"
#include "store/certificate_primitives.h"
#include "store/certificate_usages.h"

using certkern::Frame;
using certkern::Guarded;
using certkern::Maps;
using certkern::MessageGuarded;
using certkern::Returns;

namespace {

// Below these, a property that does not decode throws the decoder's code.
template <class Body>
BOOL UsageGuarded(Body&& body, const char* function = __builtin_FUNCTION(), int line = __builtin_LINE()) {
  return MessageGuarded<Maps<std::bad_alloc, ERROR_NOT_ENOUGH_MEMORY>,
                        Maps<std::exception, ERROR_UNHANDLED_EXCEPTION>>(body, {}, function, line);
}

template <class Compare>
BOOL CompareBlobs(Frame& frame, const CRYPT_DATA_BLOB* one, const CRYPT_DATA_BLOB* other, Compare compare) {
  if (!certkern::IsWhole(one) || !certkern::IsWhole(other)) return frame.invalidArguments();
  return frame.result(compare(*one, *other) ? TRUE : FALSE);
}

}  // namespace

extern "C" {

PCERT_EXTENSION CertFindExtension(LPCSTR pszObjId, DWORD cExtensions, CERT_EXTENSION rgExtensions[]) {
  return Guarded([&](Frame& frame) -> PCERT_EXTENSION {
    frame.entry("(pszObjId = %p, cExtensions = %u, rgExtensions = %p)", pszObjId, cExtensions, rgExtensions);
    if (!pszObjId || !rgExtensions) return frame.failed(ERROR_INVALID_PARAMETER);
    return frame.result(certkern::FindByOid(pszObjId, std::span(rgExtensions, cExtensions)));
  });
}

PCRYPT_ATTRIBUTE CertFindAttribute(LPCSTR pszObjId, DWORD cAttr, CRYPT_ATTRIBUTE rgAttr[]) {
  return Guarded([&](Frame& frame) -> PCRYPT_ATTRIBUTE {
    frame.entry("(pszObjId = %p, cAttr = %u, rgAttr = %p)", pszObjId, cAttr, rgAttr);
    if (!pszObjId) return frame.result(PCRYPT_ATTRIBUTE{});
    return frame.result(certkern::FindByOid(pszObjId, certkern::AsSpan(rgAttr, cAttr)));
  });
}

LONG CertVerifyTimeValidity(LPFILETIME pTimeToVerify, PCERT_INFO pCertInfo) {
  return Guarded<Returns<ERROR_INVALID_PARAMETER>>([&](Frame& frame) -> LONG {
    frame.entry("(pTimeToVerify = %p, pCertInfo = %p)", pTimeToVerify, pCertInfo);
    if (!pCertInfo) return frame.invalidArguments();
    FILETIME moment;
    if (pTimeToVerify) {
      moment = *pTimeToVerify;
    } else {
      GetSystemTimeAsFileTime(&moment);
    }
    const LONG side = certkern::CompareWithValidity(moment, *pCertInfo);
    return frame.result(side, "returned: %d", side);
  });
}

BOOL CertVerifyValidityNesting(PCERT_INFO pSubjectInfo, PCERT_INFO pIssuerInfo) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(pSubjectInfo = %p, pIssuerInfo = %p)", pSubjectInfo, pIssuerInfo);
    if (!pSubjectInfo || !pIssuerInfo) return frame.failed(ERROR_INVALID_PARAMETER);
    return frame.result(certkern::IsValidityNested(*pSubjectInfo, *pIssuerInfo) ? TRUE : FALSE);
  });
}

BOOL CertCompareCertificateName(DWORD dwCertEncodingType, PCERT_NAME_BLOB pCertName1,
                                PCERT_NAME_BLOB pCertName2) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(dwCertEncodingType = %u, pCertName1 = %p, pCertName2 = %p)", dwCertEncodingType, pCertName1,
                pCertName2);
    return CompareBlobs(frame, pCertName1, pCertName2, certkern::AreSameBytes);
  });
}

BOOL CertCompareIntegerBlob(PCRYPT_INTEGER_BLOB pInt1, PCRYPT_INTEGER_BLOB pInt2) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(pInt1 = %p, pInt2 = %p)", pInt1, pInt2);
    return CompareBlobs(frame, pInt1, pInt2, certkern::AreSameIntegers);
  });
}

BOOL CertCompareCertificate(DWORD dwCertEncodingType, PCERT_INFO pCertId1, PCERT_INFO pCertId2) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(dwCertEncodingType = %u, pCertId1 = %p, pCertId2 = %p)", dwCertEncodingType, pCertId1,
                pCertId2);
    if (!pCertId1 || !pCertId2) return frame.invalidArguments();
    return frame.result(CertCompareCertificateName(dwCertEncodingType, &pCertId1->Issuer, &pCertId2->Issuer)
                                && CertCompareIntegerBlob(&pCertId1->SerialNumber, &pCertId2->SerialNumber)
                            ? TRUE
                            : FALSE);
  });
}

BOOL CertGetIntendedKeyUsage(DWORD dwCertEncodingType, PCERT_INFO pCertInfo, BYTE* pbKeyUsage,
                             DWORD cbKeyUsage) {
  return Guarded([&](Frame& frame) -> BOOL {
    frame.entry("(dwCertEncodingType = %u, pCertInfo = %p, pbKeyUsage = %p, cbKeyUsage = %u)",
                dwCertEncodingType, pCertInfo, pbKeyUsage, cbKeyUsage);
    if (!pCertInfo || (!pbKeyUsage && cbKeyUsage)) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!certkern::ReadIntendedKeyUsage(*pCertInfo, {pbKeyUsage, cbKeyUsage})) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CertGetEnhancedKeyUsage(PCCERT_CONTEXT pCertContext, DWORD dwFlags, PCERT_ENHKEY_USAGE pUsage,
                             DWORD* pcbUsage) {
  return UsageGuarded([&](Frame& frame) -> BOOL {
    frame.entry("(pCertContext = %p, dwFlags = 0x%.8X, pUsage = %p, pcbUsage = %p)", pCertContext, dwFlags,
                pUsage, pcbUsage);
    if (!pCertContext || !pcbUsage) return frame.failed(ERROR_INVALID_PARAMETER);
    if (dwFlags && dwFlags != CERT_FIND_EXT_ONLY_ENHKEY_USAGE_FLAG
        && dwFlags != CERT_FIND_PROP_ONLY_ENHKEY_USAGE_FLAG) {
      return frame.failed(ERROR_INVALID_FLAGS);
    }
    if (!certkern::GetEnhancedKeyUsage(pCertContext, dwFlags, pUsage, *pcbUsage)) return frame.failed();
    return frame.result(TRUE);
  });
}

BOOL CertGetValidUsages(DWORD cCerts, PCCERT_CONTEXT* rghCerts, int* cNumOIDs, LPSTR* rghOIDs,
                        DWORD* pcbOIDs) {
  return UsageGuarded([&](Frame& frame) -> BOOL {
    frame.entry("(cCerts = %u, rghCerts = %p, cNumOIDs = %p, rghOIDs = %p, pcbOIDs = %p)", cCerts, rghCerts,
                cNumOIDs, rghOIDs, pcbOIDs);
    if ((cCerts && !rghCerts) || !cNumOIDs || !pcbOIDs) return frame.failed(ERROR_INVALID_PARAMETER);
    const std::span<const PCCERT_CONTEXT> certificates(rghCerts, cCerts);
    if (!certkern::GetValidUsages(certificates, *cNumOIDs, rghOIDs, *pcbOIDs)) return frame.failed();
    return frame.result(TRUE);
  });
}

}  // extern "C"
