// Session keys through the exported functions: settings, pieces, padding, tags, derivation, blobs.
#include <algorithm>
#include <cstring>

#include "key_level.h"
#include "support/hex.h"

namespace {

ByteVector Pattern(size_t size) {
  ByteVector bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<BYTE>(i * 7 + i / 256);
  return bytes;
}

// FIPS 197 and SP 800-38A for AES; RFC 8891 and RFC 7801 for the blocks of GOST R 34.12-2015 under ECB.
const struct {
  const char* name;
  ALG_ID algorithm;
  DWORD mode;
  const char* key;
  const char* iv;
  const char* plain;
  const char* cipher;
} kVectors[] = {
    {"AES-128 CBC",    CALG_AES_128,       CRYPT_MODE_CBC, "2b7e151628aed2a6abf7158809cf4f3c",
     "000102030405060708090a0b0c0d0e0f",                                                           "6bc1bee22e409f96e93d7e117393172a",
     "7649abac8119b246cee98e9b12e9197d"                                                                                                                                  },
    {"AES-256 ECB",    CALG_AES_256,       CRYPT_MODE_ECB,
     "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",                       "",
     "6bc1bee22e409f96e93d7e117393172a",                                                                                               "f3eed1bdb5d2a03c064b5a7e3db181f8"},
    {"Magma ECB",      CALG_GR3412_2015_M, CRYPT_MODE_ECB,
     "ffeeddccbbaa99887766554433221100f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff",                       "", "fedcba9876543210",
     "4ee901e5c2d8ca3d"                                                                                                                                                  },
    {"Kuznyechik ECB", CALG_GR3412_2015_K, CRYPT_MODE_ECB,
     "8899aabbccddeeff0011223344556677fedcba98765432100123456789abcdef",                       "",
     "1122334455667700ffeeddccbbaa9988",                                                                                               "7f679d90bebc24305a468d42b9d4edcd"},
};

TEST(SessionKey, PublishedBlocksAndTheirPadding) {
  const ProviderHandle provider = VerifyContext();
  for (const auto& row : kVectors) {
    SCOPED_TRACE(row.name);
    const KeyHandle key = Derive(provider, row.algorithm, FromHex(row.key));
    ASSERT_TRUE(SetWord(key, KP_MODE, row.mode));
    const ByteVector iv = FromHex(row.iv);
    if (!iv.empty()) {
      ASSERT_TRUE(CryptSetKeyParam(key.get(), KP_IV, iv.data(), 0));
    }
    const ByteVector plain = FromHex(row.plain);
    ByteVector sealed = Encrypt(key, plain);
    ASSERT_EQ(sealed.size(), plain.size() * 2) << "a whole block more";
    EXPECT_EQ(ToHex(std::span(sealed).first(plain.size())), ToHex(FromHex(row.cipher)));
    ByteVector broken = sealed;
    EXPECT_EQ(TryDecrypt(key, sealed), 0u);
    EXPECT_EQ(sealed, plain);
    broken.back() ^= 0x55;
    EXPECT_EQ(TryDecrypt(key, broken), DWORD{NTE_BAD_DATA});
    EXPECT_TRUE(std::all_of(broken.begin(), broken.end(), [](BYTE byte) { return byte == 0; }))
        << "what is not vouched for is wiped";
  }
}

const struct {
  const char* name;
  ALG_ID algorithm;
  DWORD mode;
} kStreams[] = {
    {"28147 CFB",                 CALG_G28147,        CRYPT_MODE_CFB           },
    {"28147 CNT",                 CALG_G28147,        CRYPT_MODE_CNT           },
    {"Magma CTR-ACPKM",           CALG_GR3412_2015_M, CRYPT_MODE_CTR_ACPKM     },
    {"Kuznyechik CTR-ACPKM-OMAC", CALG_GR3412_2015_K, CRYPT_MODE_CTR_ACPKM_OMAC},
    {"AES-256 CBC",               CALG_AES_256,       CRYPT_MODE_CBC           },
    {"3DES CBC",                  CALG_3DES,          CRYPT_MODE_CBC           },
    {"RC2 CBC",                   CALG_RC2,           CRYPT_MODE_CBC           },
    {"RC4",                       CALG_RC4,           0                        },
};

TEST(SessionKey, PiecesComeToTheWhole) {
  const ProviderHandle provider = VerifyContext();
  const ByteVector plain = Pattern(20000);
  for (const auto& row : kStreams) {
    SCOPED_TRACE(row.name);
    const KeyHandle key = Generate(provider, row.algorithm);
    if (row.mode) {
      ASSERT_TRUE(SetWord(key, KP_MODE_WORD, row.mode));
    }
    const ByteVector whole = Encrypt(key, plain);
    ByteVector pieces = plain;
    pieces.resize(whole.size());
    size_t at = 0;
    for (const size_t piece : {size_t{1024}, size_t{8}, size_t{6992}, size_t{0}}) {
      DWORD size = static_cast<DWORD>(piece ? piece : plain.size() - at);
      // asking for the size in between moves nothing on
      DWORD asked = size;
      ASSERT_TRUE(CryptEncrypt(key.get(), 0, piece == 0, 0, nullptr, &asked, 0)
                  || GetLastError() == NTE_BAD_LEN);
      if (piece % 16 && row.mode == CRYPT_MODE_CBC && row.algorithm == CALG_AES_256) continue;
      ASSERT_TRUE(CryptEncrypt(key.get(), 0, piece == 0, 0, pieces.data() + at, &size,
                               static_cast<DWORD>(pieces.size() - at)));
      at += size;
    }
    EXPECT_EQ(at, whole.size());
    EXPECT_EQ(pieces, whole);
    EXPECT_EQ(TryDecrypt(key, pieces), 0u);
    EXPECT_EQ(pieces, plain);
  }
}

TEST(SessionKey, TheTagIsCheckedBeforeOrAfter) {
  const ProviderHandle provider = VerifyContext();
  const ByteVector plain = Pattern(5000);
  for (const ALG_ID algorithm : {CALG_GR3412_2015_M, CALG_GR3412_2015_K}) {
    const KeyHandle key = Generate(provider, algorithm);
    ASSERT_TRUE(SetWord(key, KP_MODE, CRYPT_MODE_CTR_ACPKM_OMAC));
    DWORD size = 0;
    EXPECT_FALSE(CryptGetKeyParam(key.get(), KP_AUTH_TAG, nullptr, &size, 0)) << "nothing was encrypted";
    const ByteVector sealed = Encrypt(key, plain);
    EXPECT_EQ(sealed.size(), plain.size());
    ByteVector tag = BytesParam(key, KP_AUTH_TAG);
    ASSERT_EQ(tag.size(), algorithm == CALG_GR3412_2015_M ? 8u : 16u);
    CRYPT_DATA_BLOB blob{static_cast<DWORD>(tag.size()), tag.data()};
    const auto* value = reinterpret_cast<const BYTE*>(&blob);
    for (const bool good : {true, false}) {
      if (!good) tag.back() ^= 1;
      const KeyHandle before = Import(provider, Export(key, OPAQUEKEYBLOB));
      ByteVector data = sealed;
      ASSERT_TRUE(CryptSetKeyParam(before.get(), KP_AUTH_TAG, value, 0));
      EXPECT_EQ(TryDecrypt(before, data), good ? 0 : DWORD{NTE_BAD_DATA});
      EXPECT_EQ(data == plain, good);
      const KeyHandle after = Import(provider, Export(key, OPAQUEKEYBLOB));
      data = sealed;
      EXPECT_EQ(TryDecrypt(after, data), 0u);
      for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(CryptSetKeyParam(after.get(), KP_AUTH_TAG, value, 0) != FALSE, good);
      }
    }
    blob.cbData = 4;
    EXPECT_FALSE(CryptSetKeyParam(key.get(), KP_AUTH_TAG, value, 0)) << "a short tag is none";
  }
}

