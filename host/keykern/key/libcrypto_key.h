// What the key families over libcrypto share: owners, numbers, and signatures of a hash value.
//
// An EVP_PKEY is never changed once it stands, so that threads may share it. Private and public half are one object:
// a private key hands its public half another reference.
#ifndef CERTKERN_KEYKERN_KEY_LIBCRYPTO_KEY_H
#define CERTKERN_KEYKERN_KEY_LIBCRYPTO_KEY_H

#include "keykern/crypto_library.h"
#include "keykern/error_mark.h"
#include "keykern/key/asymmetric_key.h"

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>

#include <atomic>
#include <memory>

namespace keykern {

using PkeyPtr = std::unique_ptr<EVP_PKEY, LibcryptoFree<EVP_PKEY_free>>;
using PkeyContextPtr = std::unique_ptr<EVP_PKEY_CTX, LibcryptoFree<EVP_PKEY_CTX_free>>;
using MdContextPtr = std::unique_ptr<EVP_MD_CTX, LibcryptoFree<EVP_MD_CTX_free>>;
// Every number is cleared: which of them are secret is not worth telling apart.
using BnPtr = std::unique_ptr<BIGNUM, LibcryptoFree<BN_clear_free>>;
using BnContextPtr = std::unique_ptr<BN_CTX, LibcryptoFree<BN_CTX_free>>;

// The key, unless memory was short when libcrypto computed its sizes, which it tells nobody: std::bad_alloc.
PkeyPtr WithSizes(PkeyPtr key);
// Another reference to the same key.
PkeyPtr Share(const PkeyPtr& key);
PkeyContextPtr NewContext(const PkeyPtr& key);

// Big-endian, in memory for secrets, to be worked with in constant time. Throws std::bad_alloc like what follows.
BnPtr ToNumber(std::span<const BYTE> magnitude);
BnPtr NewNumber();
// A number of a key by libcrypto's name, big-endian; empty when the key does not have it.
SecretBytes NumberOf(const PkeyPtr& key, const char* name);

// The pieces of a key under libcrypto's names.
class KeyPieces {
 public:
  KeyPieces();
  // Borrowed until build().
  KeyPieces& number(const char* name, const BnPtr& value);
  KeyPieces& octets(const char* name, std::span<const BYTE> value);
  // value is a literal.
  KeyPieces& text(const char* name, const char* value);
  // selection: EVP_PKEY_PUBLIC_KEY or EVP_PKEY_KEYPAIR. Null when libcrypto refuses.
  PkeyPtr build(const char* type, int selection);

 private:
  std::unique_ptr<OSSL_PARAM_BLD, LibcryptoFree<OSSL_PARAM_BLD_free>> builder_;
  bool ok_ = true;
};

// The hash functions that signatures and paddings over libcrypto know; null for every other. Throws std::bad_alloc.
const EVP_MD* FindDigest(ALG_ID hash);
// Dotted; null like FindDigest.
const char* DigestOid(ALG_ID hash);
// The hash function of an input whose value has its length; null otherwise.
const EVP_MD* DigestOf(const SignatureInput& input);

// Prepares a context beyond its hash. False when libcrypto refuses.
using Prepare = bool (*)(EVP_PKEY_CTX* context, const SignatureInput& input, const EVP_MD* digest);

// A context that waits for the next use of its key: to make one takes as long as a tenth of a signature. Whoever comes
// while it is away makes another; of those that come back one stays. A key has one for each thing that it does.
class SpareContext {
 public:
  // As it was left, and what it was made ready for last.
  struct Prepared {
    PkeyContextPtr context;
    const EVP_MD* digest = nullptr;
    bool pss = false;
    DWORD saltLength = 0;

    bool suits(const SignatureInput& input, const EVP_MD* wanted) const {
      return digest == wanted && pss == input.pss && saltLength == input.saltLength;
    }
  };

  SpareContext() = default;
  SpareContext(const SpareContext&) = delete;
  SpareContext& operator=(const SpareContext&) = delete;
  ~SpareContext() { delete waiting_.load(std::memory_order_acquire); }

  // Empty when none waits.
  std::unique_ptr<Prepared> take() {
    return std::unique_ptr<Prepared>(waiting_.exchange(nullptr, std::memory_order_acq_rel));
  }
  void giveBack(std::unique_ptr<Prepared> prepared) {
    const std::unique_ptr<Prepared> other(waiting_.exchange(prepared.release(), std::memory_order_acq_rel));
  }

 private:
  std::atomic<Prepared*> waiting_{nullptr};
};

// What libcrypto itself says of a signature in its own order: ERROR_SUCCESS, NTE_BAD_SIGNATURE, or the code of a failure.
// For some families a lack of memory looks like a mismatch: their callers look again.
DWORD VerifyHash(const PkeyPtr& key, SpareContext& spare, const SignatureInput& input,
                 std::span<const BYTE> standard, Prepare prepare = nullptr);

// Signatures of a hash value, in the reversed order of the key level; codes as PublicKey::verify and PrivateKey::sign.
// VerifyPair: those that are SEQUENCE { r INTEGER, s INTEGER }, of ECDSA and DSA.
DWORD VerifyPair(const PkeyPtr& key, SpareContext& spare, const SignatureInput& input,
                 std::span<const BYTE> signature);
DWORD SignHash(const PkeyPtr& key, SpareContext& spare, const SignatureInput& input, SecretBytes& signature,
               Prepare prepare = nullptr);

SecretBytes Reversed(std::span<const BYTE> bytes);

}  // namespace keykern

#endif
