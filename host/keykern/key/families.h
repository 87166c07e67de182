// The families of asymmetric keys, and the algorithm identifiers that name them.
#ifndef CERTKERN_KEYKERN_KEY_FAMILIES_H
#define CERTKERN_KEYKERN_KEY_FAMILIES_H

#include <certkern/keykern.h>

#include <algorithm>
#include <iterator>

namespace keykern {

enum class Family : BYTE { Gost2012_256, Gost2012_512, Gost2001, Rsa, Ec, EdDsa, Dsa };

struct FamilyRow {
  Family family;
  ALG_ID signature;
  ALG_ID exchange;   // 0: the family has none
  ALG_ID ephemeral;  // 0: the family has none
  DWORD providerType;
};

inline constexpr FamilyRow kFamilies[] = {
    {Family::Gost2012_256, CALG_GR3410_12_256, CALG_DH_GR3410_12_256_SF, CALG_DH_GR3410_12_256_EPHEM,
     PROV_GOST_2012_256                                                                                                 },
    {Family::Gost2012_512, CALG_GR3410_12_512, CALG_DH_GR3410_12_512_SF, CALG_DH_GR3410_12_512_EPHEM,
     PROV_GOST_2012_512                                                                                                 },
    {Family::Gost2001,     CALG_GR3410EL,      CALG_DH_EL_SF,            CALG_DH_EL_EPHEM,            PROV_GOST_2001_DH },
    {Family::Rsa,          CALG_RSA_SIGN,      CALG_RSA_KEYX,            0,                           PROV_RSA_AES      },
    {Family::Ec,           CALG_ECDSA,         CALG_ECDH,                CALG_ECDH_EPHEM,             PROV_EC_ECDSA_FULL},
    {Family::EdDsa,        CALG_EDDSA,         0,                        0,                           PROV_EDDSA        },
    {Family::Dsa,          CALG_DSS_SIGN,      0,                        0,                           0                 },
};

// By any of the three identifiers; null when there is none.
constexpr const FamilyRow* FindFamily(ALG_ID id) {
  const auto* row =
      std::find_if(std::begin(kFamilies), std::end(kFamilies), [id](const FamilyRow& candidate) {
        return id && (candidate.signature == id || candidate.exchange == id || candidate.ephemeral == id);
      });
  return row == std::end(kFamilies) ? nullptr : row;
}

constexpr const FamilyRow& RowOf(Family family) {
  return *std::find_if(std::begin(kFamilies), std::end(kFamilies),
                       [family](const FamilyRow& candidate) { return candidate.family == family; });
}

constexpr bool IsGost(Family family) {
  return family == Family::Gost2001 || family == Family::Gost2012_256 || family == Family::Gost2012_512;
}

}  // namespace keykern

#endif
