// Where a decoder puts what the fixed record points to: strings, blobs, arrays, nested records.
//
// One buffer, one bump pointer behind the top record. Without a buffer the arena only counts, by the same arithmetic,
// so that the sizing pass and the filling pass are one piece of code. Every piece starts at a multiple of 8; the last
// one needs no padding when the caller's size leaves none.
#ifndef CERTKERN_BER_DECODE_ARENA_H
#define CERTKERN_BER_DECODE_ARENA_H

#include <certkern/types.h>

#include <cstddef>
#include <span>

namespace certkern {

class BerDecodeArena {
 public:
  // Counts only; size() is what the filling pass will need.
  explicit BerDecodeArena(size_t recordSize) : used_(recordSize) {}
  // Fills what lies behind the record in a buffer.
  BerDecodeArena(BYTE* buffer, size_t bufferSize, size_t recordSize)
      : next_(buffer + recordSize), remaining_(bufferSize - recordSize) {}

  bool sizing() const { return next_ == nullptr; }
  size_t size() const { return used_; }

  // Room for a piece; null while counting. Fails without a code when the buffer is too small.
  [[nodiscard]] bool reserve(size_t size, BYTE*& place) {
    const size_t rounded = (size + 7) & ~size_t{7};
    if (sizing()) {
      used_ += rounded;
      place = nullptr;
      return true;
    }
    if (size > remaining_) return false;
    place = next_;
    advance(size, rounded);
    return true;
  }

  // Room for an array, not zeroed; null while counting.
  template <typename Record>
  [[nodiscard]] bool reserveRecords(size_t count, Record*& records) {
    if (!sizing() && count > remaining_ / sizeof(Record)) return false;
    BYTE* place;
    if (!reserve(count * sizeof(Record), place)) return false;
    records = reinterpret_cast<Record*>(place);
    return true;
  }

  // Room for one record, zeroed; while counting the record goes where it is not kept.
  template <typename Record>
  [[nodiscard]] bool reserveRecord(Record*& record, Record& unkept) {
    if (!reserveRecords(1, record)) return false;
    if (!record) record = &unkept;
    *record = Record{};
    return true;
  }

  // For a piece whose size shows only once it is written: what is left, and then how much of it was used.
  std::span<BYTE> rest() const { return {next_, remaining_}; }
  void commit(size_t size) { advance(size, (size + 7) & ~size_t{7}); }

 private:
  void advance(size_t size, size_t rounded) {
    const size_t step = rounded <= remaining_ ? rounded : size;
    next_ += step;
    remaining_ = rounded <= remaining_ ? remaining_ - rounded : 0;
  }

  BYTE* next_ = nullptr;
  size_t remaining_ = 0;
  size_t used_ = 0;
};

}  // namespace certkern

#endif
