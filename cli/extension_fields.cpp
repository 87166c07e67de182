#include "extension_fields.h"

#include "decoded.h"
#include "name_fields.h"
#include "oid_names.h"
#include "shape.h"
#include "text.h"

#include <certkern/oids.h>
#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace certkern::cli {
namespace {

// --- values ---

int64_t Signed(DWORD number) { return static_cast<int32_t>(number); }

Bytes Copy(std::span<const BYTE> bytes) { return {bytes.begin(), bytes.end()}; }

void AddBytes(Field& parent, std::string_view label, std::span<const BYTE> bytes) {
  if (!bytes.empty()) parent.add(label, Copy(bytes));
}

// Serial numbers are kept little-endian and read big-endian.
void AddSerial(Field& parent, std::string_view label, const CRYPT_INTEGER_BLOB& serial) {
  const std::span<const BYTE> little = BytesOf(serial);
  if (!little.empty()) parent.add(label, Bytes(little.rbegin(), little.rend()));
}

// The names of the bits that are set, the first bit being the highest of the first byte.
void AddBits(Field& parent, std::string_view label, const CRYPT_BIT_BLOB& bits,
             std::span<const char* const> names) {
  Field& list = parent.addList(label);
  // what nobody has named is few bits in an honest object; more of them are not worth a line each
  constexpr size_t kUnnamedShown = 32;
  const size_t count = std::min(size_t{bits.cbData} * 8, names.size() + kUnnamedShown);
  for (size_t i = 0; i < count; ++i) {
    if (!(bits.pbData[i / 8] & (0x80 >> i % 8))) continue;
    list.add("", Words{i < names.size() ? names[i] : fmt::format("bit {}", i)});
  }
  const size_t shown = (count + 7) / 8;
  if (bits.cbData > shown) list.add("", Words{fmt::format("and {} bytes more", bits.cbData - shown)});
}

constexpr const char* kKeyUsages[] = {"digitalSignature", "nonRepudiation", "keyEncipherment",
                                      "dataEncipherment", "keyAgreement",   "keyCertSign",
                                      "cRLSign",          "encipherOnly",   "decipherOnly"};
constexpr const char* kReasonFlags[] = {
    "unused",      "keyCompromise",        "cACompromise",    "affiliationChanged",
    "superseded",  "cessationOfOperation", "certificateHold", "privilegeWithdrawn",
    "aACompromise"};
constexpr const char* kReasons[] = {"unspecified",        "keyCompromise", "cACompromise",
                                    "affiliationChanged", "superseded",    "cessationOfOperation",
                                    "certificateHold",    nullptr,         "removeFromCRL",
                                    "privilegeWithdrawn", "aACompromise"};

Words ReasonWords(DWORD code) {
  const bool known = code < std::size(kReasons) && kReasons[code];
  return {known ? kReasons[code] : fmt::format("reason {}", Signed(code))};
}

// --- fields of each record ---

void BasicConstraints(const CERT_BASIC_CONSTRAINTS2_INFO& info, Field& out) {
  out.add("CA", info.fCA != FALSE);
  if (info.fPathLenConstraint) out.add("Path length", Signed(info.dwPathLenConstraint));
}

void KeyUsage(const CRYPT_BIT_BLOB& bits, Field& out) { AddBits(out, "Usages", bits, kKeyUsages); }

void EnhancedKeyUsage(const CERT_ENHKEY_USAGE& usage, Field& out) {
  Field& list = out.addList("Usages");
  for (DWORD i = 0; i < usage.cUsageIdentifier; ++i)
    list.add("", NamedOid(usage.rgpszUsageIdentifier[i], CRYPT_ENHKEY_USAGE_OID_GROUP_ID));
}

void AltNames(const CERT_ALT_NAME_INFO& names, Field& out) { AddAltNames(out, "Names", names); }

void AuthorityKeyId(const CERT_AUTHORITY_KEY_ID_INFO& info, Field& out) {
  AddBytes(out, "Key ID", BytesOf(info.KeyId));
  AddBytes(out, "Issuer", BytesOf(info.CertIssuer));
  AddSerial(out, "Serial number", info.CertSerialNumber);
}

void AuthorityKeyId2(const CERT_AUTHORITY_KEY_ID2_INFO& info, Field& out) {
  AddBytes(out, "Key ID", BytesOf(info.KeyId));
  if (info.AuthorityCertIssuer.cAltEntry) AddAltNames(out, "Issuer", info.AuthorityCertIssuer);
  AddSerial(out, "Serial number", info.AuthorityCertSerialNumber);
}

void SubjectKeyId(const CRYPT_DATA_BLOB& id, Field& out) { out.add("Key ID", Copy(BytesOf(id))); }

void PointName(const CRL_DIST_POINT_NAME& name, Field& out) {
  if (name.dwDistPointNameChoice == CRL_DIST_POINT_FULL_NAME) AddAltNames(out, "Full name", name.FullName);
}

void DistPoints(const CRL_DIST_POINTS_INFO& info, Field& out) {
  Field& list = out.addList("Points");
  for (DWORD i = 0; i < info.cDistPoint; ++i) {
    const CRL_DIST_POINT& point = info.rgDistPoint[i];
    Field& field = list.add("");
    PointName(point.DistPointName, field);
    if (point.ReasonFlags.cbData) AddBits(field, "Reasons", point.ReasonFlags, kReasonFlags);
    if (point.CRLIssuer.cAltEntry) AddAltNames(field, "CRL issuer", point.CRLIssuer);
  }
}

void IssuingDistPoint(const CRL_ISSUING_DIST_POINT& point, Field& out) {
  PointName(point.DistPointName, out);
  out.add("Only user certificates", point.fOnlyContainsUserCerts != FALSE);
  out.add("Only CA certificates", point.fOnlyContainsCACerts != FALSE);
  if (point.OnlySomeReasonFlags.cbData) AddBits(out, "Only reasons", point.OnlySomeReasonFlags, kReasonFlags);
  out.add("Indirect CRL", point.fIndirectCRL != FALSE);
}

void InformationAccess(const CERT_AUTHORITY_INFO_ACCESS& info, Field& out) {
  Field& list = out.addList("Locations");
  for (DWORD i = 0; i < info.cAccDescr; ++i) {
    Field& field = list.add("", NamedOid(info.rgAccDescr[i].pszAccessMethod));
    field.add(AltNameField(info.rgAccDescr[i].AccessLocation));
  }
}

void AddQualifier(const CERT_POLICY_QUALIFIER_INFO& qualifier, Field& list) {
  Field& field = list.add("", NamedOid(qualifier.pszPolicyQualifierId));
  const std::span<const BYTE> encoded = BytesOf(qualifier.Qualifier);
  const std::string_view id = qualifier.pszPolicyQualifierId ? qualifier.pszPolicyQualifierId : "";
  if (id == szOID_PKIX_POLICY_QUALIFIER_CPS) {
    field.add("Location", StringOrBytes(encoded));
    return;
  }
  if (id == szOID_PKIX_POLICY_QUALIFIER_USERNOTICE) {
    if (const auto notice =
            Decode<CERT_POLICY_QUALIFIER_USER_NOTICE>(X509_PKIX_POLICY_QUALIFIER_USERNOTICE, encoded)) {
      if (notice->pszDisplayText) field.add("Notice", WideText(notice->pszDisplayText));
      return;
    }
    field.add("Remark", Words{"a notice that is not a plain text"});
  }
  field.add("Value", Copy(encoded));
}

void Policies(const CERT_POLICIES_INFO& info, Field& out) {
  Field& list = out.addList("Policies");
  for (DWORD i = 0; i < info.cPolicyInfo; ++i) {
    const CERT_POLICY_INFO& policy = info.rgPolicyInfo[i];
    Field& field = list.add("", NamedOid(policy.pszPolicyIdentifier, CRYPT_POLICY_OID_GROUP_ID));
    if (!policy.cPolicyQualifier) continue;
    Field& qualifiers = field.addList("Qualifiers");
    for (DWORD j = 0; j < policy.cPolicyQualifier; ++j) AddQualifier(policy.rgPolicyQualifier[j], qualifiers);
  }
}

void PolicyMappings(const CERT_POLICY_MAPPINGS_INFO& info, Field& out) {
  Field& list = out.addList("Mappings");
  for (DWORD i = 0; i < info.cPolicyMapping; ++i) {
    Field& field = list.add("");
    field.add("Issuer policy",
              NamedOid(info.rgPolicyMapping[i].pszIssuerDomainPolicy, CRYPT_POLICY_OID_GROUP_ID));
    field.add("Subject policy",
              NamedOid(info.rgPolicyMapping[i].pszSubjectDomainPolicy, CRYPT_POLICY_OID_GROUP_ID));
  }
}

void PolicyConstraints(const CERT_POLICY_CONSTRAINTS_INFO& info, Field& out) {
  if (info.fRequireExplicitPolicy) {
    out.add("Require explicit policy", Signed(info.dwRequireExplicitPolicySkipCerts));
  }
  if (info.fInhibitPolicyMapping)
    out.add("Inhibit policy mapping", Signed(info.dwInhibitPolicyMappingSkipCerts));
}

void Template(const CERT_TEMPLATE_EXT& info, Field& out) {
  out.add("Template", NamedOid(info.pszObjId, CRYPT_TEMPLATE_OID_GROUP_ID));
  out.add("Major version", Signed(info.dwMajorVersion));
  if (info.fMinorVersion) out.add("Minor version", Signed(info.dwMinorVersion));
}

void Number(const CRYPT_INTEGER_BLOB& number, Field& out) {
  out.add("Number", Words{NumberText(BytesOf(number))});
}

void Reason(const DWORD& code, Field& out) { out.add("Reason", ReasonWords(code)); }

void Moment(const FILETIME& time, Field& out) { out.add("Time", Words{TimeText(time)}); }

void Instruction(const LPSTR& oid, Field& out) { out.add("Instruction", NamedOid(oid)); }

void AnyString(const CERT_NAME_VALUE& value, Field& out) {
  if (value.dwValueType <= CERT_RDN_OCTET_STRING) {
    AddBytes(out, "Value", BytesOf(value.Value));
    return;
  }
  const auto* text = reinterpret_cast<const wchar_t*>(value.Value.pbData);
  out.add("Text", Text{Utf8Of(std::wstring_view(text, value.Value.cbData / sizeof(wchar_t)))});
}

// IssuerSignTool ::= SEQUENCE { signTool, cATool, signToolCert, cAToolCert UTF8String }
void IssuerSignTool(const CRYPT_SEQUENCE_OF_ANY& texts, Field& out) {
  static constexpr std::string_view kLabels[] = {"Signature tool", "CA tool", "Signature tool certificate",
                                                 "CA tool certificate"};
  for (DWORD i = 0; i < texts.cValue && i < std::size(kLabels); ++i)
    out.add(kLabels[i], StringOrBytes(BytesOf(texts.rgValue[i])));
  if (texts.cValue <= std::size(kLabels)) return;
  Field& more = out.addList("More");
  for (DWORD i = std::size(kLabels); i < texts.cValue; ++i)
    more.add("", StringOrBytes(BytesOf(texts.rgValue[i])));
}

// --- the table ---

struct ExtensionRow {
  std::string_view oid;
  const char* name;
  LPCSTR type;
  void (*addFields)(const void* record, Field& out);
};

// What the record of a writer of fields is.
template <typename Record>
Record RecordOf(void (*)(const Record&, Field&));

template <auto kFields>
ExtensionRow Row(const char* oid, const char* name, LPCSTR type) {
  using Record = decltype(RecordOf(kFields));
  return {oid, name, type,
          [](const void* record, Field& out) { kFields(*static_cast<const Record*>(record), out); }};
}
ExtensionRow NameOnly(const char* oid, const char* name) { return {oid, name, nullptr, nullptr}; }

constexpr char kTemplateNameOid[] = "1.3.6.1.4.1.311.20.2";

const ExtensionRow kExtensions[] = {
    Row<BasicConstraints>(szOID_BASIC_CONSTRAINTS2, "Basic constraints", X509_BASIC_CONSTRAINTS2),
    Row<KeyUsage>(szOID_KEY_USAGE, "Key usage", X509_KEY_USAGE),
    Row<EnhancedKeyUsage>(szOID_ENHANCED_KEY_USAGE, "Extended key usage", X509_ENHANCED_KEY_USAGE),
    Row<AltNames>(szOID_SUBJECT_ALT_NAME, "Subject alternative name", X509_ALTERNATE_NAME),
    Row<AltNames>(szOID_SUBJECT_ALT_NAME2, "Subject alternative name", X509_ALTERNATE_NAME),
    Row<AltNames>(szOID_ISSUER_ALT_NAME, "Issuer alternative name", X509_ALTERNATE_NAME),
    Row<AltNames>(szOID_ISSUER_ALT_NAME2, "Issuer alternative name", X509_ALTERNATE_NAME),
    Row<AltNames>(szOID_CERTIFICATE_ISSUER, "Certificate issuer", X509_ALTERNATE_NAME),
    Row<AuthorityKeyId>(szOID_AUTHORITY_KEY_IDENTIFIER, "Authority key identifier", X509_AUTHORITY_KEY_ID),
    Row<AuthorityKeyId2>(szOID_AUTHORITY_KEY_IDENTIFIER2, "Authority key identifier", X509_AUTHORITY_KEY_ID2),
    Row<SubjectKeyId>(szOID_SUBJECT_KEY_IDENTIFIER, "Subject key identifier", X509_OCTET_STRING),
    Row<DistPoints>(szOID_CRL_DIST_POINTS, "CRL distribution points", X509_CRL_DIST_POINTS),
    Row<DistPoints>(szOID_FRESHEST_CRL, "Freshest CRL", X509_CRL_DIST_POINTS),
    Row<IssuingDistPoint>(szOID_ISSUING_DIST_POINT, "Issuing distribution point", X509_ISSUING_DIST_POINT),
    Row<InformationAccess>(szOID_AUTHORITY_INFO_ACCESS, "Authority information access",
                           X509_AUTHORITY_INFO_ACCESS),
    Row<InformationAccess>(szOID_SUBJECT_INFO_ACCESS, "Subject information access",
                           X509_AUTHORITY_INFO_ACCESS),
    Row<Policies>(szOID_CERT_POLICIES, "Certificate policies", X509_CERT_POLICIES),
    Row<Policies>(szOID_APPLICATION_CERT_POLICIES, "Application policies", X509_CERT_POLICIES),
    Row<PolicyMappings>(szOID_POLICY_MAPPINGS, "Policy mappings", X509_POLICY_MAPPINGS),
    Row<PolicyMappings>(szOID_APPLICATION_POLICY_MAPPINGS, "Application policy mappings",
                        X509_POLICY_MAPPINGS),
    Row<PolicyConstraints>(szOID_POLICY_CONSTRAINTS, "Policy constraints", X509_POLICY_CONSTRAINTS),
    Row<PolicyConstraints>(szOID_APPLICATION_POLICY_CONSTRAINTS, "Application policy constraints",
                           X509_POLICY_CONSTRAINTS),
    Row<Number>(szOID_INHIBIT_ANY_POLICY, "Inhibit any policy", X509_MULTI_BYTE_INTEGER),
    Row<Template>(szOID_CERTIFICATE_TEMPLATE, "Certificate template", X509_CERTIFICATE_TEMPLATE),
    Row<AnyString>(kTemplateNameOid, "Certificate template name", X509_UNICODE_ANY_STRING),
    Row<Number>(szOID_CERTSRV_CA_VERSION, "CA version", X509_MULTI_BYTE_INTEGER),
    Row<Number>(szOID_CRL_NUMBER, "CRL number", X509_MULTI_BYTE_INTEGER),
    Row<Number>(szOID_DELTA_CRL_INDICATOR, "Delta CRL indicator", X509_MULTI_BYTE_INTEGER),
    Row<Reason>(szOID_CRL_REASON_CODE, "Reason code", X509_CRL_REASON_CODE),
    Row<Instruction>(szOID_REASON_CODE_HOLD, "Hold instruction code", X509_OBJECT_IDENTIFIER),
    Row<Moment>(szOID_INVALIDITY_DATE, "Invalidity date", X509_CHOICE_OF_TIME),
    Row<AnyString>(szOID_SUBJECT_SIGN_TOOL, "Subject signature tool", X509_UNICODE_ANY_STRING),
    Row<IssuerSignTool>(szOID_ISSUER_SIGN_TOOL, "Issuer signature tool", X509_SEQUENCE_OF_ANY),
    Row<Number>(szOID_IDENTIFICATION_KIND, "Identification kind", X509_MULTI_BYTE_INTEGER),
    // known by name, without a record
    NameOnly(szOID_PRIVATEKEY_USAGE_PERIOD, "Private key usage period"),
    NameOnly(szOID_NAME_CONSTRAINTS, "Name constraints"),
    NameOnly(szOID_PKIX_OCSP_NOCHECK, "OCSP no check"),
};

const ExtensionRow* FindRow(std::string_view oid) {
  const auto row = std::find_if(std::begin(kExtensions), std::end(kExtensions),
                                [oid](const ExtensionRow& candidate) { return candidate.oid == oid; });
  return row == std::end(kExtensions) ? nullptr : row;
}

// Adds what the record says. False leaves the field without it.
bool AddDecoded(const ExtensionRow& row, std::span<const BYTE> content, Field& field) {
  const Decoded<void> record = Decode<void>(row.type, content);
  if (!record) return false;
  row.addFields(record.get(), field);
  return true;
}

}  // namespace

