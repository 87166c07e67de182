#include "certkern/chain/crl_facts.h"

#include <certkern/oids.h>

#include <algorithm>

#include "ber/read_cursor.h"
#include "certkern/chain/memory_check.h"
#include "platform/limits.h"
#include "platform/text_conversion.h"
#include "store/certificate_primitives.h"

namespace certkern {
namespace {

constexpr BYTE kTagSequence = 0x30;
constexpr BYTE kContextClass = 0x80;
constexpr BYTE kConstructedForm = 0x20;
constexpr int kAttributeCertsField = 5;
constexpr unsigned kNamedReasons = 7;

std::vector<BYTE> Bytes(const CRYPT_DATA_BLOB& blob) { return {blob.pbData, blob.pbData + blob.cbData}; }

std::span<const CERT_EXTENSION> ExtensionsOf(const CRL_INFO& info) {
  return AsSpan<const CERT_EXTENSION>(info.rgExtension, info.cExtension);
}

const CERT_EXTENSION* Find(const CRL_INFO& info, LPCSTR oid) { return FindByOid(oid, ExtensionsOf(info)); }

std::vector<BYTE> ValueOf(const CRL_INFO& info, LPCSTR oid) {
  const CERT_EXTENSION* const extension = Find(info, oid);
  return extension ? Bytes(extension->Value) : std::vector<BYTE>();
}

template <class Record>
DecodedRecord<Record> Decoded(const CRL_INFO& info, LPCSTR oid, LPCSTR structType) {
  return DecodeExtension<Record>(ExtensionsOf(info), oid, structType);
}

int NumberOf(const CRL_INFO& info, LPCSTR oid) {
  const auto number = Decoded<int>(info, oid, X509_INTEGER);
  return number && *number >= 0 ? *number : -1;
}

// onlyContainsAttributeCerts [5] has no place in the decoded record, and what stands out of order would be passed over:
// a restriction that nobody reads is none. So the fields are walked once more.
bool CoversOnlyKnown(std::span<const BYTE> issuingDistPoint) {
  BerReadCursor in(issuingDistPoint), fields;
  BYTE tag;
  if (!in.readElement(tag, fields) || tag != kTagSequence) return false;
  for (int last = -1; !fields.empty();) {
    BerReadCursor content;
    if (!fields.readElement(tag, content)) return false;
    const int field = (tag & ~kConstructedForm) - kContextClass;
    if (field <= last || field > kAttributeCertsField) return false;
    const std::span<const BYTE> octets = content.rest();
    if (field == kAttributeCertsField && (octets.size() != 1 || octets[0])) return false;
    last = field;
  }
  return true;
}

bool IsUnusable(const CRL_INFO& info, const CRL_ISSUING_DIST_POINT* point) {
  const CERT_EXTENSION* const extension = Find(info, szOID_ISSUING_DIST_POINT);
  return extension && (!point || !CoversOnlyKnown({extension->Value.pbData, extension->Value.cbData}));
}

CrlKeyMatch KeyMatchOf(const CRL_INFO& info) {
  const auto stated = Decoded<int>(info, szOID_GOST_CRL_KEY_MATCH, X509_ENUMERATED);
  if (stated && *stated == 0) return CrlKeyMatch::Needed;
  if ((stated && *stated == 1) || !info.cExtension) return CrlKeyMatch::NotNeeded;
  return Find(info, szOID_CERTSRV_CA_VERSION) ? CrlKeyMatch::Needed : CrlKeyMatch::AsConfigured;
}

std::string Folded(std::string url) {
  for (char& c : url) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return url;
}

}  // namespace

ReasonSet ReasonsOf(const CRYPT_BIT_BLOB& flags) {
  if (!flags.pbData) return kAllReasons;
  if (!flags.cbData) return 0;
  const unsigned unused = flags.cbData == 1 ? flags.cUnusedBits : 0;
  ReasonSet reasons = 0;
  for (unsigned bit = 1; bit <= kNamedReasons && bit < 8 - unused; ++bit) {
    if (flags.pbData[0] & 0x80 >> bit) reasons = static_cast<ReasonSet>(reasons | 1 << (bit - 1));
  }
  return reasons;
}

std::vector<std::string> UrlsOf(const CRL_DIST_POINT_NAME& name) {
  std::vector<std::string> urls;
  if (name.dwDistPointNameChoice != CRL_DIST_POINT_FULL_NAME) return urls;
  for (const CERT_ALT_NAME_ENTRY& each : AsSpan(name.FullName.rgAltEntry, name.FullName.cAltEntry)) {
    if (each.dwAltNameChoice != CERT_ALT_NAME_URL) continue;
    if (const ByteText url = CheckingMemory([&] { return BytesFromWide(each.pwszURL, CP_ACP); }))
      urls.emplace_back(url.get());
  }
  return urls;
}

std::vector<std::vector<std::string>> UrlsOfPoints(const CRL_DIST_POINTS_INFO* points) {
  std::vector<std::vector<std::string>> lists;
  if (!points) return lists;
  size_t left = kMaxChainCrlUrls;
  for (const CRL_DIST_POINT& point : AsSpan(points->rgDistPoint, points->cDistPoint)) {
    std::vector<std::string> urls = UrlsOf(point.DistPointName);
    if (urls.empty()) continue;
    if (urls.size() > left) urls.resize(left);
    left -= urls.size();
    lists.push_back(std::move(urls));
    if (!left) break;
  }
  return lists;
}

UrlSet::UrlSet(std::vector<std::string> urls) : folded_(std::move(urls)) {
  for (std::string& url : folded_) url = Folded(std::move(url));
  std::ranges::sort(folded_);
}

bool UrlSet::meets(const UrlSet& other) const {
  if (folded_.size() > other.folded_.size()) return other.meets(*this);
  return std::ranges::any_of(
      folded_, [&](const std::string& url) { return std::ranges::binary_search(other.folded_, url); });
}

CrlFacts::CrlFacts(const CRL_INFO& info)
    : issuer({info.Issuer.pbData, info.Issuer.cbData}),
      rawIssuer(Bytes(info.Issuer)),
      authorityKeyId(Decoded<CERT_AUTHORITY_KEY_ID2_INFO>(info, szOID_AUTHORITY_KEY_IDENTIFIER2,
                                                          X509_AUTHORITY_KEY_ID2)),
      rawAuthorityKeyId(ValueOf(info, szOID_AUTHORITY_KEY_IDENTIFIER2)),
      issuingDistPoint(
          Decoded<CRL_ISSUING_DIST_POINT>(info, szOID_ISSUING_DIST_POINT, X509_ISSUING_DIST_POINT)),
      rawIssuingDistPoint(ValueOf(info, szOID_ISSUING_DIST_POINT)),
      unusable(IsUnusable(info, issuingDistPoint.get())),
      issuingUrls(issuingDistPoint ? UrlsOf(issuingDistPoint->DistPointName) : std::vector<std::string>()),
      freshestCrl(Decoded<CRL_DIST_POINTS_INFO>(info, szOID_FRESHEST_CRL, X509_CRL_DIST_POINTS)),
      keyMatch(KeyMatchOf(info)),
      isDelta(Find(info, szOID_DELTA_CRL_INDICATOR) != nullptr),
      hasNumber(Find(info, szOID_CRL_NUMBER) != nullptr),
      number(NumberOf(info, szOID_CRL_NUMBER)),
      baseNumber(NumberOf(info, szOID_DELTA_CRL_INDICATOR)) {}

std::shared_ptr<const CrlFacts> MakeCrlFacts(PCCRL_CONTEXT context) {
  return std::make_shared<const CrlFacts>(*context->pCrlInfo);
}

std::span<const BYTE> AuthorityKeyIdBytes(const CrlFacts& facts) {
  if (!facts.authorityKeyId) return {};
  const CRYPT_DATA_BLOB& keyId = facts.authorityKeyId->KeyId;
  return {keyId.pbData, keyId.cbData};
}

}  // namespace certkern
