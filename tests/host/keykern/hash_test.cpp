// Hash objects, judged by published values.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/owner.h"
#include "support/hex.h"

namespace {

using ProviderHandle = certkern::Owner<HCRYPTPROV, CryptReleaseContext>;
using HashHandle = certkern::Owner<HCRYPTHASH, CryptDestroyHash>;

std::span<const BYTE> Bytes(std::string_view text) {
  return {reinterpret_cast<const BYTE*>(text.data()), text.size()};
}

ProviderHandle AcquireProvider(DWORD type = PROV_GOST_2012_256) {
  ProviderHandle provider;
  EXPECT_TRUE(CryptAcquireContextA(provider.out(), nullptr, nullptr, type, CRYPT_VERIFYCONTEXT));
  return provider;
}

HashHandle CreateHash(const ProviderHandle& provider, ALG_ID algorithm) {
  HashHandle hash;
  EXPECT_TRUE(CryptCreateHash(provider.get(), algorithm, 0, 0, hash.out())) << algorithm;
  return hash;
}

bool Add(const HashHandle& hash, std::span<const BYTE> data) {
  return CryptHashData(hash.get(), data.data(), static_cast<DWORD>(data.size()), 0);
}

std::string Value(const HashHandle& hash) {
  DWORD size = 0;
  EXPECT_TRUE(CryptGetHashParam(hash.get(), HP_HASHVAL, nullptr, &size, 0));
  std::vector<BYTE> value(size);
  EXPECT_TRUE(CryptGetHashParam(hash.get(), HP_HASHVAL, value.data(), &size, 0));
  return ToHex(value);
}

std::string HashOf(const ProviderHandle& provider, ALG_ID algorithm, std::span<const BYTE> data) {
  const HashHandle hash = CreateHash(provider, algorithm);
  EXPECT_TRUE(Add(hash, data));
  return Value(hash);
}

// "abc": RFC 1320, RFC 1321, FIPS 180-4.
const struct {
  const char* name;
  ALG_ID algorithm;
  const char* digest;
} kAbc[] = {
    {"MD4",     CALG_MD4,     "A448017AAF21D8525FC10AE87AA6729D"                                       },
    {"MD5",     CALG_MD5,     "900150983CD24FB0D6963F7D28E17F72"                                       },
    {"SHA-1",   CALG_SHA1,    "A9993E364706816ABA3E25717850C26C9CD0D89D"                               },
    {"SHA-256", CALG_SHA_256, "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD"       },
    {"SHA-384", CALG_SHA_384,
     "CB00753F45A35E8BB5A03D699AC65007272C32AB0EDED1631A8B605A43FF5BED8086072BA1E7CC2358BAECA134C825A7"},
    {"SHA-512", CALG_SHA_512,
     "DDAF35A193617ABACC417349AE20413112E6FA4E89A97EA20A9EEEE64B55D39A2192992A274FC1A836BA3C23A3FEEBBD"
     "454D4423643CE80E2A9AC94FA54CA49F"                                                                },
};

TEST(Hash, PublishedValues) {
  const ProviderHandle provider = AcquireProvider();
  for (const auto& [name, algorithm, digest] : kAbc) {
    EXPECT_EQ(HashOf(provider, algorithm, Bytes("abc")), digest) << name;
  }
  EXPECT_EQ(HashOf(provider, CALG_SHA1, {}), "DA39A3EE5E6B4B0D3255BFEF95601890AFD80709") << "of nothing";
}

// The fields of each vector of a file, which has one field a line, always in the same order.
using Vector = std::vector<std::string>;
std::vector<Vector> ReadVectors(const char* file, std::initializer_list<const char*> fields) {
  std::ifstream in(std::string(CERTKERN_SOURCE_DIR "/tests/host/keykern/data/") + file);
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  std::vector<Vector> vectors;
  for (size_t at = 0;;) {
    Vector vector;
    for (const char* field : fields) {
      const std::string key = '"' + std::string(field) + "\": ";
      at = text.find(key, at);
      if (at == text.npos) return vectors;
      at += key.size();
      const size_t first = at + (text[at] == '"');
      vector.push_back(text.substr(first, text.find_first_of("\",\n", first) - first));
    }
    vectors.push_back(vector);
  }
}

TEST(Hash, StreebogVectors) {
  const auto vectors = ReadVectors("rfc6986_hash.json", {"bits", "message_hex", "digest"});
  ASSERT_EQ(vectors.size(), 4u);
  const ProviderHandle provider = AcquireProvider();
  for (const Vector& fields : vectors) {
    const ALG_ID algorithm = fields[0] == "256" ? CALG_GR3411_2012_256 : CALG_GR3411_2012_512;
    EXPECT_EQ(HashOf(provider, algorithm, FromHex(fields[1])), ToHex(FromHex(fields[2])));
  }
}

TEST(Hash, Gost94VectorsOfBothSets) {
  const auto vectors = ReadVectors("gost341194_hash.json", {"sbox", "message_hex", "digest"});
  ASSERT_EQ(vectors.size(), 17u);
  const ProviderHandle provider = AcquireProvider(PROV_GOST_2001_DH);
  for (const Vector& fields : vectors) {
    const HashHandle hash = CreateHash(provider, CALG_GR3411);
    if (fields[0] == "id-GostR3411-94-TestParamSet") {
      ASSERT_TRUE(CryptSetHashParam(hash.get(), HP_OID, Bytes("1.2.643.2.2.30.0").data(), 0));
    }
    ASSERT_TRUE(Add(hash, FromHex(fields[1])));
    EXPECT_EQ(Value(hash), ToHex(FromHex(fields[2]))) << fields[0] << ' ' << fields[1];
  }
}

TEST(Hash, ParameterSet) {
  const ProviderHandle provider = AcquireProvider();
  const HashHandle hash = CreateHash(provider, CALG_GR3411);
  char oid[32];
  DWORD size = sizeof(oid);
  ASSERT_TRUE(CryptGetHashParam(hash.get(), HP_OID, reinterpret_cast<BYTE*>(oid), &size, 0));
  EXPECT_STREQ(oid, "1.2.643.2.2.30.1");
  EXPECT_EQ(size, sizeof("1.2.643.2.2.30.1"));
  EXPECT_FALSE(CryptSetHashParam(hash.get(), HP_OID, Bytes("1.2.643.2.2.30.9").data(), 0));
  EXPECT_EQ(GetLastError(), NTE_BAD_DATA);
  ASSERT_TRUE(CryptSetHashParam(hash.get(), HP_OID, Bytes("1.2.643.2.2.30.0").data(), 0));
  ASSERT_TRUE(Add(hash, Bytes("a")));
  EXPECT_FALSE(CryptSetHashParam(hash.get(), HP_OID, Bytes("1.2.643.2.2.30.1").data(), 0)) << "too late";
  EXPECT_EQ(GetLastError(), NTE_BAD_HASH_STATE);
  // a reset keeps the set: "message digest" under it
  ASSERT_TRUE(CryptSetHashParam(hash.get(), HP_HASHSTARTVECT_RESET, nullptr, 0));
  ASSERT_TRUE(Add(hash, Bytes("message digest")));
  EXPECT_EQ(Value(hash), "AD4434ECB18F2C99B60CBE59EC3D2469582B65273F48DE72DB2FDE16A4889A4D");

  const HashHandle other = CreateHash(provider, CALG_SHA1);
  EXPECT_FALSE(CryptSetHashParam(other.get(), HP_OID, Bytes("1.2.643.2.2.30.1").data(), 0));
  EXPECT_EQ(GetLastError(), NTE_BAD_TYPE);
}

// A hash of each library: both ends behave alike.
class HashOfEachLibrary : public testing::TestWithParam<ALG_ID> {
 protected:
  const ProviderHandle provider_ = AcquireProvider();
  const std::string abc_ = HashOf(provider_, GetParam(), Bytes("abc"));
};
INSTANTIATE_TEST_SUITE_P(Libraries, HashOfEachLibrary,
                         testing::Values(CALG_SHA_256, CALG_GR3411_2012_256, CALG_GR3411));

TEST_P(HashOfEachLibrary, DuplicateGoesOnFromTheMiddle) {
  const HashHandle hash = CreateHash(provider_, GetParam());
  ASSERT_TRUE(Add(hash, Bytes("ab")));
  HashHandle copy;
  ASSERT_TRUE(CryptDuplicateHash(hash.get(), nullptr, 0, copy.out()));
  ASSERT_TRUE(Add(hash, Bytes("X")));
  ASSERT_TRUE(Add(copy, Bytes("c")));
  EXPECT_EQ(Value(copy), abc_);
  EXPECT_EQ(Value(hash), HashOf(provider_, GetParam(), Bytes("abX")));

  HashHandle ended;
  ASSERT_TRUE(CryptDuplicateHash(copy.get(), nullptr, 0, ended.out()));
  EXPECT_EQ(Value(ended), abc_);
  EXPECT_FALSE(Add(ended, Bytes("d")));
}

TEST_P(HashOfEachLibrary, ReadingTheValueEndsIt) {
  const HashHandle hash = CreateHash(provider_, GetParam());
  ASSERT_TRUE(Add(hash, Bytes("ab")));
  DWORD size = 0;
  ASSERT_TRUE(CryptGetHashParam(hash.get(), HP_HASHVAL, nullptr, &size, 0));
  EXPECT_EQ(size, abc_.size() / 2);
  std::vector<BYTE> small(size - 1);
  size = static_cast<DWORD>(small.size());
  EXPECT_FALSE(CryptGetHashParam(hash.get(), HP_HASHVAL, small.data(), &size, 0));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, abc_.size() / 2);
  ASSERT_TRUE(Add(hash, Bytes("c"))) << "neither question ended it";
  EXPECT_EQ(Value(hash), abc_);
  EXPECT_FALSE(Add(hash, Bytes("d")));
  EXPECT_EQ(GetLastError(), NTE_BAD_HASH_STATE);
  EXPECT_EQ(Value(hash), abc_) << "may be read again";
  ASSERT_TRUE(CryptSetHashParam(hash.get(), HP_HASHSTARTVECT_RESET, nullptr, 0));
  ASSERT_TRUE(Add(hash, Bytes("abc")));
  EXPECT_EQ(Value(hash), abc_);
}

