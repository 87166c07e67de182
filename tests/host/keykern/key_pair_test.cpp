// Key pairs through the exported functions: signatures, agreement, blobs of every kind, hostile ones too.
#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

#include "key_level.h"
#include "support/hex.h"

namespace {

const struct {
  const char* name;
  ALG_ID algorithm;
  const char* set;  // null: the usual
  ALG_ID hash;
  DWORD bits;
} kPairs[] = {
    {"2012-256 A",    CALG_GR3410_12_256,       "1.2.643.7.1.2.1.1.1", CALG_GR3411_2012_256, 256 },
    {"2012-256 35.1", CALG_DH_GR3410_12_256_SF, "1.2.643.2.2.35.1",    CALG_GR3411_2012_256, 256 },
    {"2012-512 C",    CALG_GR3410_12_512,       "1.2.643.7.1.2.1.2.3", CALG_GR3411_2012_512, 512 },
    {"2001",          CALG_DH_EL_SF,            "1.2.643.2.2.36.0",    CALG_GR3411,          256 },
    {"RSA",           CALG_RSA_KEYX,            nullptr,               CALG_SHA_256,         2048},
    {"P-256",         CALG_ECDSA,               nullptr,               CALG_SHA_256,         256 },
    {"P-521",         CALG_ECDH,                "1.3.132.0.35",        CALG_SHA_512,         521 },
    {"Ed25519",       CALG_EDDSA,               nullptr,               CALG_MESSAGE_ITSELF,  256 },
    {"Ed448",         CALG_EDDSA,               "1.3.101.113",         CALG_MESSAGE_ITSELF,  456 },
};

template <class Row>
KeyHandle Make(const ProviderHandle& provider, const Row& row) {
  KeyHandle key = Generate(provider, row.algorithm, CRYPT_EXPORTABLE | CRYPT_PREGEN);
  if (row.set) {
    EXPECT_TRUE(CryptSetKeyParam(key.get(), KP_CURVEOID, reinterpret_cast<const BYTE*>(row.set), 0));
  }
  EXPECT_TRUE(CryptSetKeyParam(key.get(), KP_X, nullptr, 0)) << std::hex << GetLastError();
  return key;
}

DWORD SpecOf(ALG_ID algorithm) {
  return GET_ALG_CLASS(algorithm) == ALG_CLASS_KEY_EXCHANGE ? AT_KEYEXCHANGE : AT_SIGNATURE;
}

TEST(KeyPair, SignsAndVerifies) {
  for (const auto& row : kPairs) {
    SCOPED_TRACE(row.name);
    const ProviderHandle provider = VerifyContext();
    const KeyHandle pair = Make(provider, row);
    EXPECT_EQ(WordParam(pair, KP_KEYLEN), row.bits);
    EXPECT_EQ(WordParam(pair, KP_ALGID), row.algorithm);
    if (row.set) {
      EXPECT_STREQ(reinterpret_cast<const char*>(BytesParam(pair, KP_CURVEOID).data()), row.set);
    }
    const KeyHandle half = Import(provider, Export(pair, PUBLICKEYBLOB));
    EXPECT_EQ(BytesParam(half, KP_FP), BytesParam(pair, KP_FP));
    const HashHandle hash = HashOf(provider, row.hash, Bytes("what is signed"));
    ByteVector signature = Sign(hash, SpecOf(row.algorithm));
    EXPECT_EQ(Verify(HashOf(provider, row.hash, Bytes("what is signed")), signature, half), 0u);
    EXPECT_EQ(Verify(HashOf(provider, row.hash, Bytes("what is not")), signature, half),
              DWORD{NTE_BAD_SIGNATURE});
    for (const size_t size : {size_t{0}, size_t{1}, signature.size() - 1, signature.size() + 1}) {
      ByteVector other = signature;
      other.resize(size);
      EXPECT_EQ(Verify(hash, other, half), DWORD{NTE_BAD_SIGNATURE}) << size;
    }
    signature[signature.size() / 2] ^= 1;
    EXPECT_EQ(Verify(hash, signature, half), DWORD{NTE_BAD_SIGNATURE});
    EXPECT_EQ(Verify(hash, signature, half, 0x1000), DWORD{NTE_BAD_FLAGS});
    const KeyHandle session = Generate(provider, CALG_AES_128);
    EXPECT_EQ(Verify(hash, signature, session), DWORD{NTE_BAD_KEY});
  }
}

TEST(KeyPair, HashAndKeyMustFit) {
  const ProviderHandle provider = VerifyContext();
  const struct {
    ALG_ID key;
    ALG_ID hash;
    DWORD code;
  } rows[] = {
      {CALG_GR3410_12_256, CALG_GR3411_2012_512, NTE_BAD_HASH },
      {CALG_GR3410_12_512, CALG_GR3411_2012_256, NTE_BAD_HASH },
      {CALG_GR3410_12_256, CALG_GR3411,          NTE_BAD_HASH },
      {CALG_GR3410_12_256, CALG_SHA_256,         NTE_BAD_HASH },
      {CALG_EDDSA,         CALG_SHA_512,         NTE_BAD_ALGID},
      {CALG_ECDSA,         CALG_MESSAGE_ITSELF,  NTE_BAD_HASH },
  };
  for (const auto& row : rows) {
    const KeyHandle key = Generate(provider, row.key);
    BYTE signature[256];
    DWORD size = sizeof(signature);
    const HashHandle hash = HashOf(provider, row.hash, Bytes("x"));
    EXPECT_FALSE(CryptSignHashA(hash.get(), AT_SIGNATURE, nullptr, 0, signature, &size));
    EXPECT_EQ(GetLastError(), row.code) << std::hex << row.key << " " << row.hash;
  }
  DWORD size = 0;
  EXPECT_FALSE(
      CryptSignHashA(HashOf(provider, CALG_SHA_256, {}).get(), AT_KEYEXCHANGE, nullptr, 0, nullptr, &size));
  EXPECT_EQ(GetLastError(), DWORD{NTE_NO_KEY});
}

TEST(KeyPair, PssSaltCounts) {
  const ProviderHandle provider = VerifyContext(PROV_RSA_AES);
  const KeyHandle key = Generate(provider, CALG_RSA_SIGN);
  for (const DWORD salt : {0u, 20u, 32u}) {
    const auto salted = [&](DWORD length) {
      HashHandle hash = HashOf(provider, CALG_SHA_256, Bytes("m"));
      const DWORD words[] = {length, CALG_SHA_256};
      EXPECT_TRUE(CryptSetHashParam(hash.get(), HP_PSS_SALT, reinterpret_cast<const BYTE*>(words), 0));
      return hash;
    };
    const ByteVector signature = Sign(salted(salt), AT_SIGNATURE, CRYPT_PSS);
    EXPECT_EQ(Verify(salted(salt), signature, key, CRYPT_PSS), 0u);
    EXPECT_EQ(Verify(salted(salt + 1), signature, key, CRYPT_PSS), DWORD{NTE_BAD_SIGNATURE});
    EXPECT_EQ(Verify(salted(salt), signature, key), DWORD{NTE_BAD_SIGNATURE}) << "not PKCS1-v1_5";
  }
}

// --- agreement ---

TEST(KeyPair, AgreedKeysWrap) {
  const struct {
    ALG_ID algorithm;
    const char* set;
    std::vector<ALG_ID> methods;
  } rows[] = {
      {CALG_DH_GR3410_12_256_SF,
       "1.2.643.7.1.2.1.1.1",                        {CALG_EXPORT_SIMPLE, CALG_EXPORT_DIVERSIFIED, CALG_EXPORT_KDF, CALG_EXPORT_KEXP15_M,
        CALG_EXPORT_KEXP15_K}                                                                                    },
      {CALG_DH_GR3410_12_512_SF,
       "1.2.643.7.1.2.1.2.1",                        {CALG_EXPORT_SIMPLE, CALG_EXPORT_DIVERSIFIED, CALG_EXPORT_KEXP15_M, CALG_EXPORT_KEXP15_K}},
      {CALG_DH_EL_SF,            "1.2.643.2.2.36.0", {CALG_EXPORT_SIMPLE, CALG_EXPORT_DIVERSIFIED}                                            },
      {CALG_ECDH,                nullptr,            {CALG_AES_128, CALG_AES_256, CALG_3DES}                                                  },
  };
  for (const auto& row : rows) {
    const ProviderHandle mine = VerifyContext();
    const ProviderHandle theirs = VerifyContext();
    const KeyHandle own = Make(mine, row);
    const KeyHandle peer = Make(theirs, row);
    for (const ALG_ID method : row.methods) {
      SCOPED_TRACE(testing::Message() << std::hex << row.algorithm << " " << method);
      const KeyHandle sender = Import(mine, Export(peer, PUBLICKEYBLOB), own.get());
      const KeyHandle receiver = Import(theirs, Export(own, PUBLICKEYBLOB), peer.get());
      const KeyHandle content = Generate(mine, method == CALG_3DES ? CALG_3DES : CALG_AES_256);
      EXPECT_FALSE(CryptExportKey(content.get(), sender.get(), SIMPLEBLOB, 0, nullptr, nullptr));
      ByteVector ukm(32, 7);
      for (const KeyHandle* side : {&sender, &receiver}) {
        ASSERT_TRUE(SetWord(*side, KP_ALGID, method));
        if (GET_ALG_CLASS(row.algorithm) == ALG_CLASS_KEY_EXCHANGE && row.algorithm != CALG_ECDH) {
          ASSERT_TRUE(CryptSetKeyParam(side->get(), KP_IV, ukm.data(), 0));
        }
      }
      ByteVector blob = Export(content, SIMPLEBLOB, sender.get());
      const KeyHandle opened = Import(theirs, blob, receiver.get());
      EXPECT_EQ(Export(opened, PLAINTEXTKEYBLOB), Export(content, PLAINTEXTKEYBLOB));
      blob[30] ^= 1;
      KeyHandle none;
      EXPECT_EQ(TryImport(theirs, blob, none, receiver.get()), DWORD{NTE_BAD_DATA});
    }
    KeyHandle none;
    const KeyHandle stranger = Generate(mine, CALG_EDDSA);
    EXPECT_EQ(TryImport(mine, Export(peer, PUBLICKEYBLOB), none, stranger.get()), DWORD{NTE_BAD_KEY});
  }
}

// --- private keys in blobs ---

KeyHandle Transport(const ProviderHandle& provider, ALG_ID algorithm, ALG_ID method) {
  KeyHandle key = Derive(provider, algorithm, ByteVector(algorithm == CALG_DES ? 8 : 32, 0x21));
  if (method) {
    EXPECT_TRUE(SetWord(key, KP_ALGID, method));
  }
  return key;
}

TEST(KeyPair, PrivateKeysMove) {
  for (const auto& row : kPairs) {
    SCOPED_TRACE(row.name);
    const ProviderHandle from = VerifyContext();
    const KeyHandle pair = Make(from, row);
    const bool gost =
        row.hash == CALG_GR3411 || row.hash == CALG_GR3411_2012_256 || row.hash == CALG_GR3411_2012_512;
    const struct {
      DWORD type;
      ALG_ID transport;
      ALG_ID method;
    } ways[] = {
        {PRIVATEKEYBLOB,        0,            0                                 },
        {PRIVATEKEYBLOB,        CALG_DES,     0                                 },
        {PRIVATEKEYBLOB,        CALG_G28147,  gost ? CALG_EXPORT_KDF : 0        },
        {PRIVATEKEYBLOB,        CALG_G28147,  gost ? CALG_EXPORT_DIVERSIFIED : 0},
        {PKCS8_SHROUDEDKEYBLOB, CALG_AES_256, 0                                 },
        {PKCS8_SHROUDEDKEYBLOB, CALG_G28147,  0                                 },
    };
    for (const auto& way : ways) {
      SCOPED_TRACE(testing::Message() << way.type << " " << std::hex << way.transport << " " << way.method);
      const ProviderHandle to = VerifyContext();
      KeyHandle out;
      KeyHandle in;
      if (way.transport) out = Transport(from, way.transport, way.method);
      if (way.transport) in = Transport(to, way.transport, way.method);
      const ByteVector blob = Export(pair, way.type, out.get());
      const KeyHandle moved = Import(to, blob, in.get(), 0);
      EXPECT_EQ(BytesParam(moved, KP_FP), BytesParam(pair, KP_FP));
      DWORD size = 0;
      EXPECT_FALSE(CryptExportKey(moved.get(), in.get(), way.type, 0, nullptr, &size))
          << "not exportable here";
      EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_KEY_STATE});
      const HashHandle hash = HashOf(to, row.hash, Bytes("m"));
      const ByteVector signature = Sign(hash, SpecOf(WordParam(moved, KP_ALGID)));
      EXPECT_EQ(Verify(hash, signature, pair), 0u);
    }
  }
}

