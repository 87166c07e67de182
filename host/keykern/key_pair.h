// Key pairs behind handles: a container's key, one that stands beside the container's, an ephemeral one, or only the
// public half of somebody else's.
#ifndef CERTKERN_KEYKERN_KEY_PAIR_H
#define CERTKERN_KEYKERN_KEY_PAIR_H

#include "keykern/key/asymmetric_key.h"
#include "keykern/key_object.h"
#include "keykern/provider.h"

#include <mutex>
#include <string>

namespace keykern {

// What is still to be generated: under CRYPT_PREGEN parameters follow, and the first use makes the key.
struct PendingKey {
  Family family;
  DWORD bits = 0;
  std::string parameterSet;
};

class KeyPair final : public KeyObject {
 public:
  // spec: AT_KEYEXCHANGE or AT_SIGNATURE for a key of the provider's key set; 0 for all others.
  KeyPair(Pinned<Provider> provider, ALG_ID algorithm, DWORD spec, bool exportable);
  void holdPublic(PublicKeyPtr key) { public_ = std::move(key); }
  void holdPrivate(PrivateKeyPtr key);
  void holdPending(PendingKey pending) { pending_ = std::move(pending), isPending_ = true; }

  DWORD getParam(DWORD param, BYTE* out, DWORD* size) override;
  DWORD setParam(DWORD param, const BYTE* data) override;
  DWORD copy(std::unique_ptr<KeyObject>& other) const override;
  KeyPair* pair() override { return this; }

  // Make the key if that is still to be done; load it from the container if it is there.
  DWORD publicKey(PublicKeyPtr& key);
  // NTE_NO_KEY: only the public half is here; those of KeySet::load.
  DWORD privateKey(PrivateKeyPtr& key);

  ALG_ID algorithm() const { return algorithm_; }
  const Pinned<Provider>& provider() const { return provider_; }
  // The same; NTE_BAD_KEY_STATE for a key that must not leave.
  DWORD exportableKey(PrivateKeyPtr& key);
  // How this key leaves under a wrapping key that does not say so itself; 0: not set.
  ALG_ID wrap() const;
  // Hash and label of RSAES-OAEP.
  void oaep(ALG_ID& hash, SecretBytes& label) const;

 private:
  DWORD generate();
  DWORD privateKeyLocked(PrivateKeyPtr& key);
  DWORD publicKeyLocked(PublicKeyPtr& key);
  DWORD getCertificate(BYTE* out, DWORD* size);
  DWORD setCertificate(const BYTE* data);
  DWORD setParameterSet(const char* oid);

  mutable std::mutex mutex_;
  const Pinned<Provider> provider_;
  const ALG_ID algorithm_;
  const DWORD spec_;
  bool exportable_;
  PublicKeyPtr public_;
  PrivateKeyPtr private_;
  PendingKey pending_{};
  bool isPending_ = false;
  ALG_ID wrap_ = 0;
  ALG_ID oaepHash_ = CALG_SHA1;
  SecretBytes oaepLabel_;
};

// The DER length of a certificate decides how much is read of it: the call tells none. 0: not a certificate's header.
size_t EncodedSize(const BYTE* encoded);

}  // namespace keykern

#endif
