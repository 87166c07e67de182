// Identifiers, algorithms, times and bytes on their way between records and generated types.
#include "certkern/ASN1Util.h"

#include <certkern/keykern.h>
#include <certkern/oids.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "asn1data/algorithms.h"
#include "certkern/ASN1Blob.h"
#include "certkern/ASN1Traits.h"
#include "platform/exceptions.h"
#include "platform/owner.h"
#include "platform/temporary_directory.h"
#include "support/hex.h"

using namespace certkern;

namespace {

// What was thrown, or nothing.
template <class Exception, class Body>
std::string Thrown(const Body& body) {
  try {
    body();
  } catch (const Exception& exception) {
    return exception.what();
  }
  return "nothing";
}
#define EXPECT_THROWN(Exception, file, message, statement)                         \
  EXPECT_TRUE(Thrown<Exception>([&] {                                              \
                statement;                                                         \
              }).starts_with("Exception :'" message "' at file:'" file "' line:")) \
      << Thrown<Exception>([&] { statement; })

std::string Dotted(const char* text) {
  ASN1OBJID oid;
  return str2oid(text, oid) == 0 ? oid2str(AsField(oid)) : "refused";
}

std::string Repeated(int count) {
  std::string text = "1";
  for (int i = 1; i < count; ++i) text += ".1";
  return text;
}

uint64_t Ticks(const FILETIME& time) { return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime; }

}  // namespace

TEST(Str2Oid, ReadsAsCReadsNumbers) {
  const std::pair<const char*, const char*> kCases[] = {
      {"1.2.643.2.2.3",             "1.2.643.2.2.3"},
      {"1.2.0x10",                  "1.2.16"       },
      {"1.2.010",                   "1.2.8"        },
      {"1.2.08",                    "refused"      }, // octal ends before the 8
      {"1.2.",                      "1.2.0"        },
      {"1..2",                      "1.0.2"        },
      {"",                          "0"            },
      {"1 .2\t. 3 \n",              "1.2.3"        },
      {"1.2 3",                     "refused"      },
      {"1.2,3",                     "refused"      },
      {"1.2.4294967298",            "1.2.2"        }, // cut to 32 bits
      {"1.-1",                      "1.4294967295" },
      {static_cast<char*>(nullptr), "refused"      },
  };
  for (const auto& [text, expected] : kCases) EXPECT_EQ(Dotted(text), expected) << (text ? text : "null");
  EXPECT_EQ(Dotted(Repeated(128).c_str()), Repeated(128));
  EXPECT_EQ(Dotted(Repeated(129).c_str()), "refused") << "there is no room for another arc";
}

TEST(Str2Oid, CheckedForms) {
  ASN1OBJID oid;
  const ASN1ObjectId none = {0, nullptr};
  EXPECT_THROWN(Asn1Exception, "certkern/ASN1Util", "Can't convert str to oid.", StrToOid("x", oid));
  EXPECT_THROWN(Asn1Exception, "certkern/ASN1Util", "Can't convert oid to str.", oid2str(none));
}

TEST(AlgorithmToGenerated, DecodesWhatIsKnown) {
  const auto context = ASN1ContextPtr::Create();
  const auto make = [&](const char* oid, const char* parameters) {
    return AlgorithmToGenerated(*context, oid, FromHex(parameters));
  };
  const auto* plain = make("1.2.643.7.1.1.1.1", "");
  EXPECT_FALSE(plain->m.parametersPresent);
  EXPECT_EQ(oid2str(plain->algorithm), "1.2.643.7.1.1.1.1");
  const auto* gost = make("1.2.643.7.1.1.1.1", "3013 06072A850302022300 06082A85030701010202");
  EXPECT_TRUE(gost->m.parametersPresent);
  ASSERT_TRUE(gost->parameters.type);
  EXPECT_TRUE(gost->parameters.decoded);
  const auto* unknown = make("1.2.3.4", "04020102");
  EXPECT_EQ(unknown->parameters.type, nullptr);
  EXPECT_EQ(ToHex(unknown->parameters.encoded.bytes()), "04020102");

  EXPECT_THROWN(Asn1Exception, "certkern/ASN1Util", "str2oid failed", make("1.x", ""));
  EXPECT_THROWN(Asn1Exception, "certkern/ASN1Util", "str2oid failed", make(nullptr, ""));
  EXPECT_THROWN(Asn1DecodeException, "certkern/ASN1Util", "decode algorithm parameters failed",
                make("1.2.643.7.1.1.1.1", "040100"));
}

