// The text of a trace record, checked against its arguments when it is compiled. A record is rarely written, and one
// whose format does not match would crash in the field, with the trace just switched on to find another fault.
#ifndef CERTKERN_PLATFORM_TRACE_TEXT_H
#define CERTKERN_PLATFORM_TRACE_TEXT_H

#include <cstddef>
#include <type_traits>

namespace certkern {

namespace trace_detail {

// Not constexpr on purpose: reaching one of these makes the compiler stop and name it.
void TraceFormatHasTooFewConversions();
void TraceFormatHasTooManyConversions();
void TraceArgumentDoesNotFitItsConversion();
void TraceConversionIsUnknown();

// One conversion of a format: printf's own, and %S for wide text.
struct Conversion {
  char letter = 0;
  bool isLong = false;
};

// Moves past the next conversion; letter 0 at the end of the text.
constexpr Conversion NextConversion(const char*& at) {
  for (; *at; ++at) {
    if (*at != '%') continue;
    if (*++at == '%') continue;
    Conversion found;
    for (; *at; ++at) {
      const char c = *at;
      if (c == 'l') {
        found.isLong = true;
      } else if (!((c >= '0' && c <= '9') || c == '.' || c == '#' || c == '-' || c == '+' || c == ' ')) {
        break;
      }
    }
    found.letter = *at;
    if (!found.letter) TraceConversionIsUnknown();
    ++at;
    return found;
  }
  return {};
}

// In bytes; 0 for what is no integer.
template <class T>
constexpr size_t IntegerSize() {
  if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
    return sizeof(T);
  } else {
    return 0;
  }
}

template <class T>
constexpr bool Fits(Conversion conversion) {
  constexpr size_t size = IntegerSize<T>();
  switch (conversion.letter) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
      return size != 0 && (size == 8) == conversion.isLong;
    case 'c':
      return size != 0 && size <= 4;
    case 'p':  // key-level handles are integers of a pointer's size
      return std::is_pointer_v<
                 T> || std::is_null_pointer_v<T> || (std::is_unsigned_v<T> && size == sizeof(void*));
    case 's':
      return std::is_same_v<T, const char*> || std::is_same_v<T, char*>;
    case 'S':
      return std::is_same_v<T, const wchar_t*> || std::is_same_v<T, wchar_t*>;
    default:
      TraceConversionIsUnknown();
      return false;
  }
}

}  // namespace trace_detail

// A literal with the place where it stands; made from the literal itself, never named by a caller.
template <class... Args>
struct TraceText {
  // NOLINTNEXTLINE(google-explicit-constructor): a literal at the call is the whole point
  consteval TraceText(const char* text, const char* caller = __builtin_FUNCTION(),
                      int callerLine = __builtin_LINE())
      : format(text), function(caller), line(callerLine) {
    const char* at = text;
    (checkNext<Args>(at), ...);
    if (trace_detail::NextConversion(at).letter) trace_detail::TraceFormatHasTooManyConversions();
  }

  const char* format;
  const char* function;
  int line;

 private:
  template <class T>
  static constexpr void checkNext(const char*& at) {
    const trace_detail::Conversion conversion = trace_detail::NextConversion(at);
    if (!conversion.letter) trace_detail::TraceFormatHasTooFewConversions();
    if (!trace_detail::Fits<T>(conversion)) trace_detail::TraceArgumentDoesNotFitItsConversion();
  }
};

// Keeps the format out of the deduction, so that the arguments alone say what it is checked against.
template <class... Args>
using TraceTextFor = TraceText<std::type_identity_t<Args>...>;

}  // namespace certkern

#endif
