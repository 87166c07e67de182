#include "keykern/derive/imit.h"

#include "keykern/crypto_library.h"

#include <gcrypt.h>

#include <memory>

namespace keykern {
namespace {

// Beyond this the key would have to change (RFC 4357, 2.3.2), which the library does not do here.
constexpr size_t kMaxImitData = 1024;

struct CloseMac {
  void operator()(gcry_mac_hd_t handle) const { gcry_mac_close(handle); }
};

}  // namespace

bool Imit(std::span<const BYTE> key, const std::string& box, std::span<const BYTE> start,
          std::span<const BYTE> data, std::span<BYTE, kImitSize> mac) {
  if (data.size() > kMaxImitData) return false;
  StartLibgcrypt();
  gcry_mac_hd_t opened = nullptr;
  if (gcry_mac_open(&opened, GCRY_MAC_GOST28147_IMIT, 0, nullptr)) return false;
  const std::unique_ptr<gcry_mac_handle, CloseMac> handle(opened);
  size_t size = mac.size();
  return !gcry_mac_ctl(handle.get(), GCRYCTL_SET_SBOX, const_cast<char*>(box.c_str()), 0)
      && !gcry_mac_setkey(handle.get(), key.data(), key.size())
      && !gcry_mac_setiv(handle.get(), start.data(), start.size())
      && !gcry_mac_write(handle.get(), data.data(), data.size())
      && !gcry_mac_read(handle.get(), mac.data(), &size) && size == mac.size();
}

}  // namespace keykern
