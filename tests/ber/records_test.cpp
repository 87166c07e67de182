// What encoders leave out or refuse, and what decoders do with the odd cases of certificates and lists.
#include <certkern/encode.h>
#include <certkern/keykern.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "ber/struct_types.h"
#include "samples.h"
#include "support/hex.h"

namespace {

struct LocalFreeDeleter {
  void operator()(void* memory) const { LocalFree(memory); }
};
template <typename Record>
using Decoded = std::unique_ptr<Record, LocalFreeDeleter>;

// Null on failure, with the last error that there was.
template <typename Record>
Decoded<Record> Decode(LPCSTR type, const std::vector<BYTE>& input, DWORD flags = 0, DWORD* size = nullptr) {
  void* record = nullptr;
  SetLastError(0);
  const BOOL done =
      CryptDecodeObjectEx(X509_ASN_ENCODING, type, input.data(), static_cast<DWORD>(input.size()),
                          flags | CRYPT_DECODE_ALLOC_FLAG, nullptr, &record, size);
  return Decoded<Record>(done ? static_cast<Record*>(record) : nullptr);
}

std::string Encoded(LPCSTR type, const void* record) {
  BYTE out[512];
  DWORD size = sizeof(out);
  return CryptEncodeObject(X509_ASN_ENCODING, type, record, out, &size) ? ToHex({out, size}) : "refused";
}

const char* SampleHex(const char* name) {
  for (const Sample& sample : Samples()) {
    if (std::strcmp(sample.name, name) == 0) return sample.hex;
  }
  ADD_FAILURE() << name;
  return "";
}

std::vector<BYTE> Wrap(BYTE tag, std::vector<BYTE> content) {
  EXPECT_LT(content.size(), 256u);
  content.insert(content.begin(), {tag, 0x81, static_cast<BYTE>(content.size())});
  return content;
}

// A list with one entry, given as the content of its SEQUENCE.
std::vector<BYTE> ListWith(const char* entry) {
  const std::vector<BYTE> entries = Wrap(0x30, Wrap(0x30, FromHex(entry)));
  std::vector<BYTE> list =
      FromHex("02 01 01 30 05 06 03 2A 03 04 30 00 17 0D 32 36 30 31 30 31 30 30 30 30 30 30 5A");
  list.insert(list.end(), entries.begin(), entries.end());
  return Wrap(0x30, list);
}

constexpr char kEntry[] = "02 01 05 17 0D 32 36 30 31 30 31 30 30 30 30 30 30 5A ";

}  // namespace

TEST(RevocationList, ReasonCodesTakeNoRoomOfTheirOwn) {
  const auto withReason = [](const char* reason) { return ListWith((std::string(kEntry) + reason).c_str()); };
  DWORD size = 0;
  const auto list = Decode<CRL_INFO>(X509_CERT_CRL_TO_BE_SIGNED,
                                     withReason("30 0C 30 0A 06 03 55 1D 15 04 03 0A 01 0A"), 0, &size);
  ASSERT_TRUE(list);
  const CERT_EXTENSION& reason = list->rgCRLEntry[0].rgExtension[0];
  EXPECT_STREQ(reason.pszObjId, "2.5.29.21");
  EXPECT_EQ(ToHex({reason.Value.pbData, reason.Value.cbData}), "0A010A");
  const BYTE* buffer = reinterpret_cast<const BYTE*>(list.get());
  EXPECT_TRUE(reason.Value.pbData < buffer || reason.Value.pbData >= buffer + size)
      << "a constant, not a copy";

  EXPECT_FALSE(
      Decode<CRL_INFO>(X509_CERT_CRL_TO_BE_SIGNED, withReason("30 0C 30 0A 06 03 55 1D 15 04 03 0A 01 0B")));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_ASN1_ERROR}) << "there is no reason 11";

  // beside another extension, or critical, it is an extension like any other
  const auto two = Decode<CRL_INFO>(
      X509_CERT_CRL_TO_BE_SIGNED,
      withReason("30 17 30 0A 06 03 55 1D 15 04 03 0A 01 0B 30 09 06 03 55 1D 18 04 02 30 00"));
  ASSERT_TRUE(two);
  EXPECT_EQ(two->rgCRLEntry[0].cExtension, 2u);
  EXPECT_STREQ(two->rgCRLEntry[0].rgExtension[1].pszObjId, "2.5.29.24");
  const auto critical = Decode<CRL_INFO>(X509_CERT_CRL_TO_BE_SIGNED,
                                         withReason("30 0F 30 0D 06 03 55 1D 15 01 01 FF 04 03 0A 01 01"));
  ASSERT_TRUE(critical);
  EXPECT_TRUE(critical->rgCRLEntry[0].rgExtension[0].fCritical);
}

