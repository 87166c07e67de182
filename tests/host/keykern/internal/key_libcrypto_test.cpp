// Keys over libcrypto, judged by the openssl program: what one writes, seals or signs the other takes.
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <string>
#include <vector>

#include "common/der.h"
#include "host/keykern/internal/key_openssl.h"
#include "keykern/crypto_library.h"
#include "keykern/digest.h"
#include "keykern/key/key_codec.h"
#include "support/hex.h"

namespace {

using namespace keykern;  // NOLINT(google-build-using-namespace): the names under test
namespace der = certkern::der;

std::vector<BYTE> Plain(std::span<const BYTE> bytes) { return {bytes.begin(), bytes.end()}; }
std::vector<BYTE> Backwards(std::span<const BYTE> bytes) { return {bytes.rbegin(), bytes.rend()}; }

PrivateKeyPtr ReadPrivate(const OpensslBench& bench, const std::string& name) {
  PrivateKeyPtr key;
  EXPECT_EQ(ParsePrivateKeyInfo(bench.read(name), key), 0u) << name;
  return key;
}

PublicKeyPtr ReadPublic(std::span<const BYTE> encoded) {
  PublicKeyPtr key;
  EXPECT_EQ(ParsePublicKeyInfo(encoded, key), 0u);
  return key;
}

struct Kind {
  const char* name;
  const char* genpkey;
  DWORD bits;
  const char* parameterSet;
};
const Kind kKinds[] = {
    {"RSA",             "RSA -pkeyopt rsa_keygen_bits:2048",             2048, ""                     },
    {"RSA-PSS",         "RSA-PSS -pkeyopt rsa_keygen_bits:1024",         1024, ""                     },
    {"RSA-PSS, bound",
     "RSA-PSS -pkeyopt rsa_keygen_bits:1024 -pkeyopt rsa_pss_keygen_md:sha256 -pkeyopt "
     "rsa_pss_keygen_mgf1_md:sha256 "
     "-pkeyopt rsa_pss_keygen_saltlen:32",                               1024, ""                     },
    {"P-224",           "EC -pkeyopt ec_paramgen_curve:P-224",           224,  "1.3.132.0.33"         },
    {"P-256",           "EC -pkeyopt ec_paramgen_curve:P-256",           256,  "1.2.840.10045.3.1.7"  },
    {"P-384",           "EC -pkeyopt ec_paramgen_curve:P-384",           384,  "1.3.132.0.34"         },
    {"P-521",           "EC -pkeyopt ec_paramgen_curve:P-521",           521,  "1.3.132.0.35"         },
    {"secp256k1",       "EC -pkeyopt ec_paramgen_curve:secp256k1",       256,  "1.3.132.0.10"         },
    {"brainpoolP224r1", "EC -pkeyopt ec_paramgen_curve:brainpoolP224r1", 224,  "1.3.36.3.3.2.8.1.1.5" },
    {"brainpoolP256r1", "EC -pkeyopt ec_paramgen_curve:brainpoolP256r1", 256,  "1.3.36.3.3.2.8.1.1.7" },
    {"brainpoolP320r1", "EC -pkeyopt ec_paramgen_curve:brainpoolP320r1", 320,  "1.3.36.3.3.2.8.1.1.9" },
    {"brainpoolP384r1", "EC -pkeyopt ec_paramgen_curve:brainpoolP384r1", 384,  "1.3.36.3.3.2.8.1.1.11"},
    {"brainpoolP512r1", "EC -pkeyopt ec_paramgen_curve:brainpoolP512r1", 512,  "1.3.36.3.3.2.8.1.1.13"},
    {"Ed25519",         "ED25519",                                       256,  "1.3.101.112"          },
    {"Ed448",           "ED448",                                         456,  "1.3.101.113"          },
};

TEST(LibcryptoKeys, AreReadAndWrittenAsByOthers) {
  const OpensslBench bench;
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    bench.newKey(kind.genpkey);
    bench.run("pkey -inform DER -in key.der -pubout -outform DER -out public.der");
    const PrivateKeyPtr key = ReadPrivate(bench, "key.der");
    ASSERT_TRUE(key);
    EXPECT_EQ(key->publicKey()->bits(), kind.bits);
    EXPECT_EQ(key->publicKey()->parameterSet(), kind.parameterSet);
    EXPECT_EQ(ToHex(key->privateKeyInfo()), ToHex(bench.read("key.der")));
    EXPECT_EQ(ToHex(key->publicKey()->publicKeyInfo()), ToHex(bench.read("public.der")));
    const PublicKeyPtr half = ReadPublic(bench.read("public.der"));
    ASSERT_TRUE(half);
    EXPECT_EQ(ToHex(half->publicKeyInfo()), ToHex(bench.read("public.der")));
    EXPECT_EQ(Fingerprint(*half), Fingerprint(*key->publicKey()));
  }
}

