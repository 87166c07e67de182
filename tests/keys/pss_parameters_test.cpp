// RSASSA-PSS parameters, as openssl writes them and as nobody should.
#include "keys/pss_parameters.h"

#include <certkern/errors.h>
#include <gtest/gtest.h>

#include "support/hex.h"

using namespace certkern;

namespace {

#define SHA1_ID "30 07 06 05 2b 0e 03 02 1a "
#define SHA256_ID "30 0d 06 09 60 86 48 01 65 03 04 02 01 05 00 "
#define SHA512_ID "30 0d 06 09 60 86 48 01 65 03 04 02 03 05 00 "
#define MGF1_OID "06 09 2a 86 48 86 f7 0d 01 01 08 "
#define MASK_SHA256 "a1 1c 30 1a " MGF1_OID SHA256_ID
#define MASK_SHA512 "a1 1c 30 1a " MGF1_OID SHA512_ID

struct GoodCase {
  const char* name;
  const char* encoded;
  ALG_ID hash;
  DWORD saltLength;
};
// The first six are from certificates that openssl made.
const GoodCase kGood[] = {
    {"sha1, salt 20",         "30 00",                                               CALG_SHA1,    20 },
    {"sha1, salt 0",          "30 05 a2 03 02 01 00",                                CALG_SHA1,    0  },
    {"sha1, salt 32",         "30 05 a2 03 02 01 20",                                CALG_SHA1,    32 },
    {"sha256, salt 20",       "30 2f a0 0f " SHA256_ID MASK_SHA256,                  CALG_SHA_256, 20 },
    {"sha256, salt 32",       "30 34 a0 0f " SHA256_ID MASK_SHA256 "a2 03 02 01 20", CALG_SHA_256, 32 },
    {"sha512, salt 0",        "30 34 a0 0f " SHA512_ID MASK_SHA512 "a2 03 02 01 00", CALG_SHA_512, 0  },
    {"none: the defaults",    "",                                                    CALG_SHA1,    20 },
    {"a stray octet",         "30 00 00",                                            CALG_SHA1,    20 },
    {"trailer spelled out",   "30 05 a3 03 02 01 01",                                CALG_SHA1,    20 },
    {"hash without NULL",     "30 0f a0 0d 30 0b 06 09 60 86 48 01 65 03 04 02 01",  CALG_SHA_256, 20 },
    {"mask without its hash", "30 20 a0 0f " SHA256_ID "a1 0d 30 0b " MGF1_OID,      CALG_SHA_256, 20 },
    {"salt of two octets",    "30 06 a2 04 02 02 00 80",                             CALG_SHA1,    128},
};

struct BadCase {
  const char* name;
  const char* encoded;
  DWORD code;
};
const BadCase kBad[] = {
    {"mask over another hash", "30 2f a0 0f " SHA256_ID MASK_SHA512,                          NTE_BAD_ALGID     },
    {"mask, hash not sha1",    "30 1e " MASK_SHA256,                                          NTE_BAD_ALGID     },
    {"another mask",           "30 0f a1 0d 30 0b 06 09 2a 86 48 86 f7 0d 01 01 09",          NTE_BAD_ALGID     },
    {"a hash nobody has",      "30 07 a0 05 30 03 06 01 2a",                                  NTE_BAD_ALGID     },
    {"a signature for a hash", "30 11 a0 0f 30 0d 06 09 2a 86 48 86 f7 0d 01 01 0b 05 00",    NTE_BAD_ALGID     },
    {"another trailer",        "30 05 a3 03 02 01 02",                                        NTE_BAD_ALGID     },
    {"NULL for parameters",    "05 00",                                                       CRYPT_E_ASN1_ERROR},
    {"bytes behind",           "30 00 01",                                                    CRYPT_E_ASN1_ERROR},
    {"negative salt",          "30 05 a2 03 02 01 ff",                                        CRYPT_E_ASN1_ERROR},
    {"salt of five octets",    "30 09 a2 07 02 05 00 00 00 00 14",                            CRYPT_E_ASN1_ERROR},
    {"salt is no integer",     "30 05 a2 03 04 01 14",                                        CRYPT_E_ASN1_ERROR},
    {"empty tag",              "30 02 a2 00",                                                 CRYPT_E_ASN1_ERROR},
    {"two in one tag",         "30 08 a2 06 02 01 14 02 01 14",                               CRYPT_E_ASN1_ERROR},
    {"wrong order",            "30 0a a3 03 02 01 01 a2 03 02 01 14",                         CRYPT_E_ASN1_ERROR},
    {"unknown field",          "30 05 a4 03 02 01 01",                                        CRYPT_E_ASN1_ERROR},
    {"mask parameters of two", "30 21 a1 1f 30 1d " MGF1_OID SHA1_ID SHA1_ID,                 CRYPT_E_ASN1_ERROR},
    {"hash with parameters",   "30 12 a0 10 30 0e 06 09 60 86 48 01 65 03 04 02 01 02 01 00",
     CRYPT_E_ASN1_ERROR                                                                                         },
    {"hash with a full NULL",  "30 12 a0 10 30 0e 06 09 60 86 48 01 65 03 04 02 01 05 01 00",
     CRYPT_E_ASN1_ERROR                                                                                         },
};

TEST(PssParameters, Good) {
  for (const auto& [name, encoded, hash, saltLength] : kGood) {
    SCOPED_TRACE(name);
    PssParameters pss{0x77, 77};
    EXPECT_TRUE(ParsePssParams(FromHex(encoded), pss)) << GetLastError();
    EXPECT_EQ(pss.hash, hash);
    EXPECT_EQ(pss.saltLength, saltLength);
  }
}

TEST(PssParameters, Bad) {
  for (const auto& [name, encoded, code] : kBad) {
    SCOPED_TRACE(name);
    PssParameters pss{0x77, 77};
    SetLastError(0);
    EXPECT_FALSE(ParsePssParams(FromHex(encoded), pss));
    EXPECT_EQ(GetLastError(), code);
    EXPECT_EQ(pss.hash, 0x77u) << "touched";
  }
}

TEST(PssParameters, CutAnywhere) {
  const std::vector<BYTE> whole = FromHex(kGood[4].encoded);
  for (size_t size = 1; size < whole.size(); ++size) {
    PssParameters pss;
    const std::vector<BYTE> cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
    EXPECT_FALSE(ParsePssParams(cut, pss)) << size;
    EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_ASN1_ERROR}) << size;
  }
}

}  // namespace
