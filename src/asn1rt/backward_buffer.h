// Where an encoder writes: from the end to the front, so that a value's length is known when its header is written. Either
// grows at its front, or is a caller's and stays as large as it is.
#ifndef CERTKERN_ASN1RT_BACKWARD_BUFFER_H
#define CERTKERN_ASN1RT_BACKWARD_BUFFER_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

namespace certkern {

class BackwardBuffer {
 public:
  // What was written is dropped, the room stays.
  void restart() { index_ = size_; }
  // Only so much of what was written first stays.
  void dropTo(size_t length) { index_ = size_ - length; }
  // A caller's room, which must outlive its use here; an empty one brings back the buffer that grows.
  void useFixed(std::span<uint8_t> room);

  bool isDynamic() const { return dynamic_; }
  size_t length() const { return size_ - index_; }
  // The finished part; moves when the buffer grows.
  uint8_t* start() { return data_ + index_; }
  std::span<const uint8_t> bytes() const { return {data_ + index_, length()}; }

  // Room for so many octets in front of what is there: their start, or null; then status() of the failure applies.
  uint8_t* prepend(size_t count) {
    if (count > index_) [[unlikely]] {
      if (!grow(count)) return nullptr;
    }
    index_ -= count;
    return data_ + index_;
  }
  // Why the last prepend() answered null.
  int status() const;

 private:
  struct Free {
    void operator()(uint8_t* memory) const { std::free(memory); }
  };
  bool grow(size_t count);

  std::unique_ptr<uint8_t[], Free> owned_;
  size_t ownedSize_ = 0;
  uint8_t* data_ = nullptr;
  size_t size_ = 0;
  size_t index_ = 0;
  bool dynamic_ = true;
};

}  // namespace certkern

#endif
