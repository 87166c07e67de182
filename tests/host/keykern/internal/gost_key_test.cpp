// GOST keys: those of the openssl tool, what they sign and agree, and what is refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "common/der.h"
#include "keykern/gost/curve.h"
#include "keykern/key/asymmetric_key.h"
#include "support/hex.h"

namespace {

using namespace keykern;  // NOLINT(google-build-using-namespace): the names under test
namespace der = certkern::der;
using Bytes = std::vector<BYTE>;

constexpr char kOid2001[] = "1.2.643.2.2.19";
constexpr char kOid256[] = "1.2.643.7.1.1.1.1";
constexpr char kOid512[] = "1.2.643.7.1.1.1.2";

// The lines of a table in the data folder, split at blanks.
std::vector<std::vector<std::string>> ReadRows(const char* file) {
  std::ifstream in(std::string(CERTKERN_SOURCE_DIR "/tests/host/keykern/data/") + file);
  std::vector<std::vector<std::string>> rows;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with('#')) continue;
    std::istringstream fields(line);
    rows.emplace_back(std::istream_iterator<std::string>(fields), std::istream_iterator<std::string>());
  }
  return rows;
}

PublicKeyPtr PublicFromInfo(const Bytes& info) {
  der::Reader whole(info), fields;
  der::Algorithm algorithm;
  std::span<const BYTE> bits;
  if (!whole.take(der::kSequence, fields) || !TakeAlgorithm(fields, algorithm) || !fields.takeBits(bits))
    return nullptr;
  PublicKeyPtr key;
  EXPECT_EQ(ParseGostPublicKey(algorithm.oid, algorithm.parameters, bits, key), 0u);
  return key;
}

PrivateKeyPtr PrivateFromInfo(const Bytes& info) {
  der::Reader whole(info), fields;
  der::Algorithm algorithm;
  std::span<const BYTE> octets;
  uint32_t version = 1;
  if (!whole.take(der::kSequence, fields) || !fields.takeSmall(version) || !TakeAlgorithm(fields, algorithm)
      || !fields.take(der::kOctetString, octets)) {
    return nullptr;
  }
  PrivateKeyPtr key;
  EXPECT_EQ(ParseGostPrivateKey(algorithm.oid, algorithm.parameters, octets, key), 0u);
  return key;
}

SecretBytes Parameters(const char* set) { return der::Sequence({der::Oid(set)}); }

PrivateKeyPtr MakePrivate(const char* oid, const char* set, std::string_view number) {
  PrivateKeyPtr key;
  EXPECT_EQ(ParseGostPrivateKey(oid, Parameters(set), FromHex(number), key), 0u);
  return key;
}

PrivateKeyPtr Generate(Family family, const std::string& set = {}) {
  PrivateKeyPtr key;
  EXPECT_EQ(GenerateGostKey(family, set, key), 0u) << set;
  return key;
}

ALG_ID HashOf(Family family) {
  if (family == Family::Gost2001) return CALG_GR3411;
  return family == Family::Gost2012_256 ? CALG_GR3411_2012_256 : CALG_GR3411_2012_512;
}

TEST(GostKey, KeysOfOthers) {
  const auto rows = ReadRows("gost_keys.txt");
  ASSERT_EQ(rows.size(), 19u);
  for (const auto& row : rows) {
    SCOPED_TRACE(row[0]);
    const PrivateKeyPtr key = PrivateFromInfo(FromHex(row[1]));
    const PublicKeyPtr publicKey = PublicFromInfo(FromHex(row[2]));
    ASSERT_TRUE(key && publicKey);
    EXPECT_EQ(ToHex(key->privateKeyInfo()), ToHex(FromHex(row[1])));
    EXPECT_EQ(ToHex(key->publicKey()->publicKeyInfo()), ToHex(FromHex(row[2])));
    EXPECT_EQ(ToHex(publicKey->publicKeyInfo()), ToHex(FromHex(row[2])));

    Bytes hash(publicKey->bits() / 8);
    std::iota(hash.begin(), hash.end(), BYTE{1});
    const SignatureInput input = {HashOf(publicKey->family()), hash};
    Bytes theirs = FromHex(row[3]);
    EXPECT_EQ(publicKey->verify(input, theirs), NTE_BAD_SIGNATURE) << "in the order of the standard";
    std::reverse(theirs.begin(), theirs.end());
    EXPECT_EQ(publicKey->verify(input, theirs), 0u);
    SecretBytes ours;
    ASSERT_EQ(key->sign(input, ours), 0u);
    EXPECT_EQ(ours.size(), key->signatureSize());
    EXPECT_EQ(publicKey->verify(input, ours), 0u);
    hash[5] ^= 1;
    EXPECT_EQ(publicKey->verify(input, ours), NTE_BAD_SIGNATURE);
  }
}

