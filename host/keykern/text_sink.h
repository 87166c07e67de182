// Where converted text goes: counted always, written as far as there is room.
#ifndef CERTKERN_KEYKERN_TEXT_SINK_H
#define CERTKERN_KEYKERN_TEXT_SINK_H

#include <cstddef>
#include <cstdint>

namespace keykern {

inline constexpr uint32_t kReplacement = 0xFFFD;

enum class Check { Replace, Strict };

template <typename Character>
class TextSink {
 public:
  TextSink(Character* out, size_t room) : out_(out), room_(out ? room : 0) {}

  template <typename Value>
  void put(Value value) {
    if (count_ < room_) out_[count_] = static_cast<Character>(value);
    ++count_;
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
