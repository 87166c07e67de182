// Session keys: the key of a cipher, or bytes that carry the key of an HMAC.
#ifndef CERTKERN_KEYKERN_SESSION_KEY_H
#define CERTKERN_KEYKERN_SESSION_KEY_H

#include "keykern/cipher/cipher.h"
#include "keykern/key_object.h"

#include <memory>
#include <mutex>
#include <span>

namespace keykern {

// A key with its settings and the message that it is working on. Changing a setting ends the message.
class SessionKey final : public KeyObject {
 public:
  // cipher: null for a carrier (CALG_HMAC_KEY).
  SessionKey(ALG_ID algorithm, const CipherRow* cipher, SecretBytes key, bool exportable);

  DWORD getParam(DWORD param, BYTE* out, DWORD* size) override;
  DWORD setParam(DWORD param, const BYTE* data) override;
  DWORD copy(std::unique_ptr<KeyObject>& other) const override;
  SessionKey* session() override { return this; }

  // Both work in place; padding is added or taken away with the last piece of a block mode.
  // @param size  in: bytes of data; out: bytes of the result. room: bytes at data.
  // A null buffer only asks for the size. NTE_BAD_LEN: not whole blocks; NTE_BAD_DATA: padding or tag are wrong, and
  // the piece is wiped.
  DWORD encrypt(bool last, BYTE* data, DWORD* size, DWORD room);
  DWORD decrypt(bool last, BYTE* data, DWORD* size);

  ALG_ID algorithm() const { return algorithm_; }
  bool exportable() const { return exportable_; }
  // A snapshot of what the key is.
  CipherSettings settings() const;
  // CALG_EXPORT_... when the key wraps others; 0 otherwise.
  ALG_ID wrap() const;
  // Has an initial value been set? Then it is the UKM of a wrap.
  bool hasIv() const;

 private:
  DWORD begin(Direction direction);
  DWORD finishTag(Direction direction, std::span<BYTE> piece);
  DWORD pad(BYTE* data, DWORD& size, DWORD room) const;
  DWORD unpad(std::span<const BYTE> data, DWORD& size) const;
  void endMessage();
  DWORD setIv(const BYTE* data);
  DWORD setMode(DWORD mode);
  DWORD setAlgorithm(ALG_ID algorithm);
  DWORD setBox(const char* oid);
  DWORD setTag(const CRYPT_DATA_BLOB& tag);
  DWORD setEffectiveBits(DWORD bits) const;
  DWORD getIv(BYTE* out, DWORD* size) const;

  mutable std::mutex mutex_;
  const ALG_ID algorithm_;
  const CipherRow* const cipher_;
  const bool exportable_;
  CipherSettings settings_;
  ALG_ID wrap_ = 0;
  DWORD padding_ = PKCS5_PADDING;
  std::unique_ptr<CipherStream> stream_;
  Direction direction_ = Direction::Encrypt;
  SecretBytes expectedTag_;  // given before the last piece
  SecretBytes tag_;          // of the last message
  bool refused_ = false;     // its tag was another
};

// Random key of a cipher. bits: 0 for the usual. NTE_BAD_ALGID, NTE_BAD_LEN, NTE_FAIL
DWORD NewSessionKey(ALG_ID algorithm, DWORD bits, bool exportable, std::unique_ptr<KeyObject>& key);
// From bytes: as many as the cipher takes, or NTE_BAD_LEN.
DWORD MakeSessionKey(ALG_ID algorithm, SecretBytes bytes, bool exportable, std::unique_ptr<KeyObject>& key);

}  // namespace keykern

#endif
