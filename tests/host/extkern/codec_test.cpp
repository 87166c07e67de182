// The codecs of the extension library over encodings that others made: attributes and an extension written by openssl
// (cms -sign -cades, x509), and what it does not write by hand, from the grammars.
#include "platform/extkern.h"
#include "support/hex.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

constexpr char kName[] = "30 0C 31 0A 30 08 06 03 55 04 03 0C 01 41";  // CN=A
constexpr char kCertificate[] = "30 0C 30 03 02 01 05 30 00 03 03 00 AB CD";

struct Codec {
  XnEncode* encode;  // null: read only
  XnDecode* decode;
};
const Codec kFirst = {XnDllSigningCertificateEncode, XnDllSigningCertificateDecode};
const Codec kSecond = {XnDllSigningCertificateV2Encode, XnDllSigningCertificateV2Decode};
const Codec kOther = {XnDllOtherSigningCertificateEncode, XnDllOtherSigningCertificateDecode};
const Codec kPeriod = {XnDllPrivateKeyUsagePeriodEncode, XnDllPrivateKeyUsagePeriodDecode};
const Codec kTool = {XnDllIssuerSignToolEncode, XnDllIssuerSignToolDecode};
const Codec kStore = {XnDllGostPrivateCertificateStoreEncode, XnDllGostPrivateCertificateStoreDecode};
const Codec kCounter = {nullptr, XnDllPrivateKeyDeriveCounterDecode};
const Codec kMode = {nullptr, XnDllGostPrivateKeyTimeValidityControlModeDecode};

// cms -sign -cades -md sha1, sha256, sha512
constexpr char kSha1Hex[] =
    "30333031302f04143201d1721efa1d9609a75ffe993f097b025a9448"
    "30173010a40e300c310a300806035504030c01410203008a01";
constexpr char kSha256Hex[] =
    "303f303d303b0420760adeeb5b2e3fc1b3331866a3ebf38e5131344400d58ae8b9685d8c3ceb6091"
    "30173010a40e300c310a300806035504030c01410203008a01";
constexpr char kSha512Hex[] =
    "306c306a3068300b06096086480165030402030440c14325a34f7fc69d8ec50f22cf908793b00cab91b7cfb2c18b962d12bdf4"
    "6ee8bb34434959f36a1b014b61829ff6ba552e034eee12dfd0e2497b54a353c07161"
    "30173010a40e300c310a300806035504030c01410203008a01";
constexpr char kPoliciesHex[] =
    "30 26 30 18 30 16 04 14 3201d1721efa1d9609a75ffe993f097b025a9448"
    "30 0A 30 08 06 02 2A 03 30 02 30 00";
constexpr char kTwoGostHex[] =  // with NULL for parameters
    "30 2A 30 28 30 12 30 0C 06 08 2A 85 03 07 01 01 02 02 05 00 04 02 AA BB"
    "            30 12 30 0C 06 08 2A 85 03 07 01 01 02 02 05 00 04 02 CC DD";
constexpr char kOtherSha1Hex[] = "30 1A 30 18 30 16 04 14 3201d1721efa1d9609a75ffe993f097b025a9448";
constexpr char kOtherGostHex[] =
    "30 2D 30 2B 30 29 30 10 30 0A 06 08 2A 85 03 07 01 01 02 02 04 02 AA BB"
    "30 15 30 10 A4 0E 30 0C 31 0A 30 08 06 03 55 04 03 0C 01 41 02 01 FF";
constexpr char kPeriodHex[] =  // 20190101000000Z to 20501231235959Z
    "30 22 80 0F 32 30 31 39 30 31 30 31 30 30 30 30 30 30 5A"
    "81 0F 32 30 35 30 31 32 33 31 32 33 35 39 35 39 5A";
constexpr char kOpenPeriodHex[] = "30 11 81 0F 32 30 35 30 31 32 33 31 32 33 35 39 35 39 5A";
constexpr char kToolHex[] = "30200C06546F6F6C20310C0AD0A6D0B5D0BDD182D1800C044E6F20310C044E6F2032";
constexpr char kStoreHex[] =
    "30 1C 30 0C 30 03 02 01 05 30 00 03 03 00 AB CD 30 0C 30 03 02 01 06 30 00 03 03 00 AB CD";

