// Each cipher and mode beside published values, in both directions, and what the table of ciphers promises.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "keykern/cipher/cipher.h"
#include "keykern/cipher/keystream.h"
#include "keykern/cipher/omac.h"
#include "support/hex.h"

namespace {

using namespace keykern;  // NOLINT(google-build-using-namespace): the names under test

const std::string kKeyK = "8899aabbccddeeff0011223344556677fedcba98765432100123456789abcdef";
const std::string kKeyM = "ffeeddccbbaa99887766554433221100f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff";
const std::string kKey3Des = "0123456789ABCDEF23456789ABCDEF01456789ABCDEF0123";
const std::string kKey2Des = kKey3Des.substr(0, 32);
const std::string kZeros(32, '0');
const std::string kTextK =
    "1122334455667700ffeeddccbbaa998800112233445566778899aabbcceeff0a"
    "112233445566778899aabbcceeff0a002233445566778899aabbcceeff0a0011";
const std::string kTextM = "92def06b3c130a59db54c704f8189d204a98fb2e67a8024c8912409b17b57e41";
const std::string kTextNist = "6BC1BEE22E409F96E93D7E117393172AAE2D8A571E03AC9C9EB76FAC45AF8E51";

SecretBytes Secret(const std::string& hex) { return certkern::ToSecret(FromHex(hex)); }
std::string Plain(const std::string& hex) { return ToHex(FromHex(hex)); }

CipherSettings Settings(ALG_ID algorithm, DWORD mode, const std::string& key, const std::string& iv,
                        const std::string& box = {}) {
  return {algorithm, mode, Secret(key), Secret(iv), box};
}

std::string Process(const CipherSettings& settings, Direction direction, const std::string& hex) {
  const auto stream = NewCipherStream(settings, direction);
  SecretBytes data = Secret(hex);
  return stream && stream->process(data) ? ToHex(data) : "refused";
}

void ExpectBothWays(const char* name, ALG_ID algorithm, DWORD mode, const std::string& key,
                    const std::string& iv, const std::string& plain, const std::string& cipher) {
  SCOPED_TRACE(name);
  const CipherSettings settings = Settings(algorithm, mode, key, iv);
  EXPECT_TRUE(IsCipherAvailable(algorithm));
  EXPECT_EQ(Process(settings, Direction::Encrypt, plain), Plain(cipher));
  EXPECT_EQ(Process(settings, Direction::Decrypt, cipher), Plain(plain));
}

TEST(CipherModes, PublishedValues) {
  // GOST R 34.13-2015, annex A
  ExpectBothWays("Kuznyechik ECB", CALG_GR3412_2015_K, CRYPT_MODE_ECB, kKeyK, "", kTextK,
                 "7f679d90bebc24305a468d42b9d4edcdb429912c6e0032f9285452d76718d08b"
                 "f0ca33549d247ceef3f5a5313bd4b157d0b09ccde830b9eb3a02c4c5aa8ada98");
  ExpectBothWays("Kuznyechik CTR", CALG_GR3412_2015_K, CRYPT_MODE_CTR, kKeyK, "1234567890abcef0", kTextK,
                 "f195d8bec10ed1dbd57b5fa240bda1b885eee733f6a13e5df33ce4b33c45dee4"
                 "a5eae88be6356ed3d5e877f13564a3a5cb91fab1f20cbab6d1c6d15820bdba73");
  ExpectBothWays("Magma ECB", CALG_GR3412_2015_M, CRYPT_MODE_ECB, kKeyM, "", kTextM,
                 "2b073f0494f372a0de70e715d3556e4811d8d9e9eacfbc1e7c68260996c67efb");
  ExpectBothWays("Magma CTR", CALG_GR3412_2015_M, CRYPT_MODE_CTR, kKeyM, "12345678", kTextM,
                 "4e98110c97b7b93c3e250d93d6e85d69136d868807b2dbef568eb680ab52a12d");
  // RFC 8891, A.4
  ExpectBothWays("Magma block", CALG_GR3412_2015_M, CRYPT_MODE_ECB, kKeyM, "", "fedcba9876543210",
                 "4ee901e5c2d8ca3d");
  // SP 800-38A, F.1.1, F.2.1, F.3.13
  ExpectBothWays("AES-128 ECB", CALG_AES_128, CRYPT_MODE_ECB, "2b7e151628aed2a6abf7158809cf4f3c", "",
                 kTextNist, "3ad77bb40d7a3660a89ecaf32466ef97f5d3d58503b9699de785895a96fdbaaf");
  ExpectBothWays("AES-128 CBC", CALG_AES_128, CRYPT_MODE_CBC, "2b7e151628aed2a6abf7158809cf4f3c",
                 "000102030405060708090a0b0c0d0e0f", kTextNist,
                 "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2");
  ExpectBothWays("AES-128 CFB", CALG_AES_128, CRYPT_MODE_CFB, "2b7e151628aed2a6abf7158809cf4f3c",
                 "000102030405060708090a0b0c0d0e0f", kTextNist,
                 "3b3fd92eb72dad20333449f8e83cfb4ac8a64537a0b3a93fcde3cdad9f1ce58b");
  // F.1.3, F.1.5
  ExpectBothWays("AES-192 ECB", CALG_AES_192, CRYPT_MODE_ECB,
                 "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b", "", "6bc1bee22e409f96e93d7e117393172a",
                 "bd334f1d6e45f25ff712a214571fa5cc");
  ExpectBothWays("AES-256 ECB", CALG_AES_256, CRYPT_MODE_ECB,
                 "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4", "",
                 "6bc1bee22e409f96e93d7e117393172a", "f3eed1bdb5d2a03c064b5a7e3db181f8");
  // openssl enc: -des-ede3, -des-ede3-cbc, -des-ede3-cfb, -des-ede-cbc, -des-cbc, -des-cfb, -rc2-cbc, -rc2-40-cbc
  ExpectBothWays("3DES ECB", CALG_3DES, CRYPT_MODE_ECB, kKey3Des, "", kTextNist,
                 "714772f339841d34267fcc4bd2949cc3ee11c22a576a303876183f99c0b6de87");
  ExpectBothWays("3DES CBC", CALG_3DES, CRYPT_MODE_CBC, kKey3Des, "F69F2445DF4F9B17", kTextNist,
                 "2079c3d53aa763e193b79e2569ab5262516570481f25b50f73c0bda85c8e0da7");
  ExpectBothWays("3DES CFB", CALG_3DES, CRYPT_MODE_CFB, kKey3Des, "F69F2445DF4F9B17", kTextNist,
                 "078bb74e59ce7ed67666de9cf95eaf3fe9ed6bb460f451528a5f9fe4ed710918");
  ExpectBothWays("3DES with two keys CBC", CALG_3DES_112, CRYPT_MODE_CBC, kKey2Des, "F69F2445DF4F9B17",
                 kTextNist, "7401ce1eab6d003caff84bf47b36cc2154f0238f9ffecd8f6acf118392b45581");
  ExpectBothWays("DES CBC", CALG_DES, CRYPT_MODE_CBC, "0123456789ABCDEF", "F69F2445DF4F9B17", kTextNist,
                 "2d121f90fcf68631ed788fcfe31a62dffa784891fa512ef928ea856d934257c6");
  ExpectBothWays("DES CFB", CALG_DES, CRYPT_MODE_CFB, "0123456789ABCDEF", "F69F2445DF4F9B17", kTextNist,
                 "4f438776841b230e62e46bead5fed6e63f2f2c53844614b9d82e04309b9246c7");
  ExpectBothWays("RC2-128 CBC", CALG_RC2, CRYPT_MODE_CBC, kKey2Des, "F69F2445DF4F9B17", kTextNist,
                 "8fea28745aef71f36e2720e8ca456261312af0c9fdec214cf57481022be326f4");
  ExpectBothWays("RC2-40 CBC", CALG_RC2, CRYPT_MODE_CBC, "0102030405", "F69F2445DF4F9B17", kTextNist,
                 "5167d241929103c9c372097b3247d1511334c29c836d5693e62a095cb3b7ea34");
  // RFC 2268, 5: as many effective bits as the key has
  ExpectBothWays("RC2-64 ECB", CALG_RC2, CRYPT_MODE_ECB, "3000000000000000", "", "1000000000000001",
                 "30649edf9be7d2c2");
  // RFC 6229, 2
  ExpectBothWays("RC4-40", CALG_RC4, 0, "0102030405", "", kZeros, "b2396305f03dc027ccc3524a0a1118a8");
  ExpectBothWays("RC4-256", CALG_RC4, 0, "0102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f20",
                 "", kZeros, "eaa6bd25880bf93d3f5d1e4ca2611d91");
}

// The parts of a register that is longer than a block take the blocks in turns, and each turn is a message with
// an initial value of one block.
std::string EveryNth(const std::string& hex, size_t block, size_t first, size_t step) {
  std::string out;
  for (size_t at = first * block * 2; at < hex.size(); at += step * block * 2) {
    out += hex.substr(at, block * 2);
  }
  return out;
}

void ExpectInTurns(const char* name, ALG_ID algorithm, DWORD mode, const std::string& key,
                   const std::string& iv, const std::string& plain, const std::string& cipher) {
  const size_t block = FindCipher(algorithm)->blockSize;
  const size_t parts = iv.size() / (block * 2);
  for (size_t i = 0; i < parts; ++i) {
    ExpectBothWays(name, algorithm, mode, key, iv.substr(i * block * 2, block * 2),
                   EveryNth(plain, block, i, parts), EveryNth(cipher, block, i, parts));
  }
}

// GOST R 34.13-2015, annex A: its registers are two and three blocks long.
TEST(CipherModes, PublishedValuesWithLongRegisters) {
  const std::string ivK = "1234567890abcef0a1b2c3d4e5f0011223344556677889901213141516171819";
  const std::string ivM2 = "1234567890abcdef234567890abcdef1";
  const std::string ivM = ivM2 + "34567890abcdef12";
  ExpectInTurns("Kuznyechik CBC", CALG_GR3412_2015_K, CRYPT_MODE_CBC, kKeyK, ivK, kTextK,
                "689972d4a085fa4d90e52e3d6d7dcc272826e661b478eca6af1e8e448d5ea5ac"
                "fe7babf1e91999e85640e8b0f49d90d0167688065a895c631a2d9a1560b63970");
  ExpectInTurns("Kuznyechik CFB", CALG_GR3412_2015_K, CRYPT_MODE_CFB, kKeyK, ivK, kTextK,
                "81800a59b1842b24ff1f795e897abd95ed5b47a7048cfab48fb521369d9326bf"
                "79f2a8eb5cc68d38842d264e97a238b54ffebecd4e922de6c75bd9dd44fbf4d1");
  ExpectInTurns("Magma CBC", CALG_GR3412_2015_M, CRYPT_MODE_CBC, kKeyM, ivM, kTextM,
                "96d1b05eea683919aff76129abb937b95058b4a1c4bc001920b78b1a7cd7e667");
  ExpectInTurns("Magma CFB", CALG_GR3412_2015_M, CRYPT_MODE_CFB, kKeyM, ivM2, kTextM,
                "db37e0e266903c830d46644c1f9a089c24bdd2035315d38bbcc0321421075505");
}

void ExpectSections(std::unique_ptr<BlockCipher> cipher, const char* iv, const std::string& plain,
                    const std::string& expected) {
  const size_t section = 2 * cipher->blockSize();
  auto source = NewCounter(std::move(cipher), FromHex(kKeyK), FromHex(iv), section);
  ASSERT_TRUE(source);
  SecretBytes data = Secret(plain);
  ASSERT_TRUE(KeystreamCipher(std::move(source)).process(data));
  EXPECT_EQ(ToHex(data), Plain(expected));
}

// R 1323565.1.017-2018, annex A: sections of two blocks.
TEST(CipherModes, CounterWithShortSections) {
  const std::string text = kTextK
      + "33445566778899aabbcceeff0a001122445566778899aabbcceeff0a00112233"
        "5566778899aabbcceeff0a0011223344";
  ExpectSections(NewKuznyechik(), "1234567890abcef0", text,
                 "f195d8bec10ed1dbd57b5fa240bda1b885eee733f6a13e5df33ce4b33c45dee4"
                 "4bceeb8f646f4c55001706275e85e800587c4df568d094393e4834afd0805046"
                 "cf30f57686aeece11cfc6c316b8a896edffd07ec813636460c4f3b743423163e"
                 "6409a9c282fac8d469d221e7fbd6de5d");
  ExpectSections(NewMagma(), "12345678", text.substr(0, 112),
                 "2ab81deeeb1e4cab68e104c4bd6b94eac72c67af6c2e5b6b0eafb61770f1b32e"
                 "a1ae71149eed1382abd467180672ec6f84a2f15b3fca72c1");
}

// GOST R 34.13-2015, annex A. Messages below have a last block that is not whole.
TEST(CipherModes, Omac) {
  const auto macOf = [](std::unique_ptr<Omac> mac, const std::string& text, size_t cut) {
    const std::vector<BYTE> data = FromHex(text);
    EXPECT_TRUE(mac->add(std::span(data).first(cut)) && mac->add(std::span(data).subspan(cut)));
    return ToHex(mac->finish());
  };
  for (const size_t cut : {0u, 5u, 16u, 32u}) {
    EXPECT_EQ(macOf(NewOmac(NewKuznyechik(), FromHex(kKeyK)), kTextK, cut),
              Plain("336f4d296059fbe34ddeb35b37749c67"));
    EXPECT_EQ(macOf(NewOmac(NewMagma(), FromHex(kKeyM)), kTextM, cut), Plain("154e72102030c5bb"));
  }
}

void ExpectTagged(const char* name, ALG_ID algorithm, const char* key, const char* ukm, const char* cipher,
                  const char* tag, const char* begin) {
  SCOPED_TRACE(name);
  const CipherSettings settings = Settings(algorithm, CRYPT_MODE_CTR_ACPKM_OMAC, key, ukm);
  const auto opening = NewCipherStream(settings, Direction::Decrypt);
  const auto sealing = NewCipherStream(settings, Direction::Encrypt);
  ASSERT_TRUE(opening && sealing);
  SecretBytes data = Secret(cipher);
  ASSERT_TRUE(opening->process(data));
  EXPECT_EQ(ToHex(opening->tag()), Plain(tag));
  EXPECT_EQ(ToHex(data).substr(0, 16), Plain(begin));
  ASSERT_TRUE(sealing->process(data));
  EXPECT_EQ(ToHex(data), Plain(cipher));
  EXPECT_EQ(ToHex(sealing->tag()), Plain(tag));
  EXPECT_EQ(sealing->tag().size(), TagSize(*FindCipher(algorithm), settings.mode));
  EXPECT_FALSE(sealing->process(data)) << "after the tag";
}

TEST(CipherModes, TaggedCounter) {
  // R 1323565.1.025-2019, annex A
  ExpectTagged(
      "Magma", CALG_GR3412_2015_M, "d5613df353696c1aa0c0c23c26b73da3cf3037321256bc2bfb28d21488ef5e8f",
      "BA770EBB7B983DB237D2F142",
      "4db30b38474f722e9ea352d69d9dc5943d91a6086a4f2a75c680d1ef126500ae0289beee053c7b4b907b8b7905d983",
      "C26D0A07EB7DA818", "caeeedf2f0eeebfc");
  // RFC 9548, A.2
  ExpectTagged(
      "Kuznyechik", CALG_GR3412_2015_K, "4b7ae649ca31dd5fe3243a91a5188c03f1d7049bec8e0d241c0e1e8c39ea4c1f",
      "259ADD960DF68F265B00B3498B2A0973",
      "0ccbc469c6db5913435529d724b5b2818acaa22a5d3a30c0ff61c49c1677e2e14e2cd85e52a88aa423e81696d1d86062"
      "55855354af626e273381a71a1106330d7b5c4b440264ec692967ed78095b7492c2fd2a8fbab3d8c8a8b43154543d13a1"
      "6e2b050120d3dfc1c31f50e1d1d2f97fa81ae1a3d62eb59b6e05844453a838fca1e03a2d94f177ec040ec22123b1bcb2"
      "447ab71e06d689ac5046e0217aa1ce9f8415198f76fc716f27bbb74dc9d074b5a14defe58754472cd1774675ed37d89f"
      "f730b6de568364e896669954c8bad489309b1ebb67d51a693c398b14d32df5d27b28a80290",
      "e8bb666e6786a3c285bcb05f5df071f6", "3081e20201013017");
}

void ExpectRefused(const char* name, ALG_ID algorithm, DWORD mode, const char* key, const char* iv,
                   const char* box) {
  EXPECT_FALSE(NewCipherStream(Settings(algorithm, mode, key, iv, box), Direction::Encrypt)) << name;
}

TEST(CipherModes, RefusesWhatDoesNotFit) {
  const char* const key = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
  const char* const longKey = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f20";
  const char* const box = "1.2.643.2.2.31.1";
  ExpectRefused("no cipher", CALG_SHA1, CRYPT_MODE_CBC, key, "", "");
  ExpectRefused("no such mode", CALG_AES_256, CRYPT_MODE_OFB, key, "", "");
  ExpectRefused("a counter for AES", CALG_AES_256, CRYPT_MODE_CTR, key, "", "");
  ExpectRefused("the other counter", CALG_GR3412_2015_M, CRYPT_MODE_CNT, key, "", "");
  ExpectRefused("a mode for RC4", CALG_RC4, CRYPT_MODE_CBC, key, "", "");
  ExpectRefused("no mode", CALG_AES_256, 0, key, "", "");
  ExpectRefused("short key", CALG_GR3412_2015_K, CRYPT_MODE_CTR, "0102030405060708", "", "");
  ExpectRefused("long key", CALG_G28147, CRYPT_MODE_CFB, longKey, "", box);
  ExpectRefused("RC2 above 128 bits", CALG_RC2, CRYPT_MODE_CBC, key, "", "");
  ExpectRefused("RC4 below 40 bits", CALG_RC4, 0, "01020304", "", "");
  ExpectRefused("a block for half of one", CALG_GR3412_2015_M, CRYPT_MODE_CTR, key, "0102030405060708", "");
  ExpectRefused("UKM of the other cipher", CALG_GR3412_2015_K, CRYPT_MODE_CTR_ACPKM, key,
                "0102030405060708090a0b0c", "");
  ExpectRefused("initial value for ECB", CALG_3DES, CRYPT_MODE_ECB, kKey3Des.c_str(), "0102030405060708", "");
  ExpectRefused("no substitution box", CALG_G28147, CRYPT_MODE_CFB, key, "", "");
  ExpectRefused("unknown box", CALG_G28147, CRYPT_MODE_ECB, key, "", "1.2.643.2.2.31.5");
  EXPECT_FALSE(IsCipherAvailable(CALG_SHA1));
}

// What is refused leaves the stream where it was, and nothing of it behind.
TEST(CipherModes, RefusesPartsOfBlocks) {
  for (const ALG_ID algorithm : {CALG_G28147, CALG_GR3412_2015_K, CALG_AES_128, CALG_3DES, CALG_DES}) {
    for (const DWORD mode : {CRYPT_MODE_ECB, CRYPT_MODE_CBC}) {
      SCOPED_TRACE(testing::Message() << algorithm << ", mode " << mode);
      const CipherRow& cipher = *FindCipher(algorithm);
      const CipherSettings settings{
          algorithm, mode, SecretBytes(cipher.keyBits / 8, 0x3B), {}, "1.2.643.2.2.31.1"};
      const auto stream = NewCipherStream(settings, Direction::Encrypt);
      const auto other = NewCipherStream(settings, Direction::Encrypt);
      ASSERT_TRUE(stream && other);
      SecretBytes part(cipher.blockSize + 1), block(cipher.blockSize), same(cipher.blockSize);
      EXPECT_FALSE(stream->process(part));
      EXPECT_TRUE(stream->process(block) && other->process(same));
      EXPECT_EQ(ToHex(block), ToHex(same));
    }
  }
}

}  // namespace
