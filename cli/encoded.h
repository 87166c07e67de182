// A record as DER, by the library's encoder.
#ifndef CERTKERN_CLI_ENCODED_H
#define CERTKERN_CLI_ENCODED_H

#include "handles.h"

#include <certkern/encode.h>

#include <span>
#include <string_view>

namespace certkern::cli {

// what says in an error what could not be encoded.
inline Bytes Encode(LPCSTR type, const void* record, std::string_view what) {
  Bytes encoded;
  const auto ask = [&](BYTE* out, DWORD* size) {
    return CryptEncodeObject(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, type, record, out, size);
  };
  if (!AskBytes(ask, encoded)) ThrowLastError(what);
  return encoded;
}

// A blob that borrows the bytes; the library only reads through it.
inline CRYPT_DATA_BLOB BlobOf(std::span<const BYTE> bytes) {
  return {CheckedSize(bytes.size()), const_cast<BYTE*>(bytes.data())};
}

}  // namespace certkern::cli

#endif
