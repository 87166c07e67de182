// Bytes with an owner, and their way into files and Base64. The file bears the name under which its exceptions are traced.
#ifndef CERTKERN_CERTKERN_ASN1BLOB_H
#define CERTKERN_CERTKERN_ASN1BLOB_H

#include <certkern/types.h>

#include <span>
#include <string>
#include <string_view>

#include "platform/byte_memory.h"

namespace certkern {

class ASN1Blob {
 public:
  ASN1Blob() = default;
  explicit ASN1Blob(std::span<const BYTE> bytes) { assign(bytes); }
  ASN1Blob(const ASN1Blob& other) { assign(other.bytes()); }
  ASN1Blob(ASN1Blob&& other) noexcept { swap(other); }
  ASN1Blob& operator=(ASN1Blob other) noexcept {
    swap(other);
    return *this;
  }
  ~ASN1Blob() = default;

  DWORD size() const { return size_; }
  DWORD capacity() const { return capacity_; }
  const BYTE* data() const { return data_.get(); }
  BYTE* data() { return data_.get(); }
  std::span<const BYTE> bytes() const { return {data_.get(), size_}; }

  // Bytes may be a part of this one. What would not fit the interface is a CryptException of ERROR_NOT_ENOUGH_MEMORY, here
  // and below.
  void assign(std::span<const BYTE> bytes);
  void append(std::span<const BYTE> bytes);
  // The content up to the smaller size stays; new bytes are whatever was there.
  void resize(uint64_t size);
  void swap(ASN1Blob& other) noexcept;

  std::string toBase64() const;  // with line ends
  static ASN1Blob FromBase64(std::string_view text);

  static ASN1Blob Load(const std::string& path);
  void save(const std::string& path) const;

 private:
  ASN1Blob enlarged(uint64_t size) const;

  ByteMemory data_;
  DWORD size_ = 0;
  DWORD capacity_ = 0;  // 0, or 4096 times a power of 2, or all that the interface can tell
};

}  // namespace certkern

#endif
