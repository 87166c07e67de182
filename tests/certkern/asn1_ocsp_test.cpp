// Questions about the state of certificates and their answers as records.
#include <certkern/keykern.h>
#include <certkern/ocsp.h>
#include <certkern/oids.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "certkern/made_messages.h"
#include "support/hex.h"

using namespace certkern::test;

namespace {

FILETIME Time(int year, int month, int day) {
  SYSTEMTIME parts{};
  parts.wYear = static_cast<WORD>(year);
  parts.wMonth = static_cast<WORD>(month);
  parts.wDay = static_cast<WORD>(day);
  FILETIME time;
  EXPECT_TRUE(SystemTimeToFileTime(&parts, &time));
  return time;
}

uint64_t Ticks(const FILETIME& time) { return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime; }

// As the program prints numbers.
std::string SerialText(const CRYPT_INTEGER_BLOB& serial) {
  Bytes octets = BytesOf(serial);
  std::ranges::reverse(octets);
  return ToHex(octets);
}

// What the program prints of an identifier, each line behind the one before; moves on behind them.
void ExpectPrinted(const std::string& printed, size_t& at, const OCSP_CERT_ID& id) {
  for (const std::string& line : {"Issuer Name Hash: " + ToHex(BytesOf(id.IssuerNameHash)),
                                  "Issuer Key Hash: " + ToHex(BytesOf(id.IssuerKeyHash)),
                                  "Serial Number: " + SerialText(id.SerialNumber)}) {
    at = printed.find(line, at);
    ASSERT_NE(at, printed.npos) << line;
  }
}

std::string Printed(const char* which, const std::filesystem::path& file) {
  const std::string option(which);
  return RunShell("openssl ocsp -noverify -" + option + "in '" + file.string() + "' -" + option + "_text");
}

Bytes InnerOf(const std::filesystem::path& file) {
  const Bytes encoded = ReadFile(file);
  const Read<OCSP_RESPONSE_INFO> response(OCSP_RESPONSE, encoded);
  EXPECT_TRUE(response);
  EXPECT_EQ(response->dwStatus, DWORD{OCSP_SUCCESSFUL_RESPONSE});
  EXPECT_STREQ(response->pszObjId, szOID_PKIX_OCSP_BASIC_SIGNED_RESPONSE);
  EXPECT_EQ(ToHex(EncodeExactly(OCSP_RESPONSE, &*response)), ToHex(encoded));
  return BytesOf(response->Value);
}

}  // namespace

TEST(Ocsp, RequestsOfOpenssl) {
  const std::pair<const char*, DWORD> kSamples[] = {
      {"one.OCSPRequest.der",    1},
      {"signed.OCSPRequest.der", 3}
  };
  for (const auto& [name, count] : kSamples) {
    SCOPED_TRACE(name);
    const auto file = MadeMessage(name);
    const Bytes encoded = ReadFile(file);
    const Read<OCSP_SIGNED_REQUEST_INFO> whole(OCSP_SIGNED_REQUEST, encoded);
    ASSERT_TRUE(whole);
    EXPECT_EQ(ToHex(EncodeExactly(OCSP_SIGNED_REQUEST, &*whole)), ToHex(encoded));
    EXPECT_EQ(whole->pOptionalSignatureInfo != nullptr, count == 3);

    const Bytes inner = BytesOf(whole->ToBeSigned);
    const Read<OCSP_REQUEST_INFO> request(OCSP_REQUEST, inner);
    ASSERT_TRUE(request);
    EXPECT_EQ(ToHex(EncodeExactly(OCSP_REQUEST, &*request)), ToHex(inner));
    ASSERT_EQ(request->cRequestEntry, count);
    EXPECT_EQ(request->cExtension, count == 1 ? 1u : 0u) << "a nonce";
    const std::string printed = Printed("req", file);
    size_t at = 0;
    for (DWORD i = 0; i < count; ++i) ExpectPrinted(printed, at, request->rgRequestEntry[i].CertId);
  }
}