TEST(LibcryptoKeys, AreMadeAsOthersRead) {
  const OpensslBench bench;
  const struct {
    Family family;
    DWORD bits;
    const char* set;
  } rows[] = {
      {Family::Rsa,   1024, ""            },
      {Family::Rsa,   0,    ""            },
      {Family::Ec,    0,    ""            },
      {Family::Ec,    0,    "1.3.132.0.35"},
      {Family::EdDsa, 0,    ""            },
      {Family::EdDsa, 0,    "1.3.101.113" },
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(static_cast<int>(row.family)) + " " + row.set);
    PrivateKeyPtr key;
    ASSERT_EQ(GenerateKey(row.family, row.bits, row.set, key), 0u);
    const SecretBytes info = key->privateKeyInfo();
    bench.write("key.der", info);
    bench.run("pkey -check -inform DER -in key.der -out again.pem");
    bench.run("pkcs8 -topk8 -nocrypt -in again.pem -outform DER -out again.der");
    EXPECT_EQ(ToHex(bench.read("again.der")), ToHex(info));
  }
  PrivateKeyPtr key;
  EXPECT_EQ(GenerateKey(Family::Rsa, 1016, "", key), NTE_BAD_LEN);
  EXPECT_EQ(GenerateKey(Family::Rsa, 8200, "", key), NTE_BAD_LEN);
  EXPECT_EQ(GenerateKey(Family::Ec, 0, "1.2.840.10045.3.1.1", key), NTE_BAD_ALGID);
  EXPECT_EQ(GenerateKey(Family::EdDsa, 0, "1.3.132.0.34", key), NTE_BAD_ALGID);
  EXPECT_EQ(GenerateKey(Family::Dsa, 0, "", key), NTE_BAD_ALGID);
}

TEST(LibcryptoKeys, RfcExampleOfEd25519) {
  // RFC 8032, 7.1, test 3; RFC 8410, 7 and 10.3, where attributes and the public key follow the private one
  PrivateKeyPtr key;
  ASSERT_EQ(ParsePrivateKeyInfo(FromHex("302E020100300506032B657004220420"
                                        "C5AA8DF43F9F837BEDB7442F31DCB7B166D38535076F094B85CE3A2E0B4458F7"),
                                key),
            0u);
  SecretBytes signature;
  const std::vector<BYTE> message = FromHex("AF82");
  ASSERT_EQ(key->sign({CALG_MESSAGE_ITSELF, message}, signature), 0u);
  EXPECT_EQ(ToHex(Backwards(signature)),
            ToHex(FromHex("6291D657DEEC24024827E69C3ABE01A30CE548A284743A445E3680D7DB5AC3AC"
                          "18FF9B538D16F290AE67F760984DC6594A7C15E9716ED28DC027BECEEA1EC40A")));
  ASSERT_EQ(ParsePrivateKeyInfo(
                FromHex("3072020101300506032B657004220420D4EE72DBF913584AD5B6D8F1F769F8AD3AFE7C28CBF1D4FB"
                        "E097A88F44755842A01F301D060A2A864886F70D01090914310F0C0D437572646C65204368616972"
                        "7381210019BF44096984CDFE8541BAC167DC3B96C85086AA30B6B6CB0C5C38AD703166E1"),
                key),
            0u);
  const SecretBytes info = key->publicKey()->publicKeyInfo();
  EXPECT_EQ(ToHex(std::span(info).last(32)),
            ToHex(FromHex("19BF44096984CDFE8541BAC167DC3B96C85086AA30B6B6CB0C5C38AD703166E1")));
}

