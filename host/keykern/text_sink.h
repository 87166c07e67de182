// Where converted text goes: counted always, written as far as there is room.
#ifndef CERTKERN_KEYKERN_TEXT_SINK_H
#define CERTKERN_KEYKERN_TEXT_SINK_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace keykern {

inline constexpr uint32_t kReplacement = 0xFFFD;

enum class Check { Replace, Strict };

// What is written for a character that the target does not have: a text of the caller's, or the target's own.
struct Substitute {
  const char* text = nullptr;
  bool used = false;
};

template <typename Character>
class TextSink {
 public:
  TextSink(Character* out, size_t room) : out_(out), room_(out ? room : 0) {}

  template <typename Value>
  void put(Value value) {
    if (count_ < room_) out_[count_] = static_cast<Character>(value);
    ++count_;
  }
  // A run of characters that need no conversion but their width: one loop without a branch inside.
  template <typename Value>
  void putRun(const Value* run, size_t size) {
    const size_t written = std::min(size, room_ - std::min(room_, count_));
    for (size_t i = 0; i < written; ++i) out_[count_ + i] = static_cast<Character>(run[i]);
    count_ += size;
  }
  size_t count() const { return count_; }

 private:
  Character* out_;
  size_t room_;
  size_t count_ = 0;
};

using WideSink = TextSink<wchar_t>;
using ByteSink = TextSink<char>;

}  // namespace keykern

#endif
