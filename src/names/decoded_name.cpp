#include "names/decoded_name.h"

#include <certkern/errors.h>

#include <cstdlib>

#include "ber/struct_types.h"

namespace certkern {
namespace {

const StructType& DisplayName() {
  static const StructType* const row = FindStructType(kTypeDisplayName);
  return *row;
}

}  // namespace

bool DecodedName::decode(const CERT_NAME_BLOB& encoded) {
  if (!encoded.pbData || !encoded.cbData) return false;
  const std::span<const BYTE> bytes(encoded.pbData, encoded.cbData);
  return decodeHere(bytes) || decodeOnHeap(bytes);
}

bool DecodedName::decodeHere(std::span<const BYTE> encoded) {
  if (encoded.size() > kRoom) return false;  // the record is larger than what it is decoded from
  DWORD size = kRoom;
  if (!BerDecodeEntry(SizeKnown::Yes, DisplayName(), encoded, 0, room_.data(), &size)) return false;
  name_ = reinterpret_cast<const CERT_NAME_INFO*>(room_.data());
  return true;
}

bool DecodedName::decodeOnHeap(std::span<const BYTE> encoded) {
  DWORD size = 0;
  if (!BerDecodeEntry(SizeKnown::No, DisplayName(), encoded, 0, nullptr, &size)) return false;
  heap_.reset(static_cast<BYTE*>(std::malloc(size)));
  if (!heap_) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return false;
  }
  if (!BerDecodeEntry(SizeKnown::Yes, DisplayName(), encoded, 0, heap_.get(), &size)) return false;
  name_ = reinterpret_cast<const CERT_NAME_INFO*>(heap_.get());
  return true;
}

}  // namespace certkern