struct SignatureCase {
  const char* name;
  const char* genpkey;
  const char* options;  // of openssl pkeyutl
  ALG_ID hash;
  size_t size;  // of the hash value, or of a message
  DWORD salt;
  bool pss;
};
const SignatureCase kSignatures[] = {
    {"RSA, SHA-1",        "RSA -pkeyopt rsa_keygen_bits:1024",     "-pkeyopt digest:sha1",   CALG_SHA1,           20,   0,  false},
    {"RSA, MD5",          "RSA -pkeyopt rsa_keygen_bits:1024",     "-pkeyopt digest:md5",    CALG_MD5,            16,   0,  false},
    {"RSA, SHA-512",      "RSA -pkeyopt rsa_keygen_bits:2048",     "-pkeyopt digest:sha512", CALG_SHA_512,        64,   0,
     false                                                                                                                       },
    {"RSA, PSS",          "RSA -pkeyopt rsa_keygen_bits:1024",
     "-pkeyopt digest:sha256 -pkeyopt rsa_padding_mode:pss -pkeyopt rsa_pss_saltlen:13",     CALG_SHA_256,        32,   13,
     true                                                                                                                        },
    {"RSA, PSS, no salt", "RSA -pkeyopt rsa_keygen_bits:1032",
     "-pkeyopt digest:sha384 -pkeyopt rsa_padding_mode:pss -pkeyopt rsa_pss_saltlen:0",      CALG_SHA_384,        48,   0,
     true                                                                                                                        },
    {"RSA for PSS alone", "RSA-PSS -pkeyopt rsa_keygen_bits:1024",
     "-pkeyopt digest:sha1 -pkeyopt rsa_padding_mode:pss -pkeyopt rsa_pss_saltlen:20",       CALG_SHA1,           20,   20,
     true                                                                                                                        },
    {"P-256, SHA-256",    "EC -pkeyopt ec_paramgen_curve:P-256",   "-pkeyopt digest:sha256", CALG_SHA_256,        32,   0,
     false                                                                                                                       },
    {"P-256, SHA-512",    "EC -pkeyopt ec_paramgen_curve:P-256",   "-pkeyopt digest:sha512", CALG_SHA_512,        64,   0,
     false                                                                                                                       },
    {"P-521, SHA-1",      "EC -pkeyopt ec_paramgen_curve:P-521",   "-pkeyopt digest:sha1",   CALG_SHA1,           20,   0,  false},
    {"Ed25519",           "ED25519",                               "-rawin",                 CALG_MESSAGE_ITSELF, 1000, 0,  false},
    {"Ed448",             "ED448",                                 "-rawin",                 CALG_MESSAGE_ITSELF, 1,    0,  false},
};

TEST(LibcryptoKeys, SignAndVerifyWithOthers) {
  const OpensslBench bench;
  for (const SignatureCase& row : kSignatures) {
    SCOPED_TRACE(row.name);
    std::vector<BYTE> value(row.size);
    ASSERT_TRUE(RandomBytes(value));
    bench.write("value", value);
    bench.newKey(row.genpkey);
    const std::string operands = std::string(" -keyform DER -inkey key.der -in value ") + row.options;
    const PrivateKeyPtr key = ReadPrivate(bench, "key.der");
    ASSERT_TRUE(key);
    const SignatureInput input{row.hash, value, row.pss, row.salt};

    bench.run("pkeyutl -sign -out theirs" + operands);
    EXPECT_EQ(key->publicKey()->verify(input, Backwards(bench.read("theirs"))), 0u);

    SecretBytes ours;
    ASSERT_EQ(key->sign(input, ours), 0u);
    EXPECT_LE(ours.size(), key->signatureSize());
    bench.write("ours", Backwards(ours));
    bench.run("pkeyutl -verify -sigfile ours" + operands);
  }
}

// One key of each family, made once: what follows does not care which.
const std::vector<PrivateKeyPtr>& SomeKeys() {
  static const std::vector<PrivateKeyPtr>* const keys = [] {
    auto* made = new std::vector<PrivateKeyPtr>(3);
    EXPECT_EQ(GenerateKey(Family::Rsa, 1024, "", (*made)[0]), 0u);
    EXPECT_EQ(GenerateKey(Family::Ec, 0, "", (*made)[1]), 0u);
    EXPECT_EQ(GenerateKey(Family::EdDsa, 0, "", (*made)[2]), 0u);
    return made;
  }();
  return *keys;
}

SignatureInput SomethingFor(const PrivateKeyPtr& key, std::span<const BYTE> value32) {
  return {key->family() == Family::EdDsa ? CALG_MESSAGE_ITSELF : CALG_SHA_256, value32};
}

