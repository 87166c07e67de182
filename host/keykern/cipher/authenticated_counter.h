// CTR-ACPKM with a tag: the mode of R 1323565.1.025 for messages and of RFC 9337 for key stores.
#ifndef CERTKERN_KEYKERN_CIPHER_AUTHENTICATED_COUNTER_H
#define CERTKERN_KEYKERN_CIPHER_AUTHENTICATED_COUNTER_H

#include "keykern/cipher/keystream.h"
#include "keykern/cipher/omac.h"

namespace keykern {

// Adds up the plaintext on either side of the keystream; the tag goes through what follows of that.
class AuthenticatedCounter final : public CipherStream {
 public:
  AuthenticatedCounter(std::unique_ptr<KeystreamSource> source, std::unique_ptr<Omac> mac,
                       Direction direction)
      : keystream_(std::move(source)), mac_(std::move(mac)), direction_(direction) {}
  bool process(std::span<BYTE> data) override;
  SecretBytes tag() override;

 private:
  KeystreamCipher keystream_;
  std::unique_ptr<Omac> mac_;
  SecretBytes tag_;  // once it was asked for
  const Direction direction_;
};

}  // namespace keykern

#endif
