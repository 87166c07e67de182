#include "key_families.h"

#include "failure.h"
#include "oid_names.h"

#include <certkern/keykern.h>
#include <certkern/oids.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <iterator>

namespace certkern::cli {
namespace {

constexpr char kEd448[] = "1.3.101.113";

// As the openssl program calls them; the first is what a key has when nobody says.
constexpr ParameterSet kGost2001Sets[] = {
    {"A",  szOID_GOST_R3410_2001_PARAM_SET_A   },
    {"B",  szOID_GOST_R3410_2001_PARAM_SET_B   },
    {"C",  szOID_GOST_R3410_2001_PARAM_SET_C   },
    {"XA", szOID_GOST_R3410_2001_PARAM_SET_XCHA},
    {"XB", szOID_GOST_R3410_2001_PARAM_SET_XCHB},
    {"0",  szOID_GOST_R3410_2001_PARAM_SET_TEST},
};
constexpr ParameterSet kGost256Sets[] = {
    {"TCA", szOID_GOST_R3410_2012_256_PARAM_SET_A},
    {"TCB", szOID_GOST_R3410_2012_256_PARAM_SET_B},
    {"TCC", szOID_GOST_R3410_2012_256_PARAM_SET_C},
    {"TCD", szOID_GOST_R3410_2012_256_PARAM_SET_D},
    {"A",   szOID_GOST_R3410_2001_PARAM_SET_A    },
    {"B",   szOID_GOST_R3410_2001_PARAM_SET_B    },
    {"C",   szOID_GOST_R3410_2001_PARAM_SET_C    },
    {"XA",  szOID_GOST_R3410_2001_PARAM_SET_XCHA },
    {"XB",  szOID_GOST_R3410_2001_PARAM_SET_XCHB },
    {"0",   szOID_GOST_R3410_2001_PARAM_SET_TEST },
};
constexpr ParameterSet kGost512Sets[] = {
    {"A", szOID_GOST_R3410_2012_512_PARAM_SET_A},
    {"B", szOID_GOST_R3410_2012_512_PARAM_SET_B},
    {"C", szOID_GOST_R3410_2012_512_PARAM_SET_C},
};
constexpr ParameterSet kCurves[] = {
    {"P-256",           "1.2.840.10045.3.1.7"  },
    {"P-384",           "1.3.132.0.34"         },
    {"P-521",           "1.3.132.0.35"         },
    {"P-224",           "1.3.132.0.33"         },
    {"secp256k1",       "1.3.132.0.10"         },
    {"brainpoolP256r1", "1.3.36.3.3.2.8.1.1.7" },
    {"brainpoolP384r1", "1.3.36.3.3.2.8.1.1.11"},
    {"brainpoolP512r1", "1.3.36.3.3.2.8.1.1.13"},
    {"prime256v1",      "1.2.840.10045.3.1.7"  },
    {"secp256r1",       "1.2.840.10045.3.1.7"  },
    {"secp384r1",       "1.3.132.0.34"         },
    {"secp521r1",       "1.3.132.0.35"         },
    {"secp224r1",       "1.3.132.0.33"         },
};

constexpr KeyFamily kFamilies[] = {
    {"gost2012-256", szOID_GOST_R3410_2012_256, CALG_GR3410_12_256, CALG_DH_GR3410_12_256_SF,
     PROV_GOST_2012_256,                                                                                          nullptr,       kGost256Sets},
    {"gost2012-512", szOID_GOST_R3410_2012_512, CALG_GR3410_12_512, CALG_DH_GR3410_12_512_SF,
     PROV_GOST_2012_512,                                                                                          nullptr,       kGost512Sets},
    {"gost2001",     szOID_GOST_R3410_2001,     CALG_GR3410EL,      CALG_DH_EL_SF,            PROV_GOST_2001_DH,  nullptr,
     kGost2001Sets                                                                                                                           },
    {"rsa",          szOID_RSA_RSA,             CALG_RSA_SIGN,      CALG_RSA_KEYX,            PROV_RSA_AES,       nullptr,       {}          },
    {"ecdsa",        szOID_ECC_PUBLIC_KEY,      CALG_ECDSA,         CALG_ECDH,                PROV_EC_ECDSA_FULL, nullptr,       kCurves     },
    {"ed25519",      szOID_ED25519,             CALG_EDDSA,         0,                        PROV_EDDSA,         szOID_ED25519, {}          },
    {"ed448",        kEd448,                    CALG_EDDSA,         0,                        PROV_EDDSA,         kEd448,        {}          },
};

template <typename Predicate>
const KeyFamily* Find(const Predicate& fits) {
  const auto* row = std::find_if(std::begin(kFamilies), std::end(kFamilies), fits);
  return row == std::end(kFamilies) ? nullptr : row;
}

bool SameLetters(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

}  // namespace

std::span<const KeyFamily> KeyFamilies() { return kFamilies; }

const KeyFamily* FindFamilyByName(std::string_view name) {
  return Find([name](const KeyFamily& row) { return SameLetters(name, row.name); });
}

const KeyFamily* FindFamilyByOid(std::string_view publicKeyOid) {
  return Find([publicKeyOid](const KeyFamily& row) { return publicKeyOid == row.oid; });
}

const KeyFamily* FindFamilyByAlgorithm(ALG_ID algorithm) {
  return Find([algorithm](const KeyFamily& row) {
    return algorithm && (row.signature == algorithm || row.exchange == algorithm);
  });
}

bool IsGost(const KeyFamily& family) { return std::string_view(family.name).starts_with("gost"); }

std::string ParameterSetOid(const KeyFamily& family, std::string_view name) {
  if (IsDottedOid(name)) return std::string(name);
  for (const ParameterSet& set : family.sets) {
    if (SameLetters(name, set.name)) return set.oid;
  }
  return {};
}

std::string ParameterSetNames(const KeyFamily& family) {
  std::string names;
  for (const ParameterSet& set : family.sets) {
    if (!names.empty()) names += ", ";
    names += set.name;
  }
  return names;
}

ALG_ID AlgorithmOfPurpose(const KeyFamily& family, std::string_view purpose) {
  if (purpose == "signature" || (purpose.empty() && !family.exchange)) return family.signature;
  if (!family.exchange)
    throw WrongUsage(fmt::format("--purpose: keys of {} are for signatures only", family.name));
  return family.exchange;
}

DWORD SpecOfPurpose(std::string_view purpose) {
  if (purpose == "exchange") return AT_KEYEXCHANGE;
  return purpose == "signature" ? AT_SIGNATURE : 0;
}

const char* PurposeOfSpec(DWORD spec) { return spec == AT_KEYEXCHANGE ? "exchange" : "signature"; }

}  // namespace certkern::cli