TEST(GostKey, AgreementsOfOthers) {
  const auto rows = ReadRows("gost_agreements.txt");
  ASSERT_EQ(rows.size(), 11u);
  for (const auto& row : rows) {
    ASSERT_EQ(row.size(), 6u);
    const std::string &function = row[1], &ukm = row[4];
    SCOPED_TRACE(row[0] + ' ' + function);
    const PrivateKeyPtr key = PrivateFromInfo(FromHex(row[2]));
    const PublicKeyPtr peer = PublicFromInfo(FromHex(row[3]));
    ASSERT_TRUE(key && peer);
    SecretBytes made;
    const Bytes wanted = FromHex(row[5]);
    const DWORD code = function == "keg" ? key->keg(*peer, FromHex(ukm), made)
                                         : key->vko(*peer, FromHex(ukm), wanted.size(), made);
    EXPECT_EQ(code, 0u);
    EXPECT_EQ(ToHex(made), ToHex(wanted));
  }
}

// RFC 7836, appendix B
TEST(GostKey, PublishedAgreement) {
  const PrivateKeyPtr a = MakePrivate(kOid512, "1.2.643.7.1.2.1.2.1",
                                      "c990ecd972fce84ec4db022778f50fcac726f46708384b8d458304962d7147f8"
                                      "c2db41cef22c90b102f2968404f9b9be6d47c79692d81826b32b8daca43cb667");
  const PrivateKeyPtr b = MakePrivate(kOid512, "1.2.643.7.1.2.1.2.1",
                                      "48c859f7b6f11585887cc05ec6ef1390cfea739b1a18c0d4662293ef63b79e3b"
                                      "8014070b44918590b4b996acfea4edfbbbcccc8c06edd8bf5bda92a51392d0db");
  const Bytes ukm = FromHex("1d80603c8544c727");
  const struct {
    size_t size;
    const char* value;
  } rows[] = {
      {32, "c9a9a77320e2cc559ed72dce6f47e2192ccea95fa648670582c054c0ef36c221"},
      {64,
       "79f002a96940ce7bde3259a52e015297adaad84597a0d205b50e3e1719f97bfa"
       "7ee1d2661fa9979a5aa235b558a7e6d9f88f982dd63fc35a8ec0dd5e242d3bdf"    },
  };
  for (const auto& row : rows) {
    SecretBytes forth, back;
    EXPECT_EQ(a->vko(*b->publicKey(), ukm, row.size, forth), 0u);
    EXPECT_EQ(b->vko(*a->publicKey(), ukm, row.size, back), 0u);
    EXPECT_EQ(ToHex(forth), ToHex(FromHex(row.value)));
    EXPECT_EQ(forth, back);
  }
}

