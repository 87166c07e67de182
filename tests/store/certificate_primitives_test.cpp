#include <certkern/cert.h>
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/oids.h>
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "platform/owner.h"
#include "support/hex.h"

using namespace certkern;

namespace {

constexpr DWORD kStale = ERROR_NO_DATA;
constexpr char kServer[] = "1.3.6.1.5.5.7.3.1", kClient[] = "1.3.6.1.5.5.7.3.2",
               kCode[] = "1.3.6.1.5.5.7.3.3";
// Lists of key purposes, as `openssl asn1parse` shows them: SEQUENCE of OBJECT serverAuth, clientAuth, codeSigning
constexpr char kNobody[] = "30 00", kBroken[] = "30 02 06 84";
constexpr char kServerClient[] = "30 14 06 08 2B06010505070301 06 08 2B06010505070302";
constexpr char kClientServer[] = "30 14 06 08 2B06010505070302 06 08 2B06010505070301";
constexpr char kOnlyClient[] = "30 0A 06 08 2B06010505070302", kOnlyCode[] = "30 0A 06 08 2B06010505070303";

using Context = Owner<PCCERT_CONTEXT, CertFreeCertificateContext>;
using Purposes = std::vector<std::string>;

struct Blob {
  explicit Blob(std::string_view hex) : bytes(FromHex(hex)), blob{DWORD(bytes.size()), bytes.data()} {}
  std::vector<BYTE> bytes;
  CRYPT_DATA_BLOB blob;
};

std::vector<BYTE> Encode(LPCSTR type, const void* record) {
  DWORD size = 0;
  EXPECT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, type, record, nullptr, &size));
  std::vector<BYTE> encoded(size);
  EXPECT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, type, record, encoded.data(), &size));
  return encoded;
}

// A certificate with an extension of key purposes, and with a property of them; null: without.
Context Certificate(const char* extension, const char* property = nullptr) {
  Blob serial("01"), name("30 00"), null("05 00");
  Blob value(extension ? extension : ""), narrowing(property ? property : "");
  CERT_EXTENSION record = {const_cast<LPSTR>(szOID_ENHANCED_KEY_USAGE), FALSE, value.blob};
  CERT_INFO info{};
  info.dwVersion = CERT_V3;
  info.SerialNumber = serial.blob;
  info.Issuer = info.Subject = name.blob;
  info.SignatureAlgorithm = {const_cast<LPSTR>("1.2.3"), null.blob};
  info.SubjectPublicKeyInfo = {
      info.SignatureAlgorithm, {1, serial.bytes.data(), 0}
  };
  info.NotBefore.dwHighDateTime = info.NotAfter.dwHighDateTime = 0x01D00000;
  if (extension) info.cExtension = 1, info.rgExtension = &record;
  std::vector<BYTE> toBeSigned = Encode(X509_CERT_TO_BE_SIGNED, &info);
  const CERT_SIGNED_CONTENT_INFO content = {
      {DWORD(toBeSigned.size()), toBeSigned.data()},
      info.SignatureAlgorithm, { 1,     serial.bytes.data(),                 0}
  };
  const std::vector<BYTE> encoded = Encode(X509_CERT, &content);
  Context made(CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(), DWORD(encoded.size())));
  EXPECT_TRUE(made);
  if (property) {
    EXPECT_TRUE(CertSetCertificateContextProperty(made.get(), CERT_ENHKEY_USAGE_PROP_ID, 0, &narrowing.blob));
  }
  return made;
}

// Asks for the size, then with a byte too few, then with a buffer of just the size that the sanitizer watches.
template <class Call>
std::optional<Purposes> Ask(size_t header, Call call) {
  DWORD size = 0;
  if (!call(nullptr, &size)) return std::nullopt;
  const DWORD needed = size, code = GetLastError();
  std::vector<BYTE> buffer(size);
  if (size) {
    EXPECT_FALSE(call(buffer.data(), &--size));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(size, needed);
  }
  SetLastError(kStale);
  EXPECT_TRUE(call(buffer.data(), &size));
  EXPECT_EQ(GetLastError(), code) << "both calls have the same answer";
  Purposes purposes;
  size_t expected = header;
  for (size_t at = header; at + sizeof(LPSTR) <= size && expected < size; at += sizeof(LPSTR)) {
    LPCSTR text;
    std::memcpy(&text, buffer.data() + at, sizeof text);
    purposes.emplace_back(text);
    expected += purposes.back().size() + 9;
  }
  EXPECT_EQ(size, expected);
  return purposes;
}

