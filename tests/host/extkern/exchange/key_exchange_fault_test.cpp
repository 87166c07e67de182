// Key exchange with what a message or a caller may get wrong.
#include <gtest/gtest.h>

#include <functional>

#include "host/extkern/exchange/key_exchange_messages.h"
#include "support/hex.h"

namespace {

constexpr char k28147[] = "1.2.643.2.2.21";
constexpr char kMagma[] = "1.2.643.7.1.1.5.1.1";
constexpr char kKuznyechik[] = "1.2.643.7.1.1.5.2.1";
constexpr char kAes256[] = "2.16.840.1.101.3.4.1.42";
constexpr char kRc2[] = "1.2.840.113549.3.2";
constexpr char kRsa[] = "-algorithm RSA -pkeyopt rsa_keygen_bits:2048";
constexpr char kP256[] = "-algorithm EC -pkeyopt ec_paramgen_curve:P-256";
constexpr char k2001[] = "-algorithm gost2001 -pkeyopt paramset:XA";
constexpr char k256[] = "-algorithm gost2012_256 -pkeyopt paramset:A";
constexpr char k512[] = "-algorithm gost2012_512 -pkeyopt paramset:A";

struct Sample {
  const char* key;
  const char* content;
  SealOptions options;
  bool tellsNothing = false;  // a damaged key is another key
};
const Sample kSamples[] = {
    {kRsa,                                       kAes256, {},true},
    {kRsa,                                          kRc2,                                              {.contentParameters = FromHex("300E020200A00408 0102030405060708")},true},
    {kRsa,                                      kAes256,                                             {.keyEncryption = "1.2.840.113549.1.1.7"}                                         },
    {kP256, kAes256,{.agreement = true}},
    {k2001,                       k28147,                                                                   {}                                                                                                                                                },
    {k256,                                        k28147,{.agreement = true}},
    {k256,                       kMagma,                                                  {}                                                                                                                                                                                                                     },
    {k512,                                        kKuznyechik,{.agreement = true}},
};

// A damaged key must not open the message, unless what was changed means nothing; and it must always be an answer.
void ExpectRefused(const Envelope& damaged, const Party& recipient, const ByteVector& plain,
                   bool tellsNothing, bool cut) {
  KeyHandle key;
  const DWORD code = TakeKey(damaged, recipient, key);
  EXPECT_EQ(code == 0, static_cast<bool>(key));
  ByteVector opened;
  if (tellsNothing) {
    EXPECT_EQ(code == 0, !damaged.encryptedKey.empty());
    EXPECT_TRUE(Open(damaged, recipient, opened) != 0 || opened != plain);
  } else if (code) {
    EXPECT_EQ(code & 0xFFFF0000, 0x80090000u) << std::hex << code;
  } else {
    EXPECT_FALSE(cut);
    EXPECT_EQ(Open(damaged, recipient, opened), 0u);
    EXPECT_EQ(opened, plain);
  }
}

TEST(KeyExchangeFaults, DamagedKeys) {
  const ByteVector plain = SomeContent(40);
  for (const auto& [keyOptions, content, options, tellsNothing] : kSamples) {
    SCOPED_TRACE(std::string(keyOptions) + " " + content + (options.agreement ? " agreed" : ""));
    const Party& recipient = MadeParty(keyOptions);
    Envelope whole;
    ByteVector opened;
    ASSERT_EQ(Seal(recipient, content, plain, options, whole), 0u);
    ASSERT_EQ(Open(whole, recipient, opened), 0u);
    ASSERT_EQ(opened, plain);
    size_t meaningless = 0;
    for (size_t i = 0; i < whole.encryptedKey.size(); ++i) {
      SCOPED_TRACE(i);
      Envelope damaged = whole;
      damaged.encryptedKey[i] ^= 0x11;
      ExpectRefused(damaged, recipient, plain, tellsNothing, false);
      KeyHandle key;
      meaningless += !tellsNothing && TakeKey(damaged, recipient, key) == 0;
      damaged.encryptedKey = whole.encryptedKey;
      damaged.encryptedKey.resize(i);
      ExpectRefused(damaged, recipient, plain, tellsNothing, true);
    }
    EXPECT_LE(meaningless,
              12u);  // a digest's identifier beside the ephemeral key's curve, four octets of a UKM
  }
}

struct WrongCase {
  const char* name;
  size_t sample;
  std::function<void(Envelope&)> spoil;
  DWORD code;
};
TEST(KeyExchangeFaults, WrongPieces) {
  enum {
    kByRsa = 0,
    kByOaep = 2,
    kByEcdh = 3,
    kByTransport = 4,
    kByAgreement = 5,
    kByKexp = 6,
    kByKegAgreement = 7
  };
  const auto oaep = [](const char* hex) {
    return [hex](Envelope& e) { e.keyEncryption = {"1.2.840.113549.1.1.7", FromHex(hex)}; };
  };
  const WrongCase cases[] = {
      {"UKM too short",                          kByAgreement,    [](Envelope& e) { e.ukm.resize(7); },                               NTE_BAD_DATA },
      {"UKM too long",                           kByAgreement,    [](Envelope& e) { e.ukm.resize(9); },                               NTE_BAD_DATA },
      {"no UKM",                                 kByAgreement,    [](Envelope& e) { e.ukm.clear(); },                                 NTE_BAD_DATA },
      {"UKM of the other wrap",                  kByKegAgreement, [](Envelope& e) { e.ukm.resize(8); },                               NTE_BAD_DATA },
      {"UKM of KEG too long",                    kByKegAgreement, [](Envelope& e) { e.ukm.resize(33); },                              NTE_BAD_DATA },
      {"another UKM",                            kByKegAgreement, [](Envelope& e) { e.ukm[24] ^= 1; },                                NTE_BAD_DATA },
      {"a scheme that is none",                  kByAgreement,    [](Envelope& e) { e.keyEncryption.oid = "1.2.643.2.2.97"; },
       NTE_BAD_ALGID                                                                                                                               },
      {"a transport that is none",               kByTransport,    [](Envelope& e) { e.keyEncryption.oid = "1.2.643.2.2.20"; },
       NTE_BAD_ALGID                                                                                                                               },
      {"a masked key",                           kByAgreement,
       [](Envelope& e) {
         e.encryptedKey[1] += 2;
         e.encryptedKey.insert(e.encryptedKey.end(), {0x80, 0});
       },                                                                                                                             NTE_BAD_DATA },
      {"a wrap that is none",                    kByAgreement,
       [](Envelope& e) {
         e.keyEncryption.parameters = FromHex("3012 0607 2A850302020D02 3007 0605 2A85030202");
       },                                                                                                                             NTE_BAD_ALGID},
      {"a box that is none",                     kByAgreement,
       [](Envelope& e) {
         e.keyEncryption.parameters = FromHex("3012 0607 2A850302020D00 3007 0605 2A85030202");
       },                                                                                                                             NTE_BAD_ALGID},
      {"an agreement that is none",              kByKexp,         [](Envelope& e) { e.keyEncryption.parameters.back() = 9; },
       NTE_BAD_ALGID                                                                                                                               },
      {"no agreement",                           kByKexp,         [](Envelope& e) { e.keyEncryption.parameters.clear(); },            NTE_BAD_DATA },
      {"the other cipher's wrap",                kByKegAgreement,
       [](Envelope& e) { e.keyEncryption.oid = "1.2.643.7.1.1.7.1.1"; },                                                              NTE_BAD_DATA },
      {"SHA-224",                                kByEcdh,         [](Envelope& e) { e.keyEncryption.oid = "1.3.132.1.11.0"; },        NTE_BAD_ALGID},
      {"another hash",                           kByEcdh,         [](Envelope& e) { e.keyEncryption.oid = "1.3.132.1.11.3"; },        NTE_BAD_DATA },
      {"UKM that was not used",                  kByEcdh,         [](Envelope& e) { e.ukm = {1}; },                                   NTE_BAD_DATA },
      {"a wrap of RC2",                          kByEcdh,
       [](Envelope& e) { e.keyEncryption.parameters = FromHex("300D 060B 2A864886F70D0109100307"); },
       NTE_BAD_ALGID                                                                                                                               },
      {"no wrap",                                kByEcdh,         [](Envelope& e) { e.keyEncryption.parameters.clear(); },            NTE_BAD_DATA },
      {"a point off the curve",                  kByEcdh,         [](Envelope& e) { e.originatorKey.back() ^= 1; },
       NTE_BAD_PUBLIC_KEY                                                                                                                          },
      {"an originator of another family",        kByEcdh,
       [](Envelope& e) {
         e.originator = MadeParty(k256).algorithm;
         e.originatorKey = MadeParty(k256).publicKey;
       },                                                                                                                             NTE_BAD_KEY  },
      {"an originator on another curve",         kByAgreement,
       [](Envelope& e) {
         e.originator = MadeParty("-algorithm gost2012_256 -pkeyopt paramset:TCA").algorithm;
         e.originatorKey = MadeParty("-algorithm gost2012_256 -pkeyopt paramset:TCA").publicKey;
       },                                                                                                                             NTE_BAD_KEY  },
      {"OAEP with two hashes",                   kByOaep,         oaep("300D A00B 3009 0605 2B0E03021A 0500"),                        0            },
      {"OAEP with SHA-256 and the default mask", kByOaep,         oaep("300F A00D 300B 0609 608648016503040201"),
       NTE_BAD_ALGID                                                                                                                               },
      {"OAEP with an unknown source",            kByOaep,         oaep("3009 A207 3005 0603 2A0304"),                                 NTE_BAD_ALGID},
      {"OAEP with another label",                kByOaep,         oaep("3014 A212 3010 0609 2A864886F70D010109 0403 010203"),
       NTE_BAD_DATA                                                                                                                                },
      {"OAEP with something behind",             kByOaep,         oaep("3002 0500"),                                                  NTE_BAD_DATA },
      {"RSA without padding",                    kByRsa,          [](Envelope& e) { e.keyEncryption.oid = "1.2.840.113549.1.1.10"; },
       NTE_BAD_ALGID                                                                                                                               },
      {"content that is none",                   kByRsa,          [](Envelope& e) { e.content.oid = "1.2.3"; },                       NTE_BAD_ALGID},
      {"content with a hash",                    kByRsa,          [](Envelope& e) { e.content.oid = "1.3.14.3.2.26"; },               NTE_BAD_ALGID},
      {"an initial value too short",             kByRsa,
       [](Envelope& e) { e.content.parameters = FromHex("0408 0000000000000000"); },                                                  NTE_BAD_DATA },
      {"no initial value",                       kByRsa,          [](Envelope& e) { e.content.parameters.clear(); },                  NTE_BAD_DATA },
      {"a UKM too long",                         kByKexp,
       [](Envelope& e) { e.content.parameters = FromHex("3012 0410 00000000000000000000000000000000"); },
       NTE_BAD_DATA                                                                                                                                },
      {"a box in the content that is none",      kByTransport,
       [](Envelope& e) { e.content.parameters.back() = 0x7F; },                                                                       NTE_BAD_ALGID},
      {"an RC2 version that is none",            kByRsa,
       [](Envelope& e) {
         e.content = {kRc2, FromHex("300E 0202 0101 0408 0102030405060708")};
       },                                                                                                                             NTE_BAD_ALGID},
  };
  for (const auto& [name, sample, spoil, code] : cases) {
    SCOPED_TRACE(name);
    const Party& recipient = MadeParty(kSamples[sample].key);
    Envelope envelope;
    ASSERT_EQ(Seal(recipient, kSamples[sample].content, SomeContent(40), kSamples[sample].options, envelope),
              0u);
    spoil(envelope);
    KeyHandle key;
    EXPECT_EQ(TakeKey(envelope, recipient, key), code);
    EXPECT_EQ(static_cast<bool>(key), code == 0);
  }
}

struct RefusedSeal {
  const char* key;
  const char* content;
  SealOptions options;
  DWORD code;
};
TEST(KeyExchangeFaults, RefusedExports) {
  const RefusedSeal cases[] = {
      {k256,  "1.2.3",     {},                                                           NTE_BAD_ALGID},
      {k256,  k28147,      {.contentParameters = FromHex("300A 0408 0102030405060708")}, NTE_BAD_DATA },
      {k256,  kMagma,      {.contentParameters = FromHex("3003 0401 00")},               NTE_BAD_DATA },
      {k256,  k28147,      {.keyEncryption = "1.2.643.7.1.1.7.1.1"},                     NTE_BAD_ALGID},
      {kP256, kAes256,     {},                                                           NTE_BAD_ALGID},
      {kRsa,  kAes256,     {.keyEncryption = "1.2.840.113549.1.1.10"},                   NTE_BAD_ALGID},
      {k256,  k28147,      {.agreement = true, .ukm = ByteVector(7)},                    NTE_BAD_DATA },
      {k256,  k28147,      {.agreement = true, .ukm = ByteVector(8)},                    NTE_BAD_DATA },
      {k256,  kKuznyechik, {.agreement = true, .ukm = ByteVector(8, 1)},                 NTE_BAD_DATA },
      {k256,  k28147,      {.agreement = true, .keyWrap = "2.16.840.1.101.3.4.1.5"},     NTE_BAD_ALGID},
      {k256,  k28147,      {.keyEncryption = "1.3.132.1.11.1", .agreement = true},       NTE_BAD_ALGID},
      {kP256, kAes256,     {.keyEncryption = "1.3.132.1.11.0", .agreement = true},       NTE_BAD_ALGID},
      {kP256, kAes256,     {.agreement = true, .keyWrap = "1.2.643.2.2.13.0"},           NTE_BAD_ALGID},
  };
  for (const auto& [key, content, options, code] : cases) {
    SCOPED_TRACE(std::string(key) + " " + content);
    Envelope envelope;
    EXPECT_EQ(Seal(MadeParty(key), content, {}, options, envelope), code);
    EXPECT_EQ(OutstandingPieces(), 0u);
  }
}

TEST(KeyExchangeFaults, MemoryEnds) {
  for (const auto& [keyOptions, content, options, tellsNothing] : kSamples) {
    SCOPED_TRACE(std::string(keyOptions) + " " + content);
    DWORD code = NTE_NO_MEMORY;
    size_t count = 0;
    for (; code && count < 20; ++count) {
      Envelope envelope;
      FailAllocationsAfter(count);
      code = Seal(MadeParty(keyOptions), content, SomeContent(1), options, envelope);
      EXPECT_EQ(OutstandingPieces(), 0u) << count;
      EXPECT_TRUE(code == 0 || code == NTE_NO_MEMORY) << std::hex << code;
    }
    EXPECT_GT(count, 1u);
  }
  FailAllocationsAfter(SIZE_MAX);
}

TEST(KeyExchangeFaults, Arguments) {
  CRYPT_ALGORITHM_IDENTIFIER content = {const_cast<LPSTR>(kAes256), {}};
  CMSG_KEY_AGREE_RECIPIENT_INFO agree = {};
  CMSG_CTRL_KEY_AGREE_DECRYPT_PARA agreePara = {};
  agreePara.cbSize = sizeof(agreePara);
  agreePara.pKeyAgree = &agree;
  CMSG_KEY_TRANS_RECIPIENT_INFO trans = {};
  CMSG_CTRL_KEY_TRANS_DECRYPT_PARA transPara = {};
  transPara.cbSize = sizeof(transPara) - 1;
  transPara.pKeyTrans = &trans;
  trans.KeyEncryptionAlgorithm.pszObjId = const_cast<LPSTR>("1.2.840.113549.1.1.1");
  KeyHandle key;
  const auto code = [](BOOL done) { return done ? ERROR_SUCCESS : GetLastError(); };
  EXPECT_EQ(code(XnMsgDllImportKeyTransRSA(&content, &transPara, 0, nullptr, key.out())),
            ERROR_INVALID_PARAMETER + 0u);
  EXPECT_EQ(code(XnMsgDllImportKeyTransRSA(&content, &transPara, 1, nullptr, key.out())), NTE_BAD_FLAGS);
  EXPECT_EQ(code(XnMsgDllImportKeyTrans(&content, nullptr, 0, nullptr, key.out())),
            ERROR_INVALID_PARAMETER + 0u);
  EXPECT_EQ(code(XnMsgDllImportKeyAgree(&content, &agreePara, 0, &agree, key.out())),
            ERROR_INVALID_PARAMETER + 0u);
  EXPECT_EQ(code(XnMsgDllImportKeyAgree(&content, &agreePara, 0, nullptr, key.out())), CRYPT_E_INVALID_INDEX);
  EXPECT_EQ(code(XnMsgDllImportKeyAgree(&content, &agreePara, 0, nullptr, nullptr)),
            ERROR_INVALID_PARAMETER + 0u);
  CMSG_CONTENT_ENCRYPT_INFO info = {};
  info.cbSize = sizeof(info);
  info.ContentEncryptionAlgorithm = content;
  EXPECT_EQ(code(XnMsgDllGenContentEncryptKey(&info, 0, nullptr)),
            ERROR_INVALID_PARAMETER + 0u);  // no allocator
  EXPECT_EQ(info.hContentEncryptKey, 0u);
}

}  // namespace
