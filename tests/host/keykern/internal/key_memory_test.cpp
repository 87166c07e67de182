// Keys while libcrypto runs out of memory: a failed allocation is never taken for a wrong signature or a wrong key.
#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/err.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "host/keykern/internal/key_openssl.h"
#include "keykern/crypto_library.h"
#include "keykern/key/key_codec.h"

namespace {

using namespace keykern;  // NOLINT(google-build-using-namespace): the names under test

enum class Shortage { Never, Once, FromThenOn };

// Which of libcrypto's allocations on this thread fail.
struct Plan {
  Shortage shortage = Shortage::Never;
  size_t at = 0;  // counted from 0
  size_t asked = 0;

  bool fails() {
    const size_t number = asked++;
    return shortage == Shortage::Once ? number == at : shortage == Shortage::FromThenOn && number >= at;
  }
};
thread_local Plan plan;

void* Allocate(size_t size, const char*, int) { return plan.fails() ? nullptr : std::malloc(size); }
void* Reallocate(void* memory, size_t size, const char*, int) {
  return plan.fails() ? nullptr : std::realloc(memory, size);
}
void Free(void* memory, const char*, int) { std::free(memory); }

const bool planned = CRYPTO_set_mem_functions(Allocate, Reallocate, Free) == 1;

DWORD Run(const std::function<DWORD()>& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return NTE_NO_MEMORY;
  }
}

// Lets each allocation of body fail, alone and with all that follow. Every outcome is `code`, or says that nothing was found out.
void FailEach(DWORD code, const std::function<DWORD()>& body) {
  ASSERT_TRUE(planned);
  ASSERT_EQ(Run(body), code);
  for (const Shortage shortage : {Shortage::Once, Shortage::FromThenOn}) {
    for (size_t at = 0;; ++at) {
      ERR_clear_error();
      plan = {shortage, at};
      const DWORD outcome = Run(body);
      const bool reached = plan.asked > at;
      plan = {};
      EXPECT_TRUE(outcome == NTE_NO_MEMORY || outcome == NTE_FAIL || outcome == code)
          << std::hex << outcome << (shortage == Shortage::Once ? " once" : " on") << " at " << std::dec
          << at;
      if (!reached) break;
      ASSERT_LT(at, 10'000u);
    }
  }
}

struct MemoryCase {
  const char* name;
  const char* genpkey;
  const char* options;  // of openssl pkeyutl
  ALG_ID hash;
  size_t size;  // of the hash value, or of a message
  bool pss;
};
const MemoryCase kCases[] = {
    {"RSA",             "RSA -pkeyopt rsa_keygen_bits:1024",                                    "-pkeyopt digest:sha256", CALG_SHA_256,        32, false},
    {"RSA, PSS",        "RSA -pkeyopt rsa_keygen_bits:1025",
     "-pkeyopt digest:sha256 -pkeyopt rsa_padding_mode:pss -pkeyopt rsa_pss_saltlen:32",                                  CALG_SHA_256,        32,
     true                                                                                                                                               },
    {"P-256",           "EC -pkeyopt ec_paramgen_curve:P-256",                                  "-pkeyopt digest:sha256", CALG_SHA_256,        32, false},
    {"brainpoolP384r1", "EC -pkeyopt ec_paramgen_curve:brainpoolP384r1",                        "-pkeyopt digest:sha384",
     CALG_SHA_384,                                                                                                                             48, false},
    {"Ed25519",         "ED25519",                                                              "-rawin",                 CALG_MESSAGE_ITSELF, 32, false},
    {"Ed448",           "ED448",                                                                "-rawin",                 CALG_MESSAGE_ITSELF, 32, false},
    {"DSA",             "DSA -pkeyopt dsa_paramgen_bits:1024 -pkeyopt dsa_paramgen_q_bits:160", "-pkeyopt digest:sha1",
     CALG_SHA1,                                                                                                                                20, false},
};

void NewKey(const OpensslBench& bench, const std::string& genpkey) {
  if (!genpkey.starts_with("DSA")) return bench.newKey(genpkey);
  bench.run("genpkey -genparam -out parameters.pem -algorithm " + genpkey);
  bench.run("genpkey -paramfile parameters.pem -outform DER -out key.der");
}

TEST(KeysWithoutMemory, VerifyOrSayWhy) {
  const OpensslBench bench;
  for (const MemoryCase& row : kCases) {
    SCOPED_TRACE(row.name);
    NewKey(bench, row.genpkey);
    bench.run("pkey -inform DER -in key.der -pubout -outform DER -out public.der");
    std::vector<BYTE> value(row.size, 0x35);
    bench.write("value", value);
    bench.run(std::string("pkeyutl -sign -keyform DER -inkey key.der -in value -out signature ")
              + row.options);
    const std::vector<BYTE> standard = bench.read("signature"), info = bench.read("public.der");
    const std::vector<BYTE> signature(standard.rbegin(), standard.rend());
    const auto verify = [&] {
      PublicKeyPtr key;
      if (const DWORD code = ParsePublicKeyInfo(info, key)) return code;
      return key->verify({row.hash, value, row.pss, row.pss ? 32u : 0u}, signature);
    };
    FailEach(ERROR_SUCCESS, verify);
    value[0] ^= 1;
    FailEach(NTE_BAD_SIGNATURE, verify);
  }
}

TEST(KeysWithoutMemory, SignOrSayWhy) {
  const OpensslBench bench;
  for (const MemoryCase& row : kCases) {
    if (std::string_view(row.name) == "DSA") continue;  // signs nothing here
    SCOPED_TRACE(row.name);
    bench.newKey(row.genpkey);
    const std::vector<BYTE> value(row.size, 0x35), info = bench.read("key.der");
    FailEach(ERROR_SUCCESS, [&] {
      PrivateKeyPtr key;
      if (const DWORD code = ParsePrivateKeyInfo(info, key)) return code;
      SecretBytes signature;
      return key->sign({row.hash, value, row.pss, row.pss ? 32u : 0u}, signature);
    });
  }
}

// A point beside the curve is a wrong key at every allocation, too.
TEST(KeysWithoutMemory, AWrongPointStaysWrong) {
  const OpensslBench bench;
  bench.newKey("EC -pkeyopt ec_paramgen_curve:P-256");
  bench.run("pkey -inform DER -in key.der -pubout -outform DER -out public.der");
  std::vector<BYTE> info = bench.read("public.der");
  info.back() ^= 1;
  FailEach(NTE_BAD_PUBLIC_KEY, [&] {
    PublicKeyPtr key;
    return ParsePublicKeyInfo(info, key);
  });
}

}  // namespace