TEST(Ocsp, SignerOfARequest) {
  const Bytes encoded = ReadFile(MadeMessage("signed.OCSPRequest.der"));
  const Read<OCSP_SIGNED_REQUEST_INFO> whole(OCSP_SIGNED_REQUEST, encoded);
  ASSERT_TRUE(whole);
  const OCSP_SIGNATURE_INFO* signature = whole->pOptionalSignatureInfo;
  ASSERT_TRUE(signature);
  EXPECT_STREQ(signature->SignatureAlgorithm.pszObjId, szOID_RSA_SHA256RSA);
  EXPECT_EQ(signature->Signature.cbData, 256u);
  ASSERT_EQ(signature->cCertEncoded, 1u);
  const Read<CERT_INFO> signer(X509_CERT_TO_BE_SIGNED, BytesOf(signature->rgCertEncoded[0]));
  ASSERT_TRUE(signer);
  const Read<OCSP_REQUEST_INFO> request(OCSP_REQUEST, BytesOf(whole->ToBeSigned));
  ASSERT_TRUE(request && request->pRequestorName);
  ASSERT_EQ(request->pRequestorName->dwAltNameChoice, DWORD{CERT_ALT_NAME_DIRECTORY_NAME});
  EXPECT_EQ(BytesOf(request->pRequestorName->DirectoryName), BytesOf(signer->Subject));
}

TEST(Ocsp, ResponsesOfOpenssl) {
  for (const char* name : {"one.OCSPResponse.der", "three.OCSPResponse.der"}) {
    SCOPED_TRACE(name);
    const auto file = MadeMessage(name);
    const Bytes basic = InnerOf(file);
    const Read<OCSP_BASIC_SIGNED_RESPONSE_INFO> whole(OCSP_BASIC_SIGNED_RESPONSE, basic);
    ASSERT_TRUE(whole);
    EXPECT_EQ(ToHex(EncodeExactly(OCSP_BASIC_SIGNED_RESPONSE, &*whole)), ToHex(basic));
    EXPECT_GE(whole->SignatureInfo.cCertEncoded, 1u);

    const Bytes inner = BytesOf(whole->ToBeSigned);
    const Read<OCSP_BASIC_RESPONSE_INFO> response(OCSP_BASIC_RESPONSE, inner);
    ASSERT_TRUE(response);
    EXPECT_EQ(ToHex(EncodeExactly(OCSP_BASIC_RESPONSE, &*response)), ToHex(inner));
    const std::string printed = Printed("resp", file);
    size_t at = 0;
    for (DWORD i = 0; i < response->cResponseEntry; ++i)
      ExpectPrinted(printed, at, response->rgResponseEntry[i].CertId);
  }
}

TEST(Ocsp, AnswersAreWhereTheyBelong) {
  const auto file = MadeMessage("three.OCSPResponse.der");
  const Bytes basic = InnerOf(file);
  const Read<OCSP_BASIC_SIGNED_RESPONSE_INFO> whole(OCSP_BASIC_SIGNED_RESPONSE, basic);
  const Read<OCSP_BASIC_RESPONSE_INFO> three(OCSP_BASIC_RESPONSE, BytesOf(whole->ToBeSigned));
  ASSERT_TRUE(three);
  ASSERT_EQ(three->cResponseEntry, 3u);
  ASSERT_EQ(three->dwResponderIdChoice, DWORD{OCSP_BASIC_BY_KEY_RESPONDER_ID});
  EXPECT_NE(Printed("resp", file).find("Responder Id: " + ToHex(BytesOf(three->ByKeyResponderId))),
            std::string::npos);
  const OCSP_BASIC_RESPONSE_ENTRY* answers = three->rgResponseEntry;
  EXPECT_EQ(answers[0].dwCertStatus, DWORD{OCSP_BASIC_GOOD_CERT_STATUS});
  EXPECT_EQ(answers[0].pRevokedInfo, nullptr);
  EXPECT_EQ(Ticks(answers[0].NextUpdate), 0u);
  ASSERT_EQ(answers[1].dwCertStatus, DWORD{OCSP_BASIC_REVOKED_CERT_STATUS});
  EXPECT_EQ(Ticks(answers[1].pRevokedInfo->RevocationDate), Ticks(Time(2024, 1, 1)));
  EXPECT_EQ(answers[1].pRevokedInfo->dwCrlReasonCode, DWORD{CRL_REASON_KEY_COMPROMISE});
  EXPECT_EQ(answers[2].dwCertStatus, DWORD{OCSP_BASIC_UNKNOWN_CERT_STATUS});

  const Bytes other = InnerOf(MadeMessage("one.OCSPResponse.der"));
  const Read<OCSP_BASIC_SIGNED_RESPONSE_INFO> wholeOther(OCSP_BASIC_SIGNED_RESPONSE, other);
  const Read<OCSP_BASIC_RESPONSE_INFO> one(OCSP_BASIC_RESPONSE, BytesOf(wholeOther->ToBeSigned));
  ASSERT_TRUE(one);
  EXPECT_EQ(one->dwResponderIdChoice, DWORD{OCSP_BASIC_BY_NAME_RESPONDER_ID});
  EXPECT_EQ(Ticks(one->rgResponseEntry[0].NextUpdate) - Ticks(one->rgResponseEntry[0].ThisUpdate),
            uint64_t{86400} * 10'000'000);
  EXPECT_EQ(one->cExtension, 1u) << "the nonce";
}

