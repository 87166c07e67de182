// The entry points: which codec, which code, which allocator.
#include "ber/object_codec.h"
#include "support/hex.h"

#include <certkern/encode.h>
#include <certkern/keykern.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string Encoded(LPCSTR type, const void* record) {
  BYTE out[64];
  DWORD size = sizeof(out);
  return CryptEncodeObject(X509_ASN_ENCODING, type, record, out, &size) ? ToHex({out, size}) : "failed";
}

DWORD DecodeFault(LPCSTR type, const char* hex, DWORD flags = 0, DWORD encoding = X509_ASN_ENCODING) {
  const std::vector<BYTE> input = FromHex(hex);
  DWORD size = 0;
  SetLastError(0);
  EXPECT_FALSE(CryptDecodeObject(encoding, type, input.data(), static_cast<DWORD>(input.size()), flags,
                                 nullptr, &size));
  return GetLastError();
}

int blocks = 0;
void* CountingAlloc(size_t size) {
  ++blocks;
  return std::malloc(size);
}
void CountingFree(void* memory) {
  --blocks;
  std::free(memory);
}
void* NoAlloc(size_t) { return nullptr; }

constexpr BYTE kUsage[] = {0x30, 0x05, 0x06, 0x03, 0x2A, 0x03, 0x04};

}  // namespace

TEST(CryptEncodeObject, OidsStandForTheirTypes) {
  const int reason = 1;
  BYTE bytes[] = {0xA0};
  const CRYPT_DATA_BLOB blob = {1, bytes};
  const CRYPT_BIT_BLOB bits = {1, bytes, 3};
  const FILETIME time = {0xD53E8000, 0x019DB1DE};  // 1970-01-01
  EXPECT_EQ(Encoded("2.5.29.21", &reason), "0A0101");
  EXPECT_EQ(Encoded("2.5.29.20", &reason), "020101");
  EXPECT_EQ(Encoded("2.5.29.14", &blob), "0401A0");
  EXPECT_EQ(Encoded("2.5.29.15", &bits), "030205A0") << "the last byte tells the unused bits";
  EXPECT_EQ(Encoded("1.2.840.113549.1.9.5", &time), "170D3730303130313030303030305A");
}

TEST(CryptEncodeObject, UnusedBitsOfKeyUsage) {
  BYTE byte = 0;
  const CRYPT_BIT_BLOB bits = {1, &byte, 0};
  const std::pair<BYTE, const char*> kCases[] = {
      {0x01, "03020001"},
      {0x40, "03020640"},
      {0x80, "03020780"},
      {0x00, "03020700"},
      {0xA0, "030205A0"}
  };
  for (const auto& [value, hex] : kCases) {
    byte = value;
    EXPECT_EQ(Encoded(X509_KEY_USAGE, &bits), hex);
  }
  const CRYPT_BIT_BLOB none = {0, nullptr, 5};
  EXPECT_EQ(Encoded(X509_KEY_USAGE, &none), "030100");
}

TEST(CryptEncodeObject, FailuresTellTheCodeAndTheSize) {
  const int number = 0x12345;
  BYTE out[8];
  DWORD size = 2;
  EXPECT_FALSE(CryptEncodeObject(X509_ASN_ENCODING, X509_INTEGER, &number, out, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, 5u);
  EXPECT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, X509_INTEGER, &number, out, &size));
  EXPECT_EQ(GetLastError(), 0u);

  struct {
    const char* name;
    LPCSTR type;
    const void* record;
  } const kCases[] = {
      {"an unknown OID",             "1.2.3",                 &number},
      {"an unknown number",          LPCSTR(4095),            &number},
      {"no record",                  X509_INTEGER,            nullptr},
      {"key usage without a record", X509_KEY_USAGE,          nullptr},
      {"known without a codec",      LPCSTR(10),              &number},
      {"not written",                X509_POLICY_CONSTRAINTS, out    },
  };
  for (const auto& [name, type, record] : kCases) {
    SCOPED_TRACE(name);
    size = sizeof(out);
    SetLastError(0);
    EXPECT_FALSE(CryptEncodeObject(X509_ASN_ENCODING, type, record, out, &size));
    EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_BAD_ENCODE});
  }
  SetLastError(7);
  EXPECT_FALSE(CryptEncodeObject(X509_ASN_ENCODING, nullptr, &number, out, &size));
  EXPECT_EQ(GetLastError(), 7u) << "a null type leaves the code alone";
}

TEST(CryptEncodeObject, ListsOfNone) {
  const CERT_EXTENSIONS none = {0, nullptr};
  const CERT_ENHKEY_USAGE noUsage = {0, nullptr};
  const CRL_DIST_POINTS_INFO noPoint = {0, nullptr};
  const CERT_AUTHORITY_INFO_ACCESS noAccess = {0, nullptr};
  EXPECT_EQ(Encoded(X509_EXTENSIONS, &none), "");
  EXPECT_EQ(Encoded(X509_NAME, &none), "");
  EXPECT_EQ(Encoded(X509_ENHANCED_KEY_USAGE, &noUsage), "3000");
  EXPECT_EQ(Encoded(X509_AUTHORITY_INFO_ACCESS, &noAccess), "");
  EXPECT_EQ(Encoded(X509_CRL_DIST_POINTS, &noPoint), "failed");
  void* buffer = nullptr;
  DWORD size = 1;
  ASSERT_TRUE(CryptEncodeObjectEx(X509_ASN_ENCODING, X509_EXTENSIONS, &none, CRYPT_ENCODE_ALLOC_FLAG, nullptr,
                                  &buffer, &size));
  EXPECT_NE(buffer, nullptr);
  EXPECT_EQ(size, 0u);
  LocalFree(buffer);
}

