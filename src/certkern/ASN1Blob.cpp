#include "certkern/ASN1Blob.h"

#include <certkern/errors.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "platform/exceptions.h"
#include "platform/file.h"
#include "platform/limits.h"
#include "platform/retrying_open.h"
#include "platform/sizes.h"
#include "text/base64.h"

namespace certkern {
namespace {

constexpr uint64_t kFirstCapacity = 4096;

uint64_t CapacityFor(uint64_t size) {
  uint64_t capacity = kFirstCapacity;
  while (capacity < size) capacity *= 2;
  return std::min(capacity, kMaxInterfaceSize);
}

FileStream Open(const std::string& path, const char* mode) {
  FileStream stream(support_an_fopen(path.c_str(), mode));
  if (!stream) throw Asn1Exception("couldn't open file " + path);
  return stream;
}

// As much as the file has, up to the room; a signal on the way is no end.
size_t RetryingRead(std::FILE* stream, std::span<BYTE> room) {
  size_t count = 0;
  while (count < room.size()) {
    errno = 0;
    count += std::fread(room.data() + count, 1, room.size() - count, stream);
    if (count == room.size() || std::feof(stream)) break;
    if (errno != EINTR) throw Asn1Exception("couldn't read file");
    std::clearerr(stream);
  }
  return count;
}

}  // namespace

void ASN1Blob::swap(ASN1Blob& other) noexcept {
  std::swap(data_, other.data_);
  std::swap(size_, other.size_);
  std::swap(capacity_, other.capacity_);
}

void ASN1Blob::assign(std::span<const BYTE> bytes) {
  ASN1Blob fresh;
  fresh.resize(bytes.size());
  std::ranges::copy(bytes, fresh.data());
  swap(fresh);
}

ASN1Blob ASN1Blob::enlarged(uint64_t size) const {
  if (!FitsDword(size)) throw CryptException(ERROR_NOT_ENOUGH_MEMORY);
  ASN1Blob larger;
  larger.capacity_ = static_cast<DWORD>(CapacityFor(size));
  larger.data_ = AllocateBytes(larger.capacity_);
  larger.size_ = static_cast<DWORD>(size);
  std::ranges::copy(bytes(), larger.data());
  return larger;
}

void ASN1Blob::append(std::span<const BYTE> bytes) {
  const uint64_t end = size_;
  if (end + bytes.size() <= capacity_) {
    std::ranges::copy(bytes, data() + end);
    size_ = static_cast<DWORD>(end + bytes.size());
    return;
  }
  ASN1Blob larger = enlarged(end + bytes.size());
  std::ranges::copy(bytes, larger.data() + end);
  swap(larger);
}

void ASN1Blob::resize(uint64_t size) {
  if (size > capacity_) *this = enlarged(size);
  size_ = static_cast<DWORD>(size);
}

std::string ASN1Blob::toBase64() const {
  std::string text(Base64TextLength(size_, LineEnds::Written), '\0');
  if (!FitsDword(text.size())) throw Asn1Exception("base64_encode failed");
  Base64Write(bytes(), LineEnds::Written, text.data());
  return text;
}

ASN1Blob ASN1Blob::FromBase64(std::string_view text) {
  const auto size = Base64DecodedSize(text);
  if (!size) throw Asn1Exception("invalid base 64 format");
  ASN1Blob blob;
  blob.resize(*size);
  if (*size) Base64Read(text, blob.data());
  return blob;
}

ASN1Blob ASN1Blob::Load(const std::string& path) {
  const FileStream stream = Open(path, "rb");
  ASN1Blob blob;
  blob.resize(kFirstCapacity);
  DWORD filled = 0;
  while (true) {
    filled += static_cast<DWORD>(RetryingRead(stream.get(), {blob.data() + filled, blob.size() - filled}));
    if (filled < blob.size()) break;
    if (filled >= kMaxBlobSize) throw Asn1Exception("out of memory");
    blob.resize(uint64_t{2} * filled);
  }
  blob.resize(filled);
  return blob;
}

void ASN1Blob::save(const std::string& path) const {
  FileStream stream = Open(path, "wb");
  if (!WriteFile(stream.get(), bytes()) || !CloseFile(std::move(stream))) {
    throw Asn1Exception("couldn't write file " + path);
  }
}

}  // namespace certkern
