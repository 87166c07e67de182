// What a key handle stands for: a session key, a key pair (or its public half), or an agreed key.
#ifndef CERTKERN_KEYKERN_KEY_OBJECT_H
#define CERTKERN_KEYKERN_KEY_OBJECT_H

#include "keykern/handle_table.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <memory>

namespace keykern {

class SessionKey;
class KeyPair;
class AgreedKey;

// Operations answer a code, and may come from several threads.
class KeyObject : public HandleObject {
 public:
  static constexpr Kind kKind = Kind::Key;

  virtual DWORD getParam(DWORD param, BYTE* out, DWORD* size) = 0;
  virtual DWORD setParam(DWORD param, const BYTE* data) = 0;
  virtual DWORD copy(std::unique_ptr<KeyObject>& other) const = 0;

  // What it is; null for the two that it is not.
  virtual SessionKey* session() { return nullptr; }
  virtual KeyPair* pair() { return nullptr; }
  virtual AgreedKey* agreed() { return nullptr; }
};

// A parameter as callers hand it over: a word, a blob, a text. They come without a length, as published.
inline DWORD WordOf(const BYTE* data) {
  DWORD word;
  __builtin_memcpy(&word, data, sizeof(word));
  return word;
}
inline CRYPT_DATA_BLOB BlobOf(const BYTE* data) {
  CRYPT_DATA_BLOB blob;
  __builtin_memcpy(&blob, data, sizeof(blob));
  return blob;
}

}  // namespace keykern

#endif
