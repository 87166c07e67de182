#include "keykern/locale_text.h"

#include <iconv.h>
#include <langinfo.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace keykern {
namespace {

// A converter of this thread, kept while the locale stays what it is. No lock: opening one is costly, using it is not.
class Converter {
 public:
  Converter() = default;
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() { close(); }

  // (iconv_t)-1 when the system has no such conversion.
  iconv_t get(const char* to, const char* from) {
    if (handle_ == kNone || to_ != to || from_ != from) {
      close();
      handle_ = iconv_open(to, from);
      to_ = to;
      from_ = from;
    }
    if (handle_ != kNone) iconv(handle_, nullptr, nullptr, nullptr, nullptr);
    return handle_;
  }
  static inline const iconv_t kNone = reinterpret_cast<iconv_t>(-1);

 private:
  void close() {
    if (handle_ != kNone) iconv_close(handle_);
    handle_ = kNone;
  }
  iconv_t handle_ = kNone;
  std::string to_;
  std::string from_;
};

constexpr char kWide[] = "WCHAR_T";
constexpr size_t kPiece = 256;  // bytes converted at a time

// Feeds what was converted to put, and what could not be to replace, which skips and answers if to go on.
template <typename Put, typename Replace>
bool Convert(iconv_t converter, const char* text, size_t size, const Put& put, const Replace& replace) {
  alignas(wchar_t) char piece[kPiece];
  char* in = const_cast<char*>(text);
  const auto step = [&](char** next, size_t* left) {
    char* out = piece;
    size_t room = sizeof(piece);
    const size_t status = iconv(converter, next, left, &out, &room);
    const int fault = status == static_cast<size_t>(-1) ? errno : 0;
    put(piece, static_cast<size_t>(out - piece));
    return fault;
  };
  while (size) {
    const int fault = step(&in, &size);
    if (!fault || fault == E2BIG) continue;
    step(nullptr, nullptr);  // a substitute is written in the encoding's first shift
    if (!replace(in, size, fault)) return false;
  }
  step(nullptr, nullptr);  // some encodings hold a letter back until they know that no accent follows
  return true;
}

}  // namespace

bool LocaleIsUtf8() {
  const char* codeset = nl_langinfo(CODESET);
  return std::strcmp(codeset, "UTF-8") == 0 || std::strcmp(codeset, "ANSI_X3.4-1968") == 0;
}

bool FromLocale(std::string_view text, Check check, WideSink& sink) {
  thread_local Converter cached;
  const iconv_t converter = cached.get(kWide, nl_langinfo(CODESET));
  if (converter == Converter::kNone) return false;
  const auto put = [&](const char* piece, size_t size) {
    for (size_t i = 0; i < size; i += sizeof(wchar_t)) {
      wchar_t character;
      std::memcpy(&character, piece + i, sizeof(character));
      sink.put(character);
    }
  };
  const auto replace = [&](char*& in, size_t& size, int fault) {
    if (check == Check::Strict) return false;
    const size_t bad = fault == EINVAL ? size : 1;  // a tail that is cut off goes as one
    in += bad;
    size -= bad;
    sink.put(kReplacement);
    return true;
  };
  return Convert(converter, text.data(), text.size(), put, replace);
}

bool ToLocale(std::wstring_view text, Check check, Substitute& substitute, ByteSink& sink) {
  thread_local Converter cached;
  const iconv_t converter = cached.get(nl_langinfo(CODESET), kWide);
  if (converter == Converter::kNone) return false;
  const auto put = [&](const char* piece, size_t size) { sink.putRun(piece, size); };
  const auto replace = [&](char*& in, size_t& size, int) {
    if (check == Check::Strict) return false;
    in += sizeof(wchar_t);
    size -= sizeof(wchar_t);
    substitute.used = true;
    const char* instead = substitute.text ? substitute.text : "?";
    sink.putRun(instead, std::strlen(instead));
    return true;
  };
  return Convert(converter, reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t), put,
                 replace);
}

}  // namespace keykern
