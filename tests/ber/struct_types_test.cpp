// Every row of the table over samples: sizes, round trips, and what damaged input does.
#include "ber/struct_types.h"
#include "samples.h"
#include "support/hex.h"

#include <gtest/gtest.h>

#include <map>

using namespace certkern;

namespace {

// What a decoding answers: the record in a buffer of exactly the size that was asked for.
struct Decoded {
  bool ok = false;
  DWORD code = 0;
  DWORD size = 0;
  std::vector<BYTE> record;
};

Decoded Decode(uintptr_t type, std::span<const BYTE> input, DWORD flags = 0) {
  Decoded answer;
  const StructType* row = FindStructType(type);
  if (!row) {
    ADD_FAILURE() << "no type " << type;
    return answer;
  }
  SetLastError(0);
  answer.ok = BerDecodeEntry(SizeKnown::No, *row, input, flags, nullptr, &answer.size);
  answer.code = GetLastError();
  if (!answer.ok) return answer;
  answer.record.assign(answer.size, 0xEE);  // what is not written shows
  DWORD size = answer.size;
  EXPECT_TRUE(BerDecodeEntry(SizeKnown::Yes, *row, input, flags, answer.record.data(), &size));
  return answer;
}

std::vector<BYTE> Encode(uintptr_t type, const void* record) {
  DWORD size = 0;
  if (!BerEncodeByType(type, record, nullptr, &size)) return {};
  std::vector<BYTE> encoded(size);
  EXPECT_TRUE(BerEncodeByType(type, record, encoded.data(), &size));
  EXPECT_EQ(size, encoded.size());
  return encoded;
}

}  // namespace

TEST(StructTypes, SamplesDecodeToTheirSizeAndBack) {
  for (const Sample& sample : Samples()) {
    SCOPED_TRACE(sample.name);
    const std::vector<BYTE> input = FromHex(sample.hex);
    const Decoded decoded = Decode(sample.type, input);
    ASSERT_TRUE(decoded.ok) << std::hex << decoded.code;
    EXPECT_EQ(decoded.size, sample.recordSize);
    if (sample.reencodes) {
      EXPECT_EQ(ToHex(Encode(sample.type, decoded.record.data())), ToHex(input));
    }
  }
}

TEST(StructTypes, EachReadableRowHasASample) {
  std::map<uintptr_t, int> seen;
  for (const Sample& sample : Samples()) ++seen[sample.type];
  for (const StructType& row : StructTypes()) {
    if (row.decode && row.number != kTypeElementContent) {
      EXPECT_TRUE(seen.count(row.number)) << row.name;
    }
  }
}

TEST(StructTypes, SmallBuffersAreRefusedAndNotTouchedBehindTheirEnd) {
  for (const Sample& sample : Samples()) {
    SCOPED_TRACE(sample.name);
    const std::vector<BYTE> input = FromHex(sample.hex);
    const StructType& row = *FindStructType(sample.type);
    const Decoded decoded = Decode(sample.type, input);
    ASSERT_TRUE(decoded.ok);
    for (DWORD room = 0; room < decoded.size; room += room < row.recordSize ? 4 : 8) {
      std::vector<BYTE> small(room + 1, 0xEE);  // one byte more, which stays
      DWORD size = room;
      SetLastError(0);
      EXPECT_FALSE(BerDecodeEntry(SizeKnown::No, row, input, 0, small.data(), &size));
      EXPECT_EQ(size, decoded.size);
      EXPECT_EQ(GetLastError(), 0u);
      // a caller inside who gives a wrong size is not trusted either, but for the padding of the last piece
      size = room;
      static_cast<void>(BerDecodeEntry(SizeKnown::Yes, row, input, 0, small.data(), &size));
      EXPECT_EQ(small.back(), 0xEE);
    }
    if (!row.encode) continue;
    DWORD full = 0;
    ASSERT_TRUE(BerEncodeByType(sample.type, decoded.record.data(), nullptr, &full));
    for (DWORD room = 0; room < full; ++room) {
      std::vector<BYTE> small(room + 1, 0xEE);
      DWORD size = room;
      EXPECT_FALSE(BerEncodeByType(sample.type, decoded.record.data(), small.data(), &size));
      EXPECT_EQ(small.back(), 0xEE);
    }
  }
}