TEST(LibcryptoKeys, EveryOtherSignatureIsBad) {
  std::vector<BYTE> value(32, 0x5A);
  for (const PrivateKeyPtr& key : SomeKeys()) {
    const SignatureInput input = SomethingFor(key, value);
    SecretBytes signature;
    ASSERT_EQ(key->sign(input, signature), 0u);
    ERR_clear_error();
    ERR_raise(ERR_LIB_USER, 7);  // the host's own
    const PublicKeyPtr half = key->publicKey();
    for (size_t i = 0; i < signature.size(); ++i) {
      std::vector<BYTE> other = Plain(signature);
      other[i] ^= 0x01;
      EXPECT_EQ(half->verify(input, other), NTE_BAD_SIGNATURE) << i;
      EXPECT_EQ(half->verify(input, std::span(signature).first(i)), NTE_BAD_SIGNATURE) << i;
    }
    for (const BYTE more : {BYTE{0}, BYTE{0x30}}) {
      std::vector<BYTE> longer = Plain(signature);
      longer.push_back(more);
      EXPECT_EQ(half->verify(input, longer), NTE_BAD_SIGNATURE);
      longer = Plain(signature);
      longer.insert(longer.begin(), more);  // behind the DER, since the order is reversed
      EXPECT_EQ(half->verify(input, longer), NTE_BAD_SIGNATURE);
    }
    value[31] ^= 1;
    EXPECT_EQ(half->verify(input, signature), NTE_BAD_SIGNATURE) << "another value";
    value[31] ^= 1;
    EXPECT_EQ(half->verify(input, signature), 0u);
    EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), 7) << "the host's entry is gone";
    EXPECT_EQ(ERR_get_error(), 0u) << "an entry of ours stayed";
  }
}

TEST(LibcryptoKeys, RefuseWhatDoesNotFit) {
  const std::vector<BYTE> value(64, 1);
  const std::span<const BYTE> v32 = std::span(value).first(32);
  const PrivateKeyPtr &rsa = SomeKeys()[0], &ec = SomeKeys()[1], &ed = SomeKeys()[2];
  const struct {
    const char* name;
    const PrivateKeyPtr& key;
    SignatureInput input;
    DWORD code;
  } rows[] = {
      {"RSA: value too short",   rsa, {CALG_SHA_256, v32.first(31)},           NTE_BAD_HASH },
      {"RSA: value too long",    rsa, {CALG_SHA1, v32},                        NTE_BAD_HASH },
      {"RSA: GOST hash",         rsa, {CALG_GR3411_2012_256, v32},             NTE_BAD_HASH },
      {"RSA: MD4",               rsa, {CALG_MD4, v32.first(16)},               NTE_BAD_HASH },
      {"RSA: message",           rsa, {CALG_MESSAGE_ITSELF, v32},              NTE_BAD_HASH },
      {"EC: message",            ec,  {CALG_MESSAGE_ITSELF, v32},              NTE_BAD_HASH },
      {"EC: PSS",                ec,  {CALG_SHA_256, v32, true, 32},           NTE_BAD_FLAGS},
      {"EdDSA: hash",            ed,  {CALG_SHA_512, value},                   NTE_BAD_ALGID},
      {"EdDSA: PSS",             ed,  {CALG_MESSAGE_ITSELF, value, true, 32},  NTE_BAD_FLAGS},
      {"PSS: salt without room", rsa, {CALG_SHA_256, v32, true, 128 - 32 - 1}, NTE_FAIL     },
      {"PSS: salt beyond key",   rsa, {CALG_SHA_256, v32, true, 128},          NTE_BAD_LEN  },
      {"PSS: salt of -2",        rsa, {CALG_SHA_256, v32, true, 0xFFFFFFFEu},  NTE_BAD_LEN  },
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    SecretBytes signature;
    EXPECT_EQ(row.key->sign(row.input, signature), row.code);
    EXPECT_TRUE(signature.empty());
    const DWORD verified = row.key->publicKey()->verify(row.input, value);
    EXPECT_EQ(verified, row.input.saltLength > 32 ? NTE_BAD_SIGNATURE : row.code);
  }
  // a PSS signature is good for its own salt length alone, and no other padding passes for it
  SecretBytes signature;
  ASSERT_EQ(rsa->sign({CALG_SHA_256, v32, true, 20}, signature), 0u);
  for (const DWORD salt : {19u, 21u, 32u, 0u, 0xFFFFFFFEu}) {
    EXPECT_EQ(rsa->publicKey()->verify({CALG_SHA_256, v32, true, salt}, signature), NTE_BAD_SIGNATURE)
        << salt;
  }
  EXPECT_EQ(rsa->publicKey()->verify({CALG_SHA_256, v32}, signature), NTE_BAD_SIGNATURE);
}

