// Extensions as decoded records. What is absent and what does not decode are the same to a chain: there is no record.
#ifndef CERTKERN_CERTKERN_CHAIN_DECODED_EXTENSION_H
#define CERTKERN_CERTKERN_CHAIN_DECODED_EXTENSION_H

#include <certkern/encode.h>
#include <certkern/keykern.h>

#include <memory>
#include <span>

namespace certkern {

// A decoded record in memory of its own; null when the extension is absent or does not decode.
template <class Record>
using DecodedRecord = std::unique_ptr<const Record, void (*)(const Record*)>;

// The first extension of that identifier under its structure type, in one block for LocalFree; null: none. The last
// error stays. Throws std::bad_alloc.
void* DecodeExtensionBlock(std::span<const CERT_EXTENSION> extensions, LPCSTR oid, LPCSTR structType);

template <class Record>
DecodedRecord<Record> DecodeExtension(std::span<const CERT_EXTENSION> extensions, LPCSTR oid,
                                      LPCSTR structType) {
  return {static_cast<const Record*>(DecodeExtensionBlock(extensions, oid, structType)),
          [](const Record* record) { LocalFree(const_cast<Record*>(record)); }};
}

}  // namespace certkern

#endif
