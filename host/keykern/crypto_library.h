// The two libraries below the key level. libcrypto runs in a context of our own, so that no configuration of the host's
// takes algorithms or random numbers away; libgcrypt has what libcrypto lacks.
//
// Neither may be used by static destructors or exit handlers. What is opened here stays until the process ends.
#ifndef CERTKERN_KEYKERN_CRYPTO_LIBRARY_H
#define CERTKERN_KEYKERN_CRYPTO_LIBRARY_H

#include <certkern/types.h>

#include <openssl/types.h>

#include <atomic>
#include <span>

namespace keykern {

// The deleter of libcrypto's objects.
template <auto Free>
struct LibcryptoFree {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};

// Something of libcrypto's that is made on first need and stays for good. A failure is not kept: memory that was short
// then may be there at the next call.
template <auto kFree>
class MadeOnce;
template <class Object, void (*kFree)(Object*)>
class MadeOnce<kFree> {
 public:
  // Null when make() answers that.
  template <class Make>
  Object* get(const Make& make) {
    if (Object* const made = made_.load(std::memory_order_acquire)) return made;
    Object* const own = make();
    Object* others = nullptr;
    if (!own || made_.compare_exchange_strong(others, own, std::memory_order_acq_rel)) return own;
    kFree(own);
    return others;
  }

 private:
  std::atomic<Object*> made_{nullptr};
};

// Null when memory is short, or the library has no such provider, which no working installation does.
OSSL_LIB_CTX* LibcryptoContext();

// Starts libgcrypt unless the host has done so. Ask before the first use of it.
void StartLibgcrypt();

// Cryptographically strong bytes, from libcrypto's generator.
[[nodiscard]] bool RandomBytes(std::span<BYTE> bytes);

}  // namespace keykern

#endif