TEST(DefaultSignatureAlgorithm, IsThatOfTheKey) {
  const auto context = ASN1ContextPtr::Create();
  const std::pair<DWORD, const char*> kProviders[] = {
      {PROV_GOST_2012_256, "1.2.643.7.1.1.3.2"},
      {PROV_GOST_2012_512, "1.2.643.7.1.1.3.3"},
  };
  for (const auto& [type, oid] : kProviders) {
    Owner<HCRYPTPROV, CryptReleaseContext> provider;
    Owner<HCRYPTKEY, CryptDestroyKey> key;
    ASSERT_TRUE(CryptAcquireContextA(provider.out(), nullptr, nullptr, type, CRYPT_VERIFYCONTEXT));
    EXPECT_THROW(DefaultSignatureAlgorithm(*context, provider.get(), AT_SIGNATURE), CryptException)
        << "no key";
    ASSERT_TRUE(CryptGenKey(provider.get(), AT_SIGNATURE, 0, key.out()));
    const auto* algorithm = DefaultSignatureAlgorithm(*context, provider.get(), AT_SIGNATURE);
    EXPECT_EQ(oid2str(algorithm->algorithm), oid);
    EXPECT_FALSE(algorithm->m.parametersPresent);
  }
}

TEST(DecodeInteger, Of32Bits) {
  const std::pair<const char*, int32_t> kCases[] = {
      {"020105",       5         },
      {"0201FF",       -1        },
      {"02047FFFFFFF", 0x7FFFFFFF},
      {"020480000000", INT32_MIN }
  };
  for (const auto& [hex, value] : kCases) EXPECT_EQ(DecodeInteger(FromHex(hex)), value) << hex;
  for (const char* bad : {"", "0200", "020500FFFFFFFF", "020201", "030105"})
    EXPECT_THROWN(Asn1Exception, "certkern/ASN1Util", "decode integer failed", DecodeInteger(FromHex(bad)))
        << bad;
}