struct Sample {
  const char* name;
  const Codec& codec;
  const char* hex;
  size_t recordSize;
  bool reencodes;
};
const Sample kSamples[] = {
    {"first form",           kFirst,   kSha1Hex,               16 + 48 + 24 + 32 + 16 + 8,      true },
    {"first form, policies", kFirst,   kPoliciesHex,           16 + 48 + 24,                    false},
    {"second form, default", kSecond,  kSha256Hex,             16 + 48 + 32 + 32 + 16 + 8,      true },
    {"second form, SHA-512", kSecond,  kSha512Hex,             16 + 48 + 24 + 64 + 32 + 16 + 8, true },
    {"second form, two",     kSecond,  kTwoGostHex,            16 + 2 * (48 + 24 + 8 + 8),      true },
    {"other form, SHA-1",    kOther,   kOtherSha1Hex,          16 + 48 + 24,                    true },
    {"other form, GOST",     kOther,   kOtherGostHex,          16 + 48 + 24 + 8 + 32 + 16 + 8,  true },
    {"period",               kPeriod,  kPeriodHex,             16 + 8 + 8,                      true },
    {"period, open",         kPeriod,  kOpenPeriodHex,         16 + 8,                          true },
    {"period, no bounds",    kPeriod,  "30 00",                16,                              true },
    {"sign tool",            kTool,    kToolHex,               32 + 32 + 24 + 24 + 24,          true },
    {"no certificates",      kStore,   "30 00",                16,                              true },
    {"two certificates",     kStore,   kStoreHex,              16 + 2 * 16 + 2 * 16,            true },
    {"counter",              kCounter, "02 05 00 FF FF FF FE", 4,                               false},
    {"mode",                 kMode,    "0A 01 02",             4,                               false},
};

// The record in a buffer of exactly the size that was asked for; empty on failure.
std::vector<BYTE> Decode(XnDecode* decode, const std::vector<BYTE>& input) {
  DWORD size = 0;
  const auto inputSize = static_cast<DWORD>(input.size());
  if (!decode(X509_ASN_ENCODING, nullptr, input.data(), inputSize, 0, nullptr, &size)) return {};
  std::vector<BYTE> record(size, 0xEE);
  EXPECT_TRUE(decode(X509_ASN_ENCODING, nullptr, input.data(), inputSize, 0, record.data(), &size));
  EXPECT_EQ(size, record.size());
  return record;
}

std::vector<BYTE> Encode(XnEncode* encode, const void* record) {
  DWORD size = 0;
  if (!encode(X509_ASN_ENCODING, nullptr, record, nullptr, &size)) return {};
  std::vector<BYTE> encoded(size);
  EXPECT_TRUE(encode(X509_ASN_ENCODING, nullptr, record, encoded.data(), &size));
  EXPECT_EQ(size, encoded.size());
  return encoded;
}

template <typename Record>
const Record& As(const std::vector<BYTE>& bytes) {
  return *reinterpret_cast<const Record*>(bytes.data());
}

std::string BlobHex(const CRYPT_DATA_BLOB& blob) { return ToHex({blob.pbData, blob.cbData}); }

TEST(ExtensionCodecs, SamplesDecodeToTheirSizeAndBack) {
  for (const Sample& sample : kSamples) {
    SCOPED_TRACE(sample.name);
    const std::vector<BYTE> input = FromHex(sample.hex);
    const std::vector<BYTE> record = Decode(sample.codec.decode, input);
    ASSERT_EQ(record.size(), sample.recordSize) << std::hex << GetLastError();
    if (sample.reencodes) {
      EXPECT_EQ(ToHex(Encode(sample.codec.encode, record.data())), ToHex(input));
    }
  }
}

TEST(ExtensionCodecs, TooLittleRoomIsToldWithTheSize) {
  for (const Sample& sample : kSamples) {
    SCOPED_TRACE(sample.name);
    const std::vector<BYTE> input = FromHex(sample.hex);
    std::vector<BYTE> record(sample.recordSize - 1);
    auto size = static_cast<DWORD>(record.size());
    EXPECT_FALSE(sample.codec.decode(1, nullptr, input.data(), static_cast<DWORD>(input.size()), 0,
                                     record.data(), &size));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(size, sample.recordSize);
    if (!sample.reencodes) continue;
    record = Decode(sample.codec.decode, input);
    std::vector<BYTE> encoded(input.size() - 1);
    size = static_cast<DWORD>(encoded.size());
    EXPECT_FALSE(sample.codec.encode(1, nullptr, record.data(), encoded.data(), &size));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(size, input.size());
  }
}

