// HMAC and the derivations, beside published values and those of the openssl tool.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "keykern/derive/derivation.h"
#include "platform/limits.h"
#include "support/hex.h"

namespace {

using namespace keykern;  // NOLINT(google-build-using-namespace): the names under test

using Bytes = std::vector<BYTE>;

const char* const kKeyCount = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

Bytes Text(std::string_view text) { return {text.begin(), text.end()}; }
std::string Plain(const std::string& hex) { return ToHex(FromHex(hex)); }

// All at once; and begun, copied in the middle, ended, started again and cut elsewhere.
void ExpectHmac(const char* name, ALG_ID hash, const Bytes& key, const Bytes& data, const std::string& hex) {
  SCOPED_TRACE(name);
  const auto hmac = NewHmac(hash, key);
  ASSERT_TRUE(hmac);
  const std::span<const BYTE> all(data);
  Bytes value(hex.size() / 2), copied(value.size()), again(value.size());
  ASSERT_TRUE(hmac->add(all.first(data.size() / 2)));
  const auto copy = hmac->copy();
  ASSERT_TRUE(copy && hmac->add(all.subspan(data.size() / 2)) && hmac->finish(value));
  EXPECT_EQ(ToHex(value), Plain(hex));
  ASSERT_TRUE(copy->add(all.subspan(data.size() / 2)) && copy->finish(copied));
  EXPECT_EQ(ToHex(copied), Plain(hex));
  ASSERT_TRUE(hmac->restart() && hmac->add(all.first(1)) && hmac->add(all.subspan(1)));
  Bytes tooLong(value.size() + 1);
  EXPECT_FALSE(hmac->copy()->finish(tooLong));
  ASSERT_TRUE(hmac->finish(again));
  EXPECT_EQ(ToHex(again), Plain(hex));
  ASSERT_TRUE(copy->restart() && copy->add(all) && copy->finish(again));
  EXPECT_EQ(ToHex(again), Plain(hex)) << "a copy keeps the key";
}

TEST(DeriveKeys, Hmac) {
  const Bytes count = FromHex(kKeyCount), message = FromHex("0126bdb87800af214341456563780100");
  Bytes longKey(80);
  for (size_t i = 0; i < longKey.size(); ++i) longKey[i] = static_cast<BYTE>(i);
  // RFC 7836, B.1 and B.2
  ExpectHmac("Streebog-256", CALG_GR3411_2012_256, count, message,
             "a1aa5f7de402d7b3d323f2991c8d4534013137010a83754fd0af6d7cd4922ed9");
  ExpectHmac("Streebog-512", CALG_GR3411_2012_512, count, message,
             "a59bab22ecae19c65fbde6e5f4e9f5d8549d31f037f9df9b905500e171923a77"
             "3d5f1530f2ed7e964cb2eedc29e9ad2f3afe93b2814f79f5000ffc0366c251e6");
  // openssl dgst -md_gost94 -mac hmac -macopt hexkey:...
  ExpectHmac("34.11-94", CALG_GR3411, count, message,
             "bad70b61c41095bc47e1141cfaed42726a5ceebd62ce75dbbb9ad76cda9f72f7");
  ExpectHmac("34.11-94 with a long key", CALG_GR3411, longKey, Text("abc"),
             "3f320dbc86a4f81410d9a6b1ad027c7b7b426f057d5378cc0fc4da1bee2e3fce");
  // RFC 2202, 2 and 3; RFC 4231, 4.3 and 4.7
  const Bytes jefe = Text("Jefe"), question = Text("what do ya want for nothing?");
  ExpectHmac("MD5", CALG_MD5, jefe, question, "750c783e6ab0b503eaa86e310a5db738");
  ExpectHmac("SHA-1", CALG_SHA1, jefe, question, "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
  ExpectHmac("SHA-256", CALG_SHA_256, jefe, question,
             "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
  ExpectHmac("SHA-512 with a long key", CALG_SHA_512, Bytes(131, 0xAA),
             Text("Test Using Larger Than Block-Size Key - Hash Key First"),
             "80b24263c7c1a3ebb71493c1dd7be8b49b46d1f41b4aeec1121b013783f8f352"
             "6b56d037e05f2598bd0fd2215d6a1e5295e64f73f63f0aec8b915a985d786598");
  // hmac.new(b'', b'abc', 'sha256') of Python
  ExpectHmac("no key", CALG_SHA_256, {}, Text("abc"),
             "fd7adb152c05ef80dccf50a1fa4c05d5a3ec6da95575fc312ae7c5d091836351");
  EXPECT_TRUE(NewHmac(CALG_GR3411_2012_256, {}));
  EXPECT_FALSE(NewHmac(CALG_AES_128, jefe));
}

void ExpectPbkdf2(const char* name, ALG_ID hash, const Bytes& password, const Bytes& salt, DWORD iterations,
                  size_t size, const std::string& end) {
  Bytes out(size);
  ASSERT_TRUE(Pbkdf2(hash, password, salt, iterations, out)) << name;
  EXPECT_EQ(ToHex(std::span(out).last(end.size() / 2)), Plain(end)) << name;
}

TEST(DeriveKeys, Pbkdf2) {
  // RFC 9337, A
  const Bytes password = Text("password"), salt = Text("salt");
  ExpectPbkdf2("once", CALG_GR3411_2012_512, password, salt, 1, 64,
               "64770af7f748c3b1c9ac831dbcfd85c26111b30a8a657ddc3056b80ca73e040d"
               "2854fd36811f6d825cc4ab66ec0a68a490a9e5cf5156b3a2b7eecddbf9a16b47");
  ExpectPbkdf2("twice", CALG_GR3411_2012_512, password, salt, 2, 64,
               "5a585bafdfbb6e8830d6d68aa3b43ac00d2e4aebce01c9b31c2caed56f0236d4"
               "d34b2b8fbd2c4e89d54d46f50e47d45bbac301571743119e8d3c42ba66d348de");
  ExpectPbkdf2("4096 times", CALG_GR3411_2012_512, password, salt, 4096, 64,
               "e52deb9a2d2aaff4e2ac9d47a41f34c20376591c67807f0477e32549dc341bc7"
               "867c09841b6d58e29d0347c996301d55df0d34e47cf68f4e3c2cdaf1d9ab86c3");
  ExpectPbkdf2(
      "100 bytes", CALG_GR3411_2012_512, Text("passwordPASSWORDpassword"),
      Text("saltSALTsaltSALTsaltSALTsaltSALTsalt"), 4096, 100,
      "b2d8f1245fc4d29274802057e4b54e0a0753aa22fc53760b301cf008679e58fe4bee9addcae99ba2b0b20f431a9c5e50"
      "f395c89387d0945aedeca6eb4015dfc2bd2421ee9bb71183ba882ceebfef259f33f9e27dc6178cb89dc37428cf9cc52a"
      "2baa2d3a");
  ExpectPbkdf2("zero bytes", CALG_GR3411_2012_512, FromHex("7061737300776f7264"), FromHex("7361006c74"), 4096,
               64,
               "50df062885b69801a3c10248eb0a27ab6e522ffeb20c991c660f001475d73a4e"
               "167f782c18e97e92976d9c1d970831ea78ccb879f67068cdac1910740844e830");
  // RFC 9548, A.2: the MAC key is the end of 96 bytes.
  ExpectPbkdf2("PKCS #12", CALG_GR3411_2012_512, Text("Пароль для PFX"), FromHex("8544B4EF95A6EB24"), 2048,
               96, "a81d1bc91a4a5cf1fd7320f92dda7e5b285816c3b20826a382d7ed0cbf3a9bf4");
  // By RFC 8018 from two values of openssl dgst -md_gost94 -mac hmac
  ExpectPbkdf2("34.11-94", CALG_GR3411, password, salt, 2, 32,
               "990dfa2bd965639ba48b07b792775df79f2db34fef25f274378872fed7ed1bb3");
  // RFC 6070; and without a password: openssl kdf -kdfopt pass: -kdfopt salt:saltsalt -kdfopt iter:3 PBKDF2
  ExpectPbkdf2("SHA-1", CALG_SHA1, password, salt, 4096, 20, "4b007901b765489abead49d926f721d065a429c1");
  ExpectPbkdf2("no password", CALG_SHA1, {}, Text("saltsalt"), 3, 20,
               "c833a256767d8677bbabcb54bac21da967bbb70d");

  Bytes out(20);
  for (const ALG_ID hash : {CALG_SHA1, CALG_GR3411_2012_256}) {
    EXPECT_TRUE(Pbkdf2(hash, {}, salt, 1, out));
    EXPECT_FALSE(Pbkdf2(hash, password, {}, 1, out)) << "no salt";
    EXPECT_FALSE(Pbkdf2(hash, password, salt, 0, out));
    EXPECT_FALSE(Pbkdf2(hash, password, salt, certkern::kMaxIterations + 1, out));
    EXPECT_FALSE(Pbkdf2(hash, password, salt, 1, {}));
  }
  EXPECT_FALSE(Pbkdf2(CALG_RC4, password, salt, 1, out));
}

// RFC 7836, B.9 and B.10
TEST(DeriveKeys, KdfTree) {
  const Bytes key = FromHex(kKeyCount), label = FromHex("26bdb878"), seed = FromHex("af21434145656378");
  Bytes out(64);
  ASSERT_TRUE(KdfTree(key, label, seed, std::span(out).first(32)));
  EXPECT_EQ(ToHex(std::span(out).first(32)),
            Plain("a1aa5f7de402d7b3d323f2991c8d4534013137010a83754fd0af6d7cd4922ed9"));
  ASSERT_TRUE(KdfTree(key, label, seed, out));
  EXPECT_EQ(ToHex(out),
            Plain("22b6837845c6bef65ea71672b265831086d3c76aebe6dae91cad51d83f79d16b"
                  "074c9330599d7f8d712fca54392f4ddde93751206b3584c8f43f9e6dc51531f9"));
  // openssl dgst -md_gost12_256 -mac hmac over 01, label, 00, seed and a length of one octet
  ASSERT_TRUE(KdfTree(key, label, seed, std::span(out).first(16)));
  EXPECT_EQ(ToHex(std::span(out).first(16)), Plain("0a3ebee52487befa874c44b307dfe6ba"));
  out.resize(255 * 32);
  EXPECT_TRUE(KdfTree(key, label, seed, out));
  out.resize(255 * 32 + 1);
  EXPECT_FALSE(KdfTree(key, label, seed, out)) << "more steps than one byte counts";
  EXPECT_FALSE(KdfTree(key, label, seed, {}));
}

// ANS X9.63 component test vectors of NIST, SHA-256
TEST(DeriveKeys, X963) {
  const Bytes secret = FromHex("22518b10e70f2a3f243810ae3254139efbee04aa57c7af7d");
  Bytes out(128);
  ASSERT_TRUE(X963Kdf(CALG_SHA_256, secret, FromHex("75eef81aa3041e33b80971203d2c0c52"), out));
  EXPECT_EQ(ToHex(std::span(out).first(16)), Plain("c498af77161cc59f2962b9a713e2b215"));
  EXPECT_EQ(ToHex(std::span(out).last(16)), Plain("dc54d54d4d1f0bd7e386128ec26afc21"));
  ASSERT_TRUE(X963Kdf(CALG_SHA_256, FromHex("96c05619d56c328ab95fe84b18264b08725b85e33fd34f08"), {},
                      std::span(out).first(16)));
  EXPECT_EQ(ToHex(std::span(out).first(16)), Plain("443024c3dae66b95e6f5670601558f71"));
  EXPECT_FALSE(X963Kdf(CALG_GR3411_2012_256, secret, {}, out));
  EXPECT_FALSE(X963Kdf(CALG_SHA_256, {}, {}, out));
}

// The expansions were computed by hand with sha1sum and md5sum.
TEST(DeriveKeys, KeyFromHash) {
  Bytes value = FromHex(kKeyCount);
  value.resize(20);
  Bytes key(16);
  ASSERT_TRUE(KeyFromHash(CALG_SHA1, value, key));
  EXPECT_EQ(ToHex(key), ToHex(std::span(value).first(16)));
  key.resize(24);
  ASSERT_TRUE(KeyFromHash(CALG_SHA1, value, key));
  EXPECT_EQ(ToHex(key), Plain("b0e60335b761a87b29ea13b4b266c8b6665c04e183c74b5d"));
  value.resize(16);
  key.resize(32);
  ASSERT_TRUE(KeyFromHash(CALG_MD5, value, key));
  EXPECT_EQ(ToHex(key), Plain("a53d3f200c931a2bf97c23dfd362bcc3f1e468d38da0f449fd9a35bb29ca9f56"));
  key.resize(33);
  EXPECT_FALSE(KeyFromHash(CALG_MD5, value, key));
  EXPECT_FALSE(KeyFromHash(CALG_AES_128, value, key));
}

}  // namespace
