// A hash function at work, whichever library computes it.
#ifndef CERTKERN_KEYKERN_DIGEST_H
#define CERTKERN_KEYKERN_DIGEST_H

#include <certkern/types.h>

#include <memory>
#include <span>

struct gcry_md_handle;

namespace keykern {

inline constexpr DWORD kMaxDigestSize = 64;

class Digest {
 public:
  Digest() = default;
  Digest(const Digest&) = delete;
  Digest& operator=(const Digest&) = delete;
  virtual ~Digest() = default;

  [[nodiscard]] virtual bool add(std::span<const BYTE> data) = 0;
  // Writes the value, as long as value is. Nothing but restart() may follow.
  [[nodiscard]] virtual bool finish(std::span<BYTE> value) = 0;
  [[nodiscard]] virtual bool restart() = 0;
  // Another one that goes on from here.
  virtual std::unique_ptr<Digest> copy() const = 0;
};

// Makes a digest, or null when the library refuses: on a host in FIPS mode libgcrypt has few of them. Throws
// std::bad_alloc like copy().
using DigestMaker = std::unique_ptr<Digest> (*)();

// Takes over an open handle of libgcrypt, a keyed one too.
std::unique_ptr<Digest> AdoptLibgcryptDigest(gcry_md_handle* handle);

std::unique_ptr<Digest> NewMd4();
std::unique_ptr<Digest> NewMd5();
std::unique_ptr<Digest> NewSha1();
std::unique_ptr<Digest> NewSha256();
std::unique_ptr<Digest> NewSha384();
std::unique_ptr<Digest> NewSha512();
std::unique_ptr<Digest> NewGost94();      // with the parameter set of RFC 4357, 11.2
std::unique_ptr<Digest> NewGost94Test();  // with the test parameter set of the same RFC
std::unique_ptr<Digest> NewStreebog256();
std::unique_ptr<Digest> NewStreebog512();

}  // namespace keykern

#endif