TEST(RevocationList, MalformedEntries) {
  EXPECT_FALSE(Decode<CRL_INFO>(X509_CERT_CRL_TO_BE_SIGNED, ListWith("")));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_ASN1_ERROR});
  EXPECT_FALSE(Decode<CRL_INFO>(X509_CERT_CRL_TO_BE_SIGNED, ListWith("04 01 05")));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_ASN1_BADTAG});
  EXPECT_FALSE(Decode<CRL_INFO>(X509_CERT_CRL_TO_BE_SIGNED, ListWith("02 85")));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_ASN1_EOD});
}

TEST(Certificate, BareOrSigned) {
  const std::vector<BYTE> bare = FromHex(SampleHex("certificate"));
  std::vector<BYTE> content = bare;
  const std::vector<BYTE> signature = FromHex("30 05 06 03 2A 03 04 03 02 00 AB");
  content.insert(content.end(), signature.begin(), signature.end());
  const std::vector<BYTE> whole = Wrap(0x30, content);
  for (const auto& [input, flags] : {
           std::pair(bare, DWORD{0        }
            ), { whole, DWORD{0}},
            { bare, DWORD{2}}
  }) {
    const auto info = Decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, input, flags);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->dwVersion, DWORD{CERT_V3});
    EXPECT_EQ(ToHex({info->SerialNumber.pbData, info->SerialNumber.cbData}), "8000");
    EXPECT_STREQ(info->SubjectPublicKeyInfo.Algorithm.pszObjId, "1.2.643.7.1.1.1.1");
    EXPECT_EQ(info->SubjectUniqueId.cbData, 0u);
    EXPECT_EQ(info->IssuerUniqueId.cUnusedBits, 4u);
    EXPECT_EQ(info->cExtension, 2u);
  }
  EXPECT_FALSE(Decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, whole, CRYPT_DECODE_TO_BE_SIGNED_FLAG));
}

TEST(Certificate, SubjectUniqueId) {
  std::vector<BYTE> certificate = FromHex(SampleHex("certificate"));
  const BYTE issuerId[] = {0x81, 0x02, 0x04, 0xF0};
  const auto place =
      std::search(certificate.begin(), certificate.end(), std::begin(issuerId), std::end(issuerId));
  ASSERT_NE(place, certificate.end());
  *place = 0x82;
  const auto info = Decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, certificate);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->IssuerUniqueId.cbData, 0u);
  EXPECT_EQ(ToHex({info->SubjectUniqueId.pbData, info->SubjectUniqueId.cbData}), "F0");
  EXPECT_EQ(Encoded(X509_CERT_TO_BE_SIGNED, info.get()), ToHex(certificate));
}

TEST(Certificate, Versions) {
  std::vector<BYTE> certificate = FromHex(SampleHex("certificate"));
  ASSERT_EQ(certificate[3], 0xA0);
  certificate[7] = 7;
  const auto info = Decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, certificate);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->dwVersion, 7u);
  certificate[6] = 2;  // an INTEGER of two octets
  EXPECT_FALSE(Decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, certificate));
}

TEST(Encoders, DistributionPoints) {
  wchar_t url[] = L"f:g";
  CERT_ALT_NAME_ENTRY entry{};
  entry.dwAltNameChoice = CERT_ALT_NAME_URL;
  entry.pwszURL = url;
  CRL_ISSUING_DIST_POINT point{};
  point.fOnlyContainsUserCerts = 2;  // only TRUE itself is written
  EXPECT_EQ(Encoded(X509_ISSUING_DIST_POINT, &point), "3000");
  point.fOnlyContainsUserCerts = TRUE;
  EXPECT_EQ(Encoded(X509_ISSUING_DIST_POINT, &point), "30038101FF");
  CRL_DIST_POINT full{};
  full.DistPointName.dwDistPointNameChoice = CRL_DIST_POINT_FULL_NAME;
  CRL_DIST_POINTS_INFO list{1, &full};
  EXPECT_EQ(Encoded(X509_CRL_DIST_POINTS, &list), "30023000") << "no empty wrapper";
  full.DistPointName.FullName = {1, &entry};
  EXPECT_EQ(Encoded(X509_CRL_DIST_POINTS, &list), "300B3009A007A0058603663A67");
  full.DistPointName.dwDistPointNameChoice = 3;
  EXPECT_EQ(Encoded(X509_CRL_DIST_POINTS, &list), "300B3009A007A0058603663A67");
  full.DistPointName.dwDistPointNameChoice = CRL_DIST_POINT_ISSUER_RDN_NAME;
  EXPECT_EQ(Encoded(X509_CRL_DIST_POINTS, &list), "refused") << "the union holds another record";
}

