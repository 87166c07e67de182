#include "interop/object_match.h"

#include "interop/asn1_tree.h"
#include "support/hex.h"

#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <map>
#include <set>

namespace {

constexpr char kContext0[] = "cont [ 0 ]";
constexpr char kContext3[] = "cont [ 3 ]";

// --- openssl's reading in the terms of the records ---

std::span<const BYTE> BytesOf(const CRYPT_DATA_BLOB& blob) { return {blob.pbData, blob.cbData}; }

std::string ReversedHex(std::span<const BYTE> bytes) { return ToHex(Bytes(bytes.rbegin(), bytes.rend())); }

// 100 ns since 1601, by the C library's calendar.
uint64_t MomentOf(const Asn1Node& time) {
  std::tm parts{};
  const bool shortYear = time.is("UTCTIME");
  const int fields = std::sscanf(time.text.c_str(), shortYear ? "%2d%2d%2d%2d%2d%2dZ" : "%4d%2d%2d%2d%2d%2dZ",
                                 &parts.tm_year, &parts.tm_mon, &parts.tm_mday, &parts.tm_hour, &parts.tm_min,
                                 &parts.tm_sec);
  EXPECT_EQ(fields, 6) << time.text;
  if (shortYear && parts.tm_year < 50) parts.tm_year += 100;
  if (!shortYear) parts.tm_year -= 1900;
  --parts.tm_mon;
  return static_cast<uint64_t>(timegm(&parts) + 11644473600) * 10000000u;
}

void ExpectMoment(const FILETIME& time, const Asn1Node& expected) {
  EXPECT_EQ(uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime, MomentOf(expected)) << expected.text;
}

void ExpectAlgorithm(const CRYPT_ALGORITHM_IDENTIFIER& algorithm, const Asn1Node& expected) {
  EXPECT_EQ(algorithm.pszObjId, expected[0].oid());
  const std::string parameters = expected.children.size() > 1 ? ToHex(expected[1].whole) : "";
  EXPECT_EQ(ToHex(BytesOf(algorithm.Parameters)), parameters);
}

void ExpectBits(const CRYPT_BIT_BLOB& bits, const Asn1Node& expected) {
  ASSERT_FALSE(expected.content.empty());
  EXPECT_EQ(bits.cUnusedBits, expected.content[0]);
  EXPECT_EQ(ToHex({bits.pbData, bits.cbData}), ToHex(expected.content.subspan(1)));
}

void ExpectPublicKey(const CERT_PUBLIC_KEY_INFO& info, const Asn1Node& expected) {
  ExpectAlgorithm(info.Algorithm, expected[0]);
  ExpectBits(info.PublicKey, expected[1]);
}

// --- what is read is written again as it was ---

// Any element of a tree that answers to a question.
template <typename Question>
bool AnyOf(const Asn1Node& node, const Question& question) {
  return question(node)
      || std::any_of(node.children.begin(), node.children.end(),
                     [&](const Asn1Node& child) { return AnyOf(child, question); });
}

bool HasEarlyGeneralizedTime(const Asn1Node& read) {
  return AnyOf(read, [](const Asn1Node& node) {
    return node.is("GENERALIZEDTIME") && node.text.substr(0, 4) >= "1950" && node.text.substr(0, 4) <= "2049";
  });
}
bool HasOldString(const Asn1Node& read) {
  return AnyOf(read, [](const Asn1Node& node) { return node.is("T61STRING"); });
}
bool SpellsFalse(const Asn1Node& read) { return read[0].is("BOOLEAN") && read[0].content[0] == 0; }
bool HasRelativeName(const Asn1Node& read) {
  return AnyOf(read, [](const Asn1Node& node) { return node.is(kContext0) && node[0].is("cont [ 1 ]"); });
}
bool HasIssuer(const Asn1Node& read) {
  return AnyOf(read, [](const Asn1Node& node) { return node.is("cont [ 1 ]") && !node.children.empty(); });
}
bool EndsInEmptySet(const Asn1Node& read) { return read.children.back().content.empty(); }

struct KnownDifference {
  const char* subject;  // the OID of the extension, or the name of the structure; null: any
  bool (*applies)(const Asn1Node& read);
  bool decodes;
  const char* reason;
};
const KnownDifference kKnownDifferences[] = {
    {nullptr,     HasEarlyGeneralizedTime, true,
     "RFC 5280, 4.1.2.5: a year that UTCTime holds is written as UTCTime"                                                 },
    {"name",      HasOldString,            false, "a Teletex value has no sure reading, so that only an empty one is read"},
    {"2.5.29.19", SpellsFalse,             true,  "DER leaves out what is the default"                                    },
    {"2.5.29.31", HasRelativeName,         false, "a name relative to the issuer is not read"                             },
    {"2.5.29.1",  HasIssuer,               true,  "the issuer is written as opaque bytes, without the constructed bit"    },
    {"request",   EndsInEmptySet,          true,  "without attributes the field is left out"                              },
};
std::set<const KnownDifference*> metDifferences;
std::map<std::string, size_t> rewritten;

// A difference that no object of a whole run met has vanished, and its row has to go.
class AllDifferencesMet : public testing::Environment {
  void TearDown() override {
    if (testing::GTEST_FLAG(filter) != "*") return;
    for (const KnownDifference& known : kKnownDifferences) {
      EXPECT_TRUE(metDifferences.count(&known)) << "no object met: " << known.reason;
    }
  }
};
const testing::Environment* const allDifferencesMet =
    testing::AddGlobalTestEnvironment(new AllDifferencesMet);

bool IsKnownDifference(const std::string& subject, std::span<const BYTE> der, bool decodes) {
  const Asn1Node read = ParseWithOpenssl(der);
  for (const KnownDifference& known : kKnownDifferences) {
    if ((known.subject && subject != known.subject) || decodes != known.decodes || !known.applies(read))
      continue;
    metDifferences.insert(&known);
    return true;
  }
  return false;
}

// written: empty when the object did not even decode.
void ExpectRewritten(const std::string& subject, std::span<const BYTE> der, const Bytes& written) {
  const DWORD code = GetLastError();
  ++rewritten[subject];
  if (std::equal(der.begin(), der.end(), written.begin(), written.end())) return;
  EXPECT_TRUE(IsKnownDifference(subject, der, !written.empty()))
      << subject << "\nread    " << ToHex(der) << "\nwritten " << ToHex(written) << " code " << std::hex
      << code;
}

void ExpectRewrites(const std::string& subject, LPCSTR type, std::span<const BYTE> der) {
  const auto record = Decode<void>(type, der);
  ExpectRewritten(subject, der, record ? Encode(type, record.get()) : Bytes());
}

// A name with wide values is checked, when written, for characters that its types do not have; what came from a
// certificate is written as it came.
void ExpectWideNameRewrites(std::span<const BYTE> der) {
  const auto name = Decode<CERT_NAME_INFO>(X509_UNICODE_NAME, der);
  ASSERT_TRUE(name) << ToHex(der);
  for (CERT_RDN& rdn : std::span(name->rgRDN, name->cRDN)) {
    for (CERT_RDN_ATTR& attribute : std::span(rdn.rgRDNAttr, rdn.cRDNAttr)) {
      attribute.dwValueType |= CERT_RDN_DISABLE_CHECK_TYPE_FLAG;
    }
  }
  ExpectRewritten("wide name", der, Encode(X509_UNICODE_NAME, name.get()));
}

void ExpectName(const CERT_NAME_BLOB& blob, const Asn1Node& expected) {
  EXPECT_EQ(ToHex(BytesOf(blob)), ToHex(expected.whole));
  if (expected.children.empty()) return;  // no relative name: the encoder leaves out the SEQUENCE as well
  ExpectRewrites("name", X509_NAME, expected.whole);
  ExpectWideNameRewrites(expected.whole);
}

// Extensions that have a codec, under their own OID or under a type that fits.
struct ExtensionCodec {
  const char* oid;
  LPCSTR type;  // null: the OID itself
};
const ExtensionCodec kExtensionCodecs[] = {
    {"1.3.6.1.5.5.7.1.1",  nullptr                   },
    {"1.3.6.1.5.5.7.1.11", X509_AUTHORITY_INFO_ACCESS},
    {"2.5.29.1",           nullptr                   },
    {"2.5.29.14",          nullptr                   },
    {"2.5.29.15",          nullptr                   },
    {"2.5.29.17",          nullptr                   },
    {"2.5.29.18",          nullptr                   },
    {"2.5.29.19",          nullptr                   },
    {"2.5.29.20",          nullptr                   },
    {"2.5.29.21",          nullptr                   },
    {"2.5.29.23",          X509_OBJECT_IDENTIFIER    },
    {"2.5.29.24",          X509_CHOICE_OF_TIME       },
    {"2.5.29.27",          X509_INTEGER              },
    {"2.5.29.28",          nullptr                   },
    {"2.5.29.31",          nullptr                   },
    {"2.5.29.32",          nullptr                   },
    {"2.5.29.33",          nullptr                   },
    {"2.5.29.35",          nullptr                   },
    {"2.5.29.37",          nullptr                   },
    {"2.5.29.46",          X509_CRL_DIST_POINTS      },
    {"2.5.29.54",          X509_INTEGER              },
};

// These are read only, so that the fields have to be compared.
void ExpectPolicyConstraints(std::span<const BYTE> der) {
  ++rewritten["2.5.29.36"];
  const Asn1Node expected = ParseWithOpenssl(der);
  const auto info = Decode<CERT_POLICY_CONSTRAINTS_INFO>("2.5.29.36", der);
  ASSERT_TRUE(info);
  const auto field = [&](const char* tag, BOOL present, DWORD skipCerts) {
    const auto found = std::find_if(expected.children.begin(), expected.children.end(),
                                    [&](const Asn1Node& child) { return child.is(tag); });
    EXPECT_EQ(present != FALSE, found != expected.children.end());
    if (present && found != expected.children.end()) {
      EXPECT_EQ(ToHex(found->content), ToHex(Bytes{static_cast<BYTE>(skipCerts)}));
    }
  };
  field(kContext0, info->fRequireExplicitPolicy, info->dwRequireExplicitPolicySkipCerts);
  field("cont [ 1 ]", info->fInhibitPolicyMapping, info->dwInhibitPolicyMappingSkipCerts);
  EXPECT_TRUE(Encode("2.5.29.36", info.get()).empty());
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_BAD_ENCODE});
}

