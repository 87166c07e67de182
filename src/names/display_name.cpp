#include "names/display_name.h"

#include <certkern/cert.h>
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/oids.h>

#include <array>
#include <cstring>
#include <span>
#include <vector>

#include "ber/read_cursor.h"
#include "names/attribute_search.h"
#include "names/name_text.h"
#include "platform/owner.h"
#include "store/certificate_primitives.h"

namespace certkern {
namespace {

constexpr LPCSTR kSubjectAltNames[] = {szOID_SUBJECT_ALT_NAME2, szOID_SUBJECT_ALT_NAME};
constexpr LPCSTR kIssuerAltNames[] = {szOID_ISSUER_ALT_NAME2, szOID_ISSUER_ALT_NAME};

// In the order of preference.
constexpr LPCSTR kMail[] = {szOID_RSA_emailAddr};
constexpr LPCSTR kCommonName[] = {szOID_COMMON_NAME};
constexpr LPCSTR kDisplayed[] = {szOID_COMMON_NAME, szOID_ORGANIZATIONAL_UNIT_NAME, szOID_ORGANIZATION_NAME,
                                 szOID_RSA_emailAddr};

bool OfIssuer(const NameQuestion& question) { return question.flags & CERT_NAME_ISSUER_FLAG; }

const CERT_NAME_BLOB& NameOf(const NameQuestion& question) {
  const CERT_INFO& info = *question.certificate->pCertInfo;
  return OfIssuer(question) ? info.Issuer : info.Subject;
}

// --- alternative names ---

using AltNames = Owner<PCERT_ALT_NAME_INFO, LocalFree>;

// The first extension that is there and can be decoded, if there is one. False with a code for want of memory, which must not
// look like a certificate that says less: another name would be taken for the one that was asked for.
bool DecodeAltNames(const NameQuestion& question, AltNames& names) {
  const CERT_INFO& info = *question.certificate->pCertInfo;
  if (!info.cExtension || !info.rgExtension) return true;
  for (const LPCSTR oid : OfIssuer(question) ? kIssuerAltNames : kSubjectAltNames) {
    const CERT_EXTENSION* extension = CertFindExtension(oid, info.cExtension, info.rgExtension);
    if (!extension) continue;
    DWORD size = 0;
    SetLastError(ERROR_SUCCESS);
    if (CryptDecodeObjectEx(X509_ASN_ENCODING, X509_ALTERNATE_NAME, extension->Value.pbData,
                            extension->Value.cbData, CRYPT_DECODE_ALLOC_FLAG, nullptr, names.out(), &size))
      break;
    if (GetLastError() == ERROR_NOT_ENOUGH_MEMORY) return false;
  }
  return true;
}

// The choices that are text share their place in the entry.
LPCWSTR TextOf(const CERT_ALT_NAME_ENTRY& entry) { return entry.pwszDNSName; }

template <DWORD kChoice>
bool AltName(const NameQuestion& question, std::wstring& text) {
  if (question.bufferWithoutRoom) return true;
  AltNames names;
  if (!DecodeAltNames(question, names)) return false;
  if (!names) return true;
  for (const CERT_ALT_NAME_ENTRY& entry : std::span(names->rgAltEntry, names->cAltEntry)) {
    if (entry.dwAltNameChoice != kChoice) continue;
    if (TextOf(entry)) text = TextOf(entry);
    break;
  }
  return true;
}

// --- attributes ---

template <const auto& kOids>
bool FirstAttribute(const NameQuestion& question, std::wstring& text) {
  text = SearchAttribute(NameOf(question), kOids);
  return true;
}

bool NamedAttribute(const NameQuestion& question, std::wstring& text) {
  const auto oid = static_cast<LPCSTR>(question.parameter);
  text = SearchAttribute(NameOf(question), oid ? std::span(&oid, 1) : std::span<const LPCSTR>());
  return true;
}

bool WholeName(const NameQuestion& question, std::wstring& text) {
  DWORD stringType = 0;
  if (question.parameter) std::memcpy(&stringType, question.parameter, sizeof(stringType));
  text = NameText(&NameOf(question), stringType);
  SetLastError(ERROR_SUCCESS);  // as CertNameToStr: a name that does not decode is an empty text
  return true;
}

// --- the name that somebody gave to the certificate ---

// False with a code; a value may grow between the question for its size and the reading.
bool ReadProperty(PCCERT_CONTEXT certificate, DWORD property, std::vector<BYTE>& value) {
  DWORD size = 0;
  if (!CertGetCertificateContextProperty(certificate, property, nullptr, &size)) return false;
  for (;;) {
    value.resize(size
                 + size_t{1});  // an empty value needs a place as well: without one its size is asked for
    if (CertGetCertificateContextProperty(certificate, property, value.data(), &size)) break;
    if (GetLastError() != ERROR_MORE_DATA) return false;
  }
  value.resize(size);
  return true;
}

bool FriendlyName(const NameQuestion& question, std::wstring& text) {
  std::vector<BYTE> value;
  if (!ReadProperty(question.certificate, CERT_FRIENDLY_NAME_PROP_ID, value))
    return GetLastError() == CRYPT_E_NOT_FOUND;
  text.resize(value.size() / sizeof(wchar_t));
  std::memcpy(text.data(), value.data(), text.size() * sizeof(wchar_t));
  text.resize(std::wcslen(text.c_str()));  // whoever set it need not have ended it with a NUL
  return true;
}

// --- types ---

// One way to an answer: an empty text leaves it to the next one, false ends the search.
using Step = bool (*)(const NameQuestion& question, std::wstring& text);

constexpr Step kMailName = AltName<CERT_ALT_NAME_RFC822_NAME>;
constexpr Step kDisplayedAttribute = FirstAttribute<kDisplayed>;

// By type; the first row is that of no type.
constexpr std::array<Step, 3> kStepsOfType[] = {
    {           },
    {kMailName,    FirstAttribute<kMail>},
    {WholeName           },
    {NamedAttribute},
    {kDisplayedAttribute,            kMailName},
    {FriendlyName,kDisplayedAttribute, kMailName},
    {AltName<CERT_ALT_NAME_DNS_NAME>, FirstAttribute<kCommonName>},
    {AltName<CERT_ALT_NAME_URL>  },
};
static_assert(std::size(kStepsOfType) == CERT_NAME_URL_TYPE + 1);

}  // namespace

bool FindDisplayName(const NameQuestion& question, std::wstring& text) {
  text.clear();
  if (!ReadableCertificate(question.certificate) || !IsWhole(&NameOf(question)) || !question.type
      || question.type >= std::size(kStepsOfType))
    return Fault(ERROR_INVALID_PARAMETER);
  for (const Step step : kStepsOfType[question.type]) {
    if (!step) break;
    if (!step(question, text)) return false;
    if (!text.empty()) break;
  }
  return true;
}

}  // namespace certkern