TEST(SessionKey, RefusesWhatDoesNotFit) {
  const ProviderHandle provider = VerifyContext();
  const KeyHandle key = Generate(provider, CALG_AES_128);
  BYTE data[32] = {};
  DWORD size = 15;
  EXPECT_FALSE(CryptEncrypt(key.get(), 0, FALSE, 0, data, &size, sizeof(data)));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_LEN});
  size = 16;
  EXPECT_FALSE(CryptEncrypt(key.get(), 0, TRUE, 0, data, &size, 31)) << "no room for the padding";
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, 32u);
  size = 33;
  EXPECT_FALSE(CryptEncrypt(key.get(), 0, TRUE, 0, data, &size, 32)) << "more data than buffer";
  size = 15;
  EXPECT_FALSE(CryptDecrypt(key.get(), 0, TRUE, 0, data, &size));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_DATA});
  EXPECT_FALSE(SetWord(key, KP_MODE, CRYPT_MODE_CTR_ACPKM)) << "not a mode of this cipher";
  EXPECT_FALSE(SetWord(key, KP_ALGID, CALG_EXPORT_KDF)) << "wraps nothing of GOST";
  EXPECT_FALSE(
      CryptSetKeyParam(key.get(), KP_CIPHEROID, reinterpret_cast<const BYTE*>("1.2.643.2.2.31.1"), 0));
  KeyHandle none;
  EXPECT_FALSE(CryptGenKey(provider.get(), CALG_AES_128, 256u << 16, none.out()));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_LEN});
  EXPECT_FALSE(CryptGenKey(provider.get(), 0x6699, 0, none.out()));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_ALGID});
  const KeyHandle closed = Generate(provider, CALG_AES_128, 0);
  EXPECT_FALSE(CryptExportKey(closed.get(), 0, PLAINTEXTKEYBLOB, 0, nullptr, &size));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_KEY_STATE});
}