TEST_P(HashOfEachLibrary, ASetValueEndsIt) {
  const HashHandle hash = CreateHash(provider_, GetParam());
  const std::vector<BYTE> value = FromHex(abc_);
  ASSERT_TRUE(CryptSetHashParam(hash.get(), HP_HASHVAL, value.data(), 0));
  EXPECT_FALSE(Add(hash, Bytes("d")));
  EXPECT_EQ(GetLastError(), NTE_BAD_HASH_STATE);
  EXPECT_FALSE(CryptSetHashParam(hash.get(), HP_HASHVAL, value.data(), 0));
  EXPECT_EQ(GetLastError(), NTE_BAD_HASH_STATE);
  HashHandle copy;
  ASSERT_TRUE(CryptDuplicateHash(hash.get(), nullptr, 0, copy.out()));
  EXPECT_EQ(Value(copy), abc_);
  EXPECT_EQ(Value(hash), abc_);
}

TEST(Hash, Properties) {
  const ProviderHandle provider = AcquireProvider();
  const HashHandle hash = CreateHash(provider, CALG_SHA_384);
  DWORD word = 0;
  DWORD size = sizeof(word);
  ASSERT_TRUE(CryptGetHashParam(hash.get(), HP_ALGID, reinterpret_cast<BYTE*>(&word), &size, 0));
  EXPECT_EQ(word, CALG_SHA_384);
  ASSERT_TRUE(CryptGetHashParam(hash.get(), HP_HASHSIZE, reinterpret_cast<BYTE*>(&word), &size, 0));
  EXPECT_EQ(word, 48u);
  EXPECT_FALSE(CryptGetHashParam(hash.get(), 999, nullptr, &size, 0));
  EXPECT_EQ(GetLastError(), NTE_BAD_TYPE);
  EXPECT_FALSE(CryptGetHashParam(hash.get(), HP_HASHVAL, nullptr, nullptr, 0));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(Hash, RefusedArguments) {
  const ProviderHandle provider = AcquireProvider();
  HCRYPTHASH made = 0;
  const struct {
    const char* name;
    HCRYPTPROV provider;
    ALG_ID algorithm;
    HCRYPTKEY key;
    DWORD flags;
    DWORD code;
  } kCases[] = {
      {"MD2, which nobody has", provider.get(), CALG_MD2,     0, 0, NTE_BAD_ALGID       },
      {"a cipher",              provider.get(), CALG_AES_128, 0, 0, NTE_BAD_ALGID       },
      {"a key",                 provider.get(), CALG_SHA1,    1, 0, NTE_BAD_KEY         },
      {"flags",                 provider.get(), CALG_SHA1,    0, 1, NTE_BAD_FLAGS       },
      {"no provider",           0,              CALG_SHA1,    0, 0, ERROR_INVALID_HANDLE},
  };
  for (const auto& [name, from, algorithm, key, flags, code] : kCases) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(CryptCreateHash(from, algorithm, key, flags, &made));
    EXPECT_EQ(GetLastError(), code);
    EXPECT_EQ(made, 0u);
  }
  EXPECT_FALSE(CryptCreateHash(provider.get(), CALG_SHA1, 0, 0, nullptr));
  const HashHandle hash = CreateHash(provider, CALG_SHA1);
  EXPECT_FALSE(CryptHashData(hash.get(), nullptr, 1, 0));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_TRUE(CryptHashData(hash.get(), nullptr, 0, 0));
}