TEST(Encoders, RecordsThatHaveNoEncoding) {
  CERT_POLICY_QUALIFIER_NOTICE_REFERENCE reference{};
  const CERT_POLICY_QUALIFIER_USER_NOTICE notice = {&reference, nullptr};
  EXPECT_EQ(Encoded(X509_PKIX_POLICY_QUALIFIER_USERNOTICE, &notice), "refused");
  for (const DWORD choice : {0u, 4u, 6u, 10u, 0x80000001u}) {
    CERT_ALT_NAME_ENTRY entry{};
    entry.dwAltNameChoice = choice;
    const CERT_ALT_NAME_INFO info = {1, &entry};
    EXPECT_EQ(Encoded(X509_ALTERNATE_NAME, &info), "refused") << choice;
  }
  CERT_POLICY_INFO policy{};  // no identifier
  const CERT_POLICIES_INFO policies = {1, &policy};
  EXPECT_EQ(Encoded(X509_CERT_POLICIES, &policies), "refused");
  CERT_POLICY_MAPPING mapping{};
  const CERT_POLICY_MAPPINGS_INFO mappings = {1, &mapping};
  EXPECT_EQ(Encoded(X509_POLICY_MAPPINGS, &mappings), "refused");
  // each of these records is a count and an array: null with a count is never read
  const CERT_EXTENSIONS lost = {1, nullptr};
  for (const LPCSTR type :
       {X509_ALTERNATE_NAME, X509_CERT_POLICIES, X509_AUTHORITY_INFO_ACCESS, X509_SEQUENCE_OF_ANY,
        X509_CRL_DIST_POINTS, X509_ENHANCED_KEY_USAGE, X509_POLICY_MAPPINGS}) {
    EXPECT_EQ(Encoded(type, &lost), "refused")
        << certkern::FindStructType(certkern::StructNumber(type))->name;
  }
  EXPECT_EQ(Encoded(X509_EXTENSIONS, &lost), "") << "at top level it is no list";
}

TEST(Encoders, AlgorithmParametersByTheTable) {
  const std::pair<const char*, const char*> kCases[] = {
      {"1.2.643.7.1.1.3.2",     "300A06082A85030701010302"      }, // a signature row: absent
      {"1.2.840.113549.1.1.11", "300D06092A864886F70D01010B0500"}, // a signature row: NULL
      {"1.2.840.10045.2.1",     "300906072A8648CE3D0201"        }, // a public key row: absent
      {"1.2.840.113549.1.1.1",  "300D06092A864886F70D0101010500"}, // a public key row: NULL
      {"1.2.3.4",               "300706032A03040500"            }, // no row
  };
  for (const auto& [oid, hex] : kCases) {
    CERT_SIGNED_CONTENT_INFO content{};
    content.SignatureAlgorithm.pszObjId = const_cast<char*>(oid);
    const std::string encoded = Encoded(X509_CERT, &content);
    EXPECT_EQ(encoded.substr(8, encoded.size() - 14), hex) << oid;
  }
}

TEST(Encoders, ExFormFreesAndLeavesTheResultAlone) {
  const int number = 5;
  void* buffer = nullptr;
  CRYPT_ENCODE_PARA half = {24, nullptr, [](void*) {}};
  DWORD size = 77;
  EXPECT_FALSE(CryptEncodeObjectEx(X509_ASN_ENCODING, X509_INTEGER, &number, CRYPT_ENCODE_ALLOC_FLAG, &half,
                                   &buffer, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(CryptEncodeObjectEx(X509_ASN_ENCODING, X509_INTEGER, &number, 1, nullptr, &buffer, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(CryptEncodeObjectEx(X509_ASN_ENCODING, "1.2.3", &number, CRYPT_ENCODE_ALLOC_FLAG, nullptr,
                                   &buffer, &size));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_BAD_ENCODE});
  EXPECT_EQ(buffer, nullptr);
  EXPECT_EQ(size, 77u);
  BYTE out[8];
  EXPECT_FALSE(CryptEncodeObject(X509_ASN_ENCODING, X509_INTEGER, &number, out, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_BAD_ENCODE});
}
