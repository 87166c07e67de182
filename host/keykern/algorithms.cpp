#include "keykern/algorithms.h"

#include <algorithm>
#include <array>

namespace keykern {
namespace {

constexpr Algorithm Hash(ALG_ID id, DWORD providerType, DWORD bits, std::string_view name,
                         std::string_view longName, DigestMaker newDigest) {
  return {id, providerType, bits, bits, bits, name, longName, newDigest};
}

constexpr Algorithm kAlgorithms[] = {
    Hash(CALG_GR3411_2012_256, PROV_GOST_2012_256, 256, "GR 34.11-2012 256", "GOST R 34.11-2012, 256 bits",
         NewStreebog256),
    Hash(CALG_GR3411_2012_512, PROV_GOST_2012_512, 512, "GR 34.11-2012 512", "GOST R 34.11-2012, 512 bits",
         NewStreebog512),
    Hash(CALG_GR3411, PROV_GOST_2001_DH, 256, "GR 34.11-94", "GOST R 34.11-94", NewGost94),
    Hash(CALG_SHA_256, PROV_RSA_AES, 256, "SHA-256", "Secure Hash Algorithm, 256 bits", NewSha256),
    Hash(CALG_SHA_384, PROV_RSA_AES, 384, "SHA-384", "Secure Hash Algorithm, 384 bits", NewSha384),
    Hash(CALG_SHA_512, PROV_RSA_AES, 512, "SHA-512", "Secure Hash Algorithm, 512 bits", NewSha512),
    Hash(CALG_SHA1, PROV_RSA_FULL, 160, "SHA-1", "Secure Hash Algorithm", NewSha1),
    Hash(CALG_MD5, PROV_RSA_FULL, 128, "MD5", "Message Digest 5", NewMd5),
    Hash(CALG_MD4, PROV_RSA_FULL, 128, "MD4", "Message Digest 4", NewMd4),
};
static_assert(std::all_of(std::begin(kAlgorithms), std::end(kAlgorithms),
                          [](const Algorithm& row) {
                            return row.name.size() < sizeof(PROV_ENUMALGS::szName)
                                && row.longName.size() < sizeof(PROV_ENUMALGS_EX::szLongName);
                          }),
              "the records of an enumeration hold the names with a NUL");

// By row. Asked of the libraries once: the answer is the host's, and making a digest to find out is not free.
using Availability = std::array<bool, std::size(kAlgorithms)>;
Availability FindAvailable() {
  Availability available{};
  std::transform(std::begin(kAlgorithms), std::end(kAlgorithms), available.begin(),
                 [](const Algorithm& row) { return !row.newDigest || row.newDigest(); });
  return available;
}

}  // namespace

std::span<const Algorithm> Algorithms() { return kAlgorithms; }

const Algorithm* FindAlgorithm(ALG_ID id) {
  const auto* row = std::find_if(std::begin(kAlgorithms), std::end(kAlgorithms),
                                 [id](const Algorithm& candidate) { return candidate.id == id; });
  return row == std::end(kAlgorithms) ? nullptr : row;
}

bool IsAvailable(const Algorithm& algorithm) {
  static const Availability available = FindAvailable();
  return available[static_cast<size_t>(&algorithm - kAlgorithms)];
}

}  // namespace keykern