// The wrapping key itself travels with its substitution box, and the private key names the wrap.
TEST(KeyPair, TheWrappedKeyMayNameTheWrap) {
  const ProviderHandle provider = VerifyContext();
  const KeyHandle pair = Generate(provider, CALG_GR3410_12_256);
  ASSERT_TRUE(SetWord(pair, KP_ALGID, CALG_EXPORT_KDF));
  EXPECT_EQ(WordParam(pair, KP_ALGID), DWORD{CALG_GR3410_12_256}) << "still a key of its family";
  const KeyHandle wrapping = Transport(provider, CALG_G28147, 0);
  const ByteVector blob = Export(pair, PRIVATEKEYBLOB, wrapping.get());
  ASSERT_TRUE(SetWord(wrapping, KP_ALGID, CALG_EXPORT_KDF));
  EXPECT_EQ(BytesParam(Import(provider, blob, wrapping.get()), KP_FP), BytesParam(pair, KP_FP));
}

TEST(KeyPair, PublishedBlobOfRsa) {
  const ProviderHandle provider = VerifyContext(PROV_RSA_AES);
  const KeyHandle pair = Generate(provider, CALG_RSA_KEYX, 1024u << 16 | CRYPT_EXPORTABLE);
  const ByteVector half = Export(pair, PUBLICKEYBLOB);
  EXPECT_EQ(half.size(), 8u + 12 + 128);
  EXPECT_EQ(ToHex(std::span(half).first(20)),
            ToHex(FromHex("06 02 0000 00A40000 52534131 00040000 01000100")));
  const ByteVector whole = Export(pair, PRIVATEKEYBLOB);
  EXPECT_EQ(whole.size(), 8u + 12 + 128 + 5 * 64 + 128);
  EXPECT_TRUE(std::equal(half.begin() + 20, half.end(), whole.begin() + 20)) << "the modulus";
}

