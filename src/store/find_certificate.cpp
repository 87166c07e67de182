// What a certificate is asked, a row for each find type.
#include <certkern/errors.h>
#include <certkern/oids.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "ber/object_codec.h"
#include "ber/read_cursor.h"
#include "keys/public_key_comparison.h"
#include "names/name_text.h"
#include "names/text_output.h"
#include "store/certificate_primitives.h"
#include "store/certificate_usages.h"
#include "store/context_property.h"
#include "store/find.h"
#include "store/store_kind.h"

namespace certkern {
namespace {

// What the caller gave, as far as a row looks at it.
struct Wanted {
  const void* parameter;
  DWORD flags;

  template <class Record>
  const Record& as() const {
    return *static_cast<const Record*>(parameter);
  }
};

struct FindRow {
  DWORD type;
  bool seesArchived;
  bool (*isGood)(const void* parameter);  // null: it is not looked at; otherwise it is not null
  // One of the two: by the element and its properties, or by what it says in its context.
  Found (*matchElement)(const Wanted& wanted, StoreElement& element, ContextOwner& context);
  bool (*matchInfo)(const Wanted& wanted, const CERT_INFO& info);
  // Null or no question: every element is looked at.
  std::optional<IndexQuestion> (*ask)(const void* parameter);
};

Found Answer(bool matches) { return matches ? Found::Yes : Found::No; }
std::span<const BYTE> Bytes(const CRYPT_DATA_BLOB& blob) { return {blob.pbData, blob.cbData}; }

// --- parameters ---

bool IsGoodBlob(const void* parameter) { return IsWhole(static_cast<const CRYPT_DATA_BLOB*>(parameter)); }
bool IsThere(const void*) { return true; }

bool IsGoodKey(const void* parameter) {
  const auto& key = *static_cast<const CERT_PUBLIC_KEY_INFO*>(parameter);
  return key.Algorithm.pszObjId && IsWhole(&key.Algorithm.Parameters)
      && (key.PublicKey.pbData || !key.PublicKey.cbData);
}

bool IsGoodUsage(const void* parameter) {
  const auto& usage = *static_cast<const CERT_ENHKEY_USAGE*>(parameter);
  if (!usage.rgpszUsageIdentifier) return !usage.cUsageIdentifier;
  return std::ranges::all_of(std::span(usage.rgpszUsageIdentifier, usage.cUsageIdentifier),
                             [](LPCSTR purpose) { return purpose != nullptr; });
}

bool IsGoodInfo(const void* parameter) {
  const auto& info = *static_cast<const CERT_INFO*>(parameter);
  return IsWhole(&info.Issuer) && IsWhole(&info.SerialNumber);
}

bool IsGoodIssuerSerial(const void* parameter) {
  const auto& id = *static_cast<const CERT_ISSUER_SERIAL_NUMBER*>(parameter);
  return IsWhole(&id.Issuer) && IsWhole(&id.SerialNumber);
}

bool IsGoodCertificate(const void* parameter) {
  const CERT_CONTEXT* const certificate = ReadableCertificate(parameter);
  return certificate && !EncodedBytes(*certificate).empty();
}

// --- by element ---

// A property that is there is compared as it is; what has to be computed needs an object that can be decoded.
template <DWORD id>
Found MatchProperty(const Wanted& wanted, StoreElement& element, ContextOwner& context) {
  const auto& blob = wanted.as<CRYPT_DATA_BLOB>();
  {
    const PropertyLock guard(element.properties->lock);
    if (const PropertyItem* item = element.properties->items.find(id))
      return Answer(std::ranges::equal(item->bytes(), Bytes(blob)));
  }
  context.reset(AcquireContext(element));
  if (!context) return Found::Failed;
  const PropertyLock guard(element.properties->lock);
  const PropertyItem* const item = FindOrComputeProperty(element, id);
  return Answer(item && std::ranges::equal(item->bytes(), Bytes(blob)));
}

Found MatchExisting(const Wanted& wanted, StoreElement& element, ContextOwner&) {
  return Answer(SameCertificate(wanted.as<CERT_CONTEXT>(), element));
}

bool HasOrComputes(StoreElement& element, DWORD id) {
  const PropertyLock guard(element.properties->lock);
  if (id == CERT_KEY_CONTEXT_PROP_ID) return element.properties->keyContext.hCryptProv != 0;
  return FindOrComputeProperty(element, id == SV_KEY_PROV_INFO_FLAT_PROP_ID ? CERT_KEY_PROV_INFO_PROP_ID : id)
      != nullptr;
}

Found MatchAnyProperty(const Wanted& wanted, StoreElement& element, ContextOwner& context) {
  const auto id = wanted.as<DWORD>();
  if (HasOrComputes(element, id)) return Found::Yes;
  if (id != CERT_KEY_IDENTIFIER_PROP_ID) return Found::No;
  context.reset(AcquireContext(element));  // this one is computed from what is decoded
  return context ? Answer(HasOrComputes(element, id)) : Found::Failed;
}

Found MatchPrivateKey(const Wanted&, StoreElement& element, ContextOwner&) {
  return Answer(HasProperty(element, CERT_KEY_PROV_INFO_PROP_ID));
}

// --- by what the certificate says ---

bool MatchAny(const Wanted&, const CERT_INFO&) { return true; }

template <CERT_NAME_BLOB CERT_INFO::*name>
bool MatchName(const Wanted& wanted, const CERT_INFO& info) {
  return AreSameBytes(wanted.as<CERT_NAME_BLOB>(), info.*name);
}

// Names of one character are found by nothing, not even by an empty text.
constexpr size_t kShortestName = 2;

template <CERT_NAME_BLOB CERT_INFO::*name>
bool MatchWideText(const Wanted& wanted, const CERT_INFO& info) {
  const std::wstring text = NameText(&(info.*name), CERT_SIMPLE_NAME_STR);
  return text.size() >= kShortestName
      && std::wcsstr(text.c_str(), static_cast<const wchar_t*>(wanted.parameter));
}

template <CERT_NAME_BLOB CERT_INFO::*name>
bool MatchText(const Wanted& wanted, const CERT_INFO& info) {
  const std::wstring text = NameText(&(info.*name), CERT_SIMPLE_NAME_STR);
  if (text.size() < kShortestName) return false;
  std::vector<char> narrow(Utf8Bound(text.size()) + size_t{1});
  return CopyUtf8(text, narrow.data(), static_cast<DWORD>(narrow.size()))
      && std::strstr(narrow.data(), static_cast<const char*>(wanted.parameter));
}

bool MatchKey(const Wanted& wanted, const CERT_INFO& info) {
  return SamePublicKey(&wanted.as<CERT_PUBLIC_KEY_INFO>(), &info.SubjectPublicKeyInfo);
}

// The extension may list as many purposes as fit into a certificate, so it is sorted, not searched for each.
bool AllowsAll(const CERT_EXTENSION& extension, const CERT_ENHKEY_USAGE& wanted) {
  void* record = nullptr;
  if (!DecodeObjectEx(X509_ASN_ENCODING, X509_ENHANCED_KEY_USAGE, extension.Value.pbData,
                      extension.Value.cbData, CRYPT_DECODE_ALLOC_FLAG, nullptr, &record, nullptr)) {
    return false;
  }
  const UsageRecord usages(static_cast<CERT_ENHKEY_USAGE*>(record));
  const std::span<const LPSTR> purposes = PurposesOf(usages);
  std::vector<std::string_view> allowed(purposes.begin(), purposes.end());
  std::ranges::sort(allowed);
  return std::ranges::all_of(
      AsSpan(wanted.rgpszUsageIdentifier, wanted.cUsageIdentifier),
      [&](LPCSTR purpose) { return std::ranges::binary_search(allowed, std::string_view(purpose)); });
}

bool MatchUsage(const Wanted& wanted, const CERT_INFO& info) {
  const CERT_EXTENSION* const extension = FindExtension(szOID_ENHANCED_KEY_USAGE, info);
  if (!extension) return wanted.flags == CERT_FIND_OPTIONAL_ENHKEY_USAGE_FLAG;
  return AllowsAll(*extension, wanted.as<CERT_ENHKEY_USAGE>());
}

bool MatchSubjectCertificate(const Wanted& wanted, const CERT_INFO& info) {
  const auto& id = wanted.as<CERT_INFO>();
  return AreSameBytes(id.Issuer, info.Issuer) && AreSameBytes(id.SerialNumber, info.SerialNumber);
}

bool MatchIssuerSerial(const Wanted& wanted, const CERT_INFO& info) {
  const auto& id = wanted.as<CERT_ISSUER_SERIAL_NUMBER>();
  return AreSameBytes(id.Issuer, info.Issuer) && AreSameIntegers(id.SerialNumber, info.SerialNumber);
}

// --- where the index has it ---

template <IndexKey key>
std::optional<IndexQuestion> AskBlob(const void* parameter) {
  return AskBytes(key, Bytes(*static_cast<const CRYPT_DATA_BLOB*>(parameter)));
}

std::optional<IndexQuestion> AskInfo(const void* parameter) {
  const auto& info = *static_cast<const CERT_INFO*>(parameter);
  return AskIssuerSerial(info.Issuer, info.SerialNumber);
}

// Only the bytes are compared, and the fields that a caller put beside them may be others'.
std::optional<IndexQuestion> AskContext(const void* parameter) {
  const auto& certificate = *static_cast<PCCERT_CONTEXT>(parameter);
  if (FindLiveContext(parameter)) return AskInfo(certificate.pCertInfo);
  const LastErrorKeeper keeper;
  const ContextOwner own(
      CreateContext(ElementType::Certificate, X509_ASN_ENCODING, EncodedBytes(certificate)));
  return own ? AskInfo(own->certificate.pCertInfo) : std::nullopt;
}

std::optional<IndexQuestion> AskId(const void* parameter) {
  const auto& id = *static_cast<const CERT_ISSUER_SERIAL_NUMBER*>(parameter);
  return AskIssuerSerial(id.Issuer, id.SerialNumber);
}

// --- the table ---

constexpr auto kSubject = &CERT_INFO::Subject;
constexpr auto kIssuer = &CERT_INFO::Issuer;
constexpr auto kBySha1 = MatchProperty<CERT_SHA1_HASH_PROP_ID>;
constexpr auto kByKeyId = MatchProperty<CERT_KEY_IDENTIFIER_PROP_ID>;
constexpr auto kAskSha1 = AskBlob<IndexKey::Sha1>;
constexpr auto kAskKeyId = AskBlob<IndexKey::KeyIdentifier>;

constexpr FindRow kFindRows[] = {
    {CERT_FIND_ANY,             false, nullptr,           nullptr,                              MatchAny,                nullptr                   },
    {CERT_FIND_SHA1_HASH,       true,  IsGoodBlob,        kBySha1,                              nullptr,                 kAskSha1                  },
    {CERT_FIND_MD5_HASH,        true,  IsGoodBlob,        MatchProperty<CERT_MD5_HASH_PROP_ID>, nullptr,                 nullptr                   },
    {CERT_FIND_KEY_IDENTIFIER,  false, IsGoodBlob,        kByKeyId,                             nullptr,                 kAskKeyId                 },
    {CERT_FIND_EXISTING,        false, IsGoodCertificate, MatchExisting,                        nullptr,                 AskContext                },
    {CERT_FIND_SUBJECT_NAME,    false, IsGoodBlob,        nullptr,                              MatchName<kSubject>,     AskBlob<IndexKey::Subject>},
    {CERT_FIND_ISSUER_NAME,     false, IsGoodBlob,        nullptr,                              MatchName<kIssuer>,      nullptr                   },
    {CERT_FIND_SUBJECT_STR_A,   false, IsThere,           nullptr,                              MatchText<kSubject>,     nullptr                   },
    {CERT_FIND_ISSUER_STR_A,    false, IsThere,           nullptr,                              MatchText<kIssuer>,      nullptr                   },
    {CERT_FIND_SUBJECT_STR_W,   false, IsThere,           nullptr,                              MatchWideText<kSubject>, nullptr                   },
    {CERT_FIND_ISSUER_STR_W,    false, IsThere,           nullptr,                              MatchWideText<kIssuer>,  nullptr                   },
    {CERT_FIND_PROPERTY,        false, IsThere,           MatchAnyProperty,                     nullptr,                 nullptr                   },
    {CERT_FIND_HAS_PRIVATE_KEY, false, nullptr,           MatchPrivateKey,                      nullptr,                 nullptr                   },
    {CERT_FIND_PUBLIC_KEY,      false, IsGoodKey,         nullptr,                              MatchKey,                nullptr                   },
    {CERT_FIND_ENHKEY_USAGE,    false, IsGoodUsage,       nullptr,                              MatchUsage,              nullptr                   },
    {CERT_FIND_SUBJECT_CERT,    true,  IsGoodInfo,        nullptr,                              MatchSubjectCertificate, AskInfo                   },
};

// By identifier, which sees archived certificates whatever it names them by; the numbers are those of CERT_ID.
constexpr FindRow kIdRows[] = {
    {CERT_ID_ISSUER_SERIAL_NUMBER, true, IsGoodIssuerSerial, nullptr,  MatchIssuerSerial, AskId    },
    {CERT_ID_KEY_IDENTIFIER,       true, IsGoodBlob,         kByKeyId, nullptr,           kAskKeyId},
    {CERT_ID_SHA1_HASH,            true, IsGoodBlob,         kBySha1,  nullptr,           kAskSha1 },
};

// CERT_FIND_ISSUER_NAME with a look at the serial number: archived certificates stay hidden.
constexpr FindRow kIssuerSerialRow = {0, false, IsGoodIssuerSerial, nullptr, MatchIssuerSerial, AskId};

const FindRow* RowOf(std::span<const FindRow> rows, DWORD type) {
  const auto row = std::ranges::find_if(rows, [type](const FindRow& each) { return each.type == type; });
  return row != rows.end() ? &*row : nullptr;
}

class CertificateQuery final : public ElementQuery {
 public:
  CertificateQuery(const FindRow& row, Wanted wanted) : row_(row), wanted_(wanted) {}
  ElementType type() const override { return ElementType::Certificate; }
  bool seesArchived() const override { return row_.seesArchived; }
  Found matches(StoreElement& element, ContextOwner& context) const override {
    if (row_.matchElement) return row_.matchElement(wanted_, element, context);
    context.reset(AcquireContext(element));
    if (!context) return Found::Failed;
    return Answer(row_.matchInfo(wanted_, *context->certificate.pCertInfo));
  }
  std::optional<IndexQuestion> question() const override {
    if (!row_.ask) return std::nullopt;
    return row_.ask(wanted_.parameter);
  }

