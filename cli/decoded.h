// A record from the library's decoder, with its owner.
#ifndef CERTKERN_CLI_DECODED_H
#define CERTKERN_CLI_DECODED_H

#include <certkern/encode.h>
#include <certkern/keykern.h>

#include <memory>
#include <span>

namespace certkern::cli {

struct LocalFreeDeleter {
  void operator()(void* memory) const { LocalFree(memory); }
};

template <typename Record>
using Decoded = std::unique_ptr<Record, LocalFreeDeleter>;

// Null when the bytes are no such record; the last error tells why. Record may be void where only type says
// what it is.
template <typename Record>
Decoded<Record> Decode(LPCSTR type, std::span<const BYTE> bytes, DWORD flags = 0) {
  void* record = nullptr;
  // a code that an earlier call left behind must not pass for this one's reason
  SetLastError(0);
  if (!CryptDecodeObjectEx(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, type, bytes.data(),
                           static_cast<DWORD>(bytes.size()), flags | CRYPT_DECODE_ALLOC_FLAG, nullptr,
                           &record, nullptr)) {
    return nullptr;
  }
  return Decoded<Record>(static_cast<Record*>(record));
}

inline std::span<const BYTE> BytesOf(const CRYPT_DATA_BLOB& blob) { return {blob.pbData, blob.cbData}; }
inline std::span<const BYTE> BytesOf(const CRYPT_BIT_BLOB& bits) { return {bits.pbData, bits.cbData}; }

}  // namespace certkern::cli

#endif