void ExpectValueRewrites(const CERT_EXTENSION& extension) {
  const auto* codec =
      std::find_if(std::begin(kExtensionCodecs), std::end(kExtensionCodecs),
                   [&](const ExtensionCodec& row) { return std::string(row.oid) == extension.pszObjId; });
  const auto value = BytesOf(extension.Value);
  if (std::string("2.5.29.36") == extension.pszObjId) return ExpectPolicyConstraints(value);
  if (codec == std::end(kExtensionCodecs)) {
    EXPECT_FALSE(Decode<void>(extension.pszObjId, value)) << extension.pszObjId;
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER})
        << extension.pszObjId << " has a codec now: add it";
    return;
  }
  ExpectRewrites(codec->oid, codec->type ? codec->type : codec->oid, value);
}

void ExpectExtensions(std::span<const CERT_EXTENSION> extensions, const Asn1Node& expected) {
  ASSERT_EQ(extensions.size(), expected.children.size());
  for (size_t i = 0; i < extensions.size(); ++i) {
    const Asn1Node& element = expected[i];
    const bool hasFlag = element[1].is("BOOLEAN");
    EXPECT_EQ(extensions[i].pszObjId, element[0].oid());
    EXPECT_EQ(extensions[i].fCritical != FALSE, hasFlag && element[1].content[0] != 0);
    EXPECT_EQ(ToHex(BytesOf(extensions[i].Value)), ToHex(element[hasFlag ? 2 : 1].content));
    ExpectValueRewrites(extensions[i]);
  }
  if (!extensions.empty()) ExpectRewrites("extensions", X509_EXTENSIONS, expected.whole);
}

