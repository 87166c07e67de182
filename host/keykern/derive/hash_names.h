// What the libraries below call the hashes of the key level.
#ifndef CERTKERN_KEYKERN_DERIVE_HASH_NAMES_H
#define CERTKERN_KEYKERN_DERIVE_HASH_NAMES_H

#include <certkern/keykern.h>

#include <gcrypt.h>

#include <algorithm>
#include <iterator>

namespace keykern {

struct HashNames {
  ALG_ID hash;
  const char* libcrypto;  // null where libgcrypt does it
  int libgcrypt;
};

inline constexpr HashNames kHashNames[] = {
    {CALG_GR3411_2012_256, nullptr,  GCRY_MD_STRIBOG256  },
    {CALG_GR3411_2012_512, nullptr,  GCRY_MD_STRIBOG512  },
    {CALG_GR3411,          nullptr,  GCRY_MD_GOSTR3411_CP},
    {CALG_MD4,             nullptr,  GCRY_MD_MD4         },
    {CALG_MD5,             "MD5",    0                   },
    {CALG_SHA1,            "SHA1",   0                   },
    {CALG_SHA_256,         "SHA256", 0                   },
    {CALG_SHA_384,         "SHA384", 0                   },
    {CALG_SHA_512,         "SHA512", 0                   },
};

// Null when there is none.
inline const HashNames* FindHashNames(ALG_ID hash) {
  const auto* found = std::find_if(std::begin(kHashNames), std::end(kHashNames),
                                   [&](const HashNames& names) { return names.hash == hash; });
  return found == std::end(kHashNames) ? nullptr : found;
}

}  // namespace keykern

#endif