Field ExtensionField(const CERT_EXTENSION& extension) {
  const std::span<const BYTE> content = BytesOf(extension.Value);
  Oid id = NamedOid(extension.pszObjId, CRYPT_EXT_OR_ATTR_OID_GROUP_ID);
  const ExtensionRow* row = FindRow(id.dotted);
  if (row) id.name = row->name;  // the same whatever key library is installed
  Field field("", std::move(id));
  field.add("Critical", extension.fCritical != FALSE);
  if (!row || !row->type) {
    field.add("Content", Copy(content));
    return field;
  }
  if (!AddDecoded(*row, content, field)) {
    field.add("Remark", Words{"the content is not what this extension should hold"});
    field.add("Content", Copy(content));
  } else if (ElementSize(content) != content.size()) {
    field.add("Remark", Words{"more follows in this extension than it should hold"});
    field.add("Content", Copy(content));
  }
  return field;
}

void AddExtensions(Field& parent, std::span<const CERT_EXTENSION> extensions) {
  if (extensions.empty()) return;
  Field& list = parent.addList("Extensions");
  for (const CERT_EXTENSION& extension : extensions) list.add(ExtensionField(extension));
}

std::optional<Words> ReasonOf(const CERT_EXTENSION& extension) {
  const std::string_view oid = extension.pszObjId ? extension.pszObjId : "";
  if (oid != szOID_CRL_REASON_CODE || extension.fCritical) return std::nullopt;
  const std::span<const BYTE> content = BytesOf(extension.Value);
  const auto code = Decode<DWORD>(X509_CRL_REASON_CODE, content);
  if (!code || ElementSize(content) != content.size()) return std::nullopt;
  return ReasonWords(*code);
}

}  // namespace certkern::cli