TEST(LibcryptoKeys, AKeyForPssKeepsItsRule) {
  const OpensslBench bench;
  bench.newKey(
      "RSA-PSS -pkeyopt rsa_keygen_bits:1024 -pkeyopt "
      "rsa_pss_keygen_md:sha256 -pkeyopt rsa_pss_keygen_mgf1_md:sha256 -pkeyopt rsa_pss_keygen_saltlen:24");
  const PrivateKeyPtr key = ReadPrivate(bench, "key.der");
  ASSERT_TRUE(key);
  const std::vector<BYTE> value(32, 3);
  SecretBytes out;
  EXPECT_EQ(key->sign({CALG_SHA_256, value}, out), NTE_BAD_ALGID);
  EXPECT_EQ(key->sign({CALG_SHA1, std::span(value).first(20), true, 24}, out), NTE_BAD_HASH);
  EXPECT_EQ(key->sign({CALG_SHA_256, value, true, 23}, out), NTE_BAD_LEN);
  EXPECT_EQ(key->publicKey()->encrypt({}, value, out), NTE_BAD_KEY);
  EXPECT_EQ(key->sign({CALG_SHA_256, value, true, 24}, out), 0u);
}

TEST(LibcryptoKeys, EncryptAndDecryptWithOthers) {
  const OpensslBench bench;
  const PrivateKeyPtr& key = SomeKeys()[0];
  bench.write("key.der", key->privateKeyInfo());
  const std::vector<BYTE> message = FromHex("00 01 02 00 FF"), label = FromHex("AB CD 00");
  bench.write("message", message);
  const struct {
    RsaPadding padding;
    const char* options;
  } rows[] = {
      {{},                          "rsa_padding_mode:pkcs1"},
      {{true, CALG_SHA1, {}},       "rsa_padding_mode:oaep" },
      {{true, CALG_SHA_256, label},
       "rsa_padding_mode:oaep -pkeyopt rsa_oaep_md:sha256 -pkeyopt rsa_mgf1_md:sha256 -pkeyopt "
       "rsa_oaep_label:abcd00"                              },
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.options);
    const std::string operands = std::string(" -keyform DER -inkey key.der -pkeyopt ") + row.options;
    bench.run("pkeyutl -encrypt -in message -out theirs" + operands);
    SecretBytes plain, sealed;
    EXPECT_EQ(key->decrypt(row.padding, bench.read("theirs"), plain), 0u);
    EXPECT_EQ(Plain(plain), message);
    ASSERT_EQ(key->publicKey()->encrypt(row.padding, message, sealed), 0u);
    bench.write("ours", sealed);
    bench.run("pkeyutl -decrypt -in ours -out opened" + operands);
    EXPECT_EQ(bench.read("opened"), message);
    EXPECT_EQ(key->decrypt(row.padding, std::span(sealed).first(127), plain), NTE_BAD_DATA);
    EXPECT_EQ(key->publicKey()->encrypt(row.padding, std::vector<BYTE>(118), sealed), NTE_BAD_LEN);
  }
  SecretBytes sealed, plain;
  ASSERT_EQ(key->publicKey()->encrypt({true, CALG_SHA1, label}, message, sealed), 0u);
  EXPECT_EQ(key->decrypt({true, CALG_SHA1, {}}, sealed, plain), NTE_BAD_DATA) << "another label";
  EXPECT_EQ(key->decrypt({true, CALG_SHA_256, label}, sealed, plain), NTE_BAD_DATA) << "another hash";
  EXPECT_EQ(key->decrypt({true, CALG_GR3411, {}}, sealed, plain), NTE_BAD_HASH);
  EXPECT_EQ(SomeKeys()[1]->decrypt({}, sealed, plain), NTE_BAD_KEY);
}

TEST(LibcryptoKeys, AgreeWithOthers) {
  const OpensslBench bench;
  bench.run("genpkey -outform DER -out peer.der -algorithm EC -pkeyopt ec_paramgen_curve:P-521");
  bench.run("pkey -inform DER -in peer.der -pubout -outform DER -out peer.pub");
  PrivateKeyPtr key;
  ASSERT_EQ(GenerateKey(Family::Ec, 0, "1.3.132.0.35", key), 0u);
  bench.write("key.der", key->privateKeyInfo());
  bench.run("pkeyutl -derive -keyform DER -inkey key.der -peerform DER -peerkey peer.pub -out theirs");
  SecretBytes ours;
  ASSERT_EQ(key->ecdh(*ReadPublic(bench.read("peer.pub")), ours), 0u);
  EXPECT_EQ(Plain(ours), bench.read("theirs"));
  for (const PrivateKeyPtr& other : SomeKeys()) EXPECT_EQ(key->ecdh(*other->publicKey(), ours), NTE_BAD_KEY);
  EXPECT_EQ(SomeKeys()[0]->ecdh(*key->publicKey(), ours), NTE_BAD_KEY);
}

