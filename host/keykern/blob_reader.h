// The one cursor over a key blob, and the words of its head.
#ifndef CERTKERN_KEYKERN_BLOB_READER_H
#define CERTKERN_KEYKERN_BLOB_READER_H

#include "common/secret_bytes.h"

#include <certkern/types.h>

#include <algorithm>
#include <cstring>
#include <span>

namespace keykern {

class BlobReader {
 public:
  explicit BlobReader(std::span<const BYTE> bytes) : rest_(bytes) {}

  std::span<const BYTE> rest() const { return rest_; }

  template <class Record>
  [[nodiscard]] bool take(Record& record) {
    if (rest_.size() < sizeof(record)) return false;
    std::memcpy(&record, rest_.data(), sizeof(record));
    rest_ = rest_.subspan(sizeof(record));
    return true;
  }
  [[nodiscard]] bool take(size_t size, std::span<const BYTE>& bytes) {
    if (size > rest_.size()) return false;
    bytes = rest_.first(size);
    rest_ = rest_.subspan(size);
    return true;
  }
  // A little-endian number of so many bytes, as big-endian ones.
  [[nodiscard]] bool takeNumber(size_t size, certkern::SecretBytes& number) {
    std::span<const BYTE> bytes;
    if (!take(size, bytes)) return false;
    number.assign(bytes.rbegin(), bytes.rend());
    return true;
  }

 private:
  std::span<const BYTE> rest_;
};

template <class Record>
void AppendRecord(certkern::SecretBytes& out, const Record& record) {
  const auto* bytes = reinterpret_cast<const BYTE*>(&record);
  out.insert(out.end(), bytes, bytes + sizeof(record));
}

// A big-endian number as so many little-endian bytes. False when it is longer.
[[nodiscard]] inline bool AppendNumber(certkern::SecretBytes& out, std::span<const BYTE> number,
                                       size_t size) {
  if (number.size() > size) return false;
  out.insert(out.end(), number.rbegin(), number.rend());
  out.insert(out.end(), size - number.size(), BYTE{0});
  return true;
}

}  // namespace keykern

#endif