// The frame of a signed object.
void ExpectSignedContent(std::span<const BYTE> der, const Asn1Node& expected) {
  const auto content = Decode<CERT_SIGNED_CONTENT_INFO>(X509_CERT, der);
  ASSERT_TRUE(content) << std::hex << GetLastError();
  EXPECT_EQ(ToHex(BytesOf(content->ToBeSigned)), ToHex(expected[0].whole));
  ExpectAlgorithm(content->SignatureAlgorithm, expected[1]);
  ExpectBits(content->Signature, expected[2]);
  ExpectRewritten("signed object", der, Encode(X509_CERT, content.get()));
}

}  // namespace

Bytes Encode(LPCSTR type, const void* record) {
  BYTE* encoded = nullptr;
  DWORD size = 0;
  if (!CryptEncodeObjectEx(X509_ASN_ENCODING, type, record, CRYPT_ENCODE_ALLOC_FLAG, nullptr, &encoded,
                           &size))
    return {};
  const Decoded<BYTE> owner(encoded);
  return {encoded, encoded + size};
}

size_t CountRewritten(const std::string& subject) { return rewritten[subject]; }

void ExpectCertificateMatches(std::span<const BYTE> der) {
  const Asn1Node root = ParseWithOpenssl(der);
  const Asn1Node& tbs = root[0];
  ExpectSignedContent(der, root);
  const auto info = Decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, der);
  ASSERT_TRUE(info) << std::hex << GetLastError();
  size_t at = 0;
  const DWORD version = tbs[0].is(kContext0) ? tbs[at++][0].content[0] : 0u;
  EXPECT_EQ(info->dwVersion, version);
  EXPECT_EQ(ToHex(BytesOf(info->SerialNumber)), ReversedHex(tbs[at++].content));
  ExpectAlgorithm(info->SignatureAlgorithm, tbs[at++]);
  ExpectName(info->Issuer, tbs[at++]);
  ExpectMoment(info->NotBefore, tbs[at][0]);
  ExpectMoment(info->NotAfter, tbs[at++][1]);
  ExpectName(info->Subject, tbs[at++]);
  ExpectPublicKey(info->SubjectPublicKeyInfo, tbs[at]);
  ExpectRewrites("public key info", X509_PUBLIC_KEY_INFO, tbs[at++].whole);
  static const Asn1Node kNone;
  const Asn1Node& last = tbs.children.back();
  ExpectExtensions({info->rgExtension, info->cExtension}, last.is(kContext3) ? last[0] : kNone);
  ExpectRewritten("certificate", tbs.whole, Encode(X509_CERT_TO_BE_SIGNED, info.get()));
  const auto bare = Decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, tbs.whole, CRYPT_DECODE_TO_BE_SIGNED_FLAG);
  ASSERT_TRUE(bare);
  EXPECT_EQ(Encode(X509_CERT_TO_BE_SIGNED, bare.get()), Encode(X509_CERT_TO_BE_SIGNED, info.get()));
}