// Every blob cut at each length and changed at each byte: a code or a key, never anything else.
TEST(KeyPair, HostileBlobs) {
  const ProviderHandle provider = VerifyContext();
  std::vector<ByteVector> blobs;
  const KeyHandle wrapping = Transport(provider, CALG_G28147, CALG_EXPORT_KDF);
  const KeyHandle plain = Transport(provider, CALG_AES_256, 0);
  for (const ALG_ID algorithm : {CALG_GR3410_12_256, CALG_ECDSA, CALG_EDDSA}) {
    const KeyHandle key = Generate(provider, algorithm);
    blobs.push_back(Export(key, PUBLICKEYBLOB));
    blobs.push_back(Export(key, PRIVATEKEYBLOB));
    blobs.push_back(Export(key, PKCS8_SHROUDEDKEYBLOB, plain.get()));
  }
  blobs.push_back(Export(Generate(provider, CALG_GR3410_12_256), PRIVATEKEYBLOB, wrapping.get()));
  const KeyHandle session = Generate(provider, CALG_G28147);
  for (const DWORD type : {PLAINTEXTKEYBLOB, OPAQUEKEYBLOB}) blobs.push_back(Export(session, type));
  blobs.push_back(Export(session, SIMPLEBLOB, wrapping.get()));
  blobs.push_back(Export(Generate(provider, CALG_RSA_SIGN, 1024u << 16 | 1), PUBLICKEYBLOB));
  const std::set<DWORD> allowed = {
      0,           NTE_BAD_DATA,       NTE_BAD_VER,       NTE_BAD_TYPE, NTE_BAD_ALGID,
      NTE_BAD_KEY, NTE_BAD_PUBLIC_KEY, NTE_BAD_KEY_STATE, NTE_BAD_LEN};
  KeyHandle key;
  for (const ByteVector& blob : blobs) {
    for (const HCRYPTKEY under : {HCRYPTKEY{0}, wrapping.get(), plain.get()}) {
      for (size_t size = 0; size < blob.size(); ++size) {
        const ByteVector cut(blob.begin(), blob.begin() + static_cast<ptrdiff_t>(size));
        const DWORD code = TryImport(provider, cut, key, under);
        EXPECT_TRUE(code != 0 && allowed.count(code)) << std::hex << code << " at " << size;
      }
      for (size_t at = 0; at < blob.size(); ++at) {
        ByteVector changed = blob;
        changed[at] ^= 0x41;
        EXPECT_EQ(allowed.count(TryImport(provider, changed, key, under)), 1u) << std::hex << GetLastError();
      }
    }
    ByteVector longer = blob;
    longer.push_back(0);
    EXPECT_NE(TryImport(provider, longer, key), 0u) << "one byte too many, type " << int{blob[0]};
  }
}

TEST(KeyPair, ConcurrentUseOfOneProviderAndKey) {
  const ProviderHandle provider = VerifyContext();
  const KeyHandle pair = Generate(provider, CALG_GR3410_12_256);
  const KeyHandle session = Generate(provider, CALG_G28147);
  std::atomic<int> failures{0};
  const auto work = [&] {
    for (int i = 0; i < 10; ++i) {
      const HashHandle hash = HashOf(provider, CALG_GR3411_2012_256, Bytes("together"));
      if (Verify(hash, Sign(hash, AT_SIGNATURE), pair)) ++failures;
      KeyHandle twin;
      if (!CryptDuplicateKey(session.get(), nullptr, 0, twin.out())) ++failures;
      ByteVector data = Encrypt(twin, Bytes("each its own message"));
      if (TryDecrypt(twin, data) || !std::equal(data.begin(), data.end(), "each its own message")) ++failures;
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
}

}  // namespace
