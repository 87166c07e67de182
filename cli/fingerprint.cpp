#include "fingerprint.h"

#include <certkern/cert.h>
#include <certkern/keykern.h>

#include <array>

namespace certkern::cli {
namespace {

struct DigestRow {
  std::string_view name;
  ALG_ID algorithm;
};
constexpr std::array<DigestRow, 2> kDigests = {
    DigestRow{"SHA-1",   CALG_SHA1   },
    DigestRow{"SHA-256", CALG_SHA_256},
};
const DigestRow& RowOf(Digest digest) { return kDigests[static_cast<size_t>(digest)]; }

}  // namespace

std::string_view DigestName(Digest digest) { return RowOf(digest).name; }

std::optional<Bytes> Fingerprint(Digest digest, std::span<const BYTE> bytes) {
  const ALG_ID algorithm = RowOf(digest).algorithm;
  const auto length = static_cast<DWORD>(bytes.size());
  DWORD size = 0;
  if (!CryptHashCertificate(0, algorithm, 0, bytes.data(), length, nullptr, &size)) return std::nullopt;
  Bytes value(size);
  if (!CryptHashCertificate(0, algorithm, 0, bytes.data(), length, value.data(), &size)) return std::nullopt;
  value.resize(size);
  return value;
}

}  // namespace certkern::cli