void ExpectListMatches(std::span<const BYTE> der) {
  const Asn1Node root = ParseWithOpenssl(der);
  const Asn1Node& tbs = root[0];
  ExpectSignedContent(der, root);
  const auto info = Decode<CRL_INFO>(X509_CERT_CRL_TO_BE_SIGNED, der);
  if (!tbs[0].is("INTEGER") || tbs.children.size() < 5 || (tbs[4].isTime() && tbs.children.size() < 6)) {
    // a list of the first version, or one that says nothing, is refused
    EXPECT_FALSE(info);
    EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_ASN1_ERROR});
    return;
  }
  ASSERT_TRUE(info) << std::hex << GetLastError();
  EXPECT_EQ(info->dwVersion, tbs[0].content[0]);
  ExpectAlgorithm(info->SignatureAlgorithm, tbs[1]);
  ExpectName(info->Issuer, tbs[2]);
  ExpectMoment(info->ThisUpdate, tbs[3]);
  size_t at = 4;
  if (tbs[at].isTime()) ExpectMoment(info->NextUpdate, tbs[at++]);
  static const Asn1Node kNone;
  const Asn1Node& entries = tbs[at].is("SEQUENCE") ? tbs[at] : kNone;
  ASSERT_EQ(info->cCRLEntry, entries.children.size());
  for (size_t i = 0; i < info->cCRLEntry; ++i) {
    SCOPED_TRACE("entry " + std::to_string(i));
    const CRL_ENTRY& entry = info->rgCRLEntry[i];
    EXPECT_EQ(ToHex(BytesOf(entry.SerialNumber)), ReversedHex(entries[i][0].content));
    ExpectMoment(entry.RevocationDate, entries[i][1]);
    ExpectExtensions({entry.rgExtension, entry.cExtension},
                     entries[i].children.size() > 2 ? entries[i][2] : kNone);
  }
  const Asn1Node& last = tbs.children.back();
  ExpectExtensions({info->rgExtension, info->cExtension}, last.is(kContext0) ? last[0] : kNone);
  ExpectRewritten("list", tbs.whole, Encode(X509_CERT_CRL_TO_BE_SIGNED, info.get()));
}

void ExpectRequestMatches(std::span<const BYTE> der) {
  const Asn1Node root = ParseWithOpenssl(der);
  const Asn1Node& body = root[0];
  ExpectSignedContent(der, root);
  const auto info = Decode<CERT_REQUEST_INFO>(X509_CERT_REQUEST_TO_BE_SIGNED, der);
  ASSERT_TRUE(info) << std::hex << GetLastError();
  EXPECT_EQ(info->dwVersion, body[0].content[0]);
  ExpectName(info->Subject, body[1]);
  ExpectPublicKey(info->SubjectPublicKeyInfo, body[2]);
  static const Asn1Node kNone;
  const Asn1Node& attributes = body.children.size() > 3 ? body[3] : kNone;
  ASSERT_EQ(info->cAttribute, attributes.children.size());
  for (size_t i = 0; i < info->cAttribute; ++i) {
    const CRYPT_ATTRIBUTE& attribute = info->rgAttribute[i];
    EXPECT_EQ(attribute.pszObjId, attributes[i][0].oid());
    const Asn1Node& values = attributes[i][1];
    ASSERT_EQ(attribute.cValue, values.children.size());
    for (size_t k = 0; k < attribute.cValue; ++k) {
      EXPECT_EQ(ToHex(BytesOf(attribute.rgValue[k])), ToHex(values[k].whole));
    }
    EXPECT_EQ(ToHex(Encode(PKCS_ATTRIBUTE, &attribute)), ToHex(attributes[i].whole));
  }
  ExpectRewritten("request", body.whole, Encode(X509_CERT_REQUEST_TO_BE_SIGNED, info.get()));
}
