// Keys under keys, beside published values and a published message.
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "keykern/cipher/cipher.h"
#include "keykern/derive/imit.h"
#include "keykern/derive/key_wrap.h"
#include "keykern/digest.h"
#include "support/hex.h"

namespace {

using namespace keykern;  // NOLINT(google-build-using-namespace): the names under test

using Bytes = std::vector<BYTE>;

const char* const kBoxA = "1.2.643.2.2.31.1";
const char* const kBoxZ = "1.2.643.7.1.2.5.1.1";
const char* const kKeyCount = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

std::string Plain(const std::string& hex) { return ToHex(FromHex(hex)); }

using Unwrap = std::function<DWORD(std::span<const BYTE> wrapped, SecretBytes& key)>;

// Nothing but the whole and unchanged string gives a key; what is refused leaves the result alone.
void ExpectOnlyWholeOpens(const Unwrap& unwrap, const SecretBytes& wrapped, std::span<const BYTE> key) {
  SecretBytes out;
  ASSERT_EQ(unwrap(wrapped, out), 0u);
  EXPECT_EQ(ToHex(out), ToHex(key));
  SecretBytes untouched;
  for (size_t i = 0; i < wrapped.size(); ++i) {
    SecretBytes changed = wrapped;
    changed[i] ^= 0x10;
    EXPECT_EQ(unwrap(changed, untouched), DWORD{NTE_BAD_DATA}) << "byte " << i;
    EXPECT_EQ(unwrap(std::span(wrapped).first(i), untouched), DWORD{NTE_BAD_DATA}) << "cut at " << i;
  }
  SecretBytes longer = wrapped;
  longer.push_back(0);
  EXPECT_EQ(unwrap(longer, untouched), DWORD{NTE_BAD_DATA});
  EXPECT_TRUE(untouched.empty());
}

void ExpectGostWrap(const char* name, ALG_ID method, const std::string& kekHex, const char* box,
                    const std::string& keyHex, const std::string& wrappedHex) {
  SCOPED_TRACE(name);
  const Bytes kek = FromHex(kekHex), key = FromHex(keyHex);
  const Bytes ukm = FromHex(wrappedHex.substr(0, 16));
  SecretBytes wrapped;
  ASSERT_EQ(GostWrap(method, kek, box, ukm, key, wrapped), 0u);
  EXPECT_EQ(ToHex(wrapped).substr(0, wrappedHex.size()), Plain(wrappedHex));
  ExpectOnlyWholeOpens(
      [&](std::span<const BYTE> in, SecretBytes& out) { return GostUnwrap(method, kek, box, in, out); },
      wrapped, key);
}

TEST(DeriveWrap, Gost) {
  const std::string key = "202122232425262728292a2b2c2d2e2f303132333435363738393a3b3c3d3e3f";
  const std::string wrapped =
      "af21434145656378d15547f8ee85121bc87d4b1027d26027ecc071bba6e72f3fec6f620f56834c5abe33f052";
  // RFC 7836, B.11; and from its intermediate key, which is where the simplest method begins
  const std::string kek = "a1aa5f7de402d7b3d323f2991c8d4534013137010a83754fd0af6d7cd4922ed9";
  ExpectGostWrap("KDF", CALG_EXPORT_KDF, kKeyCount, kBoxZ, key, wrapped);
  ExpectGostWrap("simple", CALG_EXPORT_SIMPLE, kek, kBoxZ, key, wrapped);
  // A longer key has the same blocks, and another MAC.
  ExpectGostWrap("64 bytes", CALG_EXPORT_KDF, kKeyCount, kBoxZ, key + key,
                 wrapped.substr(0, 80) + wrapped.substr(16, 64));
}

// A published key transport message to a key of 256 bits: the key of the message, and the message itself by that.
TEST(DeriveWrap, GostPublishedMessage) {
  const Bytes kek = FromHex("c8a1076135013de18da4e727d772702016f3c527d8acc457276e1e44a8bdede4");
  const Bytes wrapped =
      FromHex("D5BE3E5A9184B1F4 9527150C75B291CC22792B53562485E737B525CDA71E78595B940DAA1F8C19AE B079C81B");
  SecretBytes key;
  ASSERT_EQ(GostUnwrap(CALG_EXPORT_DIVERSIFIED, kek, kBoxZ, wrapped, key), 0u);
  ExpectGostWrap("again", CALG_EXPORT_DIVERSIFIED, ToHex(kek), kBoxZ, ToHex(key), ToHex(wrapped));

  std::string text;
  for (int i = 0; i < 100; ++i) text += "Test data to encrypt.\n";
  SecretBytes data(text.begin(), text.end());
  const Bytes iv = FromHex("760D91DBC5A18772");
  const auto stream =
      NewCipherStream({CALG_G28147, CRYPT_MODE_CFB, key, certkern::ToSecret(iv), kBoxZ}, Direction::Encrypt);
  ASSERT_TRUE(stream && stream->process(data));
  Bytes value(32);
  const auto digest = NewSha256();
  ASSERT_TRUE(digest->add(data) && digest->finish(value));
  EXPECT_EQ(ToHex(value), Plain("c4a5ccdc4710953b57eabb389bd193cb28f26fa8ae5b9fa63ae0617283865428"));
}

TEST(DeriveWrap, GostRefusals) {
  const Bytes kek = FromHex(kKeyCount), ukm(8);
  const std::span<const BYTE> key(kek);
  SecretBytes out;
  EXPECT_EQ(GostWrap(CALG_EXPORT_SIMPLE, kek, kBoxZ, ukm, key.first(31), out), DWORD{NTE_BAD_DATA});
  EXPECT_EQ(GostWrap(CALG_EXPORT_SIMPLE, kek, kBoxZ, key.first(7), key, out), DWORD{NTE_BAD_DATA});
  EXPECT_EQ(GostWrap(CALG_EXPORT_SIMPLE, key.first(31), kBoxZ, ukm, key, out), DWORD{NTE_BAD_KEY});
  EXPECT_EQ(GostWrap(CALG_EXPORT_SIMPLE, kek, "1.2.643.2.2.31.9", ukm, key, out), DWORD{NTE_BAD_ALGID});
  EXPECT_EQ(GostWrap(CALG_AES_128, kek, kBoxZ, ukm, key, out), DWORD{NTE_BAD_ALGID});
}

// The values of the GOST plug-in of openssl for its MACs
TEST(DeriveWrap, Imit) {
  const std::string key = "0123456789abcdef0123456789abcdef";
  std::string data;
  for (int i = 0; i < 128; ++i) data += "12345670";
  const auto bytes = [](const std::string& text) { return Bytes(text.begin(), text.end()); };
  std::array<BYTE, kImitSize> mac;
  ASSERT_TRUE(Imit(bytes(key), kBoxA, Bytes(8), bytes(data), mac));
  EXPECT_EQ(ToHex(mac), Plain("2ee8d13d"));
  ASSERT_TRUE(Imit(bytes(key), kBoxZ, Bytes(8), bytes(data), mac));
  EXPECT_EQ(ToHex(mac), Plain("be4453ec"));
  EXPECT_FALSE(Imit(bytes(key), kBoxZ, Bytes(8), bytes(data + "1"), mac)) << "key meshing would begin";
}

// R 1323565.1.017-2018, annex A
TEST(DeriveWrap, KExp15) {
  const Bytes keys = FromHex(
      "08090a0b0c0d0e0f0001020304050607101112131415161718191a1b1c1d1e1f"
      "202122232425262728292a2b2c2d2e2f38393a3b3c3d3e3f3031323334353637");
  const Bytes key = FromHex("8899aabbccddeeff0011223344556677fedcba98765432100123456789abcdef");
  const auto expect = [&](ALG_ID cipher, const Bytes& iv, const std::string& hex) {
    SecretBytes wrapped;
    ASSERT_EQ(KExp15(cipher, keys, iv, key, wrapped), 0u);
    EXPECT_EQ(ToHex(wrapped), Plain(hex));
    ExpectOnlyWholeOpens(
        [&](std::span<const BYTE> in, SecretBytes& out) { return KImp15(cipher, keys, iv, in, out); },
        wrapped, key);
  };
  expect(CALG_GR3412_2015_M, FromHex("67bed654"),
         "cfd5a12d5b81b6e1e99c916d07900c6ac12703fb3abded55567bf3742c899c755dafe7b42e3a8bd9");
  expect(CALG_GR3412_2015_K, FromHex("0909472dd9f26be8"),
         "e36184e84e8d736ff36cc2e5ae065dc656b23c20f549b02fdff88e1f3f30d8c2"
         "9a53f3ca554dbad80de152b9a4625b32");
  SecretBytes out;
  EXPECT_EQ(KExp15(CALG_GR3412_2015_K, keys, FromHex("67bed654"), key, out), DWORD{NTE_BAD_DATA});
  EXPECT_EQ(KExp15(CALG_GR3412_2015_K, key, FromHex("0909472dd9f26be8"), key, out), DWORD{NTE_BAD_KEY});
  EXPECT_EQ(KExp15(CALG_G28147, keys, FromHex("67bed654"), key, out), DWORD{NTE_BAD_ALGID});
}

TEST(DeriveWrap, Standard) {
  const auto expect = [&](ALG_ID cipher, const std::string& kekHex, const std::string& keyHex,
                          const std::string& hex) {
    const Bytes kek = FromHex(kekHex), key = FromHex(keyHex), published = FromHex(hex);
    SecretBytes wrapped, opened;
    ASSERT_EQ(StandardUnwrap(cipher, kek, published, opened), 0u);
    EXPECT_EQ(ToHex(opened), Plain(keyHex));
    ASSERT_EQ(StandardWrap(cipher, kek, key, wrapped), 0u);
    EXPECT_EQ(wrapped.size(), published.size());
    if (cipher != CALG_3DES) {  // begins with random bytes
      EXPECT_EQ(ToHex(wrapped), Plain(hex));
    }
    ExpectOnlyWholeOpens(
        [&](std::span<const BYTE> in, SecretBytes& out) { return StandardUnwrap(cipher, kek, in, out); },
        wrapped, key);
  };
  // RFC 3394, 4.1, 4.2, 4.6
  const std::string key = "00112233445566778899AABBCCDDEEFF", kek = kKeyCount;
  expect(CALG_AES_128, kek.substr(0, 32), key, "1FA68B0A8112B447AEF34BD8FB5A7B829D3E862371D2CFE5");
  expect(CALG_AES_192, kek.substr(0, 48), key, "96778B25AE6CA435F92B5B97C050AED2468AB8A17AD84E5D");
  expect(CALG_AES_256, kek, key + kek.substr(0, 32),
         "28C9F404C4B810F4CBCCB35CFB87F8263F5786E2D80ED326CBC7F0E71A99F43BFB988B9B7A02DD21");
  // RFC 3217, 4.3
  expect(CALG_3DES, "255e0d1c07b646dfb3134cc843ba8aa71f025b7c0838251f",
         "2923bf85e06dd6ae529149f1f1bae9eab3a7da3d860d3e98",
         "690107618ef092b3b48ca1796b234ae9fa33ebb4159604037db5d6a84eb3aac2768c632775a467d4");

  SecretBytes out;
  const Bytes bytes = FromHex(kek);
  const std::span<const BYTE> all(bytes);
  EXPECT_EQ(StandardWrap(CALG_AES_256, all.first(24), all, out), DWORD{NTE_BAD_KEY});
  EXPECT_EQ(StandardWrap(CALG_AES_256, all, all.first(31), out), DWORD{NTE_BAD_DATA});
  EXPECT_EQ(StandardWrap(CALG_AES_256, all, all.first(8), out), DWORD{NTE_BAD_DATA});
  EXPECT_EQ(StandardWrap(CALG_RC2, all, all, out), DWORD{NTE_BAD_ALGID});
}

}  // namespace
