// Hashes with a key or a password, and the one that hashes nothing.
#include "key_level.h"
#include "support/hex.h"

namespace {

std::string Value(const HashHandle& hash, size_t wanted = 0) {
  DWORD size = 0;
  EXPECT_TRUE(CryptGetHashParam(hash.get(), HP_HASHVAL, nullptr, &size, 0));
  ByteVector value(wanted ? wanted : size);
  size = static_cast<DWORD>(value.size());
  EXPECT_TRUE(CryptGetHashParam(hash.get(), HP_HASHVAL, value.data(), &size, 0))
      << std::hex << GetLastError();
  return ToHex(value);
}

bool Set(const HashHandle& hash, DWORD param, const void* value) {
  return CryptSetHashParam(hash.get(), param, static_cast<const BYTE*>(value), 0);
}

bool Add(const HashHandle& hash, std::span<const BYTE> data) {
  return CryptHashData(hash.get(), data.data(), static_cast<DWORD>(data.size()), 0);
}

// RFC 7836, A.1.1: one key, one text, both lengths.
constexpr char kGostKey[] = "000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F";
constexpr char kGostText[] = "0126BDB87800AF214341456563780100";
constexpr char kGost256[] = "A1AA5F7DE402D7B3D323F2991C8D4534013137010A83754FD0AF6D7CD4922ED9";

TEST(KeyedHash, HmacOfGost) {
  const ProviderHandle provider = VerifyContext();
  const ByteVector key = FromHex(kGostKey);
  const ByteVector text = FromHex(kGostText);
  const HashHandle byParameter = NewHash(provider, CALG_GR3411_2012_256_HMAC);
  EXPECT_FALSE(Add(byParameter, text)) << "no key yet";
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_HASH_STATE});
  ASSERT_TRUE(Set(byParameter, HP_HMAC_KEY, key.data()));
  ASSERT_TRUE(Add(byParameter, std::span(text).first(5)));
  HashHandle copy;
  ASSERT_TRUE(CryptDuplicateHash(byParameter.get(), nullptr, 0, copy.out()));
  for (const HashHandle* hash :
       {static_cast<const HashHandle*>(&byParameter), static_cast<const HashHandle*>(&copy)}) {
    ASSERT_TRUE(Add(*hash, std::span(text).subspan(5)));
    EXPECT_EQ(Value(*hash), ToHex(FromHex(kGost256)));
  }
  ASSERT_TRUE(Set(copy, HP_HASHSTARTVECT_RESET, nullptr));
  ASSERT_TRUE(Add(copy, text)) << "the key stays";
  EXPECT_EQ(Value(copy), ToHex(FromHex(kGost256)));
  const KeyHandle handle = Derive(provider, CALG_HMAC_KEY, key);
  const HashHandle byHandle = NewHash(provider, CALG_GR3411_2012_256_HMAC, handle.get());
  ASSERT_TRUE(Add(byHandle, text));
  EXPECT_EQ(Value(byHandle), ToHex(FromHex(kGost256)));
}

// RFC 4231, case 2; RFC 2202, case 2.
TEST(KeyedHash, HmacOfAnyHash) {
  const ProviderHandle provider = VerifyContext();
  const std::span<const BYTE> jefe = Bytes("Jefe");
  const KeyHandle key = Derive(provider, CALG_HMAC_KEY, ByteVector(jefe.begin(), jefe.end()));
  const struct {
    ALG_ID hash;
    const char* value;
  } rows[] = {
      {CALG_SHA_256, "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
      {CALG_SHA1,    "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"                        },
  };
  for (const auto& row : rows) {
    const HashHandle hash = NewHash(provider, CALG_HMAC, key.get());
    HMAC_INFO info{};
    info.HashAlgid = row.hash;
    ASSERT_TRUE(Set(hash, HP_HMAC_INFO, &info));
    ASSERT_TRUE(Add(hash, Bytes("what do ya want for nothing?")));
    EXPECT_EQ(Value(hash), ToHex(FromHex(row.value)));
    EXPECT_FALSE(Set(hash, HP_HMAC_INFO, &info)) << "too late";
  }
  HCRYPTHASH none = 0;
  EXPECT_FALSE(CryptCreateHash(provider.get(), CALG_HMAC, 0, 0, &none));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_KEY});
  EXPECT_FALSE(CryptCreateHash(provider.get(), CALG_SHA_256, key.get(), 0, &none));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_KEY});
}