TEST(Times, Generalized) {
  constexpr uint64_t kNewYear2024 = 133485408000000000;  // date -d 2024-01-01Z +%s, in ticks since 1601
  const std::pair<const char*, uint64_t> kCases[] = {
      {"20240101000000Z",      kNewYear2024             },
      {"20240101000000.5Z",    kNewYear2024 + 5'000'000 },
      {"20240101000000.0019Z", kNewYear2024 + 10'000    }, // cut to the millisecond
      {"20240101000001.Z",     kNewYear2024 + 10'000'000},
      {"16010101000000Z",      0                        },
  };
  for (const auto& [text, ticks] : kCases) EXPECT_EQ(Ticks(GeneralizedTimeToFileTime(text)), ticks) << text;
  for (const char* bad : {"", "Z", "20240101000000", "202401010000Z", "20240101000000+0300",
                          "20241301000000Z", "20240230000000Z", "2024010100000xZ", "20240101000000,5Z",
                          "20240101000000.5x", "20240101000000.x5Z", "15000101000000Z"})
    EXPECT_THROWN(Asn1Exception, "certkern/ASN1Util", "ASN1GeneralizedTime is incorrect",
                  GeneralizedTimeToFileTime(bad))
        << bad;
  for (const char* text :
       {"20240101000000Z", "20240101000000.5Z", "20240101000000.019Z", "99991231235959.999Z"})
    EXPECT_EQ(FileTimeToGeneralizedTime(GeneralizedTimeToFileTime(text)), text);
  EXPECT_THROWN(Asn1Exception, "certkern/ASN1Util", "ASN1GeneralizedTime is incorrect",
                FileTimeToGeneralizedTime({0, 0x7FFFFFFF}));
}

TEST(Times, ChoiceByYear) {
  const auto context = ASN1ContextPtr::Create();
  const std::pair<const char*, const char*> kCases[] = {
      {"19491231235959Z",    "19491231235959Z"},
      {"19500101000000Z",    "500101000000Z"  },
      {"20491231235959.25Z", "491231235959Z"  },
      {"20500101000000Z",    "20500101000000Z"},
  };
  for (const auto& [given, expected] : kCases) {
    asn1data::ASN1T_Time time;
    FILETIME back;
    TimeTraits::set(*context, GeneralizedTimeToFileTime(given), time);
    const bool utc = time.t == asn1data::ASN1T_Time::t_utcTime;
    EXPECT_EQ(utc ? time.u.utcTime.text() : time.u.generalTime.text(), expected);
    TimeTraits::get(time, back);
    EXPECT_EQ(FileTimeToGeneralizedTime(back).substr(0, 14), std::string(given).substr(0, 14));
  }
}

TEST(SerialNumbers, AreShortestOnTheWayBack) {
  const auto context = ASN1ContextPtr::Create();
  const std::pair<const char*, const char*> kCases[] = {
      {"05",     "05"    }, // little-endian; as written
      {"050000", "05"    },
      {"8000",   "0080"  },
      {"80",     "80"    },
      {"80FF",   "80"    },
      {"00FF",   "FF00"  },
      {"010203", "030201"},
      {"0000",   "00"    },
  };
  for (const auto& [little, expected] : kCases) {
    std::vector<BYTE> bytes = FromHex(little);
    ASN1BigInteger number;
    SerialNumberTraits::set(*context, {static_cast<DWORD>(bytes.size()), bytes.data()}, number);
    EXPECT_EQ(ToHex(number.bytes()), expected) << little;
  }
}

TEST(ASN1Blob, GrowsByDoubling) {
  const std::vector<BYTE> bytes(5000, 7);
  ASN1Blob blob(bytes);
  EXPECT_EQ(blob.size(), 5000u);
  EXPECT_EQ(blob.capacity(), 8192u);
  ASN1Blob copy = blob;
  copy.data()[0] = 8;
  EXPECT_EQ(blob.data()[0], 7) << "a copy has bytes of its own";
  copy.resize(8193);
  EXPECT_EQ(copy.capacity(), 16384u);
  EXPECT_EQ(copy.data()[0], 8);
  EXPECT_EQ(copy.data()[4999], 7);
  EXPECT_EQ(ASN1Blob(FromHex("05")).capacity(), 4096u);
  EXPECT_EQ(ASN1Blob().capacity(), 0u);
  EXPECT_THROW(blob.resize(uint64_t{1} << 32), CryptException) << "more than the interface can tell";
  EXPECT_EQ(blob.size(), 5000u) << "untouched";
  blob.assign(blob.bytes().subspan(1));  // a part of itself
  EXPECT_EQ(blob.size(), 4999u);
}

TEST(ASN1Blob, Base64) {
  const ASN1Blob blob(FromHex("00010203FF"));
  const std::string text = blob.toBase64();
  EXPECT_EQ(text.substr(0, 8), "AAECA/8=");
  EXPECT_EQ(ToHex(ASN1Blob::FromBase64(text).bytes()), "00010203FF");
  EXPECT_EQ(ASN1Blob::FromBase64("").size(), 0u);
  EXPECT_THROWN(Asn1Exception, "certkern/ASN1Blob", "invalid base 64 format", ASN1Blob::FromBase64("AA*="));
}

TEST(ASN1Blob, Files) {
  const certkern::test::TemporaryDirectory directory;
  for (const size_t size : {0u, 1u, 4095u, 4096u, 4097u, 20000u}) {
    std::vector<BYTE> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<BYTE>(i * 31 >> 3);
    ASN1Blob(bytes).save(directory.path("blob"));
    const ASN1Blob read = ASN1Blob::Load(directory.path("blob"));
    EXPECT_TRUE(std::ranges::equal(read.bytes(), bytes)) << size;
  }
  EXPECT_NE(Thrown<Asn1Exception>([&] {
              ASN1Blob::Load(directory.path("none"));
            }).find("couldn't open file " + directory.path("none")),
            std::string::npos);
  EXPECT_NE(
      Thrown<Asn1Exception>([&] { ASN1Blob().save(directory.path("no/such")); }).find("couldn't open file "),
      std::string::npos);
}