TEST(Handles, WrongOnesAreRefused) {
  ProviderHandle provider = AcquireProvider();
  HashHandle hash = CreateHash(provider, CALG_SHA1);
  const HCRYPTHASH freed = hash.get();
  hash.reset();
  const HashHandle next = CreateHash(provider, CALG_SHA1);  // most likely in the same place
  int local = 0;
  for (const ULONG_PTR wrong : {ULONG_PTR{0}, ~ULONG_PTR{0}, freed, ULONG_PTR{provider.get()}, next.get() ^ 1,
                                next.get() + 0x400, reinterpret_cast<ULONG_PTR>(&local)}) {
    SCOPED_TRACE(wrong);
    SetLastError(0);
    EXPECT_FALSE(CryptHashData(wrong, Bytes("a").data(), 1, 0));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    DWORD size = 0;
    EXPECT_FALSE(CryptGetHashParam(wrong, HP_HASHVAL, nullptr, &size, 0));
    HCRYPTHASH copy = 0;
    EXPECT_FALSE(CryptDuplicateHash(wrong, nullptr, 0, &copy));
    EXPECT_FALSE(CryptDestroyHash(wrong));
  }
  EXPECT_FALSE(CryptReleaseContext(next.get(), 0)) << "of another kind";
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  EXPECT_TRUE(Add(next, Bytes("abc")));
}

