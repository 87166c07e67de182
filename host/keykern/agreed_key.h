// Agreed keys: what a private key and somebody else's public key come to. They wrap and unwrap session keys.
#ifndef CERTKERN_KEYKERN_AGREED_KEY_H
#define CERTKERN_KEYKERN_AGREED_KEY_H

#include "keykern/key/asymmetric_key.h"
#include "keykern/key_object.h"

#include <mutex>
#include <string>

namespace keykern {

class AgreedKey final : public KeyObject {
 public:
  AgreedKey(PrivateKeyPtr own, PublicKeyPtr peer, ALG_ID algorithm);

  DWORD getParam(DWORD param, BYTE* out, DWORD* size) override;
  DWORD setParam(DWORD param, const BYTE* data) override;
  DWORD copy(std::unique_ptr<KeyObject>& other) const override;
  AgreedKey* agreed() override { return this; }

  // The wrapped key in the form that WRAPPED_KEY_INFO announces, and its method. NTE_BAD_KEY_STATE: no method was set,
  // or no UKM for one that needs it.
  DWORD wrap(std::span<const BYTE> key, ALG_ID& method, SecretBytes& wrapped);
  DWORD unwrap(ALG_ID method, std::span<const BYTE> wrapped, SecretBytes& key);

 private:
  DWORD gostKek(std::span<const BYTE> ukm, SecretBytes& kek) const;
  DWORD kexpKeys(SecretBytes& keys, std::span<const BYTE>& iv) const;
  DWORD standardKek(ALG_ID cipher, SecretBytes& kek) const;
  DWORD setAlgorithm(ALG_ID algorithm);
  DWORD setUkm(const BYTE* data);

  mutable std::mutex mutex_;
  const PrivateKeyPtr own_;
  const PublicKeyPtr peer_;
  const ALG_ID algorithm_;
  ALG_ID method_ = 0;
  SecretBytes ukm_;
  std::string box_;
  ALG_ID kdfHash_ = CALG_SHA1;
  SecretBytes kdfInfo_;
};

}  // namespace keykern

#endif
