// Hash functions by the names that users give.
#ifndef CERTKERN_CLI_HASHES_H
#define CERTKERN_CLI_HASHES_H

#include <certkern/keykern.h>
#include <certkern/oids.h>

#include <string>
#include <string_view>
#include <vector>

namespace certkern::cli {

struct HashRow {
  std::string_view name;
  const char* oid;
  ALG_ID algorithm;
  int size;  // bytes of the value
};
constexpr HashRow kHashes[] = {
    {"gost2012-256", szOID_GOST_R3411_2012_256, CALG_GR3411_2012_256, 32},
    {"gost2012-512", szOID_GOST_R3411_2012_512, CALG_GR3411_2012_512, 64},
    {"gost94",       szOID_GOST_R3411_94,       CALG_GR3411,          32},
    {"sha1",         szOID_OIWSEC_sha1,         CALG_SHA1,            20},
    {"sha256",       szOID_NIST_sha256,         CALG_SHA_256,         32},
    {"sha384",       szOID_NIST_sha384,         CALG_SHA_384,         48},
    {"sha512",       szOID_NIST_sha512,         CALG_SHA_512,         64},
    {"md5",          szOID_RSA_MD5,             CALG_MD5,             16},
    {"md4",          szOID_RSA_MD4,             CALG_MD4,             16},
};

inline std::vector<std::string> HashNames() {
  std::vector<std::string> names;
  for (const HashRow& row : kHashes) names.emplace_back(row.name);
  return names;
}

// The name comes from HashNames(), as the parser of the options has seen to.
inline const HashRow& HashByName(std::string_view name) {
  for (const HashRow& row : kHashes) {
    if (row.name == name) return row;
  }
  return kHashes[0];
}

}  // namespace certkern::cli

#endif