TEST(StructTypes, DamagedSamplesGetADefinedAnswer) {
  for (const Sample& sample : Samples()) {
    SCOPED_TRACE(sample.name);
    const std::vector<BYTE> input = FromHex(sample.hex);
    for (size_t cut = 1; cut < input.size(); ++cut) {
      const std::vector<BYTE> shorter(input.begin(), input.begin() + static_cast<ptrdiff_t>(cut));
      // a whole element that is cut cannot be whole any more; of a certificate's kin the outer length is not looked at
      EXPECT_FALSE(Decode(sample.type, shorter).ok) << "cut at " << cut;
    }
    for (size_t place = 0; place < input.size(); ++place) {
      for (const int change : {0x01, 0x20, 0x80, 0xFF}) {
        std::vector<BYTE> changed = input;
        changed[place] = static_cast<BYTE>(changed[place] ^ change);
        const Decoded decoded = Decode(sample.type, changed);
        const StructType& row = *FindStructType(sample.type);
        if (decoded.ok && row.encode) Encode(sample.type, decoded.record.data());
      }
    }
  }
}

struct FaultCase {
  const char* name;
  uintptr_t type;
  const char* hex;
  DWORD code;  // 0: a failure without one
};

TEST(StructTypes, WhatIsRefusedAndWithWhichCode) {
  const FaultCase kCases[] = {
      {"an integer of no octets",                         27, "02 00",                                              0                  },
      {"an integer of five octets",                       27, "02 05 00 00 00 00 01",                               0                  },
      {"an integer under another identifier",             27, "04 01 05",                                           CRYPT_E_ASN1_BADTAG},
      {"a header without a length",                       27, "02",                                                 CRYPT_E_ASN1_EOD   },
      {"a bit string without its count",                  26, "03 00",                                              0                  },
      {"eight unused bits",                               26, "03 02 08 FF",                                        0                  },
      {"an empty OID",                                    73, "06 00",                                              0                  },
      {"an OID that the encoder writes",                  73, "06 03 88 37 01",                                     0                  },
      {"a UTC time of 12 characters",                     17, "17 0C 34 39 31 32 33 31 32 33 35 39 35 5A",          0                  },
      {"a time under another identifier",                 30, "16 0D 34 39 31 32 33 31 32 33 35 39 35 39 5A",       0                  },
      {"an X.400 address",                                12, "30 02 A3 00",                                        0                  },
      {"an EDI party name",                               12, "30 02 A5 00",                                        0                  },
      {"a DNS name of a NUL",                             12, "30 03 82 01 00",                                     0                  },
      {"a DNS name that ends with a NUL",                 12, "30 04 82 02 61 00",                                  0                  },
      {"an other name whose value has no tag of its own", 12, "30 0A A0 08 06 03 2A 03 04 81 01 00",
       CRYPT_E_ASN1_BADTAG                                                                                                             },
      {"an impossible generalized time",                  30, "18 0F 32 30 32 36 31 33 30 31 30 30 30 30 30 30 5A", 0                  },
      {"an extension without an identifier",              5,  "30 02 30 00",                                        0                  },
      {"a general name of a private class",               12, "30 03 C2 01 61",                                     0                  },
      {"an empty DNS name",                               12, "30 02 82 00",                                        0                  },
      {"a DNS name that a NUL divides",                   12, "30 05 82 03 61 00 62",                               0                  },
      {"a directory name with a broken header",           12, "30 04 A4 02 30 05",                                  0                  },
      {"an other name whose identifier is none",          12, "30 05 A0 03 04 01 00",                               CRYPT_E_ASN1_BADTAG},
      {"a name relative to the issuer",                   35, "30 08 30 06 A0 04 A1 02 30 00",                      0                  },
      {"reason flags without a flag",                     35, "30 05 30 03 81 01 00",                               0                  },
      {"a notice with a reference",                       46, "30 02 30 00",                                        CRYPT_E_ASN1_BADTAG},
      {"a notice with a primitive sequence",              46, "30 02 10 00",                                        0                  },
      {"a notice of octets",                              46, "30 03 04 01 41",                                     0                  },
      {"a skip count of five octets",                     57, "30 07 80 05 00 00 00 00 01",                         0                  },
      {"a template whose version is none",                64, "30 08 06 03 2A 03 04 04 01 64",                      CRYPT_E_ASN1_EOD   },
      {"an issuing point with a flag of two octets",      54, "30 04 81 02 FF FF",                                  CRYPT_E_ASN1_EOD   },
      {"an issuing point with a relative name",           54, "30 06 A0 04 A1 02 30 00",                            CRYPT_E_ASN1_EOD   },
      {"an empty key identifier",                         31, "30 02 80 00",                                        0                  },
      {"an unknown first element of a key identifier",    31, "30 03 83 01 05",                                     0                  },
      {"Teletex text in a strict name",                   7,  "30 0D 31 0B 30 09 06 03 55 04 03 14 02 41 42",       0                  },
      {"a blank in a number of a strict name",            7,  "30 0D 31 0B 30 09 06 03 55 04 03 12 02 31 20",       0                  },
      {"a constructed value in a name",                   7,  "30 0D 31 0B 30 09 06 03 55 04 03 2C 02 41 42",
       CRYPT_E_ASN1_BADTAG                                                                                                             },
      {"a set that is a sequence",                        7,  "30 02 30 00",                                        CRYPT_E_ASN1_BADTAG},
      {"a certificate that is none",                      2,  "04 03 02 01 05",                                     0                  },
      {"a certificate without content",                   2,  "30 00",                                              0                  },
      {"content that runs off the end",                   25, "04 03 01 02",                                        0                  },
      {"a length of five octets",                         25, "04 85 00 00 00 00 01 05",                            CRYPT_E_ASN1_EOD   },
      {"a signed object that is none",                    1,  "31 03 02 01 05",                                     CRYPT_E_ASN1_BADTAG},
  };
  for (const auto& [name, type, hex, code] : kCases) {
    SCOPED_TRACE(name);
    const Decoded decoded = Decode(type, FromHex(hex));
    EXPECT_FALSE(decoded.ok);
    EXPECT_EQ(decoded.code, code);
  }
}