// AES-256 wants more than SHA-1 has. The value was computed with Python's hashlib over the two padded blocks.
TEST(SessionKey, DerivesMoreThanTheHashHas) {
  const ProviderHandle provider = VerifyContext(PROV_RSA_AES);
  const HashHandle hash = HashOf(provider, CALG_SHA1, Bytes("password"));
  KeyHandle key;
  ASSERT_TRUE(CryptDeriveKey(provider.get(), CALG_AES_256, hash.get(), CRYPT_EXPORTABLE, key.out()));
  const ByteVector blob = Export(key, PLAINTEXTKEYBLOB);
  EXPECT_EQ(ToHex(std::span(blob).subspan(12)),
            ToHex(FromHex("A3BC5087 53274827 CF251560 0EAEA32C 226A7895 C0533FCC 0A67DE05 4E4822F0")));
}

// --- keys under keys ---

TEST(SessionKey, TravelsUnderOthers) {
  const ProviderHandle provider = VerifyContext();
  const KeyHandle content = Generate(provider, CALG_G28147);
  const KeyHandle rsa = Generate(provider, CALG_RSA_KEYX, 1024u << 16 | CRYPT_EXPORTABLE);
  const ByteVector plain = Export(content, PLAINTEXTKEYBLOB);
  for (const ALG_ID method :
       {CALG_EXPORT_SIMPLE, CALG_EXPORT_DIVERSIFIED, CALG_EXPORT_KDF, CALG_G28147, CALG_DES}) {
    SCOPED_TRACE(method);
    const KeyHandle transport = Generate(provider, method == CALG_DES ? CALG_DES : CALG_G28147);
    ASSERT_TRUE(SetWord(transport, KP_ALGID, method));
    const ByteVector blob = Export(content, SIMPLEBLOB, transport.get());
    EXPECT_EQ(Export(Import(provider, blob, transport.get()), PLAINTEXTKEYBLOB), plain);
    if (method == CALG_G28147 || method == CALG_DES) continue;  // nothing vouches for these
    KeyHandle key;
    const KeyHandle other = Generate(provider, CALG_G28147);
    ASSERT_TRUE(SetWord(other, KP_ALGID, method));
    EXPECT_EQ(TryImport(provider, blob, key, other.get()), DWORD{NTE_BAD_DATA}) << "another key";
  }
  for (const DWORD flags : {DWORD{0}, DWORD{CRYPT_OAEP}}) {
    const ByteVector blob = Export(content, SIMPLEBLOB, rsa.get(), flags);
    EXPECT_EQ(Export(Import(provider, blob, rsa.get(), flags | CRYPT_EXPORTABLE), PLAINTEXTKEYBLOB), plain);
    ByteVector broken = blob;
    broken[40] ^= 1;
    KeyHandle key;
    const DWORD code = TryImport(provider, broken, key, rsa.get(), flags | CRYPT_EXPORTABLE);
    EXPECT_EQ(code, flags ? DWORD{NTE_BAD_DATA} : 0u) << "PKCS1-v1_5 tells nobody";
    if (!flags) {
      EXPECT_NE(Export(key, PLAINTEXTKEYBLOB), plain);
    }
  }
}

}  // namespace