TEST(Ocsp, RequestorsOfEveryKind) {
  wchar_t mail[] = L"a@example.org";
  char id[] = "1.2.3.4", type[] = "1.2.3.5";
  BYTE address[] = {127, 0, 0, 1}, value[] = {0x0C, 0x01, 0x41};
  CERT_OTHER_NAME other = {
      type, {sizeof(value), value}
  };
  CERT_ALT_NAME_ENTRY names[4] = {};
  names[0].dwAltNameChoice = CERT_ALT_NAME_RFC822_NAME;
  names[0].pwszRfc822Name = mail;
  names[1].dwAltNameChoice = CERT_ALT_NAME_REGISTERED_ID;
  names[1].pszRegisteredID = id;
  names[2].dwAltNameChoice = CERT_ALT_NAME_IP_ADDRESS;
  names[2].IPAddress = {sizeof(address), address};
  names[3].dwAltNameChoice = CERT_ALT_NAME_OTHER_NAME;
  names[3].pOtherName = &other;
  const char* const kEncodings[] = {"3013A10F810D61406578616D706C652E6F72673000", "3009A10588032A03043000",
                                    "300AA10687047F0000013000", "3010A10CA00A06032A0305A0030C01413000"};
  for (size_t i = 0; i < std::size(names); ++i) {
    SCOPED_TRACE(kEncodings[i]);
    const OCSP_REQUEST_INFO request = {OCSP_REQUEST_V1, &names[i], 0, nullptr, 0, nullptr};
    const Bytes encoded = EncodeExactly(OCSP_REQUEST, &request);
    EXPECT_EQ(ToHex(encoded), kEncodings[i]);
    const Read<OCSP_REQUEST_INFO> read(OCSP_REQUEST, encoded);
    ASSERT_TRUE(read && read->pRequestorName);
    EXPECT_EQ(ToHex(EncodeExactly(OCSP_REQUEST, &*read)), kEncodings[i]);
  }
}