TEST(StructTypes, GeneralNamesMayBeConstructed) {
  const Decoded names = Decode(12, FromHex("30 03 A2 01 61"));
  ASSERT_TRUE(names.ok);
  const auto* info = reinterpret_cast<const CERT_ALT_NAME_INFO*>(names.record.data());
  EXPECT_EQ(info->rgAltEntry[0].dwAltNameChoice, DWORD{CERT_ALT_NAME_DNS_NAME});
  EXPECT_STREQ(info->rgAltEntry[0].pwszDNSName, L"a");
}

TEST(StructTypes, BasicConstraintsForgiveAndRemember) {
  const Decoded onlyLength = Decode(15, FromHex("30 03 02 01 05"));
  ASSERT_TRUE(onlyLength.ok);
  EXPECT_EQ(onlyLength.code, DWORD{CRYPT_E_ASN1_BADTAG});
  const auto* info = reinterpret_cast<const CERT_BASIC_CONSTRAINTS2_INFO*>(onlyLength.record.data());
  EXPECT_FALSE(info->fCA);
  EXPECT_TRUE(info->fPathLenConstraint);
  EXPECT_EQ(info->dwPathLenConstraint, 5u);

  const Decoded emptyFlag = Decode(15, FromHex("30 02 01 00"));
  ASSERT_TRUE(emptyFlag.ok);
  EXPECT_FALSE(reinterpret_cast<const CERT_BASIC_CONSTRAINTS2_INFO*>(emptyFlag.record.data())->fCA);
}
