// An encoded Name as a record, read leniently: for display and for searches, so that a name with values of the old
// 8-bit types is readable too.
#ifndef CERTKERN_NAMES_DECODED_NAME_H
#define CERTKERN_NAMES_DECODED_NAME_H

#include <certkern/encode.h>

#include <array>
#include <span>

#include "platform/owner.h"

namespace certkern {

// Owns the record. Most names fit the room that the object brings along, and cost no allocation.
class DecodedName {
 public:
  DecodedName() = default;
  DecodedName(const DecodedName&) = delete;
  DecodedName& operator=(const DecodedName&) = delete;

  // False, with or without a code, for bytes that are no Name; none at all are no Name either.
  [[nodiscard]] bool decode(const CERT_NAME_BLOB& encoded);
  std::span<const CERT_RDN> relativeNames() const { return {name_->rgRDN, name_->cRDN}; }

 private:
  bool decodeHere(std::span<const BYTE> encoded);
  bool decodeOnHeap(std::span<const BYTE> encoded);

  static constexpr size_t kRoom = 2048;
  alignas(CERT_NAME_INFO) std::array<BYTE, kRoom> room_;  // filled by the decoder
  MallocOwner<BYTE> heap_;
  const CERT_NAME_INFO* name_ = nullptr;
};

inline std::span<const CERT_RDN_ATTR> AttributesOf(const CERT_RDN& relativeName) {
  return {relativeName.rgRDNAttr, relativeName.cRDNAttr};
}

}  // namespace certkern

#endif