TEST(Ocsp, ResponseStatuses) {
  char basic[] = szOID_PKIX_OCSP_BASIC_SIGNED_RESPONSE, another[] = "1.3.6.1.5.5.7.48.1.2";
  BYTE octets[] = {0x30, 0x00};
  struct {
    DWORD status;
    char* type;
    const char* encoded;  // null: refused
    DWORD code;
  } const kCases[] = {
      {OCSP_MALFORMED_REQUEST_RESPONSE, nullptr, "30030A0101", 0                   },
      {OCSP_UNAUTHORIZED_RESPONSE,      nullptr, "30030A0106", 0                   },
      {4,                               nullptr, nullptr,      CRYPT_E_BAD_ENCODE  },
      {7,                               nullptr, nullptr,      CRYPT_E_BAD_ENCODE  },
      {0xFFFFFFFF,                      nullptr, nullptr,      CRYPT_E_BAD_ENCODE  },
      {4,                               another, nullptr,      CRYPT_E_BAD_ENCODE  },
      {OCSP_SUCCESSFUL_RESPONSE,        nullptr, nullptr,      CRYPT_E_ASN1_BADARGS},
      {OCSP_SUCCESSFUL_RESPONSE,        another, nullptr,      CRYPT_E_ASN1_BADARGS},
      {OCSP_SUCCESSFUL_RESPONSE,        basic,
       "30160A0100A011300F06092B06010505073001010402"
       "3000",                                                 0                   },
  };
  for (const auto& [status, type, encoded, code] : kCases) {
    SCOPED_TRACE(std::to_string(status) + (type ? type : ""));
    const OCSP_RESPONSE_INFO response = {
        status, type, {type ? DWORD{sizeof(octets)} : 0, octets}
    };
    const Bytes made = EncodeExactly(OCSP_RESPONSE, &response);
    EXPECT_EQ(ToHex(made), encoded ? encoded : "");
    EXPECT_TRUE(encoded || GetLastError() == code);
    if (made.empty() || status == OCSP_SUCCESSFUL_RESPONSE) continue;
    const Read<OCSP_RESPONSE_INFO> read(OCSP_RESPONSE, made);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->dwStatus, status);
    EXPECT_EQ(read->pszObjId, nullptr);
  }
}

// A record that can be written until one thing in it is spoilt.
TEST(Ocsp, RecordsThatHaveNoEncoding) {
  char sha1[] = szOID_OIWSEC_sha1;
  BYTE octet[] = {5};
  OCSP_BASIC_REVOKED_INFO revoked;
  OCSP_BASIC_RESPONSE_ENTRY entry;
  OCSP_BASIC_RESPONSE_INFO response;
  const auto restore = [&] {
    revoked = {Time(2024, 1, 1), CRL_REASON_UNSPECIFIED};
    entry = {};
    entry.CertId = {
        {sha1, {0, nullptr}},
        {1,    octet       },
        {1,    octet       },
        {1,    octet       }
    };
    entry.dwCertStatus = OCSP_BASIC_REVOKED_CERT_STATUS;
    entry.pRevokedInfo = &revoked;
    entry.ThisUpdate = Time(2024, 1, 2);
    response = {};
    response.dwResponderIdChoice = OCSP_BASIC_BY_KEY_RESPONDER_ID;
    response.ByKeyResponderId = {1, octet};
    response.ProducedAt = Time(2024, 1, 3);
    response.cResponseEntry = 1;
    response.rgResponseEntry = &entry;
  };
  restore();
  EXPECT_EQ(ToHex(EncodeExactly(OCSP_BASIC_RESPONSE, &response)),
            "3054A203040105180F32303234303130333030303030305A303C303A"
            "3014300906052B0E03021A0500040105040105020105A111180F32303234303130313030303030305A"
            "180F32303234303130323030303030305A");
  struct {
    const char* name;
    std::function<void()> spoil;
    DWORD code;
  } const kCases[] = {
      {"no such certificate status",    [&] { entry.dwCertStatus = 3; },                                         CRYPT_E_ASN1_BADARGS},
      {"no such responder",             [&] { response.dwResponderIdChoice = 0; },                               CRYPT_E_ASN1_BADARGS},
      {"revoked, not when",             [&] { entry.pRevokedInfo = nullptr; },                                   CRYPT_E_BAD_ENCODE  },
      {"a list that is not there",      [&] { response.rgResponseEntry = nullptr; },                             CRYPT_E_BAD_ENCODE  },
      {"extensions that are not there", [&] { entry.cExtension = 1; },                                           CRYPT_E_BAD_ENCODE  },
      {"a hash that is not there",      [&] { entry.CertId.IssuerKeyHash.pbData = nullptr; },                    CRYPT_E_BAD_ENCODE  },
      {"no number",                     [&] { entry.CertId.SerialNumber.cbData = 0; },                           CRYPT_E_BAD_ENCODE  },
      {"no algorithm",                  [&] { entry.CertId.HashAlgorithm.pszObjId = nullptr; },                  CRYPT_E_BAD_ENCODE  },
      {"no name",                       [&] { response.dwResponderIdChoice = OCSP_BASIC_BY_NAME_RESPONDER_ID; },
       CRYPT_E_BAD_ENCODE                                                                                                            },
      {"a time behind all years",
       [&] {
         entry.ThisUpdate = {0, 0x7FFFFFFF};
       },                                                                                                        CRYPT_E_BAD_ENCODE  },
  };
  for (const auto& [name, spoil, code] : kCases) {
    SCOPED_TRACE(name);
    restore();
    spoil();
    EXPECT_TRUE(EncodeExactly(OCSP_BASIC_RESPONSE, &response).empty());
    EXPECT_EQ(GetLastError(), code);
  }
  for (const LPCSTR type : {OCSP_SIGNED_REQUEST, OCSP_REQUEST, OCSP_RESPONSE, OCSP_BASIC_SIGNED_RESPONSE,
                            OCSP_BASIC_RESPONSE, X509_ALGORITHM_IDENTIFIER}) {
    EXPECT_TRUE(EncodeExactly(type, nullptr).empty());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  }
  const OCSP_SIGNED_REQUEST_INFO nothing = {};
  EXPECT_TRUE(EncodeExactly(OCSP_SIGNED_REQUEST, &nothing).empty());
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_BAD_ENCODE});
}