std::optional<Purposes> Enhanced(PCCERT_CONTEXT context, DWORD flags) {
  return Ask(sizeof(CERT_ENHKEY_USAGE), [&](BYTE* out, DWORD* size) {
    SetLastError(kStale);
    return CertGetEnhancedKeyUsage(context, flags, reinterpret_cast<PCERT_ENHKEY_USAGE>(out), size);
  });
}

TEST(EnhancedKeyUsage, TheExtensionIsNarrowedByTheProperty) {
  const Purposes none, both = {kServer, kClient}, turned = {kClient, kServer}, client = {kClient};
  constexpr DWORD kExtension = CERT_FIND_EXT_ONLY_ENHKEY_USAGE_FLAG;
  constexpr DWORD kProperty = CERT_FIND_PROP_ONLY_ENHKEY_USAGE_FLAG;
  const struct {
    const char *name, *extension, *property;
    DWORD flags;
    std::optional<Purposes> expected;
    DWORD code;
  } kCases[] = {
      {"the extension alone",              kServerClient, nullptr,             0,          both,         kStale            },
      {"the property alone",               nullptr,       kOnlyClient,         0,          client,       kStale            },
      {"order of the property",            kServerClient, kClientServer,       0,          turned,       kStale            },
      {"what is in both",                  kServerClient, kOnlyClient,         0,          client,       kStale            },
      {"nothing in common",                kServerClient, kOnlyCode,           0,          none,         CRYPT_E_NOT_FOUND },
      {"an empty property narrows not",    kServerClient, kNobody,             0,          both,         kStale            },
      {"neither",                          nullptr,       nullptr,             0,          none,         CRYPT_E_NOT_FOUND },
      {"the extension is not looked at",   kBroken,       kOnlyClient,         kProperty,  client,       kStale            },
      {"the property is not looked at",    kServerClient, kBroken,             kExtension, both,         kStale            },
      {"no property",                      kServerClient, nullptr,             kProperty,  std::nullopt, CRYPT_E_NOT_FOUND },
      {"no extension",                     nullptr,       kOnlyClient,         kExtension, std::nullopt, CRYPT_E_NOT_FOUND },
      {"an empty extension",               kNobody,       nullptr,             kExtension, std::nullopt, CRYPT_E_NOT_FOUND },
      {"a broken extension",               kBroken,       nullptr,             0,          std::nullopt, CRYPT_E_ASN1_ERROR},
      {"a broken property without a code", kServerClient, "30 04 06 08 2B 06", 0,          std::nullopt,
       CRYPT_E_ASN1_ERROR                                                                                                  },
      {"a broken property, its own code",  kServerClient, kBroken,             0,          std::nullopt, CRYPT_E_ASN1_EOD  },
  };
  for (const auto& [name, extension, property, flags, expected, code] : kCases) {
    SCOPED_TRACE(name);
    const Context context = Certificate(extension, property);
    EXPECT_EQ(Enhanced(context.get(), flags), expected);
    EXPECT_EQ(GetLastError(), code);
  }
}

TEST(EnhancedKeyUsage, BadArguments) {
  const Context context = Certificate(kServerClient);
  const CERT_CONTEXT stranger = *context.get();
  DWORD size = 0;
  EXPECT_FALSE(CertGetEnhancedKeyUsage(nullptr, 0, nullptr, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  for (const DWORD flags : {0u, CERT_FIND_PROP_ONLY_ENHKEY_USAGE_FLAG}) {
    EXPECT_FALSE(Enhanced(&stranger, flags)) << "only a live context has properties";
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  }
  for (const DWORD flags : {1u, 6u, 8u}) {
    EXPECT_FALSE(Enhanced(context.get(), flags));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_FLAGS});
  }
}

