#include "url/object_url.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/oids.h>

#include <cstring>
#include <cwchar>
#include <span>
#include <vector>

#include "ber/object_codec.h"
#include "ber/read_cursor.h"
#include "platform/owner.h"
#include "platform/sizes.h"
#include "store/certificate_primitives.h"

namespace certkern {
namespace {

const CERT_EXTENSION* FindPoints(const CERT_INFO& info) {
  const CERT_EXTENSION* const points = FindExtension(szOID_CRL_DIST_POINTS, info);
  if (!points) SetLastError(ERROR_NOT_FOUND);
  return points;
}

// Null with a code.
MallocOwner<CRL_DIST_POINTS_INFO> DecodePoints(const CRYPT_OBJID_BLOB& encoded) {
  constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
  const auto decode = [&](void* record, DWORD* size) {
    return DecodeObject(kEncoding, szOID_CRL_DIST_POINTS, encoded.pbData, encoded.cbData, 0, record, size);
  };
  DWORD size = 0;
  if (!decode(nullptr, &size)) return {};
  MallocOwner<CRL_DIST_POINTS_INFO> points(static_cast<CRL_DIST_POINTS_INFO*>(std::malloc(size)));
  if (!points) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  if (!points || !decode(points.get(), &size)) return {};
  return points;
}

// Null for an entry that is no text: what it holds in this place is no pointer.
LPCWSTR TextOf(const CERT_ALT_NAME_ENTRY& entry) {
  switch (entry.dwAltNameChoice) {
    case CERT_ALT_NAME_RFC822_NAME:
    case CERT_ALT_NAME_DNS_NAME:
    case CERT_ALT_NAME_URL:
      return entry.pwszURL;
    default:
      return nullptr;
  }
}

std::vector<LPCWSTR> TextsOf(const CRL_DIST_POINTS_INFO& info) {
  std::vector<LPCWSTR> texts;
  for (const CRL_DIST_POINT& point : std::span(info.rgDistPoint, info.cDistPoint)) {
    if (point.DistPointName.dwDistPointNameChoice != CRL_DIST_POINT_FULL_NAME) continue;
    const CERT_ALT_NAME_INFO& names = point.DistPointName.FullName;
    for (const CERT_ALT_NAME_ENTRY& entry : std::span(names.rgAltEntry, names.cAltEntry)) {
      if (LPCWSTR text = TextOf(entry)) texts.push_back(text);
    }
  }
  return texts;
}

void Fill(CRYPT_URL_ARRAY& array, std::span<const LPCWSTR> texts) {
  array.cUrl = static_cast<DWORD>(texts.size());
  array.rgwszUrl = reinterpret_cast<LPWSTR*>(&array + 1);
  auto* out = reinterpret_cast<LPWSTR>(array.rgwszUrl + texts.size());
  for (size_t i = 0; i < texts.size(); ++i) {
    const size_t units = std::wcslen(texts[i]) + 1;
    array.rgwszUrl[i] = out;
    std::wmemcpy(out, texts[i], units);
    out += units;
  }
}

}  // namespace

bool GetCrlUrls(const CERT_CONTEXT& certificate, CRYPT_URL_ARRAY* array, DWORD* size) {
  const CERT_EXTENSION* const extension = FindPoints(*certificate.pCertInfo);
  if (!extension) return false;
  const MallocOwner<CRL_DIST_POINTS_INFO> points = DecodePoints(extension->Value);
  if (!points) return false;
  const std::vector<LPCWSTR> texts = TextsOf(*points.get());
  uint64_t needed = sizeof(CRYPT_URL_ARRAY) + texts.size() * sizeof(LPWSTR);
  for (LPCWSTR text : texts) needed += (std::wcslen(text) + 1) * sizeof(WCHAR);
  if (!FitsDword(needed)) return Fault(ERROR_INVALID_PARAMETER);
  const DWORD given = *size;
  *size = static_cast<DWORD>(needed);
  if (!array) return true;
  if (given < needed) return Fault(ERROR_MORE_DATA);
  Fill(*array, texts);
  return true;
}

}  // namespace certkern