 private:
  const FindRow& row_;
  const Wanted wanted_;
};

// A store that follows its file by itself does so where a search begins.
bool BeginSearch(CertStore& store, DWORD encoding, const ContextRecord* previous) {
  if (!previous && store.autoResync && !ControlStore(store, 0, CERT_STORE_CTRL_RESYNC, nullptr)) return false;
  return (encoding & (X509_ASN_ENCODING | PKCS_7_ASN_ENCODING)) || Fault(ERROR_INVALID_PARAMETER);
}

ContextOwner FindByRow(CertStore& store, const FindRow* row, Wanted wanted, const ContextRecord* previous) {
  if (!row || (row->isGood && (!wanted.parameter || !row->isGood(wanted.parameter)))) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  return FindInMembers(store, CertificateQuery(*row, wanted), previous);
}

}  // namespace

ContextOwner FindCertificate(CertStore& store, const CertificateRequest& request,
                             const ContextRecord* previous) {
  if (!BeginSearch(store, request.encoding, previous)) return {};
  const auto* const id = static_cast<const CERT_ID*>(request.parameter);
  if (request.type != CERT_FIND_CERT_ID || !id) {
    return FindByRow(store, RowOf(kFindRows, request.type), {request.parameter, request.flags}, previous);
  }
  static_assert(offsetof(CERT_ID, KeyId) == offsetof(CERT_ID, IssuerSerialNumber));
  return FindByRow(store, RowOf(kIdRows, id->dwIdChoice), {&id->IssuerSerialNumber, 0}, previous);
}

ContextOwner FindByIssuerAndSerial(CertStore& store, DWORD encoding, const CERT_INFO& id) {
  if (!BeginSearch(store, encoding, nullptr)) return {};
  const CERT_ISSUER_SERIAL_NUMBER wanted{id.Issuer, id.SerialNumber};
  return FindByRow(store, &kIssuerSerialRow, {&wanted, 0}, nullptr);
}

}  // namespace certkern