TEST(ValidUsages, WhatNoCertificateExcludes) {
  const struct {
    const char* name;
    std::vector<const char*> extensions;
    int count;
    Purposes expected;
  } kCases[] = {
      {"no certificate",                  {},                                        -1, {}                },
      {"none restricts",                  {nullptr, kNobody},                        -1, {}                },
      {"one",                             {kServerClient},                           2,  {kServer, kClient}},
      {"order of the first",              {nullptr, kServerClient, kClientServer},   2,  {kServer, kClient}},
      {"struck",                          {kServerClient, kOnlyClient, nullptr},     1,  {kClient}         },
      {"nothing left, and it stays so",   {kServerClient, kOnlyCode, kServerClient}, 0,  {}                },
      {"unreadable ones restrict nobody", {kBroken, kOnlyCode},                      1,  {kCode}           },
  };
  for (const auto& [name, extensions, count, expected] : kCases) {
    SCOPED_TRACE(name);
    std::vector<Context> owned;
    std::vector<PCCERT_CONTEXT> contexts;
    for (const char* extension : extensions) owned.push_back(Certificate(extension));
    for (const Context& context : owned) contexts.push_back(context.get());
    int found = 77;
    const auto answer = Ask(0, [&](BYTE* out, DWORD* size) {
      SetLastError(kStale);
      return CertGetValidUsages(DWORD(contexts.size()), contexts.data(), &found,
                                reinterpret_cast<LPSTR*>(out), size);
    });
    EXPECT_EQ(answer, expected);
    EXPECT_EQ(found, count);
  }
}

TEST(IntendedKeyUsage, BitsAsFarAsThereIsRoom) {
  Blob value("03 03 07 06 80"), broken("03 84"), endless("03 82 01 01 00" + std::string(512, '5'));
  CERT_EXTENSION extension = {const_cast<LPSTR>(szOID_KEY_USAGE), TRUE, value.blob};
  CERT_INFO info{};
  const auto ask = [&](DWORD room) {
    std::vector<BYTE> usage(room, 0xAA);
    SetLastError(kStale);
    const BOOL done = CertGetIntendedKeyUsage(X509_ASN_ENCODING, &info, usage.data(), room);
    return (done ? "yes " : "no ") + ToHex(usage);
  };
  EXPECT_EQ(ask(2), "no 0000");
  EXPECT_EQ(GetLastError(), 0u) << "it is simply not there";
  info.cExtension = 1;
  EXPECT_EQ(ask(2), "no 0000") << "a count without an array";
  info.rgExtension = &extension;
  EXPECT_EQ(ask(1), "yes 06");
  EXPECT_EQ(ask(3), "yes 068000");
  EXPECT_EQ(GetLastError(), kStale);
  for (const Blob* bad : {&broken, &endless}) {
    extension.Value = bad->blob;
    EXPECT_EQ(ask(1), "no 00");
    EXPECT_EQ(GetLastError(), DWORD{bad == &broken ? CRYPT_E_ASN1_EOD : CRYPT_E_ASN1_ERROR});
  }
}

