// Long messages in pieces: positions, sections and key meshing, beside what openssl with its GOST plug-in made of
// 600000 zeros, as in
//   CRYPT_PARAMS=1.2.643.2.2.31.2 openssl enc -gost89 -nopad -K 000102..1F -iv 010203.. -in zeros
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "keykern/cipher/cipher.h"
#include "keykern/digest.h"
#include "support/hex.h"

namespace {

using namespace keykern;  // NOLINT(google-build-using-namespace): the names under test

constexpr size_t kMessage = 600'000;

constexpr char kKey[] = "000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F";
constexpr char kCounting[] = "0102030405060708090A0B0C0D0E0F10";

std::string Sha256(std::span<const BYTE> data) {
  std::vector<BYTE> value(32);
  const auto digest = NewSha256();
  EXPECT_TRUE(digest->add(data) && digest->finish(value));
  return ToHex(value);
}

// In pieces of all sizes: none, parts of blocks, and more than any buffer below.
void ProcessInPieces(CipherStream& stream, std::span<BYTE> data, size_t unit, unsigned seed) {
  std::mt19937 random(seed);
  while (!data.empty()) {
    const size_t longest = random() % 4 == 0 ? 20'000 : 40;
    const size_t size = std::min(data.size(), random() % longest * unit);
    ASSERT_TRUE(stream.process(data.first(size)));
    data = data.subspan(size);
  }
}

void ExpectMessage(const char* name, ALG_ID algorithm, DWORD mode, const char* box, const char* ivHex,
                   const char* sha256) {
  SCOPED_TRACE(name);
  const CipherRow& cipher = *FindCipher(algorithm);
  const std::vector<BYTE> key = FromHex(kKey), iv = FromHex(ivHex);
  const CipherSettings settings{algorithm, mode, certkern::ToSecret(key),
                                certkern::ToSecret(std::span(iv).first(IvSize(cipher, mode))), box};
  const size_t unit = IsBlockMode(cipher, mode) ? cipher.blockSize : 1;
  const auto encrypt = NewCipherStream(settings, Direction::Encrypt);
  const auto decrypt = NewCipherStream(settings, Direction::Decrypt);
  ASSERT_TRUE(encrypt && decrypt);
  SecretBytes data(kMessage);
  ProcessInPieces(*encrypt, data, unit, 1);
  EXPECT_EQ(Sha256(data), ToHex(FromHex(sha256)));
  ProcessInPieces(*decrypt, data, unit, 2);
  EXPECT_EQ(std::count(data.begin(), data.end(), 0), static_cast<std::ptrdiff_t>(kMessage));
  EXPECT_EQ(ToHex(encrypt->tag()), ToHex(decrypt->tag()));
}

TEST(CipherStreams, LongMessages) {
  // Here the plug-in changes keys, too: it was run anew each 1024 bytes.
  ExpectMessage("gost89, test box", CALG_G28147, CRYPT_MODE_CFB, "1.2.643.2.2.31.0", kCounting,
                "102e820fdbe3aa92ea7b47457c6605c0f79f049678e5452a4b0d25db87785141");
  ExpectMessage("gost89, box A", CALG_G28147, CRYPT_MODE_CFB, "1.2.643.2.2.31.1", kCounting,
                "127844ad95ca9881b0351c1fa3a481857bebaccb2f3e4a916de9cf20037d9504");
  ExpectMessage("gost89, box B", CALG_G28147, CRYPT_MODE_CFB, "1.2.643.2.2.31.2", kCounting,
                "ba4437471f7d3c11ea517f0d1db0972adacc5649a146f7c03285e51b2683c672");
  ExpectMessage("gost89, box C", CALG_G28147, CRYPT_MODE_CFB, "1.2.643.2.2.31.3", kCounting,
                "119edaab5b239da84db7b2aed0cb290128351016c6b1d867ad712e07f8bd0b54");
  ExpectMessage("gost89, box D", CALG_G28147, CRYPT_MODE_CFB, "1.2.643.2.2.31.4", kCounting,
                "bfdca181b81ccfac578c5f7a9fe3d50c54e3db5fb725b520e1f7a217ac84e04b");
  ExpectMessage("gost89, box Z", CALG_G28147, CRYPT_MODE_CFB, "1.2.643.7.1.2.5.1.1", kCounting,
                "eafb64face141cfb55dfec8b9976f85b6a97d09611f55af7893ad0d153406416");
  ExpectMessage("gost89-cnt, box A", CALG_G28147, CRYPT_MODE_CNT, "1.2.643.2.2.31.1", kCounting,
                "746471f3d59e4e256c5c4fe025511ecb8fdf1a13b5f1b502ab323d3f76b355b6");
  ExpectMessage("gost89-cnt-12, box Z", CALG_G28147, CRYPT_MODE_CNT, "1.2.643.7.1.2.5.1.1", kCounting,
                "2b06b9d6c58ff3b4b0f442503f31574ceab97a26f9604a9c347303b6c4d887d3");
  ExpectMessage("gost89-cbc, box Z", CALG_G28147, CRYPT_MODE_CBC, "1.2.643.7.1.2.5.1.1", kCounting,
                "9885d6424d620bf10cabab986720cd93ece622c926c8dececd16c2b104ed7ecc");
  ExpectMessage("magma-cbc", CALG_GR3412_2015_M, CRYPT_MODE_CBC, "", kCounting,
                "aa86cf0d6005550f996c0f21a2640d54aed463939626c07763c440ec36da18d6");
  ExpectMessage("kuznyechik-cfb", CALG_GR3412_2015_K, CRYPT_MODE_CFB, "", kCounting,
                "708f3cdfb74119e11148fbfa292bc724ab661bade2b5e69d5188d3b79b17ffff");
  // openssl cms -EncryptedData_encrypt -binary -magma-ctr-acpkm -secretkey 000102..1F -in zeros; the UKM is its own
  ExpectMessage("magma-ctr-acpkm", CALG_GR3412_2015_M, CRYPT_MODE_CTR_ACPKM, "", "C731150AA270B574D2055A8E",
                "f510e7b5b9725f99fcbaad2d46e906dc9179a1f17138454f606d797cfed5a6bf");
  ExpectMessage("kuznyechik-ctr-acpkm", CALG_GR3412_2015_K, CRYPT_MODE_CTR_ACPKM, "",
                "98F1F72C80BD6B723241FEE1A7418E4A",
                "9a2bc1cff31b22073dec86b19899ad3d9e03c13104702aaa14816d4371ae51ff");
  ExpectMessage("magma-ctr-acpkm-omac", CALG_GR3412_2015_M, CRYPT_MODE_CTR_ACPKM_OMAC, "",
                "1C71C46A72E3A2E115F07586",
                "f7df3d220664a65258c493e6ee8544b3e452af6ea0a3d5f8f27a50977c352a4a");
  ExpectMessage("kuznyechik-ctr-acpkm-omac", CALG_GR3412_2015_K, CRYPT_MODE_CTR_ACPKM_OMAC, "",
                "0BE6C86AF20C7889EAD7E3CBA39B9D57",
                "1e70954008bb4db07e6c3cf1098beb99923161e504dea638a63eccacd6c482bd");
}

// Without key meshing. Each block of the end is openssl enc -gost89 of zeros with the counter as initial value.
TEST(CipherStreams, CounterUnderTheTestBox) {
  const CipherSettings settings{CALG_G28147, CRYPT_MODE_CNT, certkern::ToSecret(FromHex(kKey)),
                                certkern::ToSecret(FromHex("0102030405060708")), "1.2.643.2.2.31.0"};
  const auto stream = NewCipherStream(settings, Direction::Encrypt);
  SecretBytes data(1200);
  ASSERT_TRUE(stream && stream->process(data));
  EXPECT_EQ(ToHex(std::span(data).last(16)), ToHex(FromHex("ba4ef5fe73ef86b8ae3c35bfa84df6b6")));
}

}  // namespace