// A handle tells its kind, and one whose kind was changed must not be counted on the object that is really there.
TEST(Handles, AMadeUpKindIsRefused) {
  const ProviderHandle provider = AcquireProvider();
  HashHandle hash = CreateHash(provider, CALG_SHA1);
  const HCRYPTHASH given = hash.get();
  for (unsigned bits = 1; bits < 16; ++bits) {
    SetLastError(0);
    EXPECT_FALSE(CryptContextAddRef(given ^ (ULONG_PTR{bits} << 28), nullptr, 0));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  }
  hash.reset();
  EXPECT_FALSE(CryptDestroyHash(given)) << "still open";
}

TEST(Handles, ProvidersAreCountedAndHashesOutliveThem) {
  ProviderHandle owner = AcquireProvider();
  const HCRYPTPROV provider = owner.get();
  const HashHandle hash = CreateHash(owner, CALG_SHA1);
  ASSERT_TRUE(CryptContextAddRef(provider, nullptr, 0));
  owner.reset();
  BYTE random[4];
  EXPECT_TRUE(CryptGenRandom(provider, sizeof(random), random)) << "one count is left";
  EXPECT_TRUE(CryptReleaseContext(provider, 0));
  EXPECT_FALSE(CryptReleaseContext(provider, 0)) << "the hash's hold is not the caller's to give back";
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  EXPECT_FALSE(CryptContextAddRef(provider, nullptr, 0));
  ASSERT_TRUE(Add(hash, Bytes("abc")));
  EXPECT_EQ(Value(hash), kAbc[2].digest);
}

TEST(Handles, GrowBeyondOneChunk) {
  const ProviderHandle provider = AcquireProvider();
  std::vector<HashHandle> hashes;
  for (int i = 0; i < 3000; ++i) hashes.push_back(CreateHash(provider, CALG_MD5));
  for (const HashHandle& hash : hashes) ASSERT_TRUE(Add(hash, Bytes("abc")));
  EXPECT_EQ(Value(hashes.back()), kAbc[1].digest);
}

constexpr int kThreads = 8;

template <class Body>
void InThreads(const Body& body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(body, i);
  for (std::thread& thread : threads) thread.join();
}

TEST(HashConcurrent, ManyThreadsOneProvider) {
  const ProviderHandle provider = AcquireProvider();
  InThreads([&](int thread) {
    for (int i = 0; i < 300; ++i) {
      const auto& [name, algorithm, digest] = kAbc[static_cast<size_t>(i + thread) % std::size(kAbc)];
      const HashHandle hash = CreateHash(provider, algorithm);
      EXPECT_TRUE(Add(hash, Bytes("a")));
      HashHandle copy;
      EXPECT_TRUE(CryptDuplicateHash(hash.get(), nullptr, 0, copy.out()));
      EXPECT_TRUE(Add(copy, Bytes("bc")));
      EXPECT_EQ(Value(copy), digest) << name;
      EXPECT_TRUE(CryptContextAddRef(provider.get(), nullptr, 0));
      EXPECT_TRUE(CryptReleaseContext(provider.get(), 0));
    }
  });
}

// Threads use, free and free again what they share: each freed handle is given back once, and nothing crashes.
TEST(HashConcurrent, UseAfterFreeIsAnError) {
  const ProviderHandle provider = AcquireProvider();
  for (int round = 0; round < 200; ++round) {
    const HCRYPTHASH shared = CreateHash(provider, CALG_GR3411_2012_256).release();
    std::atomic<int> freed{0};
    InThreads([&](int thread) {
      for (int i = 0; i < 10; ++i) {
        if (!CryptHashData(shared, Bytes("abc").data(), 3, 0)) {
          EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
        }
        if (i == thread && CryptDestroyHash(shared)) ++freed;
      }
    });
    ASSERT_EQ(freed, 1);
  }
}

}  // namespace
