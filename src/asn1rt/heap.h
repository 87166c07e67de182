// The heap of one message: everything decoded lives here and goes at once. Blocks in a doubly linked list, each a header
// with its payload behind it.
#ifndef CERTKERN_ASN1RT_HEAP_H
#define CERTKERN_ASN1RT_HEAP_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace certkern {

class ASN1Heap {
 public:
  ASN1Heap() = default;
  ASN1Heap(const ASN1Heap&) = delete;
  ASN1Heap& operator=(const ASN1Heap&) = delete;
  ~ASN1Heap();

  // At a multiple of 8. Null: refused, or no memory; never because the size is 0.
  void* allocateRaw(uint64_t size) {
    const uint64_t rounded = (size + (size == 0) + 7) & ~uint64_t{7};
    if (rounded < size || rounded > static_cast<uint64_t>(end_ - next_)) [[unlikely]]
      return allocateSlow(size);
    uint8_t* const piece = next_;
    next_ += rounded;
    return piece;
  }
  // The same, all zero: the empty value of every generated structure.
  void* allocate(uint64_t size) {
    void* const piece = allocateRaw(size);
    if (piece) std::memset(piece, 0, static_cast<size_t>(size));
    return piece;
  }

 private:
  struct Block {
    Block* next;
    Block* previous;
  };
  void* allocateSlow(uint64_t size);
  uint8_t* addBlock(size_t payload);

  Block* first_ = nullptr;
  uint8_t* next_ = nullptr;
  uint8_t* end_ = nullptr;
  size_t nextPayload_ = 0;
};

}  // namespace certkern

#endif
