#include "keykern/algorithms.h"

#include "keykern/cipher/cipher.h"
#include "platform/limits.h"
#include "platform/supkern.h"

#include <algorithm>
#include <array>

namespace keykern {
namespace {

constexpr Algorithm Hash(ALG_ID id, DWORD providerType, DWORD bits, std::string_view name,
                         std::string_view longName, DigestMaker newDigest) {
  return {id, AlgorithmKind::Hash, providerType, bits, bits, bits, name, longName, newDigest};
}

// Over the hash base, or over any; bits of the usual value, 0 where the caller decides.
constexpr Algorithm Over(AlgorithmKind kind, ALG_ID id, DWORD providerType, DWORD bits, ALG_ID base,
                         std::string_view name, std::string_view longName) {
  return {id, kind, providerType, bits, bits, bits, name, longName, nullptr, base};
}

constexpr Algorithm Key(ALG_ID id, DWORD providerType, DWORD bits, DWORD minimumBits, DWORD maximumBits,
                        std::string_view name, std::string_view longName) {
  return {id, AlgorithmKind::Key, providerType, bits, minimumBits, maximumBits, name, longName};
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
    Over(AlgorithmKind::Message, CALG_MESSAGE_ITSELF, PROV_EDDSA, 0, 0, "MESSAGE",
         "The message itself, not hashed"),
    Over(AlgorithmKind::Hmac, CALG_GR3411_2012_256_HMAC, PROV_GOST_2012_256, 256, CALG_GR3411_2012_256,
         "HMAC GR 2012 256", "HMAC of GOST R 34.11-2012, 256 bits"),
    Over(AlgorithmKind::Hmac, CALG_GR3411_2012_512_HMAC, PROV_GOST_2012_512, 512, CALG_GR3411_2012_512,
         "HMAC GR 2012 512", "HMAC of GOST R 34.11-2012, 512 bits"),
    Over(AlgorithmKind::Hmac, CALG_GR3411_HMAC, PROV_GOST_2001_DH, 256, CALG_GR3411, "HMAC GR 34.11-94",
         "HMAC of GOST R 34.11-94"),
    Over(AlgorithmKind::Hmac, CALG_HMAC, PROV_RSA_AES, 0, 0, "HMAC", "HMAC of any hash"),
    Over(AlgorithmKind::Pbkdf2, CALG_GR3411_2012_256_PBKDF2, PROV_GOST_2012_256, 256, CALG_GR3411_2012_256,
         "PBKDF2 GR 2012 256", "PBKDF2 of GOST R 34.11-2012, 256 bits"),
    Over(AlgorithmKind::Pbkdf2, CALG_GR3411_2012_512_PBKDF2, PROV_GOST_2012_512, 512, CALG_GR3411_2012_512,
         "PBKDF2 GR 2012 512", "PBKDF2 of GOST R 34.11-2012, 512 bits"),
    Over(AlgorithmKind::Pbkdf2, CALG_GR3411_PBKDF2, PROV_GOST_2001_DH, 256, CALG_GR3411, "PBKDF2 GR 34.11-94",
         "PBKDF2 of GOST R 34.11-94"),
    Over(AlgorithmKind::Pbkdf2, CALG_PBKDF2, PROV_RSA_AES, 0, 0, "PBKDF2", "PBKDF2 of any hash"),
    Key(CALG_GR3412_2015_K, PROV_GOST_2012_512, 256, 256, 256, "GR 34.12-2015 K",
        "GOST R 34.12-2015, Kuznyechik"),
    Key(CALG_GR3412_2015_M, PROV_GOST_2012_256, 256, 256, 256, "GR 34.12-2015 M", "GOST R 34.12-2015, Magma"),
    Key(CALG_G28147, PROV_GOST_2001_DH, 256, 256, 256, "GOST 28147-89", "GOST 28147-89"),
    Key(CALG_AES_256, PROV_RSA_AES, 256, 256, 256, "AES 256", "Advanced Encryption Standard, 256 bits"),
    Key(CALG_AES_192, PROV_RSA_AES, 192, 192, 192, "AES 192", "Advanced Encryption Standard, 192 bits"),
    Key(CALG_AES_128, PROV_RSA_AES, 128, 128, 128, "AES 128", "Advanced Encryption Standard, 128 bits"),
    Key(CALG_3DES, PROV_RSA_FULL, 192, 192, 192, "3DES", "Three-key Triple DES"),
    Key(CALG_3DES_112, PROV_RSA_FULL, 128, 128, 128, "3DES TWO KEY", "Two-key Triple DES"),
    Key(CALG_DES, PROV_RSA_FULL, 64, 64, 64, "DES", "Data Encryption Standard"),
    Key(CALG_RC2, PROV_RSA_FULL, 128, 40, 128, "RC2", "RC2 block cipher, 40 or 128 bits"),
    Key(CALG_RC4, PROV_RSA_FULL, 128, 40, 256, "RC4", "RC4 stream cipher"),
    Key(CALG_GR3410_12_256, PROV_GOST_2012_256, 256, 256, 256, "GR 34.10-2012 256",
        "GOST R 34.10-2012, 256 bits"),
    Key(CALG_DH_GR3410_12_256_SF, PROV_GOST_2012_256, 256, 256, 256, "DH 34.10-2012 256",
        "VKO GOST R 34.10-2012, 256 bits"),
    Key(CALG_DH_GR3410_12_256_EPHEM, PROV_GOST_2012_256, 256, 256, 256, "DH 2012 256 EPHEM",
        "VKO 2012, 256 bits, ephemeral"),
    Key(CALG_GR3410_12_512, PROV_GOST_2012_512, 512, 512, 512, "GR 34.10-2012 512",
        "GOST R 34.10-2012, 512 bits"),
    Key(CALG_DH_GR3410_12_512_SF, PROV_GOST_2012_512, 512, 512, 512, "DH 34.10-2012 512",
        "VKO GOST R 34.10-2012, 512 bits"),
    Key(CALG_DH_GR3410_12_512_EPHEM, PROV_GOST_2012_512, 512, 512, 512, "DH 2012 512 EPHEM",
        "VKO 2012, 512 bits, ephemeral"),
    Key(CALG_GR3410EL, PROV_GOST_2001_DH, 256, 256, 256, "GR 34.10-2001", "GOST R 34.10-2001"),
    Key(CALG_DH_EL_SF, PROV_GOST_2001_DH, 256, 256, 256, "DH 34.10-2001", "VKO GOST R 34.10-2001"),
    Key(CALG_DH_EL_EPHEM, PROV_GOST_2001_DH, 256, 256, 256, "DH 2001 EPHEM", "VKO 2001, ephemeral"),
    Key(CALG_RSA_SIGN, PROV_RSA_AES, 2048, 1024, certkern::kMaxRsaBits, "RSA_SIGN", "RSA signature"),
    Key(CALG_RSA_KEYX, PROV_RSA_AES, 2048, 1024, certkern::kMaxRsaBits, "RSA_KEYX", "RSA key exchange"),
    Key(CALG_ECDSA, PROV_EC_ECDSA_FULL, 256, 224, 521, "ECDSA", "Elliptic curve signature"),
    Key(CALG_ECDH, PROV_EC_ECDSA_FULL, 256, 224, 521, "ECDH", "Elliptic curve key agreement"),
    Key(CALG_ECDH_EPHEM, PROV_EC_ECDSA_FULL, 256, 224, 521, "ECDH EPHEM",
        "Elliptic curve key agreement, ephemeral"),
    Key(CALG_EDDSA, PROV_EDDSA, 256, 256, 456, "EDDSA", "Edwards curve signature"),
    Key(CALG_DSS_SIGN, PROV_RSA_FULL, 2048, 1024, 3072, "DSA_SIGN", "Digital Signature Algorithm, verifying"),
};
static_assert(std::all_of(std::begin(kAlgorithms), std::end(kAlgorithms),
                          [](const Algorithm& row) {
                            return row.name.size() < sizeof(PROV_ENUMALGS::szName)
                                && row.longName.size() < sizeof(PROV_ENUMALGS_EX::szLongName);
                          }),
              "the records of an enumeration hold the names with a NUL");

// A host in FIPS mode takes the GOST algorithms away, and whoever wonders why finds it in the trace.
void ReportMissing(std::string_view name) {
  const support_db_ctx trace = support_print_init2(nullptr, "keykern", 0, 127);
  if (!trace) return;
  support_elprint_print_(trace, "not available on this host: %.*s", "", __LINE__, "FindAvailable",
                         static_cast<int>(name.size()), name.data());
  support_print_done(trace);
}

// By row. Asked of the libraries once: the answer is the host's, and making a digest to find out is not free.
using Availability = std::array<bool, std::size(kAlgorithms)>;
Availability FindAvailable() {
  Availability available{};
  std::transform(std::begin(kAlgorithms), std::end(kAlgorithms), available.begin(),
                 [](const Algorithm& row) { return !row.newDigest || row.newDigest(); });
  // what stands on a hash stands and falls with it
  for (size_t i = 0; i < std::size(kAlgorithms); ++i) {
    const Algorithm& row = kAlgorithms[i];
    if (row.base) available[i] = FindHash(row.base)->newDigest() != nullptr;
    if (FindCipher(row.id)) available[i] = IsCipherAvailable(row.id);
    if (!available[i]) ReportMissing(row.name);
  }
  return available;
}

}  // namespace

std::span<const Algorithm> Algorithms() { return kAlgorithms; }

const Algorithm* FindAlgorithm(ALG_ID id) {
  const auto* row = std::find_if(std::begin(kAlgorithms), std::end(kAlgorithms),
                                 [id](const Algorithm& candidate) { return candidate.id == id; });
  return row == std::end(kAlgorithms) ? nullptr : row;
}

const Algorithm* FindHash(ALG_ID id) {
  const Algorithm* row = FindAlgorithm(id);
  return row && row->kind == AlgorithmKind::Hash ? row : nullptr;
}

bool IsAvailable(const Algorithm& algorithm) {
  static const Availability available = FindAvailable();
  return available[static_cast<size_t>(&algorithm - kAlgorithms)];
}

}  // namespace keykern