TEST(LibcryptoKeys, DsaVerifies) {
  const OpensslBench bench;
  bench.run("genpkey -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:1024 -out parameters.pem");
  bench.run("genpkey -paramfile parameters.pem -out key.pem");
  bench.run("pkcs8 -topk8 -nocrypt -in key.pem -outform DER -out key.der");
  bench.run("pkey -inform DER -in key.der -pubout -outform DER -out public.der");
  const std::vector<BYTE> value(20, 7), encoded = bench.read("public.der");
  bench.write("value", value);
  bench.run("pkeyutl -sign -keyform DER -inkey key.der -in value -pkeyopt digest:sha1 -out signature");
  const PublicKeyPtr key = ReadPublic(encoded);
  ASSERT_TRUE(key);
  EXPECT_EQ(ToHex(key->publicKeyInfo()), ToHex(encoded));
  std::vector<BYTE> signature = Backwards(bench.read("signature"));
  EXPECT_EQ(key->verify({CALG_SHA1, value}, signature), 0u);
  EXPECT_EQ(key->verify({CALG_SHA1, value, true, 20}, signature), NTE_BAD_FLAGS);
  signature[0] ^= 1;
  EXPECT_EQ(key->verify({CALG_SHA1, value}, signature), NTE_BAD_SIGNATURE);
  PrivateKeyPtr none;
  EXPECT_EQ(ParsePrivateKeyInfo(bench.read("key.der"), none), NTE_BAD_ALGID);
}

// --- damaged and hostile input ---

SecretBytes PublicInfo(const char* oid, const SecretBytes& parameters, const SecretBytes& bits) {
  return der::Sequence({der::AlgorithmIdentifier(oid, parameters), der::BitString(bits)});
}

TEST(LibcryptoKeys, PublicKeysThatAreNone) {
  const SecretBytes n = der::Unsigned(std::vector<BYTE>(128, 0xFF)),
                    even = der::Unsigned(std::vector<BYTE>(128, 0xFE));
  const SecretBytes huge = der::Unsigned(std::vector<BYTE>(2049, 0xFF)), tiny = der::Unsigned(FromHex("C3"));
  const auto rsa = [](const SecretBytes& modulus, const SecretBytes& e) {
    return PublicInfo("1.2.840.113549.1.1.1", der::Null(), der::Sequence({modulus, e}));
  };
  const SecretBytes e = der::Small(65537), p256 = der::Oid("1.2.840.10045.3.1.7");
  SecretBytes point(65);
  const SecretBytes good = SomeKeys()[1]->publicKey()->publicKeyInfo();
  std::copy(good.end() - 65, good.end(), point.begin());
  SecretBytes off = point, hybrid = point;
  off[64] ^= 1;
  hybrid[0] = 6 | (point[64] & 1);
  const auto ec = [](const SecretBytes& parameters, const SecretBytes& bits) {
    return PublicInfo("1.2.840.10045.2.1", parameters, bits);
  };
  const struct {
    const char* name;
    SecretBytes encoded;
    DWORD code;
  } rows[] = {
      {"RSA: good",                                  rsa(n,                             e),0},
      {"RSA: even modulus",                                            rsa(even,                                                           e),NTE_BAD_PUBLIC_KEY},
      {"RSA: modulus too long",                          rsa(huge,                                                           e),                              NTE_BAD_LEN},
      {"RSA: modulus too short",                                          rsa(tiny,      e),NTE_BAD_PUBLIC_KEY},
      {"RSA: exponent 1",rsa(n,                     der::Small(1)),                           NTE_BAD_PUBLIC_KEY},
      {"RSA: even exponent",                            rsa(n,                                                              der::Small(65536)),NTE_BAD_PUBLIC_KEY},
      {"RSA: exponent of 64 bits",                                            rsa(n,                                                          der::Unsigned(FromHex("FFFFFFFFFFFFFFFF"))),0},
      {"RSA: exponent of 65 bits",                          rsa(n,                                                           der::Unsigned(FromHex("01FFFFFFFFFFFFFFFF"))),       NTE_BAD_PUBLIC_KEY},
      {"EC: infinity", ec(p256,SecretBytes(1)),NTE_BAD_PUBLIC_KEY},
      {"EC: off the curve",              ec(p256,off),NTE_BAD_PUBLIC_KEY},
      {"EC: hybrid form",                               ec(p256,                                                         hybrid),NTE_BAD_PUBLIC_KEY},
      {"EC: of another curve",                                            ec(der::Oid("1.3.132.0.34"),                                                           point),NTE_BAD_PUBLIC_KEY},
      {"EC: curve of the issuer",                          ec(der::Null(),                                                           point),                                                                                                                            NTE_BAD_ALGID},
      {"EC: no such curve",                                     ec(der::Oid("1.2.3"),point),NTE_BAD_ALGID},
      {"Ed25519: with parameters",PublicInfo("1.3.101.112",der::Null(),SecretBytes(32, 9)),
       NTE_BAD_PUBLIC_KEY},
      {"Ed25519: too short",                    PublicInfo("1.3.101.112",              {},SecretBytes(31)), NTE_BAD_PUBLIC_KEY},
      {"DSA: without parameters",                                            PublicInfo("1.2.840.10040.4.1",                                                           {},der::Small(2)), NTE_BAD_PUBLIC_KEY},
      {"unknown",                               PublicInfo("1.2.3.4",                                                                {},    SecretBytes(32)), NTE_BAD_ALGID},
      {"nothing",                                 {},                                                                                                              NTE_BAD_DATA                                                                                                                  },
  };
  for (const auto& row : rows) {
    PublicKeyPtr key;
    EXPECT_EQ(ParsePublicKeyInfo(row.encoded, key), row.code) << row.name;
  }
}