TEST(ExtensionCodecs, DamagedSamplesGetADefinedAnswer) {
  for (const Sample& sample : kSamples) {
    SCOPED_TRACE(sample.name);
    const std::vector<BYTE> input = FromHex(sample.hex);
    for (size_t cut = 1; cut < input.size(); ++cut) {
      const std::vector<BYTE> shorter(input.begin(), input.begin() + static_cast<ptrdiff_t>(cut));
      SetLastError(ERROR_SUCCESS);
      EXPECT_TRUE(Decode(sample.codec.decode, shorter).empty()) << "cut at " << cut;
      EXPECT_EQ(GetLastError() & 0xFFFFFF00u, 0x80093100u) << "cut at " << cut;
    }
    std::vector<BYTE> longer = input;
    longer.push_back(0);
    EXPECT_TRUE(Decode(sample.codec.decode, longer).empty()) << "something follows";
    for (size_t place = 0; place < input.size(); ++place) {
      for (const int change : {0x01, 0x20, 0x80, 0xFF}) {
        std::vector<BYTE> changed = input;
        changed[place] = static_cast<BYTE>(changed[place] ^ change);
        const std::vector<BYTE> record = Decode(sample.codec.decode, changed);
        if (!record.empty() && sample.codec.encode) Encode(sample.codec.encode, record.data());
      }
    }
  }
}

constexpr char kTwoNamesHex[] =
    "30 2D 30 2B 30 29 04 14 3201d1721efa1d9609a75ffe993f097b025a9448"
    "30 11 30 0C A4 04 30 02 31 00 A4 04 30 02 31 00 02 01 01";
constexpr char kNoNameHex[] =
    "30 24 30 22 30 20 04 14 3201d1721efa1d9609a75ffe993f097b025a9448 30 08 30 03 82 01 61 02 01 01";
constexpr char kEmptyPolicyHex[] =
    "30 1E 30 18 30 16 04 14 3201d1721efa1d9609a75ffe993f097b025a9448 30 02 30 00";
constexpr char kFractionHex[] = "30 13 81 11 32 30 35 30 31 32 33 31 32 33 35 39 35 39 2E 35 5A";
constexpr char kNoDigitsHex[] = "30 11 81 0F 32 30 35 30 31 32 33 31 32 33 35 39 35 2D 5A";
constexpr char kNoSuchDayHex[] = "30 11 81 0F 32 30 35 30 30 32 33 30 32 33 35 39 35 39 5A";
constexpr char kWrongOrderHex[] =
    "30 22 81 0F 32 30 31 39 30 31 30 31 30 30 30 30 30 30 5A"
    "80 0F 32 30 35 30 31 32 33 31 32 33 35 39 35 39 5A";

struct FaultCase {
  const char* name;
  const Codec& codec;
  const char* hex;
  DWORD code;
};
const FaultCase kFaults[] = {
    {"no certificate",              kSecond,  "30 02 30 00",                               CRYPT_E_ASN1_CONSTRAINT},
    {"SHA-1 has 20 octets",         kFirst,   "30 07 30 05 30 03 04 01 AA",                CRYPT_E_ASN1_CORRUPT   },
    {"the default hash has 32",     kSecond,  "30 07 30 05 30 03 04 01 AA",                CRYPT_E_ASN1_CORRUPT   },
    {"two directory names",         kOther,   kTwoNamesHex,                                CRYPT_E_ASN1_CONSTRAINT},
    {"no directory name",           kOther,   kNoNameHex,                                  CRYPT_E_ASN1_CONSTRAINT},
    {"a policy without identifier", kFirst,   kEmptyPolicyHex,                             CRYPT_E_ASN1_EOD       },
    {"a fraction of a second",      kPeriod,  kFractionHex,                                CRYPT_E_ASN1_CORRUPT   },
    {"no digits",                   kPeriod,  kNoDigitsHex,                                CRYPT_E_ASN1_CORRUPT   },
    {"no such day",                 kPeriod,  kNoSuchDayHex,                               CRYPT_E_ASN1_CORRUPT   },
    {"bounds in the wrong order",   kPeriod,  kWrongOrderHex,                              CRYPT_E_ASN1_CORRUPT   },
    {"a NUL in a text",             kTool,    "30 0C 0C 01 00 0C 01 41 0C 01 41 0C 01 41", CRYPT_E_ASN1_CORRUPT   },
    {"no UTF-8",                    kTool,    "30 0C 0C 01 FF 0C 01 41 0C 01 41 0C 01 41", CRYPT_E_ASN1_UTF8      },
    {"three texts",                 kTool,    "30 09 0C 01 41 0C 01 41 0C 01 41",          CRYPT_E_ASN1_EOD       },
    {"a negative counter",          kCounter, "02 01 FF",                                  CRYPT_E_ASN1_CONSTRAINT},
    {"a counter above 32 bits",     kCounter, "02 05 01 00 00 00 00",                      CRYPT_E_ASN1_LARGE     },
    {"a counter is no ENUMERATED",  kCounter, "0A 01 01",                                  CRYPT_E_ASN1_BADTAG    },
    {"not a certificate",           kStore,   "30 05 30 03 02 01 01",                      CRYPT_E_ASN1_BADTAG    },
};