TEST(GostKey, RefusedAgreements) {
  const PrivateKeyPtr key = Generate(Family::Gost2012_256, "1.2.643.2.2.35.1");
  const PrivateKeyPtr sameCurve = Generate(Family::Gost2012_256, "1.2.643.7.1.2.1.1.2");
  const PrivateKeyPtr otherCurve = Generate(Family::Gost2012_256, "1.2.643.2.2.35.2");
  const PrivateKeyPtr older = Generate(Family::Gost2001, "1.2.643.2.2.35.1");
  const PrivateKeyPtr olderPeer = Generate(Family::Gost2001);
  const PrivateKeyPtr longer = Generate(Family::Gost2012_512);
  const Bytes ukm = {1, 2, 3, 4, 5, 6, 7, 8}, kegUkm(32, 1);
  SecretBytes out;
  EXPECT_EQ(key->vko(*sameCurve->publicKey(), ukm, 32, out), 0u);
  for (const PrivateKeyPtr& peer : {otherCurve, older, longer, key}) {
    EXPECT_EQ(key->vko(*peer->publicKey(), ukm, 32, out), NTE_BAD_KEY);
    EXPECT_EQ(key->keg(*peer->publicKey(), kegUkm, out), NTE_BAD_KEY);
  }
  for (const size_t size : {0u, 31u, 33u, 48u, 65u}) {
    EXPECT_EQ(key->vko(*sameCurve->publicKey(), ukm, size, out), NTE_BAD_LEN) << size;
  }
  EXPECT_EQ(older->vko(*olderPeer->publicKey(), ukm, 64, out), NTE_BAD_LEN);
  EXPECT_EQ(older->keg(*olderPeer->publicKey(), kegUkm, out), NTE_BAD_KEY);
  for (const Bytes& bad : {Bytes(), Bytes(8), Bytes(65, 1)}) {
    EXPECT_EQ(key->vko(*sameCurve->publicKey(), bad, 32, out), NTE_BAD_DATA) << bad.size();
  }
  EXPECT_EQ(key->keg(*sameCurve->publicKey(), ukm, out), NTE_BAD_LEN);

  // A factor of 0 counts as 1; the other half of the UKM goes into the derivation.
  SecretBytes zero, one;
  Bytes factor = kegUkm;
  std::fill_n(factor.begin(), 16, BYTE{0});
  EXPECT_EQ(key->keg(*sameCurve->publicKey(), factor, zero), 0u);
  factor[15] = 1;
  EXPECT_EQ(key->keg(*sameCurve->publicKey(), factor, one), 0u);
  EXPECT_EQ(zero, one);
}