SecretBytes RsaInfo(size_t bits) {
  const SecretBytes n = der::Unsigned(std::vector<BYTE>(bits / 8, 0xFF));
  return PublicInfo("1.2.840.113549.1.1.1", der::Null(), der::Sequence({n, der::Small(65537)}));
}

TEST(LibcryptoKeys, TheConfigurationAllowsLongerKeysOfRsa) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // another process reads another configuration
  const OpensslBench bench;
  const char* const before = getenv("CERTKERN_CONFIG");  // NOLINT(concurrency-mt-unsafe): one thread
  const std::string configuration = before ? before : "";
  const struct {
    const char* setting;
    size_t bits;
    DWORD code;
  } rows[] = {
      {"",                       8192,  0          },
      {"",                       8200,  NTE_BAD_LEN},
      {"MaxRsaKeyBits = 16384",  16384, 0          },
      {"MaxRsaKeyBits = 16384",  16392, NTE_BAD_LEN},
      {"MaxRsaKeyBits = 10000",  10008, NTE_BAD_LEN},
      {"MaxRsaKeyBits = 100000", 8200,  NTE_BAD_LEN},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.setting + std::to_string(row.bits));
    std::ofstream(bench.path("config.toml")) << "[config.Parameters]\n" << row.setting << '\n';
    setenv("CERTKERN_CONFIG", bench.path("config.toml").c_str(),
           1);  // NOLINT(concurrency-mt-unsafe): one thread
    PublicKeyPtr key;
    EXPECT_EXIT(std::_Exit(ParsePublicKeyInfo(RsaInfo(row.bits), key) == row.code ? 0 : 1),
                testing::ExitedWithCode(0), "");
  }
  setenv("CERTKERN_CONFIG", configuration.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): one thread
}

TEST(LibcryptoKeys, PointsAndCurvesInOtherForms) {
  const OpensslBench bench;
  bench.newKey("EC -pkeyopt ec_paramgen_curve:P-256");
  bench.run("ec -inform DER -in key.der -pubout -outform DER -out whole.der");
  bench.run("ec -inform DER -in key.der -pubout -conv_form compressed -outform DER -out compressed.der");
  bench.run("ec -inform DER -in key.der -pubout -param_enc explicit -outform DER -out explicit.der");
  const PublicKeyPtr whole = ReadPublic(bench.read("whole.der")),
                     compressed = ReadPublic(bench.read("compressed.der"));
  ASSERT_TRUE(whole && compressed);
  EXPECT_LT(bench.read("compressed.der").size(), bench.read("whole.der").size());
  EXPECT_EQ(Fingerprint(*whole), Fingerprint(*compressed));
  EXPECT_NE(Fingerprint(*whole), Fingerprint(*SomeKeys()[1]->publicKey()));
  PublicKeyPtr key;
  EXPECT_EQ(ParsePublicKeyInfo(bench.read("explicit.der"), key), NTE_BAD_ALGID);
}

// Cut at each length and changed at each byte, a private key is refused, or it still is a whole key: what it signs
// verifies.
TEST(LibcryptoKeys, DamagedPrivateKeysNeverSignWrongly) {
  const std::vector<BYTE> value(32, 0x77);
  for (const PrivateKeyPtr& whole : SomeKeys()) {
    const std::vector<BYTE> info = Plain(whole->privateKeyInfo());
    PrivateKeyPtr key;
    for (size_t i = 0; i < info.size(); ++i) {
      EXPECT_NE(
          ParsePrivateKeyInfo(std::vector<BYTE>(info.begin(), info.begin() + static_cast<ptrdiff_t>(i)), key),
          0u)
          << i;
      std::vector<BYTE> changed = info;
      changed[i] ^= 0x10;
      if (ParsePrivateKeyInfo(changed, key) != 0) continue;
      // two seeds make two keys, but the numbers of RSA and EC are bound to their public halves
      EXPECT_EQ(key->family(), Family::EdDsa) << i;
      SecretBytes signature;
      const SignatureInput input = SomethingFor(key, value);
      ASSERT_EQ(key->sign(input, signature), 0u);
      EXPECT_EQ(key->publicKey()->verify(input, signature), 0u) << i;
    }
  }
}