TEST(ExtensionCodecs, FaultsHaveTheirCodes) {
  for (const auto& [name, codec, hex, code] : kFaults) {
    SCOPED_TRACE(name);
    SetLastError(ERROR_SUCCESS);
    EXPECT_TRUE(Decode(codec.decode, FromHex(hex)).empty());
    EXPECT_EQ(GetLastError(), code) << std::hex << GetLastError();
  }
  const std::vector<BYTE> input = FromHex("02 05 00 FF FF FF FE");
  DWORD size = 0;
  for (const DWORD flags : {4u, 0x8000u}) {
    EXPECT_FALSE(kCounter.decode(1, nullptr, input.data(), 7, flags, nullptr, &size));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  }
}

TEST(SigningCertificate, Fields) {
  const std::vector<BYTE> bytes = Decode(kSecond.decode, FromHex(kSha512Hex));
  const auto& record = As<SV_SIGNING_CERTIFICATE>(bytes);
  ASSERT_EQ(record.cCert, 1u);
  const SV_CERT_HASH_ID& id = record.rgCert[0];
  EXPECT_STREQ(id.HashAlgorithm.pszObjId, "2.16.840.1.101.3.4.2.3");
  EXPECT_EQ(id.HashAlgorithm.Parameters.cbData, 0u);
  EXPECT_EQ(id.CertHash.cbData, 64u);
  ASSERT_NE(id.pIssuerSerial, nullptr);
  EXPECT_EQ(BlobHex(id.pIssuerSerial->Issuer), ToHex(FromHex(kName)));
  EXPECT_EQ(BlobHex(id.pIssuerSerial->SerialNumber), "018A00") << "little-endian, with its sign";

  const std::vector<BYTE> old = Decode(kFirst.decode, FromHex(kPoliciesHex));
  EXPECT_EQ(As<SV_SIGNING_CERTIFICATE>(old).rgCert[0].HashAlgorithm.pszObjId, nullptr);
  EXPECT_EQ(As<SV_SIGNING_CERTIFICATE>(old).rgCert[0].pIssuerSerial, nullptr);
}

TEST(SigningCertificate, WhatTheDefaultsHide) {
  BYTE hash[32] = {0xAA};
  SV_CERT_HASH_ID id = {
      {const_cast<LPSTR>("2.16.840.1.101.3.4.2.1"), {}  },
      {32,                                          hash},
      nullptr
  };
  const SV_SIGNING_CERTIFICATE record = {1, &id};
  EXPECT_EQ(Encode(kSecond.encode, &record).size(), 6u + 34) << "no algorithm";
  EXPECT_EQ(Encode(kOther.encode, &record).size(), 8u + 13 + 34);
  EXPECT_TRUE(Encode(kFirst.encode, &record).empty()) << "SHA-1 only";
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_BAD_ENCODE});
  BYTE null[] = {5, 0};
  id.HashAlgorithm.Parameters = {2, null};
  EXPECT_EQ(Encode(kSecond.encode, &record).size(), 6u + 15 + 34) << "not the default value";
  id.HashAlgorithm = {const_cast<LPSTR>("1.3.14.3.2.26"), {}};
  id.CertHash.cbData = 20;
  EXPECT_EQ(Encode(kOther.encode, &record).size(), 6u + 22);
}