TEST(GostKey, FormsOfThePrivateNumber) {
  // The key of RFC 7091, 7.1, bare and behind masks; the first mask is above the order.
  const std::string plain = "283bec9198ce191dee7e39491f96601bc1729ad39d35ed10beb99b78de9a927a";
  const std::string once = "2f0e1cf80ae2dd101a122b95710d630d423fd64d1b3faf75bf699bf6da615246";
  const std::string twice = "4a05d6a47fad27b7aef112780f3b18b2e2005bafe5c908ef6ed31116241e2c1d";
  const std::string mask1 = "1032547698badcfe1032547698badcfe1032547698badcfe1032547698badcfe";
  const std::string mask2 = "2211009988776655443322110099887766554433221100998877665544332211";
  const std::string one = "01" + std::string(62, '0'), zero(64, '0');
  std::string masks;
  for (int i = 0; i < 8; ++i) masks += one;
  const struct {
    const char* name;
    std::string octets;
    bool ok;
  } rows[] = {
      {"bare",                           plain,                                                                    true },
      {"in one more string",             "0420" + plain,                                                           true },
      {"an integer",                     "02207a929ade789bb9be10ed359dd39a72c11b60961f49397eee1d19ce9891ec3b28",   true },
      {"an integer with a leading zero",
       "0221007a929ade789bb9be10ed359dd39a72c11b60961f49397eee1d19ce9891ec3b28",                                   true },
      {"one mask",                       once + mask1,                                                             true },
      {"two masks",                      twice + mask1 + mask2,                                                    true },
      {"two masks in one more string",   "0460" + twice + mask1 + mask2,                                           true },
      {"as many masks as are taken",     plain + masks,                                                            true },
      {"a mask more",                    plain + masks + one,                                                      false},
      {"a mask that is 0",               plain + zero,                                                             false},
      {"0",                              zero,                                                                     false},
      {"the integer 0",                  "020100",                                                                 false},
      {"an integer below 0",             "0220fa929ade789bb9be10ed359dd39a72c11b60961f49397eee1d19ce9891ec3b28",   false},
      {"something after the integer",    "0201050500",                                                             false},
      {"an integer of 33 octets",        "0221017a929ade789bb9be10ed359dd39a72c11b60961f49397eee1d19ce9891ec3b28",
       false                                                                                                            },
      {"the order",                      "b3f5cc3a19fc9cc554619792188afe5001000000000000000000000000000080",       false},
      {"31 octets",                      plain.substr(2),                                                          false},
      {"33 octets",                      plain + "00",                                                             false},
      {"a string of 31 octets",          "041f" + plain.substr(2),                                                 false},
      {"something after the string",     "0420" + plain + "00",                                                    false},
      {"two strings around it",          "04220420" + plain,                                                       false},
      {"a string that is cut",           "0421" + plain,                                                           false},
      {"nothing",                        "",                                                                       false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    PrivateKeyPtr key;
    const DWORD code = ParseGostPrivateKey(kOid256, Parameters("1.2.643.2.2.35.0"), FromHex(row.octets), key);
    ASSERT_EQ(code, row.ok ? 0u : NTE_BAD_KEY);
    if (row.ok) {
      EXPECT_EQ(ToHex(key->number()), ToHex(FromHex(plain)));
    }
  }
}

TEST(GostKey, ParametersAndPoints) {
  const PrivateKeyPtr made = MakePrivate(kOid2001, "1.2.643.2.2.35.1", "02" + std::string(62, '0'));
  const SecretBytes info = made->publicKey()->publicKeyInfo();
  const Bytes point(info.end() - 64, info.end());
  const SecretBytes bits = der::OctetString(point), set = der::Oid("1.2.643.2.2.35.1");
  const SecretBytes digest = der::Oid("1.2.643.2.2.30.1"), cipher = der::Oid("1.2.643.2.2.31.1");
  const SecretBytes longPoint = der::OctetString(Bytes(128, 1)), trailing = der::Sequence({set}), nothing;
  SecretBytes two = trailing, rest = bits, offCurve = bits;
  certkern::Append(two, der::Null());
  rest.push_back(0);
  offCurve.back() ^= 1;
  const struct {
    const char* name;
    const char* oid;
    SecretBytes parameters, bits;
    DWORD code;
  } rows[] = {
      {"the set alone",          kOid2001,            der::Sequence({set}),                         bits,                      0                 },
      {"with digest",            kOid2001,            der::Sequence({set, digest}),                 bits,                      0                 },
      {"with digest and cipher", kOid2001,            der::Sequence({set, digest, cipher}),         bits,                      0                 },
      {"a fourth",               kOid2001,            der::Sequence({set, digest, cipher, cipher}), bits,                      NTE_BAD_PUBLIC_KEY},
      {"NULL in it",             kOid2001,            der::Sequence({set, der::Null()}),            bits,                      NTE_BAD_PUBLIC_KEY},
      {"NULL behind it",         kOid2001,            two,                                          bits,                      NTE_BAD_PUBLIC_KEY},
      {"an empty sequence",      kOid2001,            der::Sequence({}),                            bits,                      NTE_BAD_PUBLIC_KEY},
      {"no parameters",          kOid2001,            nothing,                                      bits,                      NTE_BAD_PUBLIC_KEY},
      {"not GOST",               "1.2.840.10045.2.1", der::Sequence({set}),                         bits,                      NTE_BAD_PUBLIC_KEY},
      {"an unknown set",         kOid2001,            Parameters("1.2.643.2.2.35.50"),              bits,                      NTE_BAD_ALGID     },
      {"2001 with a newer set",  kOid2001,            Parameters("1.2.643.7.1.2.1.1.2"),            bits,                      NTE_BAD_ALGID     },
      {"2012 with the same set", kOid256,             Parameters("1.2.643.7.1.2.1.1.2"),            bits,                      0                 },
      {"512 with 256",           kOid512,             der::Sequence({set}),                         bits,                      NTE_BAD_ALGID     },
      {"256 with 512",           kOid256,             Parameters("1.2.643.7.1.2.1.2.1"),            longPoint,                 NTE_BAD_ALGID     },
      {"a bare point",           kOid2001,            der::Sequence({set}),                         certkern::ToSecret(point), NTE_BAD_PUBLIC_KEY},
      {"128 octets",             kOid2001,            der::Sequence({set}),                         longPoint,                 NTE_BAD_PUBLIC_KEY},
      {"an octet more",          kOid2001,            der::Sequence({set}),                         rest,                      NTE_BAD_PUBLIC_KEY},
      {"not on the curve",       kOid2001,            der::Sequence({set}),                         offCurve,                  NTE_BAD_PUBLIC_KEY},
      {"no key",                 kOid2001,            der::Sequence({set}),                         nothing,                   NTE_BAD_PUBLIC_KEY},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    PublicKeyPtr key;
    ASSERT_EQ(ParseGostPublicKey(row.oid, row.parameters, row.bits, key), row.code);
    ASSERT_EQ(key != nullptr, row.code == 0);
    if (!key) continue;
    EXPECT_EQ(key->publicKeyInfo(),
              der::Sequence({der::AlgorithmIdentifier(row.oid, row.parameters), der::BitString(row.bits)}));
  }
}

TEST(GostKey, GeneratedKeys) {
  const struct {
    Family family;
    const char* set;
    const char* parameters;  // null: refused
  } rows[] = {
      {Family::Gost2001,     "",                    "30 12 06 07 2A850302022301 06 07 2A850302021E01"  },
      {Family::Gost2001,     "1.2.643.2.2.36.0",    "30 12 06 07 2A850302022400 06 07 2A850302021E01"  },
      {Family::Gost2001,     "1.2.643.7.1.2.1.1.2", nullptr                                            },
      {Family::Gost2012_256, "",                    "30 0B 06 09 2A8503070102010101"                   },
      {Family::Gost2012_256, "1.2.643.2.2.35.3",    "30 13 06 07 2A850302022303 06 08 2A85030701010202"},
      {Family::Gost2012_256, "1.2.643.7.1.2.1.1.4", "30 0B 06 09 2A8503070102010104"                   },
      {Family::Gost2012_256, "1.2.643.7.1.2.1.2.1", nullptr                                            },
      {Family::Gost2012_512, "",                    "30 0B 06 09 2A8503070102010201"                   },
      {Family::Gost2012_512, "1.2.643.7.1.2.1.2.3", "30 0B 06 09 2A8503070102010203"                   },
      {Family::Gost2012_512, "1.2.643.2.2.35.1",    nullptr                                            },
      {Family::Gost2012_512, "1.2.3",               nullptr                                            },
      {Family::Rsa,          "",                    nullptr                                            },
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(static_cast<int>(row.family)) + ' ' + row.set);
    PrivateKeyPtr key;
    ASSERT_EQ(GenerateGostKey(row.family, row.set, key), row.parameters ? 0u : NTE_BAD_ALGID);
    if (!row.parameters) continue;
    const SecretBytes info = key->publicKey()->publicKeyInfo();
    const Bytes parameters = FromHex(row.parameters);
    EXPECT_NE(std::search(info.begin(), info.end(), parameters.begin(), parameters.end()), info.end())
        << ToHex(info);
    EXPECT_EQ(key->family(), row.family);
    if (*row.set) {
      EXPECT_EQ(key->publicKey()->parameterSet(), row.set);
    }
    EXPECT_NE(key->number(), Generate(row.family, row.set)->number());
  }
}