TEST(CryptEncodeObject, GeneralNameTextHasALimit) {
  for (const size_t length : {511u, 512u}) {
    std::wstring text(length, L'a');
    CERT_ALT_NAME_ENTRY entry{};
    entry.dwAltNameChoice = CERT_ALT_NAME_DNS_NAME;
    entry.pwszDNSName = text.data();
    const CERT_ALT_NAME_INFO info = {1, &entry};
    DWORD size = 0;
    EXPECT_EQ(CryptEncodeObject(X509_ASN_ENCODING, X509_ALTERNATE_NAME, &info, nullptr, &size),
              length == 511);
  }
}

TEST(CryptDecodeObject, Refusals) {
  EXPECT_EQ(DecodeFault("1.2.3", "05 00"), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(DecodeFault(LPCSTR(42), "30 00"), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(DecodeFault(X509_EXTENSIONS, ""), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(DecodeFault(X509_INTEGER, "02 01 05", 4), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(DecodeFault(X509_INTEGER, "02 01 05", 0, 2), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(DecodeFault(nullptr, "02 01 05"), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(DecodeFault(X509_INTEGER, "02 00"), DWORD{CRYPT_E_ASN1_ERROR})
      << "silent failures surface as one code";
  EXPECT_EQ(DecodeFault(X509_INTEGER, "04 01 00"), DWORD{CRYPT_E_ASN1_BADTAG});
}

TEST(CryptDecodeObject, TooLittleRoomHasNoCodeOfItsOwn) {
  BYTE record[8];
  const BYTE input[] = {2, 1, 5};
  for (const auto& [before, after] : {
           std::pair<DWORD, DWORD>{0,  CRYPT_E_ASN1_ERROR},
            {17, 17                }
  }) {
    DWORD size = 4;
    SetLastError(before);
    EXPECT_FALSE(CryptDecodeObject(X509_ASN_ENCODING, X509_INTEGER, input, sizeof(input), 0, record, &size));
    EXPECT_EQ(GetLastError(), after);
    EXPECT_EQ(size, 8u);
  }
}

TEST(CryptDecodeObjectEx, Allocators) {
  struct {
    const char* name;
    CRYPT_DECODE_PARA parameters;
    DWORD code;  // 0: success
    bool counted;
  } const kCases[] = {
      {"the caller's pair",     {24, CountingAlloc, CountingFree}, 0,                       true },
      {"size covers none",      {8, CountingAlloc, CountingFree},  0,                       false},
      {"size covers the first", {16, CountingAlloc, CountingFree}, ERROR_INVALID_PARAMETER, false},
      {"only one function",     {24, CountingAlloc, nullptr},      ERROR_INVALID_PARAMETER, false},
      {"neither function",      {24, nullptr, nullptr},            0,                       false},
      {"no memory",             {24, NoAlloc, CountingFree},       ERROR_NOT_ENOUGH_MEMORY, false},
  };
  for (auto row : kCases) {
    SCOPED_TRACE(row.name);
    blocks = 0;
    CERT_ENHKEY_USAGE* usage = nullptr;
    DWORD size = 0;
    SetLastError(0);
    const BOOL done = CryptDecodeObjectEx(X509_ASN_ENCODING, X509_ENHANCED_KEY_USAGE, kUsage, sizeof(kUsage),
                                          CRYPT_DECODE_ALLOC_FLAG, &row.parameters, &usage, &size);
    EXPECT_EQ(done, row.code == 0);
    if (!done) {
      EXPECT_EQ(GetLastError(), row.code);
      EXPECT_EQ(usage, nullptr);
      continue;
    }
    EXPECT_EQ(blocks, row.counted ? 1 : 0);
    EXPECT_EQ(size, 16u + 8 + 8);
    EXPECT_STREQ(usage->rgpszUsageIdentifier[0], "1.2.3.4");
    row.counted ? CountingFree(usage) : static_cast<void>(LocalFree(usage));
  }
}

TEST(CryptDecodeObject, SignedAndBareCertificates) {
  // 30 { 30 { serial ... } ...}: which of the two is meant shows in the octet behind the first header
  const char* kBare = "30 0D 02 01 05 30 05 06 03 2A 03 04 30 00 30 00";
  EXPECT_NE(DecodeFault(X509_CERT_TO_BE_SIGNED, kBare), 0u) << "no validity";
  // a bare list without a version is told from a signed one, and then lacks its version
  EXPECT_EQ(DecodeFault(X509_CERT_CRL_TO_BE_SIGNED, "30 09 30 05 06 03 2A 03 04 30 00"),
            DWORD{CRYPT_E_ASN1_ERROR});
  EXPECT_EQ(DecodeFault(X509_CERT_TO_BE_SIGNED, "30 84 30"), DWORD{CRYPT_E_ASN1_EOD});
}