// --- under a password ---

std::span<const BYTE> Pin(std::string_view text) {
  return {reinterpret_cast<const BYTE*>(text.data()), text.size()};
}

TEST(SealedKeys, OpenWhatOthersSealed) {
  const OpensslBench bench;
  const SecretBytes info = SomeKeys()[1]->privateKeyInfo();
  bench.write("key.der", info);
  for (const char* options : {"-v2 aes-256-cbc", "-v2 aes-192-cbc -v2prf hmacWithSHA1",
                              "-v2 aes-128-cbc -v2prf hmacWithSHA512 -iter 1"}) {
    SCOPED_TRACE(options);
    bench.run(std::string("pkcs8 -topk8 -inform DER -in key.der -outform DER -out sealed -passout pass:1234 ")
              + options);
    SecretBytes opened;
    EXPECT_EQ(OpenPrivateKeyInfo(bench.read("sealed"), Pin("1234"), opened), 0u);
    EXPECT_EQ(ToHex(opened), ToHex(info));
    EXPECT_FALSE(OpenPrivateKeyInfo(bench.read("sealed"), Pin("1235"), opened) == 0 && opened == info);
  }
  SecretBytes opened;
  bench.run("pkcs8 -topk8 -inform DER -in key.der -outform DER -out sealed -passout pass:1234 -v2 des3");
  EXPECT_EQ(OpenPrivateKeyInfo(bench.read("sealed"), Pin("1234"), opened), NTE_BAD_ALGID);
  bench.run("pkcs8 -topk8 -inform DER -in key.der -outform DER -out sealed -passout pass:1234 -iter 5000001");
  EXPECT_EQ(OpenPrivateKeyInfo(bench.read("sealed"), Pin("1234"), opened), NTE_BAD_DATA)
      << "would run for ever";
}

TEST(SealedKeys, OthersOpenWhatWeSeal) {
  const OpensslBench bench;
  const SecretBytes info = SomeKeys()[0]->privateKeyInfo();
  SecretBytes sealed, again, opened;
  ASSERT_EQ(SealPrivateKeyInfo(info, Pin("п1"), sealed), 0u);
  ASSERT_EQ(SealPrivateKeyInfo(info, Pin("п1"), again), 0u);
  EXPECT_NE(sealed, again) << "salt and initial value repeat";
  bench.write("sealed", sealed);
  bench.run("pkcs8 -inform DER -in sealed -passin pass:п1 -out opened.pem");
  bench.run("pkcs8 -topk8 -nocrypt -in opened.pem -outform DER -out opened");
  EXPECT_EQ(bench.read("opened"), Plain(info));
  bench.run("asn1parse -inform DER -in sealed");
  const std::vector<BYTE> listing = bench.read("stdout");
  const std::string text(listing.begin(), listing.end());
  for (const char* part : {"hmacWithSHA256", "aes-256-cbc", ":033450"}) {  // 210000
    EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
  }
  EXPECT_FALSE(OpenPrivateKeyInfo(sealed, {}, opened) == 0 && opened == info);
}

TEST(SealedKeys, DamageHasACode) {
  const OpensslBench bench;
  bench.write("key.der", SomeKeys()[2]->privateKeyInfo());
  bench.run("pkcs8 -topk8 -inform DER -in key.der -outform DER -out sealed -passout pass:1 -iter 1000");
  const std::vector<BYTE> sealed = bench.read("sealed");
  for (size_t i = 0; i < sealed.size(); ++i) {
    std::vector<BYTE> changed = sealed;
    changed[i] ^= 0x04;
    SecretBytes opened;
    const std::vector<BYTE> cut(sealed.begin(), sealed.begin() + static_cast<ptrdiff_t>(i));
    EXPECT_NE(OpenPrivateKeyInfo(cut, Pin("1"), opened), 0u) << i;
    const DWORD code = OpenPrivateKeyInfo(changed, Pin("1"), opened);
    EXPECT_TRUE(code == 0 || code == NTE_BAD_DATA || code == NTE_BAD_ALGID || code == SCARD_W_WRONG_CHV)
        << i << " " << code;
  }
}

}  // namespace