TEST(SigningCertificate, RecordsWithoutAnEncoding) {
  BYTE bytes[20] = {0x30, 0x00};
  SV_ISSUER_SERIAL serial = {
      {2, bytes},
      {1, bytes}
  };
  SV_CERT_HASH_ID id = {
      {     },
      { 20, bytes},
      &serial
  };
  SV_SIGNING_CERTIFICATE record = {1, &id};
  EXPECT_FALSE(Encode(kFirst.encode, &record).empty());
  serial.Issuer.cbData = 3;
  EXPECT_TRUE(Encode(kFirst.encode, &record).empty()) << "not one Name";
  serial = {
      {2, bytes  },
      {0, nullptr}
  };
  EXPECT_TRUE(Encode(kFirst.encode, &record).empty()) << "no serial number";
  id.pIssuerSerial = nullptr;
  id.CertHash.cbData = 19;
  EXPECT_TRUE(Encode(kFirst.encode, &record).empty()) << "not a SHA-1 value";
  record.cCert = 0;
  EXPECT_TRUE(Encode(kFirst.encode, &record).empty()) << "no certificate";
}

TEST(KeyExtensions, Fields) {
  const std::vector<BYTE> period = Decode(kPeriod.decode, FromHex(kPeriodHex));
  SYSTEMTIME last;
  ASSERT_TRUE(FileTimeToSystemTime(As<SV_PRIVATE_KEY_USAGE_PERIOD>(period).pNotAfter, &last));
  EXPECT_EQ(last.wYear * 10000 + last.wMonth * 100 + last.wDay, 20501231);
  EXPECT_EQ(last.wHour * 10000 + last.wMinute * 100 + last.wSecond, 235959);
  const std::vector<BYTE> open = Decode(kPeriod.decode, FromHex(kOpenPeriodHex));
  EXPECT_EQ(As<SV_PRIVATE_KEY_USAGE_PERIOD>(open).pNotBefore, nullptr);

  EXPECT_EQ(As<DWORD>(Decode(kCounter.decode, FromHex("02 05 00 FF FF FF FE"))), 0xFFFFFFFEu);
  for (const char* mode : {"02 01 02", "0A 01 02"})
    EXPECT_EQ(As<DWORD>(Decode(kMode.decode, FromHex(mode))), 2u);

  const std::vector<BYTE> store = Decode(kStore.decode, FromHex(kStoreHex));
  ASSERT_EQ(As<SV_PRIVATE_CERTIFICATE_STORE>(store).cCertificate, 2u);
  EXPECT_EQ(BlobHex(As<SV_PRIVATE_CERTIFICATE_STORE>(store).rgCertificate[0]), ToHex(FromHex(kCertificate)));
}

TEST(IssuerSignTool, TextsAndTheirSizes) {
  const std::vector<BYTE> bytes = Decode(kTool.decode, FromHex(kToolHex));
  EXPECT_STREQ(As<SV_ISSUER_SIGN_TOOL>(bytes).pwszSignTool, L"Tool 1");
  EXPECT_STREQ(As<SV_ISSUER_SIGN_TOOL>(bytes).pwszCATool, L"\u0426\u0435\u043D\u0442\u0440");
  EXPECT_STREQ(As<SV_ISSUER_SIGN_TOOL>(bytes).pwszSignToolCert, L"No 1");
  EXPECT_STREQ(As<SV_ISSUER_SIGN_TOOL>(bytes).pwszCAToolCert, L"No 2");

  std::wstring tools(200, L'\u044F'), certificates(100, L'\U0001F511');
  SV_ISSUER_SIGN_TOOL tool = {tools.data(), tools.data(), certificates.data(), certificates.data()};
  EXPECT_EQ(Encode(kTool.encode, &tool).size(), 4u + 4 * 404);
  for (LPWSTR SV_ISSUER_SIGN_TOOL::*field :
       {&SV_ISSUER_SIGN_TOOL::pwszSignToolCert, &SV_ISSUER_SIGN_TOOL::pwszCAToolCert}) {
    SV_ISSUER_SIGN_TOOL longer = tool;
    longer.*field = tools.data();
    EXPECT_TRUE(Encode(kTool.encode, &longer).empty());
  }
  std::wstring tooLong(201, L'a'), none;
  for (const LPWSTR text : {tooLong.data(), none.data(), LPWSTR{}}) {
    tool.pwszCATool = text;
    EXPECT_TRUE(Encode(kTool.encode, &tool).empty());
    EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_BAD_ENCODE});
  }
}

}  // namespace