// RFC 9337, appendix; RFC 7914, 11.
TEST(KeyedHash, KeysFromPasswords) {
  const ProviderHandle provider = VerifyContext();
  const struct {
    ALG_ID algorithm;
    const char* password;
    const char* salt;
    DWORD iterations;
    const char* value;
  } rows[] = {
      {CALG_GR3411_2012_512_PBKDF2, "password", "salt", 1,
       "64770AF7F748C3B1C9AC831DBCFD85C26111B30A8A657DDC3056B80CA73E040D"
       "2854FD36811F6D825CC4AB66EC0A68A490A9E5CF5156B3A2B7EECDDBF9A16B47"},
      {CALG_PBKDF2,                 "passwd",   "salt", 1,
       "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"
       "49ca9cccf179b645991664b39d77ef317c71b845b1e30bd509112041d3a19783"},
  };
  for (const auto& row : rows) {
    const HashHandle hash = NewHash(provider, row.algorithm);
    const ALG_ID base = CALG_SHA_256;
    EXPECT_EQ(Set(hash, HP_BASE_HASH, &base), row.algorithm == CALG_PBKDF2);
    BYTE room[64];
    DWORD size = sizeof(room);
    EXPECT_FALSE(CryptGetHashParam(hash.get(), HP_HASHVAL, room, &size, 0)) << "nothing told yet";
    const auto blob = [](const char* text) {
      return CRYPT_DATA_BLOB{static_cast<DWORD>(strlen(text)),
                             reinterpret_cast<BYTE*>(const_cast<char*>(text))};
    };
    const CRYPT_DATA_BLOB password = blob(row.password);
    const CRYPT_DATA_BLOB salt = blob(row.salt);
    ASSERT_TRUE(Set(hash, HP_PBKDF2_PASSWORD, &password));
    ASSERT_TRUE(Set(hash, HP_PBKDF2_COUNT, &row.iterations));
    EXPECT_FALSE(CryptGetHashParam(hash.get(), HP_HASHVAL, room, &size, 0));
    EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_DATA}) << "no salt";
    ASSERT_TRUE(Set(hash, HP_PBKDF2_SALT, &salt));
    EXPECT_EQ(Value(hash, 64), ToHex(FromHex(row.value)));
    EXPECT_EQ(Value(hash, 20), ToHex(FromHex(row.value)).substr(0, 40)) << "as long as the buffer";
    const DWORD none = 0;
    const DWORD endless = 5'000'001;
    EXPECT_FALSE(Set(hash, HP_PBKDF2_COUNT, &none));
    EXPECT_FALSE(Set(hash, HP_PBKDF2_COUNT, &endless));
    EXPECT_FALSE(Add(hash, Bytes("x")));
  }
}

TEST(KeyedHash, TheMessageItself) {
  const ProviderHandle provider = VerifyContext(PROV_EDDSA);
  const HashHandle hash = NewHash(provider, CALG_MESSAGE_ITSELF);
  ASSERT_TRUE(Add(hash, Bytes("ab")));
  HashHandle copy;
  ASSERT_TRUE(CryptDuplicateHash(hash.get(), nullptr, 0, copy.out()));
  ASSERT_TRUE(Add(hash, Bytes("c")));
  EXPECT_EQ(Value(hash), ToHex(Bytes("abc")));
  EXPECT_FALSE(Add(hash, Bytes("d"))) << "its value was read";
  EXPECT_EQ(Value(copy), ToHex(Bytes("ab")));
  EXPECT_FALSE(Set(copy, HP_HASHVAL, "x")) << "of no length that anybody knows";
}

}  // namespace