TEST(CertificatePrimitives, LookUps) {
  CERT_EXTENSION extensions[] = {
      {nullptr,                    FALSE, {}},
      {const_cast<LPSTR>("2.5.4"), FALSE, {}},
      {const_cast<LPSTR>("2.5.4"), TRUE,  {}}
  };
  CRYPT_ATTRIBUTE attributes[] = {
      {nullptr,                    0, nullptr},
      {const_cast<LPSTR>("2.5.4"), 0, nullptr}
  };
  SetLastError(kStale);
  EXPECT_EQ(CertFindExtension("2.5.4", 3, extensions), &extensions[1]);
  EXPECT_EQ(CertFindExtension("2.5.4", 1, extensions), nullptr);
  EXPECT_EQ(CertFindExtension("2.5.", 3, extensions), nullptr);
  EXPECT_EQ(CertFindAttribute("2.5.4", 2, attributes), &attributes[1]);
  EXPECT_EQ(CertFindAttribute("2.5.4", 0, attributes), nullptr);
  EXPECT_EQ(CertFindAttribute(nullptr, 2, attributes), nullptr);
  EXPECT_EQ(CertFindAttribute("2.5.4", 2, nullptr), nullptr);
  EXPECT_EQ(GetLastError(), kStale);
  EXPECT_EQ(CertFindExtension("2.5.4", 0, nullptr), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(CertificatePrimitives, Times) {
  CERT_INFO wide{}, narrow{};
  wide.NotBefore = {5, 1}, wide.NotAfter = {5, 3};
  narrow.NotBefore = {9, 1}, narrow.NotAfter = {1, 3};
  const struct {
    FILETIME moment;
    LONG side;
  } kCases[] = {
      {{4, 1}, -1},
      {{5, 1}, 0 },
      {{0, 2}, 0 },
      {{5, 3}, 0 },
      {{6, 3}, 1 },
  };
  for (auto [moment, side] : kCases) EXPECT_EQ(CertVerifyTimeValidity(&moment, &wide), side);
  EXPECT_EQ(CertVerifyTimeValidity(nullptr, &wide), 1) << "in 1601, and now is later";
  wide.NotAfter.dwHighDateTime = 0x7FFFFFFF;
  EXPECT_EQ(CertVerifyTimeValidity(nullptr, &wide), 0);
  EXPECT_TRUE(CertVerifyValidityNesting(&narrow, &wide));
  EXPECT_TRUE(CertVerifyValidityNesting(&wide, &wide));
  EXPECT_FALSE(CertVerifyValidityNesting(&wide, &narrow));
  narrow.NotBefore = {4, 1};
  SetLastError(kStale);
  EXPECT_FALSE(CertVerifyValidityNesting(&narrow, &wide)) << "begins too early";
  EXPECT_EQ(GetLastError(), kStale);
  EXPECT_FALSE(CertVerifyValidityNesting(&narrow, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  SetLastError(kStale);
  EXPECT_EQ(CertVerifyTimeValidity(nullptr, nullptr), 87);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(CertificatePrimitives, Comparisons) {
  const struct {
    const char *one, *other;  // little-endian
    bool sameInteger;
  } kCases[] = {
      {"",         "",         true },
      {"",         "00",       false},
      {"01",       "01 00",    true },
      {"01 00 00", "01",       true },
      {"FF",       "FF FF FF", true },
      {"FF 00",    "FF",       false},
      {"80 FF",    "80",       true },
      {"7F FF",    "7F",       false},
      {"00",       "00 00",    true },
      {"01 02",    "02 01",    false},
  };
  SetLastError(kStale);
  for (const auto& [one, other, same] : kCases) {
    SCOPED_TRACE(std::string(one) + " | " + other);
    Blob a(one), b(other);
    EXPECT_EQ(CertCompareIntegerBlob(&a.blob, &b.blob), same);
    EXPECT_EQ(CertCompareIntegerBlob(&b.blob, &a.blob), same);
    EXPECT_EQ(CertCompareCertificateName(1, &a.blob, &b.blob), a.bytes == b.bytes);
    CERT_INFO first{}, second{};
    first.SerialNumber = a.blob, second.SerialNumber = b.blob;
    EXPECT_EQ(CertCompareCertificate(1, &first, &second), same);
    first.Issuer = a.blob, second.Issuer = b.blob;
    EXPECT_EQ(CertCompareCertificate(1, &first, &second), a.bytes == b.bytes) << "the issuers decide, too";
  }
  EXPECT_EQ(GetLastError(), kStale);
  Blob good("01");
  CRYPT_DATA_BLOB hollow = {1, nullptr};
  CERT_INFO info{};
  const BOOL kRefused[] = {
      CertCompareIntegerBlob(&good.blob, nullptr), CertCompareCertificateName(1, nullptr, &good.blob),
      CertCompareIntegerBlob(&hollow, &good.blob), CertCompareCertificateName(1, &good.blob, &hollow),
      CertCompareCertificate(1, &info, nullptr),
  };
  for (const BOOL answer : kRefused) EXPECT_FALSE(answer);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

}  // namespace
