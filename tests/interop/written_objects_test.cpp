// What certkern writes, openssl reads: a certificate with every extension that has an encoder, a revocation list and a
// request, each signed by openssl over our bytes and verified by it.
#include "interop/asn1_tree.h"
#include "interop/object_match.h"
#include "support/hex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <fstream>
#include <iterator>
#include <string>

namespace {

LPSTR Text(const char* text) { return const_cast<LPSTR>(text); }
LPWSTR Text(const wchar_t* text) { return const_cast<LPWSTR>(text); }
CRYPT_DATA_BLOB Blob(const Bytes& bytes) {
  return {static_cast<DWORD>(bytes.size()), const_cast<BYTE*>(bytes.data())};
}
template <typename Record, size_t kCount>
DWORD CountOf(const Record (&)[kCount]) {
  return DWORD{kCount};
}

FILETIME Moment(std::time_t seconds) {
  const uint64_t units = (static_cast<uint64_t>(seconds) + 11644473600) * 10000000u;
  return {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
}
constexpr std::time_t kDay = 86400;

// Runs of blanks and line ends as one blank: openssl's layout is not the matter here.
std::string Folded(const std::string& text) {
  std::string folded;
  for (const char c : text) {
    const bool blank = std::isspace(static_cast<unsigned char>(c)) != 0;
    if (!blank) folded += c;
    if (blank && !folded.empty() && folded.back() != ' ') folded += ' ';
  }
  return folded;
}

const std::string& Openssl() {
  static const std::string kCommand =
      "cd '" + WorkDirectory().string() + "' && OPENSSL_CONF=/dev/null openssl ";
  return kCommand;
}

// --- names ---

// One attribute of each string type, its value as X509_NAME takes it.
struct NameString {
  DWORD type;
  const char* value;  // hexadecimal, as the record holds it: wide types have 32-bit characters
  const char* opensslType;
  const char* content;  // hexadecimal, by X.690 and Unicode
};
const NameString kNameStrings[] = {
    {CERT_RDN_OCTET_STRING,     "00FF",             "OCTET STRING",    "00FF"            },
    {CERT_RDN_NUMERIC_STRING,   "3720",             "NUMERICSTRING",   "3720"            },
    {CERT_RDN_PRINTABLE_STRING, "4131",             "PRINTABLESTRING", "4131"            },
    {CERT_RDN_TELETEX_STRING,   "C4",               "T61STRING",       "C4"              },
    {CERT_RDN_VIDEOTEX_STRING,  "41",               "VIDEOTEXSTRING",  "41"              },
    {CERT_RDN_IA5_STRING,       "40",               "IA5STRING",       "40"              },
    {CERT_RDN_GRAPHIC_STRING,   "41",               "GRAPHICSTRING",   "41"              },
    {CERT_RDN_VISIBLE_STRING,   "41",               "VISIBLESTRING",   "41"              },
    {CERT_RDN_GENERAL_STRING,   "41",               "GENERALSTRING",   "41"              },
    {CERT_RDN_UNIVERSAL_STRING, "2F04000000F60100", "UNIVERSALSTRING", "0000042F0001F600"},
    {CERT_RDN_BMP_STRING,       "2F04000041000000", "BMPSTRING",       "042F0041"        },
    {CERT_RDN_UTF8_STRING,      "2F04000000F60100", "UTF8STRING",      "D0AFF09F9880"    },
};

TEST(WrittenObjects, NamesOfEveryStringType) {
  std::vector<Bytes> values;
  std::vector<CERT_RDN_ATTR> attributes;
  for (const NameString& row : kNameStrings) values.push_back(FromHex(row.value));
  for (size_t i = 0; i < values.size(); ++i) {
    attributes.push_back({Text("2.5.4.3"), kNameStrings[i].type, Blob(values[i])});
  }
  // the last relative name has two attributes
  std::vector<CERT_RDN> rdns;
  for (size_t i = 0; i + 2 < attributes.size(); ++i) rdns.push_back({1, &attributes[i]});
  rdns.push_back({2, &attributes[attributes.size() - 2]});
  const CERT_NAME_INFO name = {static_cast<DWORD>(rdns.size()), rdns.data()};
  const Bytes der = Encode(X509_NAME, &name);
  ASSERT_FALSE(der.empty()) << std::hex << GetLastError();
  const Asn1Node read = ParseWithOpenssl(der);
  ASSERT_EQ(read.children.size(), rdns.size());
  for (size_t i = 0; i < attributes.size(); ++i) {
    SCOPED_TRACE(kNameStrings[i].opensslType);
    const Asn1Node& rdn = read[std::min(i, rdns.size() - 1)];
    const Asn1Node& attribute = rdn[i < rdns.size() ? 0 : 1];
    EXPECT_EQ(attribute[0].oid(), "2.5.4.3");
    EXPECT_EQ(attribute[1].type, kNameStrings[i].opensslType);
    EXPECT_EQ(ToHex(attribute[1].content), kNameStrings[i].content);
  }
}

// openssl prints a BMPString up to its first zero octet, which is mostly the first; the elements tell.
TEST(WrittenObjects, UserNotice) {
  const CERT_POLICY_QUALIFIER_USER_NOTICE notice = {nullptr, Text(L"Я1")};
  const Bytes der = Encode("1.3.6.1.5.5.7.2.2", &notice);
  const Asn1Node read = ParseWithOpenssl(der);
  ASSERT_EQ(read.children.size(), 1u);
  EXPECT_EQ(read[0].type, "BMPSTRING");
  EXPECT_EQ(ToHex(read[0].content), "042F0031");
}

Bytes CommonName(const wchar_t* text) {
  CERT_RDN_ATTR attribute = {
      Text("2.5.4.3"), CERT_RDN_UTF8_STRING, {0, reinterpret_cast<BYTE*>(const_cast<wchar_t*>(text))}
  };
  CERT_RDN rdn = {1, &attribute};
  const CERT_NAME_INFO name = {1, &rdn};
  return Encode(X509_UNICODE_NAME, &name);
}

// --- signed objects ---

// A key of openssl's, and objects that it signs with it.
class Signer {
 public:
  Signer() {
    RunShell(Openssl() + "genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out key.pem");
    RunShell(Openssl() + "pkey -in key.pem -pubout -outform DER -out key.der");
    key_ = Decode<CERT_PUBLIC_KEY_INFO>(X509_PUBLIC_KEY_INFO, ReadFile(WorkDirectory() / "key.der"));
  }
  const CERT_PUBLIC_KEY_INFO& key() const { return *key_; }
  static CRYPT_ALGORITHM_IDENTIFIER algorithm() { return {Text("1.2.840.10045.4.3.2"), {}}; }

  // Into a file of the work directory.
  static void write(const Bytes& toBeSigned, const std::string& file) {
    ASSERT_FALSE(toBeSigned.empty()) << std::hex << GetLastError();
    WriteScratch(toBeSigned);
    RunShell(Openssl() + "dgst -sha256 -sign key.pem -out signature scratch.der");
    const Bytes signature = ReadFile(WorkDirectory() / "signature");
    const CERT_SIGNED_CONTENT_INFO content = {
        Blob(toBeSigned), algorithm(), {Blob(signature).cbData, Blob(signature).pbData, 0}
    };
    const Bytes object = Encode(X509_CERT, &content);
    std::ofstream out(WorkDirectory() / file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(object.data()), static_cast<std::streamsize>(object.size()));
  }

 private:
  Decoded<CERT_PUBLIC_KEY_INFO> key_;
};

// An extension as a program builds it, and the words that openssl finds in it.
struct WrittenExtension {
  const char* oid;
  BOOL critical;
  Bytes value;
  std::string words;
};

std::vector<WrittenExtension> WriteExtensions() {
  std::vector<WrittenExtension> written;
  const auto add = [&](const char* oid, LPCSTR type, const void* record, const char* words,
                       BOOL critical = FALSE) {
    written.push_back({oid, critical, Encode(type, record), words});
  };
  const Bytes directory = CommonName(L"directory");
  const Bytes keyId = FromHex("0102030405060708");
  const Bytes serial = FromHex("EFCDAB89674523F1");  // negative, of which openssl prints the magnitude

  BYTE usage[] = {0x86, 0x80};
  const CRYPT_BIT_BLOB usageBits = {2, usage, 0};
  add("2.5.29.15", "2.5.29.15", &usageBits,
      "X509v3 Key Usage: critical Digital Signature, Certificate Sign, CRL Sign, Decipher Only", TRUE);

  const CERT_BASIC_CONSTRAINTS2_INFO constraints = {TRUE, TRUE, 200};
  add("2.5.29.19", "2.5.29.19", &constraints, "X509v3 Basic Constraints: critical CA:TRUE, pathlen:200",
      TRUE);

  const CRYPT_DATA_BLOB subjectKeyId = Blob(keyId);
  add("2.5.29.14", "2.5.29.14", &subjectKeyId, "X509v3 Subject Key Identifier: 01:02:03:04:05:06:07:08");

  BYTE otherValue[] = {0x0C, 0x01, 'u'};
  CERT_OTHER_NAME otherName = {
      Text("1.3.6.1.4.1.311.20.2.3"), {sizeof(otherValue), otherValue}
  };
  BYTE v4[] = {192, 0, 2, 1};
  BYTE v6[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  CERT_ALT_NAME_ENTRY names[8] = {};
  names[0] = {CERT_ALT_NAME_OTHER_NAME, {.pOtherName = &otherName}};
  names[1] = {CERT_ALT_NAME_RFC822_NAME, {.pwszRfc822Name = Text(L"user@example.org")}};
  names[2] = {CERT_ALT_NAME_DNS_NAME, {.pwszDNSName = Text(L"*.example.org")}};
  names[3] = {CERT_ALT_NAME_DIRECTORY_NAME, {.DirectoryName = Blob(directory)}};
  names[4] = {CERT_ALT_NAME_URL, {.pwszURL = Text(L"https://example.org/?a")}};
  names[5] = {CERT_ALT_NAME_IP_ADDRESS, {.IPAddress = {sizeof(v4), v4}}};
  names[6] = {CERT_ALT_NAME_IP_ADDRESS, {.IPAddress = {sizeof(v6), v6}}};
  names[7] = {CERT_ALT_NAME_REGISTERED_ID, {.pszRegisteredID = Text("2.39.1")}};
  const CERT_ALT_NAME_INFO altNames = {CountOf(names), names};
  add("2.5.29.17", "2.5.29.17", &altNames,
      "X509v3 Subject Alternative Name: othername: UPN::u, email:user@example.org, DNS:*.example.org, "
      "DirName:/CN=directory, URI:https://example.org/?a, IP Address:192.0.2.1, "
      "IP Address:2001:DB8:0:0:0:0:0:1, Registered ID:2.39.1");

  const CERT_AUTHORITY_KEY_ID2_INFO authority = {
      Blob(keyId), {1, &names[3]},
       Blob(serial)
  };
  add("2.5.29.35", "2.5.29.35", &authority,
      "X509v3 Authority Key Identifier: keyid:01:02:03:04:05:06:07:08 DirName:/CN=directory "
      "serial:0E:DC:BA:98:76:54:32:11");

  LPSTR usages[] = {Text("1.3.6.1.5.5.7.3.1"), Text("1.2.643.2.2.34.6")};
  const CERT_ENHKEY_USAGE enhanced = {CountOf(usages), usages};
  add("2.5.29.37", "2.5.29.37", &enhanced,
      "X509v3 Extended Key Usage: TLS Web Server Authentication, 1.2.643.2.2.34.6");

  const CERT_POLICY_QUALIFIER_USER_NOTICE notice = {nullptr, Text(L"Read this")};
  const Bytes noticeDer = Encode(X509_PKIX_POLICY_QUALIFIER_USERNOTICE, &notice);
  CERT_POLICY_QUALIFIER_INFO qualifier = {Text("1.3.6.1.5.5.7.2.2"), Blob(noticeDer)};
  CERT_POLICY_INFO policies[] = {
      {Text("2.23.140.1.2.1"), 0, nullptr   },
      {Text("1.2.3.4.5"),      1, &qualifier}
  };
  const CERT_POLICIES_INFO policyList = {CountOf(policies), policies};
  add("2.5.29.32", "2.5.29.32", &policyList,
      "X509v3 Certificate Policies: Policy: 2.23.140.1.2.1 Policy: 1.2.3.4.5 User Notice: Explicit Text:");

  CERT_POLICY_MAPPING mapping = {Text("1.2.3.4.5"), Text("1.2.3.4.6")};
  const CERT_POLICY_MAPPINGS_INFO mappings = {1, &mapping};
  add("2.5.29.33", "2.5.29.33", &mappings, "X509v3 Policy Mappings: 1.2.3.4.5:1.2.3.4.6");

  CERT_ACCESS_DESCRIPTION access[] = {
      {Text("1.3.6.1.5.5.7.48.1"), names[4]},
      {Text("1.3.6.1.5.5.7.48.2"), names[3]}
  };
  const CERT_AUTHORITY_INFO_ACCESS accessList = {CountOf(access), access};
  add("1.3.6.1.5.5.7.1.1", "1.3.6.1.5.5.7.1.1", &accessList,
      "Authority Information Access: OCSP - URI:https://example.org/?a CA Issuers - DirName:/CN=directory");

  BYTE reasons[] = {0x60};
  CRL_DIST_POINT points[2] = {};
  points[0].DistPointName = {CRL_DIST_POINT_FULL_NAME, {{1, &names[4]}}};
  points[1].ReasonFlags = {1, reasons, 5};
  points[1].CRLIssuer = {1, &names[3]};
  const CRL_DIST_POINTS_INFO pointList = {CountOf(points), points};
  add("2.5.29.31", "2.5.29.31", &pointList,
      "X509v3 CRL Distribution Points: Full Name: URI:https://example.org/?a Reasons: Key Compromise, CA "
      "Compromise "
      "CRL Issuer: DirName:CN = directory");
  return written;
}

std::vector<CERT_EXTENSION> ExtensionRecords(const std::vector<WrittenExtension>& written) {
  std::vector<CERT_EXTENSION> records;
  for (const WrittenExtension& extension : written) {
    EXPECT_FALSE(extension.value.empty()) << extension.oid;
    records.push_back({Text(extension.oid), extension.critical, Blob(extension.value)});
  }
  return records;
}

void ExpectWords(const std::string& text, const std::string& words) {
  EXPECT_NE(Folded(text).find(words), std::string::npos) << words << "\nis not in\n" << text;
}

TEST(WrittenObjects, CertificateWithEveryExtension) {
  const Signer signer;
  const Bytes subject = CommonName(L"Корень");
  const Bytes serial = FromHex("8000");  // little-endian: 00 80 would be the same number with a spare octet
  const std::vector<WrittenExtension> extensions = WriteExtensions();
  std::vector<CERT_EXTENSION> records = ExtensionRecords(extensions);
  CERT_INFO info{};
  info.dwVersion = CERT_V3;
  info.SerialNumber = Blob(serial);
  info.SignatureAlgorithm = Signer::algorithm();
  info.Issuer = Blob(subject);
  info.NotBefore = Moment(2524607999);  // 2049-12-31 23:59:59, the last moment of UTCTime
  info.NotAfter = Moment(2524608000);
  info.Subject = Blob(subject);
  info.SubjectPublicKeyInfo = signer.key();
  info.cExtension = static_cast<DWORD>(records.size());
  info.rgExtension = records.data();
  Signer::write(Encode(X509_CERT_TO_BE_SIGNED, &info), "written.crt");

  const std::string text =
      RunShell(Openssl() + "x509 -inform DER -in written.crt -noout -text -nameopt utf8,sep_comma_plus");
  for (const WrittenExtension& extension : extensions) ExpectWords(text, extension.words);
  ExpectWords(text, "Version: 3 (0x2) Serial Number: 128 (0x80)");
  ExpectWords(text, "Subject: CN=Корень");
  ExpectWords(text, "Not Before: Dec 31 23:59:59 2049 GMT Not After : Jan 1 00:00:00 2050 GMT");
  const std::string verified = RunShell(
      Openssl() + "verify -partial_chain -check_ss_sig -attime 2524607999 -trusted written.crt written.crt");
  ExpectWords(verified, "written.crt: OK");
}

TEST(WrittenObjects, RevocationList) {
  const Signer signer;
  const Bytes issuer = CommonName(L"issuer");
  const Bytes serials[] = {FromHex("01"), FromHex("FF00"),
                           FromHex("0102030405060708090A0B0C0D0E0F1011121314")};
  const DWORD reason = CRL_REASON_KEY_COMPROMISE;
  const Bytes reasonDer = Encode("2.5.29.21", &reason);
  CERT_EXTENSION reasonExtension = {Text("2.5.29.21"), FALSE, Blob(reasonDer)};
  CRL_ENTRY entries[3] = {};
  for (size_t i = 0; i < std::size(entries); ++i) {
    entries[i] = {Blob(serials[i]), Moment(1704067200 + static_cast<std::time_t>(i) * kDay), i ? 1u : 0u,
                  i ? &reasonExtension : nullptr};
  }
  CERT_ALT_NAME_ENTRY url{};
  url = {CERT_ALT_NAME_URL, {.pwszURL = Text(L"http://example.org/1.crl")}};
  CRL_ISSUING_DIST_POINT point{};
  point.DistPointName = {CRL_DIST_POINT_FULL_NAME, {{1, &url}}};
  point.fOnlyContainsUserCerts = TRUE;
  point.fIndirectCRL = TRUE;
  const DWORD number = 258;
  const std::vector<WrittenExtension> extensions = {
      {"2.5.29.28", TRUE,  Encode("2.5.29.28", &point),
       "X509v3 Issuing Distribution Point: critical Full Name: URI:http://example.org/1.crl Only User "
       "Certificates "
       "Indirect CRL"                                                            },
      {"2.5.29.20", FALSE, Encode("2.5.29.20", &number), "X509v3 CRL Number: 258"},
  };
  std::vector<CERT_EXTENSION> records = ExtensionRecords(extensions);
  CRL_INFO info{};
  info.dwVersion = 1;
  info.SignatureAlgorithm = Signer::algorithm();
  info.Issuer = Blob(issuer);
  info.ThisUpdate = Moment(1704067200);  // 2024-01-01
  info.NextUpdate = Moment(1704067200 + 7 * kDay);
  info.cCRLEntry = CountOf(entries);
  info.rgCRLEntry = entries;
  info.cExtension = static_cast<DWORD>(records.size());
  info.rgExtension = records.data();
  Signer::write(Encode(X509_CERT_CRL_TO_BE_SIGNED, &info), "written.crl");

  const std::string text = RunShell(Openssl() + "crl -inform DER -in written.crl -noout -text");
  for (const WrittenExtension& extension : extensions) ExpectWords(text, extension.words);
  ExpectWords(text, "Last Update: Jan 1 00:00:00 2024 GMT Next Update: Jan 8 00:00:00 2024 GMT");
  ExpectWords(
      text,
      "Serial Number: 01 Revocation Date: Jan 1 00:00:00 2024 GMT Serial Number: FF "
      "Revocation Date: Jan 2 00:00:00 2024 GMT CRL entry extensions: X509v3 CRL Reason Code: Key Compromise "
      "Serial Number: 14131211100F0E0D0C0B0A090807060504030201");
}

TEST(WrittenObjects, Request) {
  const Signer signer;
  const Bytes subject = CommonName(L"request");
  const std::vector<WrittenExtension> extensions = WriteExtensions();
  std::vector<CERT_EXTENSION> records = ExtensionRecords(extensions);
  const CERT_EXTENSIONS list = {static_cast<DWORD>(records.size()), records.data()};
  const Bytes listDer = Encode(X509_EXTENSIONS, &list);
  CRYPT_ATTR_BLOB listValue = Blob(listDer);
  CERT_NAME_VALUE challenge = {
      CERT_RDN_UTF8_STRING, {0, reinterpret_cast<BYTE*>(Text(L"Пароль"))}
  };
  const Bytes challengeDer = Encode(X509_UNICODE_NAME_VALUE, &challenge);
  CRYPT_ATTR_BLOB challengeValue = Blob(challengeDer);
  CRYPT_ATTRIBUTE attributes[] = {
      {Text("1.2.840.113549.1.9.14"), 1, &listValue     },
      {Text("1.2.840.113549.1.9.7"),  1, &challengeValue}
  };
  const CERT_REQUEST_INFO info = {CERT_REQUEST_V1, Blob(subject), signer.key(), CountOf(attributes),
                                  attributes};
  Signer::write(Encode(X509_CERT_REQUEST_TO_BE_SIGNED, &info), "written.csr");

  const std::string text = RunShell(Openssl() + "req -inform DER -in written.csr -noout -text -verify 2>&1");
  ExpectWords(text, "Certificate request self-signature verify OK");
  ExpectWords(text, "challengePassword :Пароль");
  for (const WrittenExtension& extension : extensions) ExpectWords(text, extension.words);
}

}  // namespace