// Another way to name a certificate, which no record has: [1] { SEQUENCE {...}, hash, signature }.
TEST(Ocsp, LaterWaysToNameACertificate) {
  const Bytes sound = FromHex("3012 3010 300E 300C 3003 06012A 0400 0400 020105");
  const Read<OCSP_REQUEST_INFO> first(OCSP_REQUEST, sound);
  EXPECT_TRUE(first);
  const Bytes later =
      FromHex("3022 3020 301E A11C 301A 300C 3003 06012A 0400 0400 020105 0400 3008 3003 06012A 030100");
  EXPECT_FALSE((Read<OCSP_REQUEST_INFO>(OCSP_REQUEST, later)));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_BAD_ENCODE});
}

TEST(AlgorithmIdentifier, IsWrittenOnly) {
  struct {
    const char* oid;
    const char* parameters;
    const char* encoded;
  } const kCases[] = {
      {szOID_OIWSEC_sha1,     "",         "300906052B0E03021A0500"        }, // a hash: NULL
      {"1.2.643.7.1.1.2.2",   "",         "300A06082A85030701010202"      }, // a Russian one: none
      {szOID_RSA_SHA256RSA,   "",         "300D06092A864886F70D01010B0500"},
      {"1.2.840.10045.4.3.2", "",         "300A06082A8648CE3D040302"      },
      {"1.2.643.7.1.1.3.2",   "",         "300A06082A85030701010302"      },
      {"1.2.3.4",             "",         "300506032A0304"                },
      {"1.2.3.4",             "04020102", "300906032A030404020102"        },
      {"1.2.0x10",            "",         "300406022A10"                  },
  };
  for (const auto& [oid, parameters, encoded] : kCases) {
    Bytes bytes = FromHex(parameters);
    const CRYPT_ALGORITHM_IDENTIFIER record = {
        const_cast<LPSTR>(oid), {static_cast<DWORD>(bytes.size()), bytes.data()}
    };
    EXPECT_EQ(ToHex(EncodeExactly(X509_ALGORITHM_IDENTIFIER, &record)), encoded) << oid;
    EXPECT_EQ(ToHex(EncodeExactly("1.2.840.10045.4.3", &record)), encoded) << oid;
  }
  for (const char* oid : {"", "1.2.3x", "08.1", "1..2.x", static_cast<const char*>(nullptr)}) {
    const CRYPT_ALGORITHM_IDENTIFIER record = {
        const_cast<LPSTR>(oid), {0, nullptr}
    };
    EXPECT_TRUE(EncodeExactly(X509_ALGORITHM_IDENTIFIER, &record).empty());
    EXPECT_EQ(GetLastError(), oid && !*oid ? DWORD{CRYPT_E_BAD_ENCODE} : DWORD{CRYPT_E_OID_FORMAT}) << oid;
  }
  const Bytes encoded = FromHex("300506032A0304");
  EXPECT_FALSE((Read<CRYPT_ALGORITHM_IDENTIFIER>(X509_ALGORITHM_IDENTIFIER, encoded)));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}