TEST(GostKey, TheHashFitsTheKey) {
  const PrivateKeyPtr short_ = Generate(Family::Gost2012_256), long_ = Generate(Family::Gost2012_512),
                      older = Generate(Family::Gost2001);
  const Bytes hash(32, 1), longHash(64, 1), cut(31, 1);
  SignatureInput pss = {CALG_GR3411_2012_256, hash};
  pss.pss = true;
  const struct {
    const char* name;
    PrivateKeyPtr key;
    SignatureInput input;
    DWORD code;
  } rows[] = {
      {"256",                     short_, {CALG_GR3411_2012_256, hash},     0            },
      {"512",                     long_,  {CALG_GR3411_2012_512, longHash}, 0            },
      {"2001",                    older,  {CALG_GR3411, hash},              0            },
      {"256 with the older hash", short_, {CALG_GR3411, hash},              NTE_BAD_HASH },
      {"2001 with the newer one", older,  {CALG_GR3411_2012_256, hash},     NTE_BAD_HASH },
      {"512 with the shorter",    long_,  {CALG_GR3411_2012_256, hash},     NTE_BAD_HASH },
      {"256 with the longer",     short_, {CALG_GR3411_2012_512, longHash}, NTE_BAD_HASH },
      {"a value cut",             short_, {CALG_GR3411_2012_256, cut},      NTE_BAD_HASH },
      {"SHA-256",                 short_, {CALG_SHA_256, hash},             NTE_BAD_HASH },
      {"PSS",                     short_, pss,                              NTE_BAD_FLAGS},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    SecretBytes signature;
    EXPECT_EQ(row.key->sign(row.input, signature), row.code);
    EXPECT_EQ(signature.empty(), row.code != 0);
    const PublicKeyPtr publicKey = row.key->publicKey();
    EXPECT_EQ(publicKey->verify(row.input, signature), row.code);
    if (row.code) continue;
    signature.pop_back();
    EXPECT_EQ(publicKey->verify(row.input, signature), NTE_BAD_SIGNATURE);
    EXPECT_EQ(publicKey->verify(row.input, {}), NTE_BAD_SIGNATURE);
  }
}

}  // namespace
